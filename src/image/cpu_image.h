// SPDX-License-Identifier: MIT
// A record as the CPU routines see it for the length of one call: its shape checked, its pixels mapped if need be,
// the pass bracketed for the caches of a DMA buffer.
#pragma once

#include <optional>

#include "image/refusal.h"
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
    /// Opens a record, whose YUV pixels are of a colour space. `data` wins over the descriptor: a deep clone's
    /// descriptor names its source's memory.
    CpuImage(const tavi_image_t* record, Access access, ColorSpace color);

    explicit operator bool() const { return !refusal_; }
    /// What is wrong with a record that cannot be used.
    const Refusal& refusal() const { return refusal_; }
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
    Refusal open(const tavi_image_t* record, Access access, ColorSpace color);
    int64_t place_in(int fd) const;

    ImageView view_;
    uint8_t* data_ = nullptr;
    size_t bytes_ = 0;
    int fd_ = -1;
    CpuMapping mapping_;
    std::optional<DmaSync> sync_;
    Refusal refusal_; ///< last: opening fills the members above
};

enum class InPlace { allowed, refused };

/// Source and destination of one request.
struct CpuPair {
    /// Opens both and looks how they lie to each other.
    CpuPair(const tavi_image_t* src_record, const tavi_image_t* dst_record, ColorSpace color, InPlace rule);

    CpuImage src, dst;
    bool in_place = false; ///< they start at the same byte
    Refusal refusal;       ///< of either record, or of memory that overlaps
};

} // namespace tavi

// A record in a log line; it may be null.
#define RECORD_TEXT "%p size=%ux%u fmt=%u data=%p fd=%d data_phy=%p"
#define RECORD(r)                                                                                                    \
    static_cast<const void*>(r), (r) ? (r)->width : 0u, (r) ? (r)->height : 0u,                                      \
        (r) ? static_cast<unsigned>((r)->pixel_format) : 0u, (r) ? static_cast<const void*>((r)->data) : nullptr,    \
        (r) ? (r)->fd : 0, (r) ? static_cast<const void*>((r)->data_phy) : nullptr
