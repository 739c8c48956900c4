// SPDX-License-Identifier: MIT
// The memory service: a registry of what was given out, above the pool of heap blocks and the sources of device
// memory.
#define TAVI_LOG_TAG "tavi-mem"
#include "services/tavi_mem.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include "image/scratch.h"
#include "os/kernel_calls.h"
#include "os/locks.h"
#include "os/mapping.h"
#include "services/log.h"
#include "services/mem_hooks.h"
#include "services/mem_pool.h"
#include "services/mem_sources.h"

namespace tavi {

static_assert(sizeof(tavi_mem_record_t) == 6 * sizeof(uint32_t) + 2 * sizeof(void*));
static_assert(offsetof(tavi_mem_record_t, virt_addr) == 2 * sizeof(uint32_t));
static_assert(offsetof(tavi_mem_record_t, fd) == 2 * sizeof(uint32_t) + 2 * sizeof(void*));

namespace {

std::atomic<MemListener> g_listener{nullptr};

/// What was given out and not yet freed. Looked up far more often than changed, hence a shared lock.
struct Registry {
    std::map<uintptr_t, tavi_mem_record_t> by_start;
    tavi_mem_stats_t stats[TAVI_MEM_TYPE_COUNT] = {};
    uint32_t last_handle = 0;
    MemPool pool; ///< has a lock of its own

    /// The allocation that `addr` lies in, or starts when `where` is 0; the caller holds the lock.
    const tavi_mem_record_t* find(void* addr, int where) const {
        const auto key = reinterpret_cast<uintptr_t>(addr);
        auto after = by_start.upper_bound(key);
        if (after == by_start.begin())
            return nullptr;
        const auto& [start, record] = *--after;
        return key == start || (where == 1 && key - start < record.size) ? &record : nullptr;
    }
};

Registry& registry() {
    static FirstUse<Registry> instance;
    return instance.get([] { return Registry(); });
}

void release(const tavi_mem_record_t& record) {
    if (record.type == TAVI_MEM_TYPE_HEAP) {
        registry().pool.give(record.virt_addr, record.size);
        return;
    }
    notify_mem_listener(MemEvent::freeing, record.fd);
    kernel_calls().unmap(record.virt_addr, record.size);
    ::close(record.fd);
}

bool allocate_heap(tavi_mem_record_t& record) {
    record.virt_addr = registry().pool.take(record.size);
    record.flags = TAVI_MEM_SOURCE_HEAP;
    return record.virt_addr != nullptr;
}

bool allocate_device_memory(tavi_mem_record_t& record) {
    DeviceBuffer buffer = allocate_device(record.size, record.type == TAVI_MEM_TYPE_CONTIGUOUS);
    if (!buffer.fd)
        return false;
    CpuMapping mapping(buffer.fd.get(), record.size, Access::read_write);
    if (!mapping) {
        LOG_DEBUG("%u bytes cannot be mapped: %s", record.size, std::strerror(mapping.error()));
        return false;
    }
    record.virt_addr = mapping.release();
    record.fd = buffer.fd.release();
    record.flags = buffer.source;
    return true;
}

/// Enters an allocation; false when the registry itself finds no memory.
bool enter(tavi_mem_record_t& record) {
    Registry& r = registry();
    std::unique_lock<std::shared_mutex> lock(g_locks.registry);
    record.handle = r.last_handle = r.last_handle == UINT32_MAX ? 1 : r.last_handle + 1;
    try { // the one container of the service; its refusal is an answer like any other
        r.by_start.emplace(reinterpret_cast<uintptr_t>(record.virt_addr), record);
    } catch (const std::bad_alloc&) {
        return false;
    }
    tavi_mem_stats_t& s = r.stats[record.type];
    ++s.live_count;
    s.live_bytes += record.size;
    if (s.live_bytes > s.peak_bytes)
        s.peak_bytes = s.live_bytes;
    return true;
}

constexpr int kLargestDevice = 256 << 20;

} // namespace

void set_mem_listener(MemListener listener) { g_listener.store(listener); }

void notify_mem_listener(MemEvent event, int fd) {
    if (const MemListener listener = g_listener.load())
        listener(event, fd);
}

} // namespace tavi

using namespace tavi;

