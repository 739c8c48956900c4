// SPDX-License-Identifier: MIT
#include "services/tavi_tensor_txt.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/temp_file.h"

namespace {

TEST(TensorTxt, WritesOneNumberALineAcrossBlocks) {
    for (const int count : {0, 1, 256, 4095, 4096, 4097, 20000}) {
        std::vector<uint8_t> data;
        std::string expected;
        for (int i = 0; i < count; ++i) {
            data.push_back(static_cast<uint8_t>(i * 7 + i / 256));
            expected += std::to_string(data.back()) + "\n";
        }
        const TempFile file(".txt");
        EXPECT_EQ(tavi_tensor_write_txt_uint8(file.path(), data.data(), count), count);
        EXPECT_EQ(file.read(), expected) << count;
    }
}

TEST(TensorTxt, ReportsWhatItCannotWrite) {
    // One number fits into the stream's buffer, so that the full disk shows only on closing.
    const std::vector<uint8_t> data(200000, 200);
    EXPECT_EQ(tavi_tensor_write_txt_uint8("/dev/full", data.data(), 1), -1);
    EXPECT_EQ(tavi_tensor_write_txt_uint8("/dev/full", data.data(), 200000), -1);
    EXPECT_EQ(tavi_tensor_write_txt_uint8("/nowhere/at/all.txt", data.data(), 1), -1);
    EXPECT_EQ(tavi_tensor_write_txt_uint8(nullptr, data.data(), 1), -1);
    const TempFile file(".txt");
    EXPECT_EQ(tavi_tensor_write_txt_uint8(file.path(), nullptr, 1), -1);
    EXPECT_EQ(tavi_tensor_write_txt_uint8(file.path(), data.data(), -1), -1);
}

} // namespace
