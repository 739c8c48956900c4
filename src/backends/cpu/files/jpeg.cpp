// SPDX-License-Identifier: MIT
// JPEG through TurboJPEG. Files hold full-range BT.601. YUV pictures of that matrix pass as planes in both
// directions: what is left to do here is the range, where theirs is limited, and, where file and picture subsample
// differently, the chroma grid. Those of another matrix come and go as RGB.
#include <turbojpeg.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <new>

#include "backends/cpu/files/codec.h"
#include "backends/cpu/files/exif.h"

namespace tavi {
namespace {

constexpr size_t kMaxFile = size_t{1} << 29;
constexpr int kEncodeFlags = TJFLAG_ACCURATEDCT; // 0.2 dB more at the same speed

/// Samples that are mapped together: loops of a known length that write memory of their own become vector code.
constexpr int kBlock = 32;

// Rounded exactly, in 16 bits so that those loops are narrow ones. (t + 1 + (t >> 8)) >> 8 is t / 255.
constexpr uint16_t div255(uint16_t t) { return static_cast<uint16_t>((t + 1 + (t >> 8)) >> 8); }

/// From a file's samples to those of the limited range.
struct ToLimited {
    static constexpr uint8_t luma(uint8_t full) {
        return static_cast<uint8_t>(kBlack + div255(static_cast<uint16_t>(full * kLumaSpan + kFullSpan / 2)));
    }
    static constexpr uint8_t chroma(uint8_t full) { // kNeutral + (c - kNeutral) * kChromaSpan / kFullSpan
        constexpr int kOffset = kNeutral * (kFullSpan - kChromaSpan) + kFullSpan / 2;
        return static_cast<uint8_t>(div255(static_cast<uint16_t>(full * kChromaSpan + kOffset)));
    }
};
/// And to those of the full range, which is the files'.
struct ToFull {
    static constexpr uint8_t luma(uint8_t full) { return full; }
    static constexpr uint8_t chroma(uint8_t full) { return full; }
};

using Table = std::array<uint8_t, 256>;

constexpr int rounded(int numerator, int denominator) {
    return (2 * numerator + (numerator < 0 ? -denominator : denominator)) / (2 * denominator);
}
constexpr Table make_full(int centre, int offset, int range) {
    Table t{};
    for (int i = 0; i < 256; ++i) {
        const int value = offset + rounded((i - centre) * kFullSpan, range);
        t[i] = static_cast<uint8_t>(value < 0 ? 0 : value > kFullSpan ? kFullSpan : value);
    }
    return t;
}
constexpr Table kLumaOfLimited = make_full(kBlack, 0, kLumaSpan);
constexpr Table kChromaOfLimited = make_full(kNeutral, kNeutral, kChromaSpan);
constexpr Table kSame = make_full(0, 0, kFullSpan);

/// The components of a view whose format is one of the YUV ones.
struct YuvSamples {
    Samples y, u, v;
    int yshift = 0;

    explicit YuvSamples(const ImageView& view)
        : y(samples_of(view, 0)), u(samples_of(view, 1)), v(samples_of(view, 2)), yshift(view.format->yshift()) {}
};

class Handle {
public:
    explicit Handle(tjhandle handle) : handle_(handle) {}
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() {
        if (handle_)
            tjDestroy(handle_);
    }
    tjhandle get() const { return handle_; }
    const char* error() const { return tjGetErrorStr2(handle_); }

private:
    tjhandle handle_;
};

/// TurboJPEG's number of a grey or RGB format.
int tj_format(const Format& f) {
    if (f.parts == 1)
        return TJPF_GRAY;
    int number = 0;
    while (tjPixelSize[number] != f.plane[0].step || tjRedOffset[number] != f.part[0].byte ||
           tjBlueOffset[number] != f.part[2].byte || (tjAlphaOffset[number] >= 0) != (f.parts == 4))
        ++number; // it has all of ours
    return number;
}

/// The three planes that TurboJPEG reads or writes. It rounds odd sides up where images round down, so a plane is the
/// picture's own memory only when shape and spacing agree; the rest lies in scratch.
struct Planes {
    uint8_t* data[3] = {};
    int pitch[3] = {};
    int cols[3] = {};
    int rows[3] = {};
    Bytes scratch;

