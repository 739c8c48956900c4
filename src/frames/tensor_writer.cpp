// SPDX-License-Identifier: MIT
#include "frames/tensor_writer.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <type_traits>

#include "frames/frame_access.h"
#include "kernels/kernels.h"

namespace tavi {
namespace {

constexpr size_t kElementBytes[] = {1, 1, 2, 4};
constexpr int kValues = 256;

/// To the nearest whole number, ties to even, whatever the rounding mode of the process is.
double to_even(double v) {
    const double down = std::floor(v), rest = v - down;
    if (rest != 0.5)
        return rest < 0.5 ? down : down + 1;
    return std::fmod(down, 2) == 0 ? down : down + 1;
}

template <class Int>
Int to_integer(double v, int zero_point) {
    const double sum = to_even(v) + zero_point;
    const double least = std::is_signed<Int>::value ? -128 : 0;
    return static_cast<Int>(std::clamp(sum, least, least + 255)); // the fields are finite, so this is a number
}

/// The results of a channel as elements of a tensor.
void fill_table(void* table, const tavi_tensor_t& t, int channel) {
    const double mean = double{t.mean[channel]}, scale = t.scale[channel] != 0 ? double{t.scale[channel]} : 1;
    for (int i = 0; i < kValues; ++i) {
        const double v = (i - mean) * scale;
        switch (t.element) {
        case TAVI_TENSOR_UINT8:
            static_cast<uint8_t*>(table)[i] = to_integer<uint8_t>(v, t.zero_point);
            break;
        case TAVI_TENSOR_INT8:
            static_cast<int8_t*>(table)[i] = to_integer<int8_t>(v, t.zero_point);
            break;
        case TAVI_TENSOR_FLOAT16:
            static_cast<uint16_t*>(table)[i] = to_half(v);
            break;
        default:
            static_cast<float*>(table)[i] = static_cast<float>(v);
        }
    }
}

Refusal check(const tavi_tensor_t* t) {
    if (!t)
        return {TAVI_RET_PARAM_ERR, "tensor is null"};
    if (!t->data)
        return {TAVI_RET_PARAM_ERR, "tensor.data is null"};
    if (t->layout < TAVI_TENSOR_NCHW || t->layout > TAVI_TENSOR_NHWC)
        return {TAVI_RET_PARAM_ERR, "tensor.layout=%d: allowed are 0 (NCHW) and 1 (NHWC)", t->layout};
    if (t->element < TAVI_TENSOR_UINT8 || t->element > TAVI_TENSOR_FLOAT32)
        return {TAVI_RET_PARAM_ERR, "tensor.element=%d: allowed are 0 (uint8), 1 (int8), 2 (float16) and 3 (float32)",
                t->element};
    if (t->channels < TAVI_TENSOR_RGB || t->channels > TAVI_TENSOR_GRAY)
        return {TAVI_RET_PARAM_ERR, "tensor.channels=%d: allowed are 0 (RGB), 1 (BGR) and 2 (grey)", t->channels};
    if (t->width < 1 || t->width > kMaxSide || t->height < 1 || t->height > kMaxSide)
        return Refusal(TAVI_RET_UNSUPPORTED, "tensor size=%ux%u: allowed sides are 1 to %d", t->width, t->height,
                       kMaxSide);
    for (int i = 0; i < 3; ++i)
        if (!std::isfinite(t->mean[i]) || !std::isfinite(t->scale[i]))
            return {TAVI_RET_PARAM_ERR,
                    "tensor.mean[%d]=%g, tensor.scale[%d]=%g: allowed are finite numbers",
                    i,
                    double{t->mean[i]},
                    i,
                    double{t->scale[i]}};
    const bool is_int = t->element == TAVI_TENSOR_INT8;
    const int least = is_int ? -128 : 0, most = is_int ? 127 : t->element == TAVI_TENSOR_UINT8 ? 255 : 0;
    if (t->zero_point < least || t->zero_point > most)
        return {TAVI_RET_PARAM_ERR, "tensor.zero_point=%d: allowed for its element are %d to %d", t->zero_point,
                least, most};
    if (!all_zero(t->reserved))
        return {TAVI_RET_PARAM_ERR, "tensor.reserved is not zero"};
    if (reinterpret_cast<uintptr_t>(t->data) % kElementBytes[t->element])
        return Refusal(TAVI_RET_PARAM_ERR, "tensor.data=%p: allowed are multiples of an element's %zu bytes", t->data,
                       kElementBytes[t->element]);
    return {};
}

} // namespace

uint16_t to_half(double value) {
    const uint16_t sign = std::signbit(value) ? 0x8000 : 0;
    const double v = std::fabs(value);
    if (v >= 65520) // half way from the largest number to what would follow
        return sign | 0x7C00;
    // Below 2^-14 numbers are evenly apart, by 2^-24; above by 2^-10 of the power of two below.
    int exponent = -14;
    if (v >= std::ldexp(1.0, -14)) {
        std::frexp(v, &exponent);
        --exponent;
    }
    const auto steps = static_cast<uint32_t>(to_even(std::ldexp(v, 10 - exponent))); // 0 to 2048
    // A normal number has 1024 steps in its exponent's field; what is rounded up to 2048 carries into it.
    return static_cast<uint16_t>(sign | ((static_cast<uint32_t>(exponent + 14) << 10) + steps));
}

Refusal TensorWriter::init(Scratch& scratch, const tavi_tensor_t* tensor) {
    if (const Refusal no = check(tensor))
        return no;
    const tavi_tensor_t& t = *tensor;
    data_ = static_cast<uint8_t*>(t.data);
    planar_ = t.layout == TAVI_TENSOR_NCHW;
    channels_ = t.channels == TAVI_TENSOR_GRAY ? 1 : 3;
    element_bytes_ = kElementBytes[t.element];
    width_ = static_cast<int>(t.width);
    height_ = static_cast<int>(t.height);
    format_ = &kFormats[t.channels == TAVI_TENSOR_GRAY  ? TAVI_PIXEL_FORMAT_GRAY8
                        : t.channels == TAVI_TENSOR_BGR ? TAVI_PIXEL_FORMAT_BGR888
                                                        : TAVI_PIXEL_FORMAT_RGB888];
    const uint64_t row = t.width * element_bytes_ * (planar_ ? 1u : static_cast<unsigned>(channels_));
    const uint64_t pitch = t.row_pitch ? t.row_pitch : row;
    if (pitch < row || pitch % element_bytes_)
        return {TAVI_RET_PARAM_ERR, "tensor.row_pitch=%u: allowed are 0 and multiples of %zu from %llu on",
                t.row_pitch, element_bytes_, static_cast<unsigned long long>(row)};
    const uint64_t plane = pitch * (t.height - 1) + row;
    const uint64_t channel = planar_ && t.channel_pitch ? t.channel_pitch : pitch * t.height;
    if (planar_ && (channel < plane || channel % element_bytes_))
        return {TAVI_RET_PARAM_ERR, "tensor.channel_pitch=%llu: allowed are 0 and multiples of %zu from %llu on",
                static_cast<unsigned long long>(t.channel_pitch), element_bytes_,
                static_cast<unsigned long long>(plane)};
    const uint64_t all = plane + (planar_ ? (static_cast<unsigned>(channels_) - 1) * channel : 0);
    if (channel > PTRDIFF_MAX / 4 || all > PTRDIFF_MAX)
        return {TAVI_RET_UNSUPPORTED, "tensor of %llu bytes does not fit into memory",
                static_cast<unsigned long long>(all)};
    row_pitch_ = static_cast<size_t>(pitch);
    channel_pitch_ = static_cast<size_t>(channel);
    uint8_t* const tables = scratch.take<uint8_t>(static_cast<size_t>(channels_) * kValues * element_bytes_);
    if (!tables)
        return {TAVI_RET_FAIL, "no memory for the table of elements"};
    for (int c = 0; c < channels_; ++c) {
        uint8_t* const table = tables + static_cast<size_t>(c) * kValues * element_bytes_;
        fill_table(table, t, c);
        channel_[c].table = table;
    }
    find_quick_ways(t);
    return {};
}

ImageView TensorWriter::shape() const { return make_shape(*format_, width_, height_, {}); }

const uint8_t* TensorWriter::end() const {
    const size_t row = static_cast<size_t>(width_) * element_bytes_ * (planar_ ? 1 : static_cast<size_t>(channels_));
    const size_t last_channel = planar_ ? (static_cast<size_t>(channels_) - 1) * channel_pitch_ : 0;
    return data_ + last_channel + row_pitch_ * (static_cast<size_t>(height_) - 1) + row;
}

namespace {

constexpr int kChunk = 512; ///< pixels whose channels are taken apart at a time

/// `__restrict`: elements of one byte might be anything else otherwise, and all would be read again after each.
template <class Element>
void look_up(const uint8_t* __restrict from, const Element* __restrict table, Element* __restrict to, int count,
             int step = 1) {
    for (int i = 0; i < count; ++i)
        to[step * i] = table[from[step * i]];
}

/// Bytes that differ from their values in some bits alone.
void exchange_bits(const uint8_t* from, uint8_t* to, int count, uint8_t bits) {
    const uint64_t eight = 0x0101010101010101u * bits;
    int i = 0;
    for (uint64_t word; i + 8 <= count; i += 8) {
        std::memcpy(&word, from + i, 8);
        word ^= eight;
        std::memcpy(to + i, &word, 8);
    }
    for (; i < count; ++i)
        to[i] = from[i] ^ bits;
}

} // namespace

// Whether the elements come out of a vector loop as they stand in the table, bit for bit.
void TensorWriter::find_quick_ways(const tavi_tensor_t& t) {
    uint8_t values[kValues];
    for (int i = 0; i < kValues; ++i)
        values[i] = static_cast<uint8_t>(i);
    for (int c = 0; c < channels_; ++c) {
        Channel& channel = channel_[c];
        const auto* const bytes = static_cast<const uint8_t*>(channel.table);
        if (element_bytes_ == 1) {
            channel.bits = bytes[0];
            channel.quick = true;
            for (int i = 0; i < kValues; ++i)
                channel.quick = channel.quick && bytes[i] == (i ^ channel.bits);
        } else if (element_bytes_ == 4) {
            float made[kValues];
            channel.mean = t.mean[c];
            channel.scale = t.scale[c] != 0 ? t.scale[c] : 1;
            kernels().to_float(values, made, kValues, channel.mean, channel.scale);
            channel.quick = std::memcmp(made, channel.table, sizeof made) == 0;
        }
    }
    alike_ = channels_ == 3;
    for (int c = 1; c < channels_; ++c)
        alike_ = alike_ && std::memcmp(channel_[0].table, channel_[c].table, kValues * element_bytes_) == 0;
}

template <class Element>
void TensorWriter::write_row(const Channel& channel, const uint8_t* from, Element* to, int count) {
    if (!channel.quick)
        look_up(from, static_cast<const Element*>(channel.table), to, count);
    else if constexpr (sizeof(Element) == 1)
        exchange_bits(from, to, count, channel.bits);
    else if constexpr (sizeof(Element) == 4)
        kernels().to_float(from, to, count, channel.mean, channel.scale);
}

template <class Element>
void TensorWriter::write_elements(const ImageView& pixels, int x, int y) const {
    const size_t across = static_cast<size_t>(x) * sizeof(Element) * (planar_ ? 1 : static_cast<size_t>(channels_));
    for (int i = 0; i < pixels.height; ++i) {
        const uint8_t* const from = pixels.plane[0].row(i);
        uint8_t* const row = data_ + static_cast<size_t>(y + i) * row_pitch_ + across;
        const auto at = [&](int channel) {
            return reinterpret_cast<Element*>(row + static_cast<size_t>(channel) * channel_pitch_);
        };
        if (channels_ == 1) {
            write_row(channel_[0], from, at(0), pixels.width);
        } else if (planar_) {
            uint8_t apart[3][kChunk];
            uint8_t* const rows[3] = {apart[0], apart[1], apart[2]};
            for (int done = 0; done < pixels.width; done += kChunk) {
                const int count = std::min(kChunk, pixels.width - done);
                kernels().split3(from + 3 * static_cast<ptrdiff_t>(done), rows, count);
                for (int c = 0; c < 3; ++c)
                    write_row(channel_[c], apart[c], at(c) + done, count);
            }
        } else if (alike_) {
            write_row(channel_[0], from, at(0), 3 * pixels.width);
        } else {
            for (int c = 0; c < 3; ++c)
                look_up(from + c, static_cast<const Element*>(channel_[c].table), at(0) + c, pixels.width, 3);
        }
    }
}

void TensorWriter::write(const ImageView& pixels, int x, int y) const {
    if (element_bytes_ == 1)
        write_elements<uint8_t>(pixels, x, y); // their bits; signed ones too
    else if (element_bytes_ == 2)
        write_elements<uint16_t>(pixels, x, y);
    else
        write_elements<float>(pixels, x, y);
}

} // namespace tavi
