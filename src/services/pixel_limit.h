// SPDX-License-Identifier: MIT
// The setting TAVI_MAX_PIXELS: how large a picture a file may hold.
#pragma once

namespace tavi {

/// 16384 x 16384, which no picture exceeds, where memory is addressed with 64 bits; 64 Mi where it is with 32.
constexpr int kDefaultPixelLimit = sizeof(void*) > 4 ? 1 << 28 : 1 << 26;

/// A value of the setting, an integer from 1 on; false when it is none.
bool parse_pixel_limit(const char* text, int& pixels);

/// Width times height of the largest picture that is read. Read once per process; a malformed value is reported then,
/// at the error level, and counts as absent.
int pixel_limit();

} // namespace tavi
