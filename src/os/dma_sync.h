// SPDX-License-Identifier: MIT
// The kernel's bracket around CPU access to a DMA buffer. Caches of the 32-bit target are not coherent with its
// engines: without the bracket stale lines show up in the picture.
#pragma once

#include <sys/types.h>

namespace tavi {

enum class Access { read, write, read_write };

/// Bytes behind a descriptor that can be mapped (a DMA buffer or a file), rounded up to pages by most exporters;
/// -errno when it has no size. The position of a file is left as it was.
off_t buffer_bytes(int fd);

/// Writes back what the CPU has in its caches. Nothing is discarded: safe before a device reads or writes. 0, or
/// -errno: ENOTTY for a descriptor that names no DMA buffer.
int clean_for_device(int fd);

/// Makes what a device wrote visible to the CPU. Only after the device has finished: lines that the CPU has written
/// and not cleaned may be lost. 0, or -errno.
int discard_after_device(int fd);

/// Brackets one pass of the CPU. Does nothing for a descriptor below 1 or one that is no DMA buffer.
class DmaSync {
public:
    DmaSync(int fd, Access access);
    DmaSync(const DmaSync&) = delete;
    DmaSync& operator=(const DmaSync&) = delete;
    ~DmaSync();

private:
    int fd_;
    Access access_;
};

} // namespace tavi
