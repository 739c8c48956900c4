// SPDX-License-Identifier: MIT
#include "backends/cpu/tavi_image_cpu.h"

#include "backends/software/convert.h"
#include "image/cpu_image.h"

#define TAVI_LOG_TAG "tavi-cpu"
#include "services/log.h"

using namespace tavi;

int tavi_image_transpose_cpu(tavi_image_t* src, tavi_image_t* dst) {
    const CpuImage from(src, Access::read), to(dst, Access::write);
    if (!from) {
        LOG_ERROR("src=" RECORD_TEXT ": %s", RECORD(src), from.why());
        return from.code();
    }
    if (!to) {
        LOG_ERROR("dst=" RECORD_TEXT ": %s", RECORD(dst), to.why());
        return to.code();
    }
    const ImageView &s = from.view(), &d = to.view();
    if (s.format != d.format || d.width != s.height || d.height != s.width) {
        LOG_ERROR("dst size=%dx%d fmt=%d: allowed is the exchanged size %dx%d in the source's format %d", d.width,
                  d.height, d.id(), s.height, s.width, s.id());
        return TAVI_RET_PARAM_ERR;
    }
    if (from.overlap(to) != Overlap::none) {
        LOG_ERROR("src data=%p and dst data=%p overlap: allowed are separate images", static_cast<void*>(from.data()),
                  static_cast<void*>(to.data()));
        return TAVI_RET_PARAM_ERR;
    }
    to.clear_tail();
    const int result = convert_views(s, d, TAVI_IMAGE_TRANSFORM_TRANSPOSE, TAVI_IMAGE_RESIZE_DEFAULT);
    if (result != TAVI_RET_SUCCESS)
        LOG_ERROR("no memory for temporaries: size=%dx%d", s.width, s.height);
    return result;
}
