// SPDX-License-Identifier: MIT
// Scaling of one plane, band of rows by band of rows: bilinear, exact area average and nearest, each axis with its
// own filter. Between the axes stand a few rows of 16 bits that stay in the first-level cache; a destination row is
// written once.
#pragma once

#include <cstdint>

#include "image/scratch.h"
#include "image/view.h"
#include "kernels/kernels.h"

namespace tavi {

enum class Filter : uint8_t { nearest, bilinear, box };

/// How the samples of a destination axis lie on a source axis: sample i covers the source interval
/// [i * num / den + offset / 2, (i + 1) * num / den + offset / 2). Beyond the ends the edge samples repeat.
struct AxisMap {
    int src_count = 0; ///< source samples
    int dst_count = 0; ///< destination samples
    int num = 1;       ///< source extent in pixels
    int den = 1;       ///< destination extent in pixels
    int offset = 0;    ///< halves of a source sample by which the source extent starts after sample 0
    Filter filter = Filter::bilinear;

    bool identity() const { return num == den && offset == 0; }
};

/// The filter of one axis for a resize method of the public header.
Filter axis_filter(int method, int src_extent, int dst_extent);

/// A half-open range of rows.
struct RowRange {
    int begin = 0;
    int end = 0;
};

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

/// Scales one plane of 1 to 4 channels of 8 bits, or one of 16. Rows must be asked for in rising order.
class PlaneScaler {
public:
    /// Builds the tables in `scratch`, which must live as long as the scaler. False when there is no memory.
    bool init(Scratch& scratch, int channels, bool wide, const AxisMap& x, const AxisMap& y);

    /// The source rows that the destination rows [y0, y1) depend on.
    RowRange source_rows(int y0, int y1) const;

    /// Writes the destination rows [y0, y0 + dst.rows). `src` holds source rows from `src_first` on.
    void run(const PlaneView& src, int src_first, int y0, const PlaneView& dst);

private:
    struct Rows {
        int first;
        int last;
        int weight; ///< bilinear: of the last row, Q15
    };
    Rows rows_for(int y) const;
    BoxRows box_for(int y, const PlaneView& src, int src_first) const;
    WideRows wide_rows_for(int y, const PlaneView& src, int src_first) const;
    bool build_nearest(Scratch& scratch);
    bool build_fir(Scratch& scratch);
    bool build_expand(Scratch& scratch);
    bool build_spans(Scratch& scratch);
    bool build_wide(Scratch& scratch);
    void run_row(const PlaneView& src, int src_first, int y, uint8_t* out);
    void horizontal(const uint16_t* row, uint8_t* out) const;
    const uint16_t* expanded_row(const PlaneView& src, int src_first, int y);

    enum class Way : uint8_t {
        copy,
        nearest,
        vertical_only,
        vertical_first,
        horizontal_first,
        at_once,
        halve,
        third
    };

    const Kernels* kernels_ = nullptr;
    AxisMap x_, y_;
    Divider y_unit_{1}, y_length_{1}; ///< by 2 * den and by 2 * num
    int channels_ = 0;
    int step_ = 0; ///< bytes per column
    bool wide_ = false;
    Way way_ = Way::copy;
    int32_t* start_ = nullptr;
    FirTable fir_ = {};
    SpanTable spans_ = {};
    bool use_spans_ = false;
    uint16_t* row_ = nullptr; ///< one source row, reduced vertically
    ExpandTable expand_ = {};
    uint16_t* expanded_[2] = {};   ///< source rows, already scaled across
    int expanded_y_[2] = {-1, -1}; ///< which rows those are
    float* wide_row_ = nullptr;    ///< 16-bit samples: one row, reduced vertically
    WideFir wide_fir_ = {};
};

/// Scales an image plane by plane. The source box may start at odd pixels of a subsampled format. Packed 4:2:2 is
/// scaled twice, as pixels for its luma and as pairs of pixels for its chroma, without taking it apart.
class ImageScaler {
public:
    /// `method` is one of the public header.
    bool init(Scratch& scratch, const Format& format, int src_width, int src_height, const Box& box, int dst_width,
              int dst_height, int method);

    /// The source rows, in pixels of the whole source and even where chroma is subsampled, for destination rows.
    RowRange source_rows(int y0, int y1) const;

    /// Writes destination rows [y0, y0 + dst.height). `src` holds whole source rows from `src_first` on.
    void run(const ImageView& src, int src_first, int y0, const ImageView& dst);

private:
    bool is_packed() const { return packed_chroma_ != nullptr; }
    void run_packed(const ImageView& src, int src_first, int y0, const ImageView& dst);

    const Format* format_ = nullptr;
    const PlaneRule* grids_ = nullptr;
    int planes_count_ = 0;
    uint8_t* packed_chroma_ = nullptr; ///< a row of pairs with the right chroma, of packed 4:2:2 alone
    int src_height_ = 0;
    int origin_x_[3] = {}; ///< of each plane: the sample that the source box starts at
    int origin_y_[3] = {};
    PlaneScaler planes_[3];
};

} // namespace tavi
