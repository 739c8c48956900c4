// SPDX-License-Identifier: MIT
// The contract of the software backend: checks the request, then has views converted.
#include "backends/software/tavi_image_libyuv.h"

#include <cstring>

#include "backends/software/convert.h"
#include "backends/software/plan.h"
#include "image/cpu_image.h"
#include "image/letterbox.h"
#include "image/paint.h"
#include "image/scratch.h"

#define TAVI_LOG_TAG "tavi-libyuv"
#include "services/log.h"

namespace tavi {
namespace {

/// Whether the conversion can be done in place: same size, and as many bytes for every pixel.
bool fits_in_place(const ImageView& s, const ImageView& d) {
    const Format &a = *s.format, &b = *d.format;
    return s.width == d.width && s.height == d.height &&
           a.sample_bytes * a.bytes_mul == b.sample_bytes * b.bytes_mul && a.bytes_shift == b.bytes_shift;
}

/// A copy of the source in `scratch`; an empty view when there is no memory for one.
ImageView copy_of(const CpuImage& src, Scratch& scratch) {
    uint8_t* copy = scratch.take<uint8_t>(src.bytes());
    if (!copy)
        return {};
    std::memcpy(copy, src.data(), src.bytes());
    return make_view(copy, src.view().id(), src.view().width, src.view().height);
}

bool is_resize_method(tavi_image_resize_method_t method) { return method >= 0 && method <= TAVI_IMAGE_RESIZE_BOX; }

} // namespace
} // namespace tavi

using namespace tavi;

// The common part: both images opened, and neither in the other's way.
static int open_failure(const CpuImage& src, const tavi_image_t* src_record, const CpuImage& dst,
                        const tavi_image_t* dst_record, bool& in_place, const char* caller) {
    if (!src) {
        LOG_ERROR("%s: src=" RECORD_TEXT ": %s", caller, RECORD(src_record), src.why());
        return src.code();
    }
    if (!dst) {
        LOG_ERROR("%s: dst=" RECORD_TEXT ": %s", caller, RECORD(dst_record), dst.why());
        return dst.code();
    }
    const Overlap overlap = src.overlap(dst);
    in_place = overlap == Overlap::same_start;
    if (overlap == Overlap::partial) {
        LOG_ERROR(
            "%s: src data=%p bytes=%zu and dst data=%p bytes=%zu overlap partly: allowed are separate memory, or "
            "the same start",
            caller, static_cast<void*>(src.data()), src.bytes(), static_cast<void*>(dst.data()), dst.bytes());
        return TAVI_RET_PARAM_ERR;
    }
    return TAVI_RET_SUCCESS;
}

int tavi_image_convert_libyuv(tavi_image_t* src, tavi_image_t* dst, tavi_image_transform_mode mode) {
    if (!is_transform_mode(mode)) {
        LOG_ERROR("mode=%d: allowed are 0, 1, 2, 3, 4, 7 and 8", mode);
        return TAVI_RET_UNSUPPORTED;
    }
    const CpuImage from(src, Access::read), to(dst, Access::write);
    bool in_place = false;
    if (const int code = open_failure(from, src, to, dst, in_place, __func__))
        return code;
    if (in_place && !fits_in_place(from.view(), to.view())) {
        LOG_ERROR("in place: src size=%dx%d fmt=%d and dst size=%dx%d fmt=%d: allowed are equal sizes and equal "
                  "bytes per pixel",
                  from.view().width, from.view().height, from.view().id(), to.view().width, to.view().height,
                  to.view().id());
        return TAVI_RET_UNSUPPORTED;
    }
    const bool same_shape = from.view().id() == to.view().id() && from.view().width == to.view().width &&
                            from.view().height == to.view().height;
    if (same_shape && mode == TAVI_IMAGE_TRANSFORM_NONE) {
        LOG_DEBUG("same format and size: %zu bytes %s", to.bytes(), in_place ? "stay" : "copied");
        if (!in_place)
            std::memcpy(to.data(), from.data(), to.bytes());
        return TAVI_RET_SUCCESS;
    }
    Scratch scratch;
    const ImageView source = in_place ? copy_of(from, scratch) : from.view();
    if (source)
        to.clear_tail(); // in place it holds pixels of the source until here

    const int result = source ? convert_views(source, to.view(), mode, TAVI_IMAGE_RESIZE_DEFAULT) : TAVI_RET_FAIL;
    if (result != TAVI_RET_SUCCESS)
        LOG_ERROR("no memory for temporaries: src size=%dx%d fmt=%d dst size=%dx%d fmt=%d", from.view().width,
                  from.view().height, from.view().id(), to.view().width, to.view().height, to.view().id());
    return result;
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
    const CpuImage from(src, Access::read), to(dst, Access::write);
    bool in_place = false;
    if (const int code = open_failure(from, src, to, dst, in_place, __func__))
        return code;
    if (in_place) {
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
    const int result = convert_views(s, crop(d, {box.x, box.y, box.width, box.height}), 0, method);
    if (result != TAVI_RET_SUCCESS) {
        LOG_ERROR("no memory for temporaries: src size=%dx%d dst size=%dx%d", s.width, s.height, d.width, d.height);
        return result;
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
