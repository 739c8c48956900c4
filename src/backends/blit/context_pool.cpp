// SPDX-License-Identifier: MIT
#define TAVI_LOG_TAG "tavi-blit"
#include "backends/blit/context_pool.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include "os/dma_sync.h"
#include "os/locks.h"
#include "services/log.h"
#include "services/mem_hooks.h"

namespace tavi {
namespace {

constexpr int kMostNodes = 128;
constexpr int kPatienceMs = 3000; ///< for a context to become free

void on_memory_event(MemEvent event, int fd) {
    Buffer buffer;
    if (event == MemEvent::allocation_failed)
        ContextPool::instance().drop_all();
    else if (identify_buffer(fd, buffer))
        ContextPool::instance().drop_holders(buffer);
}

} // namespace

bool identify_buffer(int fd, Buffer& buffer) {
    struct stat info {};
    const off_t bytes = fd > 0 && ::fstat(fd, &info) == 0 ? buffer_bytes(fd) : -1;
    if (bytes <= 0)
        return false;
    buffer.fd = fd;
    buffer.bytes = static_cast<uint64_t>(bytes);
    buffer.device = info.st_dev;
    buffer.inode = info.st_ino;
    return true;
}

void visit_engines(const char* only, bool (*visit)(const EngineInfo& info, const char* why_not, void* user),
                   void* user) {
    for (int i = 0; i < kMostNodes; ++i) {
        char path[32];
        std::snprintf(path, sizeof(path), "/dev/video%d", i);
        EngineInfo info;
        const Refusal no = examine_engine(only ? only : path, info);
        if (no.error == -ENOENT && !only)
            continue; // numbers may have gaps
        if (!visit(info, no ? no.text : nullptr, user) || only)
            return;
    }
}

static FirstUse<ContextPool> g_pool;

ContextPool& ContextPool::instance() {
    return g_pool.get([] { return ContextPool(); });
}

// When the library is loaded: older C libraries hold a lock of their own while a fork waits for ours.
[[maybe_unused]] const int ContextPool::forks_are_watched = ::pthread_atfork(nullptr, nullptr, in_child);

// A child must not touch the parent's contexts. It has one thread: no lock is needed.
void ContextPool::in_child() {
    ContextPool* const pool = g_pool.made();
    if (!pool)
        return;
    for (Slot& slot : pool->slots_) {
        slot.context.abandon();
        slot.busy = slot.doomed = false;
        slot.src = slot.dst = Memory();
    }
}

static constexpr char kProbe[] = "is_blit_support"; // the search for an engine is its work, whoever asks first

bool ContextPool::engine(EngineInfo& info) {
    std::lock_guard<std::mutex> lock(g_locks.engines);
    if (!looked_) {
        looked_ = true;
        const char* const wanted = ::secure_getenv("TAVI_BLIT_DEVICE");
        const bool named = wanted && *wanted;
        if (named && std::strcmp(wanted, "none") == 0) {
            LOG_AS(kProbe, TAVI_LOG_INFO, "no engine: TAVI_BLIT_DEVICE=none");
        } else {
            const auto first_usable = [](const EngineInfo& found, const char* why_not, void* user) {
                if (why_not) {
                    LOG_AS(kProbe, TAVI_LOG_INFO, "%s is not used: %s", found.path, why_not);
                    return true;
                }
                LOG_AS(kProbe, TAVI_LOG_INFO, "engine: %s (%s, %s)", found.path, found.driver, found.card);
                auto* pool = static_cast<ContextPool*>(user);
                pool->engine_ = found;
                pool->present_ = true;
                return false;
            };
            visit_engines(named ? wanted : nullptr, first_usable, this);
            if (!present_ && named)
                LOG_AS(kProbe, TAVI_LOG_WARN,
                       "TAVI_BLIT_DEVICE=%s is no usable engine, software does all conversions", wanted);
            else if (!present_)
                LOG_AS(kProbe, TAVI_LOG_INFO, "no engine: no usable /dev/video0 to /dev/video%d", kMostNodes - 1);
        }
        if (present_)
            set_mem_listener(on_memory_event);
    }
    info = engine_;
    return present_;
}

// The best context for a setup: set up so already, differing in rectangles only, unused, or used longest ago.
// The caller holds the lock.
ContextPool::Slot* ContextPool::pick(const Setup& setup) {
    const auto rank = [&](const Slot& s) {
        if (!s.context.is_open())
            return 1;
        if (!same_layout(s.context.setup(), setup))
            return 0;
        return same_boxes(s.context.setup(), setup) ? 3 : 2;
    };
    Slot* best = nullptr;
    for (Slot& s : slots_) {
        if (s.busy)
            continue;
        if (!best || rank(s) > rank(*best) || (rank(s) == rank(*best) && s.last_used < best->last_used))
            best = &s;
    }
    return best;
}

ContextPool::Lease ContextPool::lease(const Setup& setup) {
    EngineInfo info;
    if (!engine(info))
        return Lease({TAVI_RET_UNSUPPORTED, "no engine"});
    // Where all are busy the engine, which does one job at a time, is no slower for waiting; nobody would repeat a
    // letterbox in software. No condition variable: a child of this process would inherit its waiters.
    Slot* slot = nullptr;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatienceMs);
    for (bool first = true; !slot && (first || std::chrono::steady_clock::now() < deadline); first = false) {
        if (!first)
            ::usleep(1000);
        const std::lock_guard<std::mutex> lock(g_locks.engines);
        slot = pick(setup);
        if (slot) {
            slot->busy = true;
            slot->doomed = false;
            slot->last_used = ++clock_;
            if (!slot->context.is_open() || !same_layout(slot->context.setup(), setup))
                slot->src = slot->dst = Memory(); // opened anew below: nothing is imported
        }
    }
    if (!slot)
        return Lease({TAVI_RET_FAIL, "%d contexts of the engine have been busy for %d ms, no more are opened", kMost,
                      kPatienceMs});
    if (const Refusal no = slot->context.prepare(info, setup)) {
        give_back(slot, no);
        return Lease(no);
    }
    Lease lease;
    lease.pool_ = this;
    lease.slot_ = slot;
    return lease;
}

