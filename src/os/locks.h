// SPDX-License-Identifier: MIT
// The locks of the library. They stand together so that a fork can take them all: the child has only the thread that
// forked, and would wait for ever for what another one was doing at that moment.
#pragma once

#include <atomic>
#include <mutex>
#include <new>
#include <shared_mutex>

namespace tavi {

/// In the order in which they are taken: who holds one may take a later one, never an earlier one.
struct Locks {
    std::recursive_mutex first_use; ///< something is made that is made once; that may need something else of the kind
    std::mutex engines;             ///< the engine of the process and its contexts
    std::shared_mutex registry;     ///< what the memory service gave out
    std::mutex pool;                ///< its pool of heap blocks
    std::mutex settings;            ///< which settings were reported
    std::mutex log;                 ///< the log's sink; the time zone, whose lock in the C library no fork frees
};

/// Makes forks take the locks from now on; 0, or an errno value when there is no memory. Called once, when the
/// library is loaded: at its first use could be too late.
int watch_forks();

inline Locks g_locks; // without a constructor at run time: usable before and after all static objects

/// A value that the first thread to ask for it makes, while others wait; when making it throws, the next one tries.
/// It is never destroyed: threads may still work while the process ends. In place of a static variable in a function,
/// which a fork in the middle of its making leaves unusable in the child.
template <class T>
class FirstUse {
public:
    template <class Make>
    T& get(Make make) {
        T* value = value_.load(std::memory_order_acquire);
        if (!value) {
            const std::lock_guard<std::recursive_mutex> lock(g_locks.first_use);
            value = value_.load(std::memory_order_relaxed);
            if (!value)
                value_.store(value = new (storage_) T(make()), std::memory_order_release);
        }
        return *value;
    }

    /// Null before the first use.
    T* made() const { return value_.load(std::memory_order_acquire); }

private:
    std::atomic<T*> value_{nullptr};
    alignas(T) unsigned char storage_[sizeof(T)] = {};
};

} // namespace tavi