    bool prepare(int width, int height, int subsampling, const YuvSamples* in_place) {
        const Samples* const own[3] = {in_place ? &in_place->y : nullptr, in_place ? &in_place->u : nullptr,
                                       in_place ? &in_place->v : nullptr};
        uint64_t need = 0;
        for (int i = 0; i < (subsampling == TJSAMP_GRAY ? 1 : 3); ++i) {
            cols[i] = tjPlaneWidth(i, width, subsampling);
            rows[i] = tjPlaneHeight(i, height, subsampling);
            pitch[i] = cols[i];
            if (own[i] && own[i]->step == 1 && own[i]->cols == cols[i] && own[i]->rows == rows[i]) {
                data[i] = own[i]->data;
                pitch[i] = static_cast<int>(own[i]->pitch);
            } else {
                need += uint64_t(cols[i]) * rows[i];
            }
        }
        if (need == 0)
            return true;
        scratch = allocate_bytes(need);
        uint8_t* next = scratch.get();
        for (int i = 0; i < 3 && scratch; ++i) {
            if (cols[i] == 0 || data[i])
                continue;
            data[i] = next;
            next += static_cast<size_t>(cols[i]) * rows[i];
        }
        return scratch != nullptr;
    }
};

/// Maps a row of samples; in place where the step is 1.
template <int Step, typename Map>
void map_row(const uint8_t* s, uint8_t* d, int count, const Map& map) {
    int x = 0;
    for (; Step == 1 && x + kBlock <= count; x += kBlock) {
        uint8_t block[kBlock];
        for (int i = 0; i < kBlock; ++i)
            block[i] = map(s[x + i]);
        std::memcpy(d + x, block, sizeof block);
    }
    for (; x < count; ++x)
        d[x * Step] = map(s[x]);
}

template <class Range>
void store_luma(const Planes& from, const Samples& to) {
    for (int y = 0; y < to.rows; ++y) {
        const uint8_t* const s = from.data[0] + static_cast<ptrdiff_t>(y) * from.pitch[0];
        uint8_t* const d = to.row(y);
        if (to.step == 1)
            map_row<1>(s, d, to.cols, Range::luma);
        else
            map_row<2>(s, d, to.cols, Range::luma);
    }
}

/// One row of chroma in the picture's columns: the mean of what a finer file has there, or the sample of a coarser
/// one. `a` and `b` are the two rows of the file that fall on it, the same one where it is not finer. Of an odd
/// number of columns the last has a sample of its own where chroma is rounded up.
void gather_chroma(const uint8_t* a, const uint8_t* b, int file_factor, int file_cols, int cols, uint8_t* out) {
    if (file_factor == 1) {
        const int pairs = std::min(cols, file_cols / 2);
        for (int x = 0; x < pairs; ++x)
            out[x] = static_cast<uint8_t>((a[2 * x] + a[2 * x + 1] + b[2 * x] + b[2 * x + 1] + 2) >> 2);
        if (pairs < cols)
            out[pairs] = static_cast<uint8_t>((a[2 * pairs] + b[2 * pairs] + 1) >> 1);
    } else if (file_factor == 4) {
        for (int x = 0; x < cols; ++x)
            out[x] = static_cast<uint8_t>((a[x / 2] + b[x / 2] + 1) >> 1);
    } else if (a != b) {
        for (int x = 0; x < cols; ++x)
            out[x] = static_cast<uint8_t>((a[x] + b[x] + 1) >> 1);
    } else if (out != a) {
        std::memcpy(out, a, static_cast<size_t>(cols));
    }
}

template <class Range>
void store_chroma(const Planes& from, int plane, int xfactor, int yfactor, const Samples& to, int to_yshift,
                  uint8_t* row) {
    for (int y = 0; y < to.rows; ++y) {
        const int first = (y << to_yshift) / yfactor;
        const int last = std::min(((y << to_yshift) + to_yshift) / yfactor, from.rows[plane] - 1);
        const uint8_t* const a = from.data[plane] + static_cast<ptrdiff_t>(first) * from.pitch[plane];
        const uint8_t* const b = from.data[plane] + static_cast<ptrdiff_t>(last) * from.pitch[plane];
        uint8_t* const d = to.row(y);
        const uint8_t* s = a;
        if (xfactor != 2 || a != b) {
            gather_chroma(a, b, xfactor, from.cols[plane], to.cols, row);
            s = row;
        }
        if (to.step == 1)
            map_row<1>(s, d, to.cols, Range::chroma);
        else if (to.step == 2)
            map_row<2>(s, d, to.cols, Range::chroma);
        else
            map_row<4>(s, d, to.cols, Range::chroma);
    }
}

/// Both components of a pair in one pass, the common case of NV12 from a file that subsamples as it does.
template <class Range>
void store_pairs(const Planes& from, const YuvSamples& to) {
    const bool u_first = to.u.data < to.v.data;
    for (int y = 0; y < to.u.rows; ++y) {
        const uint8_t* const u = from.data[1] + static_cast<ptrdiff_t>(y) * from.pitch[1];
        const uint8_t* const v = from.data[2] + static_cast<ptrdiff_t>(y) * from.pitch[2];
        const uint8_t* const a = u_first ? u : v;
        const uint8_t* const b = u_first ? v : u;
        uint8_t* const d = (u_first ? to.u : to.v).row(y);
        int x = 0;
        for (; x + kBlock <= to.u.cols; x += kBlock) {
            uint8_t block[2 * kBlock];
            for (int i = 0; i < kBlock; ++i) {
                block[2 * i] = Range::chroma(a[x + i]);
                block[2 * i + 1] = Range::chroma(b[x + i]);
            }
            std::memcpy(d + 2 * x, block, sizeof block);
        }
        for (; x < to.u.cols; ++x) {
            d[2 * x] = Range::chroma(a[x]);
            d[2 * x + 1] = Range::chroma(b[x]);
        }
    }
}

void fill_channel(const Samples& to, uint8_t value) {
    for (int y = 0; y < to.rows; ++y)
        for (int x = 0; x < to.cols; ++x)
            to.row(y)[x * to.step] = value;
}

/// The last pixel of a packed row of odd width has a chroma byte that belongs to no sample, or, where chroma is
/// rounded up, a pair whose other luma repeats its own.
void fill_last_pair(const ImageView& picture, const YuvSamples& c) {
    if (c.y.step != 2 || picture.width % 2 == 0)
        return;
    const int last = 2 * (picture.width - 1);
    for (int y = 0; y < picture.height; ++y) {
        if (picture.chroma_up)
            c.y.row(y)[last + 2] = c.y.row(y)[last];
        else
            c.u.row(y)[last] = kNeutral;
    }
}

/// The file's planes in the picture's samples.
template <class Range>
void store_planes(const Planes& from, int subsampling, const YuvSamples& to, uint8_t* row) {
    store_luma<Range>(from, to.y);
    const int xfactor = tjMCUWidth[subsampling] / 8;
    const int yfactor = tjMCUHeight[subsampling] / 8;
    if (subsampling == TJSAMP_GRAY) {
        fill_channel(to.u, kNeutral);
        fill_channel(to.v, kNeutral);
    } else if (to.u.step == 2 && xfactor == 2 && yfactor == 1 << to.yshift) {
        store_pairs<Range>(from, to);
    } else {
        store_chroma<Range>(from, 1, xfactor, yfactor, to.u, to.yshift, row);
        store_chroma<Range>(from, 2, xfactor, yfactor, to.v, to.yshift, row);
    }
}

/// What files hold of a picture, in both directions.
tavi_pixel_format nearest_for_jpeg(const ImageView& picture) {
    if (picture.format->sample_bytes() == 2)
        return TAVI_PIXEL_FORMAT_GRAY8;
    const Format& f = *picture.format; // as planes: two columns a chroma sample
    return f.whole_pixels() || (f.xshift() == 1 && picture.color.matrix == Matrix::bt601) ? picture.id()
                                                                                          : TAVI_PIXEL_FORMAT_RGB888;
}

class JpegDecoder : public Decoder {
public:
    JpegDecoder() : handle_(tjInitDecompress()) {}

