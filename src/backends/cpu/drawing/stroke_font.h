// SPDX-License-Identifier: MIT
// The built-in font: letters as strokes of a pen, of this library's own design. It covers ASCII, Latin-1, Greek and
// Cyrillic letters, arrows and common punctuation.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tavi {

// Every glyph lives in a cell of 24 rows; at size 24 a unit is a pixel. Accents of capitals stand in rows 1 to 3,
// capitals begin in row 5, small letters in row 9, all stand on row 18, and tails reach row 22.
inline constexpr int kCellRows = 24;
inline constexpr int kCapTop = 5;
inline constexpr int kSmallTop = 9;

/// The strokes of a glyph: points of two letters each, column then row, counted from 'A'. A small column letter is a
/// control point of a quadratic curve; between two of them lies a point of the curve, halfway. A stroke that begins
/// with a control point is closed. Blanks separate strokes.
struct GlyphPart {
    const char* strokes = "";
    int dx = 0; ///< added to the columns
    int dy = 0; ///< added to the rows
};

struct GlyphShape {
    GlyphPart part[2]; ///< the letter and its accent, if it has one
    int right = 0;     ///< the last column
};

/// The glyph of a code point; a box when there is none.
GlyphShape find_glyph(uint32_t code);

/// Whether there is a glyph of its own.
bool has_glyph(uint32_t code);

/// Takes one character off a zero-terminated UTF-8 string that is not at its end. A byte that is no part of a
/// well-formed character is taken alone and answers kBadByte.
uint32_t next_character(const char*& text);
inline constexpr uint32_t kBadByte = 0xffffffff;

} // namespace tavi
