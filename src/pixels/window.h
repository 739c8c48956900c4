// SPDX-License-Identifier: MIT
// The filters that weigh all samples within reach of a centre, as Pillow and torchvision resize: triangle, bicubic,
// Lanczos-3 and the mean of whole samples, wider by the ratio when shrinking.
#pragma once

#include "pixels/axis.h"

namespace tavi {

/// The samples and weights of a windowed filter: those of samples beyond the ends are dropped, the others make up for
/// them. Computed with the four operations alone, so that they are the same on every machine.
class Window {
public:
    Window() = default;
    explicit Window(const AxisMap& map);

    struct Samples {
        int first;
        int count;
    };
    Samples samples(int i) const;

    /// Writes the weights of samples(i); they sum to 1.
    void weigh(int i, double* weight) const;

    int taps() const { return taps_; } ///< samples at the most

private:
    struct Positions {
        int begin, end, centre; ///< the centre in units of 1 / unit
    };
    Positions positions(int i) const;
    bool is_mean() const { return map_.filter == Filter::mean; }
    int sample(int position) const;

    AxisMap map_;
    Divider by_unit_{1};
    int unit_ = 1;  ///< a position, in the units of centres
    int reach_ = 0; ///< from the centre to where weights end, in those units
    int step_ = 0;  ///< from centre to centre, in those units
    int first_ = 0; ///< the first centre
    int count_ = 0; ///< positions: samples, or what they are replicated to
    int lobes_ = 0; ///< on each side of the centre
    int taps_ = 0;
};

} // namespace tavi
