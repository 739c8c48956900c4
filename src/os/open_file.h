// SPDX-License-Identifier: MIT
// Files under descriptors that are no standard stream. A process that was started with one of those closed would get
// its number: what is printed, a log line for one, would land in the picture.
#pragma once

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "os/unique_fd.h"

namespace tavi {

static_assert(sizeof(off_t) == 8, "a file of 2 GiB, or one with a 64-bit inode, would count as absent");

/// open(), with O_CLOEXEC; empty with errno set.
inline UniqueFd open_file(const char* path, int flags, mode_t mode = 0) {
    UniqueFd fd(::open(path, flags | O_CLOEXEC, mode));
    if (!fd || fd.get() > 2)
        return fd;
    fd = above_standard(std::move(fd));
    if (!fd && (flags & O_EXCL)) {
        const int error = errno;
        ::unlink(path); // made here, and for nobody
        errno = error;
    }
    // Another thread's line may have come in between. A pipe or a device has no length, and keeps it.
    if (fd && (flags & (O_TRUNC | O_EXCL)) && ::ftruncate(fd.get(), 0) == 0)
        ::lseek(fd.get(), 0, SEEK_SET);
    return fd;
}

/// A stream on a descriptor, which is closed when there is none; null with errno set.
inline std::FILE* stream_of(UniqueFd fd, const char* mode) {
    std::FILE* const file = fd ? ::fdopen(fd.get(), mode) : nullptr;
    if (file)
        fd.release();
    return file;
}

/// As fopen() does with "r".
inline std::FILE* open_to_read(const char* path) { return stream_of(open_file(path, O_RDONLY), "r"); }
/// As fopen() does with "w".
inline std::FILE* open_to_write(const char* path) {
    return stream_of(open_file(path, O_WRONLY | O_CREAT | O_TRUNC, 0666), "w");
}

} // namespace tavi
