// SPDX-License-Identifier: MIT
#include "services/tavi_mlrt.h"
#include "utils/scene.h"
#include "utils/tavi_image_internal.h"

namespace {

using fakes::World;

TEST(Record, ChannelsSampleSizeAndBytes) {
    const struct {
        uint32_t format, width, height;
        int channels, sample, bytes;
    } rows[] = {
        {0, 3, 3, 1, 1, 9},
        {1, 4, 2, 3, 1, 24},
        {2, 4, 2, 3, 1, 24},
        {3, 4, 2, 4, 1, 32},
        {4, 4, 2, 4, 1, 32},
        {5, 3, 3, -2, 1, 13},
        {6, 3, 3, -2, 1, 13},
        {7, 640, 480, -2, 1, 460800},
        {8, 3, 3, -2, 1, 13},
        {9, 3, 3, -2, 1, 18},
        {10, 3, 3, -2, 1, 18},
        {11, 3, 3, -2, 1, 18},
        {12, 3, 3, -2, 1, 18},
        {13, 4, 2, -2, 1, 16},
        {14, 4, 2, -2, 1, 16},
        {15, 4, 2, 1, 2, 16},
        {16, 4, 2, -2, 1, -2},
        {0xffffffff, 4, 2, -2, 1, -2},
        {3, 32768, 32768, 4, 1, 0},       // wraps at 32 bits
        {0, 65535, 65535, 1, 1, -131071}, // 2 GiB and more reads as negative
        {7, 65536, 21846, -2, 1, 65536},  // wraps before it is halved
    };
    for (const auto& row : rows) {
        tavi_image_t img{};
        img.pixel_format = static_cast<tavi_pixel_format>(row.format), img.width = row.width, img.height = row.height;
        EXPECT_EQ(tavi_image_get_channels(&img), row.channels) << row.format;
        EXPECT_EQ(tavi_image_type_size(&img), row.sample) << row.format;
        EXPECT_EQ(tavi_image_get_size(&img), row.bytes) << row.format << " " << row.width << "x" << row.height;
    }
    EXPECT_EQ(tavi_image_get_channels(nullptr), -2);
    EXPECT_EQ(tavi_image_type_size(nullptr), -2);
    EXPECT_EQ(tavi_image_get_size(nullptr), -2);
}

// A clone must be released, and its record freed.
int release_clone(Scene& s, int deep) {
    tavi_image_t* clone = tavi_image_clone2(&s.src, deep);
    clone->data[0] = 7;
    fakes::world().names[clone->data] = clone->data == s.src_pixels ? "src.data" : "copy";
    EXPECT_EQ(clone->fd, 3);
    EXPECT_EQ(clone->data_phy, s.src.data_phy);
    EXPECT_EQ(clone->is_prealloc_buf, 0);
    const int ret = tavi_image_release(clone);
    free(clone);
    return ret;
}

void small(Scene& s) { s.src.width = 16, s.src.height = 8, s.src.data_phy = &s, s.src.is_prealloc_buf = 1; }

const Case kMemory[] = {
    Case(
        "CreateOfNoSize", TAVI_LOG_ERROR, [](Scene& s, World&) { s.src.width = 0; },
        [](Scene& s) { return tavi_image_create_mem(&s.src); }, -2,
        "E tavi_image_create_mem2: error accord image params caculate mem size=0"),
    Case(
        "CreateHandsAnInvalidFormatOn", TAVI_LOG_DEBUG,
        [](Scene& s, World& w) { s.src.pixel_format = static_cast<tavi_pixel_format>(16), w.answers["alloc"] = -11; },
        [](Scene& s) { return tavi_image_create_mem2(&s.src, 2); }, -11, "alloc -2 2"),
    Case(
        "CreateFillsTheRecord", TAVI_LOG_ERROR, nullptr,
        [](Scene& s) {
            const int ret = tavi_image_create_mem(&s.src);
            fakes::world().names[s.src.data] = "new";
            EXPECT_EQ(s.src.size, 460800u);
            EXPECT_EQ(s.src.fd, 9);
            EXPECT_EQ(s.src.data_phy, reinterpret_cast<void*>(0x1000));
            return ret + tavi_image_destroy_mem(&s.src);
        },
        0, "alloc 460800 1 | mem_free new"),
    Case(
        "DestroyOfNothing", TAVI_LOG_ERROR, [](Scene& s, World&) { s.src.data = nullptr; },
        [](Scene& s) { return tavi_image_destroy_mem(nullptr) + tavi_image_destroy_mem(&s.src); }, -4,
        "E tavi_image_destroy_mem: image->data can not be nullptr"),
    Case(
        "DestroyDoesNotAskWhoOwnsIt", TAVI_LOG_ERROR,
        [](Scene& s, World& w) { s.src.is_prealloc_buf = 1, w.answers["mem_free"] = -3; },
        [](Scene& s) { return tavi_image_destroy_mem(&s.src); }, -3, "mem_free src.data"),
    Case(
        "ReleaseOfNothing", TAVI_LOG_DEBUG, [](Scene& s, World&) { s.src.data = nullptr; },
        [](Scene& s) { return tavi_image_release(nullptr) + tavi_image_release(&s.src); }, -4, ""),
    Case(
        "ReleaseLeavesTheCallersBuffer", TAVI_LOG_WARN, [](Scene& s, World&) { s.src.is_prealloc_buf = 1; },
        [](Scene& s) { return tavi_image_release(&s.src); }, -1,
        "W tavi_image_release: no need to release prealloc buffer!"),
    Case(
        "ReleaseTakesTwoForItsOwn", TAVI_LOG_DEBUG,
        [](Scene& s, World& w) { s.src.is_prealloc_buf = 2, w.answers["mem_free"] = -12; },
        [](Scene& s) { return tavi_image_release(&s.src); }, -12, "mem_check src.data 0 | mem_free src.data"),
    Case(
        "DeepCloneIsHeapMemory", TAVI_LOG_DEBUG, [](Scene& s, World& w) { small(s), w.answers["mem_check"] = -1; },
        [](Scene& s) {
            const int ret = release_clone(s, 1);
            EXPECT_EQ(s.src_pixels[0], 0);
            return ret;
        },
        0, "mem_check copy 0"),
    Case(
        "ShallowCloneSharesPixels", TAVI_LOG_DEBUG, [](Scene& s, World& w) { small(s), w.answers["mem_free"] = -5; },
        [](Scene& s) { return release_clone(s, 0); }, -5, "mem_check src.data 0 | mem_free src.data"),
};
DISPATCH_CASES(Memory, kMemory);

TEST(Memory, LogsWhatItCreated) {
    Scene s;
    TaviLogger::GetInstance()->level = TAVI_LOG_INFO;
    fakes::world().names[reinterpret_cast<void*>(0x1000)] = "phys";
    s.dst.data = nullptr;
    ASSERT_EQ(tavi_image_create_mem2(&s.dst, 0), 0);
    const std::string
        line = fakes::world().trace.back(),
        start = "I tavi_image_create_mem2: create image mem width=320 height=240 size=230400 type=0 data=0x";
    EXPECT_EQ(line.substr(0, start.size()), start);
    EXPECT_EQ(line.substr(line.find(" data_phy")), " data_phy=phys fd=9");
    tavi_image_release(&s.dst);
}

TEST(Memory, CloneIsNullWhenThereIsNothingToCloneOrNoMemory) {
    Scene s;
    EXPECT_EQ(tavi_image_clone(nullptr), nullptr);
    s.src.width = s.src.height = 65536, s.src.pixel_format = TAVI_PIXEL_FORMAT_RGBA8888; // wraps to 0 bytes
    EXPECT_EQ(tavi_image_clone(&s.src), nullptr);
    s.src.pixel_format = static_cast<tavi_pixel_format>(16);
    EXPECT_EQ(tavi_image_clone(&s.src), nullptr);
    s.src.pixel_format = TAVI_PIXEL_FORMAT_GRAY8, s.src.width = s.src.height = 8;
    fakes::world().heap_refuses = true;
    EXPECT_EQ(tavi_image_clone(&s.src), nullptr);
    fakes::world().heap_refuses = false;
    s.src.data = nullptr; // only a descriptor
    EXPECT_EQ(tavi_image_clone(&s.src), nullptr);
}

TEST(Memory, BorrowsTheRuntimesAllocator) {
    struct Runtime : TaviMlRuntime {
        int AllocateMemory(void** memory, size_t size, int type) override {
            *memory = this;
            return static_cast<int>(size) + type;
        }
        int ReleaseMemory(void* memory, size_t size, int type) override {
            return memory == this ? static_cast<int>(size) - type : 0;
        }
    } runtime;
    TaviMlContext context{nullptr, nullptr, &runtime};
    TaviMlHandle handle{&context}, uninitialised{nullptr};
    void* memory = nullptr;
    EXPECT_EQ(tavi_mem_alloc_from_mlrt(&handle, &memory, 40, 2), 42);
    EXPECT_EQ(memory, &runtime);
    EXPECT_EQ(tavi_mem_free_from_mlrt(&handle, memory, 40, 2), 38);
    for (TaviMlHandle* bad : {static_cast<TaviMlHandle*>(nullptr), &uninitialised}) {
        EXPECT_EQ(tavi_mem_alloc_from_mlrt(bad, &memory, 40, 2), TAVI_RET_INVALID_HANDLE);
        EXPECT_EQ(tavi_mem_free_from_mlrt(bad, memory, 40, 2), TAVI_RET_INVALID_HANDLE);
    }
}

} // namespace
