// SPDX-License-Identifier: MIT
// Stands in for the drawing routines in a build without them.
#ifndef TAVI_WITH_DRAWING
#define TAVI_LOG_TAG "tavi-cpu"
#include "backends/cpu/tavi_image_cpu.h"
#include "services/log.h"

int tavi_image_draw_circle_cpu(tavi_image_t*, tavi_point_t, int, tavi_color_t, int) {
    LOG_ERROR("this library was built without drawing");
    return TAVI_RET_UNSUPPORTED;
}

int tavi_image_draw_line_cpu(tavi_image_t*, tavi_point_t, tavi_point_t, tavi_color_t, int) {
    LOG_ERROR("this library was built without drawing");
    return TAVI_RET_UNSUPPORTED;
}

int tavi_image_draw_rect_cpu(tavi_image_t*, tavi_point_t, tavi_point_t, tavi_color_t, int) {
    LOG_ERROR("this library was built without drawing");
    return TAVI_RET_UNSUPPORTED;
}

int tavi_image_draw_text_cpu(tavi_image_t*, const char*, tavi_point_t, tavi_color_t, int) {
    LOG_ERROR("this library was built without drawing");
    return TAVI_RET_UNSUPPORTED;
}
#endif
