// SPDX-License-Identifier: MIT
// Temporaries of one request. They come from one block that the thread keeps, so that a video loop allocates nothing
// after its first frame.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tavi {

/// Hands out memory of the thread's block, all of it given back when the object goes. Scratches of one thread nest:
/// the inner one goes first. What does not fit comes from the heap, and the block grows to that size afterwards.
class Scratch {
public:
    Scratch();
    ~Scratch();
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    /// `count` elements, 64-byte aligned, with 64 readable bytes behind them. Null when there is no memory.
    template <class T>
    T* take(size_t count) {
        return static_cast<T*>(bytes(count * sizeof(T)));
    }

private:
    void* bytes(size_t size);

    size_t mark_;
};

} // namespace tavi
