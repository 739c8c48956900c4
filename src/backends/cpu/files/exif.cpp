// SPDX-License-Identifier: MIT
#include "backends/cpu/files/exif.h"

#include <algorithm>
#include <cstring>

namespace tavi {
namespace {

constexpr uint32_t kOrientationTag = 0x0112;
constexpr uint32_t kTypeShort = 3;

/// Bytes with an order; what lies beyond the end reads as 0, and every offset is a 64-bit number that cannot wrap.
struct TiffBytes {
    const uint8_t* data;
    size_t size;
    bool big_endian;

    uint32_t u16(uint64_t at) const {
        if (at + 2 > size)
            return 0;
        const uint32_t a = data[at];
        const uint32_t b = data[at + 1];
        return big_endian ? a << 8 | b : b << 8 | a;
    }
    uint32_t u32(uint64_t at) const {
        const uint32_t a = u16(at);
        const uint32_t b = u16(at + 2);
        return big_endian ? a << 16 | b : b << 16 | a;
    }
};

struct Segment {
    const uint8_t* body = nullptr; ///< behind its length; null: there is none
    size_t size = 0;
};

/// The first segment of a JPEG before the picture of which `wanted(marker, body, size)` is true.
template <class Wanted>
Segment find_segment(const uint8_t* jpeg, size_t size, const Wanted& wanted) {
    size_t at = 2; // after the start-of-image marker
    while (at + 4 <= size && jpeg[at] == 0xff) {
        const uint8_t marker = jpeg[at + 1];
        if (marker == 0xff) { // fill byte
            ++at;
            continue;
        }
        if (marker == 0xda || marker == 0xd9) // the picture starts, or the file ends
            break;
        if (marker == 0x01 || (marker >= 0xd0 && marker <= 0xd8)) { // markers without a segment
            at += 2;
            continue;
        }
        const size_t length = static_cast<size_t>(jpeg[at + 2]) << 8 | jpeg[at + 3]; // counts its own two bytes
        if (length < 2 || length > size - at - 2)
            break;
        if (wanted(marker, jpeg + at + 4, length - 2))
            return {jpeg + at + 4, length - 2};
        at += 2 + length;
    }
    return {};
}

} // namespace

int tiff_orientation(const uint8_t* tiff, size_t size) {
    if (size < 8)
        return 1;
    const bool big = std::memcmp(tiff, "MM\0*", 4) == 0;
    if (!big && std::memcmp(tiff, "II*\0", 4) != 0)
        return 1;
    const TiffBytes bytes{tiff, size, big};
    const uint64_t directory = bytes.u32(4);
    const uint32_t entries = bytes.u16(directory);
    for (uint32_t i = 0; i < entries; ++i) {
        const uint64_t entry = directory + 2 + uint64_t{i} * 12;
        if (entry + 12 > size)
            break;
        if (bytes.u16(entry) != kOrientationTag)
            continue;
        const uint32_t value = bytes.u16(entry + 8);
        const bool sound = bytes.u16(entry + 2) == kTypeShort && bytes.u32(entry + 4) == 1;
        return sound && value >= 1 && value <= 8 ? static_cast<int>(value) : 1;
    }
    return 1;
}

Subsampling jpeg_subsampling(const uint8_t* jpeg, size_t size) {
    constexpr size_t kFirst = 6; // components stand behind precision, sides and count: number, factors, table
    const Segment frame = find_segment(jpeg, size, [](uint8_t marker, const uint8_t*, size_t length) {
        constexpr uint8_t kHuffman = 0xc4, kExtension = 0xc8, kArithmetic = 0xcc; // no frames, among their markers
        return marker >= 0xc0 && marker <= 0xcf && marker != kHuffman && marker != kExtension &&
               marker != kArithmetic && length >= kFirst;
    });
    const size_t count = frame.body ? frame.body[kFirst - 1] : 0;
    if (count < 2 || frame.size < kFirst + 3 * count)
        return {};
    int x = 1, y = 1;
    for (size_t i = 0; i < count; ++i) {
        const uint8_t factors = frame.body[kFirst + 3 * i + 1];
        x = std::max(x, factors >> 4);
        y = std::max(y, factors & 15);
    }
    const uint8_t chroma = frame.body[kFirst + 3 + 1];
    return {x / std::max(chroma >> 4, 1), y / std::max(chroma & 15, 1)};
}

int jpeg_orientation(const uint8_t* jpeg, size_t size) {
    constexpr size_t kMark = 6; // "Exif" and two zeros
    const Segment exif = find_segment(jpeg, size, [](uint8_t marker, const uint8_t* body, size_t length) {
        return marker == 0xe1 && length >= kMark && std::memcmp(body, "Exif\0\0", kMark) == 0;
    });
    return exif.body ? tiff_orientation(exif.body + kMark, exif.size - kMark) : 1;
}

} // namespace tavi
