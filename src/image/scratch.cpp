// SPDX-License-Identifier: MIT
#include "image/scratch.h"

#include <algorithm>
#include <cstdlib>

namespace tavi {
namespace {

constexpr size_t kAlign = 64;
constexpr size_t kSlack = 64;      // readable behind each piece: vector loads may run over
constexpr size_t kKept = 4u << 20; // a thread keeps at most this much between requests

// A piece that did not fit into the block; freed when its scratch goes.
struct Overflow {
    Overflow* next;
    size_t at; // of what was used when it came
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
    while (b.overflow && b.overflow->at >= mark_) { // the last ones first: scratches nest
        Overflow* const piece = b.overflow;
        b.overflow = piece->next;
        std::free(piece);
    }
    if (--b.depth > 0)
        return;
    const size_t wanted = std::min(b.peak, kKept);
    b.peak = 0;
    if (wanted <= b.size)
        return;
    std::free(b.data);
    b.data = static_cast<uint8_t*>(std::aligned_alloc(kAlign, wanted));
    b.size = b.data ? wanted : 0;
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
    head->at = at;
    b.overflow = head;
    return static_cast<uint8_t*>(piece) + kAlign;
}

} // namespace tavi
