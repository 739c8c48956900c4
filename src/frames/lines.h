// SPDX-License-Identifier: MIT
// Lines of a result shared out among the threads that a caller lends.
#pragma once

#include <algorithm>
#include <atomic>

#include "tavi_frame.h"

namespace tavi {

constexpr int kLinesTogether = 32; ///< parts begin at multiples: whole strips of a turned picture, whole chroma rows

/// Calls `make(first, end)` for parts that together are all lines from 0 to `lines`, on the executor's threads or,
/// where there is none or too little to do, on this one. False when one of the calls answered false.
template <class Make>
bool share_lines(const tavi_executor_t* executor, int lines, int64_t pixels, const Make& make) {
    constexpr int64_t kPixelsWorthAThread = 64 * 1024; // waking a thread takes some ten microseconds
    const int threads = executor ? (executor->concurrency ? executor->concurrency : 4) : 1;
    const int most = static_cast<int>(std::min<int64_t>(lines / kLinesTogether, pixels / kPixelsWorthAThread));
    const int parts = static_cast<int>(std::min<int64_t>(threads > 1 ? int64_t{2} * threads : 1,
                                                         most)); // the second half evens out what the first left
    if (parts <= 1)
        return make(0, lines);
    struct Shared {
        const Make& make;
        int lines, parts;
        std::atomic<bool> done{true};
        int first(int part) const {
            return part == parts ? lines
                                 : static_cast<int>(int64_t{lines} * part / parts) / kLinesTogether * kLinesTogether;
        }
    } shared{make, lines, parts};
    executor->run(
        executor->user,
        [](void* context, int32_t part) {
            auto& s = *static_cast<Shared*>(context);
            if (!s.make(s.first(part), s.first(part + 1)))
                s.done = false;
        },
        &shared, parts);
    return shared.done;
}

} // namespace tavi
