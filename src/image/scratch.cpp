// SPDX-License-Identifier: MIT
#include "image/scratch.h"

#include <algorithm>
#include <cstdlib>

namespace tavi {
namespace {

constexpr size_t kAlign = 64;
constexpr size_t kSlack = 64;      // readable behind each piece: vector loads may run over
constexpr size_t kKept = 4u << 20; // a thread keeps at most this much between requests

// A piece that did not fit into the block; freed when the thread's outermost scratch goes.
struct Overflow {
    Overflow* next;
};

struct ThreadBlock {
    uint8_t* data = nullptr;
    size_t size = 0;
    size_t used = 0; // also counts overflow pieces: what the block should have held
    size_t peak = 0;
    int depth = 0;
    Overflow* overflow = nullptr;

    ~ThreadBlock() { std::free(data); }
};

ThreadBlock& block() {
    static thread_local ThreadBlock instance;
    return instance;
}

size_t rounded(size_t size) { return (size + kSlack + kAlign - 1) & ~(kAlign - 1); }

} // namespace

Scratch::Scratch() : mark_(block().used) { ++block().depth; }

Scratch::~Scratch() {
    ThreadBlock& b = block();
    b.used = mark_;
    if (--b.depth > 0)
        return;
    if (!b.overflow)
        return;
    while (Overflow* piece = b.overflow) {
        b.overflow = piece->next;
        std::free(piece);
    }
    std::free(b.data);
    b.size = std::min(b.peak, kKept);
    b.peak = 0;
    b.data = b.size ? static_cast<uint8_t*>(std::aligned_alloc(kAlign, b.size)) : nullptr;
    if (!b.data)
        b.size = 0;
}

void* Scratch::bytes(size_t size) {
    ThreadBlock& b = block();
    const size_t need = rounded(size);
    if (size > SIZE_MAX / 2 || need > SIZE_MAX / 2 - b.used)
        return nullptr;
    const size_t at = b.used;
    if (at + need <= b.size) {
        b.used = at + need;
        return b.data + at;
    }
    void* piece = std::aligned_alloc(kAlign, kAlign + need);
    if (!piece)
        return nullptr;
    b.used = at + need;
    if (b.used > b.peak)
        b.peak = b.used;
    auto* head = static_cast<Overflow*>(piece);
    head->next = b.overflow;
    b.overflow = head;
    return static_cast<uint8_t*>(piece) + kAlign;
}

} // namespace tavi
