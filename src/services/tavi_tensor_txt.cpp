// SPDX-License-Identifier: MIT
// Writes bytes as decimal text through a block buffer: formatting each number with printf would take seconds for a
// large picture.
#include "services/tavi_tensor_txt.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "os/open_file.h"

#define TAVI_LOG_TAG "tavi-txt"
#include "services/log.h"

namespace {

constexpr int kBytesPerBlock = 4096;
constexpr int kCharsPerByte = 4; // three digits and the line feed

char* append_line(char* to, unsigned value) {
    if (value >= 100)
        *to++ = static_cast<char>('0' + value / 100);
    if (value >= 10)
        *to++ = static_cast<char>('0' + value / 10 % 10);
    *to++ = static_cast<char>('0' + value % 10);
    *to++ = '\n';
    return to;
}

} // namespace

int tavi_tensor_write_txt_uint8(const char* path, const uint8_t* data, int count) {
    if (!path || count < 0 || (!data && count > 0)) {
        LOG_ERROR("params error path=%s data=%p count=%d, allowed are a path, data and a count of 0 or more",
                  path ? path : "(null)", static_cast<const void*>(data), count);
        return -1;
    }
    FILE* file = tavi::open_to_write(path);
    if (!file) {
        LOG_ERROR("cannot open %s for writing: %s", path, strerror(errno));
        return -1;
    }
    char block[kBytesPerBlock * kCharsPerByte];
    bool whole = true;
    for (int done = 0; whole && done < count;) {
        char* end = block;
        for (const int stop = count - done < kBytesPerBlock ? count : done + kBytesPerBlock; done < stop; ++done)
            end = append_line(end, data[done]);
        const auto length = static_cast<size_t>(end - block);
        whole = fwrite(block, 1, length, file) == length;
    }
    // A full disk may show only when the last block leaves the stream.
    int error = whole ? 0 : errno;
    if (fclose(file) != 0 && whole) {
        whole = false;
        error = errno;
    }
    if (!whole) {
        LOG_ERROR("cannot write %d numbers to %s: %s", count, path, strerror(error));
        return -1;
    }
    return count;
}
