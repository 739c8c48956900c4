// SPDX-License-Identifier: MIT
// What dispatch tests have in common: two images in device memory that every backend would take, and a case that
// says what is different, what is called, and the whole trace expected. Each case is a test of its own, and so runs
// in a process of its own under ctest: what is read once per process starts fresh.
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

    Scene() {
        fakes::world().name("src", src);
        fakes::world().name("dst", dst);
        fakes::world().names[&rect] = "rect";
        fakes::world().names[&out] = "out";
        for (int i = 0; i < 4; ++i)
            fakes::world().names[&f[i]] = "f" + std::to_string(i);
    }
};

struct Case {
    using Arrange = std::function<void(Scene&, fakes::World&)>;
    using Act = std::function<int(Scene&)>;

    Case(const char* n, tavi_log_level_t l, Arrange a, Act call, int r, std::string t)
        : name(n), level(l), arrange(std::move(a)), act(std::move(call)), ret(r), trace(std::move(t)) {}

    const char* name;
    tavi_log_level_t level;
    Arrange arrange;
    Act act;
    int ret;
    std::string trace;
};

inline void PrintTo(const Case& c, std::ostream* out) { *out << c.name; }

class Dispatch : public testing::TestWithParam<Case> {};

#define DISPATCH_CASES(group, cases)                                                                                 \
    INSTANTIATE_TEST_SUITE_P(group, Dispatch, testing::ValuesIn(cases),                                              \
                             [](const auto& row) { return std::string(row.param.name); })
