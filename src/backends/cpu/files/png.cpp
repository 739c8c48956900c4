// SPDX-License-Identifier: MIT
// PNG through libpng's row interface. libpng leaves by longjmp, so every function with a setjmp keeps to variables
// that need no destructor, and what must be freed belongs to an object outside.
#include <png.h>
#include <zlib.h>

#include <csetjmp>
#include <cstdlib>
#include <cstring>
#include <new>

#include "backends/cpu/files/codec.h"
#include "backends/cpu/files/exif.h"

namespace tavi {
namespace {

[[noreturn]] void fail(png_structp png, png_const_charp text) {
    *static_cast<Refusal*>(png_get_error_ptr(png)) = {TAVI_RET_FAIL, "%s", text};
    png_longjmp(png, 1);
}

void ignore(png_structp, png_const_charp) {}

void pull(png_structp png, png_bytep to, size_t size) {
    if (!static_cast<Input*>(png_get_io_ptr(png))->read(to, size))
        png_error(png, "damaged PNG: the file ends early");
}

void push(png_structp png, png_bytep from, size_t size) {
    ByteSink* const sink = static_cast<ByteSink*>(png_get_io_ptr(png));
    if (!sink->write(from, size))
        png_error(png, sink->why().text);
}

void flush(png_structp) {}

/// What libpng takes at once: a row of eight bytes a pixel, zlib's window, an eXIf block. More is only ever asked for
/// on the word of a chunk, which says 2 GiB as easily as 20 bytes.
constexpr size_t kMostBytes = size_t{1} << 20;

/// libpng calls a refusal a warning where it can go on without the chunk, and the orientation is lost: `user` is the
/// flag that says so.
png_voidp take(png_structp png, png_alloc_size_t size) {
    void* const memory = size <= kMostBytes ? std::malloc(size) : nullptr;
    if (!memory)
        *static_cast<bool*>(png_get_mem_ptr(png)) = true;
    return memory;
}

void give(png_structp, png_voidp memory) { std::free(memory); }

bool red_is_last(const Format& f) { return f.part[0].byte > f.part[2].byte; }

class PngDecoder : public Decoder {
public:
    ~PngDecoder() override { png_destroy_read_struct(&png_, &info_, nullptr); }

    Refusal open(Input& input, FileHeader& header) override {
        // The sides are read here as well: libpng reports too large a picture like any other damage.
        if (input.head_size() >= 24 && std::memcmp(input.head() + 12, "IHDR", 4) == 0) {
            header.width = png_get_uint_32(input.head() + 16);
            header.height = png_get_uint_32(input.head() + 20);
            if (header.width > kMaxSide || header.height > kMaxSide)
                return {};
        }
        png_ = png_create_read_struct_2(PNG_LIBPNG_VER_STRING, &refusal_, fail, ignore, &starved_, take, give);
        info_ = png_ ? png_create_info_struct(png_) : nullptr;
        if (!info_)
            return {TAVI_RET_FAIL, "no memory for the decoder"};
        png_set_read_fn(png_, &input, pull);
        if (!read_info())
            return refusal_;
        if (starved_)
            return {TAVI_RET_FAIL, "no memory for its eXIf chunk, of which 1 MiB is read"};
        describe(header);
        return {};
    }

    tavi_pixel_format nearest(const ImageView& wanted) const override {
        const Format& f = *wanted.format;
        if (f.whole_pixels() && (f.parts > 1 || grey_))
            return wanted.id();
        return grey_ ? TAVI_PIXEL_FORMAT_GRAY8 : TAVI_PIXEL_FORMAT_RGB888;
    }

    Refusal decode(const ImageView& picture) override { return decode_rows(picture); }

    Rows rows() const override { return interlaced_ ? Rows::at_once : Rows::from_top; }

    Refusal decode_rows(const ImageView& rows) override {
        read_rows(*rows.format, rows.plane[0]);
        return refusal_;
    }

private:
    bool read_info() {
        if (setjmp(png_jmpbuf(png_)))
            return false;
        png_set_user_limits(png_, kMaxSide, kMaxSide);
        // Only what pixels and orientation need is looked at: the rest is skipped without memory of its own.
        png_set_keep_unknown_chunks(png_, PNG_HANDLE_CHUNK_NEVER, nullptr, -1);
        png_set_keep_unknown_chunks(png_, PNG_HANDLE_CHUNK_AS_DEFAULT, reinterpret_cast<png_const_bytep>("eXIf"), 1);
        png_read_info(png_, info_);
        return true;
    }

