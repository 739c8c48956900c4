// SPDX-License-Identifier: MIT
// Encoded pictures in memory against the file routines and the codec's library: headers, frames of any pitch, sinks.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <turbojpeg.h>

#include "backends/file_bytes.h"
#include "frames/frame_memory.h"
#include "support/captured_log.h"
#include "tavi_frame.h"

namespace {

using namespace tavi::test;

constexpr int kUp = TAVI_CHROMA_ROUNDS_UP, kDown = TAVI_CHROMA_ROUNDS_DOWN;

Blob pixels_of(const FrameMemory& frame) { return text(frame.pixels()); }

void set(FrameMemory& frame, const Blob& pixels) {
    frame.fill([next = pixels.begin()](uint8_t& byte) mutable { byte = *next++; });
}

/// Decodes bytes that end at a fence.
int decode(const Blob& bytes, tavi_frame_t& frame, const tavi_decode_options_t* options = nullptr) {
    const FenceBuffer fenced(bytes.size());
    std::copy(bytes.begin(), bytes.end(), fenced.data());
    return tavi_frame_decode(fenced.data(), bytes.size(), &frame, options);
}

/// Takes bytes until `left` calls have come.
struct Sink {
    Blob bytes;
    int left = 1 << 30;
    tavi_sink_t c = {take, this};

