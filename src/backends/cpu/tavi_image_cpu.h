// SPDX-License-Identifier: MIT
/**
 * @file tavi_image_cpu.h
 * Contract of the CPU routines: crop and scale, files, transposition, affine maps, drawing.
 */
#ifndef TAVI_IMAGE_CPU_H
#define TAVI_IMAGE_CPU_H

#include "tavi_image.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Crops `rect` (inclusive) out of `src` and scales it to the size of `dst`, in the source's format and with the
 * default method. A destination with neither `data` nor a descriptor gets pooled heap memory of the memory service.
 * @return 0, or a result code; memory attached by a call that fails has been given back and `data` is null again.
 */
int tavi_image_crop_and_resize_cpu_imp(tavi_image_t* src, tavi_rect_t* rect, tavi_image_t* dst);

/** Reads a file; see tavi_image_read(). */
int tavi_image_read_cpu(const char* path, tavi_image_t* img, int read_flag);
/** Writes a file; see tavi_image_write(). */
int tavi_image_write_cpu(const char* path, tavi_image_t* img);

/** See tavi_image_transpose(). */
int tavi_image_transpose_cpu(tavi_image_t* src, tavi_image_t* dst);
/** See tavi_get_affine_transform(). */
int tavi_get_affine_transform_cpu(const float* src, const float* dst, int n, float* matrix);
/** See tavi_image_affine_transform(). */
int tavi_image_affine_transform_cpu(tavi_image_t* src, tavi_image_t* dst, const float* matrix);

/** See tavi_image_draw_circle(). */
int tavi_image_draw_circle_cpu(tavi_image_t* img, tavi_point_t center, int radius, tavi_color_t color, int thickness);
/** See tavi_image_draw_line(). */
int tavi_image_draw_line_cpu(tavi_image_t* img, tavi_point_t pt1, tavi_point_t pt2, tavi_color_t color,
                             int thickness);
/** See tavi_image_draw_rect(). */
int tavi_image_draw_rect_cpu(tavi_image_t* img, tavi_point_t pt1, tavi_point_t pt2, tavi_color_t color,
                             int thickness);
/** See tavi_image_draw_text(). */
int tavi_image_draw_text_cpu(tavi_image_t* img, const char* text, tavi_point_t pt, tavi_color_t color, int thickness);

#ifdef __cplusplus
}
#endif

#endif // TAVI_IMAGE_CPU_H
