// SPDX-License-Identifier: MIT
#include "os/mapping.h"

#include <cerrno>
#include <utility>

#include <sys/mman.h>

namespace tavi {

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
