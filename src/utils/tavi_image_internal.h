// SPDX-License-Identifier: MIT
// What the files of the module share with each other and with nobody else.
#pragma once

#include <cstdint>
#include <cstdlib>

#include "tavi_image.h"

extern "C" {

/// Bytes per sample: 2 for 16-bit grey, 1 for every other format, valid or not; TAVI_RET_PARAM_ERR for null.
int tavi_image_type_size(tavi_image_t* img);

/// The setting "use_blit", read on the first call of the process and logged on each.
int tavi_image_config_use_blit();
}

namespace tavi {

/// The first ratio of a region's side to its destination's that the engine is not asked to scale by.
inline constexpr float kMaxEngineRatio = 16.0f;

/// Ordinary memory that tavi_image_release() gives to free(). Null when the heap refuses or when the count does not
/// fit into an int, as the size of no image does; never null for want of bytes.
inline uint8_t* heap_block(uint64_t bytes) {
    return bytes > INT32_MAX ? nullptr : static_cast<uint8_t*>(malloc(bytes ? static_cast<size_t>(bytes) : 1));
}

} // namespace tavi
