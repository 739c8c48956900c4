// SPDX-License-Identifier: MIT
// One side of a conversion in the kernel's terms: the fields of V4L2's formats that matter, single- or multi-planar,
// what they are to be for an image, and whether an engine's answer is that.
#pragma once

#include <cstdint>

#include <linux/videodev2.h>

#include "backends/blit/engine_probe.h"
#include "backends/blit/m2m_node.h"
#include "image/refusal.h"
#include "image/view.h"

namespace tavi {

/// One side of a conversion.
struct Side {
    tavi_pixel_format format = TAVI_PIXEL_FORMAT_GRAY8;
    int width = 0;
    int height = 0;
    Box box;            ///< the part that is read or written
    uint32_t pitch = 0; ///< of the first plane; the others' follow from it, as the kernel's formats have it
    bool apart = false; ///< luma and chroma in a buffer each

    int buffers() const { return apart ? 2 : 1; }
};

/// How a plane of a side lies in memory, in bytes.
struct SidePlane {
    int buffer;
    uint32_t offset; ///< from the start of its buffer
    uint32_t pitch;
    uint32_t rows;
    uint32_t left, right, top, bottom; ///< of the rectangle: bytes of a row, and rows
};

/// A plane of a side, in the order of memory.
SidePlane plane_of(const Side& side, int plane);

/// What a side takes of one of its buffers, from the buffer's start on.
uint64_t bytes_of(const Side& side, int buffer);

/// The colour fields of a side. As asked for, those of RGB are the ones from which drivers take a YUV result's.
struct ColorFields {
    uint32_t colorspace = 0, encoding = 0, range = 0;
};

struct Layout {
    uint32_t fourcc = 0, width = 0, height = 0, field = V4L2_FIELD_NONE;
    uint32_t planes = 1;        ///< buffers
    uint32_t pitch[2] = {0, 0}; ///< of the first plane in each
    uint32_t bytes[2] = {0, 0};
    ColorFields color;
    uint32_t flags = 0;

    /// What is asked for. YUV pixels are of a colour space.
    Layout(const Side& side, ColorSpace space);
    /// What an engine answers.
    Layout(const v4l2_format& f, bool multiplanar);

    v4l2_format to_v4l2(Queue queue, bool multiplanar) const;

    /// For a result: insists on the colours, where the engine lets them be chosen.
    void choose_colors(const Side& side, ColorSpace space, const EngineInfo& engine);
};

/// The first field in which the engine's answer is not what an image of this kind needs.
Refusal compare_layout(Queue queue, const Side& side, ColorSpace space, const Layout& want, const Layout& got);

} // namespace tavi
