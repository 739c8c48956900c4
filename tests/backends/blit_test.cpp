// SPDX-License-Identifier: MIT
// The blit backend against a scripted engine: what is served, what is refused and why, and that nothing is lost or
// leaked when any call fails.
#include "backends/blit/tavi_blit.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "backends/blit/context_pool.h"
#include "backends/device_test.h"
#include "backends/scripted_engine.h"
#include "backends/software/tavi_image_libyuv.h"
#include "image/view.h"
#include "services/mem_hooks.h"
#include "support/descriptors.h"

using namespace tavi;
using test::Picture;
using test::ScriptedEngine;

namespace {

class Blit : public test::DeviceTest {
protected:
    ScriptedEngine engine;
    Picture src{TAVI_PIXEL_FORMAT_RGB888, 64, 32}, dst{TAVI_PIXEL_FORMAT_BGR888, 64, 32};
    Picture expected{TAVI_PIXEL_FORMAT_BGR888, 64, 32};
};

constexpr int kPadding = 0x10C080;

/// Letterbox by whoever takes it, and where it landed.
template <class... Last>
int letterbox(int (*by)(tavi_image_t*, tavi_image_t*, int, int, float*, float*, float*, float*, Last...),
              tavi_image_t& from, tavi_image_t& to, int position, float (&f)[4], Last... last) {
    return by(&from, &to, kPadding, position, &f[0], &f[1], &f[2], &f[3], last...);
}

tavi_rect_t rect_of(const Box& b) { return {b.x, b.y, b.x + b.width - 1, b.y + b.height - 1}; }

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
        EXPECT_TRUE(logged(c.reason)) << c.name << ": " << log;
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
    const Box whole{0, 0, 64, 48};
    const struct {
        tavi_pixel_format format;
        Box src, dst;
        int mode;
        bool multiplanar;
    } cases[] = {
        {TAVI_PIXEL_FORMAT_RGB888, whole, whole, 0, false},
        {TAVI_PIXEL_FORMAT_YUV420SP_NV12, whole, whole, 0, true},
        {TAVI_PIXEL_FORMAT_YUV420SP_NV12, {4, 2, 20, 20}, {10, 6, 20, 20}, 0, true},
        {TAVI_PIXEL_FORMAT_RGBA8888, {5, 3, 16, 16}, {0, 0, 16, 16}, 1, false},
        {TAVI_PIXEL_FORMAT_YUV420P_YV12, {0, 0, 32, 32}, {32, 16, 32, 32}, 2, false},
        {TAVI_PIXEL_FORMAT_BGR888, {1, 1, 1, 1}, {63, 47, 1, 1}, 3, true},
        {TAVI_PIXEL_FORMAT_GRAY8, {7, 0, 30, 30}, {1, 9, 30, 30}, 3, false},
        {TAVI_PIXEL_FORMAT_YUV422SP_NV16, {2, 5, 10, 6}, {4, 7, 10, 6}, 0, false},
    };
    for (const auto& c : cases) {
        ContextPool::instance().forget_engine();
        engine.multiplanar = c.multiplanar;
        Picture in(c.format, 64, 48), out(c.format, 64, 48);
        in.draw(), out.draw(2);
        std::vector<uint8_t> want = out.bytes();
        tavi_rect_t from = rect_of(c.src), to = rect_of(c.dst);
        ASSERT_EQ(tavi_image_convert_blit_with_crop(&in, &from, &out, &to, c.mode), 0) << log;
        const ImageView s = crop(make_view(in.data, c.format, 64, 48), c.src);
        const ImageView d = crop(make_view(want.data(), c.format, 64, 48), c.dst);
        for (int i = 0; i < d.planes(); ++i) {
            const PlaneView &p = s.plane[i], &q = d.plane[i];
            for (int y = 0; y < q.rows; ++y)
                for (int x = 0; x < q.cols; ++x)
                    std::memcpy(q.at(x, y), p.at(c.mode & 1 ? p.cols - 1 - x : x, c.mode & 2 ? p.rows - 1 - y : y),
                                static_cast<size_t>(q.step));
        }
        EXPECT_EQ(out.bytes(), want) << find_format(c.format)->name << " mode " << c.mode;
    }
}

