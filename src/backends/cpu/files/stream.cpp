// SPDX-License-Identifier: MIT
#include "backends/cpu/files/stream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace tavi {

Bytes allocate_bytes(uint64_t count) {
    if (count == 0 || count > PTRDIFF_MAX)
        return nullptr;
    return Bytes(static_cast<uint8_t*>(std::malloc(static_cast<size_t>(count))));
}

Input::~Input() {
    if (file_)
        std::fclose(file_);
}

bool Input::open(const char* path) {
    file_ = std::fopen(path, "rbe");
    if (!file_)
        return false;
    errno = 0;
    head_size_ = std::fread(head_, 1, sizeof(head_), file_);
    return head_size_ > 0 || !std::ferror(file_); // a directory opens and then cannot be read
}

size_t Input::read_some(void* to, size_t size) {
    const size_t ahead = std::min(size, head_size_ - head_used_);
    if (ahead > 0)
        std::memcpy(to, head_ + head_used_, ahead);
    head_used_ += ahead;
    return ahead + std::fread(static_cast<uint8_t*>(to) + ahead, 1, size - ahead, file_);
}

bool Input::skip(uint64_t size) {
    uint8_t waste[512];
    while (size > 0) {
        const size_t part = static_cast<size_t>(std::min<uint64_t>(size, sizeof(waste)));
        if (!read(waste, part))
            return false;
        size -= part;
    }
    return true;
}

int Input::next() {
    uint8_t byte;
    return read(&byte, 1) ? byte : -1;
}

Bytes Input::read_all(size_t limit, size_t& size) {
    // A regular file says how long it is; a pipe does not, and a file may have grown since.
    struct stat status;
    size_t room = 1 << 16;
    if (::fstat(::fileno(file_), &status) == 0 && S_ISREG(status.st_mode))
        room = static_cast<size_t>(std::min<uint64_t>(static_cast<uint64_t>(status.st_size), limit)) + 1;
    Bytes bytes = allocate_bytes(room);
    size = 0;
    while (bytes) {
        size += read_some(bytes.get() + size, room - size);
        if (size > limit) {
            errno = EFBIG;
            return nullptr;
        }
        if (size < room)
            return std::ferror(file_) ? nullptr : std::move(bytes);
        room = std::min(room * 2, limit + 1);
        void* const larger = std::realloc(bytes.get(), room);
        if (!larger)
            break;
        static_cast<void>(bytes.release());
        bytes.reset(static_cast<uint8_t*>(larger));
    }
    errno = ENOMEM;
    return nullptr;
}

Output::~Output() {
    if (file_)
        std::fclose(file_);
    if (temporary_[0])
        ::unlink(temporary_);
}

bool Output::open(const char* path) {
    struct stat status;
    const bool exists = ::stat(path, &status) == 0;
    if (exists && !S_ISREG(status.st_mode)) {
        file_ = std::fopen(path, "wbe");
        return file_ != nullptr;
    }
    if (exists) {
        if (!::realpath(path, target_)) // PATH_MAX bytes are what it may write
            return false;
        if (::faccessat(AT_FDCWD, target_, W_OK, AT_EACCESS) != 0) // a rename would not ask
            return false;
    } else if (std::snprintf(target_, sizeof(target_), "%s", path) >= static_cast<int>(sizeof(target_))) {
        errno = ENAMETOOLONG;
        return false;
    }
    // The name does not grow out of the target's: one of 255 bytes, the longest there can be, works as well.
    static std::atomic<unsigned> counter{0};
    const char* const slash = std::strrchr(target_, '/');
    const int directory = slash ? static_cast<int>(slash - target_) + 1 : 0;
    int fd = -1;
    for (int attempt = 0; attempt < 100; ++attempt) {
        if (std::snprintf(temporary_, sizeof(temporary_), "%.*s.tavi-%ld-%u.tmp", directory, target_,
                          static_cast<long>(::getpid()), counter++) >= static_cast<int>(sizeof(temporary_))) {
            errno = ENAMETOOLONG;
            break;
        }
        fd = ::open(temporary_, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd >= 0 || errno != EEXIST)
            break;
    }
    if (fd < 0) {
        temporary_[0] = 0;
        return false;
    }
    if (exists && ::fchmod(fd, status.st_mode & 07777) != 0) {
        // Another owner's file keeps its contents' new permissions: not worth failing for.
    }
    file_ = ::fdopen(fd, "wb");
    if (!file_)
        ::close(fd);
    return file_ != nullptr;
}

bool Output::write(const void* from, size_t size) { return std::fwrite(from, 1, size, file_) == size; }

bool Output::commit() {
    const bool flushed = std::fflush(file_) == 0 && !std::ferror(file_);
    const int error = errno;
    const bool closed = std::fclose(std::exchange(file_, nullptr)) == 0; // some file systems tell of a full disk here
    if (!flushed) {
        errno = error;
        return false;
    }
    if (!closed)
        return false;
    if (temporary_[0] && std::rename(temporary_, target_) != 0)
        return false;
    temporary_[0] = 0;
    return true;
}

} // namespace tavi
