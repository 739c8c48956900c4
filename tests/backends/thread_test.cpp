// SPDX-License-Identifier: MIT
// Eight threads convert, allocate and log at once.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "services/tavi_logger.h"
#include "services/tavi_mem.h"
#include "tavi_image.h"

namespace {

std::atomic<int> g_lines{0};

TEST(Threads, ConvertAllocateAndLogAtOnce) {
    TaviLogger::GetInstance()->SetSink(
        [](void*, tavi_log_level_t, const char*, const char*, const char*) { ++g_lines; }, nullptr);
    TaviLogger::GetInstance()->level = TAVI_LOG_INFO;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([t, &wrong] {
            for (int i = 0; i < 30; ++i) {
                tavi_image_t src = {}, dst = {};
                src.pixel_format = static_cast<tavi_pixel_format>((t + i) % 16);
                dst.pixel_format = static_cast<tavi_pixel_format>((t * 3 + i) % 16);
                src.width = 64 + 2 * t, src.height = 48;
                dst.width = 40, dst.height = 90 - 2 * t;
                const int type = i % 2;
                if (tavi_image_create_mem2(&src, type) || tavi_image_create_mem2(&dst, 1 - type)) {
                    ++wrong;
                    return;
                }
                for (uint32_t k = 0; k < src.size; ++k)
                    src.data[k] = 130;
                wrong += tavi_image_convert(&src, &dst, 0) != 0;
                for (int k = 0; k < 60; ++k) { // the registry and the pool, among many changes
                    tavi_mem_record_t r = {};
                    wrong += tavi_mem_alloc(100 + (k * 37 + t) % 3000, TAVI_MEM_TYPE_HEAP, &r) != 0;
                    std::memset(r.virt_addr, t, r.size);
                    wrong += tavi_mem_check_record_by_virt_addr(src.data + 60, 1) != 0;
                    wrong += static_cast<uint8_t*>(r.virt_addr)[r.size - 1] != t;
                    wrong += tavi_mem_free_by_virt_addr(r.virt_addr) != 0;
                }
                if (i % 8 == 0)
                    tavi_mem_trim();
                wrong += tavi_image_release(&src) != 0;
                wrong += tavi_image_release(&dst) != 0;
            }
        });
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(g_lines, 8 * 30 * 4);
    for (int type = 0; type < 2; ++type) {
        tavi_mem_stats_t stats = {};
        ASSERT_EQ(tavi_mem_get_stats(type, &stats), 0);
        EXPECT_EQ(stats.live_count, 0u);
    }
}

} // namespace
