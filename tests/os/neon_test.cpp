// SPDX-License-Identifier: MIT
// On 32-bit ARM: NEON is taken when the processor has it and left alone when it has not, by our own loops and by
// libyuv.
#include <libyuv.h>

#include <cstdint>
#include <cstring>

#include <gtest/gtest.h>
#include <sys/auxv.h>

#include "backends/software/tavi_image_libyuv.h"
#include "kernels/kernels.h"

namespace libyuv {
// There in a libyuv that was built with NEON rows, and null in one without.
extern "C" __attribute__((weak)) void MirrorRow_NEON(const uint8_t*, uint8_t*, int);
} // namespace libyuv

namespace {

const bool kProcessorHasNeon = getauxval(AT_HWCAP) & (1UL << 12);

TEST(Neon, OwnLoopsAreChosenByTheProcessor) {
    EXPECT_EQ(tavi::builds().count, kProcessorHasNeon ? 2 : 1);
    EXPECT_STREQ(tavi::kernels().name, kProcessorHasNeon ? "neon" : "plain");
}

TEST(Neon, LibyuvHasItsRowsAndAsksTheProcessor) {
    EXPECT_NE(libyuv::MirrorRow_NEON, nullptr) << "this libyuv was built without NEON: use -DTAVI_LIBYUV=source";
    EXPECT_EQ(libyuv::TestCpuFlag(libyuv::kCpuHasNEON) != 0, kProcessorHasNeon);
}

// One row of libyuv's writes a register that belongs to its callers; a conversion must keep what they have there.
TEST(Neon, ConversionsKeepTheCallersRegisters) {
    uint8_t yuyv[16 * 16 * 2], out[16 * 16 * 4];
    std::memset(yuyv, 99, sizeof(yuyv));
    for (const auto source : {TAVI_PIXEL_FORMAT_YUV422_YUYV, TAVI_PIXEL_FORMAT_YUV422_UYVY}) {
        for (uint32_t format = 0; format < 16; ++format) {
            tavi_image_t src{}, dst{};
            src.data = yuyv;
            dst.data = out;
            src.width = dst.width = src.height = dst.height = 16;
            src.pixel_format = source;
            dst.pixel_format = static_cast<tavi_pixel_format>(format);
            // The call is made by hand, so that the compiler keeps nothing of its own in d8 and d9 meanwhile. One
            // pointer to all it needs: few registers are free.
            struct {
                uint64_t before[2], after[2];
                tavi_image_t *src, *dst;
                int (*function)(tavi_image_t*, tavi_image_t*, tavi_image_transform_mode);
            } call = {{0x0123456789abcdef, 0xfedcba9876543210}, {}, &src, &dst, tavi_image_convert_libyuv};
            asm volatile("vldm %[call], {d8, d9}\n\t"
                         "ldr r0, [%[call], #32]\n\t"
                         "ldr r1, [%[call], #36]\n\t"
                         "mov r2, #0\n\t"
                         "ldr r3, [%[call], #40]\n\t"
                         "blx r3\n\t"
                         "vstr d8, [%[call], #16]\n\t"
                         "vstr d9, [%[call], #24]"
                         :
                         : [call] "r"(&call)
                         : "r0", "r1", "r2", "r3", "ip", "lr", "cc", "memory", "d0", "d1", "d2", "d3", "d4", "d5",
                           "d6", "d7", "d8", "d9");
            EXPECT_EQ(std::memcmp(call.before, call.after, sizeof(call.before)), 0) << source << " to " << format;
        }
    }
}

} // namespace
