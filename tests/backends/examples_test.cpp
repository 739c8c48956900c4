// SPDX-License-Identifier: MIT
// Runs the examples of the reference pages.
#include <algorithm>

#include "backends/device_test.h"
#include "support/temp_file.h"
#include "tavi_frame.h"

extern "C" int photo_to_frame(const char* photo, const char* frame);
extern "C" int mark(tavi_image_t* frame, tavi_rect_t box, const char* name, float score);
extern "C" int bytes_of(tavi_pixel_format format, uint32_t width, uint32_t height);
extern "C" int make_and_copy(void);
extern "C" void lend(tavi_image_t* img, uint8_t* pixels);
extern "C" uint64_t heap_in_use(void);
extern "C" int prepare(tavi_image_t* frame, tavi_image_t* rgb);
extern "C" int upright_rgb(tavi_image_t* frame, tavi_image_t* dst);
extern "C" int fit_and_map_back(tavi_image_t* frame, tavi_image_t* input, tavi_rect_t found, tavi_rect_t* in_frame);
extern "C" int face_input(tavi_image_t* frame, tavi_rect_t face, tavi_image_t* input);
extern "C" int cut_out(tavi_image_t* frame, tavi_rect_t region, tavi_image_t* out);
extern "C" int next_region(tavi_image_t* frame, tavi_rect_t region, tavi_image_t* lent);
extern "C" int align_face(tavi_image_t* photo, const float landmarks[10], tavi_image_t* face);
extern "C" int camera_to_tensor(uint8_t* luma, uint8_t* chroma, uint32_t pitch, float* input);
extern "C" tavi_frame_t right_half(const tavi_frame_t* frame);
int halve_on_two_threads(const tavi_frame_t* src, const tavi_frame_t* dst);
extern "C" int transposed(tavi_image_t* src, tavi_image_t* dst);
extern "C" const char* thumbnail(const void* mjpeg, size_t size, FILE* file);
extern "C" const char* convert_or_why(tavi_image_t* src, tavi_image_t* dst);
int borrow_memory();
std::string why_refused();
int read_upload(const char* path, tavi_image_t* img);
int retries();

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
    const std::string photo = jpeg.read();
    const TempFile small(".jpg");
    FILE* const file = fopen(small.path(), "wb");
    EXPECT_EQ(thumbnail(photo.data(), photo.size(), file), nullptr);
    EXPECT_NE(std::string(thumbnail(photo.data(), 100, file)).find("damaged"), std::string::npos);
    fclose(file);
    img = {};
    ASSERT_EQ(tavi_image_read(small.path(), &img, TAVI_IMAGE_READ_COLOR), TAVI_RET_SUCCESS);
    EXPECT_EQ(img.width, 160u);
    EXPECT_EQ(tavi_image_release(&img), TAVI_RET_SUCCESS);
}

