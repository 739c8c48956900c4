// SPDX-License-Identifier: MIT
/**
 * @file tavi_image_libyuv.h
 * Contract of the software conversion backend.
 */
#ifndef TAVI_IMAGE_LIBYUV_H
#define TAVI_IMAGE_LIBYUV_H

#include "tavi_image.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Converts any format into any other, with scaling (default method) and all seven transform modes.
 * @return TAVI_RET_PARAM_ERR for a source or destination without memory or memory that overlaps partly;
 *         TAVI_RET_UNSUPPORTED for an unknown mode or format, a side of 0 or above 16384, an image too small to have
 *         a chroma sample, memory known only by its physical address, or work in place that cannot be; TAVI_RET_FAIL
 *         when there is no memory for temporaries or a descriptor cannot be mapped.
 */
int tavi_image_convert_libyuv(tavi_image_t* src, tavi_image_t* dst, tavi_image_transform_mode mode);

/**
 * Converts with a chosen method, and letterboxes when `keep_ratio` is nonzero.
 * @param keep_ratio 0: the picture fills the destination and `param0`, `param1` are not read.
 * @param param0     padding colour 0xRRGGBB.
 * @param param1     position: 0 centre, 1 top-left, 2 bottom-right; any other is TAVI_RET_PARAM_ERR.
 * @param out0       horizontal scale, may be null like the other three.
 * @param out1       vertical scale.
 * @param out2       left padding in pixels.
 * @param out3       top padding in pixels.
 * @param method     a tavi_image_resize_method_t; any other is TAVI_RET_PARAM_ERR.
 */
int tavi_image_convert2_libyuv(tavi_image_t* src, tavi_image_t* dst, int keep_ratio, int param0, int param1,
                               float* out0, float* out1, float* out2, float* out3, tavi_image_resize_method_t method);

#ifdef __cplusplus
}
#endif

#endif // TAVI_IMAGE_LIBYUV_H
