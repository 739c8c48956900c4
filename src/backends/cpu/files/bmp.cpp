// SPDX-License-Identifier: MIT
// BMP: uncompressed pictures of 1, 4, 8, 16, 24 and 32 bits are read, top-down or bottom-up, with palettes and bit
// masks; 8-bit grey, 24-bit colour and 32-bit colour with alpha are written.
#include <algorithm>
#include <cstring>
#include <new>

#include "backends/cpu/files/codec.h"

namespace tavi {
namespace {

constexpr uint32_t kFileHeader = 14;
constexpr uint32_t kCoreHeader = 12;  // the oldest, with 16-bit sides
constexpr uint32_t kInfoHeader = 40;  // the usual one
constexpr uint32_t kMasksHeader = 52; // from here on it holds the colour masks,
constexpr uint32_t kAlphaHeader = 56; // and from here on that of alpha
constexpr uint32_t kV4Header = 108;
constexpr uint32_t kMaxHeader = 124;
constexpr uint32_t kPlain = 0;
constexpr uint32_t kBitFields = 3;
constexpr uint32_t kAlphaBitFields = 6;

uint32_t get16(const uint8_t* p) { return p[0] | p[1] << 8; }
uint32_t get32(const uint8_t* p) { return get16(p) | get16(p + 2) << 16; }
void put16(uint8_t* p, uint32_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}
void put32(uint8_t* p, uint32_t v) {
    put16(p, v);
    put16(p + 2, v >> 16);
}

/// The bits of one component in a pixel, spread to 0..255.
struct Mask {
    uint32_t bits = 0;
    int shift = 0;
    uint32_t max = 0;

    void set(uint32_t mask) {
        bits = mask;
        shift = mask ? __builtin_ctz(mask) : 0;
        max = mask >> shift;
    }
    int width() const { return max ? 32 - __builtin_clz(max) : 0; }
    uint8_t of(uint32_t pixel) const {
        return max ? static_cast<uint8_t>((uint64_t{(pixel & bits) >> shift} * 255 + max / 2) / max) : 0;
    }
};

uint64_t row_bytes(uint64_t width, uint32_t bits) { return (width * bits + 31) / 32 * 4; }

class BmpDecoder : public Decoder {
public:
    Refusal open(Input& input, FileHeader& header) override {
        input_ = &input;
        uint8_t h[kFileHeader + kMaxHeader] = {};
        if (!input.read(h, kFileHeader + 4))
            return {TAVI_RET_FAIL, "damaged BMP: the file ends in its header"};
        const uint32_t size = get32(h + kFileHeader);
        if (size != kCoreHeader && (size < kInfoHeader || size > kMaxHeader))
            return {TAVI_RET_UNSUPPORTED, "BMP header of %u bytes; allowed are 12 and 40 to 124", size};
        if (!input.read(h + kFileHeader + 4, size - 4))
            return {TAVI_RET_FAIL, "damaged BMP: the file ends in its header"};
        position_ = kFileHeader + size;
        const uint8_t* const info = h + kFileHeader;
        uint32_t compression = kPlain;
        if (size == kCoreHeader) {
            header.width = get16(info + 4);
            header.height = get16(info + 6);
            bits_ = get16(info + 10);
        } else {
            header.width = get32(info + 4);
            header.height = get32(info + 8);
            top_down_ = header.height >> 31;
            if (top_down_)
                header.height = 0u - header.height;
            bits_ = get16(info + 14);
            compression = get32(info + 16);
        }
        Refusal no = check_kind(compression);
        if (!no)
            no = read_masks(info, size, compression);
        if (!no)
            no = read_palette(info, size);
        return no ? no : skip_to_pixels(get32(h + 10), header);
    }

    tavi_pixel_format nearest(const ImageView&) const override { return stored_; }

    Refusal decode(const ImageView& picture) override {
        return decode_rows(top_down_ ? picture : flip_rows(picture));
    }

    Rows rows() const override { return top_down_ ? Rows::from_top : Rows::from_bottom; }

