// SPDX-License-Identifier: MIT
// What the tests of the files share: bytes that become files, images read from them, and pictures encoded by the
// codec's library itself.
#pragma once

#include <cmath>
#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <turbojpeg.h>

#include "backends/cpu/tavi_image_cpu.h"
#include "services/tavi_mem.h"
#include "support/temp_file.h"

namespace tavi::test {

using Blob = std::vector<uint8_t>;

inline Blob operator+(Blob a, const Blob& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
inline Blob text(const std::string& s) { return Blob(s.begin(), s.end()); }

inline void put(const std::string& path, const Blob& bytes) {
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

/// An image read from bytes: attached memory is copied and given back.
struct Result {
    int ret = 0;
    tavi_image_t img = {};
    Blob pixels;
};

inline Result read_file(const char* path, int flag, tavi_image_t img = {}) {
    Result r;
    r.ret = tavi_image_read_cpu(path, &img, flag);
    r.img = img;
    if (img.data && img.is_prealloc_buf != 1) {
        r.pixels.assign(img.data, img.data + img.size);
        EXPECT_EQ(tavi_mem_free_by_virt_addr(img.data), 0);
    }
    return r;
}

inline Result read_bytes(const Blob& bytes, int flag, tavi_image_t img = {}) {
    const TempFile file;
    put(file.path(), bytes);
    return read_file(file.path(), flag, img);
}

/// A record for the reader to give memory.
inline tavi_image_t wanted(int format, uint32_t width = 0, uint32_t height = 0) {
    return {nullptr, 0, 0, static_cast<tavi_pixel_format>(format), width, height, 0, nullptr};
}

inline void expect_read(const char* name, const Blob& file, int flag, int format, int width, int height,
                        const Blob& pixels) {
    SCOPED_TRACE(name);
    const Result r = read_bytes(file, flag, wanted(flag == 3 ? format : 0));
    ASSERT_EQ(r.ret, 0) << flag << " " << format;
    EXPECT_EQ(std::tie(r.img.width, r.img.height), std::make_tuple(unsigned(width), unsigned(height)));
    EXPECT_EQ(r.img.pixel_format, format);
    EXPECT_EQ(r.pixels, pixels);
}

/// A number of a file of /proc.
inline int64_t process_value(const char* path, const std::string& name) {
    std::ifstream in(path);
    for (std::string word; in >> word;)
        if (word == name && in >> word)
            return std::stoll(word);
    return -1;
}

/// How far the process's memory grew during a call.
template <typename Call>
int64_t peak_kib(Call call) {
    std::ofstream("/proc/self/clear_refs") << 5; // the peak starts again
    const int64_t before = process_value("/proc/self/status", "VmRSS:");
    call();
    return process_value("/proc/self/status", "VmHWM:") - before;
}

/// A smooth colour picture with one bright corner, so that turning it shows.
inline Blob smooth(int width, int height, int channels) {
    Blob p(static_cast<size_t>(width) * height * channels);
    for (int i = 0; i < int(p.size()); ++i) {
        const int c = i % channels, x = i / channels % width, y = i / channels / width;
        const double phase = (x * (c + 1) + y * (3 - c)) * 3.0 / (width + height);
        p[i] = static_cast<uint8_t>(c == 3 ? 40 + 3 * x : 128 + 90 * std::sin(phase));
    }
    return p;
}

inline Blob make_jpeg(const Blob& pixels, int width, int height, int format, int subsampling, int flags = 0) {
    tjhandle handle = tjInitCompress();
    unsigned char* out = nullptr;
    unsigned long size = 0;
    EXPECT_EQ(tjCompress2(handle, pixels.data(), width, 0, height, format, &out, &size, subsampling, 90, flags), 0);
    Blob jpeg(out, out + size);
    tjFree(out);
    tjDestroy(handle);
    return jpeg;
}

} // namespace tavi::test
