// SPDX-License-Identifier: MIT
// Text of others in a line of ours: a file name with a line feed or a terminal's escape in it must not look like a
// line of its own.
#pragma once

#include <cstddef>

namespace tavi {

/// Whether the byte is an ASCII control, or belongs to one of U+0080 to U+009F in UTF-8.
inline bool is_control(const char* text, size_t length, size_t at) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const auto is_tail = [&](size_t i) { return byte(i) >= 0x80 && byte(i) < 0xa0; };
    if (byte(at) == 0xc2)
        return at + 1 < length && is_tail(at + 1);
    return byte(at) < 0x20 || byte(at) == 0x7f || (is_tail(at) && at > 0 && byte(at - 1) == 0xc2);
}

/// Bytes of the text with each such byte as \xNN.
inline size_t escaped_length(const char* text, size_t length) {
    size_t escaped = length;
    for (size_t i = 0; i < length; ++i)
        escaped += is_control(text, length, i) ? 3 : 0;
    return escaped;
}

/// Escapes in place, where there is room for `escaped` bytes, which is what escaped_length() said.
inline void escape_controls(char* text, size_t length, size_t escaped) {
    for (size_t to = escaped, from = length; from < to;) { // from the end: nothing is written over that is still read
        const unsigned char byte = static_cast<unsigned char>(text[--from]);
        if (is_control(text, length, from)) {
            text[--to] = "0123456789abcdef"[byte & 15];
            text[--to] = "0123456789abcdef"[byte >> 4];
            text[--to] = 'x';
            text[--to] = '\\';
        } else {
            text[--to] = static_cast<char>(byte);
        }
    }
}

} // namespace tavi