    Refusal decode_rows(const ImageView& rows) override {
        const uint64_t bytes = row_bytes(static_cast<uint64_t>(rows.width), bits_);
        if (!row_ && !(row_ = allocate_bytes(bytes)))
            return {TAVI_RET_FAIL, "no memory for a row"};
        for (int y = 0; y < rows.height; ++y, ++done_) {
            if (!input_->read(row_.get(), static_cast<size_t>(bytes)))
                return {TAVI_RET_FAIL, "damaged BMP: the file ends in row %u of %u", done_, height_};
            store(row_.get(), rows.width, rows.plane[0].row(y));
        }
        return {};
    }

private:
    Refusal check_kind(uint32_t compression) {
        const bool packed = bits_ == 16 || bits_ == 32;
        const bool known = bits_ == 1 || bits_ == 4 || bits_ == 8 || bits_ == 24 || packed;
        const bool masked = compression == kBitFields || compression == kAlphaBitFields;
        if (known && (compression == kPlain || (masked && packed)))
            return {};
        return {TAVI_RET_UNSUPPORTED,
                "BMP of %u bits with compression %u; allowed are 1, 4, 8, 16, 24 and 32 bits, uncompressed", bits_,
                compression};
    }

    Refusal read_masks(const uint8_t* info, uint32_t size, uint32_t compression) {
        uint8_t masks[16] = {};
        if (compression == kPlain) {
            const bool wide = bits_ == 32;
            put32(masks, wide ? 0xff0000 : 0x7c00);
            put32(masks + 4, wide ? 0xff00 : 0x03e0);
            put32(masks + 8, wide ? 0xff : 0x001f);
        } else if (size >= kMasksHeader) {
            std::memcpy(masks, info + kInfoHeader, size >= kAlphaHeader ? 16 : 12);
        } else {
            const uint32_t count = compression == kAlphaBitFields ? 16 : 12;
            if (!input_->read(masks, count))
                return {TAVI_RET_FAIL, "damaged BMP: the file ends in its masks"};
            position_ += count;
        }
        for (int i = 0; i < 4; ++i)
            mask_[i].set(get32(masks + 4 * i));
        stored_ = mask_[3].bits && bits_ > 8 && bits_ != 24 ? TAVI_PIXEL_FORMAT_RGBA8888 : TAVI_PIXEL_FORMAT_RGB888;
        return {};
    }

    Refusal read_palette(const uint8_t* info, uint32_t size) {
        if (bits_ > 8)
            return {};
        const uint32_t room = 1u << bits_;
        const uint32_t used = size == kCoreHeader ? 0 : get32(info + 32);
        const uint32_t entries = used == 0 || used > room ? room : used;
        const uint32_t step = size == kCoreHeader ? 3 : 4;
        uint8_t raw[256 * 4];
        if (!input_->read(raw, entries * step))
            return {TAVI_RET_FAIL, "damaged BMP: the file ends in its palette"};
        position_ += entries * step;
        bool grey = true;
        for (uint32_t i = 0; i < entries; ++i) {
            const uint8_t* const bgr = raw + i * step;
            for (int c = 0; c < 3; ++c)
                palette_[i][c] = bgr[2 - c];
            grey = grey && bgr[0] == bgr[1] && bgr[1] == bgr[2];
        }
        if (grey)
            stored_ = TAVI_PIXEL_FORMAT_GRAY8;
        return {};
    }

    Refusal skip_to_pixels(uint32_t start, FileHeader& header) {
        header.stored = stored_;
        if (bits_ == 16 || bits_ == 32) {
            header.bits = 1;
            for (const Mask& mask : mask_)
                header.bits = std::max(header.bits, mask.width());
        }
        if (start < position_ || !input_->skip(start - position_))
            return {TAVI_RET_FAIL, "damaged BMP: no pixels at byte %u", start};
        header.bytes = row_bytes(header.width, bits_) * header.height;
        height_ = header.height;
        return {};
    }

