// SPDX-License-Identifier: MIT
#include "os/kernel_calls.h"

#include <cerrno>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>

#include "os/open_file.h"

namespace tavi {
namespace {

int kernel_open(const char* path) {
    UniqueFd fd = open_file(path, O_RDWR | O_NONBLOCK);
    return fd ? fd.release() : -errno;
}

int kernel_control(int fd, unsigned long request, void* argument) {
    return ::ioctl(fd, request, argument) < 0 ? -errno : 0;
}

int kernel_wait(int fd, short events, int timeout_ms) {
    pollfd entry{fd, events, 0};
    const int ready = ::poll(&entry, 1, timeout_ms);
    return ready < 0 ? -errno : entry.revents;
}

int kernel_map(int fd, size_t bytes, int protection, void** address) {
    *address = ::mmap(nullptr, bytes, protection, MAP_SHARED, fd, 0);
    return *address == MAP_FAILED ? -errno : 0;
}

void kernel_unmap(void* address, size_t bytes) { ::munmap(address, bytes); }

} // namespace

KernelCalls& kernel_calls() {
    static KernelCalls calls{kernel_open, kernel_control, kernel_wait, kernel_map, kernel_unmap};
    return calls;
}

int call_driver(int fd, unsigned long request, void* argument) {
    int result;
    do {
        result = kernel_calls().control(fd, request, argument);
    } while (result == -EINTR);
    return result;
}

} // namespace tavi
