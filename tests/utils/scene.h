// SPDX-License-Identifier: MIT
// What dispatch tests have in common: two images in device memory that every backend would take, and a case that
// says in words what is different, what is called, and the whole trace expected. Each case is a test of its own, and
// so runs in a process of its own under ctest: what is read once per process starts fresh.
#pragma once

#include <ostream>

#include <gtest/gtest.h>

#include "fakes/fakes.h"
#include "services/tavi_logger.h"

struct Scene {
    uint8_t src_pixels[256] = {};
    uint8_t dst_pixels[256] = {};
    tavi_image_t src{src_pixels, 256, 0, TAVI_PIXEL_FORMAT_YUV420SP_NV12, 640, 480, 3, nullptr};
    tavi_image_t dst{dst_pixels, 256, 0, TAVI_PIXEL_FORMAT_RGB888, 320, 240, 4, nullptr};
    tavi_rect_t rect{10, 20, 109, 99}; ///< 100 x 80
    tavi_rect_t out{1, 2, 3, 4};
    float f[4] = {};

    /// `changes` are words: "src.fd=-1 dst.w=64 src.data=0 roi=0,0,9,9 setting=2 heap=0"; "setting=" alone is an
    /// environment without the setting, and every other word is the answer of a fake, as in "probe=1".
    explicit Scene(const std::string& changes = "");
};

struct Case {
    const char* name;
    tavi_log_level_t level;
    const char* changes;
    int (*act)(Scene&);
    int ret;
    std::string trace;
};

inline void PrintTo(const Case& c, std::ostream* out) { *out << c.changes; }

class Dispatch : public testing::TestWithParam<Case> {};

#define DISPATCH_CASES(group, cases)                                                                                 \
    INSTANTIATE_TEST_SUITE_P(group, Dispatch, testing::ValuesIn(cases),                                              \
                             [](const auto& row) { return std::string(row.param.name); })
