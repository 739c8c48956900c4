// SPDX-License-Identifier: MIT
// The blit backend and device memory on the kernel's own devices: in the test machine vim2m, vicodec, the DMA heaps
// and udmabuf. Skipped where there is no engine, except where one is expected.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include <gtest/gtest.h>

#include "backends/blit/context_pool.h"
#include "backends/blit/tavi_blit.h"
#include "backends/device_test.h"
#include "backends/software/tavi_image_libyuv.h"
#include "os/dma_sync.h"
#include "services/tavi_logger.h"
#include "services/tavi_mem.h"

using namespace tavi;
using test::DeviceTest;
using test::Picture;

namespace {

std::string expected() {
    const char* text = std::getenv("TAVI_EXPECT_ENGINE");
    return text ? text : "";
}

class Engine : public DeviceTest {
protected:
    void SetUp() override {
        DeviceTest::SetUp();
        present = is_blit_support();
        if (expected() == "vim2m")
            ASSERT_TRUE(present) << log;
        else if (!present)
            GTEST_SKIP() << log;
    }
    bool present = false;
};

/// Colours that change slowly, so that where chroma is sampled matters little.
void draw_slopes(Picture& p) {
    const DmaSync pass(p.fd, Access::write);
    for (uint32_t y = 0; y < p.height; ++y) {
        for (uint32_t x = 0; x < p.width; ++x) {
            const uint32_t c[3] = {x * 255 / p.width, y * 255 / p.height, 255 - (x + y) * 255 / (p.width + p.height)};
            for (uint32_t k = 0; k < 3; ++k)
                p.data[(y * p.width + x) * 3 + k] = static_cast<uint8_t>(c[k]);
        }
    }
}

uint32_t source_of(const Picture& p) {
    tavi_mem_record_t record{};
    tavi_mem_get_record_by_virt_addr(p.data, 0, &record);
    return record.flags;
}

int worst_difference(const tavi_image_t& a, const tavi_image_t& b) {
    const DmaSync pass(a.fd, Access::read);
    int worst = 0;
    for (int i = 0; i < tavi_image_get_size(const_cast<tavi_image_t*>(&a)); ++i)
        worst = std::max(worst, std::abs(a.data[i] - b.data[i]));
    return worst;
}

TEST_F(Engine, CodecsAndOthersAreNotTaken) {
    int codecs = 0;
    visit_engines(
        nullptr,
        [](const EngineInfo& info, const char* why_not, void* user) {
            if (std::strcmp(info.driver, "vicodec") == 0) {
                ++*static_cast<int*>(user);
                EXPECT_NE(why_not, nullptr) << info.path;
            }
            return true;
        },
        &codecs);
    if (expected() == "vim2m") {
        EXPECT_GE(codecs, 2);
        EXPECT_TRUE(logged("vim2m")) << log;
    }
}

TEST_F(Engine, WholeRequestsAgreeWithSoftware) {
    constexpr auto kRgb = TAVI_PIXEL_FORMAT_RGB888, kBgr = TAVI_PIXEL_FORMAT_BGR888;
    const struct {
        tavi_pixel_format from, to;
        uint32_t sw, sh, dw, dh;
        int mode;
        int allowed; ///< rounding, and for scaling the slope of the picture: the engine takes the nearest pixel
        const char* reason = nullptr; ///< of software's, for what vim2m lacks
    } cases[] = {
        {kRgb, kBgr, 640, 480, 640, 480, 0, 0},
        {kBgr, kRgb, 320, 240, 320, 240, 1, 0},
        {kRgb, kRgb, 320, 240, 320, 240, 2, 0},
        {kBgr, kBgr, 64, 48, 64, 48, 3, 0},
        {kRgb, kBgr, 640, 480, 320, 240, 0, 2},
        {kBgr, kRgb, 160, 120, 320, 240, 0, 5},
        {kRgb, TAVI_PIXEL_FORMAT_YUV422_YUYV, 640, 480, 640, 480, 0, 3},
        {kBgr, TAVI_PIXEL_FORMAT_YUV422_YUYV, 320, 240, 320, 240, 0, 3},
        {TAVI_PIXEL_FORMAT_YUV420SP_NV12, kRgb, 64, 48, 64, 48, 0, 0, "source format"},
        {kRgb, TAVI_PIXEL_FORMAT_RGBA8888, 64, 48, 64, 48, 0, 0, "destination format"},
        {kRgb, kBgr, 16, 16, 64, 48, 0, 0, "source size: the engine uses"},
        {kRgb, kBgr, 640, 480, 1280, 720, 0, 0, "result size: the engine uses"},
    };
    const bool vim2m = logged("vim2m");
    for (const char* heap : {"", "system", "none"}) {
        ::setenv("TAVI_DMA_HEAP", heap, 1);
        for (const auto& c : cases) {
            if (c.reason && !vim2m)
                continue;
            Picture src(c.from, c.sw, c.sh), dst(c.to, c.dw, c.dh), want(c.to, c.dw, c.dh, TAVI_MEM_TYPE_HEAP);
            c.reason ? static_cast<void>(src.draw()) : draw_slopes(src);
            for (int repeat = 0; repeat < 2; ++repeat) { // a new context, then one that is open
                log.clear();
                ASSERT_EQ(tavi_image_convert(&src, &dst, c.mode), 0) << log;
                // What 6.1 makes of a memfd cannot be read by this driver: software serves it, and says why.
                const bool importable =
                    source_of(src) != TAVI_MEM_SOURCE_MEMFD && source_of(src) != TAVI_MEM_SOURCE_UDMABUF;
                EXPECT_TRUE(logged(c.reason ? c.reason : "done by the engine") || !importable) << log;
                EXPECT_TRUE(logged("done by the engine") || logged("refused: ")) << log;
                ASSERT_EQ(tavi_image_convert_libyuv(&src, &want, c.mode), 0);
                EXPECT_LE(worst_difference(dst, want), c.allowed)
                    << "format " << c.from << " to " << c.to << ' ' << c.sw << " to " << c.dw << " mode " << c.mode
                    << " heap '" << heap << "' source " << source_of(src);
            }
        }
    }
}

double seconds(clockid_t clock) {
    timespec t{};
    ::clock_gettime(clock, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

TEST_F(Engine, PrintsWhatAnOpenContextSaves) {
    TaviLogger::GetInstance()->level = TAVI_LOG_ERROR;
    Picture src(TAVI_PIXEL_FORMAT_RGB888, 32, 32), dst(TAVI_PIXEL_FORMAT_BGR888, 32, 32);
    double best[2][2] = {{1e9, 1e9}, {1e9, 1e9}}; // [open, anew][wall, processor]
    for (int i = 0; i < 200; ++i) {
        for (const int anew : {0, 1}) {
            if (anew)
                ContextPool::instance().drop_all();
            const double wall = seconds(CLOCK_MONOTONIC), processor = seconds(CLOCK_PROCESS_CPUTIME_ID);
            ASSERT_EQ(tavi_image_convert_blit(&src, &dst, 0), 0);
            best[anew][0] = std::min(best[anew][0], seconds(CLOCK_MONOTONIC) - wall);
            best[anew][1] = std::min(best[anew][1], seconds(CLOCK_PROCESS_CPUTIME_ID) - processor);
        }
    }
    std::printf("BENCH 32x32 RGB888 to BGR888, least of 200: open %.0f us (processor %.0f), anew %.0f us (processor "
                "%.0f); processor ratio 1 : %.1f\n",
                best[0][0] * 1e6, best[0][1] * 1e6, best[1][0] * 1e6, best[1][1] * 1e6, best[1][1] / best[0][1]);
}

// Without permission for the nodes everything works, in software and with memory that no engine can import.
class WithoutPermission : public DeviceTest {};

TEST_F(WithoutPermission, SoftwareServes) {
    if (expected() != "no permission")
        GTEST_SKIP();
    EXPECT_EQ(is_blit_support(), 0);
    EXPECT_TRUE(logged("/dev/video0 is not used: open: Permission denied")) << log;
    Picture src(TAVI_PIXEL_FORMAT_RGB888, 64, 48), dst(TAVI_PIXEL_FORMAT_BGR888, 64, 48);
    EXPECT_EQ(source_of(src), uint32_t{TAVI_MEM_SOURCE_MEMFD});
    draw_slopes(src);
    EXPECT_EQ(tavi_image_convert(&src, &dst, 0), 0);
    EXPECT_EQ(dst.data[2], src.data[0]);
    tavi_mem_record_t record{};
    EXPECT_EQ(tavi_mem_alloc(4096, TAVI_MEM_TYPE_CONTIGUOUS, &record), TAVI_RET_FAIL);
}

} // namespace
