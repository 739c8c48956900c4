// SPDX-License-Identifier: MIT
// A region of one image into the whole of another: crop, scale, convert and transform.
#include "backends/blit/tavi_blit.h"
#include "backends/cpu/tavi_image_cpu.h"
#include "image/format.h"
#include "utils/image_checks.h"
#include "utils/log_args.h"
#include "utils/tavi_image_internal.h"

namespace {

constexpr uint32_t kMaxCropSide = 4096;

// Left and top move inward to an even pixel.
int32_t even_first(int32_t edge) { return edge & 1 ? tavi::wrapping_add(edge, 1) : edge; }

// Right and bottom move outward to an odd pixel, unless that leaves the image: inward then.
int32_t odd_last(int32_t edge, uint32_t side) {
    if (edge & 1)
        return edge;
    const int32_t outward = tavi::wrapping_add(edge, 1);
    return static_cast<uint32_t>(outward) >= side ? tavi::wrapping_sub(edge, 1) : outward;
}

} // namespace

int tavi_image_crop_and_resize_cpu(tavi_image_t* src, tavi_rect_t* rect, tavi_image_t* dst,
                                   tavi_image_transform_mode mode) {
    tavi_rect_t box = *rect;
    if (tavi::is_yuv(src->pixel_format)) {
        LOG_INFO("yuv align pre box=(%d %d %d %d)", LTRB(box));
        box.left = even_first(box.left);
        box.top = even_first(box.top);
        box.right = odd_last(box.right, src->width);
        box.bottom = odd_last(box.bottom, src->height);
        LOG_INFO("yuv align post box=(%d %d %d %d)", LTRB(box));
    }
    if (dst->pixel_format == src->pixel_format && mode == TAVI_IMAGE_TRANSFORM_NONE)
        return tavi_image_crop_and_resize_cpu_imp(src, &box, dst);

    tavi_image_t cropped{};
    cropped.pixel_format = src->pixel_format;
    cropped.width = tavi::exchanges_sides(mode) ? dst->height : dst->width;
    cropped.height = tavi::exchanges_sides(mode) ? dst->width : dst->height;
    if (const int ret = tavi_image_crop_and_resize_cpu_imp(src, &box, &cropped))
        return ret; // a crop that fails has given its memory back itself
    const int ret = tavi_image_convert(&cropped, dst, mode);
    tavi_image_release(&cropped);
    return ret;
}

int tavi_image_convert_with_crop(tavi_image_t* src, tavi_rect_t* src_roi, tavi_image_t* dst, tavi_rect_t* dst_roi,
                                 tavi_image_transform_mode mode) {
    if (!src || !src->data || !dst || !src_roi)
        return TAVI_RET_PARAM_ERR;
    LOG_INFO("src_img size=(%d %d) fmt=%d src_roi=(%d %d %d %d) dst_img size=(%d %d)", WH(*src), src->pixel_format,
             LTRB(*src_roi), WH(*dst));
    if (!tavi::lies_inside(*src_roi, *src)) {
        // At INFO on purpose: to try a region is no error.
        LOG_INFO("src_roi (%d %d %d %d) out of image (0 0 %d %d)", LTRB(*src_roi), WH(*src));
        return TAVI_RET_PARAM_ERR;
    }
    if (dst->width < 1 || dst->width > kMaxCropSide || dst->height < 1 || dst->height > kMaxCropSide) {
        LOG_ERROR("dst_img width height must be correct set");
        return TAVI_RET_PARAM_ERR;
    }
    // The engine is asked each time here; the setting only for what the engine could take.
    bool blit = is_blit_support() != 0 && dst->width % 4 == 0 && tavi_image_config_use_blit() != 0;

    const float width_ratio =
        static_cast<float>(tavi::inclusive_span(src_roi->left, src_roi->right)) / static_cast<float>(dst->width);
    const float height_ratio =
        static_cast<float>(tavi::inclusive_span(src_roi->top, src_roi->bottom)) / static_cast<float>(dst->height);
    if (width_ratio >= tavi::kMaxEngineRatio || height_ratio >= tavi::kMaxEngineRatio) {
        // For this call only: the setting itself stays as it is.
        LOG_INFO("resize ratio (%.2f %.2f) > 16, set use_blit=0", static_cast<double>(width_ratio),
                 static_cast<double>(height_ratio));
        blit = false;
    }
    if (blit && tavi::has_dma_fd(*src) && tavi::has_dma_fd(*dst)) {
        tavi_rect_t whole_or_given{0, 0, static_cast<int32_t>(dst->width) - 1, static_cast<int32_t>(dst->height) - 1};
        if (dst_roi)
            whole_or_given = *dst_roi;
        if (tavi_image_convert_blit_with_crop(src, src_roi, dst, &whole_or_given, mode) == 0)
            return TAVI_RET_SUCCESS;
    }
    LOG_INFO("process roi with cpu");
    return tavi_image_crop_and_resize_cpu(src, src_roi, dst, mode);
}
