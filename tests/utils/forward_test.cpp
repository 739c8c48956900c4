// SPDX-License-Identifier: MIT
// Drawing, files and transforms: what is tested first, what reaches the routine, what comes back.
#include "support/temp_file.h"
#include "utils/scene.h"

namespace {

constexpr tavi_point_t kA{1, -2, 3}, kB{40, 5, 6}, kC{7, 80, 9}, kD{10, 11, 120};
constexpr tavi_color_t kColor{250, 128, 3};
const std::string kEdge1 = "line src (1 -2 3) (40 5 6) (250 128 3) 4 | ";
const std::string kEdge2 = "line src (40 5 6) (10 11 120) (250 128 3) 4";

int draw_all(tavi_image_t* img) {
    return tavi_image_draw_circle(img, kA, -7, kColor, 0) + tavi_image_draw_line(img, kA, kB, kColor, -1) * 10 +
           tavi_image_draw_rect(img, kC, kD, kColor, 2) * 100 +
           tavi_image_draw_text(img, nullptr, kA, kColor, 3) * 1000;
}

int draw(Scene& s) { return draw_all(&s.src); }
int quad(Scene& s) { return tavi_image_draw_quad(&s.src, {kA, kB, kC, kD}, kColor, 4); }
int draw_refused(Scene& s) { return draw(s) + draw_all(nullptr) + quad(s); }

int quad_failing_at_its_second_edge(Scene& s) {
    fakes::world().answers[kEdge2] = 5;
    return quad(s);
}

int read(Scene& s) { return tavi_image_read("a.png", &s.src, 19); }
int read_nulls(Scene& s) { return tavi_image_read(nullptr, &s.src, 0) + tavi_image_read("a", nullptr, 0); }
int write(Scene& s) { return tavi_image_write("a.png", &s.src); }
int write_null(Scene&) { return tavi_image_write("a.png", nullptr); }
int raw_null(Scene&) { return tavi_image_write_raw("a.raw", nullptr); }
int raw_nowhere(Scene& s) { return tavi_image_write_raw("/nowhere/a.raw", &s.src); }
int raw_to_a_full_disk(Scene& s) { return tavi_image_write_raw("/dev/full", &s.src); }
int text(Scene& s) { return tavi_image_write_to_txt("a.txt", &s.src); }

int placeholders(Scene&) {
    return tavi_get_rotation_matrix(kA, 0, 0, nullptr) * 1000 +
           tavi_image_rotation_transform(nullptr, nullptr, nullptr) * 100 +
           tavi_image_warp_perspective(nullptr, nullptr, nullptr) * 10 +
           tavi_image_hconcat(nullptr, nullptr, nullptr);
}

int equalize(Scene& s) { return tavi_image_equalize_hist(&s.src, nullptr); }
int occlusion(Scene& s) { return tavi_image_detect_occlusion(&s.src, nullptr); }
int border(Scene&) { return tavi_image_border_fillblack(nullptr, 0); }

const std::string kToBgr = "probe | libyuv src {fmt=2 640x480 size=0 data=null fd=0} 0";

const Case kForward[] = {
    {"DrawNeedsPixels", TAVI_LOG_DEBUG, "src.data=0 src.phy=1", draw_refused, -2222 * 2 - 2, ""},
    {"DrawHandsEverythingOn", TAVI_LOG_DEBUG, "circle=1 line=2 rect=3 text=4", draw, 4321,
     "circle src (1 -2 3) -7 (250 128 3) 0 | line src (1 -2 3) (40 5 6) (250 128 3) -1 | "
     "rect src (7 80 9) (10 11 120) (250 128 3) 2 | text src null (1 -2 3) (250 128 3) 3"},
    {"QuadRunsRowByRow", TAVI_LOG_DEBUG, "", quad, 0,
     kEdge1 + kEdge2 + " | line src (10 11 120) (7 80 9) (250 128 3) 4 | line src (7 80 9) (1 -2 3) (250 128 3) 4"},
    {"QuadEndsAtTheFirstFailure", TAVI_LOG_DEBUG, "", quad_failing_at_its_second_edge, 5, kEdge1 + kEdge2},

    {"ReadNeedsBoth", TAVI_LOG_DEBUG, "", read_nulls, -4, ""},
    {"ReadHandsOn", TAVI_LOG_DEBUG, "read=-8", read, -8, "read a.png src 19"},
    {"WriteLogsFirst", TAVI_LOG_INFO, "write=-8", write, -8,
     "I tavi_image_write: write image(data=src.data) to a.png | write a.png src"},
    {"WriteTestsNothing", TAVI_LOG_WARN, "", write_null, 0, "write a.png null"},
    {"RawLogsBeforeItRefuses", TAVI_LOG_INFO, "", raw_null, -2, "I tavi_image_write_raw: write image to a.raw"},
    {"RawOpenFailureIsForDebug", TAVI_LOG_DEBUG, "", raw_nowhere, -1,
     "I tavi_image_write_raw: write image to /nowhere/a.raw | D write_data_to_file: open error: /nowhere/a.raw"},
    {"RawShortWriteCountsAsWritten", TAVI_LOG_WARN, "src.w=4 src.h=4", raw_to_a_full_disk, 0, ""},
    {"TextReducesResults", TAVI_LOG_INFO, "txt=460800", text, 0,
     "I tavi_image_write_to_txt: write image to a.txt | txt a.txt src.data 460800"},
    {"TextOfNothingIsText", TAVI_LOG_WARN, "txt=0", text, 0, "txt a.txt src.data 460800"},
    {"TextFailure", TAVI_LOG_WARN, "txt=-77", text, -1, "txt a.txt src.data 460800"},
    {"TextNeedsPixels", TAVI_LOG_WARN, "src.data=0", text, -2, ""},

    {"PlaceholdersAnswerAtOnce", TAVI_LOG_DEBUG, "", placeholders, -4411, ""},
    {"EqualizeConvertsAndNeverReleases", TAVI_LOG_ERROR, "libyuv=-1", equalize, -1,
     "probe | libyuv src {fmt=1 640x480 size=0 data=null fd=0} 0 | E tavi_image_equalize_hist: opencv not support\n"},
    {"OcclusionSaysSoAtInfo", TAVI_LOG_WARN, "", occlusion, -1, kToBgr},
    {"OcclusionOfAFailedConversionIsQuiet", TAVI_LOG_WARN, "libyuv=-2", occlusion, -1, kToBgr},
    {"OcclusionGivesBackWhatTheConversionAttached", TAVI_LOG_WARN, "attach=1", occlusion, -1,
     kToBgr + " | mem_check temp 0 | mem_free temp"},
    {"BorderSaysSo", TAVI_LOG_ERROR, "", border, -1, "E tavi_image_border_fillblack: opencv not support\n"},
};
DISPATCH_CASES(Forward, kForward);

TEST(Files, RawIsExactlyThePixels) {
    for (const auto& [changes, bytes] : {std::pair{"src.fmt=1 src.w=2 src.h=2", 12}, {"src.w=3 src.h=3", 13}}) {
        Scene s(changes);
        for (int i = 0; i < 256; ++i)
            s.src_pixels[i] = static_cast<uint8_t>(i * 13 + 10); // line feeds and carriage returns among them
        const TempFile file(".raw");
        EXPECT_EQ(tavi_image_write_raw(file.path(), &s.src), 0);
        EXPECT_EQ(file.read(), std::string(s.src_pixels, s.src_pixels + bytes));
    }
}

TEST(Occlusion, LogsWhatItIsAfterTheConversionAndBeforeTheRelease) {
    Scene s("attach=1");
    TaviLogger::GetInstance()->level = TAVI_LOG_INFO;
    occlusion(s);
    const std::string trace = fakes::take_trace(),
                      end = "ret=0 | I tavi_image_detect_occlusion: not support! | mem_check";
    EXPECT_NE(trace.find(end), std::string::npos) << trace;
}

} // namespace
