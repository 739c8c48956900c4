// SPDX-License-Identifier: MIT
#include "os/mapping.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <utility>

#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "os/kernel_calls.h"
#include "os/open_file.h"

namespace tavi {

bool is_same_buffer(int fd, int other) {
    struct stat a {
    }, b{};
    return ::fstat(fd, &a) == 0 && ::fstat(other, &b) == 0 && a.st_ino == b.st_ino && a.st_dev == b.st_dev;
}

int64_t offset_in_buffer(const void* data, int fd) {
    struct stat wanted {};
    std::FILE* list = ::fstat(fd, &wanted) == 0 ? open_to_read("/proc/self/maps") : nullptr;
    if (!list)
        return -1;
    const auto address = reinterpret_cast<uintptr_t>(data);
    int64_t found = -1;
    char line[512]; // a longer line arrives in pieces, of which the later ones do not parse
    while (found < 0 && std::fgets(line, sizeof(line), list)) {
        uintptr_t start = 0, end = 0;
        char shared = 0;
        unsigned long long offset = 0, inode = 0;
        unsigned major_number = 0, minor_number = 0;
        if (std::sscanf(line, "%" SCNxPTR "-%" SCNxPTR " %*c%*c%*c%c %llx %x:%x %llu", &start, &end, &shared, &offset,
                        &major_number, &minor_number, &inode) == 7 &&
            start <= address && address < end && shared == 's' && inode == wanted.st_ino &&
            makedev(major_number, minor_number) == wanted.st_dev)
            found = static_cast<int64_t>(offset + (address - start));
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
    void* address = nullptr;
    if (const int error = kernel_calls().map(fd, bytes, protection, &address)) {
        error_ = -error;
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
        kernel_calls().unmap(data_, bytes_);
}

uint8_t* CpuMapping::release() { return std::exchange(data_, nullptr); }

} // namespace tavi
