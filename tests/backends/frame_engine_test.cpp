// SPDX-License-Identifier: MIT
// Frames by the scripted engine: every byte of the destination's buffers, padding and neighbours included, is what
// software makes of the same request, and what an engine cannot be told is software's.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <vector>

#include <gtest/gtest.h>

#include "backends/blit/context_pool.h"
#include "backends/device_test.h"
#include "backends/scripted_engine.h"
#include "os/dma_sync.h"
#include "services/tavi_mem.h"
#include "tavi_frame.h"

using namespace tavi;
using test::ScriptedEngine;

namespace {

constexpr auto kNv12 = TAVI_PIXEL_FORMAT_YUV420SP_NV12;
constexpr auto kRgba = TAVI_PIXEL_FORMAT_RGBA8888;

/// A frame in device memory; a second buffer is there for chroma.
struct DeviceFrame : tavi_frame_t {
    DeviceFrame(tavi_pixel_format of, uint32_t w, uint32_t h, uint32_t alignment, int seed) : tavi_frame_t{} {
        format = of, width = w, height = h;
        size_t bytes = 0;
        EXPECT_EQ(tavi_frame_layout(this, alignment, &bytes), 0);
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(tavi_mem_alloc(static_cast<int>(bytes) + 8192, TAVI_MEM_TYPE_DEVICE, &memory[i]), 0);
            uint8_t* const p = start(i);
            for (uint32_t k = 0; k < memory[i].size; ++k)
                p[k] = static_cast<uint8_t>(seed < 0 ? 77 : k * 7 + k / 251 + static_cast<uint32_t>(seed + i) * 59);
        }
        for (tavi_plane_t& p : plane)
            p.fd = memory[0].fd, p.data = start(0) + p.offset;
    }
    DeviceFrame(const DeviceFrame&) = delete;
    DeviceFrame& operator=(const DeviceFrame&) = delete;
    ~DeviceFrame() {
        for (tavi_mem_record_t& m : memory)
            tavi_mem_free_by_virt_addr(m.virt_addr);
    }
    uint8_t* start(int i) const { return static_cast<uint8_t*>(memory[i].virt_addr); }
    void move(int i, uint32_t offset) { plane[i].data = start(0) + (plane[i].offset = offset); }
    void set_apart() { plane[1].fd = memory[1].fd, plane[1].offset = 0, plane[1].data = start(1); }
    std::string bytes() const {
        return std::string(start(0), start(0) + memory[0].size) + std::string(start(1), start(1) + memory[1].size);
    }

    tavi_mem_record_t memory[2];
};

struct FrameEngine : test::DeviceTest {
    ScriptedEngine engine;
    tavi_frame_options_t options{};
    tavi_frame_report_t report{};
};

using Change = std::function<void(DeviceFrame&)>;

void rows_of_its_own(v4l2_format& f) { // as most drivers: the width decides
    if (f.type == V4L2_BUF_TYPE_VIDEO_CAPTURE || f.type == V4L2_BUF_TYPE_VIDEO_OUTPUT)
        f.fmt.pix.bytesperline = f.fmt.pix.width * (f.fmt.pix.pixelformat == V4L2_PIX_FMT_NV12 ? 1 : 4);
}

