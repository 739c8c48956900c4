// SPDX-License-Identifier: MIT
// A record as the CPU routines see it for the length of one call: its shape checked, its pixels mapped if need be,
// the pass bracketed for the caches of a DMA buffer.
#pragma once

#include <optional>

#include "image/view.h"
#include "os/dma_sync.h"
#include "os/mapping.h"

namespace tavi {

enum class Overlap {
    none,
    same_start, ///< a request in place
    partial
};

class CpuImage {
public:
    /// Opens a record. `data` wins over the descriptor: a deep clone's descriptor names its source's memory.
    CpuImage(const tavi_image_t* record, Access access);

    explicit operator bool() const { return code_ == TAVI_RET_SUCCESS; }
    int code() const { return code_; }       ///< the result code of a record that cannot be used
    const char* why() const { return why_; } ///< and what is wrong with it, in words
    const ImageView& view() const { return view_; }

    /// Exact bytes of the pixels.
    size_t bytes() const { return bytes_; }
    /// Start of the pixels.
    uint8_t* data() const { return data_; }

    /// Sets the bytes that odd sizes leave behind the last plane to a neutral 128, so that a result is the same in
    /// every run. For a destination whose request has passed its checks.
    void clear_tail() const;

    /// How the other image's bytes lie to this one's, at whatever addresses the two are seen.
    Overlap overlap(const CpuImage& other) const;

private:
    void open(const tavi_image_t* record, Access access);
    void refuse(int code, const char* why);
    int64_t place_in(int fd) const;

    int code_ = TAVI_RET_SUCCESS;
    const char* why_ = "";
    ImageView view_;
    uint8_t* data_ = nullptr;
    size_t bytes_ = 0;
    int fd_ = -1;
    CpuMapping mapping_;
    std::optional<DmaSync> sync_;
};

} // namespace tavi

// A record in a log line; it may be null.
#define RECORD_TEXT "%p size=%ux%u fmt=%u data=%p fd=%d data_phy=%p"
#define RECORD(r)                                                                                                    \
    static_cast<const void*>(r), (r) ? (r)->width : 0u, (r) ? (r)->height : 0u,                                      \
        (r) ? static_cast<unsigned>((r)->pixel_format) : 0u, (r) ? static_cast<const void*>((r)->data) : nullptr,    \
        (r) ? (r)->fd : 0, (r) ? static_cast<const void*>((r)->data_phy) : nullptr
