// SPDX-License-Identifier: MIT
// What images and frames have in common for the engine: two pictures in DMA buffers, the checks that the engine must
// not be trusted with, and the job with what lies around it kept.
#pragma once

#include "backends/blit/context_pool.h"

namespace tavi {

/// One picture of a request, found fit for an engine.
struct Operand {
    const char* name; ///< as messages have it
    Side side;
    Memory memory;
    uint8_t* data = nullptr;     ///< where the application sees the first byte of the first buffer; null: nowhere
    uint64_t extent[2] = {0, 0}; ///< bytes of each buffer that may hold something, the picture's first

    explicit Operand(const char* n) : name(n) {}
    /// Completes the extents, which so far are what the memory service gave out.
    void complete_extents();
};

/// A request that passed every check that needs no engine at hand.
struct Request {
    EngineInfo engine;
    Operand src, dst;
    tavi_image_transform_mode mode = TAVI_IMAGE_TRANSFORM_NONE;
    ColorSpace color[2]; ///< as in Setup
    bool opened = false; ///< the engine was opened for it

    Request(const char* src_name, const char* dst_name) : src(src_name), dst(dst_name) {}
    Setup setup() const { return {src.side, dst.side, mode, {color[0], color[1]}}; }
};

/// Asks for the engine; the first step, since an operand is compared with what it offers.
Refusal find_engine(tavi_image_transform_mode mode, Request& r);

/// What the two operands must be to each other; cleans the caches: the last step before the job but for rectangles.
Refusal check_operands(const Request& r);

/// Whether `data` is the byte `offset` of the buffer. A deep clone keeps the descriptor of its source, and a region
/// may start inside a buffer: an engine would work on the wrong picture. `extent` grows to what the memory service
/// gave out.
bool lies_in_buffer(uint8_t* data, const Buffer& buffer, uint64_t offset, uint64_t& extent);

/// A rectangle of an operand.
Refusal take_box(const Box& box, Operand& o);

/// Runs a request. With `keep_rest` the destination's bytes outside its rectangle survive, also when it fails.
Refusal run_request(Request& r, bool keep_rest);

/// What was done, in words, for the line that says so.
struct Summary {
    char text[300];
    explicit Summary(const Request& r);
};

} // namespace tavi
