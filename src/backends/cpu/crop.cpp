// SPDX-License-Identifier: MIT
// Cropping with scaling, as a view of the source: nothing outside the region is read and the region is not copied.
#include "backends/cpu/tavi_image_cpu.h"

#include "backends/software/convert.h"
#include "image/cpu_image.h"
#include "services/tavi_mem.h"

#define TAVI_LOG_TAG "tavi-cpu"
#include "services/log.h"

using namespace tavi;

int tavi_image_crop_and_resize_cpu_imp(tavi_image_t* src, tavi_rect_t* rect, tavi_image_t* dst) {
    if (!rect || !dst) {
        LOG_ERROR("rect=%p dst=%p: allowed are pointers that are not null", static_cast<void*>(rect),
                  static_cast<void*>(dst));
        return TAVI_RET_PARAM_ERR;
    }
    const CpuImage from(src, Access::read);
    if (!from) {
        LOG_ERROR("src=" RECORD_TEXT ": %s", RECORD(src), from.why());
        return from.code();
    }
    const ImageView& s = from.view();
    if (rect->left < 0 || rect->top < 0 || rect->right >= s.width || rect->bottom >= s.height ||
        rect->right < rect->left || rect->bottom < rect->top) {
        LOG_ERROR("rect=(%d %d %d %d) is empty or not inside (0 0 %d %d)", rect->left, rect->top, rect->right,
                  rect->bottom, s.width - 1, s.height - 1);
        return TAVI_RET_PARAM_ERR;
    }
    if (dst->pixel_format != src->pixel_format) {
        LOG_ERROR("dst fmt=%d: allowed is the source's, %d", dst->pixel_format, src->pixel_format);
        return TAVI_RET_PARAM_ERR;
    }
    const Box box{rect->left, rect->top, rect->right - rect->left + 1, rect->bottom - rect->top + 1};

    bool attached = false;
    if (!dst->data && dst->fd <= 0) {
        if (const char* problem = why_not_viewable(dst->pixel_format, dst->width, dst->height)) {
            LOG_ERROR("dst size=%ux%u fmt=%d: %s", dst->width, dst->height, dst->pixel_format, problem);
            return TAVI_RET_UNSUPPORTED;
        }
        const uint64_t bytes = byte_count(*find_format(dst->pixel_format), dst->width, dst->height);
        tavi_mem_record_t memory = {};
        if (bytes > INT32_MAX || tavi_mem_alloc(static_cast<int>(bytes), TAVI_MEM_TYPE_HEAP, &memory) != 0) {
            LOG_ERROR("no memory for dst size=%ux%u", dst->width, dst->height);
            return TAVI_RET_FAIL;
        }
        dst->data = static_cast<uint8_t*>(memory.virt_addr);
        attached = true;
    }
    int result;
    {
        const CpuImage to(dst, Access::write);
        if (!to) {
            LOG_ERROR("dst=" RECORD_TEXT ": %s", RECORD(dst), to.why());
            result = to.code();
        } else if (from.overlap(to) != Overlap::none) {
            LOG_ERROR("src data=%p and dst data=%p overlap: allowed are separate images",
                      static_cast<void*>(from.data()), static_cast<void*>(to.data()));
            result = TAVI_RET_PARAM_ERR;
        } else {
            to.clear_tail();
            result = convert_region(s, box, to.view(), TAVI_IMAGE_TRANSFORM_NONE, TAVI_IMAGE_RESIZE_DEFAULT);
            if (result != TAVI_RET_SUCCESS)
                LOG_ERROR("no memory for temporaries: rect=(%d %d %d %d) dst size=%ux%u", rect->left, rect->top,
                          rect->right, rect->bottom, dst->width, dst->height);
        }
    }
    if (result != TAVI_RET_SUCCESS && attached) {
        tavi_mem_free_by_virt_addr(dst->data);
        dst->data = nullptr;
    }
    return result;
}
