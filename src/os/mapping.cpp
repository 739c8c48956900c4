// SPDX-License-Identifier: MIT
#include "os/mapping.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <utility>

#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace tavi {

bool is_mapped_start(const void* data, int fd) {
    struct stat wanted {};
    std::FILE* list = ::fstat(fd, &wanted) == 0 ? std::fopen("/proc/self/maps", "re") : nullptr;
    if (!list)
        return false;
    bool found = false;
    char line[512]; // a longer line arrives in pieces, of which the later ones do not parse
    while (!found && std::fgets(line, sizeof(line), list)) {
        uintptr_t start = 0;
        char shared = 0;
        unsigned long long offset = 0, inode = 0;
        unsigned major_number = 0, minor_number = 0;
        if (std::sscanf(line, "%" SCNxPTR "-%*x %*c%*c%*c%c %llx %x:%x %llu", &start, &shared, &offset, &major_number,
                        &minor_number, &inode) == 6 &&
            start == reinterpret_cast<uintptr_t>(data))
            found = shared == 's' && offset == 0 && inode == wanted.st_ino &&
                    makedev(major_number, minor_number) == wanted.st_dev;
    }
    std::fclose(list);
    return found;
}

CpuMapping::CpuMapping(int fd, size_t bytes, Access access) {
    const off_t available = buffer_bytes(fd);
    if (available < 0) {
        error_ = static_cast<int>(-available);
        return;
    }
    if (static_cast<uint64_t>(available) < bytes) {
        error_ = ENOSPC;
        return;
    }
    const int protection = access == Access::read ? PROT_READ : PROT_READ | PROT_WRITE;
    void* address = ::mmap(nullptr, bytes, protection, MAP_SHARED, fd, 0);
    if (address == MAP_FAILED) {
        error_ = errno;
        return;
    }
    data_ = static_cast<uint8_t*>(address);
    bytes_ = bytes;
}

CpuMapping::CpuMapping(CpuMapping&& other) noexcept { *this = std::move(other); }

CpuMapping& CpuMapping::operator=(CpuMapping&& other) noexcept {
    std::swap(data_, other.data_);
    std::swap(bytes_, other.bytes_);
    std::swap(error_, other.error_);
    return *this;
}

CpuMapping::~CpuMapping() {
    if (data_)
        ::munmap(data_, bytes_);
}

uint8_t* CpuMapping::release() { return std::exchange(data_, nullptr); }

} // namespace tavi
