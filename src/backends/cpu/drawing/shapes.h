// SPDX-License-Identifier: MIT
// Shapes as runs of pixels, row by row. A pixel belongs to a shape when its centre does; nothing is blended. Only
// visible rows are visited, so a shape costs what can be seen of it, and all geometry is in doubles, which hold
// every 32-bit coordinate and every sum of them exactly.
#pragma once

#include "backends/cpu/drawing/painter.h"

namespace tavi {

struct Point {
    double x;
    double y;
};

/// A filled disc: centres nearer than `radius`. A run takes its left end and leaves its right one.
void paint_disc(Painter& painter, Point center, double radius);

/// The ring `inner` <= distance < `outer` about a whole-numbered centre.
void paint_ring(Painter& painter, Point center, double inner, double outer);

/// The rectangle left <= x <= right, top <= y <= bottom, less the hole of the same kind; empty when reversed.
struct Bounds {
    double left, top, right, bottom;
};
void paint_frame(Painter& painter, const Bounds& outer, const Bounds& hole);

/// A line one pixel thick between whole-numbered points: one pixel for each step along its longer axis, the same
/// ones in both directions.
void paint_thin_line(Painter& painter, Point a, Point b);

/// A line with round caps: centres nearer to it than `radius`.
void paint_thick_line(Painter& painter, Point a, Point b, double radius);

} // namespace tavi
