// SPDX-License-Identifier: MIT
#include "os/dma_sync.h"

#include <cerrno>
#include <cstdint>

#include <fcntl.h>
#include <linux/dma-buf.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "os/kernel_calls.h"

namespace tavi {
namespace {

int sync(int fd, uint64_t flags) {
    dma_buf_sync request{};
    request.flags = flags;
    int result;
    do {
        result = call_driver(fd, DMA_BUF_IOCTL_SYNC, &request);
    } while (result == -EAGAIN);
    return result;
}

uint64_t direction(Access access) {
    switch (access) {
    case Access::read:
        return DMA_BUF_SYNC_READ;
    case Access::write:
        return DMA_BUF_SYNC_WRITE;
    default:
        return DMA_BUF_SYNC_RW;
    }
}

} // namespace

off_t buffer_bytes(int fd) {
    struct stat info {};
    if (::fstat(fd, &info) != 0)
        return -errno;
    if (info.st_size > 0)
        return info.st_size;
    const off_t end = ::lseek(fd, 0, SEEK_END); // a DMA buffer has its length here and none in fstat
    if (end < 0)
        return -errno;
    ::lseek(fd, 0, SEEK_SET);
    return end;
}

int clean_for_device(int fd) {
    // Anything that is no DMA buffer answers ENOTTY to the first of the two; the second one cleans.
    const int error = fd < 1 ? -EBADF : sync(fd, DMA_BUF_SYNC_START | DMA_BUF_SYNC_WRITE);
    return error ? error : sync(fd, DMA_BUF_SYNC_END | DMA_BUF_SYNC_WRITE);
}

int discard_after_device(int fd) {
    const int error = sync(fd, DMA_BUF_SYNC_START | DMA_BUF_SYNC_READ);
    if (!error)
        sync(fd, DMA_BUF_SYNC_END | DMA_BUF_SYNC_READ);
    return error;
}

DmaSync::DmaSync(int fd, Access access) : fd_(fd), access_(access) {
    if (fd_ < 1)
        return;
    // A start that reads discards cache lines, on 32-bit ARM the ones that hold unwritten pixels too. Applications
    // fill `data` without any bracket, so what they wrote is cleaned first.
    if (access_ != Access::write)
        clean_for_device(fd_);
    if (sync(fd_, DMA_BUF_SYNC_START | direction(access_)) != 0)
        fd_ = -1;
}

DmaSync::~DmaSync() {
    if (fd_ > 0)
        sync(fd_, DMA_BUF_SYNC_END | direction(access_));
}

} // namespace tavi
