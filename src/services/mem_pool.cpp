// SPDX-License-Identifier: MIT
#include "services/mem_pool.h"

#include <cstdlib>

#include "os/locks.h"

// Under AddressSanitizer the pool hides what it holds, and the slack of a block, so that a touch beyond the bytes
// asked for is found here as it would be in malloc's memory.
#ifndef __has_feature // clang says it so, GCC by a macro
#define __has_feature(feature) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(address, size) ((void)(address), (void)(size))
#define ASAN_UNPOISON_MEMORY_REGION(address, size) ((void)(address), (void)(size))
#endif

namespace tavi {

// Classes: 64, 128, 192, 256, then four steps to each doubling (320, 384, 448, 512, 640, ...) up to 8 MiB. A block is
// thus at most a quarter larger than what was asked for.
int MemPool::class_of(size_t size) {
    if (size <= 256)
        return static_cast<int>((size - 1) / 64);
    const unsigned last = static_cast<unsigned>(size - 1);
    const int power = 31 - __builtin_clz(last);
    return (power - 8) * 4 + static_cast<int>(last >> (power - 2));
}

size_t MemPool::class_bytes(int index) {
    if (index < 4)
        return size_t{64} * (index + 1);
    const int power = (index - 4) / 4 + 8;
    return size_t(5 + index % 4) << (power - 2);
}

void* MemPool::take(size_t size) {
    void* block = nullptr;
    if (size > kLargest) {
        if (posix_memalign(&block, kAlignment, size) == 0)
            return block;
        trim(); // what the pool holds may be what is missing
        return posix_memalign(&block, kAlignment, size) == 0 ? block : nullptr;
    }
    const int index = class_of(size);
    const size_t bytes = class_bytes(index);
    {
        std::lock_guard<std::mutex> lock(g_locks.pool);
        SizeClass& c = classes_[index];
        c.last_used = ++clock_;
        if (Block* b = c.free) {
            ASAN_UNPOISON_MEMORY_REGION(b, size < sizeof(Block) ? sizeof(Block) : size);
            c.free = b->next;
            ASAN_POISON_MEMORY_REGION(reinterpret_cast<char*>(b) + size, bytes - size);
            pooled_ -= bytes;
            return b;
        }
    }
    if (posix_memalign(&block, kAlignment, bytes) != 0) {
        trim();
        if (posix_memalign(&block, kAlignment, bytes) != 0)
            return nullptr;
    }
    ASAN_POISON_MEMORY_REGION(static_cast<char*>(block) + size, bytes - size);
    return block;
}

void MemPool::give(void* block, size_t size) {
    if (size > kLargest) {
        std::free(block);
        return;
    }
    const int index = class_of(size);
    const size_t bytes = class_bytes(index);
    std::lock_guard<std::mutex> lock(g_locks.pool);
    SizeClass& c = classes_[index];
    c.last_used = ++clock_;
    evict_for(bytes);
    ASAN_UNPOISON_MEMORY_REGION(block, sizeof(Block));
    Block* b = static_cast<Block*>(block);
    b->next = c.free;
    c.free = b;
    pooled_ += bytes;
    // The link stays readable: the leak check follows no pointer that lies in hidden memory.
    ASAN_POISON_MEMORY_REGION(static_cast<char*>(block) + sizeof(Block), bytes - sizeof(Block));
}

// Makes room for `bytes`: blocks of the size that nobody has asked for longest go first.
void MemPool::evict_for(size_t bytes) {
    while (pooled_ + bytes > kBound) {
        int oldest = -1;
        for (int i = 0; i < kClasses; ++i) {
            if (classes_[i].free && (oldest < 0 || classes_[i].last_used < classes_[oldest].last_used))
                oldest = i;
        }
        Block* b = classes_[oldest].free;
        classes_[oldest].free = b->next;
        pooled_ -= class_bytes(oldest);
        std::free(b);
    }
}

void MemPool::trim() {
    std::lock_guard<std::mutex> lock(g_locks.pool);
    for (int i = 0; i < kClasses; ++i) {
        while (Block* b = classes_[i].free) {
            classes_[i].free = b->next;
            std::free(b);
        }
    }
    pooled_ = 0;
}

size_t MemPool::pooled_bytes() {
    std::lock_guard<std::mutex> lock(g_locks.pool);
    return pooled_;
}

} // namespace tavi
