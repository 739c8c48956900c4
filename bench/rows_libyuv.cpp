// SPDX-License-Identifier: MIT
// The same requests by libyuv calls, as one would write them by hand: the best variant known, in bands where that
// helps.
#include <libyuv.h>
#include <libyuv/scale_rgb.h>

#include <algorithm>
#include <cstring>

#include "image/view.h"
#include "rows.h"

#define PLANE(v, i) (v).plane[i].data, static_cast<int>((v).plane[i].pitch)

namespace tavi::bench {
namespace {

using namespace libyuv;

ImageView view(const std::shared_ptr<Picture>& p) {
    return make_view(p->image.data, p->image.pixel_format, p->image.width, p->image.height);
}

// Rows in bands of `rows`, through a buffer of four bytes a pixel.
template <class Body>
Run in_bands(int width, int height, int rows, Body body) {
    auto buffer = std::make_shared<std::vector<uint8_t>>(static_cast<size_t>(width) * 4 * rows);
    return [=] {
        for (int y = 0; y < height; y += rows)
            body(y, std::min(rows, height - y), buffer->data());
    };
}

Run convert(const Row& row) {
    const ImageView s = view(row.src), d = view(row.dst);
    const int w = s.width, h = s.height, from = s.id(), to = int(d.id());
    const auto pair = [](int a, int b) { return a * 16 + b; };
    switch (pair(from, to)) {
    case NV12 * 16 + RGB:
        return [=] { NV12ToRAW(PLANE(s, 0), PLANE(s, 1), PLANE(d, 0), w, h); };
    case NV12 * 16 + BGR:
        return [=] { NV12ToRGB24(PLANE(s, 0), PLANE(s, 1), PLANE(d, 0), w, h); };
    case NV12 * 16 + RGBA:
        return [=] { NV12ToABGR(PLANE(s, 0), PLANE(s, 1), PLANE(d, 0), w, h); };
    case NV21 * 16 + RGB:
        return [=] { NV21ToRAW(PLANE(s, 0), PLANE(s, 1), PLANE(d, 0), w, h); };
    case YU12 * 16 + RGB:
        return [=] { I420ToRAW(PLANE(s, 0), PLANE(s, 1), PLANE(s, 2), PLANE(d, 0), w, h); };
    case NV16 * 16 + RGB:
        return in_bands(w, h, 16, [=](int y, int n, uint8_t* t) {
            SplitUVPlane(s.plane[1].row(y), w, t, w / 2, t + w / 2 * n, w / 2, w / 2, n);
            I422ToRGB24(s.plane[0].row(y), w, t + w / 2 * n, w / 2, t, w / 2, d.plane[0].row(y), 3 * w, w, n);
        });
    case YUYV * 16 + RGB:
        return in_bands(w, h, 16, [=](int y, int n, uint8_t* t) {
            YUY2ToARGB(s.plane[0].row(y), 2 * w, t, 4 * w, w, n);
            ARGBToRAW(t, 4 * w, d.plane[0].row(y), 3 * w, w, n);
        });
    case UYVY * 16 + BGR:
        return in_bands(w, h, 16, [=](int y, int n, uint8_t* t) {
            UYVYToARGB(s.plane[0].row(y), 2 * w, t, 4 * w, w, n);
            ARGBToRGB24(t, 4 * w, d.plane[0].row(y), 3 * w, w, n);
        });
    case RGB * 16 + NV12:
        return in_bands(w, h, 16, [=](int y, int n, uint8_t* t) {
            RAWToARGB(s.plane[0].row(y), 3 * w, t, 4 * w, w, n);
            ARGBToNV12(t, 4 * w, d.plane[0].row(y), w, d.plane[1].row(y / 2), w, w, n);
        });
    case BGR * 16 + YU12:
        return in_bands(w, h, 16, [=](int y, int n, uint8_t* t) {
            RGB24ToARGB(s.plane[0].row(y), 3 * w, t, 4 * w, w, n);
            ARGBToI420(t, 4 * w, d.plane[0].row(y), w, d.plane[1].row(y / 2), w / 2, d.plane[2].row(y / 2), w / 2, w,
                       n);
        });
    case RGBA * 16 + NV12:
        return [=] { ABGRToNV12(PLANE(s, 0), PLANE(d, 0), PLANE(d, 1), w, h); };
    case RGB * 16 + BGR:
        return [=] { RAWToRGB24(PLANE(s, 0), PLANE(d, 0), w, h); };
    case RGB * 16 + RGBA:
        return [=] { RGB24ToARGB(PLANE(s, 0), PLANE(d, 0), w, h); };
    case RGB * 16 + GRAY8:
        return [=] { RAWToJ400(PLANE(s, 0), PLANE(d, 0), w, h); };
    case NV12 * 16 + GRAY8:
        return [=] { CopyPlane(PLANE(s, 0), PLANE(d, 0), w, h); };
    case NV12 * 16 + NV21:
        return [=] { NV21ToNV12(PLANE(s, 0), PLANE(s, 1), PLANE(d, 0), PLANE(d, 1), w, h); };
    case NV12 * 16 + YU12:
        return [=] { NV12ToI420(PLANE(s, 0), PLANE(s, 1), PLANE(d, 0), PLANE(d, 1), PLANE(d, 2), w, h); };
    case YUYV * 16 + NV12:
        return [=] { YUY2ToNV12(PLANE(s, 0), PLANE(d, 0), PLANE(d, 1), w, h); };
    case NV16 * 16 + NV12:
        return [=] {
            CopyPlane(PLANE(s, 0), PLANE(d, 0), w, h);
            InterpolatePlane(s.plane[1].data, 2 * w, s.plane[1].row(1), 2 * w, PLANE(d, 1), w, h / 2, 128);
        };
    case GRAY8 * 16 + RGB:
        return in_bands(w, h, 16, [=](int y, int n, uint8_t* t) {
            J400ToARGB(s.plane[0].row(y), w, t, 4 * w, w, n);
            ARGBToRAW(t, 4 * w, d.plane[0].row(y), 3 * w, w, n);
        });
    case GRAY16 * 16 + GRAY8:
        return [=] { Convert16To8Plane(reinterpret_cast<uint16_t*>(s.plane[0].data), w, PLANE(d, 0), 256, w, h); };
    case GRAY8 * 16 + GRAY16:
        return [=] { MergeUVPlane(PLANE(s, 0), PLANE(s, 0), PLANE(d, 0), w, h); };
    }
    return {};
}

Run resize(const Row& row) {
    const ImageView s = view(row.src), d = view(row.dst);
    const FilterMode filter = row.method == TAVI_IMAGE_RESIZE_BOX ? kFilterBox : kFilterBilinear;
    const int sw = s.width, sh = s.height, dw = d.width, dh = d.height;
    // On interleaved pixels its box filter is an area average for factors of 2 and 4 only: at 3 it takes single
    // samples (11 dB on noise). Nothing to compare with then.
    const auto averages = [&](int factor) { return sw == factor * dw && sh == factor * dh; };
    const bool interleaved = s.planes() == 1 && s.plane[0].step >= 3;
    if (filter == kFilterBox && interleaved && !averages(2) && !averages(4))
        return {};
    if (int(s.id()) == RGB && int(d.id()) == RGB)
        return [=] { RGBScale(PLANE(s, 0), sw, sh, PLANE(d, 0), dw, dh, filter); };
    if (int(s.id()) == RGBA && int(d.id()) == RGBA)
        return [=] { ARGBScale(PLANE(s, 0), sw, sh, PLANE(d, 0), dw, dh, filter); };
    if (int(s.id()) == GRAY8)
        return [=] { ScalePlane(PLANE(s, 0), sw, sh, PLANE(d, 0), dw, dh, filter); };
    if (int(s.id()) == GRAY16)
        return [=] {
            ScalePlane_16(reinterpret_cast<uint16_t*>(s.plane[0].data), sw, sw, sh,
                          reinterpret_cast<uint16_t*>(d.plane[0].data), dw, dw, dh, filter);
        };
    if (int(s.id()) == NV12 && int(d.id()) == NV12)
        return [=] { NV12Scale(PLANE(s, 0), PLANE(s, 1), sw, sh, PLANE(d, 0), PLANE(d, 1), dw, dh, filter); };
    if (int(s.id()) == NV12 && int(d.id()) == RGB) {
        auto small = std::make_shared<Picture>(NV12, dw, dh);
        return [=] {
            const ImageView m = view(small);
            NV12Scale(PLANE(s, 0), PLANE(s, 1), sw, sh, PLANE(m, 0), PLANE(m, 1), dw, dh, filter);
            NV12ToRAW(PLANE(m, 0), PLANE(m, 1), PLANE(d, 0), dw, dh);
        };
    }
    if (int(s.id()) == YUYV && int(d.id()) == BGR) {
        auto large = std::make_shared<Picture>(YU16, sw, sh), small = std::make_shared<Picture>(YU16, dw, dh);
        return [=] {
            const ImageView l = view(large), m = view(small);
            YUY2ToI422(PLANE(s, 0), PLANE(l, 0), PLANE(l, 1), PLANE(l, 2), sw, sh);
            I422Scale(PLANE(l, 0), PLANE(l, 1), PLANE(l, 2), sw, sh, PLANE(m, 0), PLANE(m, 1), PLANE(m, 2), dw, dh,
                      filter);
            I422ToRGB24(PLANE(m, 0), PLANE(m, 1), PLANE(m, 2), PLANE(d, 0), dw, dh);
        };
    }
    if (int(s.id()) == RGB && int(d.id()) == NV12) {
        auto large = std::make_shared<Picture>(RGBA, sw, sh), small = std::make_shared<Picture>(RGBA, dw, dh);
        return [=] {
            const ImageView l = view(large), m = view(small);
            RAWToARGB(PLANE(s, 0), PLANE(l, 0), sw, sh);
            ARGBScale(PLANE(l, 0), sw, sh, PLANE(m, 0), dw, dh, filter);
            ARGBToNV12(PLANE(m, 0), PLANE(d, 0), PLANE(d, 1), dw, dh);
        };
    }
    return {};
}

Run region(const Row& row) {
    const ImageView whole = view(row.src), d = view(row.dst);
    const tavi_rect_t& r = row.region;
    const int w = r.right - r.left + 1, h = r.bottom - r.top + 1, dw = d.width, dh = d.height;
    const ImageView s = crop(whole, {r.left, r.top, w, h});
    if (int(s.id()) == RGB && w == dw && h == dh)
        return [=] { CopyPlane(PLANE(s, 0), PLANE(d, 0), 3 * w, h); };
    if (int(s.id()) == RGB)
        return [=] { RGBScale(PLANE(s, 0), w, h, PLANE(d, 0), dw, dh, kFilterBilinear); };
    auto small = std::make_shared<Picture>(NV12, dw, dh);
    return [=] {
        const ImageView m = view(small);
        NV12Scale(PLANE(s, 0), PLANE(s, 1), w, h, PLANE(m, 0), PLANE(m, 1), dw, dh, kFilterBilinear);
        NV12ToRAW(PLANE(m, 0), PLANE(m, 1), PLANE(d, 0), dw, dh);
    };
}

Run letterbox(const Row& row) {
    const ImageView s = view(row.src), whole = view(row.dst);
    const ImageView d = crop(whole, {0, 140, 640, 360});
    const auto pad = [=] {
        std::memset(whole.plane[0].data, 0x72, whole.plane[0].pitch * 140);
        std::memset(whole.plane[0].row(500), 0x72, whole.plane[0].pitch * 140);
    };
    if (int(s.id()) == RGB)
        return [=] {
            RGBScale(PLANE(s, 0), s.width, s.height, PLANE(d, 0), 640, 360, kFilterBilinear);
            pad();
        };
    auto small = std::make_shared<Picture>(NV12, 640, 360);
    return [=] {
        const ImageView m = view(small);
        NV12Scale(PLANE(s, 0), PLANE(s, 1), s.width, s.height, PLANE(m, 0), PLANE(m, 1), 640, 360, kFilterBilinear);
        NV12ToRAW(PLANE(m, 0), PLANE(m, 1), PLANE(d, 0), 640, 360);
        pad();
    };
}

Run transform(const Row& row) {
    const ImageView s = view(row.src), d = view(row.dst);
    const int w = s.width, h = s.height;
    const RotationMode turn = row.mode == 4 ? kRotate90 : row.mode == 7 ? kRotate270 : kRotate180;
    if (row.mode == 2) // from the bottom up, any format
        return [=] {
            for (int i = 0; i < s.planes(); ++i)
                CopyPlane(PLANE(s, i), PLANE(d, i), s.plane[i].cols * s.plane[i].step, -s.plane[i].rows);
        };
    if (int(s.id()) == RGBA && row.mode != 8 && row.mode != 1)
        return [=] { ARGBRotate(PLANE(s, 0), PLANE(d, 0), w, h, turn); };
    if (int(s.id()) == RGBA && row.mode == 1)
        return [=] { ARGBMirror(PLANE(s, 0), PLANE(d, 0), w, h); };
    if (int(s.id()) == RGB && (row.mode == 1 || row.mode == 3))
        return [=] { RGB24Mirror(PLANE(s, 0), PLANE(d, 0), w, row.mode == 3 ? -h : h); };
    if (int(s.id()) == GRAY8 && row.mode == 8)
        return [=] { TransposePlane(PLANE(s, 0), PLANE(d, 0), w, h); };
    if (int(s.id()) == GRAY8 && row.mode == 1)
        return [=] { MirrorPlane(PLANE(s, 0), PLANE(d, 0), w, h); };
    if (int(s.id()) == GRAY8)
        return [=] { RotatePlane(PLANE(s, 0), PLANE(d, 0), w, h, turn); };
    if (int(s.id()) == NV12 && (row.mode == 1 || row.mode == 3))
        return [=] {
            const int sign = row.mode == 3 ? -1 : 1;
            MirrorPlane(PLANE(s, 0), PLANE(d, 0), w, sign * h);
            MirrorUVPlane(PLANE(s, 1), PLANE(d, 1), w / 2, sign * (h / 2));
        };
    return {};
}

} // namespace

Run by_libyuv(const Row& row) {
    switch (row.kind) {
    case Kind::convert:
        return convert(row);
    case Kind::resize:
        return resize(row);
    case Kind::letterbox:
        return letterbox(row);
    case Kind::crop:
        return region(row);
    case Kind::transform:
        return transform(row);
    default:
        return {};
    }
}

} // namespace tavi::bench
