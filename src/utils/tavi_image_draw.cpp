// SPDX-License-Identifier: MIT
// The public face of drawing: an image with CPU-visible pixels goes on to the drawing routine, whatever the rest.
#include "backends/cpu/tavi_image_cpu.h"

namespace {

bool can_draw_on(const tavi_image_t* img) { return img && img->data; }

} // namespace

int tavi_image_draw_circle(tavi_image_t* img, tavi_point_t center, int radius, tavi_color_t color, int thickness) {
    return can_draw_on(img) ? tavi_image_draw_circle_cpu(img, center, radius, color, thickness) : TAVI_RET_PARAM_ERR;
}

int tavi_image_draw_line(tavi_image_t* img, tavi_point_t pt1, tavi_point_t pt2, tavi_color_t color, int thickness) {
    return can_draw_on(img) ? tavi_image_draw_line_cpu(img, pt1, pt2, color, thickness) : TAVI_RET_PARAM_ERR;
}

int tavi_image_draw_rect(tavi_image_t* img, tavi_point_t pt1, tavi_point_t pt2, tavi_color_t color, int thickness) {
    return can_draw_on(img) ? tavi_image_draw_rect_cpu(img, pt1, pt2, color, thickness) : TAVI_RET_PARAM_ERR;
}

int tavi_image_draw_quad(tavi_image_t* img, tavi_quad_t quad, tavi_color_t color, int thickness) {
    if (!can_draw_on(img))
        return TAVI_RET_PARAM_ERR;
    // Not the cyclic order: the corners of an upright box come row by row.
    const tavi_point_t* const outline[] = {&quad.p0, &quad.p1, &quad.p3, &quad.p2, &quad.p0};
    for (int edge = 0; edge < 4; ++edge) {
        if (const int ret = tavi_image_draw_line(img, *outline[edge], *outline[edge + 1], color, thickness))
            return ret;
    }
    return TAVI_RET_SUCCESS;
}

int tavi_image_draw_text(tavi_image_t* img, const char* text, tavi_point_t pt, tavi_color_t color, int thickness) {
    return can_draw_on(img) ? tavi_image_draw_text_cpu(img, text, pt, color, thickness) : TAVI_RET_PARAM_ERR;
}
