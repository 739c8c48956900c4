// SPDX-License-Identifier: MIT
// A frame as the routines see it for the length of one call: its fields checked, its planes mapped where they have
// only a descriptor, the pass bracketed for the caches of DMA buffers.
#pragma once

#include <optional>

#include "image/refusal.h"
#include "image/view.h"
#include "os/dma_sync.h"
#include "os/mapping.h"
#include "tavi_frame.h"

namespace tavi {

/// Why the format, sides, colour and reserved fields of a frame cannot be used; its planes are not looked at.
Refusal check_shape(const tavi_frame_t* frame);

/// A frame's shape as a view without memory: plane sizes and steps are set, U and V in their places. The shape has
/// been checked.
ImageView shape_of(const tavi_frame_t& frame);

class FrameAccess {
public:
    /// Opens a frame. A refusal names the field after `name`, e.g. "src".
    FrameAccess(const tavi_frame_t* frame, Access access, const char* name);

    explicit operator bool() const { return !refusal_; }
    const Refusal& refusal() const { return refusal_; }
    const ImageView& view() const { return view_; }

    enum class Overlap { none, same_planes, partial };
    /// How the pixels of another frame lie to this one's.
    Overlap overlap(const FrameAccess& other) const;

private:
    Refusal open(const tavi_frame_t* frame, Access access, const char* name);

    ImageView view_;
    CpuMapping mapping_[3];
    std::optional<DmaSync> sync_[3];
    Refusal refusal_;
};

} // namespace tavi
