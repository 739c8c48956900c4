// SPDX-License-Identifier: MIT
// PBM, PGM and PPM, written in digits or in bytes (P1 to P6), with sample values up to 65535.
#include <cstring>
#include <new>

#include "backends/cpu/files/codec.h"

namespace tavi {
namespace {

/// Bytes of white space or of a comment in front of a number. Files have a few; a forged one would have gigabytes.
constexpr int kMostBetween = 1 << 16;

class PnmDecoder : public Decoder {
public:
    Refusal open(Input& input, FileHeader& header) override {
        input_ = &input;
        input.next(); // 'P'
        kind_ = input.next() - '0';
        const int width = number();
        const int height = number();
        max_ = bitmap() ? 1 : number(); // each takes the one white space after it, which ends the header
        if (at_end_)                    // perhaps in the middle of a number
            return {TAVI_RET_FAIL, "damaged PNM: the file ends in its header"};
        if (width < 0 || height < 0 || max_ < 1 || max_ > 65535)
            return {TAVI_RET_FAIL, "damaged PNM: sides %d x %d, largest value %d", width, height, max_};
        header.width = static_cast<uint32_t>(width);
        header.height = static_cast<uint32_t>(height);
        channels_ = kind_ % 3 == 0 ? 3 : 1;
        stored_ = channels_ == 3 ? TAVI_PIXEL_FORMAT_RGB888
                  : max_ > 255   ? TAVI_PIXEL_FORMAT_GRAY16
                                 : TAVI_PIXEL_FORMAT_GRAY8;
        header.stored = stored_;
        header.bits = 32 - __builtin_clz(static_cast<uint32_t>(max_));
        height_ = header.height;
        if (kind_ > 3)
            header.bytes = row_bytes(header.width) * header.height;
        return {};
    }

    tavi_pixel_format nearest(const ImageView&) const override { return stored_; }

    Refusal decode(const ImageView& picture) override { return decode_rows(picture); }

    Rows rows() const override { return Rows::from_top; }

    Refusal decode_rows(const ImageView& rows) override {
        const size_t samples = static_cast<size_t>(rows.width) * channels_;
        const size_t bytes = static_cast<size_t>(row_bytes(static_cast<uint64_t>(rows.width)));
        if (!row_ && !(row_ = allocate_bytes(samples * 2)))
            return {TAVI_RET_FAIL, "no memory for a row"};
        for (int y = 0; y < rows.height; ++y, ++done_) {
            if (kind_ > 3 ? !input_->read(row_.get(), bytes) : !read_digits(samples, row_.get()))
                return {TAVI_RET_FAIL, "damaged PNM: no samples from row %u of %u on", done_, height_};
            store(row_.get(), samples, rows.plane[0].row(y));
        }
        return {};
    }

private:
    bool bitmap() const { return kind_ == 1 || kind_ == 4; }

    /// Of a row in bytes, not in digits.
    uint64_t row_bytes(uint64_t width) const {
        return kind_ == 4 ? (width + 7) / 8 : width * static_cast<uint64_t>(channels_) * (max_ > 255 ? 2 : 1);
    }

    /// The next byte, or the end of the line that a comment goes on to.
    int next_outside_comments() {
        int c = input_->next();
        if (c != '#')
            return c;
        for (int length = 0; length < kMostBetween; ++length) {
            c = input_->next();
            if (c == '\n' || c == '\r' || c < 0)
                return c;
        }
        return -1;
    }

    /// The next byte that is neither white space nor in a comment.
    int next_visible() {
        for (int i = 0; i < kMostBetween; ++i) {
            const int c = next_outside_comments();
            if (c != ' ' && c != '\t' && c != '\n' && c != '\r' && c != '\v' && c != '\f')
                return c;
        }
        return -1;
    }

    /// A decimal number and the one byte after it, or the line that a comment there fills up; -1 when there is none
    /// or it is beyond 2^30.
    int number() {
        int c = next_visible();
        if (c < '0' || c > '9')
            return -1;
        int value = 0;
        for (; c >= '0' && c <= '9'; c = next_outside_comments()) {
            if (value > (1 << 30) / 10)
                return -1;
            value = value * 10 + (c - '0');
        }
        at_end_ = c < 0;
        return value;
    }

