// SPDX-License-Identifier: MIT
// Any bytes behind a file's signature, read as the first four choose: flag, format, sides. One fuzzer a file type.
#include <sys/mman.h>
#include <unistd.h>
#include <zlib.h>

#include <string>

#include "fuzz.h"

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

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static const int fd = memfd_create("picture", 0);
    static const std::string path = "/proc/self/fd/" + std::to_string(fd);
    Input in{bytes, size};
    const uint8_t how = in.byte(); // bits 0 to 2 and 4: the flag; 5: memory is lent; 6: a little less than is needed
    tavi_image_t img = {};
    img.pixel_format = static_cast<tavi_pixel_format>(in.byte() % 17);
    img.width = in.byte();
    img.height = in.byte();
    std::string file = kSignatures[TAVI_FUZZ_TYPE];
    file.append(reinterpret_cast<const char*>(in.at), in.left);
    if (TAVI_FUZZ_TYPE == PNG)
        mend_checksums(file);
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
