// SPDX-License-Identifier: MIT
// The setting TAVI_YUV: what the YUV images of this process are.
#pragma once

#include "image/colour.h"

namespace tavi {

/// A value of the setting; false when it is none of them.
bool parse_yuv(const char* text, ColorSpace& color);

/// bt601, bt709 or bt2020, each with -full or without; BT.601 limited where it is not set. Read once per process; a
/// malformed value is reported then, at the error level, and counts as absent.
ColorSpace yuv_setting();

} // namespace tavi
