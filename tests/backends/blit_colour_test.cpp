// SPDX-License-Identifier: MIT
// The colours that an engine is asked for, under each value of TAVI_YUV, and what becomes of another answer.
#include <cstdlib>
#include <cstring>

#include "backends/blit/context_pool.h"
#include "backends/blit/tavi_blit.h"
#include "backends/device_test.h"
#include "backends/scripted_engine.h"

using namespace tavi;
using test::Picture;

namespace {

constexpr int kPadding = 0x102030;

class BlitColour : public test::DeviceTest {
protected:
    test::ScriptedEngine engine;
    static int by_blit(Picture& from, Picture& to) {
        return tavi_image_convert_keep_ratio_by_blit(&from, &to, kPadding, 2, nullptr, nullptr, nullptr, nullptr, 0);
    }
};

// The fields that are asked for of RGB and YUV. An explicit range of YUV would pass to an RGB result.
TEST(Layout, AsksForTheColoursOfEverySetting) {
    const struct {
        Matrix matrix;
        unsigned limited, full, encoding; ///< colour spaces, and what both encode
    } cases[] = {{Matrix::bt601, V4L2_COLORSPACE_SMPTE170M, V4L2_COLORSPACE_JPEG, V4L2_YCBCR_ENC_601},
                 {Matrix::bt709, V4L2_COLORSPACE_REC709, V4L2_COLORSPACE_REC709, V4L2_YCBCR_ENC_709},
                 {Matrix::bt2020, V4L2_COLORSPACE_BT2020, V4L2_COLORSPACE_BT2020, V4L2_YCBCR_ENC_BT2020}};
    EngineInfo able;
    able.sets_range.add(TAVI_PIXEL_FORMAT_YUV420SP_NV12);
    able.sets_range.add(TAVI_PIXEL_FORMAT_RGB888);
    for (const auto& c : cases) {
        for (const bool full : {false, true}) {
            for (const bool rgb : {false, true}) {
                const ColorSpace space{c.matrix, full};
                const Side side{rgb ? TAVI_PIXEL_FORMAT_RGB888 : TAVI_PIXEL_FORMAT_YUV420SP_NV12, 64, 48, {}};
                Layout layout(side, space);
                const unsigned of_yuv = full ? c.full : c.limited;
                EXPECT_EQ(layout.color.colorspace, rgb ? unsigned{V4L2_COLORSPACE_SRGB} : of_yuv);
                EXPECT_EQ(layout.color.encoding, c.encoding);
                EXPECT_EQ(layout.color.range, full ? 1u : 0u);
                EXPECT_FALSE(compare_layout(kResult, side, space, layout, layout));
                layout.choose_colors(side, space, able);
                EXPECT_EQ(layout.color.range, rgb || full ? 1u : 2u);
                EXPECT_FALSE(compare_layout(kResult, side, space, layout, layout));
            }
        }
    }
}

TEST_F(BlitColour, AsksForTheColoursOfTheSetting) {
    ::setenv("TAVI_YUV", "bt709-full", 1);
    Picture in(TAVI_PIXEL_FORMAT_YUV420SP_NV12, 64, 48), by_engine(in.pixel_format, 64, 64);
    Picture by_software(in.pixel_format, 64, 64);
    std::memset(in.data, 77, in.size);
    is_blit_support();
    int asked = 0;
    engine.adjust_format = [&](v4l2_format& f) {
        const v4l2_pix_format& p = f.fmt.pix;
        asked += p.colorspace == V4L2_COLORSPACE_REC709 && p.ycbcr_enc == V4L2_YCBCR_ENC_709 &&
                 p.quantization == V4L2_QUANTIZATION_FULL_RANGE;
    };
    EXPECT_EQ(by_blit(in, by_engine), 0) << log;
    EXPECT_EQ(asked, 2);
    EXPECT_EQ(tavi_image_convert_keep_ration(&in, &by_software, kPadding, 2, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(by_engine.bytes(), by_software.bytes()) << "picture and padding";
    EXPECT_EQ(by_engine.data[0],
              yuv_of({kPadding >> 16, kPadding >> 8 & 255, kPadding & 255}, {Matrix::bt709, true}).y);
    const struct {
        const char* reason;
        uint32_t v4l2_pix_format::*field;
        uint32_t value;
    } answers[] = {{"colour matrix: the engine uses 1, 2 (BT.709) was asked for", &v4l2_pix_format::ycbcr_enc,
                    V4L2_YCBCR_ENC_601},
                   {"colour range: the engine uses 2, 1 (full) was asked for", &v4l2_pix_format::quantization,
                    V4L2_QUANTIZATION_LIM_RANGE}};
    for (const auto& a : answers) {
        ContextPool::instance().drop_all();
        engine.adjust_format = [&](v4l2_format& f) { f.fmt.pix.*a.field = a.value; };
        EXPECT_NE(by_blit(in, by_engine), 0);
        EXPECT_TRUE(logged(a.reason)) << log;
    }
}

} // namespace
