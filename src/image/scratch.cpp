// SPDX-License-Identifier: MIT
#include "image/scratch.h"

#include <algorithm>
#include <cstdlib>

#include <pthread.h>

#include "os/locks.h"

namespace tavi {
namespace {

constexpr size_t kAlign = 64;
constexpr size_t kSlack = 64;      // readable behind each piece: vector loads may run over
constexpr size_t kKept = 4u << 20; // a thread keeps at most this much between requests

size_t rounded(size_t size) { return (size + kSlack + kAlign - 1) & ~(kAlign - 1); }

} // namespace

/// What a thread keeps. It hangs on a key of the thread library and not on a thread_local: for the destructor of one
/// the C library takes memory and aborts when there is none, and it is gone before the process has ended.
struct Scratch::ThreadBlock {
    uint8_t* data;
    size_t size;
    size_t used; ///< also counts overflow pieces: what the block should have held
    size_t peak;
    int depth; ///< scratches that are alive
};

/// A piece that did not fit into the block.
struct Scratch::Overflow {
    Overflow* next;
};

Scratch::ThreadBlock* Scratch::of_this_thread(bool make) {
    struct Key {
        Key() : valid(::pthread_key_create(&key, free_block) == 0) {}
        pthread_key_t key = 0;
        bool valid;
    };
    static FirstUse<Key> made;
    const Key& blocks = made.get([] { return Key(); });
    if (!blocks.valid)
        return nullptr;
    auto* block = static_cast<ThreadBlock*>(::pthread_getspecific(blocks.key));
    if (!block && make) {
        block = static_cast<ThreadBlock*>(std::calloc(1, sizeof(ThreadBlock)));
        if (block && ::pthread_setspecific(blocks.key, block) != 0) {
            std::free(block);
            block = nullptr;
        }
    }
    return block;
}

// Also when the thread ends. Its key is empty then; a request after that starts a new block, freed in turn.
void Scratch::free_block(void* block) {
    std::free(static_cast<ThreadBlock*>(block)->data);
    std::free(block);
}

Scratch::Scratch() : block_(of_this_thread(true)), mark_(block_ ? block_->used : 0) {
    if (block_)
        ++block_->depth;
}

Scratch::~Scratch() {
    while (Overflow* const piece = overflow_) {
        overflow_ = piece->next;
        std::free(piece);
    }
    if (!block_)
        return;
    ThreadBlock& b = *block_;
    b.used = mark_;
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
    if (size > SIZE_MAX / 2)
        return nullptr;
    const size_t need = rounded(size);
    if (block_) {
        ThreadBlock& b = *block_;
        const size_t at = b.used;
        if (need > SIZE_MAX / 2 - at)
            return nullptr;
        if (at + need <= b.size) {
            b.used = at + need;
            return b.data + at;
        }
    }
    auto* const piece = static_cast<Overflow*>(std::aligned_alloc(kAlign, kAlign + need));
    if (!piece)
        return nullptr;
    piece->next = overflow_;
    overflow_ = piece;
    if (block_) {
        block_->used += need;
        block_->peak = std::max(block_->peak, block_->used);
    }
    return reinterpret_cast<uint8_t*>(piece) + kAlign;
}

void trim_scratch() {
    Scratch::ThreadBlock* const b = Scratch::of_this_thread(false);
    if (!b || b->depth > 0)
        return;
    std::free(b->data);
    *b = {};
}

} // namespace tavi
