// SPDX-License-Identifier: MIT
// The blit backend against a scripted engine: what is served, what is refused and why, and that nothing is lost or
// leaked when any call fails.
#include "backends/blit/tavi_blit.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "backends/blit/context_pool.h"
#include "backends/scripted_engine.h"
#include "backends/software/tavi_image_libyuv.h"
#include "image/view.h"
#include "services/mem_hooks.h"
#include "services/tavi_logger.h"
#include "services/tavi_mem.h"
#include "support/descriptors.h"

using namespace tavi;
using test::ScriptedEngine;

namespace {

class Blit : public testing::Test {
protected:
    void SetUp() override {
        TaviLogger::GetInstance()->level = TAVI_LOG_INFO;
        TaviLogger::GetInstance()->SetSink(
            [](void* user, tavi_log_level_t, const char*, const char*, const char* text) {
                static_cast<std::string*>(user)->append(text).append("\n");
            },
            &log);
    }
    void TearDown() override { TaviLogger::GetInstance()->SetSink(nullptr, nullptr); }
    std::string log;
    ScriptedEngine engine;
};

/// Device memory with a pattern in it that never repeats by whole rows.
struct Picture : tavi_image_t {
    Picture(tavi_pixel_format format, uint32_t w, uint32_t h, int seed = 1) : tavi_image_t{} {
        pixel_format = format;
        width = w;
        height = h;
        EXPECT_EQ(tavi_image_create_mem(this), 0);
        for (uint32_t i = 0; i < size; ++i)
            data[i] = static_cast<uint8_t>(i * 7 + i / 251 + static_cast<uint32_t>(seed) * 59);
    }
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;
    ~Picture() { tavi_image_destroy_mem(this); }
    std::vector<uint8_t> bytes() const { return {data, data + size}; }
};

TEST_F(Blit, TakesOnlyDevicesThatCanServe) {
    const struct {
        const char* name;
        std::function<void(ScriptedEngine&)> make;
        int usable;
        const char* reason;
    } cases[] = {
        {"single-planar", [](ScriptedEngine&) {}, 1, "engine: /dev/video0"},
        {"multi-planar", [](ScriptedEngine& e) { e.multiplanar = true; }, 1, "engine: /dev/video0"},
        {"not the first node", [](ScriptedEngine& e) { e.nodes = {7}; }, 1, "engine: /dev/video7"},
        {"no node", [](ScriptedEngine& e) { e.nodes.clear(); }, 0, "no engine"},
        {"camera", [](ScriptedEngine& e) { e.capabilities = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING; }, 0,
         "no memory-to-memory device"},
        {"does not stream", [](ScriptedEngine& e) { e.capabilities = V4L2_CAP_VIDEO_M2M; }, 0, "that streams"},
        {"encoder", [](ScriptedEngine& e) { e.compressed_results = true; }, 0, "source yes, result no"},
        {"no DMA buffers", [](ScriptedEngine& e) { e.dma_buffers = false; }, 0, "DMA buffers as source"},
        {"no permission", [](ScriptedEngine& e) { e.fail_call = 0, e.fail_errno = EACCES; }, 0, "Permission denied"},
    };
    for (const auto& c : cases) {
        log.clear();
        ScriptedEngine one;
        c.make(one);
        EXPECT_EQ(is_blit_support(), c.usable) << c.name;
        EXPECT_NE(log.find(c.reason), std::string::npos) << c.name << ": " << log;
        const int calls = one.calls;
        EXPECT_EQ(is_blit_support(), c.usable) << c.name;
        EXPECT_EQ(one.calls, calls) << c.name << ": asked the device again";
    }
    ContextPool::instance().forget_engine();
    ::setenv("TAVI_BLIT_DEVICE", "none", 1);
    EXPECT_EQ(is_blit_support(), 0);
}

// Every pixel of the destination is known: inside the rectangle the source's, outside what was there before.
TEST_F(Blit, ServesFormatsRectanglesAndFlips) {
    const tavi_rect_t whole{0, 0, 63, 47};
    const struct {
        tavi_pixel_format format;
        tavi_rect_t src, dst;
        int mode;
        bool multiplanar;
    } cases[] = {
        {TAVI_PIXEL_FORMAT_RGB888, whole, whole, 0, false},
        {TAVI_PIXEL_FORMAT_YUV420SP_NV12, whole, whole, 0, true},
        {TAVI_PIXEL_FORMAT_YUV420SP_NV12, {4, 2, 23, 21}, {10, 6, 29, 25}, 0, true},
        {TAVI_PIXEL_FORMAT_RGBA8888, {5, 3, 20, 18}, {0, 0, 15, 15}, 1, false},
        {TAVI_PIXEL_FORMAT_YUV420P_YV12, {0, 0, 31, 31}, {32, 16, 63, 47}, 2, false},
        {TAVI_PIXEL_FORMAT_BGR888, {1, 1, 1, 1}, {63, 47, 63, 47}, 3, true},
        {TAVI_PIXEL_FORMAT_GRAY8, {7, 0, 36, 29}, {1, 9, 30, 38}, 3, false},
        {TAVI_PIXEL_FORMAT_YUV422SP_NV16, {2, 5, 11, 10}, {4, 7, 13, 12}, 0, false},
    };
    for (const auto& c : cases) {
        ContextPool::instance().forget_engine();
        engine.multiplanar = c.multiplanar;
        Picture src(c.format, 64, 48, 1), dst(c.format, 64, 48, 2);
        std::vector<uint8_t> before = dst.bytes();
        tavi_rect_t from = c.src, to = c.dst;
        ASSERT_EQ(tavi_image_convert_blit_with_crop(&src, &from, &dst, &to, c.mode), 0) << log;
        const ImageView s = make_view(src.data, c.format, 64, 48), d = make_view(dst.data, c.format, 64, 48);
        const ImageView old = make_view(before.data(), c.format, 64, 48);
        int wrong = 0;
        for (int i = 0; i < d.planes(); ++i) {
            const PlaneRule& grid = d.format->plane[i];
            for (int y = 0; y < d.plane[i].rows; ++y) {
                for (int x = 0; x < d.plane[i].cols; ++x) {
                    const int in_x = x - (to.left >> grid.xshift), in_y = y - (to.top >> grid.yshift);
                    const int w = (to.right + 1 - to.left) >> grid.xshift,
                              h = (to.bottom + 1 - to.top) >> grid.yshift;
                    const uint8_t* want = old.plane[i].at(x, y);
                    if (in_x >= 0 && in_x < w && in_y >= 0 && in_y < h)
                        want = s.plane[i].at((from.left >> grid.xshift) + (c.mode & 1 ? w - 1 - in_x : in_x),
                                             (from.top >> grid.yshift) + (c.mode & 2 ? h - 1 - in_y : in_y));
                    wrong += std::memcmp(d.plane[i].at(x, y), want, static_cast<size_t>(grid.step)) != 0;
                }
            }
        }
        EXPECT_EQ(wrong, 0) << find_format(c.format)->name << " mode " << c.mode;
    }
}

TEST_F(Blit, RefusesWhatTheDriverChangesSilently) {
    using Pix = v4l2_pix_format;
    using Make = std::function<void(ScriptedEngine&)>;
    const auto pix = [](auto v4l2_pix_format::*field, auto value, bool result_only = false) -> Make {
        return [=](ScriptedEngine& e) {
            e.adjust_format = [=](v4l2_format& f) {
                if (!result_only || f.type == V4L2_BUF_TYPE_VIDEO_CAPTURE)
                    f.fmt.pix.*field = value;
            };
        };
    };
    const struct {
        const char* reason;
        Make make;
    } cases[] = {
        {"source format: the engine uses RGBP", pix(&Pix::pixelformat, V4L2_PIX_FMT_RGB565)},
        {"result size: the engine uses 32x32, 64x32 was asked for", pix(&Pix::width, 32, true)},
        {"source row length: the engine uses 256 bytes, the image has 192", pix(&Pix::bytesperline, 256)},
        {"source bytes", pix(&Pix::sizeimage, 9)},
        {"the engine may touch 1000000 bytes", pix(&Pix::sizeimage, 1000000)},
        {"source field", pix(&Pix::field, V4L2_FIELD_INTERLACED)},
        {"source colour range: the engine uses 2, 1 (full)", pix(&Pix::quantization, V4L2_QUANTIZATION_LIM_RANGE)},
        {"result rectangle: the engine uses (8 8)",
         [](ScriptedEngine& e) {
             e.adjust_box = [](v4l2_rect& r) { r.left = r.left == 4 ? 8 : r.left, r.top = r.top == 4 ? 8 : r.top; };
         }},
        {"whole images only", [](ScriptedEngine& e) { e.selections = false; }},
        {"is no DMA buffer", [](ScriptedEngine& e) { e.clean = false; }},
    };
    Picture src(TAVI_PIXEL_FORMAT_RGB888, 64, 32), dst(TAVI_PIXEL_FORMAT_RGB888, 64, 32, 2);
    for (const auto& c : cases) {
        log.clear();
        ContextPool::instance().forget_engine();
        const int before = open_descriptors();
        ScriptedEngine one;
        c.make(one);
        tavi_rect_t from{0, 0, 9, 9}, to{4, 4, 13, 13};
        const std::vector<uint8_t> old = dst.bytes();
        EXPECT_NE(tavi_image_convert_blit_with_crop(&src, &from, &dst, &to, 0), 0) << c.reason;
        EXPECT_NE(log.find(c.reason), std::string::npos) << c.reason << " in " << log;
        EXPECT_EQ(one.jobs, 0) << c.reason;
        EXPECT_EQ(dst.bytes(), old) << c.reason;
        EXPECT_EQ(open_descriptors(), before) << c.reason;
    }
    // YUV: another matrix than BT.601 is told by the colour fields alone.
    Picture yuyv(TAVI_PIXEL_FORMAT_YUV422_YUYV, 64, 32);
    ContextPool::instance().forget_engine();
    engine.adjust_format = [](v4l2_format& f) { f.fmt.pix.ycbcr_enc = V4L2_YCBCR_ENC_709; };
    EXPECT_NE(tavi_image_convert_blit(&src, &yuyv, 0), 0);
    EXPECT_NE(log.find("result colour matrix: the engine uses 2, 1 (BT.601)"), std::string::npos) << log;
}

TEST_F(Blit, NeverWorksOnMemoryThatIsNotTheImages) {
    Picture src(TAVI_PIXEL_FORMAT_RGB888, 64, 32), dst(TAVI_PIXEL_FORMAT_RGB888, 64, 32, 2);
    const auto refused = [&](tavi_image_t s, tavi_image_t d, const char* reason, int mode = 0) {
        log.clear();
        EXPECT_NE(tavi_image_convert_blit(&s, &d, mode), 0) << reason;
        EXPECT_NE(log.find(reason), std::string::npos) << reason << " in " << log;
    };
    tavi_image_t* clone = tavi_image_clone(&src);
    refused(*clone, dst, "is not the start of the buffer");
    tavi_image_release(clone);
    free(clone);
    tavi_image_t part = src;
    part.data += 64 * 3;
    part.height = 16;
    refused(part, dst, "is not the start of the buffer");
    tavi_image_t large = dst;
    large.height = 4096;
    refused(src, large, "the image has 786432");
    tavi_image_t twin = dst;
    twin.fd = ::dup(src.fd);
    twin.data = nullptr;
    refused(src, twin, "are one buffer");
    ::close(twin.fd);
    tavi_image_t none = src;
    none.fd = 0;
    refused(none, dst, "1 or more, is needed");
    tavi_image_t gray = dst;
    gray.pixel_format = TAVI_PIXEL_FORMAT_GRAY8;
    refused(src, gray, "grey");
    refused(src, dst, "transform mode 4", TAVI_IMAGE_TRANSFORM_ROTATE_90);
    Picture rgba(TAVI_PIXEL_FORMAT_RGBA8888, 64, 32);
    ContextPool::instance().forget_engine();
    engine.alpha = false;
    refused(src, rgba, "alpha"); // an engine that cannot be told what new alpha is
    EXPECT_EQ(engine.jobs, 0);

    // Memory that the application mapped itself is no worse than the service's.
    void* map = ::mmap(nullptr, src.size, PROT_READ | PROT_WRITE, MAP_SHARED, src.fd, 0);
    tavi_image_t own = src;
    own.data = static_cast<uint8_t*>(map);
    EXPECT_EQ(tavi_image_convert_blit(&own, &dst, 0), 0) << log;
    ::munmap(map, src.size);
}

// Every call fails once with every errno that it may give, in a first conversion and in one that finds its
// conversation open. The public function must give the software result each time, and the next one must find the
// engine again.
TEST_F(Blit, AnyFailingCallIsServedBySoftware) {
    TaviLogger::GetInstance()->level = TAVI_LOG_ERROR;
    Picture src(TAVI_PIXEL_FORMAT_RGB888, 64, 32), dst(TAVI_PIXEL_FORMAT_BGR888, 64, 32, 2);
    Picture expected(TAVI_PIXEL_FORMAT_BGR888, 64, 32, 3);
    ASSERT_EQ(tavi_image_convert_libyuv(&src, &expected, 0), 0);
    const auto convert = [&](const char* when) {
        std::memset(dst.data, 0, dst.size);
        ASSERT_EQ(tavi_image_convert(&src, &dst, 0), 0) << when;
        ASSERT_EQ(dst.bytes(), expected.bytes()) << when;
    };
    is_blit_support(); // a failing probe is another test's: the dispatch asks once per process
    convert("first");
    const int before = open_descriptors();
    for (const bool multiplanar : {false, true}) {
        engine.multiplanar = multiplanar;
        int calls_needed = 0;
        for (int nth = -1; nth < calls_needed; ++nth) {
            for (int error :
                 {EINTR, EAGAIN, EINVAL, EFAULT, ENOMEM, EIO, EBUSY, ENODEV, EACCES, EMFILE, ENOTTY, ETIMEDOUT}) {
                ContextPool::instance().forget_engine();
                is_blit_support();
                engine.calls = 0;
                engine.jobs = 0;
                engine.failed.clear();
                engine.fail_call = nth;
                engine.fail_errno = error;
                convert("cold");
                convert("warm");
                calls_needed = nth < 0 ? engine.calls : calls_needed;
                if (nth < 0) {
                    ASSERT_EQ(engine.jobs, 2);
                }
                convert("after");
                EXPECT_GE(engine.jobs, 2) << "call " << nth << " errno " << error;
            }
        }
        EXPECT_GT(calls_needed, 20);
    }
    ContextPool::instance().drop_all();
    EXPECT_LE(open_descriptors(), before);
}

TEST_F(Blit, JobsThatFailOrHangAreStoppedBeforeSoftwareWrites) {
    Picture src(TAVI_PIXEL_FORMAT_RGB888, 64, 32), dst(TAVI_PIXEL_FORMAT_BGR888, 64, 32, 2);
    Picture expected(TAVI_PIXEL_FORMAT_BGR888, 64, 32, 3);
    tavi_image_convert_libyuv(&src, &expected, 0);
    engine.never_done = true; // writes until the stream is stopped
    ASSERT_EQ(tavi_image_convert(&src, &dst, 0), 0);
    EXPECT_EQ(dst.bytes(), expected.bytes());
    EXPECT_EQ(engine.jobs, 1);
    EXPECT_NE(log.find("job not done"), std::string::npos) << log;
    engine.never_done = false;
    engine.job_error = true;
    ASSERT_EQ(tavi_image_convert(&src, &dst, 0), 0);
    EXPECT_EQ(dst.bytes(), expected.bytes());
    EXPECT_NE(log.find("error flag"), std::string::npos) << log;
}

TEST_F(Blit, KeepsConversationsAndLetsThemGo) {
    Picture src(TAVI_PIXEL_FORMAT_RGB888, 64, 32), dst(TAVI_PIXEL_FORMAT_BGR888, 64, 32, 2);
    ASSERT_EQ(tavi_image_convert_blit(&src, &dst, 0), 0);
    const int opens = engine.opens;
    int calls = engine.calls;
    ASSERT_EQ(tavi_image_convert_blit(&src, &dst, 0), 0);
    EXPECT_EQ(engine.calls - calls, 5) << "two buffers in, one wait, two buffers out";
    for (int x = 0; x < 20; ++x) {
        tavi_rect_t from{x, 0, x + 31, 31}, to{0, 0, 63, 31};
        ASSERT_EQ(tavi_image_convert_blit_with_crop(&src, &from, &dst, &to, 0), 0);
    }
    EXPECT_EQ(engine.opens, opens) << "another rectangle opens nothing";

    const int before = open_descriptors();
    for (uint32_t w = 4; w <= 64; w += 4) {
        Picture out(TAVI_PIXEL_FORMAT_RGB888, w, 32);
        ASSERT_EQ(tavi_image_convert_blit(&src, &out, 0), 0);
    } // each was dropped when the destination was freed
    EXPECT_LE(open_descriptors(), before);
    const auto opened_again = [&](const char* after) {
        const int was = engine.opens;
        ASSERT_EQ(tavi_image_convert_blit(&src, &dst, 0), 0);
        EXPECT_EQ(engine.opens - was, 1) << after;
    };
    notify_mem_listener(MemEvent::allocation_failed, -1);
    opened_again("an allocation failed");

    std::vector<std::unique_ptr<Picture>> many;
    for (uint32_t w = 4; w <= 64; w += 4) {
        many.push_back(std::make_unique<Picture>(TAVI_PIXEL_FORMAT_RGB888, w, 32));
        ASSERT_EQ(tavi_image_convert_blit(&src, many.back().get(), 0), 0);
    }
    const int with_buffers = open_descriptors();
    ContextPool::instance().drop_all();
    EXPECT_EQ(with_buffers - open_descriptors(), ContextPool::kMost);

    ASSERT_EQ(tavi_image_convert_blit(&src, &dst, 0), 0);
    const pid_t child = ::fork();
    if (child == 0) { // the child speaks to the engine by a conversation of its own
        const int was = engine.opens;
        const bool good = tavi_image_convert_blit(&src, &dst, 0) == 0 && engine.opens == was + 1;
        ::_exit(good ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    calls = engine.calls;
    ASSERT_EQ(tavi_image_convert_blit(&src, &dst, 0), 0);
    EXPECT_EQ(engine.calls - calls, 5) << "the parent's went on";
}

TEST_F(Blit, LetterboxIsSoftwaresToThePixel) {
    const struct {
        tavi_pixel_format format;
        uint32_t sw, sh, dw, dh;
    } cases[] = {{TAVI_PIXEL_FORMAT_RGB888, 64, 48, 100, 40},
                 {TAVI_PIXEL_FORMAT_YUV420SP_NV12, 64, 48, 50, 100},
                 {TAVI_PIXEL_FORMAT_YUV422_UYVY, 40, 64, 64, 64},
                 {TAVI_PIXEL_FORMAT_BGRA8888, 64, 48, 128, 96}};
    for (const auto& c : cases) {
        for (int position = 0; position < 3; ++position) {
            Picture src(c.format, c.sw, c.sh), by_engine(c.format, c.dw, c.dh, 2), expected(c.format, c.dw, c.dh, 3);
            std::memset(src.data, 77, src.size); // flat: filters do not matter
            ASSERT_EQ(tavi_blit_keep_ratio_resize_check(&src, &by_engine, 0), 1) << log;
            const int opens = engine.opens, jobs = engine.jobs;
            float a[4], b[4];
            ASSERT_EQ(tavi_image_convert_keep_ratio_by_blit(&src, &by_engine, 0x10C080, position, &a[0], &a[1], &a[2],
                                                            &a[3], 0),
                      0)
                << log;
            EXPECT_EQ(engine.opens, opens) << "the check left it open";
            EXPECT_EQ(engine.jobs, jobs + 1);
            ASSERT_EQ(
                tavi_image_convert2_libyuv(&src, &expected, 1, 0x10C080, position, &b[0], &b[1], &b[2], &b[3], 0), 0);
            EXPECT_EQ(by_engine.bytes(), expected.bytes()) << find_format(c.format)->name << " at " << position;
            EXPECT_EQ(std::memcmp(a, b, sizeof(a)), 0);
        }
    }
    Picture src(TAVI_PIXEL_FORMAT_RGB888, 64, 48), dst(TAVI_PIXEL_FORMAT_RGB888, 100, 40);
    EXPECT_EQ(tavi_image_convert_keep_ratio_by_blit(&src, &dst, 0, 3, nullptr, nullptr, nullptr, nullptr, 0),
              TAVI_RET_PARAM_ERR);
    ContextPool::instance().forget_engine();
    engine.selections = false; // nobody would retry in software: the check must say so
    EXPECT_EQ(tavi_blit_keep_ratio_resize_check(&src, &dst, 0), 0);
    EXPECT_EQ(tavi_blit_keep_ratio_resize_check(&src, nullptr, 0), 0);
}

TEST_F(Blit, ThreadsShareAndLoseConversations) {
    TaviLogger::GetInstance()->level = TAVI_LOG_ERROR;
    engine.fail_errno = ENODEV;
    std::atomic<int> wrong{0}, served{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < 30; ++round) {
                Picture src(TAVI_PIXEL_FORMAT_RGB888, 32, 16, t), dst(TAVI_PIXEL_FORMAT_BGR888, 32, 16, 2);
                for (int i = 0; i < 5; ++i) {
                    std::memset(dst.data, 0, dst.size);
                    if (tavi_image_convert_blit(&src, &dst, 0) != 0)
                        continue;
                    ++served;
                    for (uint32_t p = 0; p < dst.size; p += 3)
                        wrong += dst.data[p] != src.data[p + 2] || dst.data[p + 2] != src.data[p];
                }
                if (t == 0 && round % 10 == 5)
                    ContextPool::instance().forget_engine(); // as after ENODEV
                if (t == 1)
                    notify_mem_listener(MemEvent::allocation_failed, -1);
            }
        });
    }
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(served, 100);
}

} // namespace
