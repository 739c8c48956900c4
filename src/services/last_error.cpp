// SPDX-License-Identifier: MIT
#include "services/last_error.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <pthread.h>

namespace tavi {
namespace {

constexpr size_t kCapacity = 512; // with the terminator: a refusal has at most 320, and a path before it

/// Stands in a thread's slot when there was no memory for a buffer.
char g_refused[] = "an error, and no memory to keep its text";

void free_text(void* text) {
    if (text != g_refused)
        std::free(text);
}

/// The key that the buffers hang on (why a key: see Scratch). Made without a lock, since lines are issued under all
/// of them: of two threads that make it at once, one throws its own away. False when there are no keys left.
bool text_key(pthread_key_t& key) {
    static_assert(sizeof(pthread_key_t) <= sizeof(uint32_t), "a key and one more fit");
    static std::atomic<uint32_t> made{0}; // the key plus one; 0: none
    uint32_t number = made.load(std::memory_order_acquire);
    if (number == 0) {
        if (::pthread_key_create(&key, free_text) != 0)
            return false;
        const auto own = static_cast<uint32_t>(key) + 1;
        if (made.compare_exchange_strong(number, own, std::memory_order_acq_rel))
            number = own;
        else
            ::pthread_key_delete(key);
    }
    key = static_cast<pthread_key_t>(number - 1);
    return true;
}

} // namespace

void keep_last_error(const char* message, size_t length) {
    pthread_key_t key;
    if (!text_key(key))
        return;
    auto* text = static_cast<char*>(::pthread_getspecific(key));
    if (!text || text == g_refused) {
        text = static_cast<char*>(std::malloc(kCapacity));
        if (::pthread_setspecific(key, text ? text : g_refused) != 0) {
            std::free(text);
            return;
        }
        if (!text)
            return;
    }
    if (length >= kCapacity) {
        length = kCapacity - 1;
        for (int tail = 0; tail < 3 && (message[length] & 0xc0) == 0x80; ++tail)
            --length; // not in the middle of a character, which has at most three more bytes than its first
    }
    std::memcpy(text, message, length);
    text[length] = '\0';
}

const char* last_error() {
    pthread_key_t key;
    const void* const text = text_key(key) ? ::pthread_getspecific(key) : nullptr;
    return text ? static_cast<const char*>(text) : "";
}

} // namespace tavi
