// SPDX-License-Identifier: MIT
// Regions cut out into images of their own, or converted into an image that the caller lends.
#include <algorithm>
#include <cstring>

#include "backends/blit/tavi_blit.h"
#include "image/format.h"
#include "utils/image_checks.h"
#include "utils/log_args.h"
#include "utils/tavi_image_internal.h"

namespace {

constexpr int kEngineSizeStep = 4;
constexpr int kOriginStep = 2;

// Smallest granularity of a cut-out image's sides.
int size_step(bool is_yuv, int wanted) { return std::max(wanted, is_yuv ? 8 : 4); }

} // namespace

int tavi_image_roi_cpu(tavi_image_t* img, tavi_rect_t* roi, tavi_image_t* roi_img) {
    if (!img || !img->data || !roi || !roi_img)
        return TAVI_RET_PARAM_ERR;
    LOG_INFO("image size=(%d %d) fmt=%d roi=(%d %d %d %d)", WH(*img), img->pixel_format, LTRB(*roi));
    if (!tavi::lies_inside(*roi, *img)) {
        // At INFO on purpose: to try a region is no error.
        LOG_INFO("roi (%d %d %d %d)", LTRB(*roi));
        return TAVI_RET_PARAM_ERR;
    }
    const int channels = tavi_image_get_channels(img);
    const int type_size = tavi_image_type_size(img);
    const int32_t w = tavi::inclusive_span(roi->left, roi->right);
    const int32_t h = tavi::inclusive_span(roi->top, roi->bottom);
    LOG_INFO("roi w=%d h=%d channel=%d type_size=%d", w, h, channels, type_size);

    // YUV has no channel count: the error value makes a byte count that is refused, as one that is too large is.
    const auto pixel_bytes = static_cast<uint64_t>(int64_t{channels} * type_size);
    const bool has_pixels = w > 0 && h > 0;
    *roi_img = {}; // `size` stays 0
    roi_img->width = static_cast<uint32_t>(w);
    roi_img->height = static_cast<uint32_t>(h);
    roi_img->pixel_format = img->pixel_format;
    roi_img->data = tavi::heap_block(has_pixels ? roi_img->width * uint64_t{roi_img->height} * pixel_bytes : 0);
    if (!has_pixels)
        return TAVI_RET_SUCCESS;
    if (!roi_img->data)
        return TAVI_RET_FAIL;

    const auto pixel = static_cast<size_t>(pixel_bytes);
    const size_t src_pitch = img->width * pixel;
    const size_t row_bytes = roi_img->width * pixel;
    const uint8_t* from =
        img->data + static_cast<size_t>(roi->top) * src_pitch + static_cast<size_t>(roi->left) * pixel;
    uint8_t* to = roi_img->data;
    for (int32_t y = 0; y < h; ++y, from += src_pitch, to += row_bytes)
        memcpy(to, from, row_bytes);
    return TAVI_RET_SUCCESS;
}

int tavi_image_roi_with_align_cvt(tavi_image_t* img, tavi_rect_t* roi, tavi_image_t* roi_img, int align,
                                  int dst_format) {
    if (!img || !tavi::has_data_or_fd(*img) || !roi || !roi_img) {
        LOG_ERROR("params error (img=%p img->data=%p img->fd=%d roi=%p roi_img=%p)", img, img ? img->data : nullptr,
                  img ? img->fd : 0, roi, roi_img);
        return TAVI_RET_PARAM_ERR;
    }
    LOG_INFO("image size=(%d %d) fmt=%d roi=(%d %d %d %d)", WH(*img), img->pixel_format, LTRB(*roi));
    if (!tavi::lies_inside(*roi, *img)) {
        LOG_ERROR("roi (%d %d %d %d) out of image (%dx%d)", LTRB(*roi), WH(*img));
        return TAVI_RET_PARAM_ERR;
    }
    const bool is_yuv = tavi::is_yuv(img->pixel_format);
    const int channels = is_yuv ? 1 : tavi_image_get_channels(img);
    const int type_size = tavi_image_type_size(img);

    // Only the aligned size is used: the region itself stays where the caller has it and is scaled to that size.
    tavi_rect_t aligned{};
    tavi_image_rect_align(static_cast<int>(img->width), static_cast<int>(img->height), roi, size_step(is_yuv, align),
                          kOriginStep, &aligned);
    const int32_t w = tavi::inclusive_span(aligned.left, aligned.right);
    const int32_t h = tavi::inclusive_span(aligned.top, aligned.bottom);
    LOG_INFO("roi w=%d h=%d channel=%d type_size=%d is_yuv=%d", w, h, channels, type_size, is_yuv ? 1 : 0);

    *roi_img = {};
    roi_img->width = static_cast<uint32_t>(w);
    roi_img->height = static_cast<uint32_t>(h);
    roi_img->pixel_format = static_cast<tavi_pixel_format>(dst_format);
    roi_img->size = static_cast<uint32_t>(tavi_image_get_size(roi_img));
    // The stored size may have wrapped; the memory is for the real count, or there is none.
    const tavi::Format* format = tavi::find_format(roi_img->pixel_format);
    if (format && w >= 0 && h >= 0)
        roi_img->data = tavi::heap_block(tavi::byte_count(*format, roi_img->width, roi_img->height));
    if (!roi_img->data)
        return TAVI_RET_FAIL;

    tavi_image_config_use_blit(); // logged like everywhere else, though cutting out is always software's work
    return tavi_image_crop_and_resize_cpu(img, roi, roi_img, TAVI_IMAGE_TRANSFORM_NONE) == 0 ? TAVI_RET_SUCCESS
                                                                                             : TAVI_RET_FAIL;
}

