// SPDX-License-Identifier: MIT
// Letterbox conversion: chooses the backend and passes every parameter on; the backends do the geometry.
#include "backends/blit/tavi_blit.h"
#include "backends/software/tavi_image_libyuv.h"
#include "utils/image_checks.h"
#include "utils/log_args.h"
#include "utils/tavi_image_internal.h"

namespace {

constexpr int kKeepRatio = 1; // of the general software conversion

bool has_rows_the_engine_takes(const tavi_image_t& src) {
    const bool three_bytes =
        src.pixel_format == TAVI_PIXEL_FORMAT_RGB888 || src.pixel_format == TAVI_PIXEL_FORMAT_BGR888;
    return !three_bytes || src.width % 4 == 0;
}

} // namespace

int tavi_image_convert_keep_ration(tavi_image_t* src, tavi_image_t* dst, int param0, int param1, float* out0,
                                   float* out1, float* out2, float* out3) {
    if (!src || !tavi::has_any_memory(*src) || !dst)
        return TAVI_RET_PARAM_ERR;
    return tavi_image_convert2_libyuv(src, dst, kKeepRatio, param0, param1, out0, out1, out2, out3,
                                      TAVI_IMAGE_RESIZE_DEFAULT);
}

int tavi_image_convert_keep_ratio_by_method(tavi_image_t* src, tavi_image_t* dst, int param0, int param1, float* out0,
                                            float* out1, float* out2, float* out3,
                                            tavi_image_resize_method_t resize_method, int blit_option) {
    LOG_INFO("tavi_image_convert_keep_ratio_by_method begin");
    LOG_INFO("src image width=%d height=%d fmt=%d", WH(*src), src->pixel_format);
    LOG_INFO("dst image width=%d height=%d fmt=%d", WH(*dst), dst->pixel_format);

    // Both are asked on every request, the engine first.
    const int engine_can = tavi_blit_keep_ratio_resize_check(src, dst, blit_option);
    const int use_blit = tavi_image_config_use_blit();
    bool blit = engine_can != 0 && use_blit != 0;
    if (blit) {
        LOG_INFO("use blit to resize keep ratio");
        blit = has_rows_the_engine_takes(*src);
    }
    int ret = TAVI_RET_FAIL;
    if (blit) {
        // An engine that fails here is not followed by software: the caller sees its code.
        ret = tavi_image_convert_keep_ratio_by_blit(src, dst, param0, param1, out0, out1, out2, out3, blit_option);
    } else {
        LOG_INFO("use libyuv to resize keep ratio");
        ret = tavi_image_convert2_libyuv(src, dst, kKeepRatio, param0, param1, out0, out1, out2, out3, resize_method);
    }
    LOG_INFO("tavi_image_convert_keep_ratio_by_method end");
    return ret;
}