Refusal ContextPool::Lease::run(const Memory& src, const Memory& dst) {
    {
        std::lock_guard<std::mutex> lock(g_locks.engines);
        slot_->src = src;
        slot_->dst = dst;
    }
    return refusal_ = slot_->context.run(src, dst);
}

ContextPool::Lease::~Lease() {
    if (pool_)
        pool_->give_back(slot_, refusal_);
}

void ContextPool::give_back(Slot* slot, const Refusal& no) {
    if (no)
        slot->context.close();
    if (no.error == -ENODEV || no.error == -ENXIO || no.error == -ENOENT) // the last: its node is gone
        forget_engine();
    std::lock_guard<std::mutex> lock(g_locks.engines);
    if (slot->doomed)
        slot->context.close();
    if (!slot->context.is_open())
        slot->src = slot->dst = Memory();
    slot->busy = slot->doomed = false;
}

template <class Match>
void ContextPool::drop_if(Match match) {
    std::lock_guard<std::mutex> lock(g_locks.engines);
    for (Slot& slot : slots_) {
        if (!match(slot))
            continue;
        if (slot.busy) {
            slot.doomed = true;
        } else {
            slot.context.close(); // idle: no job is waited for
            slot.src = slot.dst = Memory();
        }
    }
}

void ContextPool::drop_all() {
    drop_if([](const Slot&) { return true; });
}

void ContextPool::forget_engine() {
    drop_all();
    std::lock_guard<std::mutex> lock(g_locks.engines);
    looked_ = present_ = false;
}

void ContextPool::drop_holders(const Buffer& buffer) {
    const auto held = [&](const Memory& m) { return same_buffer(m[0], buffer) || same_buffer(m[1], buffer); };
    drop_if([&](const Slot& s) { return held(s.src) || held(s.dst); });
}

} // namespace tavi
