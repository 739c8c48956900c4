// SPDX-License-Identifier: MIT
// Runs the examples of the reference pages.
#include <gtest/gtest.h>

#include "support/temp_file.h"
#include "tavi_image.h"

extern "C" int photo_to_frame(const char* photo, const char* frame);
extern "C" int mark(tavi_image_t* frame, tavi_rect_t box, const char* name, float score);

TEST(Examples, DoWhatTheirPagesSay) {
    const TempFile jpeg(".jpg");
    ASSERT_EQ(photo_to_frame(TAVI_ASSETS "/astronaut.png", jpeg.path()), TAVI_RET_SUCCESS);
    tavi_image_t img = {};
    img.pixel_format = TAVI_PIXEL_FORMAT_YUV422_YUYV;
    ASSERT_EQ(tavi_image_read(jpeg.path(), &img, TAVI_IMAGE_READ_INTO_RECORD), TAVI_RET_SUCCESS);
    EXPECT_EQ(img.width, 640u);
    const std::string before(reinterpret_cast<char*>(img.data), img.size);
    ASSERT_EQ(mark(&img, {100, 100, 299, 249}, "person", 0.93f), TAVI_RET_SUCCESS);
    EXPECT_NE(before, std::string(reinterpret_cast<char*>(img.data), img.size));
    EXPECT_EQ(tavi_image_release(&img), TAVI_RET_SUCCESS);
    EXPECT_EQ(photo_to_frame("/nowhere.png", jpeg.path()), TAVI_RET_FAIL);
}