// What the driver changes without a word, and jobs that fail, hang or lie. The stream is stopped before software
// writes: nothing comes after it.
TEST_F(Blit, RefusesWhatIsNotAsAskedFor) {
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
        int jobs = 0;
    } cases[] = {
        {"source format: the engine uses RGBP", pix(&Pix::pixelformat, V4L2_PIX_FMT_RGB565)},
        {"result size: the engine uses 32x32, 64x32 was asked for", pix(&Pix::width, 32, true)},
        {"source row length: the engine uses 256 bytes, the image has 192", pix(&Pix::bytesperline, 256)},
        {"source bytes", pix(&Pix::sizeimage, 9)},
        {"the engine may touch 1000000 bytes", pix(&Pix::sizeimage, 1000000)},
        {"source field", pix(&Pix::field, V4L2_FIELD_INTERLACED)},
        {"source colour range: the engine uses 2, 1 (full)", pix(&Pix::quantization, V4L2_QUANTIZATION_LIM_RANGE)},
        {"result rectangle: the engine uses (8 8)",
         [](ScriptedEngine& e) { e.adjust_box = [](v4l2_rect& r) { r.left += r.left, r.top += r.top; }; }},
        {"whole images only", [](ScriptedEngine& e) { e.selections = false; }},
        {"is no DMA buffer", [](ScriptedEngine& e) { e.clean = false; }},
        {"job not done", [](ScriptedEngine& e) { e.never_done = true; }, 1}, // writes until the stream is stopped
        {"error flag", [](ScriptedEngine& e) { e.job_error = true; }, 1},
        {"source buffer back: Resource temporarily", [](ScriptedEngine& e) { e.ready_too_early = POLLOUT; }, 1},
        {"result buffer back: Resource temporarily", [](ScriptedEngine& e) { e.ready_too_early = POLLIN; }, 1},
        {"source buffer back", [](ScriptedEngine& e) { e.ready_too_early = POLLNVAL; }, 1}, // closed by another
        {"begins at byte 16", [](ScriptedEngine& e) { e.multiplanar = true, e.data_offset = 16; }, 1},
    };
    src.draw();
    tavi_image_convert_libyuv(&src, &expected, 0);
    for (const auto& c : cases) {
        log.clear();
        const int before = open_descriptors();
        tavi_rect_t from{0, 0, 9, 9}, to{4, 4, 13, 13};
        const std::vector<uint8_t> old = dst.bytes();
        {
            ScriptedEngine one;
            c.make(one);
            EXPECT_NE(tavi_image_convert_blit_with_crop(&src, &from, &dst, &to, 0), 0) << c.reason;
            EXPECT_TRUE(logged(c.reason)) << c.reason << " in " << log;
            EXPECT_EQ(one.jobs, c.jobs) << c.reason;
            EXPECT_TRUE(c.jobs || dst.bytes() == old) << c.reason;
            tavi_image_convert_libyuv(&src, &dst, 0);
        }
        EXPECT_EQ(dst.bytes(), expected.bytes()) << c.reason;
        EXPECT_EQ(open_descriptors(), before) << c.reason;
    }
    // YUV: another matrix than BT.601 is told by the colour fields alone, and where it can be chosen it is.
    Picture nv12(TAVI_PIXEL_FORMAT_YUV420SP_NV12, 64, 32), other(TAVI_PIXEL_FORMAT_YUV420SP_NV12, 64, 32);
    engine.adjust_format = [](v4l2_format& f) {
        if (f.type == V4L2_BUF_TYPE_VIDEO_CAPTURE && !(f.fmt.pix.flags & V4L2_PIX_FMT_FLAG_SET_CSC))
            f.fmt.pix.ycbcr_enc = V4L2_YCBCR_ENC_709;
    };
    for (const bool chosen : {false, true}) {
        ContextPool::instance().forget_engine();
        engine.matrix_control = chosen;
        EXPECT_EQ(tavi_image_convert_blit(&nv12, &other, 0) == 0, chosen) << log;
    }
    EXPECT_TRUE(logged("result colour matrix: the engine uses 2, 1 (BT.601)")) << log;
}

