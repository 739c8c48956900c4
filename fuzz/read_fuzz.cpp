// SPDX-License-Identifier: MIT
// Any bytes as an image file, read with a flag and into a format that the first two bytes choose.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>

#include "backends/cpu/tavi_image_cpu.h"
#include "services/tavi_logger.h"
#include "services/tavi_mem.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    TaviLogger::GetInstance()->level = -1;
    if (size < 2)
        return 0;
    const int flag = data[0] % 4 | (data[0] & 16);
    tavi_image_t img = {};
    img.pixel_format = static_cast<tavi_pixel_format>(data[1] % 16);
    const int fd = memfd_create("picture", 0);
    char path[32];
    std::snprintf(path, sizeof(path), "/proc/self/fd/%d", fd);
    if (write(fd, data + 2, size - 2) == static_cast<ssize_t>(size - 2)) {
        if (tavi_image_read_cpu(path, &img, flag) == TAVI_RET_SUCCESS) {
            if (img.data[0] + img.data[img.size - 1] == 511) // every byte is there to be read
                __builtin_trap();
            tavi_mem_free_by_virt_addr(img.data);
        } else if (img.data) {
            __builtin_trap();
        }
    }
    close(fd);
    return 0;
}
