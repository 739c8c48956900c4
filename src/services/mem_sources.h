// SPDX-License-Identifier: MIT
// Where device memory comes from: the kernel's DMA heaps, udmabuf, a memfd.
#pragma once

#include <cstdint>

#include "os/unique_fd.h"

namespace tavi {

struct DeviceBuffer {
    UniqueFd fd;         ///< empty when no source had any; never below 3
    uint32_t source = 0; ///< TAVI_MEM_SOURCE_*
};

/// Asks the sources in order: the heap named by TAVI_DMA_HEAP, contiguous heaps, the system heap, udmabuf, a memfd.
/// With `contiguous` only contiguous heaps count.
DeviceBuffer allocate_device(uint32_t bytes, bool contiguous);

/// One source as the machine has it.
struct SourceReport {
    const char* path; ///< its node, e.g. /dev/dma_heap/system; "memfd" has none
    uint32_t source;  ///< TAVI_MEM_SOURCE_*
    int error;        ///< 0 = usable, else the errno that opening it gave
};

/// Looks at every source, usable or not, in the order in which they are asked.
void visit_sources(void (*visit)(const SourceReport& report, void* user), void* user);

} // namespace tavi
