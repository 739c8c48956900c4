// SPDX-License-Identifier: MIT
// Any bytes behind a file's signature, read as the first four choose: from a file or from memory, flag, format,
// sides. One fuzzer a file type.
#include <sys/mman.h>
#include <unistd.h>
#include <zlib.h>

#include <string>

#include "fuzz.h"
#include "tavi_frame.h"

namespace {

enum Type { JPEG, PNG, BMP, PNM };
constexpr const char* kSignatures[] = {"\xff\xd8\xff", "\x89PNG\r\n\x1a\n", "BM", "P"};

/// Otherwise nearly every change of a PNG ends at its checksum. A chunk: length, name, data, checksum.
void mend_checksums(std::string& file) {
    const auto byte = [&](size_t i) { return static_cast<uint32_t>(static_cast<uint8_t>(file[i])); };
    for (size_t i = 8; i + 12 <= file.size();) {
        const size_t data = byte(i) << 24 | byte(i + 1) << 16 | byte(i + 2) << 8 | byte(i + 3);
        if (data > file.size() - i - 12)
            return;
        const auto sum = crc32(0, reinterpret_cast<const Bytef*>(&file[i + 4]), static_cast<uInt>(data + 4));
        for (int b = 0; b < 4; ++b)
            file[i + 8 + data + b] = static_cast<char>(sum >> (24 - 8 * b));
        i += 12 + data;
    }
}

/// From memory that ends with the picture, into a frame that is empty or lent, of the sides of the record.
void decode(const std::string& file, const tavi_image_t& img, uint8_t how) {
    auto* const bytes = static_cast<uint8_t*>(std::malloc(file.size()));
    std::memcpy(bytes, file.data(), file.size());
    tavi_picture_info_t info;
    const int known = tavi_frame_probe(bytes, file.size(), &info);
    tavi_frame_t frame = {};
    frame.format = img.pixel_format;
    frame.width = img.width;
    frame.height = img.height;
    frame.chroma_rounding = how & 1;
    frame.color.range = how >> 1 & 1;
    tavi_decode_options_t options = {};
    options.as_stored = how >> 2 & 1;
    options.ignore_orientation = how >> 4 & 1;
    size_t size = 0;
    uint8_t* lent = nullptr;
    if ((how & 32) && tavi_frame_layout(&frame, how & 64 ? 16 : 1, &size) == TAVI_RET_SUCCESS) {
        lent = static_cast<uint8_t*>(std::malloc(size));
        for (tavi_plane_t& plane : frame.plane)
            plane.data = lent + plane.offset;
    }
    const int ret = tavi_frame_decode(bytes, file.size(), &frame, &options);
    if (ret == TAVI_RET_SUCCESS ? known != TAVI_RET_SUCCESS : frame.plane[0].data != lent)
        __builtin_trap();
    if (lent)
        std::free(lent);
    else
        tavi_frame_release(&frame);
    std::free(bytes);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static const int fd = memfd_create("picture", 0);
    static const std::string path = "/proc/self/fd/" + std::to_string(fd);
    Input in{bytes, size};
    // Bits 0 to 2 and 4: the flag; 5: memory is lent; 6: a little less than is needed; 7: from memory.
    const uint8_t how = in.byte();
    tavi_image_t img = {};
    img.pixel_format = static_cast<tavi_pixel_format>(in.byte() % 17);
    img.width = in.byte();
    img.height = in.byte();
    std::string file = kSignatures[TAVI_FUZZ_TYPE];
    file.append(reinterpret_cast<const char*>(in.at), in.left);
    if (TAVI_FUZZ_TYPE == PNG)
        mend_checksums(file);
    if (how & 128)
        return decode(file, img, how), 0;
    const int lent = how & 32 ? tavi_image_get_size(&img) - (how >> 6 & 1) : 0;
    if (lent > 0) {
        img.data = static_cast<uint8_t*>(std::malloc(lent));
        img.size = lent;
        img.is_prealloc_buf = 1;
    }
    uint8_t* const before = img.data;
    if (ftruncate(fd, 0) != 0 || pwrite(fd, file.data(), file.size(), 0) != static_cast<ssize_t>(file.size()))
        __builtin_trap();
    if (tavi_image_read(path.c_str(), &img, how & 23) != TAVI_RET_SUCCESS && img.data != before)
        __builtin_trap();
    if (img.data == before)
        std::free(before);
    else
        tavi_image_release(&img);
    return 0;
}
