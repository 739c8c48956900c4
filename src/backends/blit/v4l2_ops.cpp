// SPDX-License-Identifier: MIT
#include "backends/blit/v4l2_ops.h"

#include <cerrno>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>

#include "os/dma_sync.h"

namespace tavi {
namespace {

int kernel_open(const char* path) {
    const int fd = ::open(path, O_RDWR | O_NONBLOCK | O_CLOEXEC);
    return fd < 0 ? -errno : fd;
}

int kernel_control(int fd, unsigned long request, void* argument) {
    return ::ioctl(fd, request, argument) < 0 ? -errno : 0;
}

int kernel_wait(int fd, short events, int timeout_ms) {
    pollfd entry{fd, events, 0};
    const int ready = ::poll(&entry, 1, timeout_ms);
    return ready < 0 ? -errno : entry.revents;
}

} // namespace

V4l2Ops& v4l2_ops() {
    static V4l2Ops ops{kernel_open, kernel_control, kernel_wait, clean_for_device, discard_after_device};
    return ops;
}

int call_driver(int fd, unsigned long request, void* argument) {
    int result;
    do {
        result = v4l2_ops().control(fd, request, argument);
    } while (result == -EINTR);
    return result;
}

} // namespace tavi
