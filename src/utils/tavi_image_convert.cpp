// SPDX-License-Identifier: MIT
// Whole-image conversion: who serves a request, the engine or software, and the two answers that are asked once per
// process: whether there is an engine, and whether the setting allows it.
#include "backends/blit/tavi_blit.h"
#include "backends/software/tavi_image_libyuv.h"
#include "os/locks.h"
#include "services/tavi_env.h"
#include "utils/image_checks.h"
#include "utils/log_args.h"
#include "utils/tavi_image_internal.h"

namespace {

enum class Method { blit, software };

// The first test that fails decides: the setting is not consulted, nor its line logged, for what cannot go to the
// engine anyway.
Method get_image_convert_method(const tavi_image_t& src, const tavi_image_t& dst) {
    static tavi::FirstUse<int> probe;
    const int blit_support = probe.get(is_blit_support); // asked for every valid request, software's too

    const bool blit = src.pixel_format != TAVI_PIXEL_FORMAT_GRAY16 && src.pixel_format != TAVI_PIXEL_FORMAT_GRAY8 &&
                      dst.pixel_format != TAVI_PIXEL_FORMAT_GRAY8 && // 16-bit grey may be a destination
                      tavi::names_device_memory(src) && tavi::names_device_memory(dst) && blit_support != 0 &&
                      tavi_image_config_use_blit() == 1 && // exactly 1 here, anything but 0 elsewhere
                      src.width % 4 == 0 && dst.width % 4 == 0;
    return blit ? Method::blit : Method::software;
}

} // namespace

int tavi_image_config_use_blit() {
    // Plain ints on purpose: two first callers may both read the environment, and both store the same.
    static int first = 1;
    static int tavi_image_use_blit = 1;
    if (first == 1) {
        first = 0;
        tavi_env_get_int("use_blit", &tavi_image_use_blit, 1);
    }
    LOG_INFO("use_blit=%d", tavi_image_use_blit);
    return tavi_image_use_blit;
}

int tavi_image_convert(tavi_image_t* src, tavi_image_t* dst, tavi_image_transform_mode mode) {
    if (!src) {
        LOG_ERROR("src image or dst image is null");
        return TAVI_RET_PARAM_ERR;
    }
    if (!tavi::has_any_memory(*src) || !dst) {
        LOG_ERROR("src image or dst image is null");
        LOG_ERROR("src image size=%dx%d data=%p fd=%d data_phy=%p", WH(*src), src->data, src->fd, src->data_phy);
        return TAVI_RET_PARAM_ERR;
    }
    LOG_INFO("src image width=%d height=%d fmt=%d fd=%d data=%p data_phy=%p size=%d", WH(*src), src->pixel_format,
             src->fd, src->data, src->data_phy, src->size);
    LOG_INFO("dst image width=%d height=%d fmt=%d fd=%d data=%p data_phy=%p size=%d", WH(*dst), dst->pixel_format,
             dst->fd, dst->data, dst->data_phy, dst->size);
    LOG_INFO("transform mode=%d", mode);

    int ret = TAVI_RET_FAIL;
    if (get_image_convert_method(*src, *dst) == Method::blit) {
        ret = tavi_image_convert_blit(src, dst, mode);
        if (ret != 0) {
            LOG_WARN("Encounter an error(%d), try convert image by software", ret);
            ret = tavi_image_convert_libyuv(src, dst, mode);
        }
    } else {
        ret = tavi_image_convert_libyuv(src, dst, mode);
    }
    LOG_INFO("tavi_image_convert finish ret=%d", ret);
    return ret;
}