    void describe(FileHeader& header) {
        header.width = png_get_image_width(png_, info_);
        header.height = png_get_image_height(png_, info_);
        height_ = header.height;
        interlaced_ = png_get_interlace_type(png_, info_) != PNG_INTERLACE_NONE;
        colour_ = png_get_color_type(png_, info_);
        depth_ = png_get_bit_depth(png_, info_);
        grey_ = !(colour_ & PNG_COLOR_MASK_COLOR);
        alpha_ = (colour_ & PNG_COLOR_MASK_ALPHA) || png_get_valid(png_, info_, PNG_INFO_tRNS);
        if (alpha_)
            header.stored = TAVI_PIXEL_FORMAT_RGBA8888;
        else if (!grey_)
            header.stored = TAVI_PIXEL_FORMAT_RGB888;
        else
            header.stored = depth_ == 16 ? TAVI_PIXEL_FORMAT_GRAY16 : TAVI_PIXEL_FORMAT_GRAY8;
        header.bits = colour_ == PNG_COLOR_TYPE_PALETTE ? 8 : depth_; // a palette's colours have 8
        png_bytep exif = nullptr;
        png_uint_32 exif_size = 0;
        if (png_get_eXIf_1(png_, info_, &exif_size, &exif) && exif)
            header.orientation = tiff_orientation(exif, exif_size);
    }

    void read_rows(const Format& want, const PlaneView& rows) {
        if (setjmp(png_jmpbuf(png_)))
            return;
        if (done_ == 0) {
            set_transforms(want);
            passes_ = png_set_interlace_handling(png_);
            png_read_update_info(png_, info_);
        }
        if (png_get_rowbytes(png_, info_) != static_cast<size_t>(rows.cols) * rows.step)
            png_error(png_, "libpng gives rows of another length than asked for");
        for (int pass = 0; pass < passes_; ++pass)
            for (int y = 0; y < rows.rows; ++y)
                png_read_row(png_, rows.row(y), nullptr);
        done_ += static_cast<uint32_t>(rows.rows);
        if (done_ == height_)
            png_read_end(png_, nullptr);
    }

    /// From what is in the file to grey, RGB or RGBA of one byte, or grey of two.
    void set_transforms(const Format& want) {
        const bool want_alpha = want.parts == 4;
        if (colour_ == PNG_COLOR_TYPE_PALETTE)
            png_set_palette_to_rgb(png_);
        else if (grey_ && depth_ < 8)
            png_set_expand_gray_1_2_4_to_8(png_);
        if (want_alpha && png_get_valid(png_, info_, PNG_INFO_tRNS))
            png_set_tRNS_to_alpha(png_);
        if (want.sample_bytes() == 2) {
            png_set_expand_16(png_);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
            png_set_swap(png_);
#endif
        } else if (depth_ == 16) {
            png_set_scale_16(png_); // rounded, where strip_16 truncates
        }
        if (grey_ && want.parts > 1)
            png_set_gray_to_rgb(png_);
        if (!want_alpha)
            png_set_strip_alpha(png_);
        else if (!alpha_)
            png_set_add_alpha(png_, 0xff, PNG_FILLER_AFTER);
        if (red_is_last(want))
            png_set_bgr(png_);
    }

    png_structp png_ = nullptr;
    png_infop info_ = nullptr;
    Refusal refusal_;      ///< what libpng calls an error
    bool starved_ = false; ///< an allocation was refused
    uint32_t height_ = 0;
    uint32_t done_ = 0; ///< rows
    int passes_ = 1;    ///< over the picture, as interlaced files have them
    bool interlaced_ = false;
    int colour_ = 0;
    int depth_ = 0;
    bool grey_ = false;
    bool alpha_ = false;
};

tavi_pixel_format nearest_for_png(const ImageView& have) {
    return have.format->whole_pixels() ? have.id() : TAVI_PIXEL_FORMAT_RGB888;
}

void write_rows(png_structp png, png_infop info, const ImageView& picture) {
    if (setjmp(png_jmpbuf(png)))
        return;
    const Format& f = *picture.format;
    const int colour = f.parts == 1 ? PNG_COLOR_TYPE_GRAY : f.parts == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_RGBA;
    png_set_user_limits(png, kMaxSide, kMaxSide);
    // A seventh of the time of level 6 with all filters; photographs grow by a twentieth, drawings stay small.
    png_set_compression_strategy(png, Z_RLE);
    png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_UP);
    png_set_IHDR(png, info, static_cast<png_uint_32>(picture.width), static_cast<png_uint_32>(picture.height),
                 f.sample_bytes() * 8, colour, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    if (f.sample_bytes() == 2)
        png_set_swap(png);
#endif
    if (red_is_last(f))
        png_set_bgr(png);
    for (int y = 0; y < picture.height; ++y)
        png_write_row(png, picture.plane[0].row(y));
    png_write_end(png, info);
}

Refusal encode_png(const ImageView& picture, int, ByteSink& output) {
    Refusal no;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &no, fail, ignore);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (info) {
        png_set_write_fn(png, &output, push, flush);
        write_rows(png, info, picture);
    } else {
        no = {TAVI_RET_FAIL, "no memory for the encoder"};
    }
    png_destroy_write_struct(&png, &info);
    return no;
}

bool is_png(const uint8_t* head, size_t size) { return size >= 8 && png_sig_cmp(head, 0, 8) == 0; }

} // namespace

const Signature kPngSignature{"PNG", PictureType::png, is_png,
                              [] { return static_cast<Decoder*>(new (std::nothrow) PngDecoder); }};
const Ending kPngEnding{".png", nearest_for_png, encode_png};

} // namespace tavi
