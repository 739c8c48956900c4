// SPDX-License-Identifier: MIT
#include "backends/blit/blit_formats.h"

#include <algorithm>
#include <array>

#include <linux/videodev2.h>

namespace tavi {
namespace {

constexpr struct {
    std::string_view name;
    uint32_t fourcc;
    uint32_t apart = 0;
} kNames[] = {
    {"gray8", V4L2_PIX_FMT_GREY},
    {"rgb", V4L2_PIX_FMT_RGB24},
    {"bgr", V4L2_PIX_FMT_BGR24},
    {"rgba", V4L2_PIX_FMT_RGBA32},
    {"bgra", V4L2_PIX_FMT_ABGR32}, // the kernel's BGRA32 is A, B, G, R in memory
    {"yu12", V4L2_PIX_FMT_YUV420},
    {"yv12", V4L2_PIX_FMT_YVU420},
    {"nv12", V4L2_PIX_FMT_NV12, V4L2_PIX_FMT_NV12M},
    {"nv21", V4L2_PIX_FMT_NV21, V4L2_PIX_FMT_NV21M},
    {"yu16", V4L2_PIX_FMT_YUV422P},
    {"yv16", 0}, // in three buffers only
    {"nv16", V4L2_PIX_FMT_NV16, V4L2_PIX_FMT_NV16M},
    {"nv61", V4L2_PIX_FMT_NV61, V4L2_PIX_FMT_NV61M},
    {"yuyv", V4L2_PIX_FMT_YUYV},
    {"uyvy", V4L2_PIX_FMT_UYVY},
    {"gray16", V4L2_PIX_FMT_Y16},
};
static_assert(std::size(kNames) == kFormats.size());

constexpr std::array<uint32_t, kFormats.size()> by_format(bool apart) {
    std::array<uint32_t, kFormats.size()> fourcc{};
    for (size_t i = 0; i < fourcc.size(); ++i)
        for (const auto& row : kNames)
            if (row.name == kFormats[i].name)
                fourcc[i] = apart ? row.apart : row.fourcc;
    return fourcc;
}
constexpr std::array<uint32_t, kFormats.size()> kFourcc[] = {by_format(false), by_format(true)};

} // namespace

uint32_t fourcc_of(uint32_t pixel_format, bool apart) {
    return pixel_format < kFormats.size() ? kFourcc[apart][pixel_format] : 0;
}

int format_of_fourcc(uint32_t fourcc, bool apart) {
    const auto& all = kFourcc[apart];
    const auto found = std::find(all.begin(), all.end(), fourcc);
    return fourcc && found != all.end() ? static_cast<int>(found - all.begin()) : -1;
}

} // namespace tavi