TEST_F(Blit, NeverWorksOnMemoryThatIsNotTheImages) {
    tavi_image_t* clone = tavi_image_clone(&src);
    const UniqueFd twin(::dup(src.fd));
    const UniqueFd file(::memfd_create("read only", 0)); // no device memory: that cannot be opened again
    ASSERT_EQ(::ftruncate(file.get(), 64 * 32 * 3), 0);
    const UniqueFd reader(::open(("/proc/self/fd/" + std::to_string(file.get())).c_str(), O_RDONLY));
    const struct {
        const char* reason;
        std::function<void(tavi_image_t& s, tavi_image_t& d)> spoil;
        int mode = 0;
    } cases[] = {
        {"is not the start of the buffer", [&](tavi_image_t& s, tavi_image_t&) { s = *clone; }},
        {"is not the start of the buffer", [](tavi_image_t& s, tavi_image_t&) { s.data += 64 * 3, s.height = 16; }},
        {"the image has 786432", [](tavi_image_t&, tavi_image_t& d) { d.height = 4096; }},
        {"are one buffer", [&](tavi_image_t&, tavi_image_t& d) { d.data = nullptr, d.fd = twin.get(); }},
        {"for reading only", [&](tavi_image_t&, tavi_image_t& d) { d.data = nullptr, d.fd = reader.get(); }},
        {"1 or more, is needed", [](tavi_image_t& s, tavi_image_t&) { s.fd = 0; }},
        {"grey", [](tavi_image_t&, tavi_image_t& d) { d.pixel_format = TAVI_PIXEL_FORMAT_GRAY8; }},
        {"transform mode 4", [](tavi_image_t&, tavi_image_t&) {}, TAVI_IMAGE_TRANSFORM_ROTATE_90},
        // An engine that cannot be told what new alpha is.
        {"alpha", [](tavi_image_t&, tavi_image_t& d) { d.pixel_format = TAVI_PIXEL_FORMAT_RGBA8888, d.height = 16; }},
    };
    engine.alpha = false;
    for (const auto& c : cases) {
        tavi_image_t s = src, d = dst;
        c.spoil(s, d);
        log.clear();
        EXPECT_NE(tavi_image_convert_blit(&s, &d, c.mode), 0) << c.reason;
        EXPECT_TRUE(logged(c.reason)) << c.reason << " in " << log;
    }
    tavi_image_release(clone);
    free(clone);
    EXPECT_EQ(engine.jobs, 0);

    // Memory that the application mapped itself is no worse than the service's.
    void* map = ::mmap(nullptr, src.size, PROT_READ | PROT_WRITE, MAP_SHARED, src.fd, 0);
    tavi_image_t own = src;
    own.data = static_cast<uint8_t*>(map);
    EXPECT_EQ(tavi_image_convert_blit(&own, &dst, 0), 0) << log;
    ::munmap(map, src.size);
}

