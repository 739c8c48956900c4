// SPDX-License-Identifier: MIT
// The contract of the software backend: checks the request, then has views converted.
#include "backends/software/tavi_image_libyuv.h"

#include <cstring>

#include "image/cpu_image.h"
#include "image/letterbox.h"
#include "image/scratch.h"
#include "pixels/convert.h"
#include "pixels/fill.h"
#include "pixels/plan.h"

#define TAVI_LOG_TAG "tavi-libyuv"
#include "services/log.h"
#include "services/yuv_setting.h"

namespace tavi {
namespace {

/// Whether the conversion can be done in place: same size, and as many bytes for every pixel.
bool fits_in_place(const ImageView& s, const ImageView& d) {
    const Format &a = *s.format, &b = *d.format;
    return s.width == d.width && s.height == d.height && a.bits_per_pixel == b.bits_per_pixel;
}

/// A copy of the source in `scratch`; an empty view when there is no memory for one.
ImageView copy_of(const CpuImage& src, Scratch& scratch) {
    uint8_t* copy = scratch.take<uint8_t>(src.bytes());
    if (!copy)
        return {};
    std::memcpy(copy, src.data(), src.bytes());
    return make_view(copy, *src.view().format, src.view().width, src.view().height, src.view().color);
}

bool is_resize_method(tavi_image_resize_method_t method) { return method >= 0 && method <= TAVI_IMAGE_RESIZE_BOX; }

} // namespace
} // namespace tavi

using namespace tavi;

int tavi_image_convert_libyuv(tavi_image_t* src, tavi_image_t* dst, tavi_image_transform_mode mode) {
    if (!is_transform_mode(mode)) {
        LOG_ERROR("mode=%d: allowed are 0, 1, 2, 3, 4, 7 and 8", mode);
        return TAVI_RET_UNSUPPORTED;
    }
    const CpuPair pair(src, dst, yuv_setting(), InPlace::allowed);
    if (pair.refusal) {
        LOG_ERROR("%s", pair.refusal.text);
        return pair.refusal.code;
    }
    const CpuImage &from = pair.src, &to = pair.dst;
    if (pair.in_place && !fits_in_place(from.view(), to.view())) {
        LOG_ERROR("in place: src size=%dx%d fmt=%d and dst size=%dx%d fmt=%d: allowed are equal sizes and equal "
                  "bytes per pixel",
                  from.view().width, from.view().height, from.view().id(), to.view().width, to.view().height,
                  to.view().id());
        return TAVI_RET_UNSUPPORTED;
    }
    const bool same_shape = from.view().id() == to.view().id() && from.view().width == to.view().width &&
                            from.view().height == to.view().height;
    if (same_shape && mode == TAVI_IMAGE_TRANSFORM_NONE) {
        LOG_DEBUG("same format and size: %zu bytes %s", to.bytes(), pair.in_place ? "stay" : "copied");
        if (!pair.in_place)
            std::memcpy(to.data(), from.data(), to.bytes());
        return TAVI_RET_SUCCESS;
    }
    Scratch scratch;
    const ImageView source = pair.in_place ? copy_of(from, scratch) : from.view();
    if (source)
        to.clear_tail(); // in place it holds pixels of the source until here

    const Refusal no = source ? convert_views(source, to.view(), mode, TAVI_IMAGE_RESIZE_DEFAULT)
                              : Refusal(TAVI_RET_FAIL, "no memory for a copy of %zu bytes", from.bytes());
    if (no)
        LOG_ERROR("%s", no.text);
    return no.code;
}

int tavi_image_convert2_libyuv(tavi_image_t* src, tavi_image_t* dst, int keep_ratio, int param0, int param1,
                               float* out0, float* out1, float* out2, float* out3,
                               tavi_image_resize_method_t method) {
    if (!is_resize_method(method)) {
        LOG_ERROR("method=%d: allowed are 0 to 3", method);
        return TAVI_RET_PARAM_ERR;
    }
    if (keep_ratio && (param1 < 0 || param1 > 2)) {
        LOG_ERROR("position param1=%d: allowed are 0 (centre), 1 (top-left) and 2 (bottom-right)", param1);
        return TAVI_RET_PARAM_ERR;
    }
    const CpuPair pair(src, dst, yuv_setting(), InPlace::allowed);
    if (pair.refusal) {
        LOG_ERROR("%s", pair.refusal.text);
        return pair.refusal.code;
    }
    const CpuImage &from = pair.src, &to = pair.dst;
    if (pair.in_place) {
        LOG_ERROR("src and dst are the same memory %p: allowed are separate images", static_cast<void*>(to.data()));
        return TAVI_RET_UNSUPPORTED;
    }
    const ImageView &s = from.view(), &d = to.view();
    to.clear_tail();
    Letterbox box{
        0, 0, d.width, d.height, static_cast<float>(d.width) / s.width, static_cast<float>(d.height) / s.height};
    if (keep_ratio)
        box = letterbox_geometry(s.width, s.height, d.width, d.height, chroma_grid(*d.format),
                                 static_cast<LetterboxPosition>(param1));
    if (const Refusal no = convert_views(s, crop(d, {box.x, box.y, box.width, box.height}), 0, method)) {
        LOG_ERROR("%s", no.text);
        return no.code;
    }
    if (keep_ratio)
        paint_padding(d, {box.x, box.y, box.width, box.height}, static_cast<uint32_t>(param0));
    if (out0)
        *out0 = box.scale_x;
    if (out1)
        *out1 = box.scale_y;
    if (out2)
        *out2 = static_cast<float>(box.x);
    if (out3)
        *out3 = static_cast<float>(box.y);
    return TAVI_RET_SUCCESS;
}
