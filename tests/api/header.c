/* SPDX-License-Identifier: MIT */
/* The public header before any other, as C99. */
#include "tavi_image.h"

#include "tavi_frame.h"
#include "tavi_letterbox.h"
#include "tavi_log.h"

tavi_pixel_format last_format(void);
tavi_pixel_format last_format(void) { return TAVI_PIXEL_FORMAT_GRAY16; }
