/* SPDX-License-Identifier: MIT */
/* A program in C99 against the shared library: a frame in, a picture out, everything given back. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "tavi_image.h"

#define CHECK(condition)                                                                                             \
    do {                                                                                                             \
        if (!(condition)) {                                                                                          \
            fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition);                                          \
            return 1;                                                                                                \
        }                                                                                                            \
    } while (0)

int main(void) {
    tavi_image_t frame = {0};
    tavi_image_t rgb = {0};
    tavi_image_t cut = {0};
    tavi_image_t* copy;
    tavi_rect_t region = {3, 5, 102, 65};
    tavi_rect_t aligned;

    frame.pixel_format = TAVI_PIXEL_FORMAT_YUV420SP_NV12;
    frame.width = 640;
    frame.height = 480;
    rgb.pixel_format = TAVI_PIXEL_FORMAT_RGB888;
    rgb.width = 320;
    rgb.height = 240;
    CHECK(tavi_image_get_size(&frame) == 460800);
    CHECK(tavi_image_create_mem(&frame) == TAVI_RET_SUCCESS);
    CHECK(tavi_image_create_mem2(&rgb, 0) == TAVI_RET_SUCCESS);
    memset(frame.data, 128, frame.size);
    memset(rgb.data, 0, rgb.size);
    CHECK(tavi_image_convert(&frame, &rgb, TAVI_IMAGE_TRANSFORM_FLIP_H) == TAVI_RET_SUCCESS);
    /* luma 128 of the limited range is (128 - 16) * 255 / 219 */
    CHECK(abs(rgb.data[0] - 130) <= 3 && abs(rgb.data[rgb.size - 1] - 130) <= 3);

    CHECK(tavi_image_rect_align(640, 480, &region, 4, 2, &aligned) == TAVI_RET_SUCCESS);
    CHECK(aligned.left == 4 && aligned.top == 4 && aligned.right == 103 && aligned.bottom == 67);
    CHECK(tavi_image_roi_with_align_cvt(&frame, &aligned, &cut, 4, TAVI_PIXEL_FORMAT_BGR888) == TAVI_RET_SUCCESS);
    CHECK(cut.width == 104 && cut.height == 64 && cut.size == 104 * 64 * 3);

    copy = tavi_image_clone(&cut);
    CHECK(copy && memcmp(copy->data, cut.data, cut.size) == 0);
    CHECK(tavi_image_release(copy) == TAVI_RET_SUCCESS);
    free(copy);
    CHECK(tavi_image_release(&cut) == TAVI_RET_SUCCESS);
    CHECK(tavi_image_release(&rgb) == TAVI_RET_SUCCESS);
    CHECK(tavi_image_release(&frame) == TAVI_RET_SUCCESS);
    return 0;
}
