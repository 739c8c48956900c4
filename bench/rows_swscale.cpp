// SPDX-License-Identifier: MIT
extern "C" {
#include <libswscale/swscale.h>
}

#include "image/view.h"
#include "rows.h"

namespace tavi::bench {
namespace {

AVPixelFormat pixel_format(int f) {
    constexpr AVPixelFormat kFormats[16] = {
        AV_PIX_FMT_GRAY8, AV_PIX_FMT_RGB24,   AV_PIX_FMT_BGR24,   AV_PIX_FMT_RGBA,
        AV_PIX_FMT_BGRA,  AV_PIX_FMT_YUV420P, AV_PIX_FMT_NONE,    AV_PIX_FMT_NV12,
        AV_PIX_FMT_NV21,  AV_PIX_FMT_YUV422P, AV_PIX_FMT_NONE,    AV_PIX_FMT_NV16,
        AV_PIX_FMT_NONE,  AV_PIX_FMT_YUYV422, AV_PIX_FMT_UYVY422, AV_PIX_FMT_GRAY16LE};
    return kFormats[f];
}

} // namespace

Run by_swscale(const Row& row) {
    if (row.kind != Kind::convert && row.kind != Kind::resize)
        return {};
    const tavi_image_t &s = row.src->image, &d = row.dst->image;
    const AVPixelFormat from = pixel_format(s.pixel_format), to = pixel_format(d.pixel_format);
    if (s.width < 64) // writes whole vectors to rows, aligned or not
        return {};
    if (from == AV_PIX_FMT_NONE || to == AV_PIX_FMT_NONE)
        return {};
    const int flags = row.kind == Kind::convert             ? SWS_POINT
                      : row.method == TAVI_IMAGE_RESIZE_BOX ? SWS_AREA
                                                            : SWS_FAST_BILINEAR;
    std::shared_ptr<SwsContext> context(sws_getContext(s.width, s.height, from, d.width, d.height, to,
                                                       flags | SWS_ACCURATE_RND, nullptr, nullptr, nullptr),
                                        sws_freeContext);
    if (!context)
        return {};
    return [=] {
        const ImageView a =
            make_view(row.src->image.data, row.src->image.pixel_format, row.src->image.width, row.src->image.height);
        const ImageView b =
            make_view(row.dst->image.data, row.dst->image.pixel_format, row.dst->image.width, row.dst->image.height);
        const uint8_t* from_planes[4] = {a.plane[0].data, a.plane[1].data, a.plane[2].data};
        uint8_t* to_planes[4] = {b.plane[0].data, b.plane[1].data, b.plane[2].data};
        const int from_pitch[4] = {int(a.plane[0].pitch), int(a.plane[1].pitch), int(a.plane[2].pitch)};
        const int to_pitch[4] = {int(b.plane[0].pitch), int(b.plane[1].pitch), int(b.plane[2].pitch)};
        sws_scale(context.get(), from_planes, from_pitch, 0, a.height, to_planes, to_pitch);
    };
}

} // namespace tavi::bench
