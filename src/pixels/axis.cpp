// SPDX-License-Identifier: MIT
#include "pixels/axis.h"

#include <algorithm>

#include "tavi_frame.h"

namespace tavi {

Filter axis_filter(int method, int src_extent, int dst_extent) {
    switch (method) {
    case TAVI_IMAGE_RESIZE_NEAREST:
        return Filter::nearest;
    case TAVI_IMAGE_RESIZE_BILINEAR:
        return Filter::bilinear;
    case TAVI_IMAGE_RESIZE_BOX:
        return Filter::box;
    case TAVI_FILTER_BICUBIC:
        return Filter::bicubic;
    case TAVI_FILTER_LANCZOS3:
        return Filter::lanczos3;
    case TAVI_FILTER_TRIANGLE:
        return Filter::triangle;
    case TAVI_FILTER_MEAN:
        return Filter::mean;
    default:
        return 2 * dst_extent < src_extent ? Filter::box : Filter::bilinear;
    }
}

// Two neighbouring positions are one sample, or two that are neighbours too.
static Tap replicated_tap(const AxisMap& m, const Divider& unit, int i) {
    const int at = 2 * (2 * i + 1) * m.num - m.den; // of `unit`, whose `den` counts halves of positions
    const auto [index, part] = at < 0 ? Divider::Result{0, 0} : unit(at);
    const auto sample = [&](int position) { return std::min((position + m.offset) >> 1, m.src_count - 1); };
    const int first = sample(index), second = sample(std::min(index + 1, m.num - 1));
    return {first, second > first ? part : 0};
}

Tap bilinear_tap(const AxisMap& m, const Divider& unit, int i) {
    if (m.replicated)
        return replicated_tap(m, unit, i);
    const int at = (2 * i + 1) * m.num + (m.offset - 1) * m.den + m.phase;
    if (at < 0)
        return {0, 0};
    const auto [index, part] = unit(at);
    if (index >= m.src_count - 1)
        return {m.src_count - 1, 0};
    return {index, part};
}

int nearest_tap(const AxisMap& m, const Divider& unit, int i) {
    return std::min(unit((2 * i + 1) * m.num + m.offset * m.den + m.phase).quotient, m.src_count - 1);
}

Span box_span(const AxisMap& m, const Divider& unit, int i) {
    const int whole = 2 * m.den, length = 2 * m.num;
    const int begin = std::max(0, 2 * i * m.num + m.offset * m.den + m.phase), end = begin + length;
    const int most = m.src_count - 1;
    const auto [begin_at, begin_part] = unit(begin);
    const int first = std::min(begin_at, most);
    const int last = std::min(unit(end - 1).quotient, most);
    if (first >= last)
        return {first, first, length, 0};
    return {first, last, whole - begin_part, end - last * whole};
}

int longest_span(const AxisMap& m, const Divider& unit) {
    int most = 1;
    for (int i = 0; i < m.dst_count; ++i) {
        const Span s = box_span(m, unit, i);
        most = std::max(most, s.last - s.first + 1);
    }
    return most;
}

} // namespace tavi