    static int take(void* user, const void* bytes, size_t size) {
        Sink& self = *static_cast<Sink*>(user);
        if (--self.left < 0)
            return 7;
        const auto* from = static_cast<const uint8_t*>(bytes);
        self.bytes.insert(self.bytes.end(), from, from + size);
        return 0;
    }
};

Blob encoded(const tavi_frame_t& frame, int type, int quality = 0) {
    Sink sink;
    EXPECT_EQ(tavi_frame_encode(&frame, type, quality, &sink.c), 0);
    return sink.bytes;
}

/// One of each type, of colour and of grey.
std::vector<Blob> pictures(int width, int height) {
    std::vector<Blob> all;
    for (const int grey : {0, 1}) {
        const int channels = grey ? 1 : 3;
        FrameMemory source(grey ? 0 : 1, width, height, 5, kUp);
        set(source, smooth(width, height, channels));
        for (int type = TAVI_PICTURE_JPEG; type <= TAVI_PICTURE_PNM; ++type)
            all.push_back(encoded(source.frame, type));
    }
    return all;
}

Blob without(const Blob& jpeg, uint8_t marker) {
    Blob out(jpeg.begin(), jpeg.begin() + 2);
    for (size_t at = 2; at + 4 <= jpeg.size();) {
        if (jpeg[at + 1] == 0xda)
            return out.insert(out.end(), jpeg.begin() + at, jpeg.end()), out;
        const size_t length = 2 + (jpeg[at + 2] << 8 | jpeg[at + 3]);
        if (jpeg[at + 1] != marker)
            out.insert(out.end(), jpeg.begin() + at, jpeg.begin() + at + length);
        at += length;
    }
    return {};
}

/// Y, U and V as the codec's library has them, without the luma that it adds to odd sides.
Blob library_planes(const Blob& jpeg, int w, int h, int subsampling, int cw, int ch) {
    const int lw = tjPlaneWidth(0, w, subsampling), lh = tjPlaneHeight(0, h, subsampling);
    Blob all(tjBufSizeYUV2(w, 1, h, subsampling)), out;
    tjhandle handle = tjInitDecompress();
    EXPECT_EQ(tjDecompressToYUV2(handle, jpeg.data(), jpeg.size(), all.data(), w, 1, h, 0), 0);
    tjDestroy(handle);
    for (int y = 0; y < h; ++y)
        out.insert(out.end(), &all[size_t(y) * lw], &all[size_t(y) * lw] + w);
    out.insert(out.end(), &all[size_t(lh) * lw], &all[size_t(lh) * lw] + 2 * cw * ch);
    return out;
}

TEST(FrameDecode, GivesWhatReadingAFileGivesAtAnyPitch) {
    for (const auto& [w, h] : {std::pair{48, 32}, {37, 23}})
        for (const Blob& picture : pictures(w, h))
            for (int format = 0; format < 16; ++format)
                for (const auto& [to_w, to_h] : {std::pair{w, h}, {w / 5, h / 5}, {w + 9, h - 3}}) {
                    SCOPED_TRACE(testing::Message()
                                 << "bytes " << picture.size() << " format " << format << " " << to_w << "x" << to_h);
                    const Result file = read_bytes(picture, 3, wanted(format, to_w, to_h));
                    FrameMemory frame(format, to_w, to_h, 11, kDown);
                    ASSERT_EQ(decode(picture, frame.frame), 0);
                    ASSERT_TRUE(frame.intact());
                    Blob pixels = pixels_of(frame);
                    pixels.resize(file.pixels.size(), 128); // what odd sizes leave behind the last plane
                    ASSERT_EQ(pixels, file.pixels);
                }
}

// Samples are those of the codec's library where the frame has its grid, its range and its rounding.
TEST(FrameDecode, FillsTheGridOfOddSides) {
    for (const auto& [w, h] : {std::pair{37, 23}, {1, 1}, {33, 16}, {2, 7}})
        for (const auto& [subsampling, format] : {std::pair{TJSAMP_420, 5}, {TJSAMP_422, 9}}) {
            const Blob jpeg = make_jpeg(smooth(w, h, 3), w, h, TJPF_RGB, subsampling);
            const int cw = (w + 1) / 2, ch = subsampling == TJSAMP_420 ? (h + 1) / 2 : h;
            const size_t y = size_t(w) * h, c = size_t(cw) * ch;
            const Blob planes = library_planes(jpeg, w, h, subsampling, cw, ch);
            for (int layout = format; layout < format + 4; ++layout)
                for (int other : {TJSAMP_444, TJSAMP_411, subsampling}) {
                    SCOPED_TRACE(testing::Message() << w << "x" << h << " format " << layout << " from " << other);
                    FrameMemory frame(layout, w, h, 3, kUp);
                    frame.frame.color.range = TAVI_RANGE_FULL;
                    const Blob from = make_jpeg(smooth(w, h, 3), w, h, TJPF_RGB, other);
                    ASSERT_EQ(decode(from, frame.frame), 0);
                    ASSERT_TRUE(frame.intact());
                    const Blob got = pixels_of(frame);
                    ASSERT_EQ(got.size(), planes.size());
                    for (size_t i = 0; i < got.size(); ++i) {
                        const bool pairs = layout - format >= 2, swapped = (layout - format) % 2;
                        const size_t k = i < y ? 0 : i - y, part = pairs ? k % 2 : k / c, n = pairs ? k / 2 : k % c;
                        const uint8_t expected = planes[i < y ? i : y + (part != swapped ? c : 0) + n];
                        ASSERT_NEAR(got[i], expected, other == subsampling ? 0 : 20) << i;
                    }
                }
        }
    FrameMemory yuyv(TAVI_PIXEL_FORMAT_YUV422_YUYV, 5, 2, 1, kUp);
    ASSERT_EQ(decode(make_jpeg(smooth(5, 2, 3), 5, 2, TJPF_RGB, TJSAMP_422), yuyv.frame), 0);
    const Blob row = pixels_of(yuyv);
    EXPECT_EQ(row[10], row[8]);
    EXPECT_TRUE(yuyv.intact());
}

TEST(FrameDecode, TakesFramesOfMotionJpeg) {
    for (const int subsampling : {TJSAMP_422, TJSAMP_420, TJSAMP_GRAY}) {
        const bool grey = subsampling == TJSAMP_GRAY;
        const Blob jpeg = make_jpeg(smooth(64, 48, grey ? 1 : 3), 64, 48, grey ? TJPF_GRAY : TJPF_RGB, subsampling);
        const Blob bare = without(without(jpeg, 0xc4), 0xe0);
        ASSERT_LT(bare.size() + 200, jpeg.size());
        const Blob avi = Blob{0xff, 0xd8, 0xff, 0xe0, 0, 16} + text("AVI1") + Blob(10, 0) +
                         Blob(bare.begin() + 2, bare.end()) + Blob(1000, 0);
        for (const int format : {1, 7, 13}) {
            FrameMemory whole(format, 64, 48, 0, kUp), frame(format, 64, 48, 32, kUp), small(format, 12, 9, 1, kUp);
            ASSERT_EQ(decode(jpeg, whole.frame), 0);
            for (const Blob& bytes : {bare, avi}) {
                ASSERT_EQ(decode(bytes, frame.frame), 0) << tavi_last_error();
                EXPECT_EQ(pixels_of(frame), pixels_of(whole));
                ASSERT_EQ(decode(bytes, small.frame), 0);
                EXPECT_TRUE(frame.intact() && small.intact());
            }
        }
    }
}

TEST(FrameDecode, GivesMemoryToAnEmptyFrame) {
    tavi_mem_stats_t before, after;
    tavi_mem_get_stats(TAVI_MEM_TYPE_HEAP, &before);
    const Blob png = pictures(37, 23)[5]; // grey
    const Blob jpeg = make_jpeg(smooth(40, 16, 3), 40, 16, TJPF_RGB, TJSAMP_420);
    const Blob turned = Blob{0xff, 0xd8, 0xff, 0xe1, 0, 34} + text("Exif") + Blob{0, 0} + text("II*") +
                        Blob{0, 8, 0, 0, 0, 1, 0, 0x12, 1, 3, 0, 1, 0, 0, 0, 6, 0, 0, 0, 0, 0, 0, 0} +
                        Blob(jpeg.begin() + 2, jpeg.end());
    const struct {
        const Blob& bytes;
        int format, as_stored, ignore, width, height, to_format, to_width, to_height;
    } rows[] = {{png, 7, 0, 0, 0, 0, 7, 37, 23},    {png, 7, 1, 0, 0, 0, 0, 37, 23},
                {turned, 1, 0, 0, 0, 0, 1, 16, 40}, {turned, 0, 1, 1, 0, 0, 1, 40, 16},
                {turned, 5, 0, 0, 9, 7, 5, 9, 7},   {turned, 5, 0, 0, 20, 0, 5, 20, 40}};
    for (const auto& row : rows) {
        tavi_frame_t frame = {};
        frame.format = static_cast<tavi_pixel_format>(row.format);
        frame.width = static_cast<uint32_t>(row.width);
        frame.height = static_cast<uint32_t>(row.height);
        tavi_decode_options_t options = {};
        options.as_stored = row.as_stored;
        options.ignore_orientation = row.ignore;
        ASSERT_EQ(decode(row.bytes, frame, &options), 0) << tavi_last_error();
        EXPECT_EQ(frame.format, row.to_format);
        EXPECT_EQ(std::pair(frame.width, frame.height), std::pair(uint32_t(row.to_width), uint32_t(row.to_height)));
        FrameMemory lent(row.to_format, row.to_width, row.to_height, 0, kUp);
        ASSERT_EQ(decode(row.bytes, lent.frame, &options), 0);
        const Blob pixels = pixels_of(lent); // the planes that were given stand one behind the other
        EXPECT_EQ(Blob(frame.plane[0].data, frame.plane[0].data + pixels.size()), pixels);
        EXPECT_EQ(tavi_frame_release(&frame), 0);
    }
    tavi_frame_t frame = {}, untouched = {};
    Blob cut(jpeg.begin(), jpeg.end() - 100);
    EXPECT_EQ(decode(cut, frame), TAVI_RET_FAIL);
    EXPECT_EQ(std::memcmp(&frame, &untouched, sizeof frame), 0);
    tavi_mem_get_stats(TAVI_MEM_TYPE_HEAP, &after);
    EXPECT_EQ(after.live_count, before.live_count);
}

TEST(FrameProbe, TellsTheHeaderOrRefusesAtEveryLength) {
    const tavi_picture_info_t expected[] = {
        {1, 37, 23, 3, 8, 1, 2, 2, TAVI_PIXEL_FORMAT_RGB888, {}},
        {2, 37, 23, 3, 8, 1, 1, 1, TAVI_PIXEL_FORMAT_RGB888, {}},
        {3, 37, 23, 3, 8, 1, 1, 1, TAVI_PIXEL_FORMAT_RGB888, {}},
        {4, 37, 23, 3, 8, 1, 1, 1, TAVI_PIXEL_FORMAT_RGB888, {}},
        {1, 37, 23, 1, 8, 1, 1, 1, TAVI_PIXEL_FORMAT_GRAY8, {}},
        {2, 37, 23, 1, 8, 1, 1, 1, TAVI_PIXEL_FORMAT_GRAY8, {}},
        {3, 37, 23, 1, 8, 1, 1, 1, TAVI_PIXEL_FORMAT_GRAY8, {}},
        {4, 37, 23, 1, 8, 1, 1, 1, TAVI_PIXEL_FORMAT_GRAY8, {}},
        {1, 37, 23, 3, 8, 1, 4, 1, TAVI_PIXEL_FORMAT_RGB888, {}},
        {3, 2, 1, 3, 6, 1, 1, 1, TAVI_PIXEL_FORMAT_RGB888, {}},
        {4, 2, 1, 1, 10, 1, 1, 1, TAVI_PIXEL_FORMAT_GRAY16, {}},
    };
    std::vector<Blob> all = pictures(37, 23);
    all.push_back(make_jpeg(smooth(37, 23, 3), 37, 23, TJPF_RGB, TJSAMP_411));
    all.push_back(text("BM") + Blob{70, 0, 0, 0, 0, 0, 0, 0, 66, 0, 0, 0, 40, 0, 0, 0, 2, 0, 0, 0, 1, 0} +
                  Blob{0, 0, 1, 0, 16, 0, 3} + Blob(23, 0) + Blob{0, 0xf8, 0, 0, 0xe0, 7, 0, 0, 0x1f, 0, 0, 0} +
                  Blob(4, 9));
    all.push_back(text("P5 2 1 1000\n") + Blob{1, 2, 3, 4});
    ASSERT_EQ(all.size(), std::size(expected));
    tavi_log_set_level(TAVI_LOG_NONE);
    for (size_t i = 0; i < all.size(); ++i) {
        size_t least = 0;
        for (size_t size = 1; size <= all[i].size(); ++size) {
            const FenceBuffer bytes(size);
            std::copy_n(all[i].begin(), size, bytes.data());
            tavi_picture_info_t info, untouched;
            std::memset(&info, 0xee, sizeof info);
            untouched = info;
            const int ret = tavi_frame_probe(bytes.data(), size, &info);
            ASSERT_TRUE(ret == 0 || ret == TAVI_RET_FAIL || (ret == TAVI_RET_UNSUPPORTED && size < 8)) << i;
            ASSERT_TRUE(ret == 0 || least == 0) << "picture " << i << " is known by " << least << " bytes";
            ASSERT_EQ(std::memcmp(&info, ret == 0 ? &expected[i] : &untouched, sizeof info), 0) << i << ' ' << size;
            least = ret == 0 && least == 0 ? size : least;
            tavi_frame_t frame = {};
            if (size < all[i].size() && decode(Blob(all[i].begin(), all[i].begin() + size), frame) == 0) {
                ASSERT_EQ(info.type, TAVI_PICTURE_PNG) << "only the end of a PNG has no pixels";
                tavi_frame_release(&frame);
            }
        }
        EXPECT_TRUE(least > 0 && least < 1100) << i << ' ' << least;
    }
    tavi_log_set_level(TAVI_LOG_WARN);
}

TEST(FrameEncode, WritesTheBytesOfAFileFromAnyPitch) {
    const std::pair<int, const char*> types[] = {{1, ".jpg"}, {2, ".png"}, {3, ".bmp"}, {4, ".ppm"}, {4, ".pgm"}};
    const Blob photo = make_jpeg(smooth(37, 23, 3), 37, 23, TJPF_RGB, TJSAMP_444);
    for (int format = 0; format < 16; ++format)
        for (const auto& [type, ending] : types) {
            const bool grey = format == 0 || format == 15;
            if (type == TAVI_PICTURE_PNM && grey != (std::string(ending) == ".pgm"))
                continue;
            SCOPED_TRACE(testing::Message() << "format " << format << ending);
            FrameMemory frame(format, 37, 23, 7, kDown);
            ASSERT_EQ(decode(photo, frame.frame), 0);
            Blob pixels = pixels_of(frame);
            pixels.push_back(128);
            tavi_image_t img = wanted(format, 37, 23);
            img.data = pixels.data();
            img.size = static_cast<uint32_t>(pixels.size());
            const TempFile file(ending);
            ASSERT_EQ(tavi_image_write_cpu(file.path(), &img), 0);
            EXPECT_EQ(encoded(frame.frame, type), text(file.read()));
        }
}

TEST(FrameEncode, KeepsOddChromaAndHasQualities) {
    FrameMemory yuv(TAVI_PIXEL_FORMAT_YUV420P_YU12, 37, 23, 9, kUp),
        back(TAVI_PIXEL_FORMAT_YUV420P_YU12, 37, 23, 0, kUp);
    yuv.frame.color.range = back.frame.color.range = TAVI_RANGE_FULL;
    ASSERT_EQ(decode(make_jpeg(smooth(37, 23, 3), 37, 23, TJPF_RGB, TJSAMP_420), yuv.frame), 0);
    size_t smaller = 0;
    int error = 256;
    for (const int quality : {1, 30, 80, 100}) {
        const Blob jpeg = encoded(yuv.frame, TAVI_PICTURE_JPEG, quality);
        EXPECT_GT(jpeg.size(), smaller);
        smaller = jpeg.size();
        ASSERT_EQ(decode(jpeg, back.frame), 0);
        const Blob a = pixels_of(yuv), b = pixels_of(back);
        int worst = 0;
        for (size_t i = 0; i < a.size(); ++i)
            worst = std::max(worst, std::abs(a[i] - b[i]));
        EXPECT_LE(worst, error);
        error = worst;
    }
    EXPECT_LE(error, 3);
}

TEST(FrameEncode, EndsWhenTheSinkRefuses) {
    FrameMemory frame(1, 64, 48, 1, kUp);
    set(frame, smooth(64, 48, 3));
    for (int type = TAVI_PICTURE_JPEG; type <= TAVI_PICTURE_PNM; ++type) {
        const Blob all = encoded(frame.frame, type);
        for (int calls = 0;; ++calls) {
            CapturedLog log;
            Sink sink;
            sink.left = calls;
            const int ret = tavi_frame_encode(&frame.frame, type, 0, &sink.c);
            EXPECT_TRUE(std::equal(sink.bytes.begin(), sink.bytes.end(), all.begin()));
            if (sink.left >= 0) {
                EXPECT_EQ(ret, 0);
                break;
            }
            EXPECT_EQ(ret, TAVI_RET_FAIL);
            EXPECT_EQ(sink.left, -1) << "asked again";
            ASSERT_EQ(log.lines.size(), 1u);
            EXPECT_EQ(log.lines[0].message, "cannot encode a picture: the sink answers 7 after " +
                                                std::to_string(sink.bytes.size()) + " bytes");
        }
    }
}

TEST(FrameFiles, RefuseByName) {
    const Blob png = pictures(4, 4)[1];
    FrameMemory lent(1, 4, 4, 2, kUp), pitch(7, 4, 4, 0, kUp), format(1, 4, 4, 0, kUp);
    pitch.frame.plane[1].pitch = 3;
    format.frame.format = static_cast<tavi_pixel_format>(16);
    tavi_decode_options_t small = {}, turn = {}, stored = {}, later = {};
    small.max_pixels = 15, turn.ignore_orientation = 2, stored.as_stored = -1, later.reserved[7] = 1;
    Sink sink;
    const tavi_sink_t nowhere = {};
    tavi_picture_info_t info;
    const auto decode_with = [&](tavi_frame_t* frame, const tavi_decode_options_t* options) {
        return tavi_frame_decode(png.data(), png.size(), frame, options);
    };
    constexpr int kParam = TAVI_RET_PARAM_ERR, kNot = TAVI_RET_UNSUPPORTED;
    expect_refused(kParam, "bytes=", [&] { return tavi_frame_probe(nullptr, 4, &info); });
    expect_refused(kParam, "size=0", [&] { return tavi_frame_probe("", 0, &info); });
    expect_refused(kParam, "info", [&] { return tavi_frame_probe(png.data(), png.size(), nullptr); });
    expect_refused(kNot, "first bytes", [&] { return tavi_frame_probe("GIF89a", 6, &info); });
    expect_refused(kParam, "bytes=", [&] { return tavi_frame_decode(nullptr, 4, &lent.frame, nullptr); });
    expect_refused(kParam, "frame", [&] { return decode_with(nullptr, nullptr); });
    expect_refused(kNot, "frame.format=16", [&] { return decode_with(&format.frame, nullptr); });
    expect_refused(kParam, "plane[1].pitch=3", [&] { return decode_with(&pitch.frame, nullptr); });
    expect_refused(kNot, "4 x 4; allowed are 15 pixels (max_pixels)",
                   [&] { return decode_with(&lent.frame, &small); });
    expect_refused(kParam, "ignore_orientation=2", [&] { return decode_with(&lent.frame, &turn); });
    expect_refused(kParam, "as_stored=-1", [&] { return decode_with(&lent.frame, &stored); });
    expect_refused(kParam, "options.reserved", [&] { return decode_with(&lent.frame, &later); });
    Blob both = png + Blob(64, 0);
    tavi_frame_t inside = lent.frame;
    inside.plane[0].data = both.data() + png.size() - 1;
    expect_refused(kParam, "overlap", [&] { return tavi_frame_decode(both.data(), png.size(), &inside, nullptr); });
    inside.plane[0].data++;
    EXPECT_EQ(tavi_frame_decode(both.data(), png.size(), &inside, nullptr), 0);
    expect_refused(kParam, "sink", [&] { return tavi_frame_encode(&lent.frame, 1, 0, nullptr); });
    expect_refused(kParam, "sink", [&] { return tavi_frame_encode(&lent.frame, 1, 0, &nowhere); });
    expect_refused(kParam, "frame", [&] { return tavi_frame_encode(nullptr, 1, 0, &sink.c); });
    for (const int type : {0, 5})
        expect_refused(kParam, "allowed are 1 to 4",
                       [&] { return tavi_frame_encode(&lent.frame, type, 0, &sink.c); });
    for (const auto& [type, quality] : {std::pair{1, -1}, {1, 101}, {2, 50}})
        expect_refused(kParam, "quality=", [&] { return tavi_frame_encode(&lent.frame, type, quality, &sink.c); });
    EXPECT_TRUE(sink.bytes.empty());
    EXPECT_TRUE(lent.intact() && pixels_of(lent) == Blob(48, 0xA5)); // nothing was written
    tavi_log_set_level(TAVI_LOG_NONE);
    CapturedLog log;
    EXPECT_EQ(decode_with(&lent.frame, &small), kNot);
    EXPECT_NE(std::string(tavi_last_error()).find("max_pixels"), std::string::npos);
    EXPECT_TRUE(log.lines.empty());
}

} // namespace
