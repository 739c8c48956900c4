// SPDX-License-Identifier: MIT
// The layout and the memory of frames, and their likeness to images.
#include <algorithm>
#include <cstring>

#include "frames/frame_access.h"
#include "services/tavi_mem.h"
#include "services/yuv_setting.h"

#define TAVI_LOG_TAG "tavi-frame"
#include "services/log.h"

namespace tavi {
namespace {

constexpr uint32_t kMostAlignment = 4096;

uint64_t aligned(uint64_t bytes, uint32_t alignment) { return (bytes + alignment - 1) / alignment * alignment; }

Refusal lay_out_planes(tavi_frame_t* frame, uint32_t alignment, uint64_t& bytes) {
    if (const Refusal no = check_shape(frame, "frame"))
        return no;
    if (alignment < 1 || alignment > kMostAlignment || (alignment & (alignment - 1)))
        return {TAVI_RET_PARAM_ERR, "alignment=%u: allowed are powers of two from 1 to %u", alignment,
                kMostAlignment};
    const ImageView shape = shape_of(*frame);
    uint64_t offset[3] = {}, pitch[3] = {};
    bytes = 0;
    for (int i = 0; i < shape.planes(); ++i) {
        pitch[i] = aligned(static_cast<uint64_t>(shape.plane[i].pitch), alignment);
        offset[i] = bytes;
        bytes += pitch[i] * static_cast<uint64_t>(shape.plane[i].rows); // a multiple of the alignment
    }
    if (!shape.chroma_up) // an image of these sides, whose count may be some bytes more than its planes take
        bytes = std::max(bytes, byte_count(*shape.format, frame->width, frame->height));
    if (bytes > INT32_MAX)
        return {TAVI_RET_UNSUPPORTED, "frame of %llu bytes: allowed is less than 2 GiB",
                static_cast<unsigned long long>(bytes)};
    for (int i = 0; i < shape.planes(); ++i) {
        frame->plane[i].offset = static_cast<uint32_t>(offset[i]);
        frame->plane[i].pitch = static_cast<uint32_t>(pitch[i]);
    }
    return {};
}

Refusal give_memory(tavi_frame_t* frame, uint32_t alignment, int32_t mem_type) {
    if (!frame)
        return {TAVI_RET_PARAM_ERR, "frame is null"};
    if (mem_type < 0 || mem_type >= TAVI_MEM_TYPE_COUNT)
        return {TAVI_RET_PARAM_ERR, "mem_type=%d: allowed are 0 (heap), 1 (device) and 2 (contiguous device)",
                mem_type};
    tavi_frame_t made = *frame;
    std::memset(made.plane, 0, sizeof made.plane);
    uint64_t bytes = 0;
    if (const Refusal no = lay_out_planes(&made, alignment, bytes))
        return no;
    tavi_mem_record_t record = {};
    if (const int ret = tavi_mem_alloc(static_cast<int>(bytes), mem_type, &record))
        return {ret, "no memory of type %d for %llu bytes", mem_type, static_cast<unsigned long long>(bytes)};
    for (int i = 0; i < find_format(made.format)->planes; ++i) {
        made.plane[i].data = static_cast<uint8_t*>(record.virt_addr) + made.plane[i].offset;
        made.plane[i].fd = record.fd;
    }
    *frame = made;
    return {};
}

Refusal take_memory(tavi_frame_t* frame) {
    if (!frame)
        return {TAVI_RET_PARAM_ERR, "frame is null"};
    const auto has_memory = [](const tavi_plane_t& p) { return p.data || p.fd > 0; };
    uint8_t* const data = frame->plane[0].data;
    if (std::any_of(frame->plane, frame->plane + 3, has_memory) &&
        (!data || tavi_mem_check_record_by_virt_addr(data, 0) != 0 || tavi_mem_free_by_virt_addr(data) != 0))
        return {TAVI_RET_PARAM_ERR, "frame.plane[0].data=%p is no memory of the library's", static_cast<void*>(data)};
    std::memset(frame->plane, 0, sizeof frame->plane);
    return {};
}

Refusal to_frame(const tavi_image_t* image, tavi_frame_t* frame) {
    if (!image || !frame)
        return {TAVI_RET_PARAM_ERR, "image=%p frame=%p: neither may be null", static_cast<const void*>(image),
                static_cast<void*>(frame)};
    if (!image->data && image->fd <= 0)
        return {TAVI_RET_PARAM_ERR, "image has no memory: data is null and fd=%d", image->fd};
    const ColorSpace color = yuv_setting();
    tavi_frame_t made = {};
    made.format = image->pixel_format;
    made.width = image->width;
    made.height = image->height;
    made.chroma_rounding = TAVI_CHROMA_ROUNDS_DOWN;
    made.color = {static_cast<tavi_matrix_t>(color.matrix), color.full_range, TAVI_SITING_CENTRE};
    uint64_t bytes = 0;
    if (const Refusal no = lay_out_planes(&made, 1, bytes))
        return no;
    for (int i = 0; i < find_format(made.format)->planes; ++i) {
        made.plane[i].data = image->data ? image->data + made.plane[i].offset : nullptr;
        made.plane[i].fd = image->fd > 0 ? image->fd : 0;
    }
    *frame = made;
    return {};
}

Refusal to_image(const tavi_frame_t* frame, tavi_image_t* image) {
    if (!image)
        return {TAVI_RET_PARAM_ERR, "image is null"};
    if (const Refusal no = check_shape(frame, "frame"))
        return no;
    constexpr int kNo = TAVI_RET_UNSUPPORTED;
    const Format& f = *find_format(frame->format);
    const bool odd = frame->width % (1u << f.xshift()) || frame->height % (1u << f.yshift());
    if (odd && frame->chroma_rounding == TAVI_CHROMA_ROUNDS_UP)
        return {kNo, "frame.chroma_rounding=0 (up) at %ux%u: an image rounds down", frame->width, frame->height};
    if (f.is_yuv() && (color_of(*frame) != yuv_setting() || frame->color.siting != TAVI_SITING_CENTRE))
        return {kNo, "frame.color=(%d %d %d): an image has that of the setting TAVI_YUV, centred",
                frame->color.matrix, frame->color.range, frame->color.siting};
    tavi_frame_t tight = *frame;
    uint64_t bytes = 0;
    if (const Refusal no = lay_out_planes(&tight, 1, bytes))
        return no;
    const tavi_plane_t& first = frame->plane[0];
    if (!first.data && first.fd <= 0)
        return {TAVI_RET_PARAM_ERR, "frame.plane[0] has no memory: data is null and fd=%d", first.fd};
    if (first.fd > 0 && first.offset) // an image's descriptor has no offset: an engine would work at the wrong place
        return {kNo, "frame.plane[0].offset=%u of fd=%d: an image begins at 0", first.offset, first.fd};
    for (int i = 0; i < f.planes; ++i) {
        const tavi_plane_t &p = frame->plane[i], &t = tight.plane[i];
        if (p.pitch != t.pitch || p.fd != first.fd || (p.fd > 0 && p.offset != first.offset + t.offset) ||
            p.data != (first.data ? first.data + t.offset : nullptr))
            return {kNo,      "frame.plane[%d]: pitch=%u offset=%u: an image has %u and %u behind its first plane",
                    i,        p.pitch,
                    p.offset, t.pitch,
                    t.offset};
    }
    tavi_image_t made = {};
    made.data = first.data;
    made.size = static_cast<uint32_t>(byte_count(f, frame->width, frame->height));
    made.is_prealloc_buf = 1;
    made.pixel_format = frame->format;
    made.width = frame->width;
    made.height = frame->height;
    made.fd = first.fd;
    *image = made;
    return {};
}

} // namespace
} // namespace tavi

