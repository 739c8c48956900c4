// SPDX-License-Identifier: MIT
// The same bytes on every machine: hashes of results over all pairs of formats, modes, methods and some sizes, as
// hashes.txt has them. When results are meant to change: TAVI_UPDATE_HASHES=1 build/release/tests/pixels/hash_test
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

#include "pixels/convert.h"
#include "pixels/plan.h"
#include "support/pixels.h"

namespace tavi::test {
namespace {

/// FNV-1a, 64 bits.
uint64_t hash(uint64_t h, const std::vector<uint8_t>& bytes) {
    for (const uint8_t b : bytes)
        h = (h ^ b) * 0x100000001B3u;
    return h;
}

/// Goes on with pictures from a source format into all formats; with `other` into another colour and siting.
uint64_t hash_of(uint64_t h, int from, const int (&shape)[4], int mode, int method, bool other = false) {
    for (int to = 0; to < 16; ++to) {
        Pixels src(from, shape[0], shape[1]);
        Pixels dst(to, shape[exchanges_sides(mode) ? 3 : 2], shape[exchanges_sides(mode) ? 2 : 3]);
        uint32_t seed = 12345u + from;
        for (size_t i = 0; i < src.size(); ++i) { // no distribution of the library: those differ between machines
            seed = seed * 1664525u + 1013904223u;
            src.data()[i] = static_cast<uint8_t>(seed >> 24);
        }
        ImageView result = dst.view();
        if (other) {
            result.color = {Matrix::bt709, true};
            result.siting = {true, false};
        }
        EXPECT_FALSE(convert_views(src.view(), result, mode, method));
        h = hash(h, dst.bytes());
    }
    return h;
}

std::map<std::string, uint64_t> results() {
    constexpr int kShapes[][4] = {{70, 38, 70, 38}, {71, 39, 71, 39},  {96, 64, 48, 32},
                                  {97, 63, 40, 37}, {40, 30, 97, 63},  {300, 20, 33, 9},
                                  {60, 90, 20, 30}, {294, 66, 98, 22}, {600, 400, 7, 5}};
    std::map<std::string, uint64_t> out;
    for (int from = 0; from < 16; ++from)
        for (const auto& shape : kShapes) {
            uint64_t h = 0xCBF29CE484222325u;
            const bool scales = shape[0] != shape[2];
            if (scales)
                for (int method = 0; method <= 3; ++method)
                    h = hash_of(h, from, shape, method == 0 ? 7 : 0, method);
            else
                for (int mode : {0, 1, 2, 3, 4, 7, 8})
                    h = hash_of(h, from, shape, mode, 0);
            const std::string name = std::string(kFormats[from].name) + " " + std::to_string(shape[0]) + "x" +
                                     std::to_string(shape[1]) + " to " + std::to_string(shape[2]) + "x" +
                                     std::to_string(shape[3]);
            out[name] = h;
            out[name + ", other colour"] =
                hash_of(0xCBF29CE484222325u, from, shape, 0, TAVI_IMAGE_RESIZE_BILINEAR, true);
            if (scales) {
                h = 0xCBF29CE484222325u;
                for (int method = 4; method <= 6; ++method)
                    h = hash_of(h, from, shape, method == 4 ? 4 : 0, method);
                out[name + ", windowed"] = h;
            }
        }
    return out;
}

TEST(Hashes, OfResultsAreTheSameEverywhere) {
    const auto got = results();
    if (std::getenv("TAVI_UPDATE_HASHES")) {
        FILE* file = std::fopen(TAVI_HASHES, "w");
        ASSERT_TRUE(file);
        for (const auto& [name, value] : got)
            std::fprintf(file, "%016llx %s\n", static_cast<unsigned long long>(value), name.c_str());
        std::fclose(file);
        return;
    }
    FILE* file = std::fopen(TAVI_HASHES, "r");
    ASSERT_TRUE(file);
    size_t count = 0;
    char name[128];
    for (unsigned long long value; std::fscanf(file, "%llx %127[^\n]", &value, name) == 2; ++count) {
        const auto found = got.find(name);
        ASSERT_TRUE(found != got.end()) << name;
        EXPECT_EQ(found->second, value) << name;
    }
    std::fclose(file);
    EXPECT_EQ(count, got.size());
}

} // namespace
} // namespace tavi::test
