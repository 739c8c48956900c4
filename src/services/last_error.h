// SPDX-License-Identifier: MIT
// The last error line of each thread, for tavi_last_error().
#pragma once

#include <cstddef>

namespace tavi {

/// Keeps a message for the calling thread, in place of the one before. Takes no lock; errno may change.
void keep_last_error(const char* message, size_t length);

/// What the calling thread kept; "" when it kept nothing.
const char* last_error();

} // namespace tavi