// Every call fails once with every errno that it may give, in a first conversion and in one that finds its
// context open. The result must be software's each time, nothing may stay open or mapped, and the next request
// must find the engine again.
TEST_F(Blit, AnyFailingCallIsServedBySoftware) {
    TaviLogger::GetInstance()->level = TAVI_LOG_ERROR;
    Picture small(TAVI_PIXEL_FORMAT_RGB888, 32, 16), result(TAVI_PIXEL_FORMAT_BGR888, 32, 64);
    Picture wanted(TAVI_PIXEL_FORMAT_BGR888, 32, 64); // the images are its first rows
    small.draw();
    tavi_image_t from = small.by_descriptor(), boxed = result.by_descriptor(), to = boxed, top = wanted;
    tavi_image_t tall = wanted;
    to.height = top.height = 16, boxed.height = tall.height = 24;
    float where[4];
    tavi_rect_t other{0, 0, 15, 12}, part{4, 2, 19, 14}, place{10, 1, 25, 13};
    const struct {
        const char* name;
        std::function<int()> by_engine, by_software;
    } requests[] = {
        {"whole", [&] { return tavi_image_convert(&from, &to, 0); },
         [&] { return tavi_image_convert_libyuv(&small, &top, 0); }},
        {"letterbox", [&] { return letterbox(tavi_image_convert_keep_ratio_by_method, from, boxed, 2, where, 0, 0); },
         [&] { return letterbox(tavi_image_convert_keep_ration, small, tall, 2, where); }},
        {"part", // around the rectangle nothing may change; software would fill it
         [&] {
             tavi_image_convert_blit_with_crop(&from, &other, &to, &place, 0);
             if (tavi_image_convert_blit_with_crop(&from, &part, &to, &place, 0) == 0)
                 return 0;
             for (uint32_t y = 1; y <= 13; ++y)
                 std::memcpy(result.data + (y * 32 + 10) * 3, wanted.data + (y * 32 + 10) * 3, 16 * 3);
             return 0;
         },
         [&] { return tavi_image_convert_blit_with_crop(&small, &part, &top, &place, 0); }},
    };
    is_blit_support(); // a failing probe is another test's: the dispatch asks once per process
    tavi_image_convert(&from, &to, 0);
    ContextPool::instance().drop_all();
    const int descriptors = open_descriptors(), mappings = engine.mappings;
    // Cold and warm until a call has failed in one of them, then once more.
    const auto repeat = [&](const auto& r, int nth, int error) {
        engine.detach();
        is_blit_support();
        engine.calls = 0;
        engine.fail_call = nth;
        engine.fail_errno = error;
        int calls = 0;
        for (bool after = false; !after && calls < 1000;) {
            after = nth < 0 ? calls > 0 : engine.calls > nth;
            engine.jobs = 0;
            std::memset(result.data, 0x5A, result.size);
            engine.dirty();
            EXPECT_TRUE(r.by_engine() == 0 && std::memcmp(result.data, wanted.data, wanted.size) == 0 &&
                        engine.mappings == mappings && (engine.jobs > 0 || (nth >= 0 && !after)))
                << r.name << (after ? " after call " : " call ") << nth << ' ' << engine.failed << ": "
                << std::strerror(error) << ", mapped " << engine.mappings - mappings << " jobs " << engine.jobs;
            calls = engine.calls;
        }
        ContextPool::instance().drop_all();
        return calls;
    };
    for (const auto& r : requests) {
        std::memset(wanted.data, 0x5A, wanted.size);
        ASSERT_EQ(r.by_software(), 0);
        const int calls = repeat(r, -1, 0);
        EXPECT_GT(calls, 30);
        for (int nth = 0; nth < calls && !HasFailure(); ++nth) {
            ContextPool::instance().forget_engine();
            engine.multiplanar = !engine.multiplanar; // by turns: both kinds make the same calls
            for (int error :
                 {EINTR, EAGAIN, EINVAL, EFAULT, ENOMEM, EIO, EBUSY, ENODEV, EACCES, EMFILE, ENOTTY, ETIMEDOUT})
                repeat(r, nth, error);
            EXPECT_EQ(open_descriptors(), descriptors) << r.name << ' ' << engine.failed;
        }
    }
}