TEST_F(FrameEngine, ServesPitchesOffsetsAndTwoBuffers) {
    const Change as_is = [](DeviceFrame&) {};
    const Change tall = [](DeviceFrame& f) { f.move(1, f.plane[0].pitch * (f.height + 8)); }; // as decoders
    const Change lower = [](DeviceFrame& f) { // the right lower part of a picture
        f.move(0, f.plane[0].pitch * 4 + 24);
        f.move(1, f.plane[0].pitch * (f.height + 4) + f.plane[1].pitch * 2 + 24);
    };
    const Change rgba_inside = [](DeviceFrame& f) { f.move(0, f.plane[0].pitch * 3 + 20); };
    const Change apart = &DeviceFrame::set_apart;
    const Change by_descriptor = [](DeviceFrame& f) {
        f.set_apart();
        for (tavi_plane_t& p : f.plane)
            p.data = nullptr;
    };
    const struct {
        const char* name;
        tavi_pixel_format format;
        uint32_t alignment;
        Change src, dst;
        tavi_box_t crop, place;
        int mode;
        bool selections = true, multiplanar = false, own_rows = false;
    } cases[] = {
        {"tight", kNv12, 1, as_is, as_is, {}, {}, 0, false},
        {"pitch asked for", kNv12, 64, as_is, as_is, {}, {}, 1, false},
        {"pitch asked for, planar",
         TAVI_PIXEL_FORMAT_YUV420P_YV12,
         64,
         [](DeviceFrame& f) {
             for (int i = 1; i < 3; ++i)
                 f.plane[i].pitch = 32, f.move(i, 64 * 24 + (i - 1) * 32 * 12);
         },
         [](DeviceFrame& f) {
             for (int i = 1; i < 3; ++i)
                 f.plane[i].pitch = 32, f.move(i, 64 * 24 + (i - 1) * 32 * 12);
         },
         {},
         {},
         2,
         false},
        {"pitch as a wider picture", kNv12, 64, as_is, as_is, {}, {}, 0, true, false, true},
        {"pitch as a wider picture, RGBA", kRgba, 64, as_is, rgba_inside, {}, {}, 3, true, false, true},
        {"chroma further behind", kNv12, 64, tall, tall, {}, {}, 0},
        {"parts of larger pictures", kNv12, 64, lower, lower, {4, 2, 20, 10}, {8, 4, 20, 10}, 0, true, true},
        {"two buffers", kNv12, 64, apart, apart, {}, {}, 0, false, true},
        {"two buffers into one", kNv12, 1, by_descriptor, as_is, {}, {2, 2, 36, 24}, 0, true, true},
        {"one buffer into two", kNv12, 1, as_is, by_descriptor, {0, 0, 20, 20}, {4, 4, 20, 20}, 3, true, true},
    };
    for (const auto& c : cases) {
        engine.selections = c.selections, engine.multiplanar = c.multiplanar;
        engine.apart = c.multiplanar, engine.spills = true;
        engine.adjust_format = c.own_rows ? rows_of_its_own : std::function<void(v4l2_format&)>();
        engine.detach();
        ContextPool::instance().forget_engine();
        const uint32_t more = c.place.width == 36 ? 4 : 0;
        DeviceFrame src(c.format, 36, 24, c.alignment, 1), dst(c.format, 36 + more, 24 + more, c.alignment, 2),
            wanted(c.format, 36 + more, 24 + more, c.alignment, 2);
        c.src(src), c.dst(dst), c.dst(wanted);
        options.crop = c.crop, options.place = c.place, options.transform = c.mode;
        options.engine = TAVI_ENGINE_NEVER;
        ASSERT_EQ(tavi_frame_convert(&src, &wanted, &options, &report), 0);
        EXPECT_STREQ(report.why_software, "options.engine=2 (never)");
        options.engine = TAVI_ENGINE_MUST;
        ASSERT_EQ(tavi_frame_convert(&src, &dst, &options, &report), 0) << c.name << ": " << log;
        EXPECT_TRUE(dst.bytes() == wanted.bytes()) << c.name;
        EXPECT_TRUE(report.by_engine == 1 && !*report.why_software) << c.name;
        EXPECT_STREQ(report.engine, "/dev/video0");
    }
}

