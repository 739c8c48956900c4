// SPDX-License-Identifier: MIT
#include "pixels/plane_scaler.h"

#include <algorithm>
#include <cstring>

namespace tavi {

int fir_taps(int span, int channels) {
    if (span <= 2)
        return 2;
    const int step = channels == 1 && span > 4 ? 8 : channels <= 2 ? 4 : 2;
    return (span + step - 1) / step * step;
}

namespace {

constexpr int kMaxFirTaps = 16; // beyond, Q14 weights get too coarse and sums of spans are faster
constexpr int kWholeWeight = 1 << kTapBits;
constexpr int kMostBlend = (1 << kBlendBits) - 1; // a weight that is not whole

uint16_t* deep_row(uint8_t* out) { return reinterpret_cast<uint16_t*>(out); }

/// Two taps of destination sample i, of which both are in the row.
struct TwoTaps {
    int first;
    int second_weight; // Q14
};

TwoTaps two_taps(const AxisMap& m, const Divider& unit, const Divider& length, int i) {
    TwoTaps taps;
    if (m.filter == Filter::nearest)
        return {nearest_tap(m, unit, i), 0};
    if (m.filter == Filter::bilinear) {
        const Tap t = bilinear_tap(m, unit, i);
        taps = {t.index, unit.share(t.part, kTapBits)};
    } else { // an average of two
        const Span s = box_span(m, unit, i);
        taps = {s.first, length.share(s.last_cover, kTapBits)};
    }
    if (taps.first == m.src_count - 1 && taps.first > 0)
        return {taps.first - 1, kWholeWeight};
    return taps;
}

/// Whether no sample of the result is made from more than two of the source.
bool takes_two(const AxisMap& m) { return m.filter == Filter::bilinear || longest_span(m, Divider(2 * m.den)) <= 2; }

bool build_fir(Scratch& scratch, const ScaleJob& job, FirTable& fir) {
    const AxisMap& x = job.x;
    const Divider unit(2 * x.den), length(2 * x.num);
    const int taps = x.filter == Filter::bilinear ? 2 : fir_taps(longest_span(x, unit), job.channels);
    int32_t* start = scratch.take<int32_t>(x.dst_count);
    int16_t* weight = scratch.take<int16_t>(static_cast<size_t>(x.dst_count) * taps);
    if (!start || !weight)
        return false;
    fir = {start, weight, taps, x.dst_count, job.source_elements()};
    for (int i = 0; i < x.dst_count; ++i, weight += taps) {
        if (x.filter == Filter::bilinear) {
            const TwoTaps t = two_taps(x, unit, length, i);
            start[i] = t.first * job.channels;
            weight[0] = static_cast<int16_t>(kWholeWeight - t.second_weight);
            weight[1] = static_cast<int16_t>(t.second_weight);
        } else {
            // Differences of rounded running sums: the weights add up to one whatever the span.
            const Span s = box_span(x, unit, i);
            int covered = 0, before = 0;
            start[i] = s.first * job.channels;
            for (int k = 0; k < taps; ++k) {
                covered += s.cover(s.first + k, 2 * x.den);
                const int now = covered == 2 * x.num ? kWholeWeight : length.share(covered, kTapBits);
                weight[k] = static_cast<int16_t>(now - before);
                before = now;
            }
        }
    }
    return true;
}

bool build_spans(Scratch& scratch, const ScaleJob& job, SpanTable& spans) {
    const AxisMap& x = job.x;
    int32_t* start = scratch.take<int32_t>(x.dst_count);
    int32_t* inner = scratch.take<int32_t>(x.dst_count);
    uint16_t* weight = scratch.take<uint16_t>(2 * static_cast<size_t>(x.dst_count));
    if (!start || !inner || !weight)
        return false;
    const Divider unit(2 * x.den);
    for (int i = 0; i < x.dst_count; ++i) {
        const Span s = box_span(x, unit, i);
        start[i] = s.first * job.channels;
        inner[i] = s.last - s.first - 1;
        weight[2 * i] = static_cast<uint16_t>(unit.share(s.first_cover, kSpanBits));
        weight[2 * i + 1] = static_cast<uint16_t>(unit.share(s.last_cover, kSpanBits));
    }
    spans = {start, inner, weight, static_cast<double>(x.den) / (double{1 << (kRowBits + kSpanBits)} * x.num),
             x.dst_count};
    return true;
}

template <int N>
void gather_columns(const uint8_t* row, const int32_t* start, uint8_t* out, int cols) {
    for (int i = 0; i < cols; ++i)
        std::memcpy(out + i * N, row + start[i], N);
}

} // namespace

// ----------------------------------------------------------------------------------------------------- the job

ScaleJob::Rows ScaleJob::rows_for(int row) const {
    switch (y.filter) {
    case Filter::nearest: {
        const int at = nearest_tap(y, y_unit, row);
        return {at, at, 0};
    }
    case Filter::bilinear: {
        const Tap t = bilinear_tap(y, y_unit, row);
        const int weight = std::min(kMostBlend, y_unit.share(t.part, kBlendBits));
        return {t.index, weight ? t.index + 1 : t.index, weight};
    }
    default: { // the weight is that of an average of two
        const Span s = box_span(y, y_unit, row);
        return {s.first, s.last, std::min(kMostBlend, y_length.share(s.last_cover, kBlendBits))};
    }
    }
}

BoxRows ScaleJob::box_for(int row, const SourceRows& src) const {
    const Span s = box_span(y, y_unit, row);
    const int whole = 2 * y.den;
    BoxRows b = {};
    b.pitch = src.plane.pitch;
    const auto weight = [&](int cover) {
        return static_cast<int16_t>(std::min(kMostBlend, y_length.share(cover, kBlendBits)));
    };
    int first = s.first, end = s.last + 1;
    if (s.first == s.last || s.first_cover != whole) {
        b.top = src.row(first++);
        b.top_weight = weight(s.first_cover);
    }
    if (first < end && s.last_cover != whole) {
        b.bottom = src.row(--end);
        b.bottom_weight = weight(s.last_cover);
    }
    b.count = end - first;
    if (b.count > 0) {
        b.inner = src.row(first);
        while (b.inner_shift < 7 && (b.count * 255) << (b.inner_shift + 1) <= 32767)
            ++b.inner_shift;
        b.inner_weight =
            static_cast<int16_t>(std::min(kMostBlend, y_length.share(whole, kRowBits + kBlendBits - b.inner_shift)));
        b.inner_weight_big = double{1 << kRowBits} * y.den / y.num;
    }
    return b;
}

WideRows ScaleJob::wide_rows_for(int row, const SourceRows& src) const {
    if (y.filter == Filter::bilinear) {
        const Tap t = bilinear_tap(y, y_unit, row);
        const float second = static_cast<float>(t.part) / static_cast<float>(2 * y.den);
        return {src.row(t.index), src.plane.pitch, t.part ? 2 : 1, 1.0f - second, 0, second};
    }
    const Span s = box_span(y, y_unit, row);
    const auto weight = [&](int cover) { return static_cast<float>(cover) / static_cast<float>(2 * y.num); };
    return {src.row(s.first),      src.plane.pitch,   s.last - s.first + 1,
            weight(s.first_cover), weight(2 * y.den), weight(s.last_cover)};
}

// ----------------------------------------------------------------------------------------------------- the ways

void CopyRows::row(const ScaleJob& job, const SourceRows& src, int y, uint8_t* out) {
    if (job.deep)
        job.kernels->widen(src.row(y), deep_row(out), job.result_elements());
    else
        std::memcpy(out, src.row(y), static_cast<size_t>(job.x.dst_count) * job.step);
}

bool PickColumns::init(Scratch& scratch, const ScaleJob& job) {
    const AxisMap& x = job.x;
    if (job.deep && !(picked = scratch.take<uint8_t>(job.result_elements())))
        return false;
    if (takes_middles(x))
        return true;
    start = scratch.take<int32_t>(x.dst_count);
    if (!start)
        return false;
    const Divider unit(2 * x.den);
    for (int i = 0; i < x.dst_count; ++i)
        start[i] = nearest_tap(x, unit, i) * job.step;
    return true;
}

void PickColumns::row(const ScaleJob& job, const SourceRows& src, int y, uint8_t* out) {
    const uint8_t* const from = src.row(job.rows_for(y).first);
    uint8_t* const to = job.deep ? picked : out;
    const int cols = job.x.dst_count;
    if (!start)
        job.kernels->third[job.step - 1](from, to, cols);
    else if (job.step == 1)
        gather_columns<1>(from, start, to, cols);
    else if (job.step == 2)
        gather_columns<2>(from, start, to, cols);
    else if (job.step == 3)
        gather_columns<3>(from, start, to, cols);
    else
        gather_columns<4>(from, start, to, cols);
    if (job.deep)
        job.kernels->widen(picked, deep_row(out), job.result_elements());
}

void HalveBoth::row(const ScaleJob& job, const SourceRows& src, int y, uint8_t* out) {
    const ScaleJob::Rows r = job.rows_for(y);
    const uint8_t *const a = src.row(r.first), *const b = src.row(r.last);
    const int channels = job.channels, pairs = std::min(job.x.dst_count, job.x.src_count / 2);
    if (job.deep)
        job.kernels->halve_to_16[channels - 1](a, b, deep_row(out), pairs);
    else
        job.kernels->halve[channels - 1](a, b, out, pairs);
    // An odd number of samples, rounded up: the last stands alone.
    for (int i = pairs * channels; i < job.result_elements(); ++i) {
        const int sum = a[i + pairs * channels] + b[i + pairs * channels];
        if (job.deep)
            deep_row(out)[i] = static_cast<uint16_t>(sum << (kRowBits - 1));
        else
            out[i] = static_cast<uint8_t>((sum + 1) >> 1);
    }
}

bool TwoTapsAtOnce::init(Scratch& scratch, const ScaleJob& job) { return build_fir(scratch, job, fir); }

void TwoTapsAtOnce::row(const ScaleJob& job, const SourceRows& src, int y, uint8_t* out) {
    const ScaleJob::Rows r = job.rows_for(y);
    const uint8_t *const a = src.row(r.first), *const b = src.row(r.last);
    if (job.deep)
        job.kernels->bilinear_at_16[job.channels - 1](a, b, r.weight, fir, deep_row(out));
    else
        job.kernels->bilinear_at[job.channels - 1](a, b, r.weight, fir, out);
}

bool DownOnly::init(Scratch& scratch, const ScaleJob& job) {
    of_two = takes_two(job.y);
    return of_two || (reduced = scratch.take<uint16_t>(job.source_elements()));
}

void DownOnly::row(const ScaleJob& job, const SourceRows& src, int y, uint8_t* out) {
    const Kernels& k = *job.kernels;
    const int n = job.result_elements();
    if (of_two) {
        const ScaleJob::Rows r = job.rows_for(y);
        if (job.deep)
            k.blend8(src.row(r.first), src.row(r.last), r.weight, deep_row(out), n);
        else
            k.blend8_to_8(src.row(r.first), src.row(r.last), r.weight, out, n);
    } else if (job.deep) {
        k.box_rows(job.box_for(y, src), deep_row(out), n);
    } else {
        k.box_rows(job.box_for(y, src), reduced, n);
        k.narrow(reduced, out, n);
    }
}

bool DownThenAcross::init(Scratch& scratch, const ScaleJob& job) {
    const size_t elements = static_cast<size_t>(job.source_elements()), beyond = kMaxFirTaps * job.channels;
    reduced = scratch.take<uint16_t>(elements + beyond);
    if (!reduced)
        return false;
    std::memset(reduced + elements, 0, beyond * sizeof *reduced);
    const bool long_spans = job.x.filter == Filter::box && longest_span(job.x, Divider(2 * job.x.den)) > kMaxFirTaps;
    return long_spans ? build_spans(scratch, job, spans) : build_fir(scratch, job, fir);
}

void DownThenAcross::row(const ScaleJob& job, const SourceRows& src, int y, uint8_t* out) {
    const Kernels& k = *job.kernels;
    const int n = job.source_elements(), channels = job.channels - 1;
    if (job.y.filter == Filter::box) {
        k.box_rows(job.box_for(y, src), reduced, n);
    } else {
        const ScaleJob::Rows r = job.rows_for(y);
        if (r.weight == 0)
            k.widen(src.row(r.first), reduced, n);
        else
            k.blend8(src.row(r.first), src.row(r.last), r.weight, reduced, n);
    }
    if (job.deep && spans.start)
        k.spans_to_16[channels](reduced, spans, deep_row(out));
    else if (job.deep)
        k.fir_to_16[channels](reduced, fir, deep_row(out));
    else if (spans.start)
        k.spans_to_8[channels](reduced, spans, out);
    else
        k.fir_to_8[channels](reduced, fir, out);
}

bool AcrossThenDown::init(Scratch& scratch, const ScaleJob& job) {
    const AxisMap& x = job.x;
    const int elements = job.result_elements(), padded = (elements + 15) & ~15;
    for (uint16_t*& row : rows)
        if (!(row = scratch.take<uint16_t>(padded)))
            return false;
    int32_t* start = scratch.take<int32_t>(padded / 8);
    uint8_t* index = scratch.take<uint8_t>(padded);
    int16_t* weight = scratch.take<int16_t>(padded);
    int32_t* left = scratch.take<int32_t>(padded); // first byte of each element's left sample
    if (!start || !index || !weight || !left)
        return false;
    const int row_bytes = job.source_elements();
    table = {start, index, weight, x.src_count > 1 ? job.channels : 0, padded / 8, row_bytes >= 16};
    const Divider unit(2 * x.den), length(2 * x.num);
    bool picks = true;
    for (int i = 0, at = 0; i < x.dst_count; ++i) {
        const TwoTaps t = two_taps(x, unit, length, i);
        picks = picks && t.second_weight == 0;
        for (int c = 0; c < job.channels; ++c, ++at) {
            left[at] = t.first * job.channels + c;
            weight[at] = static_cast<int16_t>(t.second_weight);
        }
    }
    if (picks)
        table.weight = nullptr;
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

const uint16_t* AcrossThenDown::expanded(const ScaleJob& job, const SourceRows& src, int y) {
    const int slot = y & 1;
    if (number[slot] != y) {
        number[slot] = y;
        job.kernels->expand(src.row(y), table, rows[slot]);
    }
    return rows[slot];
}

void AcrossThenDown::row(const ScaleJob& job, const SourceRows& src, int y, uint8_t* out) {
    const Kernels& k = *job.kernels;
    const int n = job.result_elements();
    const ScaleJob::Rows r = job.rows_for(y);
    const uint16_t* const top = expanded(job, src, r.first);
    if (r.weight == 0 && job.deep)
        std::memcpy(out, top, sizeof *top * n);
    else if (r.weight == 0)
        k.narrow(top, out, n);
    else if (job.deep)
        k.blend16(top, expanded(job, src, r.last), r.weight, deep_row(out), n);
    else
        k.blend16_to_8(top, expanded(job, src, r.last), r.weight, out, n);
}

bool Samples16::init(Scratch& scratch, const ScaleJob& job) {
    const AxisMap& x = job.x;
    const Divider unit(2 * x.den);
    const int taps = x.filter == Filter::bilinear ? 2 : longest_span(x, unit);
    int32_t* start = scratch.take<int32_t>(x.dst_count);
    float* weight = scratch.take<float>(static_cast<size_t>(x.dst_count) * taps);
    reduced = scratch.take<float>(static_cast<size_t>(x.src_count) + taps);
    if (!start || !weight || !reduced)
        return false;
    std::fill_n(reduced + x.src_count, taps, 0.0f);
    fir = {start, weight, taps, x.dst_count};
    const float part_of_unit = 1.0f / static_cast<float>(2 * x.den);
    const float part_of_length = 1.0f / static_cast<float>(2 * x.num);
    for (int i = 0; i < x.dst_count; ++i, ++weight) {
        if (x.filter == Filter::bilinear) {
            const Tap t = bilinear_tap(x, unit, i);
            start[i] = t.index;
            weight[x.dst_count] = static_cast<float>(t.part) * part_of_unit;
            weight[0] = 1.0f - weight[x.dst_count];
        } else {
            const Span s = box_span(x, unit, i);
            start[i] = s.first;
            for (int k = 0; k < taps; ++k)
                weight[static_cast<ptrdiff_t>(k) * x.dst_count] =
                    static_cast<float>(s.cover(s.first + k, 2 * x.den)) * part_of_length;
        }
    }
    return true;
}

void Samples16::row(const ScaleJob& job, const SourceRows& src, int y, uint8_t* out) {
    job.kernels->wide_rows(job.wide_rows_for(y, src), reduced, job.x.src_count);
    job.kernels->wide_fir(reduced, fir, out);
}

// ----------------------------------------------------------------------------------------------------- the choice

bool PlaneScaler::init(Scratch& scratch, int channels, bool wide, bool deep, const AxisMap& x, const AxisMap& y) {
    job_ = {&kernels(),
            x,
            y,
            Divider(2 * y.den),
            Divider(2 * y.num),
            is_windowed(y.filter) ? Window(y) : Window(),
            channels,
            wide ? 2 : channels,
            deep};
    if (x.identity() && y.identity()) {
        way_ = CopyRows();
        return true;
    }
#if TAVI_WITH_FRAMES
    if (is_windowed(x.filter))
        return wide ? way_.emplace<Windowed16>().init(scratch, job_) : way_.emplace<Windowed>().init(scratch, job_);
#endif
    picks_ = x.filter == Filter::nearest || (picks_samples(x) && picks_samples(y));
    if (picks_ && deep && x.num < 2 * x.den) // by table lookups that write 16 bits
        return way_.emplace<AcrossThenDown>().init(scratch, job_);
    if (picks_)
        return way_.emplace<PickColumns>().init(scratch, job_);
    if (wide)
        return way_.emplace<Samples16>().init(scratch, job_);
    if (halves(x) && halves(y)) {
        way_ = HalveBoth();
        return true;
    }
    const bool both_bilinear = x.filter == Filter::bilinear && y.filter == Filter::bilinear;
    const bool both_of_two = takes_two(x) && takes_two(y);
    // Eight elements must find their samples within 16 bytes.
    const bool enlarges = x.num <= x.den && y.num < y.den, hardly_reduces = x.num < 2 * x.den && y.num < 2 * y.den;
    if (both_of_two && !x.identity() && (enlarges || (channels <= 2 && hardly_reduces)))
        return way_.emplace<AcrossThenDown>().init(scratch, job_);
    if (x.identity())
        return way_.emplace<DownOnly>().init(scratch, job_);
    if (both_bilinear && x.num >= 2 * x.den && x.src_count >= 2)
        return way_.emplace<TwoTapsAtOnce>().init(scratch, job_);
    return way_.emplace<DownThenAcross>().init(scratch, job_);
}

RowRange PlaneScaler::source_rows(int y0, int y1) const {
    if (std::holds_alternative<CopyRows>(way_))
        return {y0, y1};
    if (is_windowed(job_.y.filter)) {
        const Window::Samples first = job_.y_window.samples(y0), last = job_.y_window.samples(y1 - 1);
        return {first.first, last.first + last.count};
    }
    return {job_.rows_for(y0).first, job_.rows_for(y1 - 1).last + 1};
}

void PlaneScaler::run(const PlaneView& src, int src_first, int y0, const PlaneView& dst) {
    const SourceRows rows{src, src_first};
    std::visit(
        [&](auto& way) {
            for (int y = 0; y < dst.rows; ++y)
                way.row(job_, rows, y0 + y, dst.row(y));
        },
        way_);
}

} // namespace tavi
