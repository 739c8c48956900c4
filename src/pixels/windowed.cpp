// SPDX-License-Identifier: MIT
// The ways of windowed filters.
#include <algorithm>

#include "pixels/plane_scaler.h"

namespace tavi {
namespace {

// A rounded weight is off by a third of 2^-14 on average: with 256 of them a sum is off by two thirds of a step of 8
// bits if all samples lie as badly as they can, and by a thirtieth if they lie anyhow. Across a bit goes from the
// row, which has six more than its samples need, to the weights with each doubling from 64 on; down there are sums in
// double precision.
constexpr int kTapsInQ14 = 64;
constexpr int kMostRows = 256;
constexpr size_t kMostKept = 4u << 20; // bytes of rows

/// Weights in fixed point: differences of rounded running sums, which add up to one exactly.
void round_weights(const double* exact, int count, int bits, int16_t* out) {
    constexpr int kAbove = 1 << 24; // sums may be below zero
    const double one = static_cast<double>(1 << bits);
    double sum = 0;
    int before = 0;
    for (int k = 0; k < count; ++k) {
        sum += exact[k];
        const int now = static_cast<int>(sum * one + (kAbove + 0.5)) - kAbove;
        out[k] = static_cast<int16_t>(now - before);
        before = now;
    }
}

} // namespace

bool Windowed::init(Scratch& scratch, const ScaleJob& job) {
    const Window x(job.x);
    const int cols = job.x.dst_count, channels = job.channels, rows_most = job.y_window.taps();
    const int taps = fir_taps(x.taps(), channels);
    const size_t elements = static_cast<size_t>(job.source_elements()), beyond = static_cast<size_t>(taps) * channels;
    const size_t row_bytes = sizeof(uint16_t) * job.result_elements();
    const bool keeps = rows_most <= kMostRows && rows_most * row_bytes <= kMostKept;
    slots = keeps ? rows_most : 1;
    exact = scratch.take<double>(std::max(x.taps(), rows_most));
    samples = scratch.take<uint16_t>(elements + beyond);
    kept = scratch.take<uint16_t>(static_cast<size_t>(slots) * job.result_elements());
    int32_t* start = scratch.take<int32_t>(cols);
    int16_t* weight = scratch.take<int16_t>(static_cast<size_t>(cols) * taps);
    rounded = scratch.take<int16_t>(slots + 1);
    rows = scratch.take<const uint16_t*>(slots);
    if (!keeps && !(sums = scratch.take<double>(job.result_elements())))
        return false;
    if (!exact || !samples || !kept || !start || !weight || !rounded || !rows)
        return false;
    std::fill_n(samples + elements, beyond, uint16_t{0});
    while (extra_bits < kRowBits && taps > kTapsInQ14 << extra_bits)
        ++extra_bits;
    fir = {start, weight, taps, cols, job.source_elements()};
    for (int i = 0; i < cols; ++i, weight += taps) {
        const Window::Samples s = x.samples(i);
        start[i] = s.first * channels;
        x.weigh(i, exact);
        round_weights(exact, s.count, kTapBits + extra_bits, weight);
        std::fill(weight + s.count, weight + taps, int16_t{0});
    }
    return true;
}

const uint16_t* Windowed::across(const ScaleJob& job, const SourceRows& src, int y) {
    const Kernels& k = *job.kernels;
    uint16_t* const out = kept + static_cast<ptrdiff_t>(y % slots) * job.result_elements();
    if (extra_bits) { // fewer of fraction
        BoxRows one = {};
        one.top = src.row(y);
        one.top_weight = static_cast<int16_t>((1 << kBlendBits) >> extra_bits);
        k.box_rows(one, samples, job.source_elements());
    } else {
        k.widen(src.row(y), samples, job.source_elements());
    }
    k.fir_to_16[job.channels - 1](samples, fir, out);
    return out;
}

void Windowed::row(const ScaleJob& job, const SourceRows& src, int y, uint8_t* out) {
    const Kernels& k = *job.kernels;
    const Window::Samples s = job.y_window.samples(y);
    job.y_window.weigh(y, exact);
    if (sums)
        return add_up(job, src, s, out);
    if (s.first < begin || s.first > end) // another band, maybe from the bottom up
        begin = end = s.first;
    for (; end < s.first + s.count; ++end)
        across(job, src, end);
    begin = std::max(begin, end - slots);
    for (int i = 0; i < s.count; ++i)
        rows[i] = kept + static_cast<ptrdiff_t>((s.first + i) % slots) * job.result_elements();
    round_weights(exact, s.count, kTapBits, rounded);
    rounded[s.count] = 0;
    if (job.deep)
        k.fir_rows_to_16({rows, rounded, s.count}, reinterpret_cast<uint16_t*>(out), job.result_elements());
    else
        k.fir_rows_to_8({rows, rounded, s.count}, out, job.result_elements());
}

void Windowed::add_up(const ScaleJob& job, const SourceRows& src, Window::Samples s, uint8_t* out) {
    const int n = job.result_elements();
    constexpr double half = half_of(kRowBits);
    std::fill_n(sums, n, half);
    for (int k = 0; k < s.count; ++k) {
        const uint16_t* const row = across(job, src, s.first + k);
        for (int i = 0; i < n; ++i)
            sums[i] += row[i] * exact[k];
    }
    for (int i = 0; i < n; ++i) {
        const int v = static_cast<int>(std::min(std::max(sums[i], half), half + (255 << kRowBits)));
        if (job.deep)
            reinterpret_cast<uint16_t*>(out)[i] = static_cast<uint16_t>(v - half_of(kRowBits));
        else
            out[i] = static_cast<uint8_t>(v >> kRowBits);
    }
}

bool Windowed16::init(Scratch& scratch, const ScaleJob& job) {
    const Window across(job.x);
    const int cols = job.x.dst_count, taps = across.taps();
    exact = scratch.take<double>(std::max(taps, job.y_window.taps()));
    reduced = scratch.take<float>(static_cast<size_t>(job.x.src_count) + taps);
    int32_t* start = scratch.take<int32_t>(cols);
    float* weight = scratch.take<float>(static_cast<size_t>(cols) * taps);
    if (!exact || !reduced || !start || !weight)
        return false;
    std::fill_n(reduced + job.x.src_count, taps, 0.0f);
    fir = {start, weight, taps, cols};
    for (int i = 0; i < cols; ++i, ++weight) {
        const Window::Samples s = across.samples(i);
        start[i] = s.first;
        across.weigh(i, exact);
        std::fill(exact + s.count, exact + taps, 0.0);
        for (int k = 0; k < taps; ++k)
            weight[static_cast<ptrdiff_t>(k) * cols] = static_cast<float>(exact[k]);
    }
    return true;
}

void Windowed16::row(const ScaleJob& job, const SourceRows& src, int y, uint8_t* out) {
    const Window::Samples s = job.y_window.samples(y);
    job.y_window.weigh(y, exact);
    job.kernels->wide_fir_rows({src.row(s.first), src.plane.pitch, s.count, exact}, reduced, job.x.src_count);
    job.kernels->wide_fir(reduced, fir, out);
}

} // namespace tavi
