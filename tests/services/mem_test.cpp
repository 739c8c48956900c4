// SPDX-License-Identifier: MIT
// The memory service on whatever sources the machine has: a memfd everywhere, DMA heaps and udmabuf in the test
// machine.
#include "services/tavi_mem.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "os/dma_sync.h"
#include "os/mapping.h"
#include "services/mem_hooks.h"
#include "services/mem_sources.h"
#include "support/descriptors.h"

using namespace tavi;

namespace {

tavi_mem_record_t alloc(int size, int type) {
    tavi_mem_record_t record{};
    EXPECT_EQ(tavi_mem_alloc(size, type, &record), TAVI_RET_SUCCESS) << "size " << size << " type " << type;
    return record;
}

tavi_mem_stats_t stats_of(int type) {
    tavi_mem_stats_t stats{};
    EXPECT_EQ(tavi_mem_get_stats(type, &stats), TAVI_RET_SUCCESS);
    return stats;
}

bool has_contiguous_heap() {
    bool found = false;
    visit_sources(
        [](const SourceReport& r, void* user) {
            *static_cast<bool*>(user) |= r.source == TAVI_MEM_SOURCE_CONTIGUOUS && r.error == 0;
        },
        &found);
    return found;
}

TEST(Mem, RefusesWhatCannotBe) {
    const struct {
        int size, type;
    } cases[] = {{0, 0}, {-2, 0}, {INT32_MIN, 1}, {0, 1}, {(256 << 20) + 1, 1}, {INT32_MAX, 2}, {16, 3}, {16, -1}};
    for (const auto& c : cases) {
        tavi_mem_record_t record;
        std::memset(&record, 0x5a, sizeof(record));
        const tavi_mem_record_t before = record;
        EXPECT_EQ(tavi_mem_alloc(c.size, c.type, &record), TAVI_RET_PARAM_ERR) << c.size << ' ' << c.type;
        EXPECT_EQ(std::memcmp(&record, &before, sizeof(record)), 0);
    }
    EXPECT_EQ(tavi_mem_alloc(16, 0, nullptr), TAVI_RET_PARAM_ERR);
    tavi_mem_stats_t stats;
    EXPECT_EQ(tavi_mem_get_stats(3, &stats), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_mem_free_by_virt_addr(nullptr), TAVI_RET_PARAM_ERR);
}

TEST(Mem, HeapBlocksAreAlignedWholeAndReused) {
    for (int size : {1, 63, 64, 65, 256, 257, 320, 321, 4097, 460800, (8 << 20), (8 << 20) + 1}) {
        const tavi_mem_record_t a = alloc(size, TAVI_MEM_TYPE_HEAP);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(a.virt_addr) % 64, 0u) << size;
        EXPECT_EQ(a.fd, 0);
        std::memset(a.virt_addr, 0xa5, static_cast<size_t>(size));
        ASSERT_EQ(tavi_mem_free_by_virt_addr(a.virt_addr), TAVI_RET_SUCCESS);
        EXPECT_EQ(tavi_mem_free_by_virt_addr(a.virt_addr), TAVI_RET_PARAM_ERR) << "freed twice";
    }
    const tavi_mem_record_t first = alloc(100000, TAVI_MEM_TYPE_HEAP);
    tavi_mem_free_by_virt_addr(first.virt_addr);
    const uint64_t pooled = stats_of(0).pooled_bytes;
    const tavi_mem_record_t second = alloc(99000, TAVI_MEM_TYPE_HEAP);
    EXPECT_EQ(stats_of(0).pooled_bytes, pooled - 114688); // the class of both
    EXPECT_EQ(second.virt_addr, first.virt_addr);
    EXPECT_NE(second.handle, first.handle);
    tavi_mem_free_by_virt_addr(second.virt_addr);
}

TEST(Mem, PoolStaysBoundedAndKeepsWhatIsUsed) {
    std::vector<void*> blocks;
    for (int i = 0; i < 64; ++i)
        blocks.push_back(alloc((1 << 20) + i * 4096, TAVI_MEM_TYPE_HEAP).virt_addr);
    for (void* block : blocks)
        tavi_mem_free_by_virt_addr(block);
    EXPECT_LE(stats_of(0).pooled_bytes, 24u << 20);
    EXPECT_GT(stats_of(0).pooled_bytes, 16u << 20);
    // A size that was not pooled so far displaces the older ones.
    void* fresh = alloc(3 << 20, TAVI_MEM_TYPE_HEAP).virt_addr;
    tavi_mem_free_by_virt_addr(fresh);
    EXPECT_EQ(alloc(3 << 20, TAVI_MEM_TYPE_HEAP).virt_addr, fresh);
    tavi_mem_trim();
    EXPECT_EQ(stats_of(0).pooled_bytes, 0u);
    std::memset(fresh, 1, 3 << 20); // trimming leaves live memory alone
    tavi_mem_free_by_virt_addr(fresh);
}