// A record of a descriptor alone is mapped for the call, at another address each time: what is one buffer must be
// known by the buffer.
TEST_F(Blit, SoftwareKnowsOneBufferAtTwoAddresses) {
    const UniqueFd twin(::dup(dst.fd));
    tavi_image_t to = dst.by_descriptor();
    to.fd = twin.get();
    src.draw();
    ASSERT_EQ(tavi_image_convert_libyuv(&src, &expected, TAVI_IMAGE_TRANSFORM_FLIP_H), 0);
    for (tavi_image_t from : {tavi_image_t(dst), dst.by_descriptor()}) {
        dst.draw();
        from.pixel_format = TAVI_PIXEL_FORMAT_RGB888;
        ASSERT_EQ(tavi_image_convert(&from, &to, TAVI_IMAGE_TRANSFORM_FLIP_H), 0) << log;
        EXPECT_EQ(dst.bytes(), expected.bytes());
        tavi_rect_t part{0, 0, 31, 31};
        from.pixel_format = to.pixel_format;
        EXPECT_EQ(tavi_image_crop_and_resize_cpu(&from, &part, &to, 0), TAVI_RET_PARAM_ERR);
    }
    tavi_image_t region = dst;
    region.data += 64 * 3, region.height = 31;
    EXPECT_EQ(tavi_image_convert_libyuv(&region, &to, 0), TAVI_RET_PARAM_ERR);
    // A deep clone keeps the descriptor and has pixels of its own.
    tavi_image_t* clone = tavi_image_clone(&src);
    clone->fd = to.fd;
    EXPECT_EQ(tavi_image_convert_libyuv(clone, &to, TAVI_IMAGE_TRANSFORM_FLIP_H), 0);
    EXPECT_EQ(dst.bytes(), expected.bytes());
    tavi_image_release(clone);
    free(clone);
}

TEST_F(Blit, KeepsContextsAndLetsThemGo) {
    const auto convert = [&](const char* when, int opened) {
        const int opens = engine.opens, calls = engine.calls;
        EXPECT_EQ(tavi_image_convert_blit(&src, &dst, 0), 0) << when;
        EXPECT_EQ(engine.opens - opens, opened) << when;
        // Buffers in, wait, buffers out; the caches before and after.
        EXPECT_TRUE(opened || engine.calls - calls == 5 + 4 + 2) << when << ": " << engine.calls - calls;
    };
    is_blit_support();
    convert("first", 1);
    EXPECT_TRUE(logged("done by the engine /dev/video0: rgb 64x32 (0 0) 64x32 to bgr 64x32 (0 0) 64x32, mode 0, "
                       "context opened\n"))
        << log;
    convert("again", 0);
    EXPECT_TRUE(logged("context kept from before\n")) << log;
    const int opens = engine.opens, before = open_descriptors();
    for (int x = 0; x < 20; ++x) {
        tavi_rect_t from{x, 0, x + 31, 31}, to{0, 0, 63, 31};
        ASSERT_EQ(tavi_image_convert_blit_with_crop(&src, &from, &dst, &to, 0), 0);
    }
    EXPECT_EQ(engine.opens, opens) << "another rectangle opens nothing";
    for (uint32_t w = 4; w <= 64; w += 4) {
        Picture out(TAVI_PIXEL_FORMAT_RGB888, w, 32);
        ASSERT_EQ(tavi_image_convert_blit(&src, &out, 0), 0);
    } // each was dropped when the destination was freed
    EXPECT_LE(open_descriptors(), before);
    notify_mem_listener(MemEvent::allocation_failed, -1);
    convert("an allocation failed", 1);

    std::vector<std::unique_ptr<Picture>> many;
    for (uint32_t w = 4; w <= 64; w += 4) {
        many.push_back(std::make_unique<Picture>(TAVI_PIXEL_FORMAT_RGB888, w, 32));
        ASSERT_EQ(tavi_image_convert_blit(&src, many.back().get(), 0), 0);
    }
    const int with_buffers = open_descriptors();
    ContextPool::instance().drop_all();
    EXPECT_EQ(with_buffers - open_descriptors(), ContextPool::kMost);
    convert("all dropped", 1);
    const pid_t child = ::fork();
    if (child == 0) {
        convert("in a child", 1);
        ::_exit(HasFailure());
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    convert("the parent's goes on", 0);

    engine.nodes.clear(); // unplugged
    ContextPool::instance().drop_all();
    EXPECT_EQ(is_blit_support(), 1);
    EXPECT_NE(tavi_image_convert_blit(&src, &dst, 0), 0);
    EXPECT_EQ(is_blit_support(), 0);
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
            Picture in(c.format, c.sw, c.sh), by_engine(c.format, c.dw, c.dh), by_software(c.format, c.dw, c.dh);
            std::memset(in.data, 77, in.size); // flat: filters do not matter
            ASSERT_EQ(tavi_blit_keep_ratio_resize_check(&in, &by_engine, 0), 1) << log;
            const int opens = engine.opens, jobs = engine.jobs;
            float a[4], b[4];
            ASSERT_EQ(letterbox(tavi_image_convert_keep_ratio_by_blit, in, by_engine, position, a, 0), 0) << log;
            EXPECT_EQ(engine.opens, opens) << "the check left it open";
            EXPECT_EQ(engine.jobs, jobs + 1);
            ASSERT_EQ(letterbox(tavi_image_convert_keep_ration, in, by_software, position, b), 0);
            EXPECT_EQ(by_engine.bytes(), by_software.bytes()) << find_format(c.format)->name << " at " << position;
            EXPECT_EQ(std::memcmp(a, b, sizeof(a)), 0);
        }
    }
    dst.height = 16;
    float where[4];
    EXPECT_EQ(letterbox(tavi_image_convert_keep_ratio_by_blit, src, dst, 3, where, 0), TAVI_RET_PARAM_ERR);
    ContextPool::instance().forget_engine();
    engine.selections = false; // nobody would retry in software: the check must say so
    EXPECT_EQ(tavi_blit_keep_ratio_resize_check(&src, &dst, 0), 0);
    EXPECT_EQ(tavi_blit_keep_ratio_resize_check(&src, nullptr, 0), 0);
}

