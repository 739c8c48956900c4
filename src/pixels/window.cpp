// SPDX-License-Identifier: MIT
#include "pixels/window.h"

#include <algorithm>

namespace tavi {
namespace {

// sin(t) / t up to t = pi, by its series: sin() of the C library differs between machines. The error is below 1e-11.
double sinc(double square) {
    constexpr double kPartOfLast[] = {1.0 / 420, 1.0 / 342, 1.0 / 272, 1.0 / 210, 1.0 / 156,
                                      1.0 / 110, 1.0 / 72,  1.0 / 42,  1.0 / 20,  1.0 / 6};
    double sum = 1;
    for (const double part : kPartOfLast)
        sum = 1 - sum * square * part;
    return sum;
}

// Of a sample at distance x from the centre, in the filter's own measure; 0 to the number of its lobes.
double weight_at(Filter filter, double x) {
    if (filter == Filter::mean)
        return 1;
    if (filter == Filter::triangle)
        return 1 - x;
    if (filter == Filter::bicubic)
        return x < 1 ? (1.5 * x - 2.5) * x * x + 1 : ((2.5 - 0.5 * x) * x - 4) * x + 2;
    // sinc(pi x) sinc(t) with t = pi x / 3, and the sine of 3 t by that of t.
    constexpr double kPi = 3.14159265358979323846;
    const double square = x * x * (kPi * kPi / 9), s = sinc(square), s2 = s * s;
    return s2 * (1 - s2 * square * (4.0 / 3));
}

} // namespace

Window::Window(const AxisMap& m)
    : map_(m), by_unit_(m.replicated ? m.den : 2 * m.den), unit_(m.replicated ? m.den : 2 * m.den),
      reach_(std::max(2 * m.num, unit_)), step_(2 * m.num),
      first_(m.num + (m.replicated ? 0 : m.offset * m.den + m.phase)), count_(m.replicated ? m.num : m.src_count) {
    lobes_ = m.filter == Filter::lanczos3 ? 3 : m.filter == Filter::bicubic ? 2 : 1;
    if (m.identity()) // the zeros of the filter fall on all samples but one
        lobes_ = 1;
    taps_ = is_mean() ? reach_ / unit_ + 1 : (2 * lobes_ * reach_ - 1) / unit_ + 1;
    if (m.replicated)
        taps_ = taps_ / 2 + 1;
    taps_ = std::min(taps_, m.src_count);
}

int Window::sample(int position) const {
    return map_.replicated ? std::min((position + map_.offset) >> 1, map_.src_count - 1) : position;
}

// A position's centre lies half a unit after its start; those at the very end of the reach weigh nothing. What lies
// behind the last sample, as an odd end does where chroma rounds down, is taken at its end: farther off it might
// weigh nothing, or next to nothing. A mean takes the one at the right end of its half reach.
Window::Positions Window::positions(int i) const {
    const int centre = std::min(first_ + i * step_, count_ * unit_), from = centre - unit_ / 2;
    const int reach = is_mean() ? reach_ / 2 : lobes_ * reach_;
    const int begin = from < reach ? 0 : by_unit_(from - reach).quotient + 1;
    const int end = std::min(by_unit_(from + reach - !is_mean()).quotient + 1, count_);
    return {std::min(begin, count_ - 1), end, centre};
}

Window::Samples Window::samples(int i) const {
    const Positions p = positions(i);
    const int first = sample(p.begin);
    return {first, sample(p.end - 1) - first + 1};
}

void Window::weigh(int i, double* weight) const {
    const Positions p = positions(i);
    const int first = sample(p.begin), count = sample(p.end - 1) - first + 1;
    const double measure = 1.0 / reach_;
    std::fill_n(weight, count, 0.0);
    double sum = 0;
    for (int k = p.begin; k < p.end; ++k) {
        const int distance = k * unit_ + unit_ / 2 - p.centre;
        const double w = weight_at(map_.filter, (distance < 0 ? -distance : distance) * measure);
        weight[sample(k) - first] += w;
        sum += w;
    }
    for (int k = 0; k < count; ++k)
        weight[k] /= sum;
}

} // namespace tavi
