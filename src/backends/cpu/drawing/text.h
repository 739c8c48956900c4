// SPDX-License-Identifier: MIT
// Text: the strokes of the font, scaled and drawn with a round pen.
#pragma once

#include "backends/cpu/drawing/painter.h"

namespace tavi {

/// Draws UTF-8 text whose first cell has its top-left corner at (x, y). `size` is the height of a cell in pixels,
/// above 0; `thickness` that of the pen, above 0.
void paint_text(Painter& painter, const char* text, double x, double y, double size, double thickness);

} // namespace tavi
