// SPDX-License-Identifier: MIT
// Transposition and affine maps, handed on as they come, and the placeholders that keep their place in the
// interface.
#include "backends/cpu/tavi_image_cpu.h"
#include "utils/log_args.h"

int tavi_image_transpose(tavi_image_t* src, tavi_image_t* dst) { return tavi_image_transpose_cpu(src, dst); }

int tavi_get_affine_transform(const float* src, const float* dst, int n, float* matrix) {
    return tavi_get_affine_transform_cpu(src, dst, n, matrix);
}

int tavi_image_affine_transform(tavi_image_t* src, tavi_image_t* dst, const float* matrix) {
    return tavi_image_affine_transform_cpu(src, dst, matrix);
}

// The rotations are unsupported and the rest fails: callers tell the two apart.
int tavi_get_rotation_matrix(tavi_point_t, double, double, float*) { return TAVI_RET_UNSUPPORTED; }

int tavi_image_rotation_transform(tavi_image_t*, tavi_image_t*, const float*) { return TAVI_RET_UNSUPPORTED; }

int tavi_image_warp_perspective(tavi_image_t*, tavi_image_t*, const float*) { return TAVI_RET_FAIL; }

int tavi_image_hconcat(tavi_image_t*, tavi_image_t*, tavi_image_t*) { return TAVI_RET_FAIL; }

int tavi_image_equalize_hist(tavi_image_t* img, tavi_image_t*) {
    tavi_image_t color{};
    color.pixel_format = TAVI_PIXEL_FORMAT_RGB888;
    color.width = img->width;
    color.height = img->height;
    tavi_image_convert(img, &color, TAVI_IMAGE_TRANSFORM_NONE); // the outcome changes nothing, nor is it released
    LOG_ERROR("opencv not support\n");
    return TAVI_RET_FAIL;
}

int tavi_image_detect_occlusion(tavi_image_t* img, float*) {
    tavi_image_t color{};
    color.pixel_format = TAVI_PIXEL_FORMAT_BGR888;
    color.width = img->width;
    color.height = img->height;
    if (tavi_image_convert(img, &color, TAVI_IMAGE_TRANSFORM_NONE) != TAVI_RET_SUCCESS)
        return TAVI_RET_FAIL;
    LOG_INFO("not support!");
    tavi_image_release(&color);
    return TAVI_RET_FAIL;
}

int tavi_image_border_fillblack(tavi_image_t*, int) {
    LOG_ERROR("opencv not support\n");
    return TAVI_RET_FAIL;
}