    /// Samples as P4 to P6 have them: in bits not, in one byte, or in two with the high one first.
    bool read_digits(size_t samples, uint8_t* row) {
        for (size_t i = 0; i < samples; ++i) {
            const int c = bitmap() ? next_visible() : number(); // digits of a bitmap may stand without space
            const int value = bitmap() ? (c == '0' || c == '1' ? c - '0' : -1) : c;
            if (value < 0 || value > max_)
                return false;
            if (max_ > 255)
                *row++ = static_cast<uint8_t>(value >> 8);
            *row++ = static_cast<uint8_t>(value);
        }
        return true;
    }

    void store(const uint8_t* row, size_t samples, uint8_t* to) const {
        const uint32_t max = static_cast<uint32_t>(max_);
        for (size_t i = 0; i < samples; ++i) {
            if (bitmap()) { // 1 is black
                const int bit = kind_ == 4 ? row[i / 8] >> (7 - i % 8) & 1 : row[i];
                to[i] = bit ? 0 : 255;
                continue;
            }
            uint32_t value = max > 255 ? static_cast<uint32_t>(row[2 * i] << 8 | row[2 * i + 1]) : row[i];
            value = value > max ? max : value;
            if (stored_ == TAVI_PIXEL_FORMAT_GRAY16) {
                const auto wide = static_cast<uint16_t>((value * 65535u + max / 2) / max);
                std::memcpy(to + 2 * i, &wide, 2);
            } else {
                to[i] =
                    max == 255 ? static_cast<uint8_t>(value) : static_cast<uint8_t>((value * 255 + max / 2) / max);
            }
        }
    }

    Input* input_ = nullptr;
    int kind_ = 0;
    int max_ = 0;
    int channels_ = 1;
    uint32_t height_ = 0;
    uint32_t done_ = 0;   ///< rows
    bool at_end_ = false; ///< the last number ended with the file
    Bytes row_;
    tavi_pixel_format stored_ = TAVI_PIXEL_FORMAT_GRAY8;
};

tavi_pixel_format nearest_for_ppm(const ImageView&) { return TAVI_PIXEL_FORMAT_RGB888; }
tavi_pixel_format nearest_for_pgm(const ImageView& have) {
    return have.format->sample_bytes() == 2 ? TAVI_PIXEL_FORMAT_GRAY16 : TAVI_PIXEL_FORMAT_GRAY8;
}

Refusal encode_pnm(const ImageView& picture, int, ByteSink& output) {
    const Format& f = *picture.format;
    const size_t bytes = static_cast<size_t>(picture.width) * picture.plane[0].step;
    char head[48];
    const int length = std::snprintf(head, sizeof(head), "P%c\n%d %d\n%d\n", f.parts == 3 ? '6' : '5', picture.width,
                                     picture.height, f.sample_bytes() == 2 ? 65535 : 255);
    const Bytes swapped = allocate_bytes(bytes);
    if (!swapped)
        return {TAVI_RET_FAIL, "no memory for a row"};
    bool good = output.write(head, static_cast<size_t>(length));
    for (int y = 0; good && y < picture.height; ++y) {
        const uint8_t* row = picture.plane[0].row(y);
        if (f.sample_bytes() == 2) { // the high byte first
            for (size_t x = 0; x < bytes; x += 2) {
                swapped[x] = row[x + 1];
                swapped[x + 1] = row[x];
            }
            row = swapped.get();
        }
        good = output.write(row, bytes);
    }
    return good ? Refusal() : output.why();
}

bool is_pnm(const uint8_t* head, size_t size) {
    return size >= 3 && head[0] == 'P' && head[1] >= '1' && head[1] <= '6' &&
           std::memchr(" \t\r\n#", head[2], 5) != nullptr;
}

} // namespace

const Signature kPnmSignature{"PNM", PictureType::pnm, is_pnm,
                              [] { return static_cast<Decoder*>(new (std::nothrow) PnmDecoder); }};
const Ending kPpmEnding{".ppm", nearest_for_ppm, encode_pnm};
const Ending kPgmEnding{".pgm", nearest_for_pgm, encode_pnm};

} // namespace tavi