    Refusal open(Input& input, FileHeader& header) override {
        if (!handle_.get())
            return {TAVI_RET_FAIL, "no memory for the decoder"};
        input_ = &input;
        if (input.memory()) {
            data_ = input.memory();
            size_ = static_cast<size_t>(input.left());
        } else {
            const bool too_long = input.knows_its_length() && input.left() > kMaxFile;
            if (too_long || !read_head())
                return {TAVI_RET_FAIL, "%s (files up to 512 MiB are read)", std::strerror(too_long ? EFBIG : errno)};
            data_ = file_.get();
        }
        int width = -1;
        int height = -1;
        int space = -1;
        const int result = tjDecompressHeader3(handle_.get(), data_, size_, &width, &height, &subsampling_, &space);
        if (width < 1 || height < 1 || space < 0) // rare subsamplings are refused here and can be decoded to RGB
            return {TAVI_RET_FAIL, "damaged JPEG: %s",
                    result != 0 ? handle_.error() : "it ends in its header, or holds tables and no picture"};
        if (space == TJCS_CMYK || space == TJCS_YCCK)
            return {TAVI_RET_UNSUPPORTED, "CMYK JPEG; allowed are grey, YCbCr and RGB"};
        planes_fit_ = subsampling_ >= 0 && subsampling_ < TJ_NUMSAMP && (space == TJCS_YCbCr || space == TJCS_GRAY);
        header.width = static_cast<uint32_t>(width);
        header.height = static_cast<uint32_t>(height);
        header.stored = space == TJCS_GRAY ? TAVI_PIXEL_FORMAT_GRAY8 : TAVI_PIXEL_FORMAT_RGB888;
        header.orientation = jpeg_orientation(data_, size_);
        const Subsampling grid = jpeg_subsampling(data_, size_);
        header.xsubsampling = grid.x;
        header.ysubsampling = grid.y;
        return {};
    }

