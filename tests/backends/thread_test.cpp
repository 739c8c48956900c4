// SPDX-License-Identifier: MIT
// Sixteen threads do everything at once.
#include <atomic>
#include <thread>

#include "backends/device_test.h"
#include "services/tavi_mem.h"
#include "support/temp_file.h"

namespace {

constexpr int kThreads = 16;

/// What is neither conversion nor memory, into a picture that is black before; how much of it failed.
int others(tavi_image_t& img, const char* path) {
    const tavi_color_t red = {255, 0, 0};
    const int size = static_cast<int>(img.width);
    const float shift[6] = {1, 0, 1, 0, 1, 1};
    tavi_rect_t box = {8, 8, 31, 31};
    tavi_image_t part = {}, again = {};
    int wrong = tavi_image_draw_circle(&img, {20, 20, 0}, 9, red, -1) != 0;
    wrong += tavi_image_draw_text(&img, "3", {2, 2, 12}, red, 1) != 0;
    wrong += tavi_image_write(path, &img) != 0;
    wrong += tavi_image_read(path, &again, TAVI_IMAGE_READ_COLOR) != 0 || static_cast<int>(again.width) != size;
    wrong += tavi_image_affine_transform(&img, &again, shift) != (img.pixel_format == again.pixel_format ? 0 : -2);
    wrong += tavi_image_roi_with_align_cvt(&again, &box, &part, 8, TAVI_PIXEL_FORMAT_YUV420SP_NV12) != 0;
    wrong += tavi_image_convert_keep_ration(&again, &part, 0, 0, nullptr, nullptr, nullptr, nullptr) != 0;
    return wrong + (tavi_image_release(&part) != 0) + (tavi_image_release(&again) != 0);
}

std::atomic<int> g_lines{0};

TEST(Threads, DoEverythingAtOnce) {
    TaviLogger::GetInstance()->SetSink(
        [](void*, tavi_log_level_t, const char*, const char*, const char*) { ++g_lines; }, nullptr);
    TaviLogger::GetInstance()->level = TAVI_LOG_INFO;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([t, &wrong] {
            const TempFile file(t % 2 ? ".jpg" : ".png");
            for (int i = 0; i < 16; ++i) {
                tavi::test::Picture src(static_cast<tavi_pixel_format>((t + i) % 16), 64 + 2 * t, 48, i % 2);
                tavi::test::Picture dst(static_cast<tavi_pixel_format>((t * 3 + i) % 16), 40, 90 - 2 * t, 1 - i % 2);
                std::memset(src.data, 130, src.size);
                wrong += tavi_image_convert(&src, &dst, 0) != 0;
                for (int k = 0; k < 60; ++k) { // the registry and the pool, among many changes
                    tavi_mem_record_t r = {};
                    wrong += tavi_mem_alloc(100 + (k * 37 + t) % 3000, TAVI_MEM_TYPE_HEAP, &r) != 0;
                    std::memset(r.virt_addr, t, r.size);
                    wrong += tavi_mem_check_record_by_virt_addr(src.data + 60, 1) != 0;
                    wrong += static_cast<uint8_t*>(r.virt_addr)[r.size - 1] != t;
                    wrong += tavi_mem_free_by_virt_addr(r.virt_addr) != 0;
                }
                src.height = 44;
                std::memset(src.data, 0, src.size);
                wrong += others(src, file.path());
                if (i % 8 == 0) {
                    tavi_mem_trim();
                    TaviLogger::GetInstance()->level = TAVI_LOG_INFO + t % 2;
                }
            }
        });
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(g_lines, kThreads * 16 * 4);
    for (int type = 0; type < 2; ++type) {
        tavi_mem_stats_t stats = {};
        ASSERT_EQ(tavi_mem_get_stats(type, &stats), 0);
        EXPECT_EQ(stats.live_count, 0u);
    }
}

} // namespace
