// SPDX-License-Identifier: MIT
// Pixels as the elements of a tensor. A value of 8 bits has 256 results a channel: they are computed once, in double
// precision, and looked up. So they are correctly rounded, and the same on every machine.
#pragma once

#include "image/refusal.h"
#include "image/scratch.h"
#include "image/view.h"
#include "tavi_frame.h"

namespace tavi {

class TensorWriter {
public:
    /// Checks the record's fields and builds the tables, in a scratch that must live as long as this.
    Refusal init(Scratch& scratch, const tavi_tensor_t* tensor);

    /// The pixels that the tensor is made of: RGB888, BGR888 or GRAY8 of the tensor's sides, without memory.
    ImageView shape() const;
    /// Of an element.
    size_t element_bytes() const { return element_bytes_; }
    /// First and last byte that are written, as half-open addresses.
    const uint8_t* begin() const { return data_; }
    const uint8_t* end() const;

    /// Writes pixels of shape() to where the pixel (x, y) is.
    void write(const ImageView& pixels, int x, int y) const;

private:
    struct Channel {
        const void* table; ///< 256 elements
        bool quick;        ///< they are what a vector loop makes of the values:
        uint8_t bits;      ///< bytes, with these bits exchanged
        float mean, scale; ///< or floats
    };

    void find_quick_ways(const tavi_tensor_t& tensor);
    template <class Element>
    static void write_row(const Channel& channel, const uint8_t* from, Element* to, int count);
    template <class Element>
    void write_elements(const ImageView& pixels, int x, int y) const;

    uint8_t* data_ = nullptr;
    bool planar_ = true;
    int channels_ = 3;
    size_t element_bytes_ = 1;
    size_t row_pitch_ = 0, channel_pitch_ = 0; ///< bytes
    int width_ = 0, height_ = 0;
    const Format* format_ = nullptr;
    Channel channel_[3] = {};
    bool alike_ = false; ///< all three channels
};

/// A number as IEEE 754 binary16, rounded to nearest, ties to even.
uint16_t to_half(double value);

} // namespace tavi
