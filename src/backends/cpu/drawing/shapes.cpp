// SPDX-License-Identifier: MIT
#include "backends/cpu/drawing/shapes.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace tavi {
namespace {

/// The rows first <= y < end with low <= y < high, inside the image.
struct Rows {
    int first;
    int end;

    Rows(const Painter& painter, double low, double high)
        : first(static_cast<int>(std::ceil(std::clamp(low, 0.0, double(painter.height()))))),
          end(static_cast<int>(std::ceil(std::clamp(high, 0.0, double(painter.height()))))) {}
};

/// Half the width of a disc at a distance from its centre's row; negative where the row misses it. The product of
/// sum and difference keeps the precision that the difference of squares would lose for large radii.
inline double half_chord(double radius, double distance, double less = 0) {
    const double square = (radius - distance) * (radius + distance) - less;
    return square > 0 ? std::sqrt(square) : -1;
}

/// One side of a convex outline.
struct Edge {
    double top;
    double bottom;
    double x;     ///< where it crosses the row `top`
    double slope; ///< columns a row

    Edge(Point a, Point b) {
        if (a.y > b.y)
            std::swap(a, b);
        top = a.y;
        bottom = b.y;
        x = a.x;
        slope = b.y > a.y ? (b.x - a.x) / (b.y - a.y) : 0;
    }
    /// Widens low..high by the edge's crossing of a row.
    void cross(double y, double& low, double& high) const {
        if (y < top || y > bottom || top == bottom)
            return;
        const double at = x + (y - top) * slope;
        low = std::min(low, at);
        high = std::max(high, at);
    }
};

} // namespace

void paint_disc(Painter& painter, Point center, double radius) {
    const Rows rows(painter, center.y - radius, center.y + radius);
    for (int y = rows.first; y < rows.end; ++y) {
        const double half = half_chord(radius, std::fabs(y - center.y));
        if (half > 0)
            painter.span(y, center.x - half, center.x + half);
    }
}

void paint_ring(Painter& painter, Point center, double inner, double outer) {
    if (center.x + outer < 0 || center.x - outer > painter.width())
        return;
    // Squares of distances are whole: a half less than a whole square of the radius is an edge that no centre lies
    // on.
    const double out_tie = outer == std::floor(outer) ? 0.5 : 0;
    const double in_tie = inner == std::floor(inner) ? 0.5 : 0;
    const Rows rows(painter, center.y - outer, center.y + outer);
    for (int y = rows.first; y < rows.end; ++y) {
        const double distance = std::fabs(y - center.y);
        const double out = half_chord(outer, distance, out_tie);
        const double in = inner > distance ? half_chord(inner, distance, in_tie) : -1;
        if (in > 0) {
            painter.span(y, center.x - out, center.x - in);
            painter.span(y, center.x + in, center.x + out);
        } else if (out > 0) {
            painter.span(y, center.x - out, center.x + out);
        }
    }
}

void paint_frame(Painter& painter, const Bounds& outer, const Bounds& hole) {
    const Rows rows(painter, outer.top, outer.bottom + 1);
    if (hole.left > hole.right || hole.top > hole.bottom)
        return painter.block(rows.first, rows.end, outer.left, outer.right + 1);
    const Rows beside(painter, hole.top, hole.bottom + 1);
    painter.block(rows.first, beside.first, outer.left, outer.right + 1);
    painter.block(beside.first, beside.end, outer.left, hole.left);
    painter.block(beside.first, beside.end, hole.right + 1, outer.right + 1);
    painter.block(beside.end, rows.end, outer.left, outer.right + 1);
}

void paint_thin_line(Painter& painter, Point a, Point b) {
    if (a.y > b.y)
        std::swap(a, b);
    const double dx = b.x - a.x;
    const double dy = b.y - a.y;
    const double left = std::min(a.x, b.x);
    const double right = std::max(a.x, b.x);
    if (left >= painter.width() || right < 0)
        return;
    const Rows rows(painter, a.y, b.y + 1);
    if (std::fabs(dx) <= dy) { // steep: one pixel a row; products first, so that halves come out exact
        for (int y = rows.first; y < rows.end; ++y) {
            const double x = dy > 0 ? std::floor(a.x + (y - a.y) * dx / dy + 0.5) : a.x;
            painter.span(y, x, x + 1);
        }
        return;
    }
    for (int y = rows.first; y < rows.end; ++y) { // flat: the run between the crossings of the row's two edges
        const double enter = dy > 0 ? a.x + (y - 0.5 - a.y) * dx / dy : left;
        const double leave = dy > 0 ? a.x + (y + 0.5 - a.y) * dx / dy : right;
        if (dx > 0)
            painter.span(y, std::max(left, std::ceil(enter)),
                         dy > 0 ? std::min(right + 1, std::ceil(leave)) : right + 1);
        else
            painter.span(y, dy > 0 ? std::max(left, std::floor(leave) + 1) : left,
                         dy > 0 ? std::min(right, std::floor(enter)) + 1 : right + 1);
    }
}

void paint_thick_line(Painter& painter, Point a, Point b, double radius) {
    if (std::max(a.x, b.x) + radius < 0 || std::min(a.x, b.x) - radius > painter.width())
        return;
    if (a.y > b.y)
        std::swap(a, b);
    const double dx = b.x - a.x;
    const double dy = b.y - a.y;
    const double length = std::sqrt(dx * dx + dy * dy);
    if (length == 0)
        return paint_disc(painter, a, radius);
    const Point n{dy * (radius / length), dx * (radius / length)}; // from the line to its sides
    const Edge left({a.x - n.x, a.y + n.y}, {b.x - n.x, b.y + n.y});
    const Edge right({a.x + n.x, a.y - n.y}, {b.x + n.x, b.y - n.y});
    const Edge ends[2] = {{{a.x - n.x, a.y + n.y}, {a.x + n.x, a.y - n.y}},
                          {{b.x - n.x, b.y + n.y}, {b.x + n.x, b.y - n.y}}};
    const Rows rows(painter, a.y - radius, b.y + radius);
    for (int y = rows.first; y < rows.end; ++y) {
        if (y - a.y > radius && b.y - y > radius) { // only the sides cross it
            painter.span(y, left.x + (y - left.top) * left.slope, right.x + (y - right.top) * right.slope);
            continue;
        }
        double low = HUGE_VAL;
        double high = -HUGE_VAL;
        for (const Point& end : {a, b}) {
            const double half = half_chord(radius, std::fabs(y - end.y));
            if (half >= 0) {
                low = std::min(low, end.x - half);
                high = std::max(high, end.x + half);
            }
        }
        for (const Edge* edge : {&left, &right, &ends[0], &ends[1]})
            edge->cross(y, low, high);
        if (low < high)
            painter.span(y, low, high);
    }
}

} // namespace tavi
