// SPDX-License-Identifier: MIT
// An owned file descriptor.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace tavi {

class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        reset(other.release());
        return *this;
    }
    ~UniqueFd() { reset(); }

    explicit operator bool() const { return fd_ >= 0; }
    int get() const { return fd_; }
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1) {
        if (fd_ >= 0) {
            const int error = errno; // closed on the way out of a failure, whose reason the caller still wants
            ::close(fd_);
            errno = error;
        }
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

/// The same file under a number of 3 or more. With standard input closed the kernel hands out 0, which an image
/// record reads as "no descriptor", and with standard error closed 2, to which log lines go. Empty, with errno set,
/// when the process has no descriptor left.
inline UniqueFd above_standard(UniqueFd fd) {
    if (!fd || fd.get() > 2)
        return fd;
    return UniqueFd(::fcntl(fd.get(), F_DUPFD_CLOEXEC, 3));
}

} // namespace tavi
