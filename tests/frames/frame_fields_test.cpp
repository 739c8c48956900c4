// SPDX-License-Identifier: MIT
// What frames may be: fields that are refused by name, memory that overlaps, descriptors, layout and images.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <functional>
#include <vector>

#include "frames/frame_memory.h"
#include "services/tavi_mem.h"
#include "support/captured_log.h"

namespace tavi::test {
namespace {

/// A request that is served as it stands.
struct Request {
    FrameMemory src{TAVI_PIXEL_FORMAT_YUV420P_YU12, 20, 10, 3}, dst{TAVI_PIXEL_FORMAT_RGB888, 21, 9, 2};
    tavi_frame_options_t options{};
    tavi_executor_t executor{};
    std::vector<float> elements = std::vector<float>(3 * 20 * 10);
    tavi_tensor_t tensor{};
    bool to_tensor = false;

    Request() {
        tensor.data = elements.data();
        tensor.element = TAVI_TENSOR_FLOAT32;
        tensor.width = 20, tensor.height = 10;
    }
    int run() const {
        return to_tensor ? tavi_frame_to_tensor(&src.frame, &tensor, &options, nullptr)
                         : tavi_frame_convert(&src.frame, &dst.frame, &options, nullptr);
    }
};

struct BadField {
    const char* words;
    int code;
    std::function<void(Request&)> spoil;
};

TEST(FrameFields, AreRefusedByNameAndNothingIsWritten) {
    constexpr int kBad = TAVI_RET_PARAM_ERR, kNo = TAVI_RET_UNSUPPORTED;
    const auto tensor = [](auto change) {
        return [change](Request& r) {
            r.to_tensor = true;
            change(r.tensor);
        };
    };
    const BadField kFields[] = {
        {"src.format=16", kNo, [](Request& r) { r.src.frame.format = static_cast<tavi_pixel_format>(16); }},
        {"src size=0x10", kNo, [](Request& r) { r.src.frame.width = 0; }},
        {"dst size=21x16385", kNo, [](Request& r) { r.dst.frame.height = 16385; }},
        {"src.plane[1] has no memory", kBad, [](Request& r) { r.src.frame.plane[1].data = nullptr; }},
        {"src.plane[2].pitch=9", kBad, [](Request& r) { r.src.frame.plane[2].pitch = 9; }},
        {"dst.plane[0].pitch=0", kBad, [](Request& r) { r.dst.frame.plane[0].pitch = 0; }},
        {"src.plane[0] ends", kNo, [](Request& r) { r.src.frame.plane[0].pitch = 1u << 28; }},
        {"src.plane[1] and src.plane[2] overlap", kBad,
         [](Request& r) { r.src.frame.plane[2].data = r.src.frame.plane[1].data + 1; }},
        {"src.color.matrix=3", kBad, [](Request& r) { r.src.frame.color.matrix = 3; }},
        {"src.color.range=-1", kBad, [](Request& r) { r.src.frame.color.range = -1; }},
        {"src.color.siting=3", kBad, [](Request& r) { r.src.frame.color.siting = 3; }},
        {"dst.chroma_rounding=2", kBad, [](Request& r) { r.dst.frame.chroma_rounding = 2; }},
        {"dst.reserved", kBad, [](Request& r) { r.dst.frame.reserved[7] = 1; }},
        {"options.transform=5", kNo, [](Request& r) { r.options.transform = 5; }},
        {"options.filter=99", kBad, [](Request& r) { r.options.filter = 99; }},
        {"options.crop=(1 0) 20x10", kBad,
         [](Request& r) {
             r.options.crop = {1, 0, 20, 10};
         }},
        {"options.crop=(2147483647 0) 1x1", kBad,
         [](Request& r) {
             r.options.crop = {INT32_MAX, 0, 1, 1};
         }},
        {"options.place=(-1 0) 2x2", kBad,
         [](Request& r) {
             r.options.place = {-1, 0, 2, 2};
         }},
        {"options.fit=3", kBad, [](Request& r) { r.options.fit = 3; }},
        {"options.pad_color=0x1000000", kBad, [](Request& r) { r.options.pad_color = 0x1000000; }},
        {"options.engine=3", kBad, [](Request& r) { r.options.engine = 3; }},
        {"options.executor: run=null", kBad, [](Request& r) { r.options.executor = &r.executor; }},
        {"options.reserved", kBad, [](Request& r) { r.options.reserved[0] = 1; }},
        {"overlap", kBad, [](Request& r) { r.dst.frame.plane[0].data = r.src.frame.plane[0].data; }},
        {"tensor.data is null", kBad, tensor([](tavi_tensor_t& t) { t.data = nullptr; })},
        {"multiples of an element", kBad, tensor([](tavi_tensor_t& t) { t.data = static_cast<char*>(t.data) + 1; })},
        {"tensor.layout=2", kBad, tensor([](tavi_tensor_t& t) { t.layout = 2; })},
        {"tensor.element=4", kBad, tensor([](tavi_tensor_t& t) { t.element = 4; })},
        {"tensor.channels=-1", kBad, tensor([](tavi_tensor_t& t) { t.channels = -1; })},
        {"tensor size=0x10", kNo, tensor([](tavi_tensor_t& t) { t.width = 0; })},
        {"tensor.mean[2]=nan", kBad, tensor([](tavi_tensor_t& t) { t.mean[2] = std::nanf(""); })},
        {"tensor.zero_point=1", kBad, tensor([](tavi_tensor_t& t) { t.zero_point = 1; })},
        {"tensor.row_pitch=76", kBad, tensor([](tavi_tensor_t& t) { t.row_pitch = 76; })},
        {"tensor.channel_pitch=796", kBad, tensor([](tavi_tensor_t& t) { t.channel_pitch = 796; })},
        {"tensor.reserved", kBad, tensor([](tavi_tensor_t& t) { t.reserved[3] = 1; })},
        {"src and tensor overlap", kBad,
         [](Request& r) {
             r.to_tensor = true;
             r.src.frame.plane[1].data = reinterpret_cast<uint8_t*>(&r.elements[599]);
         }},
    };
    for (const BadField& field : kFields) {
        Request r;
        field.spoil(r);
        const std::string before = r.dst.pixels();
        expect_refused(field.code, field.words, [&] { return r.run(); });
        EXPECT_EQ(r.dst.pixels(), before) << field.words;
        EXPECT_EQ(r.elements, std::vector<float>(600)) << field.words;
    }
    Request r;
    expect_refused(kBad, "src is null", [&] { return tavi_frame_convert(nullptr, &r.dst.frame, nullptr, nullptr); });
    expect_refused(kBad, "tensor is null",
                   [&] { return tavi_frame_to_tensor(&r.src.frame, nullptr, nullptr, nullptr); });
    r.options.place = {1, 0, 2, 2};
    expect_refused(kBad, "options.place=(1 0) 2x2: allowed in yu12 are multiples of 2x2",
                   [&] { return tavi_frame_convert(&r.dst.frame, &r.src.frame, &r.options, nullptr); });
    ASSERT_EQ(Request().run(), 0);
}

TEST(FrameFields, InPlaceAndSideBySide) {
    FrameMemory image(TAVI_PIXEL_FORMAT_RGBA8888, 16, 8, 12), wanted(TAVI_PIXEL_FORMAT_BGRA8888, 16, 8);
    image.noise(1);
    tavi_frame_t turned = image.frame;
    turned.format = TAVI_PIXEL_FORMAT_BGRA8888;
    tavi_frame_options_t options{};
    options.transform = TAVI_IMAGE_TRANSFORM_ROTATE_180;
    tavi_frame_report_t report{};
    ASSERT_EQ(tavi_frame_convert(&image.frame, &wanted.frame, &options, nullptr), 0);
    ASSERT_EQ(tavi_frame_convert(&image.frame, &turned, &options, &report), 0);
    EXPECT_EQ(report.bytes_copied, 16u * 8 * 4);
    EXPECT_EQ(image.pixels(), wanted.pixels());
    EXPECT_TRUE(image.intact());

    tavi_frame_t grey = image.frame; // rows of as many bytes do not make it the same size
    grey.format = TAVI_PIXEL_FORMAT_GRAY8, grey.width = 64;
    expect_refused(TAVI_RET_PARAM_ERR, "src and dst overlap",
                   [&] { return tavi_frame_convert(&grey, &image.frame, nullptr, nullptr); });

    // The left half into the right half of the same rows; one column more overlaps.
    tavi_frame_t left = image.frame, right = image.frame;
    left.width = right.width = 8;
    right.plane[0].data += 8 * 4;
    const std::string before = image.pixels();
    ASSERT_EQ(tavi_frame_convert(&left, &right, nullptr, nullptr), 0);
    for (int y = 0; y < 8; ++y)
        EXPECT_EQ(std::memcmp(image.view.plane[0].at(8, y), before.data() + y * 64, 32), 0);
    left.width = 9;
    expect_refused(TAVI_RET_PARAM_ERR, "src and dst overlap",
                   [&] { return tavi_frame_convert(&left, &right, nullptr, nullptr); });
}

/// A descriptor with bytes in it.
struct Memfd {
    explicit Memfd(size_t size) : fd(memfd_create("frame", 0)), bytes(size, 7) { write(); }
    ~Memfd() { close(fd); }
    void write() { ASSERT_EQ(pwrite(fd, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size())); }
    std::vector<uint8_t> read() const {
        std::vector<uint8_t> now(bytes.size());
        EXPECT_EQ(pread(fd, now.data(), now.size(), 0), static_cast<ssize_t>(now.size()));
        return now;
    }
    int fd;
    std::vector<uint8_t> bytes;
};

TEST(FrameFields, DescriptorsAndOffsets) {
    FrameMemory src(TAVI_PIXEL_FORMAT_YUV420SP_NV12, 32, 16), wanted(TAVI_PIXEL_FORMAT_RGB888, 16, 8);
    src.noise(4);
    ASSERT_EQ(tavi_frame_convert(&src.frame, &wanted.frame, nullptr, nullptr), 0);
    Memfd luma(5000 + 16 * 32), chroma(100 + src.memory[1]->size()), result(64 + 8 * 50);
    std::copy_n(src.memory[0]->data(), 16 * 32, luma.bytes.data() + 5000);
    std::copy_n(src.memory[1]->data(), src.memory[1]->size(), chroma.bytes.data() + 100);
    luma.write();
    chroma.write();
    tavi_frame_t from = src.frame, to = wanted.frame;
    from.plane[0] = {nullptr, luma.fd, 5000, 32};
    from.plane[1] = {nullptr, chroma.fd, 100, from.plane[1].pitch};
    to.plane[0] = {nullptr, result.fd, 64, 50};
    ASSERT_EQ(tavi_frame_convert(&from, &to, nullptr, nullptr), 0);
    const std::vector<uint8_t> made = result.read();
    for (int y = 0; y < 8; ++y) {
        EXPECT_EQ(std::memcmp(made.data() + 64 + y * 50, wanted.view.plane[0].row(y), 48), 0);
        EXPECT_EQ(made[64 + y * 50 + 48], 7);
    }
    to.plane[0].offset += 4096;
    expect_refused(TAVI_RET_PARAM_ERR, "dst.plane[0].offset=4160",
                   [&] { return tavi_frame_convert(&from, &to, nullptr, nullptr); });
    tavi_frame_t meets = to; // the same buffer under another number, some rows further down
    meets.plane[0].fd = dup(result.fd), meets.plane[0].offset = 114, to.plane[0].offset = 64;
    meets.height = 7;
    expect_refused(TAVI_RET_PARAM_ERR, "overlap", [&] { return tavi_frame_convert(&meets, &to, nullptr, nullptr); });

    // So does what is mapped at another address, as descriptor and offset say, or one plane with the other.
    auto* const seen = static_cast<uint8_t*>(mmap(nullptr, 464, PROT_READ | PROT_WRITE, MAP_SHARED, result.fd, 0));
    auto* const again = static_cast<uint8_t*>(mmap(nullptr, 464, PROT_READ, MAP_SHARED, result.fd, 0));
    ASSERT_TRUE(seen != MAP_FAILED && again != MAP_FAILED);
    to.plane[0].data = seen + 64, meets.plane[0].data = again + 114;
    expect_refused(TAVI_RET_PARAM_ERR, "overlap", [&] { return tavi_frame_convert(&meets, &to, nullptr, nullptr); });
    tavi_frame_t planes = from;
    planes.width = 4, planes.height = 4;
    planes.plane[0] = {seen, result.fd, 0, 4}, planes.plane[1] = {nullptr, meets.plane[0].fd, 8, 4};
    expect_refused(TAVI_RET_PARAM_ERR, "dst.plane[0] and dst.plane[1] overlap",
                   [&] { return tavi_frame_convert(&from, &planes, nullptr, nullptr); });
    munmap(seen, 464);
    munmap(again, 464);
    close(meets.plane[0].fd);
}

TEST(FrameFields, LayoutMemoryAndImages) {
    tavi_frame_t f{};
    f.format = TAVI_PIXEL_FORMAT_YUV420P_YV12;
    f.width = 33, f.height = 17;
    size_t bytes = 0;
    ASSERT_EQ(tavi_frame_layout(&f, 16, &bytes), 0);
    EXPECT_EQ(f.plane[0].pitch, 48u);
    EXPECT_EQ(f.plane[1].pitch, 32u);
    EXPECT_EQ(f.plane[1].offset, 17u * 48);
    EXPECT_EQ(f.plane[2].offset, 17u * 48 + 9 * 32);
    EXPECT_EQ(bytes, 17u * 48 + 2 * 9 * 32);
    expect_refused(TAVI_RET_PARAM_ERR, "alignment=3", [&] { return tavi_frame_layout(&f, 3, nullptr); });

    expect_refused(TAVI_RET_PARAM_ERR, "mem_type=3: allowed are 0", [&] { return tavi_frame_create(&f, 64, 3); });
    ASSERT_EQ(tavi_frame_create(&f, 64, TAVI_MEM_TYPE_HEAP), 0);
    const tavi_frame_t held = f;
    std::memset(f.plane[0].data, 1, f.plane[2].offset + 9 * f.plane[2].pitch);
    tavi_image_t image{};
    expect_refused(TAVI_RET_UNSUPPORTED, "frame.chroma_rounding", [&] { return tavi_frame_to_image(&f, &image); });
    ASSERT_EQ(tavi_frame_release(&f), 0);
    EXPECT_EQ(f.plane[1].data, nullptr);
    f.plane[0] = held.plane[0];
    expect_refused(TAVI_RET_PARAM_ERR, "no memory of the library's", [&] { return tavi_frame_release(&f); });

    std::vector<uint8_t> pixels(33 * 17 * 3 / 2 + 8);
    image.pixel_format = TAVI_PIXEL_FORMAT_YUV420P_YV12;
    image.width = 33, image.height = 17;
    image.data = pixels.data();
    tavi_image_t back{};
    ASSERT_EQ(tavi_frame_from_image(&image, &f), 0);
    EXPECT_EQ(f.plane[2].data, pixels.data() + 33 * 17 + 16 * 8);
    ASSERT_EQ(tavi_frame_to_image(&f, &back), 0);
    EXPECT_EQ(back.data, pixels.data());
    EXPECT_EQ(back.size, 33u * 17 * 3 / 2);
    EXPECT_EQ(back.is_prealloc_buf, 1);
    const tavi_plane_t luma = f.plane[0];
    f.plane[0].fd = 3, f.plane[0].offset = 4096;
    expect_refused(TAVI_RET_UNSUPPORTED, "frame.plane[0].offset=4096",
                   [&] { return tavi_frame_to_image(&f, &back); });
    f.plane[0] = luma;
    f.plane[2].pitch = 17;
    expect_refused(TAVI_RET_UNSUPPORTED, "frame.plane[2]: pitch=17", [&] { return tavi_frame_to_image(&f, &back); });
    f.color.matrix = TAVI_MATRIX_BT709;
    expect_refused(TAVI_RET_UNSUPPORTED, "frame.color=(1 0 0)", [&] { return tavi_frame_to_image(&f, &back); });
}

} // namespace
} // namespace tavi::test
