// SPDX-License-Identifier: MIT
#include "backends/cpu/drawing/text.h"

#include <algorithm>
#include <cmath>

#include "backends/cpu/drawing/shapes.h"
#include "backends/cpu/drawing/stroke_font.h"

namespace tavi {
namespace {

/// Draws the strokes of one part of a glyph.
class Pen {
public:
    Pen(Painter& painter, double thickness) : painter_(painter), radius_(thickness / 2) {}

    /// The cell's scale, and where its first column and row lie on the image.
    void place(double x, double y, double scale) {
        x_ = x;
        y_ = y;
        scale_ = scale;
    }

    void draw(const GlyphPart& part) {
        for (const char* s = part.strokes; *s;)
            s = draw_stroke(s, part);
    }

private:
    struct Node {
        Point at;
        bool control;
    };

    Node node(const char* s, const GlyphPart& part) const {
        // A unit's centre maps to the centre of what it becomes: at size 24 that is the identity. Whole pixels keep
        // stems and bowls of small sizes alike.
        const auto map = [&](int unit) { return std::floor((unit + 0.5) * scale_); };
        return {{x_ + map((s[0] | 0x20) - 'a' + part.dx), y_ + map(s[1] - 'A' + part.dy)}, s[0] >= 'a'};
    }

    static Point middle(Point a, Point b) { return {(a.x + b.x) / 2, (a.y + b.y) / 2}; }

    const char* draw_stroke(const char* s, const GlyphPart& part) {
        const char* end = s;
        while (*end && *end != ' ')
            end += 2;
        Node first = node(s, part);
        const bool closed = first.control;
        if (closed)
            first.at = middle(node(end - 2, part).at, first.at);
        Point at = first.at;
        for (const char* p = closed ? s : s + 2; p < end; p += 2) {
            const Node next = node(p, part);
            if (!next.control) {
                line(at, next.at);
                at = next.at;
                continue;
            }
            Point to = first.at; // of the last curve of a closed stroke
            if (p + 2 < end) {
                const Node after = node(p + 2, part);
                to = after.control ? middle(next.at, after.at) : after.at;
                p += after.control ? 0 : 2;
            }
            curve(at, next.at, to);
            at = to;
        }
        if (end == s + 2)
            line(at, at);
        return *end ? end + 1 : end;
    }

    void line(Point a, Point b) {
        if (radius_ <= 0.5)
            paint_thin_line(painter_, rounded(a), rounded(b));
        else
            paint_thick_line(painter_, a, b, radius_);
    }

    static Point rounded(Point p) { return {std::floor(p.x + 0.5), std::floor(p.y + 0.5)}; }

    static double reach(Point a, Point b) { return std::max(std::fabs(a.x - b.x), std::fabs(a.y - b.y)); }

    void curve(Point a, Point control, Point b) {
        if (radius_ <= 0.5)
            return thin_curve(a, control, b);
        // So many pieces that none is more than a tenth of a pixel beside the curve.
        const double bend = reach({a.x + b.x, a.y + b.y}, {2 * control.x, 2 * control.y}) / 4;
        const int pieces = static_cast<int>(std::clamp(std::ceil(std::sqrt(bend * 10)), 1.0, 64.0));
        Point last = a;
        for (int i = 1; i <= pieces; ++i) {
            const Point next = on_curve(a, control, b, static_cast<double>(i) / pieces);
            paint_thick_line(painter_, last, next, radius_);
            last = next;
        }
    }

    /// In steps of a pixel. A pixel that only fills the corner between its neighbours is left out: it would make the
    /// stroke thicker there.
    void thin_curve(Point a, Point control, Point b) {
        const double length = reach(a, control) + reach(control, b);
        const int pieces = static_cast<int>(std::clamp(std::ceil(length), 2.0, 64.0));
        Point drawn = rounded(a);
        Point corner = drawn;
        for (int i = 1; i <= pieces; ++i) {
            const Point next = rounded(on_curve(a, control, b, static_cast<double>(i) / pieces));
            if (reach(drawn, next) > 1) {
                paint_thin_line(painter_, drawn, corner);
                drawn = corner;
            }
            corner = next;
        }
        paint_thin_line(painter_, drawn, corner);
    }

    static Point on_curve(Point a, Point c, Point b, double t) {
        const double u = 1 - t;
        return {u * u * a.x + 2 * u * t * c.x + t * t * b.x, u * u * a.y + 2 * u * t * c.y + t * t * b.y};
    }

    Painter& painter_;
    double radius_;
    double x_ = 0;
    double y_ = 0;
    double scale_ = 1;
};

} // namespace

void paint_text(Painter& painter, const char* text, double x, double y, double size, double thickness) {
    const double scale = size / kCellRows;
    const auto whole = [](double value) { return std::floor(value + 0.5); };
    // Three columns stay free between letters, and one at least when the pen is thick for its size. Letters begin at
    // whole pixels, so that each looks the same wherever it stands.
    const double gap = std::max(whole(3 * scale), thickness - 1 + std::max(1.0, whole(scale)));
    // The pen's left edge keeps to the cell. One of even width covers whole pixels when its middle lies between two.
    const double inset = (thickness - 1) / 2;
    const double rise = std::fmod(thickness, 2) == 0 ? 0.5 : 0;
    const double overhang = thickness / 2 + 1;
    Pen pen(painter, thickness);
    double left = x;
    while (*text) {
        const uint32_t code = next_character(text);
        if (code == '\n') {
            left = x;
            y += size;
            continue;
        }
        const GlyphShape glyph = find_glyph(code);
        const double from = left;
        left += whole((glyph.right + 0.5) * scale - 0.5) + 1 + gap;
        if (from > painter.width() || left + thickness < 0 || y - overhang > painter.height() ||
            y + size + overhang < 0)
            continue;
        pen.place(from + inset, y - rise, scale);
        for (const GlyphPart& part : glyph.part)
            pen.draw(part);
    }
}

} // namespace tavi
