// SPDX-License-Identifier: MIT
// Temporaries of one request. They come from one block that the thread keeps, so that a video loop allocates nothing
// after its first frame.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tavi {

/// Hands out memory of the thread's block, all of it given back when the object goes. Scratches of one thread nest:
/// the inner one goes first. What does not fit comes from the heap, and the block grows to that size afterwards.
/// Works at any time, also while a thread or the process ends; a thread that can keep no block keeps none.
class Scratch {
public:
    Scratch();
    ~Scratch();
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    /// `count` elements, 64-byte aligned, with 64 readable bytes behind them. Null when there is no memory.
    template <class T>
    T* take(size_t count) {
        return count > SIZE_MAX / 2 / sizeof(T) ? nullptr : static_cast<T*>(bytes(count * sizeof(T)));
    }

private:
    struct ThreadBlock;
    struct Overflow;
    friend void trim_scratch();

    static ThreadBlock* of_this_thread(bool make);
    static void free_block(void* block);
    void* bytes(size_t size);

    ThreadBlock* const block_; ///< null: this thread has none
    const size_t mark_;        ///< what was used of it before
    Overflow* overflow_ = nullptr;
};

/// Gives the calling thread's block back to the heap, unless a request of this thread is under way.
void trim_scratch();

} // namespace tavi