TEST_F(Blit, ThreadsShareAndLoseContexts) {
    TaviLogger::GetInstance()->level = TAVI_LOG_ERROR;
    engine.fail_errno = ENODEV;
    constexpr int kThreads = 12, kRounds = 15, kRequests = 5;
    for (const int fail_every : {0, 211}) {
        engine.fail_every = fail_every;
        std::atomic<int> wrong{0}, served{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&, t] {
                for (int round = 0; round < kRounds; ++round) {
                    Picture in(TAVI_PIXEL_FORMAT_RGB888, 32, 16), out(TAVI_PIXEL_FORMAT_BGR888, 32, 16);
                    in.draw(t);
                    for (int i = 0; i < kRequests; ++i) {
                        std::memset(out.data, 0, out.size);
                        if (tavi_image_convert_blit(&in, &out, 0) != 0)
                            continue;
                        ++served;
                        for (uint32_t p = 0; p < out.size; p += 3)
                            wrong += out.data[p] != in.data[p + 2] || out.data[p + 2] != in.data[p];
                    }
                    if (t == 1)
                        notify_mem_listener(MemEvent::allocation_failed, -1);
                    if (fail_every && !is_blit_support())
                        ContextPool::instance().forget_engine(); // plugged in again
                }
            });
        }
        for (std::thread& t : threads)
            t.join();
        EXPECT_EQ(wrong, 0);
        EXPECT_GT(served, kThreads);
    }
    engine.fail_every = 0;
    std::vector<ContextPool::Lease> all;
    tavi::Setup setup;
    setup.src = {src.pixel_format, 64, 32, {0, 0, 64, 32}};
    setup.dst = {dst.pixel_format, 64, 32, {0, 0, 64, 32}};
    for (int i = 0; i < ContextPool::kMost; ++i)
        all.push_back(ContextPool::instance().lease(setup));
    int result = -1;
    std::thread late([&] { result = tavi_image_convert_blit(&src, &dst, 0); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    all.clear();
    late.join();
    EXPECT_EQ(result, 0) << "busy is no refusal";
}

// The fields that are asked for of RGB and YUV. An explicit range of YUV would pass to an RGB result.
TEST(Layout, AsksForTheColoursOfEverySetting) {
    const struct {
        ColorSpace space;
        unsigned of_yuv, encoding;
    } cases[] = {{{Matrix::bt601, false}, V4L2_COLORSPACE_SMPTE170M, V4L2_YCBCR_ENC_601},
                 {{Matrix::bt601, true}, V4L2_COLORSPACE_JPEG, V4L2_YCBCR_ENC_601},
                 {{Matrix::bt709, false}, V4L2_COLORSPACE_REC709, V4L2_YCBCR_ENC_709},
                 {{Matrix::bt2020, true}, V4L2_COLORSPACE_BT2020, V4L2_YCBCR_ENC_BT2020}};
    for (const auto& c : cases)
        for (const auto format : {TAVI_PIXEL_FORMAT_YUV420SP_NV12, TAVI_PIXEL_FORMAT_RGB888}) {
            const bool rgb = format == TAVI_PIXEL_FORMAT_RGB888, full = c.space.full_range;
            const Side side{format, 64, 48, {}};
            EngineInfo able;
            able.sets_range.add(format);
            Layout layout(side, c.space);
            EXPECT_EQ(layout.color.colorspace, rgb ? unsigned{V4L2_COLORSPACE_SRGB} : c.of_yuv);
            EXPECT_EQ(layout.color.encoding, c.encoding);
            EXPECT_EQ(layout.color.range, full ? 1u : 0u);
            EXPECT_FALSE(compare_layout(kResult, side, c.space, layout, layout));
            layout.choose_colors(side, c.space, able);
            EXPECT_EQ(layout.color.range, rgb || full ? 1u : 2u);
            EXPECT_FALSE(compare_layout(kResult, side, c.space, layout, layout));
        }
}

TEST_F(Blit, AsksForTheColoursOfTheSetting) {
    ::setenv("TAVI_YUV", "bt709-full", 1);
    Picture in(TAVI_PIXEL_FORMAT_YUV420SP_NV12, 64, 48), by_engine(in.pixel_format, 64, 64);
    Picture by_software(in.pixel_format, 64, 64);
    std::memset(in.data, 77, in.size);
    is_blit_support();
    int asked = 0;
    engine.adjust_format = [&](v4l2_format& f) {
        const v4l2_pix_format& p = f.fmt.pix;
        asked += p.colorspace == V4L2_COLORSPACE_REC709 && p.ycbcr_enc == V4L2_YCBCR_ENC_709 &&
                 p.quantization == V4L2_QUANTIZATION_FULL_RANGE;
    };
    const auto by_blit = [&] { // nobody need ask where it landed
        return tavi_image_convert_keep_ratio_by_blit(&in, &by_engine, kPadding, 2, nullptr, nullptr, nullptr, nullptr,
                                                     0);
    };
    EXPECT_EQ(by_blit(), 0) << log;
    EXPECT_EQ(asked, 2);
    float where[4];
    EXPECT_EQ(letterbox(tavi_image_convert_keep_ration, in, by_software, 2, where), 0);
    EXPECT_EQ(by_engine.bytes(), by_software.bytes()) << "picture and padding";
    EXPECT_EQ(by_engine.data[0],
              yuv_of({kPadding >> 16, kPadding >> 8 & 255, kPadding & 255}, {Matrix::bt709, true}).y);
    const auto refused = [&](uint32_t v4l2_pix_format::*field, uint32_t answer, const char* reason) {
        ContextPool::instance().drop_all();
        engine.adjust_format = [=](v4l2_format& f) { f.fmt.pix.*field = answer; };
        EXPECT_NE(by_blit(), 0);
        EXPECT_TRUE(logged(reason)) << log;
    };
    refused(&v4l2_pix_format::ycbcr_enc, V4L2_YCBCR_ENC_601,
            "colour matrix: the engine uses 1, 2 (BT.709) was asked for");
    refused(&v4l2_pix_format::quantization, V4L2_QUANTIZATION_LIM_RANGE,
            "colour range: the engine uses 2, 1 (full) was asked for");
}

} // namespace
