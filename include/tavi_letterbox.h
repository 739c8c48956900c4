/* SPDX-License-Identifier: MIT */
/**
 * @file tavi_letterbox.h
 * Maps results found in a letterboxed picture back to the source. Header only, C99 and C++17.
 *
 * tavi_image_convert_keep_ration() and tavi_image_convert_keep_ratio_by_method() report the scale and padding that
 * they used, so that x_dst = x_src * scale + padding. Worked example: a 1920 x 1080 frame in a 640 x 640 input
 * becomes 640 x 360 with scale 1/3 on both axes, padding 0 and 140. A box (320, 320, 399, 379) found there is the
 * source's region (960, 540, 1199, 719):
 * @code
 * tavi_letterbox_t box;
 * tavi_image_convert_keep_ration(&frame, &input, 0x727272, 0, &box.scale_x, &box.scale_y, &box.left, &box.top);
 * tavi_rect_t found = {320, 320, 399, 379};
 * tavi_rect_t region = tavi_letterbox_rect_to_source(&box, found, 1920, 1080); // 960 540 1199 719
 * @endcode
 */
#ifndef TAVI_LETTERBOX_H
#define TAVI_LETTERBOX_H

#include "tavi_image.h"

#ifdef __cplusplus
extern "C" {
#endif

/** What a keep-ratio conversion reports in out0 to out3, in this order. */
typedef struct tavi_letterbox_t {
    float scale_x; /**< destination pixels per source pixel, across */
    float scale_y; /**< destination pixels per source pixel, down */
    float left;    /**< padding left of the picture, destination pixels */
    float top;     /**< padding above the picture, destination pixels */
} tavi_letterbox_t;

/** A source position in the letterboxed picture. */
static inline float tavi_letterbox_x_to_picture(const tavi_letterbox_t* box, float x) {
    return x * box->scale_x + box->left;
}

/** A source position in the letterboxed picture. */
static inline float tavi_letterbox_y_to_picture(const tavi_letterbox_t* box, float y) {
    return y * box->scale_y + box->top;
}

/** A position in the letterboxed picture in the source; not limited to it. */
static inline float tavi_letterbox_x_to_source(const tavi_letterbox_t* box, float x) {
    return (x - box->left) / box->scale_x;
}

/** A position in the letterboxed picture in the source; not limited to it. */
static inline float tavi_letterbox_y_to_source(const tavi_letterbox_t* box, float y) {
    return (y - box->top) / box->scale_y;
}

/** Rounds to the nearest integer and limits it to 0 ... most; not-a-number gives 0. */
static inline int32_t tavi_letterbox_round(float v, int32_t most) {
    if (!(v > 0.0f))
        return 0;
    if (v >= (float)most)
        return most;
    return (int32_t)(v + 0.5f);
}

/**
 * An inclusive rectangle of the letterboxed picture in the source, limited to it. Edges are mapped, not pixel
 * numbers: the right edge of column `right` is right + 1.
 * @param box        as reported.
 * @param rect       found in the letterboxed picture.
 * @param src_width  source width in pixels.
 * @param src_height source height in pixels.
 * @return the region; at least one pixel each way.
 */
static inline tavi_rect_t tavi_letterbox_rect_to_source(const tavi_letterbox_t* box, tavi_rect_t rect,
                                                        int32_t src_width, int32_t src_height) {
    tavi_rect_t out;
    out.left = tavi_letterbox_round(tavi_letterbox_x_to_source(box, (float)rect.left), src_width - 1);
    out.top = tavi_letterbox_round(tavi_letterbox_y_to_source(box, (float)rect.top), src_height - 1);
    out.right = tavi_letterbox_round(tavi_letterbox_x_to_source(box, (float)rect.right + 1.0f), src_width) - 1;
    out.bottom = tavi_letterbox_round(tavi_letterbox_y_to_source(box, (float)rect.bottom + 1.0f), src_height) - 1;
    if (out.right < out.left)
        out.right = out.left;
    if (out.bottom < out.top)
        out.bottom = out.top;
    return out;
}

#ifdef __cplusplus
}
#endif

#endif /* TAVI_LETTERBOX_H */
