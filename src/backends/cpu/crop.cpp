// SPDX-License-Identifier: MIT
// Cropping with scaling, as a view of the source: nothing outside the region is read and the region is not copied.
#include "backends/cpu/tavi_image_cpu.h"

#include "image/cpu_image.h"
#include "pixels/convert.h"
#include "services/tavi_mem.h"
#include "services/yuv_setting.h"

#define TAVI_LOG_TAG "tavi-cpu"
#include "services/log.h"

namespace tavi {
namespace {

/// Gives a record its memory.
Refusal attach(tavi_image_t* dst) {
    if (const char* problem = why_not_viewable(dst->pixel_format, dst->width, dst->height))
        return {TAVI_RET_UNSUPPORTED, "dst size=%ux%u fmt=%d: %s", dst->width,
                dst->height,          dst->pixel_format,           problem};
    const uint64_t bytes = byte_count(*find_format(dst->pixel_format), dst->width, dst->height);
    tavi_mem_record_t memory = {};
    if (bytes > INT32_MAX || tavi_mem_alloc(static_cast<int>(bytes), TAVI_MEM_TYPE_HEAP, &memory) != 0)
        return {TAVI_RET_FAIL, "no memory for dst size=%ux%u", dst->width, dst->height};
    dst->data = static_cast<uint8_t*>(memory.virt_addr);
    return {};
}

Refusal crop_and_resize(const tavi_image_t* src, const tavi_rect_t& rect, const tavi_image_t* dst) {
    const CpuPair pair(src, dst, yuv_setting(), InPlace::refused);
    if (pair.refusal)
        return pair.refusal;
    const ImageView &s = pair.src.view(), &d = pair.dst.view();
    if (rect.left < 0 || rect.top < 0 || rect.right >= s.width || rect.bottom >= s.height || rect.right < rect.left ||
        rect.bottom < rect.top)
        return Refusal(TAVI_RET_PARAM_ERR, "rect=(%d %d %d %d) is empty or not inside (0 0 %d %d)", rect.left,
                       rect.top, rect.right, rect.bottom, s.width - 1, s.height - 1);
    if (d.format != s.format)
        return {TAVI_RET_PARAM_ERR, "dst fmt=%d: allowed is the source's, %d", d.id(), s.id()};
    pair.dst.clear_tail();
    const Box box{rect.left, rect.top, rect.right - rect.left + 1, rect.bottom - rect.top + 1};
    return convert_region(s, box, d, TAVI_IMAGE_TRANSFORM_NONE, TAVI_IMAGE_RESIZE_DEFAULT,
                          "tavi_image_crop_and_resize_cpu_imp");
}

} // namespace
} // namespace tavi

using namespace tavi;

int tavi_image_crop_and_resize_cpu_imp(tavi_image_t* src, tavi_rect_t* rect, tavi_image_t* dst) {
    if (!rect || !dst) {
        LOG_ERROR("rect=%p dst=%p: allowed are pointers that are not null", static_cast<void*>(rect),
                  static_cast<void*>(dst));
        return TAVI_RET_PARAM_ERR;
    }
    const bool without_memory = !dst->data && dst->fd <= 0;
    Refusal no = without_memory ? attach(dst) : Refusal();
    if (!no)
        no = crop_and_resize(src, *rect, dst);
    if (!no)
        return TAVI_RET_SUCCESS;
    LOG_ERROR("%s", no.text);
    if (without_memory && dst->data) {
        tavi_mem_free_by_virt_addr(dst->data);
        dst->data = nullptr;
    }
    return no.code;
}
