// SPDX-License-Identifier: MIT
#include <climits>
#include <cmath>
#include <random>
#include <tuple>

#include "utils/scene.h"

bool operator==(const tavi_rect_t& a, const tavi_rect_t& b) {
    return std::tie(a.left, a.top, a.right, a.bottom) == std::tie(b.left, b.top, b.right, b.bottom);
}

void PrintTo(const tavi_rect_t& r, std::ostream* out) {
    *out << "(" << r.left << " " << r.top << " " << r.right << " " << r.bottom << ")";
}

namespace {

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
        {"minus one changes nothing", 640, 480, {INT_MIN, 7, -2, 9}, -1, -1, {0, 7, 2147483646, 9}},
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
        tavi_rect_t rect;
        float area[4];
        tavi_rect_t result;
    } rows[] = {
        {{100, 100, 199, 199}, {0.1f, 0.2f, 0.1f, 0.3f}, {90, 80, 209, 229}},
        {{10, 10, 109, 59}, {0.25f, 0.25f, 0.25f, 0.25f}, {0, 0, 134, 71}},
        {{600, 400, 639, 479}, {0.5f, 0.5f, 0.5f, 0.5f}, {580, 360, 639, 479}},
        {{100, 100, 109, 109}, {0.05f, 0.05f, 0.05f, 0.05f}, {99, 99, 109, 109}},
        {{100, 100, 199, 199}, {-0.1f, 0, 0, 0}, {110, 100, 199, 199}},
        {{11, 0, 110, 0}, {0.1f, 0, 0, 0}, {1, 0, 110, 0}}, // a fused multiply-add would give 0
        {{5, 5, 9, 9}, {NAN, -INFINITY, INFINITY, -INFINITY}, {0, INT_MAX, 639, INT_MIN}},
    };
    Scene s;
    s.src.data = nullptr; // bounds only
    for (auto row : rows) {
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
        tavi_rect_t rect;
        float ratio;
        tavi_rect_t result;
        const char* size;
    } rows[] = {
        {{100, 100, 199, 199}, 2.0f, {50, 100, 247, 198}, "198x99"},
        {{100, 100, 299, 199}, 1.0f, {100, 50, 298, 248}, "199x199"},
        {{0, 0, 99, 99}, 2.0f, {0, 0, 197, 98}, "198x99"},
        {{600, 100, 639, 199}, 0.75f, {582, 100, 639, 198}, "74x99"},
        {{100, 100, 199, 199}, 1.0f, {100, 100, 198, 198}, "99x99"},
        {{10, 10, 10, 10}, 1.0f, {10, 10, 9, 9}, "0x0"},
        {{0, 0, 0, 0}, 1.0f, {0, 0, 639, 479}, "0x0"},
        {{10, 10, 30, 10}, 1.0f, {10, 0, 29, 19}, "20x20"},
        {{100, 100, 199, 199}, NAN, {100, 100, 198, 198}, "99x99"},
    };
    TaviLogger::GetInstance()->level = TAVI_LOG_INFO;
    Scene s;
    for (auto row : rows) {
        tavi_rect_t result{};
        EXPECT_EQ(tavi_image_rect_keep_ratio(&s.src, &row.rect, &result, row.ratio), 0);
        EXPECT_EQ(result, row.result);
        const std::string line = fakes::world().trace.back();
        EXPECT_EQ(line.substr(line.rfind('=')), std::string("=(") + row.size + ")");
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

// ---------------------------------------------------------------------------------------------- slow model
// The same geometry in 64-bit integers that are folded back after each step, and multiples found by walking.

int64_t fold(int64_t v) {
    while (v > INT_MAX)
        v -= int64_t{1} << 32;
    while (v < INT_MIN)
        v += int64_t{1} << 32;
    return v;
}

int64_t truncated(long double v) {
    return std::isnan(v) ? 0 : v > INT_MAX ? INT_MAX : v < INT_MIN ? INT_MIN : static_cast<int64_t>(std::trunc(v));
}

int64_t multiple(int64_t v, int64_t step, bool up) {
    if (std::abs(v) < 1 << 20 && step > 0 && step < 100) {
        while (v % step != 0)
            v += up ? 1 : -1;
        return v;
    }
    const float q = static_cast<float>(v) / static_cast<float>(step); // single precision shows out here
    const long double whole = up ? std::ceil(static_cast<long double>(q)) : std::floor(static_cast<long double>(q));
    // The low half of the product alone, in 64 bits that fold by themselves: 32-bit machines have no wider integer.
    return static_cast<int32_t>(
        static_cast<uint32_t>(static_cast<uint64_t>(step) * static_cast<uint64_t>(truncated(whole))));
}

void model_axis(int64_t side, int64_t size_step, int64_t first_step, int32_t* first, int32_t* last) {
    int64_t at = *first, n = fold(fold(int64_t{*last} - at) + 1);
    if (n % size_step != 0) {
        int64_t grown = multiple(n, size_step, true);
        if (fold(at + grown) > side)
            grown = multiple(n, size_step, false);
        at = fold(at - fold(grown - n) / 2);
        n = grown;
    }
    at = at < 0 ? 0 : at;
    if (at % first_step != 0)
        at = multiple(at, first_step, true);
    *first = static_cast<int32_t>(at);
    *last = static_cast<int32_t>(fold(fold(at + n) - 1));
}

void model_expand(int64_t side, float before, float after, int32_t* first, int32_t* last) {
    const auto n = static_cast<float>(fold(fold(int64_t{*last} - *first) + 1));
    const volatile float grow_before = n * before, grow_after = n * after; // rounded before the sum
    const float low = static_cast<float>(*first) - grow_before, high = static_cast<float>(*last) + grow_after;
    *last = static_cast<int32_t>(std::min(truncated(high), fold(side - 1)));
    *first = static_cast<int32_t>(std::max<int64_t>(truncated(low), 0));
}

tavi_rect_t model_keep_ratio(int64_t width, int64_t height, const tavi_rect_t& r, float ratio) {
    const int64_t w = fold(int64_t{r.right} - r.left), h = fold(int64_t{r.bottom} - r.top);
    int64_t nw = w, nh = h;
    const float current = static_cast<float>(w) / static_cast<float>(h);
    if (ratio > current)
        nw = truncated(static_cast<float>(h) * ratio);
    if (ratio < current)
        nh = truncated(static_cast<float>(w) / ratio);
    const auto place = [](int64_t edge, int64_t grown) {
        return std::max<int64_t>(truncated(static_cast<long double>(edge) - grown / 2.0L), 0);
    };
    const int64_t left = place(r.left, fold(nw - w)), top = place(r.top, fold(nh - h));
    const auto limit = [](int64_t edge, int64_t side) {
        return static_cast<int32_t>(std::min(static_cast<uint32_t>(edge), static_cast<uint32_t>(side - 1)));
    };
    return {static_cast<int32_t>(left), static_cast<int32_t>(top), limit(left + nw - 1, width),
            limit(top + nh - 1, height)};
}

TEST(RectGeometry, AgreesWithASlowModelUpToTheEndsOfTheRange) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto pick = [&random](auto... choices) {
        const decltype((choices + ...)) all[] = {choices...};
        return all[random() % sizeof...(choices)];
    };
    const auto number = [&] {
        const int near = static_cast<int>(random() % 2000) - 300;
        const auto any = static_cast<int>(random());
        return pick(near, near, near, near, any, INT_MIN, INT_MIN + 1, INT_MAX, INT_MAX - 1, 0, -1, 1);
    };
    const auto step = [&] {
        const int s = pick(1, 2, 3, 4, 7, 8, 16, 16, 31, 64, -1, -2, INT_MAX, INT_MIN, number());
        return s ? s : 1;
    };
    const auto factor = [&] {
        const float ordinary = static_cast<float>(random() % 4001) / 1000 - 1;
        return pick(ordinary, ordinary, ordinary, 1e30f, -1e30f, NAN, INFINITY, -INFINITY, 1e-40f);
    };
    TaviLogger::GetInstance()->level = TAVI_LOG_ERROR;
    for (int i = 0; i < 200000; ++i) {
        Scene s;
        const int width = number(), height = number(), size_step = step(), first_step = step();
        const tavi_rect_t rect{number(), number(), number(), number()};

        tavi_rect_t expected = rect, result = rect;
        model_axis(width, size_step, first_step, &expected.left, &expected.right);
        model_axis(height, size_step, first_step, &expected.top, &expected.bottom);
        ASSERT_EQ(tavi_image_rect_align(width, height, &result, size_step, first_step, &result), 0);
        ASSERT_EQ(result, expected) << width << "x" << height << " " << testing::PrintToString(rect) << " "
                                    << size_step << "/" << first_step;

        s.src.width = static_cast<uint32_t>(width), s.src.height = static_cast<uint32_t>(height);
        float area[4] = {factor(), factor(), factor(), factor()};
        expected = result = rect;
        model_expand(width, area[0], area[2], &expected.left, &expected.right);
        model_expand(height, area[1], area[3], &expected.top, &expected.bottom);
        ASSERT_EQ(tavi_image_rect_expand(&s.src, &result, &result, area), 0);
        ASSERT_EQ(result, expected) << testing::PrintToString(rect) << testing::PrintToString(area);

        float ratio = std::fabs(factor());
        ratio = ratio == 0 ? 1 : ratio;
        result = rect;
        ASSERT_EQ(tavi_image_rect_keep_ratio(&s.src, &result, &result, ratio), 0);
        ASSERT_EQ(result, model_keep_ratio(width, height, rect, ratio)) << testing::PrintToString(rect) << ratio;
    }
}

} // namespace
