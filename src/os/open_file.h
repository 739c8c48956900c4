// SPDX-License-Identifier: MIT
// Files under descriptors that are no standard stream. A process that was started with one of those closed would get
// its number: what is printed, a log line for one, would land in the picture.
#pragma once

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <utility>

#include "os/unique_fd.h"

namespace tavi {

static_assert(sizeof(off_t) == 8, "a file of 2 GiB, or one with a 64-bit inode, would count as absent");

/// open(), with O_CLOEXEC; empty with errno set.
inline UniqueFd open_file(const char* path, int flags, mode_t mode = 0) {
    UniqueFd fd;
    do {
        fd = UniqueFd(::open(path, flags | O_CLOEXEC, mode));
    } while (!fd && errno == EINTR);
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

/// A stream on a descriptor, which is closed when there is none; null with errno set. One of fdopen() would take a
/// signal in the middle of a transfer for the end of the file, or lose what it was writing.
inline std::FILE* stream_of(UniqueFd fd, const char* mode) {
    static constexpr auto of = [](void* cookie) { return static_cast<int>(reinterpret_cast<intptr_t>(cookie)); };
    cookie_io_functions_t io = {};
    io.read = [](void* cookie, char* to, size_t size) {
        ssize_t got;
        do {
            got = ::read(of(cookie), to, size);
        } while (got < 0 && errno == EINTR);
        return got;
    };
    io.write = [](void* cookie, const char* from, size_t size) {
        size_t done = 0;
        while (done < size) {
            const ssize_t put = ::write(of(cookie), from + done, size - done);
            if (put < 0 && errno != EINTR)
                break;
            done += put > 0 ? static_cast<size_t>(put) : 0;
        }
        return static_cast<ssize_t>(done);
    };
    io.seek = [](void* cookie, off_t* at, int whence) {
        *at = ::lseek(of(cookie), *at, whence);
        return *at < 0 ? -1 : 0;
    };
    io.close = [](void* cookie) { return ::close(of(cookie)); };
    void* const cookie = reinterpret_cast<void*>(intptr_t{fd.get()}); // NOLINT(performance-no-int-to-ptr): no address
    std::FILE* const file = fd ? ::fopencookie(cookie, mode, io) : nullptr;
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
