// SPDX-License-Identifier: MIT
// The life of an image's pixel memory: from the memory service, from the heap, from the caller, and back again.
#include <cstring>

#include "image/format.h"
#include "services/tavi_mem.h"
#include "services/tavi_mlrt.h"
#include "utils/log_args.h"
#include "utils/tavi_image_internal.h"

int tavi_image_create_mem2(tavi_image_t* img, int type) {
    const int size = tavi_image_get_size(img);
    if (size == 0) { // the error value of an invalid format goes on to the memory service, which refuses it
        LOG_ERROR("error accord image params caculate mem size=%d", size);
        return TAVI_RET_PARAM_ERR;
    }
    tavi_mem_record_t record{};
    if (const int ret = tavi_mem_alloc(size, type, &record))
        return ret;
    img->fd = record.fd;
    img->data = static_cast<uint8_t*>(record.virt_addr);
    img->size = static_cast<uint32_t>(size);
    img->data_phy = record.phys_addr;
    LOG_INFO("create image mem width=%d height=%d size=%d type=%d data=%p data_phy=%p fd=%d", WH(*img), size, type,
             img->data, img->data_phy, img->fd);
    return TAVI_RET_SUCCESS;
}

int tavi_image_create_mem(tavi_image_t* img) { return tavi_image_create_mem2(img, TAVI_MEM_TYPE_DEVICE); }

int tavi_image_destroy_mem(tavi_image_t* img) {
    if (!img)
        return TAVI_RET_PARAM_ERR;
    if (!img->data) {
        LOG_ERROR("image->data can not be nullptr");
        return TAVI_RET_PARAM_ERR;
    }
    return tavi_mem_free_by_virt_addr(img->data);
}

tavi_image_t* tavi_image_clone2(tavi_image_t* src, int deep_copy) {
    if (!src || !src->data)
        return nullptr;
    auto* clone = static_cast<tavi_image_t*>(malloc(sizeof(tavi_image_t)));
    if (!clone)
        return nullptr;
    // `size` stays unset: readers of a clone compute the byte count.
    clone->is_prealloc_buf = 0;
    clone->pixel_format = src->pixel_format;
    clone->width = src->width;
    clone->height = src->height;
    // Of a deep clone too, though they name the source's memory then.
    clone->fd = src->fd;
    clone->data_phy = src->data_phy;
    if (!deep_copy) {
        clone->data = src->data;
        return clone;
    }
    const tavi::Format* format = tavi::find_format(src->pixel_format);
    const uint64_t bytes = format ? tavi::byte_count(*format, src->width, src->height) : 0;
    clone->data = format ? tavi::heap_block(bytes) : nullptr;
    if (!clone->data) {
        free(clone);
        return nullptr;
    }
    memcpy(clone->data, src->data, static_cast<size_t>(bytes));
    return clone;
}

tavi_image_t* tavi_image_clone(tavi_image_t* src) { return tavi_image_clone2(src, 1); }

int tavi_image_release(tavi_image_t* img) {
    if (!img || !img->data)
        return TAVI_RET_PARAM_ERR;
    if (img->is_prealloc_buf == 1) {
        LOG_WARN("no need to release prealloc buffer!");
        return TAVI_RET_FAIL;
    }
    if (tavi_mem_check_record_by_virt_addr(img->data, 0) == 0)
        return tavi_mem_free_by_virt_addr(img->data);
    free(img->data);
    return TAVI_RET_SUCCESS;
}

int tavi_mem_alloc_from_mlrt(void* handle, void** memory, size_t size, int type) {
    const TaviMlContext* context = handle ? static_cast<TaviMlHandle*>(handle)->context : nullptr;
    return context ? context->runtime->AllocateMemory(memory, size, type) : TAVI_RET_INVALID_HANDLE;
}

int tavi_mem_free_from_mlrt(void* handle, void* memory, size_t size, int type) {
    const TaviMlContext* context = handle ? static_cast<TaviMlHandle*>(handle)->context : nullptr;
    return context ? context->runtime->ReleaseMemory(memory, size, type) : TAVI_RET_INVALID_HANDLE;
}
