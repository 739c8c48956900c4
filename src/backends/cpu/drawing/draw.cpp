// SPDX-License-Identifier: MIT
// The contract of drawing: arguments and the record checked, the shape handed to its painter.
#define TAVI_LOG_TAG "tavi-cpu"
#include <algorithm>
#include <cmath>

#include "backends/cpu/drawing/shapes.h"
#include "backends/cpu/drawing/text.h"
#include "backends/cpu/tavi_image_cpu.h"
#include "image/cpu_image.h"
#include "services/log.h"
#include "services/yuv_setting.h"

namespace {

constexpr int kDefaultTextSize = 24;

/// The result for a record that cannot be drawn on.
int refusal(const tavi_image_t* img, const tavi::CpuImage& image) {
    return img && !tavi::find_format(img->pixel_format) ? TAVI_RET_PARAM_ERR : image.refusal().code;
}

double pen_width(int thickness) { return thickness > 1 ? thickness : 1; }

} // namespace

using namespace tavi;

int tavi_image_draw_circle_cpu(tavi_image_t* img, tavi_point_t center, int radius, tavi_color_t color,
                               int thickness) {
    const CpuImage image(img, Access::read_write, yuv_setting());
    if (!image) {
        LOG_ERROR("img=%p: %s", static_cast<void*>(img), image.refusal().text);
        return refusal(img, image);
    }
    if (radius < 0) {
        LOG_ERROR("radius=%d; allowed is 0 and more", radius);
        return TAVI_RET_PARAM_ERR;
    }
    Painter painter(image.view(), color);
    const double r = radius;
    const double half = thickness < 0 ? 0.5 : pen_width(thickness) / 2;
    paint_ring(painter, {double(center.x), double(center.y)}, thickness < 0 ? 0 : r - half, r + half);
    return TAVI_RET_SUCCESS;
}

int tavi_image_draw_line_cpu(tavi_image_t* img, tavi_point_t pt1, tavi_point_t pt2, tavi_color_t color,
                             int thickness) {
    const CpuImage image(img, Access::read_write, yuv_setting());
    if (!image) {
        LOG_ERROR("img=%p: %s", static_cast<void*>(img), image.refusal().text);
        return refusal(img, image);
    }
    Painter painter(image.view(), color);
    const double width = pen_width(thickness);
    // A pen of even width covers whole pixels only when its middle lies between two: the extra one is up and left.
    const double shift = thickness > 1 && thickness % 2 == 0 ? 0.5 : 0;
    const Point a{pt1.x - shift, pt1.y - shift};
    const Point b{pt2.x - shift, pt2.y - shift};
    if (width == 1)
        paint_thin_line(painter, a, b);
    else
        paint_thick_line(painter, a, b, width / 2);
    return TAVI_RET_SUCCESS;
}

int tavi_image_draw_rect_cpu(tavi_image_t* img, tavi_point_t pt1, tavi_point_t pt2, tavi_color_t color,
                             int thickness) {
    const CpuImage image(img, Access::read_write, yuv_setting());
    if (!image) {
        LOG_ERROR("img=%p: %s", static_cast<void*>(img), image.refusal().text);
        return refusal(img, image);
    }
    Painter painter(image.view(), color);
    const Bounds box{double(std::min(pt1.x, pt2.x)), double(std::min(pt1.y, pt2.y)), double(std::max(pt1.x, pt2.x)),
                     double(std::max(pt1.y, pt2.y))};
    if (thickness < 0) {
        paint_frame(painter, box, {0, 0, -1, -1});
    } else { // an even width has its extra pixel inside
        const double out = std::floor((pen_width(thickness) - 1) / 2);
        const double in = std::floor(pen_width(thickness) / 2) + 1;
        paint_frame(painter, {box.left - out, box.top - out, box.right + out, box.bottom + out},
                    {box.left + in, box.top + in, box.right - in, box.bottom - in});
    }
    return TAVI_RET_SUCCESS;
}

int tavi_image_draw_text_cpu(tavi_image_t* img, const char* text, tavi_point_t pt, tavi_color_t color,
                             int thickness) {
    const CpuImage image(img, Access::read_write, yuv_setting());
    if (!image) {
        LOG_ERROR("img=%p: %s", static_cast<void*>(img), image.refusal().text);
        return refusal(img, image);
    }
    if (!text || pt.size < 0) {
        LOG_ERROR("text=%p size=%d; allowed are a string and a size of 0 (for %d) and more",
                  static_cast<const void*>(text), pt.size, kDefaultTextSize);
        return TAVI_RET_PARAM_ERR;
    }
    Painter painter(image.view(), color);
    paint_text(painter, text, pt.x, pt.y, pt.size == 0 ? kDefaultTextSize : pt.size, pen_width(thickness));
    return TAVI_RET_SUCCESS;
}