TEST(Mem, DeviceMemoryIsZeroSharedAndGivenBackWhole) {
    ::close(0); // the kernel now hands out 0 as the next descriptor
    const int before = open_descriptors();
    const tavi_mem_record_t r = alloc(5000, TAVI_MEM_TYPE_DEVICE);
    EXPECT_GE(r.fd, 3);
    EXPECT_EQ(::fcntl(r.fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    EXPECT_EQ(r.phys_addr, nullptr);
    EXPECT_GE(buffer_bytes(r.fd), 5000);
    EXPECT_EQ(clean_for_device(r.fd) == 0, r.flags != TAVI_MEM_SOURCE_MEMFD);
    auto* bytes = static_cast<uint8_t*>(r.virt_addr);
    EXPECT_TRUE(std::all_of(bytes, bytes + 5000, [](uint8_t b) { return b == 0; }));
    {
        const DmaSync bracket(r.fd, Access::write);
        bytes[4999] = 77;
    }
    {
        const CpuMapping other(r.fd, 5000, Access::read);
        ASSERT_TRUE(other);
        EXPECT_EQ(other.data()[4999], 77);
        EXPECT_EQ(CpuMapping(r.fd, 5000 + (1 << 20), Access::read).error(), ENOSPC);
    }
    EXPECT_EQ(tavi_mem_free_by_virt_addr(r.virt_addr), TAVI_RET_SUCCESS);
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(stats_of(TAVI_MEM_TYPE_DEVICE).live_count, 0u);
    EXPECT_EQ(stats_of(TAVI_MEM_TYPE_DEVICE).peak_bytes, 5000u);
}

TEST(Mem, ContiguousMemoryComesFromAContiguousHeapOrNotAtAll) {
    tavi_mem_record_t r{};
    if (has_contiguous_heap()) {
        ASSERT_EQ(tavi_mem_alloc(100000, TAVI_MEM_TYPE_CONTIGUOUS, &r), TAVI_RET_SUCCESS);
        EXPECT_EQ(r.flags, uint32_t{TAVI_MEM_SOURCE_CONTIGUOUS});
        tavi_mem_free_by_virt_addr(r.virt_addr);
    } else {
        EXPECT_EQ(tavi_mem_alloc(100000, TAVI_MEM_TYPE_CONTIGUOUS, &r), TAVI_RET_FAIL);
    }
    ::setenv("TAVI_DMA_HEAP", "none", 1);
    EXPECT_EQ(tavi_mem_alloc(100000, TAVI_MEM_TYPE_CONTIGUOUS, &r), TAVI_RET_FAIL);
    const tavi_mem_record_t d = alloc(100000, TAVI_MEM_TYPE_DEVICE);
    EXPECT_TRUE(d.flags == TAVI_MEM_SOURCE_UDMABUF || d.flags == TAVI_MEM_SOURCE_MEMFD) << d.flags;
    tavi_mem_free_by_virt_addr(d.virt_addr);
    ::setenv("TAVI_DMA_HEAP", "../udmabuf", 1); // refused as a name, the next source serves
    tavi_mem_free_by_virt_addr(alloc(100000, TAVI_MEM_TYPE_DEVICE).virt_addr);
}

TEST(Mem, FindsAnyAddressAmongTenThousand) {
    std::vector<tavi_mem_record_t> live;
    for (int i = 0; i < 10000; ++i) // none fills its block, so that nothing begins where one ends
        live.push_back(alloc(65 + i % 60, TAVI_MEM_TYPE_HEAP));
    for (const tavi_mem_record_t& r : live) {
        auto* start = static_cast<uint8_t*>(r.virt_addr);
        tavi_mem_record_t found{};
        EXPECT_EQ(tavi_mem_get_record_by_virt_addr(start + r.size - 1, 1, &found), 0);
        EXPECT_EQ(found.handle, r.handle);
        EXPECT_EQ(tavi_mem_check_record_by_virt_addr(start, 0), 0);
        EXPECT_NE(tavi_mem_check_record_by_virt_addr(start + 1, 0), 0);
        EXPECT_NE(tavi_mem_check_record_by_virt_addr(start + r.size, 1), 0);
    }
    int on_stack = 0;
    EXPECT_NE(tavi_mem_check_record_by_virt_addr(&on_stack, 1), 0);
    EXPECT_EQ(tavi_mem_check_record_by_virt_addr(live[0].virt_addr, 2), TAVI_RET_PARAM_ERR);
    for (const tavi_mem_record_t& r : live)
        EXPECT_EQ(tavi_mem_free_by_virt_addr(r.virt_addr), 0);
    EXPECT_NE(tavi_mem_check_record_by_virt_addr(live[0].virt_addr, 1), 0);
    EXPECT_EQ(stats_of(0).live_bytes, 0u);
}

int g_freeing = 0;

TEST(Mem, TellsTheListenerBeforeTheDescriptorIsClosed) {
    set_mem_listener(
        [](MemEvent event, int fd) { g_freeing += event == MemEvent::freeing && ::fcntl(fd, F_GETFD) >= 0; });
    tavi_mem_free_by_virt_addr(alloc(4096, TAVI_MEM_TYPE_DEVICE).virt_addr);
    tavi_mem_free_by_virt_addr(alloc(4096, TAVI_MEM_TYPE_HEAP).virt_addr);
    EXPECT_EQ(g_freeing, 1);
    set_mem_listener(nullptr);
}

} // namespace
