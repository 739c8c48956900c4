// SPDX-License-Identifier: MIT
// Eight threads convert, allocate and log at once.
#include <atomic>
#include <thread>

#include "backends/device_test.h"
#include "services/tavi_mem.h"

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
                if (i % 8 == 0)
                    tavi_mem_trim();
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
