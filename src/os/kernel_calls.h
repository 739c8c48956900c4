// SPDX-License-Identifier: MIT
// The few system calls with which engines and DMA buffers are spoken to, behind function pointers: the one seam where
// a script can stand in for a device.
#pragma once

#include <cstddef>

namespace tavi {

/// Each answers -errno on failure and retries nothing.
struct KernelCalls {
    int (*open)(const char* path); ///< non-blocking, close-on-exec; a descriptor
    int (*control)(int fd, unsigned long request, void* argument);
    int (*wait)(int fd, short events, int timeout_ms);                ///< poll: what came, 0 after the time
    int (*map)(int fd, size_t bytes, int protection, void** address); ///< from the start of the buffer, shared
    void (*unmap)(void* address, size_t bytes);
};

/// The calls in use; the kernel's unless a test has put its own here.
KernelCalls& kernel_calls();

/// Calls the driver and repeats what a signal interrupted.
int call_driver(int fd, unsigned long request, void* argument);

} // namespace tavi
