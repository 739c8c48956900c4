// SPDX-License-Identifier: MIT
// What the tests of the engine share: the log as text, and pictures in device memory.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "services/tavi_logger.h"
#include "tavi_image.h"

namespace tavi::test {

class DeviceTest : public testing::Test {
protected:
    void SetUp() override {
        TaviLogger::GetInstance()->level = TAVI_LOG_INFO;
        TaviLogger::GetInstance()->SetSink(
            [](void* user, tavi_log_level_t, const char*, const char*, const char* text) {
                static_cast<std::string*>(user)->append(text).append("\n");
            },
            &log);
    }
    void TearDown() override { TaviLogger::GetInstance()->SetSink(nullptr, nullptr); }
    bool logged(const char* words) const { return log.find(words) != std::string::npos; }
    std::string log;
};

struct Picture : tavi_image_t {
    Picture(tavi_pixel_format format, uint32_t w, uint32_t h, int type = 1) : tavi_image_t{} {
        pixel_format = format;
        width = w;
        height = h;
        EXPECT_EQ(tavi_image_create_mem2(this, type), 0);
    }
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;
    ~Picture() { tavi_image_destroy_mem(this); }

    /// A pattern that never repeats by whole rows.
    Picture& draw(int seed = 1) {
        for (uint32_t i = 0; i < size; ++i)
            data[i] = static_cast<uint8_t>(i * 7 + i / 251 + static_cast<uint32_t>(seed) * 59);
        return *this;
    }
    std::vector<uint8_t> bytes() const { return {data, data + size}; }
    /// The record as one has it who knows the descriptor only.
    tavi_image_t by_descriptor() const {
        tavi_image_t r = *this;
        r.data = nullptr;
        return r;
    }
};

} // namespace tavi::test
