// SPDX-License-Identifier: MIT
#include "backends/cpu/tavi_image_cpu.h"

#include "image/cpu_image.h"
#include "pixels/convert.h"

#define TAVI_LOG_TAG "tavi-cpu"
#include "services/log.h"
#include "services/yuv_setting.h"

using namespace tavi;

int tavi_image_transpose_cpu(tavi_image_t* src, tavi_image_t* dst) {
    const CpuPair pair(src, dst, yuv_setting(), InPlace::refused);
    if (pair.refusal) {
        LOG_ERROR("%s", pair.refusal.text);
        return pair.refusal.code;
    }
    const ImageView &s = pair.src.view(), &d = pair.dst.view();
    if (s.format != d.format || d.width != s.height || d.height != s.width) {
        LOG_ERROR("dst size=%dx%d fmt=%d: allowed is the exchanged size %dx%d in the source's format %d", d.width,
                  d.height, d.id(), s.height, s.width, s.id());
        return TAVI_RET_PARAM_ERR;
    }
    pair.dst.clear_tail();
    if (const Refusal no = convert_views(s, d, TAVI_IMAGE_TRANSFORM_TRANSPOSE, TAVI_IMAGE_RESIZE_DEFAULT)) {
        LOG_ERROR("%s", no.text);
        return no.code;
    }
    return TAVI_RET_SUCCESS;
}
