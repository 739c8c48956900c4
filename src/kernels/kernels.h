// SPDX-License-Identifier: MIT
// Pixel loops over one row, or a few, in three builds: plain C++ (the oracle, and the baseline of every machine),
// AVX2 and NEON. All builds give the same bytes. The choice is made once, at run time.
#pragma once

#include <cstddef>
#include <cstdint>

#include "image/colour.h"

namespace tavi {

/// Where the chroma of a row comes from or goes to. For `pairs` and `packed` kinds the first chroma pointer (or, for
/// packed sources, the luma pointer) holds both.
enum ChromaKind : int { kPlanar, kPairsUV, kPairsVU, kPackedYUYV, kPackedUYVY, kChromaKinds };

/// Byte order of an RGB pixel.
enum RgbKind : int { kRGB, kBGR, kRGBA, kBGRA, kRgbKinds };

/// One row of a vertical area average: the rows that the interval covers whole, which weigh the same, and those cut
/// by its ends.
struct BoxRows {
    const uint8_t* top;    ///< cut row before the others, or null
    const uint8_t* bottom; ///< cut row after them, or null
    const uint8_t* inner;  ///< first whole row
    ptrdiff_t pitch;       ///< bytes between whole rows
    int count;             ///< whole rows
    int16_t top_weight;    ///< of the average, Q15
    int16_t bottom_weight; ///< likewise
    int16_t inner_weight;  ///< of the sum of the whole rows, shifted up by `inner_shift`: to six fractional bits, Q15
    uint8_t inner_shift;   ///< the shifted sum fits in 15 bits
    double inner_weight_big; ///< weight of the sum where there are more than kBoxRowsIn16Bits
};

constexpr int kBoxRowsIn16Bits = 128;

/// Whether a build has third_to_rgb: on ARM even the question would take its place in a small library.
#if defined(__x86_64__) || defined(__i386__)
constexpr bool kThirdsToRgb = true;
#else
constexpr bool kThirdsToRgb = false;
#endif

/// The same for 16-bit samples. One row has the weight 1.
struct WideRows {
    const uint8_t* first;
    ptrdiff_t pitch;
    int count;
    float first_weight;
    float inner_weight; ///< of each row between the first and the last
    float last_weight;
};

/// Rows of 16-bit samples to be added up, each with a weight of its own.
struct WideFirRows {
    const uint8_t* first;
    ptrdiff_t pitch;
    int count;
    const double* weight;
};

/// Weights of a horizontal filter of 16-bit samples: `taps` rows of one weight per output column.
struct WideFir {
    const int32_t* start; ///< first source column
    const float* weight;
    int taps;
    int cols; ///< output columns
};

constexpr int kWideTapsInSingle = 64; ///< more would add up rounding errors to whole steps: double precision then

/// Weights of a horizontal filter: output column i is the sum of `taps` source columns from `start[i]`. Weights may
/// be below zero, their sizes add up to less than eight; sums are limited to the range of samples. Long filters give
/// their weights some bits more, and their row as many less.
struct FirTable {
    const int32_t* start;  ///< first source element (column times channels), one per output column, evenly apart
    const int16_t* weight; ///< `taps` per output column, Q14, they sum to 16384
    int taps;         ///< 2, or: of one channel 4 or a multiple of 8, of two a multiple of 4, of more an even number
    int cols;         ///< output columns
    int row_elements; ///< length of the source row
};

/// Rows of the scaler to be added up, each with a weight of its own, as in FirTable.
struct FirRows {
    const uint16_t* const* row;
    const int16_t* weight; ///< one per row, Q14, and a zero behind them; they sum to 16384
    int count;             ///< one or more
};

/// A row scaled across with two taps, wider or not much narrower: the elements of the output by eights, each of which
/// finds its samples within 16 bytes.
struct ExpandTable {
    const int32_t* start;  ///< first byte of each eight
    const uint8_t* index;  ///< left sample of each element, from there
    const int16_t* weight; ///< of the right sample of each element, Q14; null: the left samples alone are taken
    int next;              ///< from the left sample to the right one
    int eights;            ///< even; elements behind the row's end are there too
    bool by_16;            ///< whether 16 bytes from each start are the row's
};

/// Spans of a horizontal area average too long for FirTable.
struct SpanTable {
    const int32_t* start;   ///< first source element
    const int32_t* inner;   ///< whole columns after the first
    const uint16_t* weight; ///< two per output column: of the first and of the one after the inner ones, Q12
    double scale;           ///< 1 / (64 * span length in Q12)
    int cols;               ///< output columns
};

/// A run of pixels of an affine warp: positions in 16.16 fixed point, all four samples of each inside the plane.
struct AffineSpan {
    const uint8_t* data;
    ptrdiff_t pitch;
    int cols;
    int rows;
    int32_t x, y;   ///< of the first pixel
    int32_t dx, dy; ///< from one to the next
};

/// The rows between stages of the scaler hold 16-bit values with six fractional bits (0 to 16320).
struct Kernels {
    const char* name;

