// SPDX-License-Identifier: MIT
// Heap memory that is kept for the next request of its size: temporaries of one picture after the other then cost
// neither a system call nor the page faults of fresh memory.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tavi {

class MemPool {
public:
    static constexpr size_t kAlignment = 64;            ///< a cache line, and every vector register
    static constexpr size_t kLargest = size_t{8} << 20; ///< a larger block is left to the C library
    static constexpr size_t kBound = size_t{24} << 20;  ///< the pool never holds more bytes than this

    /// Memory of at least `size` bytes, size > 0; null when the system has none.
    void* take(size_t size);
    /// Gives back what take() returned for the same size.
    void give(void* block, size_t size);
    /// Returns everything that is pooled to the system.
    void trim();
    size_t pooled_bytes();

private:
    struct Block {
        Block* next;
    };
    struct SizeClass {
        Block* free = nullptr;
        uint64_t last_used = 0; ///< the pool's clock when a block was last taken or given
    };
    static constexpr int kClasses = 64;

    static int class_of(size_t size);
    static size_t class_bytes(int index);
    void evict_for(size_t bytes);

    SizeClass classes_[kClasses];
    size_t pooled_ = 0;
    uint64_t clock_ = 0;
};

} // namespace tavi
