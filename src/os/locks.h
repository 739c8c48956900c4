// SPDX-License-Identifier: MIT
// The locks of the library. They stand together so that a fork can take them all: the child has only the thread that
// forked, and would wait for ever for a lock that another one held at that moment.
#pragma once

#include <mutex>
#include <shared_mutex>

namespace tavi {

/// In the order in which they are taken: who holds one may take a later one, never an earlier one.
struct Locks {
    std::mutex engines;         ///< the engine of the process and its contexts
    std::shared_mutex registry; ///< what the memory service gave out
    std::mutex pool;            ///< its pool of heap blocks
    std::mutex settings;        ///< which settings were reported
    std::mutex log;             ///< the log's sink; the time zone, whose lock in the C library no fork frees
};

extern Locks g_locks;

} // namespace tavi
