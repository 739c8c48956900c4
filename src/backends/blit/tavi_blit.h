// SPDX-License-Identifier: MIT
/**
 * @file tavi_blit.h
 * Contract of the blit engine's backend. Every operation may refuse; the caller then has software serve the request.
 */
#ifndef TAVI_BLIT_H
#define TAVI_BLIT_H

#include "tavi_image.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Whether an engine is present and usable: nonzero = yes. The answer is cached until the device goes away. */
int is_blit_support();

/**
 * Converts a whole image. Both images need a DMA buffer descriptor of their own.
 * @return 0 = done; anything else = refused or failed, the destination may hold anything.
 */
int tavi_image_convert_blit(tavi_image_t* src, tavi_image_t* dst, tavi_image_transform_mode mode);

/** Converts a region of the source into a region of the destination; both inclusive, both inside their image. */
int tavi_image_convert_blit_with_crop(tavi_image_t* src, tavi_rect_t* src_rect, tavi_image_t* dst,
                                      tavi_rect_t* dst_rect, tavi_image_transform_mode mode);

/** Whether the engine can letterbox this request: nonzero = yes. `option` is reserved, 0. */
int tavi_blit_keep_ratio_resize_check(tavi_image_t* src, tavi_image_t* dst, int option);

/** Letterbox by the engine; parameters and results as tavi_image_convert_keep_ration() has them. */
int tavi_image_convert_keep_ratio_by_blit(tavi_image_t* src, tavi_image_t* dst, int param0, int param1, float* out0,
                                          float* out1, float* out2, float* out3, int option);

#ifdef __cplusplus
}
#endif

#endif // TAVI_BLIT_H
