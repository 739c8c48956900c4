// SPDX-License-Identifier: MIT
#include "services/tavi_mlrt.h"
#include "utils/scene.h"
#include "utils/tavi_image_internal.h"

namespace {

TEST(Record, ChannelsSampleSizeAndBytes) {
    constexpr int kNone = TAVI_RET_PARAM_ERR;
    constexpr int kChannels[] = {1,     3,     3,     4,     4,     kNone, kNone, kNone,
                                 kNone, kNone, kNone, kNone, kNone, kNone, kNone, 1};
    constexpr int kBytes[] = {9, 27, 27, 36, 36, 13, 13, 13, 13, 18, 18, 18, 18, 18, 18, 18}; // of 3 x 3 pixels
    Scene s("src.w=3 src.h=3");
    for (int format = -1; format <= 16; ++format) {
        const bool valid = format >= 0 && format < 16;
        s.src.pixel_format = static_cast<tavi_pixel_format>(format);
        EXPECT_EQ(tavi_image_get_channels(&s.src), valid ? kChannels[format] : kNone) << format;
        EXPECT_EQ(tavi_image_type_size(&s.src), format == 15 ? 2 : 1) << format;
        EXPECT_EQ(tavi_image_get_size(&s.src), valid ? kBytes[format] : kNone) << format;
    }
    const std::pair<const char*, int> large[] = {
        {"src.fmt=3 src.w=32768 src.h=32768", 0},       // wraps at 32 bits
        {"src.fmt=0 src.w=65535 src.h=65535", -131071}, // 2 GiB and more reads as negative
        {"src.fmt=7 src.w=65536 src.h=21846", 65536},   // wraps before it is halved
    };
    for (const auto& [changes, bytes] : large) {
        Scene wide(changes);
        EXPECT_EQ(tavi_image_get_size(&wide.src), bytes) << changes;
    }
    EXPECT_EQ(tavi_image_get_channels(nullptr), -2);
    EXPECT_EQ(tavi_image_type_size(nullptr), -2);
    EXPECT_EQ(tavi_image_get_size(nullptr), -2);
}

int create(Scene& s) { return tavi_image_create_mem(&s.src); }
int create_contiguous(Scene& s) { return tavi_image_create_mem2(&s.src, 2); }
int destroy(Scene& s) { return tavi_image_destroy_mem(&s.src); }
int destroy_nothing(Scene& s) { return tavi_image_destroy_mem(nullptr) + tavi_image_destroy_mem(&s.src); }
int release(Scene& s) { return tavi_image_release(&s.src); }
int release_nothing(Scene& s) { return tavi_image_release(nullptr) + tavi_image_release(&s.src); }

int create_and_destroy(Scene& s) {
    EXPECT_EQ(tavi_image_create_mem(&s.src), 0);
    EXPECT_TRUE(s.src.size == 460800 && s.src.fd == 9 && s.src.data_phy == reinterpret_cast<void*>(0x1000));
    return tavi_image_destroy_mem(&s.src);
}

// The clone's pixels are released, its record freed.
int release_clone(Scene& s, int deep) {
    s.src_pixels[100] = 5;
    tavi_image_t* clone = tavi_image_clone2(&s.src, deep);
    EXPECT_EQ(clone->data[100], 5);
    clone->data[0] = 7;
    EXPECT_EQ(s.src_pixels[0], deep ? 0 : 7);
    fakes::world().names[clone->data] = clone->data == s.src_pixels ? "src.data" : "copy";
    EXPECT_TRUE(clone->width == 16 && clone->height == 8 && clone->pixel_format == s.src.pixel_format);
    EXPECT_TRUE(clone->fd == 3 && clone->data_phy == s.src.data_phy && clone->is_prealloc_buf == 0);
    const int ret = tavi_image_release(clone);
    free(clone);
    return ret;
}

int deep(Scene& s) { return release_clone(s, 1); }
int shallow(Scene& s) { return release_clone(s, 0); }

const Case kMemory[] = {
    {"CreateOfNoSize", TAVI_LOG_ERROR, "src.w=0", create, -2,
     "E tavi_image_create_mem2: error accord image params caculate mem size=0"},
    {"CreateHandsAnInvalidFormatOn", TAVI_LOG_DEBUG, "src.fmt=16 alloc=-11", create_contiguous, -11, "alloc -2 2"},
    {"CreateFillsTheRecordAndLogsIt", TAVI_LOG_INFO, "", create_and_destroy, 0,
     "alloc 460800 1 | I tavi_image_create_mem2: create image mem width=640 height=480 size=460800 type=1 data=new "
     "data_phy=phys fd=9 | mem_free new"},
    {"DestroyOfNothing", TAVI_LOG_ERROR, "src.data=0", destroy_nothing, -4,
     "E tavi_image_destroy_mem: image->data can not be nullptr"},
    {"DestroyDoesNotAskWhoOwnsIt", TAVI_LOG_ERROR, "src.lent=1 mem_free=-3", destroy, -3, "mem_free src.data"},
    {"ReleaseOfNothing", TAVI_LOG_DEBUG, "src.data=0", release_nothing, -4, ""},
    {"ReleaseLeavesTheCallersBuffer", TAVI_LOG_WARN, "src.lent=1", release, -1,
     "W tavi_image_release: no need to release prealloc buffer!"},
    {"ReleaseTakesTwoForItsOwn", TAVI_LOG_DEBUG, "src.lent=2 mem_free=-12", release, -12,
     "mem_check src.data 0 | mem_free src.data"},
    {"DeepCloneIsHeapMemory", TAVI_LOG_DEBUG, "src.w=16 src.h=8 src.phy=77 src.lent=1 mem_check=-1", deep, 0,
     "mem_check copy 0"},
    {"ShallowCloneSharesPixels", TAVI_LOG_DEBUG, "src.w=16 src.h=8 src.phy=77 src.lent=1 mem_free=-5", shallow, -5,
     "mem_check src.data 0 | mem_free src.data"},
};
DISPATCH_CASES(Memory, kMemory);

TEST(Memory, CloneIsNullWhenThereIsNothingToCloneOrNoMemory) {
    EXPECT_EQ(tavi_image_clone(nullptr), nullptr);
    for (const char* changes : {"src.fmt=3 src.w=65536 src.h=65536", // wraps to 0 bytes
                                "src.fmt=16", "src.data=0", "src.w=8 src.h=8 heap=0"}) {
        Scene s(changes);
        EXPECT_EQ(tavi_image_clone(&s.src), nullptr) << changes;
    }
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
