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

/// Why the format, sides, colour and reserved fields of a frame cannot be used; its planes are not looked at. Fields
/// are named after `name`, e.g. "src".
Refusal check_shape(const tavi_frame_t* frame, const char* name);

/// A checked frame's shape: planes of their sizes in the order of memory, without gaps, without memory.
ImageView shape_of(const tavi_frame_t& frame);

/// What a checked frame's YUV samples mean.
ColorSpace color_of(const tavi_frame_t& frame);

bool all_zero(const uint32_t (&reserved)[8]);

class FrameAccess {
public:
    /// Checks the fields: no memory is touched.
    FrameAccess(const tavi_frame_t* frame, Access access, const char* name);

    /// Why it cannot be used.
    const Refusal& refusal() const { return refusal_; }
    /// What can be reached through a descriptor only has no address until it is mapped.
    const ImageView& view() const { return view_; }

    /// Maps what has a descriptor only.
    Refusal map();
    /// Begins the pass of the processor, which ends with the object. An engine must be done with the memory by then.
    void begin();
    /// All of it.
    Refusal open() {
        const Refusal no = map();
        if (!no)
            begin();
        return no;
    }

    enum class Overlap { none, same_planes, partial };
    /// How the pixels of another frame lie to this one's, at whatever addresses the two are seen. Rows of one pitch
    /// may lie side by side.
    Overlap overlap(const FrameAccess& other) const;

private:
    struct Plane { ///< in the order of the record
        PlaneView view;
        int fd = 0;
        int64_t offset = 0;  ///< in the descriptor's buffer
        bool mapped = false; ///< for this call
        CpuMapping mapping;  ///< held by the first plane of a descriptor
        std::optional<DmaSync> sync;
    };

    Refusal check(const tavi_frame_t* frame);
    void show();
    Refusal place(const tavi_plane_t& given, int i, const PlaneView& shape);
    Refusal map_from(int first);
    static int64_t place_in(int fd, const Plane& p);
    static bool find_starts(const Plane& a, const Plane& b, int64_t& a_start, int64_t& b_start);

    const char* name_;
    Access access_;
    ImageView view_;
    Plane plane_[3];
    Refusal refusal_; ///< last: opening fills the members above
};

} // namespace tavi
