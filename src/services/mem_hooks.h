// SPDX-License-Identifier: MIT
// How the memory service tells a room above it what became of a buffer. An engine that keeps its last buffers
// imported holds their memory after the descriptors are closed: it has to let go when a buffer is freed, and when
// memory runs out.
#pragma once

namespace tavi {

enum class MemEvent {
    freeing,          ///< the buffer behind the descriptor is about to be closed
    allocation_failed ///< a source had no memory; whatever can be let go should be (the descriptor is -1)
};

using MemListener = void (*)(MemEvent event, int fd);

/// One listener for the process, called without any lock held, on the thread that frees or allocates; null = none.
void set_mem_listener(MemListener listener);

void notify_mem_listener(MemEvent event, int fd);

} // namespace tavi