    tavi_pixel_format nearest(const ImageView& wanted) const override {
        return planes_fit_ || wanted.format->whole_pixels() ? nearest_for_jpeg(wanted) : TAVI_PIXEL_FORMAT_RGB888;
    }

    /// The decoder's own scaling by 2, 4 or 8, without the memory of the whole picture and in half the time. It
    /// leaves the scaler a factor of two or more: photographs come out 45 dB and more from the mean of all pixels,
    /// where just enough pixels give 37.
    void reduce(FileHeader& header, int width, int height) override {
        for (const int factor : {8, 4, 2}) {
            const tjscalingfactor scale = {1, factor};
            const int reduced_width = TJSCALED(static_cast<int>(header.width), scale);
            const int reduced_height = TJSCALED(static_cast<int>(header.height), scale);
            if (reduced_width < 2 * width || reduced_height < 2 * height)
                continue;
            header.width = static_cast<uint32_t>(reduced_width);
            header.height = static_cast<uint32_t>(reduced_height);
            return;
        }
    }

    Refusal decode(const ImageView& picture) override {
        if (!input_->memory()) {
            if (!input_->append_rest(file_, size_, kMaxFile))
                return {TAVI_RET_FAIL, "%s (files up to 512 MiB are read)", std::strerror(errno)};
            data_ = file_.get();
        }
        return picture.format->whole_pixels() ? decode_pixels(picture) : decode_planes(picture);
    }

private:
    /// Reads up to the pixels, or to where there is no segment behind the last one, of which the decoder will tell.
    /// False with errno set.
    bool read_head() {
        constexpr uint8_t kFillByte = 0xff, kTemporary = 0x01, kRestart = 0xd0, kEnd = 0xd9, kStartOfScan = 0xda;
        constexpr int kMostFill = 4096; // bytes between segments; files have a few
        int fill = 0;
        size_t at = 2; // after the start-of-image marker
        for (;;) {
            if (at > kMaxFile) {
                errno = EFBIG;
                return false;
            }
            if (!input_->append(file_, size_, at + 4 - size_))
                return false;
            if (size_ < at + 4 || file_[at] != 0xff)
                return true;
            const uint8_t marker = file_[at + 1];
            if (marker == kFillByte) {
                if (++fill > kMostFill)
                    return true;
                ++at;
                continue;
            }
            if (marker == kTemporary || (marker >= kRestart && marker < kEnd)) { // markers without a segment
                at += 2;
                continue;
            }
            const size_t length = static_cast<size_t>(file_[at + 2]) << 8 | file_[at + 3]; // counts its own two bytes
            if (length < 2)
                return true;
            at += 2 + length;
            if (!input_->append(file_, size_, at - size_))
                return false;
            if (size_ < at || marker == kStartOfScan)
                return true;
        }
    }

    /// Runs a decoder that stops at the first sign of damage: libjpeg would fill the rest with grey and call it a
    /// warning. Stray bytes before the end marker, which cameras write, come after the last pixel: such a picture is
    /// whole, and decodes without the stop.
    template <typename Run>
    Refusal strictly(const Run& run) {
        constexpr int kFlags = TJFLAG_LIMITSCANS;
        if (run(kFlags | TJFLAG_STOPONWARNING) == 0)
            return {};
        const char* const text = handle_.error();
        if (tjGetErrorCode(handle_.get()) == TJERR_WARNING &&
            std::strstr(text, "extraneous bytes before marker 0xd9") &&
            (run(kFlags) == 0 || tjGetErrorCode(handle_.get()) == TJERR_WARNING))
            return {};
        return {TAVI_RET_FAIL, "damaged JPEG: %s", handle_.error()};
    }

    Refusal decode_pixels(const ImageView& picture) {
        const PlaneView& p = picture.plane[0];
        return strictly([&](int flags) {
            return tjDecompress2(handle_.get(), data_, size_, p.data, picture.width, static_cast<int>(p.pitch),
                                 picture.height, tj_format(*picture.format), flags);
        });
    }

