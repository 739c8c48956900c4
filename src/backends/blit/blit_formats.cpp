// SPDX-License-Identifier: MIT
#include "backends/blit/blit_formats.h"

#include <linux/videodev2.h>

#include "image/format.h"

namespace tavi {
namespace {

// Only formats whose planes follow one another in one buffer: an image has one descriptor.
constexpr BlitFormat kBlitFormats[] = {
    {V4L2_PIX_FMT_GREY, 1, 1, false},    // GRAY8
    {V4L2_PIX_FMT_RGB24, 1, 1, false},   // RGB888
    {V4L2_PIX_FMT_BGR24, 1, 1, false},   // BGR888
    {V4L2_PIX_FMT_RGBA32, 1, 1, true},   // RGBA8888
    {V4L2_PIX_FMT_ABGR32, 1, 1, true},   // BGRA8888: the kernel's BGRA32 is A, B, G, R in memory
    {V4L2_PIX_FMT_YUV420, 2, 2, false},  // YU12
    {V4L2_PIX_FMT_YVU420, 2, 2, false},  // YV12
    {V4L2_PIX_FMT_NV12, 2, 2, false},    // NV12
    {V4L2_PIX_FMT_NV21, 2, 2, false},    // NV21
    {V4L2_PIX_FMT_YUV422P, 2, 1, false}, // YU16
    {0, 2, 1, false},                    // YV16: the kernel has it in three buffers only
    {V4L2_PIX_FMT_NV16, 2, 1, false},    // NV16
    {V4L2_PIX_FMT_NV61, 2, 1, false},    // NV61
    {V4L2_PIX_FMT_YUYV, 2, 1, false},    // YUYV
    {V4L2_PIX_FMT_UYVY, 2, 1, false},    // UYVY
    {V4L2_PIX_FMT_Y16, 1, 1, false},     // GRAY16
};
constexpr int kCount = sizeof(kBlitFormats) / sizeof(kBlitFormats[0]);
static_assert(kCount == kFormats.size());

} // namespace

const BlitFormat* find_blit_format(uint32_t pixel_format) {
    return pixel_format < kCount && kBlitFormats[pixel_format].fourcc ? &kBlitFormats[pixel_format] : nullptr;
}

int format_of_fourcc(uint32_t fourcc) {
    for (int i = 0; i < kCount; ++i) {
        if (fourcc && kBlitFormats[i].fourcc == fourcc)
            return i;
    }
    return -1;
}

} // namespace tavi