// Refused before or by the engine, or failed by it: software's pixels, one reason, and no other engine's work where
// it must be the engine's.
TEST_F(FrameEngine, SoftwareServesTheRestAndSaysWhy) {
    using Frames = std::function<void(DeviceFrame & src, DeviceFrame & dst, FrameEngine & t)>;
    const struct {
        const char* why;
        Frames make;
        bool failed = false;
    } cases[] = {
        {"source row length: the engine uses 40 bytes, the image has 64",
         [](auto&, auto&, FrameEngine& t) {
             t.engine.selections = false;
             t.engine.adjust_format = rows_of_its_own;
         },
         true},
        {"source rectangle: the engine has whole images only",
         [](auto& s, auto&, FrameEngine& t) { t.engine.selections = false, s.move(1, 64 * 26); }, true},
        {"job failed", [](auto&, auto&, FrameEngine& t) { t.engine.job_error = true; }, true},
        {"dst.plane[1].fd=", [](auto&, auto& d, FrameEngine&) { d.set_apart(); }},
        {"src.plane[1].offset=1602: an engine has the plane at 1600",
         [](auto& s, auto&, FrameEngine&) { s.move(1, 64 * 25 + 2); }},
        {"src.plane[0].offset=48", [](auto& s, auto&, FrameEngine&) { s.move(0, 48), s.move(1, 64 * 24 + 48); }},
        {"src.plane[0].offset=192", // chroma samples that no picture in this buffer has
         [](auto& s, auto&, FrameEngine&) { s.move(0, 64 * 3), s.move(1, 64 * 28 + 64); }},
        {"dst.plane[1].pitch=72: 64 is needed", [](auto&, auto& d, FrameEngine&) { d.plane[1].pitch = 72; }},
        {"src.plane[0].pitch=66: a multiple of 4",
         [](auto& s, auto&, FrameEngine&) { s.plane[0].pitch = s.plane[1].pitch = 66, s.move(1, 66 * 24); }},
        {"src size=39x24", [](auto& s, auto&, FrameEngine&) { s.width = 39; }},
        {"is not where the buffer", [](auto& s, auto&, FrameEngine&) { s.plane[1].data += 64; }},
        {"are one buffer",
         [](auto& s, auto& d, FrameEngine&) { std::copy(d.plane, d.plane + 2, s.plane); }}, // in place
        {"the engine may touch", [](auto&, auto& d, FrameEngine&) { d.move(1, 64 * 160); }},
        {"dst.color=(1 0), src.color=(0 0): the engine keeps the source's",
         [](auto&, auto& d, FrameEngine&) { d.color.matrix = TAVI_MATRIX_BT709; }},
        {"options.filter=2", [](auto&, auto&, FrameEngine& t) { t.options.filter = TAVI_FILTER_BILINEAR; }},
        {"ratios below 16",
         [](auto&, auto&, FrameEngine& t) {
             t.options.crop = {0, 0, 2, 24};
         }},
        {"transform mode 4", [](auto&, auto&, FrameEngine& t) { t.options.transform = 4; }},
        {"src.plane[0].fd=0", [](auto& s, auto&, FrameEngine&) { s.plane[0].fd = 0; }},
        {"no engine", [](auto&, auto&, FrameEngine& t) { t.engine.nodes.clear(); }},
    };
    const tavi_frame_options_t plain{};
    for (const auto& c : cases) {
        DeviceFrame src(kNv12, 40, 24, 64, 1), dst(kNv12, 40, 24, 64, 2), wanted(kNv12, 40, 24, 64, 2);
        engine.selections = true, engine.job_error = false, engine.nodes = {0}, engine.adjust_format = nullptr;
        engine.detach();
        ContextPool::instance().forget_engine();
        options = plain;
        const tavi_frame_t unchanged = src;
        c.make(src, wanted, *this);
        options.engine = TAVI_ENGINE_NEVER;
        ASSERT_EQ(tavi_frame_convert(&src, &wanted, &options, nullptr), 0) << c.why << log;
        static_cast<tavi_frame_t&>(src) = unchanged;
        c.make(src, dst, *this);
        options.engine = TAVI_ENGINE_MUST;
        EXPECT_EQ(tavi_frame_convert(&src, &dst, &options, nullptr), TAVI_RET_UNSUPPORTED) << c.why;
        EXPECT_TRUE(logged("options.engine=1 (must): ")) << log;
        options.engine = TAVI_ENGINE_MAY;
        log.clear();
        ASSERT_EQ(tavi_frame_convert(&src, &dst, &options, &report), 0) << c.why << log;
        EXPECT_NE(std::strstr(report.why_software, c.why), nullptr) << c.why << " in " << report.why_software;
        EXPECT_TRUE(report.by_engine == 0 && !*report.engine) << c.why;
        EXPECT_EQ(logged("the engine failed, software does it: "), c.failed) << log;
        EXPECT_TRUE(dst.bytes() == wanted.bytes()) << c.why;
    }
}

TEST_F(FrameEngine, TheSettingHolds) {
    ::setenv("TAVI_USE_BLIT", "0", 1);
    DeviceFrame src(kNv12, 40, 24, 1, 1), dst(kNv12, 40, 24, 1, 2);
    ASSERT_EQ(tavi_frame_convert(&src, &dst, nullptr, &report), 0);
    EXPECT_STREQ(report.why_software, "the setting use_blit is 0");
    EXPECT_EQ(engine.opens, 0);
}