TEST(Examples, OfFormatsMemoryAndSettings) {
    EXPECT_EQ(bytes_of(TAVI_PIXEL_FORMAT_YUV420SP_NV12, 3, 3), 13);
    EXPECT_EQ(bytes_of(static_cast<tavi_pixel_format>(16), 3, 3), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(make_and_copy(), TAVI_RET_SUCCESS);
    EXPECT_EQ(heap_in_use(), 0u);
    tavi_image_t img = {};
    img.width = img.height = 2;
    uint8_t pixels[4] = {};
    lend(&img, pixels);
    EXPECT_EQ(img.size, sizeof pixels);
    EXPECT_EQ(tavi_image_release(&img), TAVI_RET_FAIL);
    EXPECT_EQ(borrow_memory(), 0);
    EXPECT_NE(why_refused().find("tavi-image: "), std::string::npos);
    EXPECT_EQ(retries(), 3);
    EXPECT_STRNE(convert_or_why(nullptr, nullptr), "");
    const TempFile upload(".pgm");
    std::ofstream(upload.path()) << "P5 4001 3000 255\n";
    tavi_image_t received = {};
    EXPECT_EQ(read_upload(upload.path(), &received), TAVI_RET_UNSUPPORTED);
    EXPECT_EQ(read_upload(TAVI_ASSETS "/coffee.png", &received), TAVI_RET_SUCCESS);
    EXPECT_EQ(tavi_image_release(&received), TAVI_RET_SUCCESS);
}

TEST(Examples, OfFrames) {
    std::vector<uint8_t> camera(1408 * 768 * 3 / 2, 128), pixels(3 * 600 * 400), small(3 * 150 * 200);
    std::vector<float> input(3 * 224 * 224);
    ASSERT_EQ(camera_to_tensor(camera.data(), camera.data() + 1408 * 768, 1408, input.data()), TAVI_RET_SUCCESS);
    EXPECT_EQ(input[0], (0x72 - 127.5f) * (1 / 127.5f));
    EXPECT_EQ(input[224 * 112], (130 - 127.5f) * (1 / 127.5f)); // luma 128 of the limited range
    tavi_frame_t photo{}, half{};
    photo.format = half.format = TAVI_PIXEL_FORMAT_RGB888;
    photo.width = 600, photo.height = 400;
    photo.plane[0].data = pixels.data(), photo.plane[0].pitch = 3 * 600;
    half.width = 150, half.height = 200;
    half.plane[0].data = small.data(), half.plane[0].pitch = 3 * 150;
    for (int y = 0; y < 400; ++y)
        std::fill_n(pixels.data() + 3 * (600 * y + 300), 3 * 300, uint8_t{99});
    const tavi_frame_t right = right_half(&photo);
    ASSERT_EQ(halve_on_two_threads(&right, &half), TAVI_RET_SUCCESS);
    EXPECT_EQ(std::count(small.begin(), small.end(), 99), 3 * 150 * 200);
}

TEST(Examples, OfConversionRegionsAndTransforms) {
    tavi::test::Picture frame(TAVI_PIXEL_FORMAT_YUV420SP_NV12, 1920, 1080), input(TAVI_PIXEL_FORMAT_RGB888, 640, 640);
    tavi::test::Picture face(TAVI_PIXEL_FORMAT_RGB888, 112, 112);
    std::memset(frame.data, 128, frame.size);
    tavi_image_t rgb, cut, turned;
    ASSERT_EQ(prepare(&frame, &rgb), TAVI_RET_SUCCESS);
    EXPECT_TRUE(rgb.width == 320 && rgb.data[0] == 130); // luma 128 of the limited range
    EXPECT_EQ(tavi_image_release(&rgb), TAVI_RET_SUCCESS);
    ASSERT_EQ(upright_rgb(&frame, &rgb), TAVI_RET_SUCCESS);
    EXPECT_EQ(rgb.width, 540u);
    EXPECT_EQ(rgb.data[0], 130);
    tavi_rect_t r;
    ASSERT_EQ(fit_and_map_back(&frame, &input, {320, 320, 399, 379}, &r), TAVI_RET_SUCCESS);
    EXPECT_TRUE(r.left == 960 && r.top == 540 && r.right == 1199 && r.bottom == 719);
    EXPECT_EQ(input.data[0], 0x72);

    ASSERT_EQ(face_input(&frame, {100, 100, 199, 219}, &face), TAVI_RET_SUCCESS);
    EXPECT_EQ(face.data[face.size - 1], 130);
    EXPECT_EQ(next_region(&frame, {1900, 1060, 1919, 1079}, &face), TAVI_RET_SUCCESS);
    EXPECT_EQ(next_region(&frame, {1900, 1060, 1920, 1079}, &face), TAVI_RET_PARAM_ERR);
    ASSERT_EQ(cut_out(&frame, {3, 4, 12, 24}, &cut), TAVI_RET_SUCCESS);
    EXPECT_TRUE(cut.width == 16 && cut.height == 32) << cut.width << "x" << cut.height;

    const float landmarks[10] = {383, 517, 735, 515, 560, 717, 415, 924, 707, 922}; // ten times as large
    ASSERT_EQ(align_face(&rgb, landmarks, &face), TAVI_RET_SUCCESS);
    EXPECT_EQ(face.data[3 * (112 * 40 + 40)], 130);
    ASSERT_EQ(transposed(&rgb, &turned), TAVI_RET_SUCCESS);
    EXPECT_EQ(turned.width, rgb.height);
    for (tavi_image_t* img : {&rgb, &cut, &turned})
        EXPECT_EQ(tavi_image_release(img), TAVI_RET_SUCCESS);
}
