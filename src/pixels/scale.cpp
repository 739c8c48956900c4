// SPDX-License-Identifier: MIT
#include "pixels/scale.h"

#include <algorithm>
#include <cstring>

namespace tavi {
namespace {

constexpr int kMaxFirTaps = 16; // beyond, Q14 weights get too coarse and sums of spans are faster

// Positions in units of 1 / (2 * den) fit in 31 bits.
static_assert(kMaxSide <= 16384);

// Two samples and the share of the second.
struct Tap {
    int index;
    int part; // of 2 * den
};

Tap bilinear_tap(const AxisMap& m, const Divider& unit, int i) {
    const int at = (2 * i + 1) * m.num + (m.offset - 1) * m.den;
    if (at < 0)
        return {0, 0};
    const auto [index, part] = unit(at);
    if (index >= m.src_count - 1)
        return {m.src_count - 1, 0};
    return {index, part};
}

int nearest_tap(const AxisMap& m, const Divider& unit, int i) {
    return std::min(unit((2 * i + 1) * m.num + m.offset * m.den).quotient, m.src_count - 1);
}

// The samples under an interval; coverage in units of 1 / (2 * den), summing to 2 * num.
struct Span {
    int first;
    int last;
    int first_cover;
    int last_cover; // 0 when first == last
};

Span box_span(const AxisMap& m, const Divider& unit, int i) {
    const int whole = 2 * m.den, length = 2 * m.num;
    const int begin = 2 * i * m.num + m.offset * m.den, end = begin + length;
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

void copy_rows(const PlaneView& src, int src_first, int y0, const PlaneView& dst) {
    for (int y = 0; y < dst.rows; ++y)
        std::memcpy(dst.row(y), src.row(y0 + y - src_first), static_cast<size_t>(dst.cols) * dst.step);
}

// As many taps as the kernels take at a time; those that are too many weigh nothing.
int fir_taps(int span, int channels) {
    const int step = channels == 1 && span > 4 ? 8 : channels <= 2 ? 4 : 2;
    return (span + step - 1) / step * step;
}

// Two taps whose centres all fall on samples: odd whole steps. Nearest gives the same then.
bool picks_samples(const AxisMap& m) {
    return m.filter == Filter::bilinear && m.offset == 0 && m.num % m.den == 0 && m.num / m.den % 2 == 1;
}

// Two samples to one, both with the same weight, whatever the filter.
bool halves(const AxisMap& m) { return m.filter != Filter::nearest && m.offset == 0 && m.num == 2 * m.den; }

template <int N>
void gather_columns(const uint8_t* row, const int32_t* start, uint8_t* out, int cols) {
    for (int i = 0; i < cols; ++i)
        std::memcpy(out + i * N, row + start[i], N);
}

} // namespace

Filter axis_filter(int method, int src_extent, int dst_extent) {
    switch (method) {
    case TAVI_IMAGE_RESIZE_NEAREST:
        return Filter::nearest;
    case TAVI_IMAGE_RESIZE_BILINEAR:
        return Filter::bilinear;
    case TAVI_IMAGE_RESIZE_BOX:
        return Filter::box;
    default:
        return 2 * dst_extent < src_extent ? Filter::box : Filter::bilinear;
    }
}

bool PlaneScaler::init(Scratch& scratch, int channels, bool wide, const AxisMap& x, const AxisMap& y) {
    kernels_ = &kernels();
    x_ = x;
    y_ = y;
    y_unit_ = Divider(2 * y.den);
    y_length_ = Divider(2 * y.num);
    channels_ = channels;
    wide_ = wide;
    step_ = wide ? 2 : channels;
    expanded_y_[0] = expanded_y_[1] = -1;
    if (x.identity() && y.identity()) {
        way_ = Way::copy;
        return true;
    }
    if (x.filter == Filter::nearest || (picks_samples(x) && picks_samples(y))) {
        way_ = Way::nearest;
        return build_nearest(scratch);
    }
    if (wide)
        return build_wide(scratch);
    if (halves(x) && halves(y)) {
        way_ = Way::halve;
        return true;
    }
    const bool both_bilinear = x.filter == Filter::bilinear && y.filter == Filter::bilinear;
    // Eight elements must find their samples within 16 bytes.
    const bool enlarges = x.num <= x.den && y.num < y.den, hardly_reduces = x.num < 2 * x.den && y.num < 2 * y.den;
    if (both_bilinear && !x.identity() && (enlarges || (channels <= 2 && hardly_reduces))) {
        way_ = Way::horizontal_first;
        return build_expand(scratch);
    }

    const size_t row_elements = (static_cast<size_t>(x.src_count) + kMaxFirTaps) * channels;
    row_ = scratch.take<uint16_t>(row_elements);
    if (!row_)
        return false;
    std::memset(row_ + static_cast<size_t>(x.src_count) * channels, 0, kMaxFirTaps * channels * sizeof *row_);
    if (x.identity()) {
        way_ = Way::vertical_only;
        return true;
    }
    if (both_bilinear && x.num >= 2 * x.den && x.src_count >= 2) {
        way_ = Way::at_once;
    } else {
        way_ = Way::vertical_first;
    }
    use_spans_ = x.filter == Filter::box && longest_span(x, Divider(2 * x.den)) > kMaxFirTaps;
    return use_spans_ ? build_spans(scratch) : build_fir(scratch);
}

bool PlaneScaler::build_nearest(Scratch& scratch) {
    if (x_.num == 3 * x_.den && x_.offset == 0) {
        way_ = Way::third;
        return true;
    }
    start_ = scratch.take<int32_t>(x_.dst_count);
    if (!start_)
        return false;
    const Divider unit(2 * x_.den);
    for (int i = 0; i < x_.dst_count; ++i)
        start_[i] = nearest_tap(x_, unit, i) * step_;
    return true;
}

bool PlaneScaler::build_fir(Scratch& scratch) {
    const Divider unit(2 * x_.den), length(2 * x_.num);
    const int taps = x_.filter == Filter::bilinear ? 2 : fir_taps(longest_span(x_, unit), channels_);
    int32_t* start = scratch.take<int32_t>(x_.dst_count);
    int16_t* weight = scratch.take<int16_t>(static_cast<size_t>(x_.dst_count) * taps);
    if (!start || !weight)
        return false;
    fir_ = {start, weight, taps, x_.dst_count, x_.src_count * channels_};
    for (int i = 0; i < x_.dst_count; ++i, weight += taps) {
        if (x_.filter == Filter::bilinear) {
            Tap t = bilinear_tap(x_, unit, i);
            int second = unit.share(t.part, 14);
            if (t.index == x_.src_count - 1 && t.index > 0) { // never read behind the row
                --t.index;
                second = 16384;
            }
            start[i] = t.index * channels_;
            weight[0] = static_cast<int16_t>(16384 - second);
            weight[1] = static_cast<int16_t>(second);
        } else {
            // Differences of rounded running sums: the weights add up to 16384 whatever the span.
            const Span s = box_span(x_, unit, i);
            int covered = 0;
            int before = 0;
            start[i] = s.first * channels_;
            for (int k = 0; k < taps; ++k) {
                const int at = s.first + k;
                covered += at > s.last ? 0 : at == s.first ? s.first_cover : at == s.last ? s.last_cover : 2 * x_.den;
                const int now = length.share(covered, 14);
                weight[k] = static_cast<int16_t>(now - before);
                before = now;
            }
        }
    }
    return true;
}

bool PlaneScaler::build_expand(Scratch& scratch) {
    const int elements = x_.dst_count * channels_, padded = (elements + 15) & ~15;
    for (uint16_t*& row : expanded_)
        if (!(row = scratch.take<uint16_t>(padded)))
            return false;
    int32_t* start = scratch.take<int32_t>(padded / 8);
    uint8_t* index = scratch.take<uint8_t>(padded);
    int16_t* weight = scratch.take<int16_t>(padded);
    int32_t* left = scratch.take<int32_t>(padded); // first byte of each element's left sample
    if (!start || !index || !weight || !left)
        return false;
    const int row_bytes = x_.src_count * channels_;
    expand_ = {start, index, weight, x_.src_count > 1 ? channels_ : 0, padded / 8, row_bytes >= 16};
    const Divider unit(2 * x_.den);
    for (int i = 0, at = 0; i < x_.dst_count; ++i) {
        Tap t = bilinear_tap(x_, unit, i);
        int second = unit.share(t.part, 14);
        if (t.index == x_.src_count - 1 && t.index > 0) { // never read behind the row
            --t.index;
            second = 16384;
        }
        for (int c = 0; c < channels_; ++c, ++at) {
            left[at] = t.index * channels_ + c;
            weight[at] = static_cast<int16_t>(second);
        }
    }
    for (int i = elements; i < padded; ++i)
        left[i] = left[elements - 1], weight[i] = 0;
    for (int i = 0; i < padded; i += 8) {
        const int least = *std::min_element(left + i, left + i + 8);
        start[i / 8] = std::max(0, std::min(least, row_bytes - 16));
        for (int k = i; k < i + 8; ++k)
            index[k] = static_cast<uint8_t>(left[k] - start[i / 8]);
    }
    return true;
}

bool PlaneScaler::build_spans(Scratch& scratch) {
    int32_t* start = scratch.take<int32_t>(x_.dst_count);
    int32_t* inner = scratch.take<int32_t>(x_.dst_count);
    uint16_t* weight = scratch.take<uint16_t>(2 * static_cast<size_t>(x_.dst_count));
    if (!start || !inner || !weight)
        return false;
    const Divider unit(2 * x_.den);
    for (int i = 0; i < x_.dst_count; ++i) {
        const Span s = box_span(x_, unit, i);
        start[i] = s.first * channels_;
        inner[i] = s.last - s.first - 1;
        weight[2 * i] = static_cast<uint16_t>(unit.share(s.first_cover, 12));
        weight[2 * i + 1] = static_cast<uint16_t>(unit.share(s.last_cover, 12));
    }
    spans_ = {start, inner, weight, static_cast<double>(x_.den) / (64.0 * 4096.0 * x_.num), x_.dst_count};
    return true;
}

// 16-bit samples are scaled in single precision: 24 bits hold a sample and eight fractional bits.
bool PlaneScaler::build_wide(Scratch& scratch) {
    way_ = Way::vertical_first;
    const Divider unit(2 * x_.den);
    const int taps = x_.filter == Filter::bilinear ? 2 : longest_span(x_, unit);
    int32_t* start = scratch.take<int32_t>(x_.dst_count);
    float* weight = scratch.take<float>(static_cast<size_t>(x_.dst_count) * taps);
    wide_row_ = scratch.take<float>(static_cast<size_t>(x_.src_count) + taps);
    if (!start || !weight || !wide_row_)
        return false;
    std::fill_n(wide_row_ + x_.src_count, taps, 0.0f);
    wide_fir_ = {start, weight, taps, x_.dst_count};
    const float part_of_unit = 1.0f / static_cast<float>(2 * x_.den);
    const float part_of_length = 1.0f / static_cast<float>(2 * x_.num);
    for (int i = 0; i < x_.dst_count; ++i, ++weight) {
        if (x_.filter == Filter::bilinear) {
            const Tap t = bilinear_tap(x_, unit, i);
            start[i] = t.index;
            weight[x_.dst_count] = static_cast<float>(t.part) * part_of_unit;
            weight[0] = 1.0f - weight[x_.dst_count];
        } else {
            const Span s = box_span(x_, unit, i);
            start[i] = s.first;
            for (int k = 0; k < taps; ++k) {
                const int at = s.first + k;
                const int cover = at > s.last     ? 0
                                  : at == s.first ? s.first_cover
                                  : at == s.last  ? s.last_cover
                                                  : 2 * x_.den;
                weight[static_cast<ptrdiff_t>(k) * x_.dst_count] = static_cast<float>(cover) * part_of_length;
            }
        }
    }
    return true;
}

PlaneScaler::Rows PlaneScaler::rows_for(int y) const {
    switch (y_.filter) {
    case Filter::nearest: {
        const int row = nearest_tap(y_, y_unit_, y);
        return {row, row, 0};
    }
    case Filter::bilinear: {
        const Tap t = bilinear_tap(y_, y_unit_, y);
        const int weight = y_unit_.share(t.part, 15);
        return {t.index, weight ? t.index + 1 : t.index, weight};
    }
    default: {
        const Span s = box_span(y_, y_unit_, y);
        return {s.first, s.last, 0};
    }
    }
}

BoxRows PlaneScaler::box_for(int y, const PlaneView& src, int src_first) const {
    const Span s = box_span(y_, y_unit_, y);
    const int whole = 2 * y_.den;
    BoxRows b = {};
    b.pitch = src.pitch;
    const auto weight = [&](int cover) { return static_cast<int16_t>(std::min(32767, y_length_.share(cover, 15))); };
    int first = s.first, end = s.last + 1;
    if (s.first == s.last || s.first_cover != whole) {
        b.top = src.row(first++ - src_first);
        b.top_weight = weight(s.first_cover);
    }
    if (first < end && s.last_cover != whole) {
        b.bottom = src.row(--end - src_first);
        b.bottom_weight = weight(s.last_cover);
    }
    b.count = end - first;
    if (b.count > 0) {
        b.inner = src.row(first - src_first);
        while (b.inner_shift < 7 && (b.count * 255) << (b.inner_shift + 1) <= 32767)
            ++b.inner_shift;
        b.inner_weight = static_cast<int16_t>(std::min(32767, y_length_.share(whole, 21 - b.inner_shift)));
        b.inner_weight_big = 64.0 * y_.den / y_.num;
    }
    return b;
}

WideRows PlaneScaler::wide_rows_for(int y, const PlaneView& src, int src_first) const {
    if (y_.filter == Filter::bilinear) {
        const Tap t = bilinear_tap(y_, y_unit_, y);
        const float second = static_cast<float>(t.part) / static_cast<float>(2 * y_.den);
        return {src.row(t.index - src_first), src.pitch, t.part ? 2 : 1, 1.0f - second, 0, second};
    }
    const Span s = box_span(y_, y_unit_, y);
    const auto weight = [&](int cover) { return static_cast<float>(cover) / static_cast<float>(2 * y_.num); };
    return {src.row(s.first - src_first), src.pitch,          s.last - s.first + 1,
            weight(s.first_cover),        weight(2 * y_.den), weight(s.last_cover)};
}

RowRange PlaneScaler::source_rows(int y0, int y1) const {
    if (way_ == Way::copy)
        return {y0, y1};
    return {rows_for(y0).first, rows_for(y1 - 1).last + 1};
}

void PlaneScaler::run(const PlaneView& src, int src_first, int y0, const PlaneView& dst) {
    if (way_ == Way::copy)
        return copy_rows(src, src_first, y0, dst);
    for (int y = 0; y < dst.rows; ++y) {
        if (wide_ && way_ == Way::vertical_first) {
            kernels_->wide_rows(wide_rows_for(y0 + y, src, src_first), wide_row_, x_.src_count);
            kernels_->wide_fir(wide_row_, wide_fir_, dst.row(y));
        } else {
            run_row(src, src_first, y0 + y, dst.row(y));
        }
    }
}

void PlaneScaler::horizontal(const uint16_t* row, uint8_t* out) const {
    if (use_spans_)
        kernels_->spans_to_8[channels_ - 1](row, spans_, out);
    else
        kernels_->fir_to_8[channels_ - 1](row, fir_, out);
}

const uint16_t* PlaneScaler::expanded_row(const PlaneView& src, int src_first, int y) {
    const int slot = y & 1;
    if (expanded_y_[slot] != y) {
        expanded_y_[slot] = y;
        kernels_->expand(src.row(y - src_first), expand_, expanded_[slot]);
    }
    return expanded_[slot];
}

void PlaneScaler::run_row(const PlaneView& src, int src_first, int y, uint8_t* out) {
    const Kernels& k = *kernels_;
    const int n = x_.src_count * channels_;
    const Rows r = rows_for(y);
    const uint8_t* a = src.row(r.first - src_first);
    const uint8_t* b = src.row(r.last - src_first);
    switch (way_) {
    case Way::copy:
        return;
    case Way::nearest:
        switch (step_) {
        case 1:
            return gather_columns<1>(a, start_, out, x_.dst_count);
        case 2:
            return gather_columns<2>(a, start_, out, x_.dst_count);
        case 3:
            return gather_columns<3>(a, start_, out, x_.dst_count);
        default:
            return gather_columns<4>(a, start_, out, x_.dst_count);
        }
    case Way::vertical_only:
        if (y_.filter == Filter::bilinear)
            return k.blend8_to_8(a, b, r.weight, out, x_.dst_count * channels_);
        k.box_rows(box_for(y, src, src_first), row_, n);
        return k.narrow(row_, out, x_.dst_count * channels_);
    case Way::third:
        return k.third[step_ - 1](a, out, x_.dst_count);
    case Way::halve:
        return k.halve[channels_ - 1](a, b, out, x_.dst_count);
    case Way::at_once:
        return k.bilinear_at[channels_ - 1](a, b, r.weight, fir_, out);
    case Way::vertical_first:
        if (y_.filter == Filter::box)
            k.box_rows(box_for(y, src, src_first), row_, n);
        else if (r.weight == 0)
            k.widen(a, row_, n);
        else
            k.blend8(a, b, r.weight, row_, n);
        return horizontal(row_, out);
    case Way::horizontal_first: {
        const uint16_t* top = expanded_row(src, src_first, r.first);
        if (r.weight == 0)
            return k.narrow(top, out, x_.dst_count * channels_);
        return k.blend16_to_8(top, expanded_row(src, src_first, r.last), r.weight, out, x_.dst_count * channels_);
    }
    }
}

// Pixels as two channels, of which one is luma; pairs of them as four, of which two are chroma.
static constexpr PlaneRule kPackedGrids[2] = {{0, 0, 2}, {1, 0, 4}};

bool ImageScaler::init(Scratch& scratch, const Format& format, int src_width, int src_height, const Box& box,
                       int dst_width, int dst_height, int method) {
    format_ = &format;
    src_height_ = src_height;
    grids_ = format.plane;
    planes_count_ = format.planes;
    if (format.packed()) {
        grids_ = kPackedGrids;
        planes_count_ = 2;
        packed_chroma_ = scratch.take<uint8_t>(2 * static_cast<size_t>(dst_width));
        if (!packed_chroma_)
            return false;
        std::memset(packed_chroma_ + 2 * static_cast<size_t>(dst_width - 1), 128, 2); // the last of an odd width
    }

    for (int i = 0; i < planes_count_; ++i) {
        const PlaneRule& grid = grids_[i];
        const auto axis = [&](int shift, int extent, int first, int count, int dst_extent, int& origin) {
            AxisMap m;
            const int last = (extent >> shift) - 1; // an odd end shares the sample before it
            const int begin = std::min(first >> shift, last), end = std::min((first + count - 1) >> shift, last);
            origin = begin;
            m.src_count = end - begin + 1;
            m.dst_count = dst_extent >> shift;
            m.num = count;
            m.den = dst_extent;
            m.offset = shift ? first - 2 * begin : 0;
            m.filter = axis_filter(method, count, dst_extent);
            return m;
        };
        const AxisMap x = axis(grid.xshift, src_width, box.x, box.width, dst_width, origin_x_[i]);
        const AxisMap y = axis(grid.yshift, src_height, box.y, box.height, dst_height, origin_y_[i]);
        const bool wide = format.sample_bytes() == 2;
        if (!planes_[i].init(scratch, wide ? 1 : grid.step, wide, x, y))
            return false;
    }
    return true;
}

RowRange ImageScaler::source_rows(int y0, int y1) const {
    RowRange all{src_height_, 0};
    for (int i = 0; i < planes_count_; ++i) {
        const int shift = grids_[i].yshift;
        const int p0 = y0 >> shift, p1 = y1 >> shift;
        if (p0 >= p1)
            continue;
        const RowRange r = planes_[i].source_rows(p0, p1);
        const int origin = origin_y_[i];
        all.begin = std::min(all.begin, (r.begin + origin) << shift);
        all.end = std::max(all.end, std::min((r.end + origin) << shift, src_height_));
    }
    if (format_->yshift() == 1) {
        all.begin &= ~1;
        all.end = std::min((all.end + 1) & ~1, src_height_);
    }
    return all;
}

void ImageScaler::run_packed(const ImageView& src, int src_first, int y0, const ImageView& dst) {
    PlaneView pixels = src.plane[0], pairs = pixels, row = pixels;
    pixels.data += 2 * static_cast<ptrdiff_t>(origin_x_[0]);
    pairs.data += 4 * static_cast<ptrdiff_t>(origin_x_[1]);
    planes_[0].run(pixels, src_first - origin_y_[0], y0, dst.plane[0]);
    row.data = packed_chroma_;
    row.cols = dst.width / 2;
    row.rows = 1;
    row.step = 4;
    const uint64_t luma =
        format_ == find_format(TAVI_PIXEL_FORMAT_YUV422_YUYV) ? 0x00FF00FF00FF00FF : 0xFF00FF00FF00FF00;
    const uint8_t* chroma = packed_chroma_;
    const auto merge = [&](uint8_t* out, int at, size_t bytes) {
        uint64_t a = 0, b = 0;
        std::memcpy(&a, out + at, bytes);
        std::memcpy(&b, chroma + at, bytes);
        a = (a & luma) | (b & ~luma);
        std::memcpy(out + at, &a, bytes);
    };
    const int bytes = 2 * dst.width;
    for (int y = 0; y < dst.height; ++y) {
        planes_[1].run(pairs, src_first - origin_y_[1], y0 + y, row);
        uint8_t* out = dst.plane[0].row(y);
        int x = 0;
        for (; x + 8 <= bytes; x += 8)
            merge(out, x, 8);
        for (; x < bytes; x += 2)
            merge(out, x, 2);
    }
}

void ImageScaler::run(const ImageView& src, int src_first, int y0, const ImageView& dst) {
    if (is_packed())
        return run_packed(src, src_first, y0, dst);
    for (int i = 0; i < planes_count_; ++i) {
        const PlaneRule& grid = grids_[i];
        PlaneView p = src.plane[i];
        p.data += static_cast<ptrdiff_t>(origin_x_[i]) * p.step;
        planes_[i].run(p, (src_first >> grid.yshift) - origin_y_[i], y0 >> grid.yshift, dst.plane[i]);
    }
}

} // namespace tavi
