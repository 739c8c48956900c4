// SPDX-License-Identifier: MIT
#include "services/pixel_limit.h"

#include <cstdlib>

#include "services/parse_int.h"

#define TAVI_LOG_TAG "tavi-env"
#include "os/locks.h"
#include "services/log.h"

namespace tavi {
namespace {

int read_pixel_limit() {
    const char* const text = ::secure_getenv("TAVI_MAX_PIXELS");
    int pixels = kDefaultPixelLimit;
    if (text && !parse_pixel_limit(text, pixels))
        LOG_AS("pixel_limit", TAVI_LOG_ERROR, "TAVI_MAX_PIXELS=\"%s\" is not an integer from 1 on; %d is used", text,
               kDefaultPixelLimit);
    return pixels;
}

} // namespace

bool parse_pixel_limit(const char* text, int& pixels) {
    int value = 0;
    if (!parse_int(text, &value) || value < 1)
        return false;
    pixels = value;
    return true;
}

int pixel_limit() {
    static FirstUse<int> pixels;
    return pixels.get(read_pixel_limit);
}

} // namespace tavi
