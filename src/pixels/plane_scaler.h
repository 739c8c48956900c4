// SPDX-License-Identifier: MIT
// Scaling of one plane, band of rows by band of rows: bilinear, exact area average, nearest and windowed filters,
// each axis with its own. Between the axes stand a few rows of 16 bits that stay in the first-level cache; a
// destination row is written once, in 8 bits or with six fractional bits more.
#pragma once

#include <cstdint>
#include <variant>

#include "image/scratch.h"
#include "image/view.h"
#include "kernels/fixed.h"
#include "kernels/kernels.h"
#include "pixels/window.h"

namespace tavi {

/// A half-open range of rows.
struct RowRange {
    int begin = 0;
    int end = 0;
};

/// A band of the source plane: rows from `first` on.
struct SourceRows {
    const PlaneView& plane;
    int first;

    const uint8_t* row(int y) const { return plane.row(y - first); }
};

/// What every way of scaling is told.
struct ScaleJob {
    const Kernels* kernels = nullptr;
    AxisMap x, y;
    Divider y_unit{1}, y_length{1}; ///< by 2 * den and by 2 * num
    Window y_window;                ///< of a windowed filter
    int channels = 1;
    int step = 1;      ///< bytes per source column
    bool deep = false; ///< 8 bits are written with six fractional bits, in 16

    int source_elements() const { return x.src_count * channels; }
    int result_elements() const { return x.dst_count * channels; }

    struct Rows {
        int first;
        int last;
        int weight; ///< of the last row where there are two, Q15
    };
    Rows rows_for(int y) const;
    BoxRows box_for(int y, const SourceRows& src) const;
    WideRows wide_rows_for(int y, const SourceRows& src) const;
};

// The ways. Each builds its tables in a scratch that must live as long as it (false when there is no memory), and
// writes row `y` of the result.

struct CopyRows {
    void row(const ScaleJob& job, const SourceRows& src, int y, uint8_t* out);
};

struct PickColumns { ///< nearest
    bool init(Scratch& scratch, const ScaleJob& job);
    void row(const ScaleJob& job, const SourceRows& src, int y, uint8_t* out);
    int32_t* start = nullptr;  ///< first byte of each column; null: the middle ones of three
    uint8_t* picked = nullptr; ///< a row of them, before it is made deep
};

struct HalveBoth { ///< a mean of four
    void row(const ScaleJob& job, const SourceRows& src, int y, uint8_t* out);
};

struct TwoTapsAtOnce { ///< bilinear reduction: only the samples it needs are touched
    bool init(Scratch& scratch, const ScaleJob& job);
    void row(const ScaleJob& job, const SourceRows& src, int y, uint8_t* out);
    FirTable fir = {};
};

struct DownOnly { ///< columns stay as they are
    bool init(Scratch& scratch, const ScaleJob& job);
    void row(const ScaleJob& job, const SourceRows& src, int y, uint8_t* out);
    bool of_two = false;         ///< a row is blended from two
    uint16_t* reduced = nullptr; ///< a row averaged from more
};

struct DownThenAcross {
    bool init(Scratch& scratch, const ScaleJob& job);
    void row(const ScaleJob& job, const SourceRows& src, int y, uint8_t* out);
    uint16_t* reduced = nullptr; ///< one source row, reduced vertically
    FirTable fir = {};
    SpanTable spans = {}; ///< in place of `fir` where an average takes too many columns
};

struct AcrossThenDown { ///< two samples an axis, little or no reduction: two rows are kept, as wide as the result
    bool init(Scratch& scratch, const ScaleJob& job);
    void row(const ScaleJob& job, const SourceRows& src, int y, uint8_t* out);
    const uint16_t* expanded(const ScaleJob& job, const SourceRows& src, int y);
    ExpandTable table = {};
    uint16_t* rows[2] = {};
    int number[2] = {-1, -1}; ///< which rows those are
};

struct Samples16 { ///< 16-bit samples, in single precision: 24 bits hold a sample and eight fractional bits
    bool init(Scratch& scratch, const ScaleJob& job);
    void row(const ScaleJob& job, const SourceRows& src, int y, uint8_t* out);
    float* reduced = nullptr;
    WideFir fir = {};
};

/// Windowed filters: across, and down then, as Pillow does it. What stands between is limited to the range of
/// samples: at hard edges the result is another one without. The rows that one of the result is made of are kept, or,
/// where that would be too many, made each time that they are needed.
struct Windowed {
    bool init(Scratch& scratch, const ScaleJob& job);
    void row(const ScaleJob& job, const SourceRows& src, int y, uint8_t* out);
    const uint16_t* across(const ScaleJob& job, const SourceRows& src, int y);
    void add_up(const ScaleJob& job, const SourceRows& src, Window::Samples rows, uint8_t* out);
    double* exact = nullptr;         ///< weights of the rows
    int16_t* rounded = nullptr;      ///< the same in fixed point
    uint16_t* samples = nullptr;     ///< a source row
    uint16_t* kept = nullptr;        ///< rows scaled across
    int slots = 0;                   ///< of them, by their numbers
    int begin = 0, end = 0;          ///< the source rows that they are of
    const uint16_t** rows = nullptr; ///< those of one row of the result
    double* sums = nullptr;          ///< or a row of the result
    int extra_bits = 0;              ///< of the weights across
    FirTable fir = {};
};

struct Windowed16 { ///< of 16-bit samples
    bool init(Scratch& scratch, const ScaleJob& job);
    void row(const ScaleJob& job, const SourceRows& src, int y, uint8_t* out);
    double* exact = nullptr;
    float* reduced = nullptr;
    WideFir fir = {};
};

/// As many taps as the kernels across take at a time; those that are too many weigh nothing.
int fir_taps(int span, int channels);

/// Scales one plane of 1 to 4 channels of 8 bits, or one of 16. Rows must be asked for in rising order.
class PlaneScaler {
public:
    /// @param wide samples of 16 bits, one channel.
    /// @param deep results of 16 bits with six fractional ones, of one or two channels of 8 bits.
    bool init(Scratch& scratch, int channels, bool wide, bool deep, const AxisMap& x, const AxisMap& y);

    /// Whether samples are only picked: the middle ones of three positions across, of any row.
    bool picks_thirds() const {
        return picks_ && job_.x.offset == 0 && job_.x.num << job_.x.replicated == 3 * job_.x.den;
    }

    /// The source rows that the destination rows [y0, y1) depend on.
    RowRange source_rows(int y0, int y1) const;

    /// Writes the destination rows [y0, y0 + dst.rows). `src` holds source rows from `src_first` on.
    void run(const PlaneView& src, int src_first, int y0, const PlaneView& dst);

private:
    ScaleJob job_;
    bool picks_ = false;
    std::variant<CopyRows, PickColumns, HalveBoth, TwoTapsAtOnce, DownOnly, DownThenAcross, AcrossThenDown, Samples16
#if TAVI_WITH_FRAMES
                 ,
                 Windowed, Windowed16
#endif
                 >
        way_;
};

} // namespace tavi
