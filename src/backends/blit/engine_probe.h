// SPDX-License-Identifier: MIT
// Is a device node an engine, and what does it offer.
#pragma once

#include <cstdint>

#include "backends/blit/blit_formats.h"
#include "image/refusal.h"

namespace tavi {

/// What an engine is and offers.
struct EngineInfo {
    char path[64] = "";
    char driver[16] = "";
    char card[32] = "";
    bool multiplanar = false;
    FormatSet sources;
    FormatSet results;
    FormatSet apart[2];    ///< of either queue, those that it also has with luma and chroma in a buffer each
    FormatSet sets_matrix; ///< results whose YUV matrix can be chosen
    FormatSet sets_range;  ///< results whose range can be chosen
    bool scales = false;
    bool rectangles = false;                                          ///< crop and compose
    bool hflip = false, vflip = false, rotate = false, alpha = false; ///< controls
    uint32_t smallest[2] = {0, 0};                                    ///< sides of a source, when the driver tells
    uint32_t largest[2] = {0, 0};
};

/// Opens a node and finds out whether it is a usable engine. `info` holds what was learnt until the refusal.
Refusal examine_engine(const char* path, EngineInfo& info);

} // namespace tavi