int tavi_mem_alloc(int size, int type, tavi_mem_record_t* record) {
    if (!record) {
        LOG_ERROR("params error: record=%p, a record to fill is needed", static_cast<void*>(record));
        return TAVI_RET_PARAM_ERR;
    }
    if (type < 0 || type >= TAVI_MEM_TYPE_COUNT) {
        LOG_ERROR("params error: type=%d, 0 (heap), 1 (device) and 2 (contiguous device) are allowed", type);
        return TAVI_RET_PARAM_ERR;
    }
    // Bounded before the kernel is asked: the system heap gets a caller that wants too much killed.
    const int largest = type == TAVI_MEM_TYPE_HEAP ? INT32_MAX : kLargestDevice;
    if (size < 1 || size > largest) {
        LOG_ERROR("params error: size=%d, 1 to %d bytes are allowed for type %d", size, largest, type);
        return TAVI_RET_PARAM_ERR;
    }

    tavi_mem_record_t made{};
    made.type = static_cast<uint32_t>(type);
    made.size = static_cast<uint32_t>(size);
    if (!(type == TAVI_MEM_TYPE_HEAP ? allocate_heap(made) : allocate_device_memory(made))) {
        LOG_ERROR("no memory: size=%d type=%d%s", size, type,
                  type == TAVI_MEM_TYPE_CONTIGUOUS ? ", needs a contiguous heap in /dev/dma_heap with room" : "");
        return TAVI_RET_FAIL;
    }
    if (!enter(made)) {
        release(made);
        LOG_ERROR("no memory for the record of an allocation: size=%d type=%d", size, type);
        return TAVI_RET_FAIL;
    }
    LOG_DEBUG("allocated size=%d type=%d source=%u data=%p fd=%d", size, type, made.flags, made.virt_addr, made.fd);
    *record = made;
    return TAVI_RET_SUCCESS;
}

int tavi_mem_check_record_by_virt_addr(void* addr, int where) {
    return tavi_mem_get_record_by_virt_addr(addr, where, nullptr);
}

int tavi_mem_get_record_by_virt_addr(void* addr, int where, tavi_mem_record_t* record) {
    if (where != 0 && where != 1) {
        LOG_ERROR("params error: where=%d, 0 (start) and 1 (anywhere inside) are allowed", where);
        return TAVI_RET_PARAM_ERR;
    }
    Registry& r = registry();
    std::shared_lock<std::shared_mutex> lock(g_locks.registry);
    const tavi_mem_record_t* found = r.find(addr, where);
    if (!found)
        return TAVI_RET_FAIL;
    if (record)
        *record = *found;
    return TAVI_RET_SUCCESS;
}

int tavi_mem_free_by_virt_addr(void* addr) {
    Registry& r = registry();
    tavi_mem_record_t gone;
    {
        std::unique_lock<std::shared_mutex> lock(g_locks.registry);
        const auto it = r.by_start.find(reinterpret_cast<uintptr_t>(addr));
        if (it == r.by_start.end()) {
            lock.unlock();
            LOG_ERROR("params error: data=%p, the start of a live allocation is needed", addr);
            return TAVI_RET_PARAM_ERR;
        }
        gone = it->second;
        r.by_start.erase(it);
        --r.stats[gone.type].live_count;
        r.stats[gone.type].live_bytes -= gone.size;
    }
    // Out of the registry first: once unmapped, the address may be given out again at any moment.
    release(gone);
    return TAVI_RET_SUCCESS;
}

int tavi_mem_get_stats(int type, tavi_mem_stats_t* stats) {
    if (!stats || type < 0 || type >= TAVI_MEM_TYPE_COUNT) {
        LOG_ERROR("params error: type=%d stats=%p, types 0 to 2 and a place for the counts are needed", type,
                  static_cast<void*>(stats));
        return TAVI_RET_PARAM_ERR;
    }
    Registry& r = registry();
    {
        std::shared_lock<std::shared_mutex> lock(g_locks.registry);
        *stats = r.stats[type];
    }
    stats->pooled_bytes = type == TAVI_MEM_TYPE_HEAP ? r.pool.pooled_bytes() : 0;
    return TAVI_RET_SUCCESS;
}

void tavi_mem_trim(void) {
    registry().pool.trim();
    trim_scratch();
#ifdef __GLIBC__
    ::malloc_trim(0); // large blocks that were freed may still be the heap's
#endif
}
