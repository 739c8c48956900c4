// SPDX-License-Identifier: MIT
// Memory of an exact size between two pages that must not be touched. The buffer ends at the second; a fill value
// before its start, checked when asked, catches writes in front of it.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

namespace tavi::test {

class FenceBuffer {
public:
    /// `misalign` bytes are left between the buffer's end and the fence, to try other alignments of its start.
    explicit FenceBuffer(size_t size, size_t misalign = 0) : size_(size) {
        const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        inside_ = (size + misalign + page - 1) / page * page;
        std::vector<uint8_t*>& spare = spares()[inside_];
        if (spare.empty()) {
            auto* map = static_cast<uint8_t*>(
                mmap(nullptr, inside_ + 2 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
            if (map == MAP_FAILED || mprotect(map + page, inside_, PROT_READ | PROT_WRITE))
                abort();
            spare.push_back(map + page);
        }
        front_ = spare.back();
        spare.pop_back();
        data_ = front_ + inside_ - misalign - size;
        std::memset(front_, kFill, inside_);
    }
    FenceBuffer(const FenceBuffer&) = delete;
    FenceBuffer& operator=(const FenceBuffer&) = delete;
    ~FenceBuffer() { spares()[inside_].push_back(front_); }

    uint8_t* data() const { return data_; }
    size_t size() const { return size_; }

    /// Whether the bytes around the buffer, up to the fences, are as they were.
    bool intact() const {
        const auto is_fill = [](uint8_t byte) { return byte == kFill; };
        return std::all_of(front_, data_, is_fill) && std::all_of(data_ + size_, front_ + inside_, is_fill);
    }

private:
    static constexpr uint8_t kFill = 0xA5;
    /// Mappings that are free, by the bytes between their fences: they stay for the next buffer. A new mapping for
    /// each of a test's million buffers is slow, and leaves the addresses that a 32-bit emulator has.
    static std::map<size_t, std::vector<uint8_t*>>& spares() {
        static std::map<size_t, std::vector<uint8_t*>> all;
        return all;
    }

    size_t size_, inside_;
    uint8_t *front_, *data_;
};

} // namespace tavi::test
