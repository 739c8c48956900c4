// SPDX-License-Identifier: MIT
// Drawing, files and transforms: what is tested first, what reaches the routine, what comes back.
#include "support/temp_file.h"
#include "utils/scene.h"

namespace {

using fakes::World;

constexpr tavi_point_t kA{1, -2, 3}, kB{40, 5, 6}, kC{7, 80, 9}, kD{10, 11, 120};
constexpr tavi_color_t kColor{250, 128, 3};
constexpr tavi_quad_t kQuad{kA, kB, kC, kD};

int draw_all(tavi_image_t* img) {
    return tavi_image_draw_circle(img, kA, -7, kColor, 0) + tavi_image_draw_line(img, kA, kB, kColor, -1) * 10 +
           tavi_image_draw_rect(img, kC, kD, kColor, 2) * 100 +
           tavi_image_draw_text(img, nullptr, kA, kColor, 3) * 1000;
}

int quad(Scene& s) { return tavi_image_draw_quad(&s.src, kQuad, kColor, 4); }
int equalize(Scene& s) { return tavi_image_equalize_hist(&s.src, nullptr); }
int occlusion(Scene& s) { return tavi_image_detect_occlusion(&s.src, nullptr); }

const std::string kEdge1 = "line src (1 -2 3) (40 5 6) (250 128 3) 4";
const std::string kEdge2 = "line src (40 5 6) (10 11 120) (250 128 3) 4";

const Case kForward[] = {
    Case(
        "DrawNeedsPixels", TAVI_LOG_DEBUG, [](Scene& s, World&) { s.src.data = nullptr, s.src.data_phy = &s; },
        [](Scene& s) { return draw_all(&s.src) + draw_all(nullptr) + quad(s); }, -2222 * 2 - 2, ""),
    Case(
        "DrawHandsEverythingOn", TAVI_LOG_DEBUG,
        [](Scene&, World& w) {
            w.answers = {{"circle", 1}, {"line", 2}, {"rect", 3}, {"text", 4}};
        },
        [](Scene& s) { return draw_all(&s.src); }, 4321,
        "circle src (1 -2 3) -7 (250 128 3) 0 | line src (1 -2 3) (40 5 6) (250 128 3) -1 | rect src (7 80 9) (10 11 "
        "120) (250 128 3) 2 | text src null (1 -2 3) (250 128 3) 3"),
    Case("QuadRunsRowByRow", TAVI_LOG_DEBUG, nullptr, quad, 0,
         kEdge1 + " | " + kEdge2 +
             " | line src (10 11 120) (7 80 9) (250 128 3) 4 | line src (7 80 9) (1 -2 3) (250 128 3) 4"),
    Case(
        "QuadEndsAtTheFirstFailure", TAVI_LOG_DEBUG,
        [](Scene&, World& w) { w.effects["line"] = [&w] { w.answers["line"] = w.trace.size() == 2 ? 5 : 0; }; }, quad,
        5, kEdge1 + " | " + kEdge2),

    Case(
        "ReadNeedsBoth", TAVI_LOG_DEBUG, nullptr,
        [](Scene& s) { return tavi_image_read(nullptr, &s.src, 0) + tavi_image_read("a", nullptr, 0); }, -4, ""),
    Case(
        "ReadHandsOn", TAVI_LOG_DEBUG, [](Scene&, World& w) { w.answers["read"] = -8; },
        [](Scene& s) { return tavi_image_read("a.png", &s.src, 19); }, -8, "read a.png src 19"),
    Case(
        "WriteLogsFirst", TAVI_LOG_INFO, [](Scene&, World& w) { w.answers["write"] = -8; },
        [](Scene& s) { return tavi_image_write("a.png", &s.src); }, -8,
        "I tavi_image_write: write image(data=src.data) to a.png | write a.png src"),
    Case(
        "WriteTestsNothing", TAVI_LOG_WARN, nullptr, [](Scene&) { return tavi_image_write("a.png", nullptr); }, 0,
        "write a.png null"),
    Case(
        "RawLogsBeforeItRefuses", TAVI_LOG_INFO, nullptr,
        [](Scene&) { return tavi_image_write_raw("a.raw", nullptr); }, -2,
        "I tavi_image_write_raw: write image to a.raw"),
    Case(
        "RawOpenFailureIsForDebug", TAVI_LOG_DEBUG, nullptr,
        [](Scene& s) { return tavi_image_write_raw("/nowhere/a.raw", &s.src); }, -1,
        "I tavi_image_write_raw: write image to /nowhere/a.raw | D write_data_to_file: open error: /nowhere/a.raw"),
    Case(
        "RawShortWriteCountsAsWritten", TAVI_LOG_WARN, [](Scene& s, World&) { s.src.width = 4, s.src.height = 4; },
        [](Scene& s) { return tavi_image_write_raw("/dev/full", &s.src); }, 0, ""),
    Case(
        "TextReducesResults", TAVI_LOG_INFO, [](Scene&, World& w) { w.answers["txt"] = 460800; },
        [](Scene& s) { return tavi_image_write_to_txt("a.txt", &s.src); }, 0,
        "I tavi_image_write_to_txt: write image to a.txt | txt a.txt src.data 460800"),
    Case(
        "TextFailure", TAVI_LOG_WARN, [](Scene&, World& w) { w.answers["txt"] = -77; },
        [](Scene& s) { return tavi_image_write_to_txt("a.txt", &s.src); }, -1, "txt a.txt src.data 460800"),

    Case(
        "TransformsHandOn", TAVI_LOG_DEBUG,
        [](Scene&, World& w) {
            w.answers = {{"transpose", 1}, {"get_affine", 20}, {"affine", 300}};
        },
        [](Scene& s) {
            return tavi_image_transpose(&s.src, nullptr) + tavi_get_affine_transform(&s.f[0], nullptr, -3, &s.f[3]) +
                   tavi_image_affine_transform(&s.src, &s.dst, &s.f[2]);
        },
        321, "transpose src null | get_affine f0 null -3 f3 | affine src dst f2"),
    Case(
        "PlaceholdersAnswerAtOnce", TAVI_LOG_DEBUG, nullptr,
        [](Scene&) {
            return tavi_get_rotation_matrix(kA, 0, 0, nullptr) * 1000 +
                   tavi_image_rotation_transform(nullptr, nullptr, nullptr) * 100 +
                   tavi_image_warp_perspective(nullptr, nullptr, nullptr) * 10 +
                   tavi_image_hconcat(nullptr, nullptr, nullptr);
        },
        -4411, ""),
    Case(
        "EqualizeConvertsAndNeverReleases", TAVI_LOG_ERROR, [](Scene&, World& w) { w.answers["libyuv"] = -1; },
        equalize, -1,
        "probe | libyuv src {fmt=1 640x480 size=0 data=null fd=0} 0 | E tavi_image_equalize_hist: opencv not "
        "support\n"),
    Case("OcclusionReleasesAfterSuccess", TAVI_LOG_WARN, nullptr, occlusion, -1,
         "probe | libyuv src {fmt=2 640x480 size=0 data=null fd=0} 0"),
    Case(
        "OcclusionOfAFailedConversionIsQuiet", TAVI_LOG_WARN, [](Scene&, World& w) { w.answers["libyuv"] = -2; },
        occlusion, -1, "probe | libyuv src {fmt=2 640x480 size=0 data=null fd=0} 0"),
    Case(
        "BorderSaysSo", TAVI_LOG_ERROR, nullptr, [](Scene&) { return tavi_image_border_fillblack(nullptr, 0); }, -1,
        "E tavi_image_border_fillblack: opencv not support\n"),
};
DISPATCH_CASES(Forward, kForward);

TEST(Files, RawIsExactlyThePixels) {
    const struct {
        tavi_pixel_format format;
        uint32_t side;
        size_t bytes;
    } rows[] = {{TAVI_PIXEL_FORMAT_RGB888, 2, 12}, {TAVI_PIXEL_FORMAT_YUV420SP_NV12, 3, 13}};
    for (const auto& row : rows) {
        Scene s;
        for (int i = 0; i < 256; ++i)
            s.src_pixels[i] = static_cast<uint8_t>(i * 13 + 10); // line feeds and carriage returns among them
        s.src.pixel_format = row.format, s.src.width = s.src.height = row.side;
        const TempFile file(".raw");
        EXPECT_EQ(tavi_image_write_raw(file.path(), &s.src), 0);
        EXPECT_EQ(file.read(), std::string(s.src_pixels, s.src_pixels + row.bytes));
    }
}

TEST(Occlusion, GivesBackWhatTheConversionAttached) {
    Scene s;
    TaviLogger::GetInstance()->level = TAVI_LOG_INFO;
    fakes::world().attach = true;
    EXPECT_EQ(occlusion(s), -1);
    const std::string
        trace = fakes::take_trace(),
        end = "finish ret=0 | I tavi_image_detect_occlusion: not support! | mem_check temp 0 | mem_free temp";
    EXPECT_EQ(trace.substr(trace.find("finish")), end);
}

} // namespace
