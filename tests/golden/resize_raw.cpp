// SPDX-License-Identifier: MIT
// Resizes raw RGB pixels from standard input to standard output, for pillow_test.py.
// Usage: resize_raw WIDTH HEIGHT NEW-WIDTH NEW-HEIGHT FILTER
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "pixels/convert.h"

int main(int argc, char** argv) {
    int number[5] = {};
    if (argc != 6)
        return 2;
    for (int i = 0; i < 5; ++i)
        number[i] = std::atoi(argv[i + 1]);
    const auto [w, h, dw, dh, filter] = number;
    std::vector<uint8_t> src(size_t{3} * w * h), dst(size_t{3} * dw * dh);
    if (std::fread(src.data(), 1, src.size(), stdin) != src.size())
        return 1;
    const tavi::ImageView from = tavi::make_view(src.data(), TAVI_PIXEL_FORMAT_RGB888, w, h);
    if (tavi::convert_views(from, tavi::make_view(dst.data(), TAVI_PIXEL_FORMAT_RGB888, dw, dh), 0, filter))
        return 1;
    return std::fwrite(dst.data(), 1, dst.size(), stdout) != dst.size();
}
