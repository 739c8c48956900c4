// SPDX-License-Identifier: MIT
// The blit engine's backend. No engine is driven yet: every request is refused, and software serves it.
#include "backends/blit/tavi_blit.h"

int is_blit_support() { return 0; }

int tavi_image_convert_blit(tavi_image_t*, tavi_image_t*, tavi_image_transform_mode) { return TAVI_RET_UNSUPPORTED; }

int tavi_image_convert_blit_with_crop(tavi_image_t*, tavi_rect_t*, tavi_image_t*, tavi_rect_t*,
                                      tavi_image_transform_mode) {
    return TAVI_RET_UNSUPPORTED;
}

int tavi_blit_keep_ratio_resize_check(tavi_image_t*, tavi_image_t*, int) { return 0; }

int tavi_image_convert_keep_ratio_by_blit(tavi_image_t*, tavi_image_t*, int, int, float*, float*, float*, float*,
                                          int) {
    return TAVI_RET_UNSUPPORTED;
}
