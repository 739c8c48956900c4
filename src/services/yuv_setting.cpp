// SPDX-License-Identifier: MIT
#include "services/yuv_setting.h"

#include <cstdlib>
#include <cstring>

#define TAVI_LOG_TAG "tavi-env"
#include "os/locks.h"
#include "services/log.h"

namespace tavi {
namespace {

constexpr struct {
    const char* text;
    ColorSpace color;
} kValues[] = {{"bt601", {Matrix::bt601, false}},   {"bt601-full", {Matrix::bt601, true}},
               {"bt709", {Matrix::bt709, false}},   {"bt709-full", {Matrix::bt709, true}},
               {"bt2020", {Matrix::bt2020, false}}, {"bt2020-full", {Matrix::bt2020, true}}};

ColorSpace read_yuv_setting() {
    const char* const text = ::secure_getenv("TAVI_YUV");
    ColorSpace color;
    if (text && !parse_yuv(text, color))
        LOG_AS("yuv_setting", TAVI_LOG_ERROR,
               "TAVI_YUV=\"%s\": allowed are bt601, bt709 and bt2020, each with -full or without; bt601 is used",
               text);
    return color;
}

} // namespace

bool parse_yuv(const char* text, ColorSpace& color) {
    for (const auto& value : kValues) {
        if (std::strcmp(text, value.text) != 0)
            continue;
        color = value.color;
        return true;
    }
    return false;
}

ColorSpace yuv_setting() {
    static FirstUse<ColorSpace> color;
    return color.get(read_yuv_setting);
}

} // namespace tavi