    // ---- colour; widths are even, in pixels
    void (*yuv_to_rgb[kChromaKinds][kRgbKinds])(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* rgb,
                                                int width, const YuvToRgb& constants);
    /// The same of full chroma, a sample a pixel, in the scaler's 16 bits: what is scaled is rounded once, in RGB.
    /// Any width; by the first three kinds of chroma. Whole samples give the bytes of yuv_to_rgb. kKeptBits of the
    /// fraction count.
    void (*yuv444_to_rgb[3][kRgbKinds])(const uint16_t* y, const uint16_t* u, const uint16_t* v, uint8_t* rgb,
                                        int width, const YuvToRgb& constants);
    /// Reduction to a third across: the middle luma of every three columns, each with the chroma that it has in rows
    /// of half as many pairs, U V or V U. Widths are those of the result, even and from 16 on. Null in the builds
    /// that pick first and then convert.
    void (*third_to_rgb[2][kRgbKinds])(const uint8_t* y, const uint8_t* pairs, uint8_t* rgb, int width,
                                       const YuvToRgb& constants);
    /// Two rows to two luma rows and one chroma row (4:2:0).
    void (*rgb_to_yuv420[3][kRgbKinds])(const uint8_t* a, const uint8_t* b, uint8_t* ya, uint8_t* yb, uint8_t* u,
                                        uint8_t* v, int width, const RgbToYuv& constants);
    /// One row to one luma row and one chroma row (4:2:2).
    void (*rgb_to_yuv422[3][kRgbKinds])(const uint8_t* rgb, uint8_t* y, uint8_t* u, uint8_t* v, int width,
                                        const RgbToYuv& constants);
    /// Two rows of packed 4:2:2 to two luma rows and one row of U V pairs, the mean of both; YUYV, then UYVY.
    void (*packed_to_nv12[2])(const uint8_t* a, const uint8_t* b, uint8_t* ya, uint8_t* yb, uint8_t* uv, int width);
    void (*rgb_to_gray[kRgbKinds])(const uint8_t* rgb, uint8_t* gray, int width);     ///< any width
    void (*rgb_to_gray16[kRgbKinds])(const uint8_t* rgb, uint8_t* gray16, int width); ///< any width and alignment
    void (*gray_to_rgb[2])(const uint8_t* gray, uint8_t* rgb, int width);             ///< 3 and 4 channels, any width

    /// Other channels or another order of them, any width; null where nothing changes.
    void (*rgb_to_rgb[kRgbKinds][kRgbKinds])(const uint8_t* from, uint8_t* to, int width);

    void (*gray16_to_8)(const uint8_t* gray16, uint8_t* gray8, int width); ///< value / 257, rounded; any alignment

