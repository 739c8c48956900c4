// SPDX-License-Identifier: MIT
// Queries of the image record: channels, bytes per sample, bytes in all.
#include <cstddef>

#include "image/format.h"
#include "services/tavi_mem.h"
#include "utils/tavi_image_internal.h"

// The records are shared with callers and services that were built elsewhere: their layout is part of the interface.
static_assert(offsetof(tavi_image_t, size) == sizeof(void*));
static_assert(offsetof(tavi_image_t, is_prealloc_buf) == sizeof(void*) + 4);
static_assert(offsetof(tavi_image_t, pixel_format) == sizeof(void*) + 8);
static_assert(offsetof(tavi_image_t, width) == sizeof(void*) + 12);
static_assert(offsetof(tavi_image_t, height) == sizeof(void*) + 16);
static_assert(offsetof(tavi_image_t, fd) == sizeof(void*) + 20);
static_assert(offsetof(tavi_image_t, data_phy) == sizeof(void*) + 24);
static_assert(sizeof(tavi_image_t) == 2 * sizeof(void*) + 24); // 32 bytes on ARM, 40 on a desktop
static_assert(sizeof(tavi_pixel_format) == 4 && static_cast<tavi_pixel_format>(-1) > TAVI_PIXEL_FORMAT_GRAY16);
static_assert(sizeof(tavi_rect_t) == 16 && sizeof(tavi_point_t) == 12 && sizeof(tavi_quad_t) == 48);
static_assert(sizeof(tavi_color_t) == 3);
static_assert(sizeof(tavi_mem_record_t) == 24 + 2 * sizeof(void*));
static_assert(offsetof(tavi_mem_record_t, virt_addr) == 8);
static_assert(offsetof(tavi_mem_record_t, phys_addr) == 8 + sizeof(void*));
static_assert(offsetof(tavi_mem_record_t, fd) == 8 + 2 * sizeof(void*));

int tavi_image_get_channels(tavi_image_t* img) {
    const tavi::Format* format = img ? tavi::find_format(img->pixel_format) : nullptr;
    if (!format || format->is_yuv()) // YUV has no channel count
        return TAVI_RET_PARAM_ERR;
    return format->parts;
}

int tavi_image_type_size(tavi_image_t* img) {
    if (!img)
        return TAVI_RET_PARAM_ERR;
    const tavi::Format* format = tavi::find_format(img->pixel_format);
    return format ? format->sample_bytes() : 1;
}

int tavi_image_get_size(tavi_image_t* img) {
    const tavi::Format* format = img ? tavi::find_format(img->pixel_format) : nullptr;
    if (!format)
        return TAVI_RET_PARAM_ERR;
    // 32 bits that wrap are the documented answer; what allocates uses byte_count() instead.
    uint32_t bytes = static_cast<uint32_t>(tavi_image_type_size(img)) * (img->width * img->height);
    const uint32_t halves = 2 * format->bits_per_pixel / format->bits; // of a sample, in a pixel
    bytes = halves % 2 ? (bytes * halves) >> 1 : bytes * (halves / 2);
    return static_cast<int>(bytes);
}
