// SPDX-License-Identifier: MIT
// The one way in which settings are read as numbers; the logger and the settings reader share it because the reader
// logs and the logger has a setting of its own.
#pragma once

#include <cstdint>
#include <limits>

namespace tavi {

/// Reads a decimal or 0x hexadecimal integer with an optional sign, and nothing else: no spaces, no octal, nothing
/// after it. False, and `value` untouched, for anything else or out of the range of int.
inline bool parse_int(const char* text, int* value) {
    const bool negative = *text == '-';
    if (*text == '-' || *text == '+')
        ++text;
    int base = 10;
    if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text += 2;
    }
    if (!*text)
        return false;
    int64_t number = 0;
    for (; *text; ++text) {
        int digit = base;
        if (*text >= '0' && *text <= '9')
            digit = *text - '0';
        else if (*text >= 'a' && *text <= 'f')
            digit = *text - 'a' + 10;
        else if (*text >= 'A' && *text <= 'F')
            digit = *text - 'A' + 10;
        if (digit >= base)
            return false;
        number = number * base + digit;
        if (number > int64_t{1} << 32) // stop before a long row of digits overflows
            return false;
    }
    if (negative)
        number = -number;
    if (number < std::numeric_limits<int>::min() || number > std::numeric_limits<int>::max())
        return false;
    *value = static_cast<int>(number);
    return true;
}

} // namespace tavi