    // ---- scaling; n counts elements (columns times channels)
    void (*widen)(const uint8_t* row, uint16_t* out, int n);
    void (*narrow)(const uint16_t* row, uint8_t* out, int n);
    void (*blend8)(const uint8_t* a, const uint8_t* b, int weight_q15, uint16_t* out, int n);
    void (*blend8_to_8)(const uint8_t* a, const uint8_t* b, int weight_q15, uint8_t* out, int n);
    void (*blend16_to_8)(const uint16_t* a, const uint16_t* b, int weight_q15, uint8_t* out, int n);
    void (*blend16)(const uint16_t* a, const uint16_t* b, int weight_q15, uint16_t* out, int n);
    void (*box_rows)(const BoxRows& rows, uint16_t* out, int n);
    void (*fir_rows_to_8)(const FirRows& rows, uint8_t* out, int n);
    void (*fir_rows_to_16)(const FirRows& rows, uint16_t* out, int n);
    void (*fir_to_8[4])(const uint16_t* row, const FirTable& table, uint8_t* out); ///< by channels - 1
    void (*expand)(const uint8_t* row, const ExpandTable& table, uint16_t* out);   ///< 8 * eights elements
    void (*spans_to_8[4])(const uint16_t* row, const SpanTable& table, uint8_t* out);
    /// The same into 16 bits; of spans one and two channels.
    void (*fir_to_16[4])(const uint16_t* row, const FirTable& table, uint16_t* out);
    void (*spans_to_16[2])(const uint16_t* row, const SpanTable& table, uint16_t* out);
    /// Both axes at once, for bilinear reduction: touches only the samples it needs. Weights as in FirTable, two
    /// taps.
    void (*bilinear_at[4])(const uint8_t* a, const uint8_t* b, int weight_q15, const FirTable& table, uint8_t* out);

    void (*bilinear_at_16[2])(const uint8_t* a, const uint8_t* b, int weight_q15, const FirTable& table,
                              uint16_t* out);

    /// The mean of two by two columns, rounded: what bilinear and area reduction to half the size come down to.
    void (*halve[4])(const uint8_t* a, const uint8_t* b, uint8_t* out, int cols);        ///< by channels - 1
    void (*halve_to_16[2])(const uint8_t* a, const uint8_t* b, uint16_t* out, int cols); ///< exact

    /// The middle one of every three columns: what bilinear and nearest reduction to a third come down to.
    void (*third[4])(const uint8_t* row, uint8_t* out, int cols); ///< by bytes per column - 1

    // 16-bit samples at any alignment, single precision between the two.
    void (*wide_rows)(const WideRows& rows, float* out, int n);
    void (*wide_fir_rows)(const WideFirRows& rows, float* out, int n);
    void (*wide_fir)(const float* row, const WideFir& table, uint8_t* out);

    void (*affine_span[4])(const AffineSpan& span, uint8_t* out, int n); ///< by channels - 1

    /// Fills `size` bytes, 48 or more, with a pattern of 60 that repeats every 12.
    void (*repeat12)(uint8_t* to, size_t size, const uint8_t* pattern);

    // ---- elements of tensors
    /// Pixels of three bytes into three rows of one; any count.
    void (*split3)(const uint8_t* pixels, uint8_t* const rows[3], int n);
    /// (value - mean) * scale of bytes, each operation rounded; any count, elements may be anywhere.
    void (*to_float)(const uint8_t* bytes, float* out, int n, float mean, float scale);

    // ---- orientation
    void (*mirror[4])(const uint8_t* row, uint8_t* out, int cols); ///< by bytes per column - 1
    /// Transposes 16 rows of `cols` columns into `cols` rows of 16; by bytes per column - 1.
    void (*transpose16[4])(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int cols);
};

/// The fastest build that this machine runs, or the one that the setting TAVI_KERNELS names. Chosen at the first
/// call.
const Kernels& kernels();

/// The plain build.
const Kernels& plain_kernels();

/// The builds that this machine runs: plain first, the fastest last.
struct Builds {
    const Kernels* list[2];
    int count;

    const Kernels* const* begin() const { return list; }
    const Kernels* const* end() const { return list + count; }
};
Builds builds();

} // namespace tavi