    Refusal decode_planes(const ImageView& picture) {
        const YuvSamples c(picture);
        Planes planes;
        const Bytes row = allocate_bytes(static_cast<uint64_t>(picture.width));
        if (!row || !planes.prepare(picture.width, picture.height, subsampling_, &c))
            return {TAVI_RET_FAIL, "no memory for the planes of a %dx%d picture", picture.width, picture.height};
        if (const Refusal no = strictly([&](int flags) {
                return tjDecompressToYUVPlanes(handle_.get(), data_, size_, planes.data, picture.width, planes.pitch,
                                               picture.height, flags);
            }))
            return no;
        if (picture.color.full_range)
            store_planes<ToFull>(planes, subsampling_, c, row.get());
        else
            store_planes<ToLimited>(planes, subsampling_, c, row.get());
        fill_last_pair(picture, c);
        return {};
    }

    Handle handle_;
    Input* input_ = nullptr;
    Bytes file_; ///< its first bytes, and all of them from decode() on; empty where all of it is in memory
    const uint8_t* data_ = nullptr;
    size_t size_ = 0;
    int subsampling_ = -1;
    bool planes_fit_ = false;
};

/// Copies one component to a plane of TurboJPEG's, full-range; what the plane has beyond repeats the last sample. A
/// plane that is the picture's own stays as it is.
void expand(const Samples& from, const Table& full, const Planes& to, int plane) {
    if (to.data[plane] == from.data)
        return;
    for (int y = 0; y < to.rows[plane]; ++y) {
        const uint8_t* const s = from.row(std::min(y, from.rows - 1));
        uint8_t* const d = to.data[plane] + static_cast<ptrdiff_t>(y) * to.pitch[plane];
        for (int x = 0; x < from.cols; ++x)
            d[x] = full[s[static_cast<ptrdiff_t>(x) * from.step]];
        for (int x = from.cols; x < to.cols[plane]; ++x)
            d[x] = d[from.cols - 1];
    }
}

Refusal encode_jpeg(const ImageView& picture, int quality, ByteSink& output) {
    const Handle handle(tjInitCompress());
    if (!handle.get())
        return {TAVI_RET_FAIL, "no memory for the encoder"};
    unsigned char* jpeg = nullptr;
    unsigned long size = 0;
    int result = 0;
    if (!picture.format->whole_pixels()) {
        const YuvSamples c(picture);
        const int subsampling = c.yshift ? TJSAMP_420 : TJSAMP_422;
        Planes planes;
        const bool full = picture.color.full_range;
        if (!planes.prepare(picture.width, picture.height, subsampling, full ? &c : nullptr))
            return {TAVI_RET_FAIL, "no memory for the planes of a %dx%d picture", picture.width, picture.height};
        expand(c.y, full ? kSame : kLumaOfLimited, planes, 0);
        expand(c.u, full ? kSame : kChromaOfLimited, planes, 1);
        expand(c.v, full ? kSame : kChromaOfLimited, planes, 2);
        result =
            tjCompressFromYUVPlanes(handle.get(), const_cast<const uint8_t**>(planes.data), picture.width,
                                    planes.pitch, picture.height, subsampling, &jpeg, &size, quality, kEncodeFlags);
    } else {
        const PlaneView& p = picture.plane[0];
        const int format = tj_format(*picture.format);
        result = tjCompress2(handle.get(), p.data, picture.width, static_cast<int>(p.pitch), picture.height, format,
                             &jpeg, &size, format == TJPF_GRAY ? TJSAMP_GRAY : TJSAMP_420, quality, kEncodeFlags);
    }
    const struct Owner {
        unsigned char* bytes;
        ~Owner() { tjFree(bytes); }
    } owner{jpeg};
    if (result != 0)
        return {TAVI_RET_FAIL, "%s", handle.error()};
    return output.write(jpeg, size) ? Refusal() : output.why();
}

bool is_jpeg(const uint8_t* head, size_t size) { return size >= 3 && std::memcmp(head, "\xff\xd8\xff", 3) == 0; }

} // namespace

const Signature kJpegSignature{"JPEG", PictureType::jpeg, is_jpeg,
                               [] { return static_cast<Decoder*>(new (std::nothrow) JpegDecoder); }};
const Ending kJpgEnding{".jpg", nearest_for_jpeg, encode_jpeg};
const Ending kJpegEnding{".jpeg", nearest_for_jpeg, encode_jpeg};

} // namespace tavi