using namespace tavi;

int tavi_frame_layout(tavi_frame_t* frame, uint32_t alignment, size_t* bytes) {
    uint64_t all = 0;
    const Refusal no = lay_out_planes(frame, alignment, all);
    if (no)
        LOG_ERROR("%s", no.text);
    else if (bytes)
        *bytes = static_cast<size_t>(all);
    return no.code;
}

int tavi_frame_create(tavi_frame_t* frame, uint32_t alignment, int32_t mem_type) {
    const Refusal no = give_memory(frame, alignment, mem_type);
    if (no)
        LOG_ERROR("%s", no.text);
    return no.code;
}

int tavi_frame_release(tavi_frame_t* frame) {
    const Refusal no = take_memory(frame);
    if (no)
        LOG_ERROR("%s", no.text);
    return no.code;
}

int tavi_frame_from_image(const tavi_image_t* image, tavi_frame_t* frame) {
    const Refusal no = to_frame(image, frame);
    if (no)
        LOG_ERROR("%s", no.text);
    return no.code;
}

int tavi_frame_to_image(const tavi_frame_t* frame, tavi_image_t* image) {
    const Refusal no = to_image(frame, image);
    if (no)
        LOG_ERROR("%s", no.text);
    return no.code;
}

#define TEXT_OF_VALUE(value) #value
#define TEXT_OF(value) TEXT_OF_VALUE(value)

const char* tavi_version() {
    return TEXT_OF(TAVI_VERSION_MAJOR) "." TEXT_OF(TAVI_VERSION_MINOR) "." TEXT_OF(TAVI_VERSION_PATCH);
}