    void store(const uint8_t* row, int width, uint8_t* to) const {
        const int channels = kFormats[stored_].parts;
        for (int x = 0; x < width; ++x, to += channels) {
            if (bits_ <= 8) {
                const uint32_t bit = static_cast<uint32_t>(x) * bits_;
                const uint32_t index = row[bit / 8] >> (8 - bits_ - bit % 8) & ((1u << bits_) - 1);
                std::memcpy(to, palette_[index], static_cast<size_t>(channels));
            } else if (bits_ == 24) {
                to[0] = row[3 * x + 2];
                to[1] = row[3 * x + 1];
                to[2] = row[3 * x];
            } else {
                const uint32_t pixel = bits_ == 16 ? get16(row + 2 * x) : get32(row + 4 * x);
                for (int c = 0; c < channels; ++c)
                    to[c] = mask_[c].of(pixel);
            }
        }
    }

    Input* input_ = nullptr;
    uint32_t position_ = 0;
    uint32_t bits_ = 0;
    bool top_down_ = false;
    uint32_t height_ = 0;
    uint32_t done_ = 0; ///< rows
    Bytes row_;
    tavi_pixel_format stored_ = TAVI_PIXEL_FORMAT_RGB888;
    Mask mask_[4];                 ///< red, green, blue, alpha
    uint8_t palette_[256][3] = {}; ///< an index beyond the file's entries is black
};

tavi_pixel_format nearest_for_bmp(const ImageView& have) {
    if (!have.format->whole_pixels())
        return TAVI_PIXEL_FORMAT_BGR888;
    return have.format->parts == 1 ? TAVI_PIXEL_FORMAT_GRAY8 : have.id();
}

Refusal encode_bmp(const ImageView& picture, int, ByteSink& output) {
    const Format& f = *picture.format;
    const int channels = f.parts;
    const uint32_t info_size = channels == 4 ? kV4Header : kInfoHeader;
    const uint32_t palette = channels == 1 ? 256 * 4 : 0;
    const uint32_t start = kFileHeader + info_size + palette;
    const uint64_t pitch = row_bytes(static_cast<uint64_t>(picture.width), static_cast<uint32_t>(channels) * 8);
    const uint64_t pixels = pitch * static_cast<uint64_t>(picture.height); // at most 2^30
    uint8_t head[kFileHeader + kV4Header + 256 * 4] = {'B', 'M'};
    put32(head + 2, static_cast<uint32_t>(start + pixels));
    put32(head + 10, start);
    uint8_t* const info = head + kFileHeader;
    put32(info, info_size);
    put32(info + 4, static_cast<uint32_t>(picture.width));
    put32(info + 8, static_cast<uint32_t>(picture.height)); // positive: bottom-up, which every reader takes
    put16(info + 12, 1);
    put16(info + 14, static_cast<uint32_t>(channels) * 8);
    put32(info + 20, static_cast<uint32_t>(pixels));
    if (channels == 4) { // only masks make readers look at alpha
        put32(info + 16, kBitFields);
        put32(info + 40, 0xff0000);
        put32(info + 44, 0xff00);
        put32(info + 48, 0xff);
        put32(info + 52, 0xff000000);
        put32(info + 56, 0x73524742); // sRGB
    }
    for (uint32_t i = 0; i < palette / 4; ++i)
        put32(info + info_size + 4 * i, i * 0x010101);
    const Bytes row = allocate_bytes(pitch);
    if (!row)
        return {TAVI_RET_FAIL, "no memory for a row"};
    std::memset(row.get(), 0, static_cast<size_t>(pitch));
    bool good = output.write(head, start);
    for (int y = picture.height - 1; good && y >= 0; --y) {
        const uint8_t* const from = picture.plane[0].row(y);
        std::memcpy(row.get(), from, static_cast<size_t>(picture.width) * channels);
        if (f.part[2].byte > f.part[0].byte) // red first, where the file has blue
            for (int x = 0; x < picture.width * channels; x += channels)
                std::swap(row[x], row[x + 2]);
        good = output.write(row.get(), static_cast<size_t>(pitch));
    }
    return good ? Refusal() : output.why();
}

bool is_bmp(const uint8_t* head, size_t size) { return size >= 2 && head[0] == 'B' && head[1] == 'M'; }

} // namespace

const Signature kBmpSignature{"BMP", PictureType::bmp, is_bmp,
                              [] { return static_cast<Decoder*>(new (std::nothrow) BmpDecoder); }};
const Ending kBmpEnding{".bmp", nearest_for_bmp, encode_bmp};

} // namespace tavi