int tavi_image_roi_with_align(tavi_image_t* img, tavi_rect_t* roi, tavi_image_t* roi_img, int align) {
    // The general form reports a null image.
    return tavi_image_roi_with_align_cvt(img, roi, roi_img, align, img ? static_cast<int>(img->pixel_format) : 0);
}

int tavi_image_roi(tavi_image_t* img, tavi_rect_t* roi, tavi_image_t* roi_img) {
    return tavi_image_roi_with_align(img, roi, roi_img, 1);
}

int tavi_image_roi_with_align_convert_prealloc(tavi_image_t* in_img, tavi_rect_t* src_rect, tavi_image_t* roi_img,
                                               tavi_rect_t* dst_rect, int keep_dst_rect) {
    if (!in_img || !tavi::has_data_or_fd(*in_img) || !src_rect || !roi_img || !roi_img->data || !dst_rect) {
        LOG_ERROR("params error (in_img=%p in_img->data=%p in_img->fd=%d src_rect=%p roi_img=%p roi_img->data=%p "
                  "dst_rect=%p)",
                  in_img, in_img ? in_img->data : nullptr, in_img ? in_img->fd : 0, src_rect, roi_img,
                  roi_img ? roi_img->data : nullptr, dst_rect);
        return TAVI_RET_PARAM_ERR;
    }
    bool blit = true;
    const float width_ratio = static_cast<float>(tavi::inclusive_span(src_rect->left, src_rect->right)) /
                              static_cast<float>(roi_img->width);
    const float height_ratio = static_cast<float>(tavi::inclusive_span(src_rect->top, src_rect->bottom)) /
                               static_cast<float>(roi_img->height);
    if (width_ratio >= tavi::kMaxEngineRatio || height_ratio >= tavi::kMaxEngineRatio) {
        LOG_INFO("resize ratio (%.2f %.2f) > 16, set use_blit=0", static_cast<double>(width_ratio),
                 static_cast<double>(height_ratio));
        blit = false;
    }
    if (!tavi::has_dma_fd(*in_img) || !tavi::has_dma_fd(*roi_img))
        blit = false;
    if (tavi_image_config_use_blit() == 0) // consulted even when the engine is out already
        blit = false;
    LOG_INFO("image size=(%d %d) fmt=%d src_rect=(%d %d %d %d) dst_rect=(%d %d %d %d)", WH(*in_img),
             in_img->pixel_format, LTRB(*src_rect), LTRB(*dst_rect));
    if (!tavi::lies_inside(*src_rect, *in_img)) {
        LOG_ERROR("src_rect (%d %d %d %d) out of image (%dx%d)", LTRB(*src_rect), WH(*in_img));
        return TAVI_RET_PARAM_ERR;
    }
    if (blit && in_img->width % 4 == 0 && in_img->height % 2 == 0) {
        tavi_rect_t aligned{};
        tavi_image_rect_align(static_cast<int>(in_img->width), static_cast<int>(in_img->height), src_rect,
                              kEngineSizeStep, kOriginStep, &aligned);
        tavi_image_t work = *roi_img;
        if (!keep_dst_rect) {
            // A destination with more pixels takes the region unscaled in its top-left corner.
            const auto w = static_cast<uint32_t>(tavi::inclusive_span(aligned.left, aligned.right));
            const auto h = static_cast<uint32_t>(tavi::inclusive_span(aligned.top, aligned.bottom));
            if (roi_img->width * roi_img->height > w * h) {
                work.width = w;
                work.height = h;
            }
            *dst_rect = {0, 0, static_cast<int32_t>(work.width - 1), static_cast<int32_t>(work.height - 1)};
        }
        if (tavi_image_convert_blit_with_crop(in_img, &aligned, &work, dst_rect, TAVI_IMAGE_TRANSFORM_NONE) == 0) {
            roi_img->width = work.width;
            roi_img->height = work.height;
            roi_img->size = static_cast<uint32_t>(tavi_image_get_size(roi_img));
            return TAVI_RET_SUCCESS;
        }
    }
    LOG_INFO("process roi with cpu");
    return tavi_image_crop_and_resize_cpu(in_img, src_rect, roi_img, TAVI_IMAGE_TRANSFORM_NONE);
}
