// SPDX-License-Identifier: MIT
// CPU view of an image that has only a descriptor, for the length of one call.
#pragma once

#include <cstddef>
#include <cstdint>

#include "os/dma_sync.h"

namespace tavi {

/// Whether two descriptors name one buffer: duplicates do.
bool is_same_buffer(int fd, int other);

/// How far `data` lies behind the first byte of the buffer behind `fd`, or -1 when it is no place where that buffer
/// is mapped, shared, into this process. Reads the list of the process's mappings: some tens of microseconds.
int64_t offset_in_buffer(const void* data, int fd);

class CpuMapping {
public:
    CpuMapping() = default;
    /// Maps the first `bytes` of the buffer behind `fd`. A buffer shorter than that is refused: a touch beyond its
    /// end would kill the process.
    CpuMapping(int fd, size_t bytes, Access access);
    CpuMapping(CpuMapping&& other) noexcept;
    CpuMapping& operator=(CpuMapping&& other) noexcept;
    ~CpuMapping();

    explicit operator bool() const { return data_ != nullptr; }
    uint8_t* data() const { return data_; }
    /// Why there is no mapping: an errno value, ENOSPC for a buffer that is too short; 0 when there is one.
    int error() const { return error_; }

    /// Leaves the mapping to the caller, who unmaps it.
    uint8_t* release();

private:
    uint8_t* data_ = nullptr;
    size_t bytes_ = 0;
    int error_ = 0;
};

} // namespace tavi
