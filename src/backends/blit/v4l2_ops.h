// SPDX-License-Identifier: MIT
// The few system calls that the engine's backend makes, behind function pointers: the one seam where a script can
// stand in for a device.
#pragma once

namespace tavi {

/// Each answers -errno on failure and retries nothing.
struct V4l2Ops {
    int (*open)(const char* path); ///< non-blocking, close-on-exec; a descriptor
    int (*control)(int fd, unsigned long request, void* argument);
    int (*wait)(int fd, short events, int timeout_ms); ///< poll: what came, 0 after the time
    bool (*clean)(int fd);                             ///< caches written back; false = no DMA buffer
    void (*discard)(int fd);                           ///< what a device wrote made visible
};

/// The calls in use; the kernel's unless a test has put its own here.
V4l2Ops& v4l2_ops();

/// Calls the driver and repeats what a signal interrupted.
int call_driver(int fd, unsigned long request, void* argument);

} // namespace tavi
