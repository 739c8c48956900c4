// SPDX-License-Identifier: MIT
#include <climits>
#include <cmath>
#include <tuple>

#include "utils/scene.h"

bool operator==(const tavi_rect_t& a, const tavi_rect_t& b) {
    return std::tie(a.left, a.top, a.right, a.bottom) == std::tie(b.left, b.top, b.right, b.bottom);
}

void PrintTo(const tavi_rect_t& r, std::ostream* out) {
    *out << "(" << r.left << " " << r.top << " " << r.right << " " << r.bottom << ")";
}

namespace {

// The rows up to the ends of the int range hold what a slow model in wider integers, which folded after each step,
// found as well: sums and products wrap, quotients are of single precision, conversions to int saturate.
constexpr int kMax = INT_MAX, kMin = INT_MIN;

TEST(RectAlign, WorkedExamples) {
    const struct {
        const char* name;
        int width, height;
        tavi_rect_t rect;
        int size, origin;
        tavi_rect_t result;
    } rows[] = {
        {"grows and re-centres", 1920, 1080, {101, 51, 300, 250}, 16, 2, {98, 48, 305, 255}},
        {"shrinks at the edge", 640, 480, {620, 0, 639, 19}, 16, 2, {622, 0, 637, 31}},
        {"one axis only", 640, 480, {3, 5, 102, 65}, 4, 2, {4, 4, 103, 67}},
        {"odd growth halves toward zero", 200, 200, {10, 10, 28, 28}, 16, 2, {4, 4, 35, 35}},
        {"negative origin shifts back", 200, 200, {-5, -7, 20, 20}, 4, 2, {0, 0, 27, 27}},
        {"shrinks to nothing", 10, 10, {8, 0, 9, 9}, 4, 2, {10, 2, 9, 9}},
        {"origin pushes it out", 100, 100, {97, 0, 99, 0}, 1, 2, {98, 0, 100, 0}},
        {"grown size ends at the bound", 640, 480, {608, 0, 627, 31}, 16, 2, {602, 0, 633, 31}},
        {"odd shrinkage halves toward zero", 100, 100, {94, 0, 99, 3}, 4, 1, {95, 0, 98, 3}},
        {"whole image unchanged", 640, 480, {0, 0, 639, 479}, 160, 2, {0, 0, 639, 479}},
        {"minus one changes nothing", 640, 480, {kMin, 7, -2, 9}, -1, -1, {0, 7, kMax - 1, 9}},
        {"ends", -kMax, kMin, {kMax, 525, -1, kMax - 1}, kMin, -2, {kMin, 262, -1, -2147483387}},
        {"ends", 1920526439, 1543, {kMax, 732, 0, kMax - 1}, -1792046361, 1, {0, 0, 710874573, -710874575}},
        {"ends", kMax, 494, {-kMax, 0, 328, kMax}, -118, 16, {2147483520, 16, 339, -2147483637}},
        {"ends", -kMax, kMax - 1, {-216, kMax - 1, 1632, kMin}, kMin, 1, {0, kMax, kMax, kMax - 1}},
        {"ends", -138, 0, {kMin, kMin, 1, kMin}, 1535, 2, {0, 2147482880, 2147482340, -2147482882}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        tavi_rect_t rect = row.rect, result{};
        EXPECT_EQ(tavi_image_rect_align(row.width, row.height, &rect, row.size, row.origin, &result), 0);
        EXPECT_EQ(result, row.result);
        EXPECT_EQ(rect, row.rect);
    }
}

TEST(RectAlign, InPlaceLogsTheAlignedValuesTwiceAndRefusesZero) {
    TaviLogger::GetInstance()->level = TAVI_LOG_INFO;
    tavi_rect_t rect{101, 51, 300, 250};
    EXPECT_EQ(tavi_image_rect_align(1920, 1080, &rect, 16, 2, &rect), 0);
    EXPECT_EQ(tavi_image_rect_align(1920, 1080, &rect, 0, 2, &rect), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_image_rect_align(1920, 1080, &rect, 16, 0, &rect), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(rect, (tavi_rect_t{98, 48, 305, 255}));
    EXPECT_EQ(fakes::world().trace[0],
              "I tavi_image_rect_align: src roi=(98 48 305 255) size=(208x208) ==> aligned roi=(98 48 305 255) "
              "size=(208x208) align_width=16 align_other=2");
}

TEST(RectExpand, WorkedExamples) {
    const struct {
        int width, height;
        tavi_rect_t rect;
        float area[4];
        tavi_rect_t result;
    } rows[] = {
        {640, 480, {100, 100, 199, 199}, {0.1f, 0.2f, 0.1f, 0.3f}, {90, 80, 209, 229}},
        {640, 480, {10, 10, 109, 59}, {0.25f, 0.25f, 0.25f, 0.25f}, {0, 0, 134, 71}},
        {640, 480, {600, 400, 639, 479}, {0.5f, 0.5f, 0.5f, 0.5f}, {580, 360, 639, 479}},
        {640, 480, {100, 100, 109, 109}, {0.05f, 0.05f, 0.05f, 0.05f}, {99, 99, 109, 109}},
        {640, 480, {100, 100, 199, 199}, {-0.1f, 0, 0, 0}, {110, 100, 199, 199}},
        {640, 480, {11, 0, 110, 0}, {0.1f, 0, 0, 0}, {1, 0, 110, 0}}, // a fused multiply-add would give 0
        {640, 480, {5, 5, 9, 9}, {NAN, -INFINITY, INFINITY, -INFINITY}, {0, kMax, 639, kMin}},
        {-kMax, -1, {kMax - 1, -kMax, kMin, 0}, {INFINITY, 2.812f, 1e30f, NAN}, {0, kMax, kMin, -2}},
        {kMax, 855, {kMin, kMax - 1, kMax - 1, kMin}, {-INFINITY, INFINITY, 1.706f, 2.11f}, {0, 0, kMax - 1, kMin}},
        {kMax, -1, {0, 545, kMax, -kMax}, {INFINITY, -0.344f, 2.506f, NAN}, {kMax, 738734784, kMin, -2}},
        {kMin, kMin, {-kMax, 0, kMax, kMax}, {-1e30f, -1e30f, 0.228f, -INFINITY}, {0, 0, kMax, kMax}},
    };
    Scene s;
    s.src.data = nullptr; // bounds only
    for (auto row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.rect));
        s.src.width = static_cast<uint32_t>(row.width), s.src.height = static_cast<uint32_t>(row.height);
        tavi_rect_t result{};
        EXPECT_EQ(tavi_image_rect_expand(&s.src, &row.rect, &result, row.area), 0);
        EXPECT_EQ(result, row.result);
        EXPECT_EQ(tavi_image_rect_expand(&s.src, &row.rect, &row.rect, row.area), 0);
        EXPECT_EQ(row.rect, row.result);
    }
    EXPECT_EQ(tavi_image_rect_expand(nullptr, &s.rect, &s.out, s.f), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_image_rect_expand(&s.src, &s.rect, &s.out, nullptr), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(s.out.left, 1);
    EXPECT_EQ(fakes::world().trace, (fakes::Trace{"E tavi_image_rect_expand: params error (img=null img->data=null "
                                                  "roi=rect expand_roi=out expand_area=f0",
                                                  "E tavi_image_rect_expand: params error (img=src img->data=null "
                                                  "roi=rect expand_roi=out expand_area=null"}));
}

TEST(RectKeepRatio, WorkedExamples) {
    const struct {
        int width, height;
        tavi_rect_t rect;
        float ratio;
        tavi_rect_t result;
        const char* size;
    } rows[] = {
        {640, 480, {100, 100, 199, 199}, 2.0f, {50, 100, 247, 198}, "198x99"},
        {640, 480, {100, 100, 299, 199}, 1.0f, {100, 50, 298, 248}, "199x199"},
        {640, 480, {0, 0, 99, 99}, 2.0f, {0, 0, 197, 98}, "198x99"},
        {640, 480, {600, 100, 639, 199}, 0.75f, {582, 100, 639, 198}, "74x99"},
        {640, 480, {100, 100, 199, 199}, 1.0f, {100, 100, 198, 198}, "99x99"},
        {640, 480, {10, 10, 10, 10}, 1.0f, {10, 10, 9, 9}, "0x0"},
        {640, 480, {0, 0, 0, 0}, 1.0f, {0, 0, 639, 479}, "0x0"},
        {640, 480, {10, 10, 30, 10}, 1.0f, {10, 0, 29, 19}, "20x20"},
        {640, 480, {100, 100, 108, 107}, 8.0f / 7, {100, 100, 107, 106}, "8x7"}, // 8 / (8 / 7) would be 6
        {640, 480, {100, 100, 199, 199}, NAN, {100, 100, 198, 198}, "99x99"},
        {0, kMax, {1, -kMax, 173, kMax - 1}, 1.492f, {89, 0, 84, kMax - 1}, ""},
        {0, 0, {0, kMax, 1, -kMax}, 1e-40f, {0, 1073741824, 0, -1073741826}, ""},
        {294, kMin, {kMax - 1, kMax - 1, -kMax, -kMax}, 0.094f, {kMax - 1, kMax - 15, 293, kMax}, ""},
        {-kMax, kMin, {kMax - 1, kMin, kMin, kMin}, INFINITY, {kMax - 1, 0, kMax, kMax}, ""},
        {kMin, 717, {4758418, kMin, kMin, kMax - 1}, 0.706f, {1076121033, 0, 1076121031, 716}, ""},
        {0, -123547759, {0, kMin, -61, -1183054913}, 2.432f, {1073741794, 0, -1073741856, 964428734}, ""},
        {0, -kMax, {-kMax, -kMax, kMax, 1347}, 1e-40f, {0, 0, -3, kMax}, ""},
        {1140, -199, {962, kMax - 1, -kMax, kMin}, 0.822f, {962, 1073741823, 1139, -1073741827}, ""},
        {1074, -281, {1, 1069, -106, 785}, 0.181f, {1, 1222, 1073, 630}, ""},
        {-1, kMax - 1, {0, kMax, 1334, kMax}, INFINITY, {0, kMax, 1333, kMax - 2}, ""},
    };
    TaviLogger::GetInstance()->level = TAVI_LOG_INFO;
    Scene s;
    for (auto row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.rect));
        s.src.width = static_cast<uint32_t>(row.width), s.src.height = static_cast<uint32_t>(row.height);
        tavi_rect_t result{};
        EXPECT_EQ(tavi_image_rect_keep_ratio(&s.src, &row.rect, &result, row.ratio), 0);
        EXPECT_EQ(result, row.result);
        const std::string line = fakes::world().trace.back();
        EXPECT_NE(line.find(std::string(row.size), line.rfind('(')), std::string::npos) << line;
        EXPECT_EQ(tavi_image_rect_keep_ratio(&s.src, &row.rect, &row.rect, row.ratio), 0);
        EXPECT_EQ(row.rect, row.result);
        EXPECT_EQ(fakes::world().trace.back(), line); // in place, the source is logged as it was
    }
    EXPECT_EQ(fakes::world().trace[2],
              "I tavi_image_rect_keep_ratio: src_rect LTRB=(100 100 299 199) wxh=(199x99) dst_ratio=1.000000 "
              "img wxh=(640x480) => dst_roi LTRB=(100 50 298 248) wxh=(199x199)");
}

TEST(RectKeepRatio, RefusesNullsRatiosAndImagesWithoutMemory) {
    Scene s;
    EXPECT_EQ(tavi_image_rect_keep_ratio(nullptr, &s.rect, &s.out, 1), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_image_rect_keep_ratio(&s.src, &s.rect, &s.out, 0), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_image_rect_keep_ratio(&s.src, &s.rect, &s.out, -1), TAVI_RET_PARAM_ERR);
    // Every value after the first stands one place late; what %f makes of a pointer is not looked at.
    const std::string line = "E tavi_image_rect_keep_ratio: params error (img=src src_roi=src.data dst_roi=rect ";
    EXPECT_EQ(fakes::world().trace[1].substr(0, line.size()), line);
    s.src.fd = -1;
    s.src.data = nullptr;
    EXPECT_EQ(tavi_image_rect_keep_ratio(&s.src, &s.rect, &s.out, 1), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(fakes::world().trace.back(), "E tavi_image_rect_keep_ratio: params error img->data=null img->fd=-1");
    EXPECT_EQ(s.out.left, 1);
}

} // namespace
