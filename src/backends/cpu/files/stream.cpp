// SPDX-License-Identifier: MIT
#include "backends/cpu/files/stream.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>

#include "os/open_file.h"

namespace tavi {
namespace {

/// The bytes of a name up to its last slash, that one included.
size_t folder_length(const char* path) {
    const char* const slash = std::strrchr(path, '/');
    return slash ? static_cast<size_t>(slash - path) + 1 : 0;
}

/// The name at the end of a chain of symbolic links, where there may be nothing yet; false with errno set.
bool follow_links(const char* path, char (&target)[4096]) {
    constexpr int kMostLinks = 40; // as the kernel counts
    size_t length = std::strlen(path);
    size_t kept = 0;
    char link[sizeof(target)];
    for (int links = 0; links <= kMostLinks; ++links) {
        if (kept + length >= sizeof(target)) {
            errno = ENAMETOOLONG;
            return false;
        }
        std::memcpy(target + kept, links ? link : path, length);
        target[kept + length] = 0;
        const ssize_t got = ::readlink(target, link, sizeof(link));
        if (got < 0)
            return errno == EINVAL || errno == ENOENT; // no link, or nothing
        length = static_cast<size_t>(got);
        kept = link[0] == '/' ? 0 : folder_length(target);
    }
    errno = ELOOP;
    return false;
}

/// Of a name that nobody can prepare files for.
uint64_t random_number() {
    uint64_t number = 0;
    if (::getrandom(&number, sizeof(number), GRND_NONBLOCK) == static_cast<ssize_t>(sizeof(number)))
        return number;
    timespec now{}; // a machine that has just started has no randomness yet
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_nsec) << 32 ^ static_cast<uint64_t>(::getpid());
}

/// Owner and permissions of the file that this one takes the place of.
void take_after(int fd, const struct stat& old) {
    const bool owned = ::fchown(fd, old.st_uid, old.st_gid) == 0;
    if (!owned && ::fchown(fd, static_cast<uid_t>(-1), old.st_gid) != 0) {
        // The file is the writer's then, which is not worth failing for.
    }
    ::fchmod(fd, old.st_mode & (owned ? 07777 : 01777)); // whoever runs it must not become another than before
}

} // namespace

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
    UniqueFd fd = open_file(path, O_RDONLY);
    struct stat status;
    // Files of /proc have a length of 0 and more to read.
    if (fd && ::fstat(fd.get(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0)
        size_ = static_cast<uint64_t>(status.st_size);
    file_ = stream_of(std::move(fd), "r");
    if (!file_)
        return false;
    errno = 0;
    head_size_ = std::fread(head_, 1, sizeof(head_), file_);
    return head_size_ > 0 || !std::ferror(file_); // a directory opens and then cannot be read
}

void Input::open(const void* bytes, size_t size) {
    memory_ = static_cast<const uint8_t*>(bytes);
    size_ = size;
    head_size_ = std::min(size, sizeof(head_));
    std::memcpy(head_, bytes, head_size_);
}

size_t Input::read_some(void* to, size_t size) {
    if (memory_) {
        const auto got = static_cast<size_t>(std::min<uint64_t>(size, left()));
        if (got > 0)
            std::memcpy(to, memory_ + position_, got);
        position_ += got;
        return got;
    }
    const size_t ahead = std::min(size, head_size_ - head_used_);
    if (ahead > 0)
        std::memcpy(to, head_ + head_used_, ahead);
    head_used_ += ahead;
    const size_t got = ahead + std::fread(static_cast<uint8_t*>(to) + ahead, 1, size - ahead, file_);
    position_ = std::min(position_ + got, size_); // a file may grow
    return got;
}

bool Input::skip(uint64_t size) {
    if (memory_) {
        const bool there = size <= left();
        position_ += there ? size : 0;
        return there;
    }
    uint8_t waste[512];
    while (size > 0) {
        if (head_used_ == head_size_ && size_ != UINT64_MAX) {
            if (size > left() || ::fseeko(file_, static_cast<off_t>(size), SEEK_CUR) != 0)
                return false;
            position_ += size;
            return true;
        }
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

bool Input::append(Bytes& bytes, size_t& size, size_t count) {
    if (count == 0)
        return true;
    void* const larger = std::realloc(bytes.get(), size + count);
    if (!larger) {
        errno = ENOMEM;
        return false;
    }
    static_cast<void>(bytes.release());
    bytes.reset(static_cast<uint8_t*>(larger));
    size += read_some(bytes.get() + size, count);
    return memory_ || !std::ferror(file_);
}

bool Input::append_rest(Bytes& bytes, size_t& size, size_t limit) {
    const bool known = size_ != UINT64_MAX; // a pipe does not say how much will come
    for (;;) {
        if (size > limit || (known && left() > limit - size)) {
            errno = EFBIG;
            return false;
        }
        const size_t before = size;
        const size_t wanted =
            known ? static_cast<size_t>(left()) : std::min(std::max(size, size_t{1} << 16), limit + 1 - size);
        if (!append(bytes, size, wanted))
            return false;
        if (known || size - before < wanted)
            return true;
    }
}

Output::~Output() {
    if (file_)
        std::fclose(file_);
    if (temporary_[0])
        ::unlink(temporary_);
}

bool Output::open(const char* path) {
    struct stat old;
    const bool exists = ::stat(path, &old) == 0;
    if (!exists && errno != ENOENT) // what cannot be looked at must not be taken for absent
        return false;
    if (exists && !S_ISREG(old.st_mode)) {
        file_ = open_to_write(path);
        return file_ != nullptr;
    }
    if (!follow_links(path, target_))
        return false;
    if (exists && ::faccessat(AT_FDCWD, target_, W_OK, AT_EACCESS) != 0) // a rename would not ask
        return false;
    UniqueFd fd = create_temporary(exists ? 0600 : 0666);
    if (fd && exists)
        take_after(fd.get(), old);
    file_ = stream_of(std::move(fd), "w");
    return file_ != nullptr; // without a stream the destructor removes the file
}

bool Output::open(UniqueFd fd) {
    file_ = stream_of(std::move(fd), "w");
    return file_ != nullptr;
}

UniqueFd Output::create_temporary(mode_t mode) {
    // The name does not grow out of the target's: one of 255 bytes, the longest there can be, works as well.
    for (int attempt = 0; attempt < 100; ++attempt) {
        if (std::snprintf(temporary_, sizeof(temporary_), "%.*s.tavi-%016" PRIx64 ".tmp",
                          static_cast<int>(folder_length(target_)), target_,
                          random_number()) >= static_cast<int>(sizeof(temporary_))) {
            errno = ENAMETOOLONG;
            break;
        }
        UniqueFd fd = open_file(temporary_, O_WRONLY | O_CREAT | O_EXCL, mode);
        if (fd)
            return fd;
        if (errno != EEXIST)
            break;
    }
    temporary_[0] = 0;
    return {};
}

bool Output::write(const void* from, size_t size) { return std::fwrite(from, 1, size, file_) == size; }

Refusal Output::why() const { return {TAVI_RET_FAIL, "%s", std::strerror(errno)}; }

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
