// SPDX-License-Identifier: MIT
// One axis of scaling: which source samples a destination sample is made of, and with which weights.
#pragma once

#include <cstdint>

#include "image/view.h"

namespace tavi {

enum class Filter : uint8_t { nearest, bilinear, box, triangle, bicubic, lanczos3, mean };

/// Those that weigh all samples within reach of the centre and reach further when shrinking. Only frames have them.
constexpr bool is_windowed(Filter f) { return TAVI_WITH_FRAMES && f >= Filter::triangle; }

/// How the samples of a destination axis lie on a source axis: sample i covers the source interval
/// [i * num / den + offset / 2, (i + 1) * num / den + offset / 2), moved by `phase`. Beyond the ends the edge samples
/// repeat; an average begins with the first one.
struct AxisMap {
    int src_count = 0; ///< source samples
    int dst_count = 0; ///< destination samples
    int num = 1;       ///< source extent, in samples that `den` counts for the destination
    int den = 1;
    int offset = 0; ///< halves of a source sample by which the source extent starts after sample 0
    int phase = 0;  ///< what chroma that is not centred adds, in units of 1 / (2 * den); 0 where `replicated`
    Filter filter = Filter::bilinear;
    /// The source sample stands for two positions, `num` of them in all, and it is those that are filtered: chroma
    /// that goes to the grid of pixels comes out as if every pixel had had its own before.
    bool replicated = false;

    /// Replicated, a window takes in neighbours at this ratio, too: it is two positions to one.
    /// The last sample of an odd side that rounds up goes twice where there is one less on the other side.
    bool identity() const {
        return num == den && offset == 0 && phase == 0 && dst_count <= src_count &&
               !(replicated && is_windowed(filter));
    }
};

/// The filter of one axis for a resize method or filter of the public headers.
Filter axis_filter(int method, int src_extent, int dst_extent);

/// Divides by one number many times over, by multiplication: a 32-bit processor divides in software.
class Divider {
public:
    explicit Divider(int divisor)
        : divisor_(static_cast<uint32_t>(divisor)), inverse_(UINT32_MAX / divisor_), q30_((1u << 30) / divisor_) {}

    struct Result {
        int quotient, rest;
    };

    /// Of a number from 0 on.
    Result operator()(int number) const {
        const auto n = static_cast<uint32_t>(number);
        auto quotient = static_cast<uint32_t>((uint64_t{n} * inverse_) >> 32); // at most one short
        uint32_t rest = n - quotient * divisor_;
        if (rest >= divisor_)
            ++quotient, rest -= divisor_;
        return {static_cast<int>(quotient), static_cast<int>(rest)};
    }

    /// part / divisor with `bits` fractional bits, rounded; below 4.
    int share(int part, int bits) const {
        return static_cast<int>((static_cast<uint32_t>(part) * q30_ + (1u << (29 - bits))) >> (30 - bits));
    }

private:
    uint32_t divisor_;
    uint32_t inverse_; ///< 2^32 / divisor
    uint32_t q30_;     ///< 2^30 / divisor
};

// Positions are counted in units of 1 / (2 * den), which a Divider of 2 * den takes apart. They fit in 31 bits:
// chroma at the positions of pixels has a `den` of twice the side.
static_assert(int64_t{2} * (2 * kMaxSide + 1) * kMaxSide < INT32_MAX);

/// Two samples and the share of the second.
struct Tap {
    int index;
    int part; ///< of 2 * den; 0 where there is no second
};
Tap bilinear_tap(const AxisMap& map, const Divider& unit, int i);

int nearest_tap(const AxisMap& map, const Divider& unit, int i);

/// The samples under an interval; coverage in units of 1 / (2 * den), summing to 2 * num.
struct Span {
    int first;
    int last;
    int first_cover;
    int last_cover; ///< 0 when first == last

    /// Of sample `at`, where `whole` is 2 * den.
    int cover(int at, int whole) const {
        return at < first || at > last ? 0 : at == first ? first_cover : at == last ? last_cover : whole;
    }
};
Span box_span(const AxisMap& map, const Divider& unit, int i);
int longest_span(const AxisMap& map, const Divider& unit);

/// Two taps whose centres all fall on samples: odd whole steps. Nearest gives the same then.
inline bool picks_samples(const AxisMap& m) {
    const int num = m.num << m.replicated;
    return m.filter == Filter::bilinear && m.offset == 0 && m.phase == 0 && num % m.den == 0 && num / m.den % 2 == 1;
}

/// The middle one of each three samples, all of which are there: of an odd side that rounds up they may not be.
inline bool takes_middles(const AxisMap& m) {
    return m.num == 3 * m.den && m.offset == 0 && m.phase == 0 && 3 * m.dst_count <= m.src_count;
}

/// Two samples to one, both with the same weight, whatever the filter; the last result may have only one.
inline bool halves(const AxisMap& m) {
    return m.filter != Filter::nearest && m.offset == 0 && m.phase == 0 && m.num == 2 * m.den;
}

} // namespace tavi