TEST_F(FrameEngine, AsksForTheColoursOfEachFrame) {
    struct Asked {
        uint32_t matrix, range;
    } asked[2];
    engine.adjust_format = [&](v4l2_format& f) {
        asked[f.type == V4L2_BUF_TYPE_VIDEO_CAPTURE] = {f.fmt.pix.ycbcr_enc, f.fmt.pix.quantization};
    };
    engine.matrix_control = true;
    options.engine = TAVI_ENGINE_MUST;
    DeviceFrame src(kNv12, 40, 24, 1, 1), dst(kNv12, 40, 24, 1, 2), rgb(TAVI_PIXEL_FORMAT_RGB888, 40, 24, 1, 2);
    src.color = {TAVI_MATRIX_BT709, TAVI_RANGE_FULL, TAVI_SITING_LEFT};
    dst.color = {TAVI_MATRIX_BT2020, TAVI_RANGE_LIMITED, TAVI_SITING_TOP_LEFT};
    rgb.color = {TAVI_MATRIX_BT2020, TAVI_RANGE_LIMITED, 0}; // says nothing
    ASSERT_EQ(tavi_frame_convert(&src, &dst, &options, nullptr), 0) << log;
    EXPECT_TRUE(asked[0].matrix == V4L2_YCBCR_ENC_709 && asked[0].range == V4L2_QUANTIZATION_FULL_RANGE);
    EXPECT_TRUE(asked[1].matrix == V4L2_YCBCR_ENC_BT2020 && asked[1].range == V4L2_QUANTIZATION_LIM_RANGE);
    ASSERT_EQ(tavi_frame_convert(&src, &rgb, &options, nullptr), 0) << log;
    EXPECT_TRUE(asked[0].matrix == V4L2_YCBCR_ENC_709 && asked[1].matrix == V4L2_YCBCR_ENC_709);
}

// Whatever call fails, the letterbox is software's to the byte, around the picture too, and nothing stays mapped.
TEST_F(FrameEngine, AnyFailingCallIsServedBySoftware) {
    TaviLogger::GetInstance()->level = TAVI_LOG_NONE;
    engine.multiplanar = engine.apart = engine.spills = true;
    DeviceFrame src(kNv12, 40, 24, 64, -1), dst(kNv12, 64, 80, 64, 2), wanted(kNv12, 64, 80, 64, 2); // flat
    src.set_apart(), dst.set_apart(), wanted.set_apart();
    const std::string before = dst.bytes();
    const int mappings = engine.mappings;
    for (tavi_plane_t& p : dst.plane)
        p.data = nullptr;
    options.place = {4, 6, 56, 72}, options.fit = TAVI_FIT_CONTAIN, options.pad_color = 0x10C080;
    options.engine = TAVI_ENGINE_NEVER;
    ASSERT_EQ(tavi_frame_convert(&src, &wanted, &options, nullptr), 0);
    options.engine = TAVI_ENGINE_MAY;
    // A new context, then one that is open; what the processor sees comes from memory afterwards.
    const auto repeat = [&](int nth, int error) {
        ContextPool::instance().drop_all();
        engine.detach();
        engine.calls = 0;
        for (const bool warm : {false, true}) {
            for (int i = 0; i < 2; ++i)
                std::memcpy(dst.start(i), before.data() + static_cast<size_t>(i) * dst.memory[0].size,
                            dst.memory[0].size);
            engine.dirty();
            engine.failed.clear();
            engine.jobs = 0, engine.fail_call = nth, engine.fail_errno = error;
            const int ret = tavi_frame_convert(&src, &dst, &options, &report);
            const int calls = engine.calls;
            engine.fail_call = -1;
            for (const tavi_mem_record_t& m : dst.memory)
                if (engine.failed != "ioctl 0") // the last words of a pass that nobody can repeat
                    discard_after_device(m.fd);
            engine.calls = calls;
            const bool unmapped = ret == TAVI_RET_FAIL && engine.failed == "mmap";
            EXPECT_TRUE((ret == 0 && dst.bytes() == wanted.bytes()) || unmapped)
                << engine.failed << ' ' << nth << warm;
            EXPECT_EQ(engine.mappings, mappings) << engine.failed;
            EXPECT_TRUE(nth >= 0 || (report.by_engine && engine.jobs == 1)) << report.why_software;
        }
        return engine.calls;
    };
    tavi_frame_convert(&src, &dst, &options, nullptr); // finds the engine
    const int calls = repeat(-1, 0);
    EXPECT_GT(calls, 30);
    for (int nth = 0; nth < calls && !HasFailure(); ++nth)
        for (const int error : {EINTR, EINVAL, EIO, ENODEV})
            repeat(nth, error);
}

} // namespace
