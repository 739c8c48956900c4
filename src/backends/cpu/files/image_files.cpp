// SPDX-License-Identifier: MIT
// The contract of reading and writing image files: which shape, whose memory, which type to write.
#define TAVI_LOG_TAG "tavi-cpu"
#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "backends/cpu/files/picture.h"
#include "backends/cpu/tavi_image_cpu.h"
#include "image/cpu_image.h"
#include "services/log.h"
#include "services/tavi_mem.h"
#include "services/yuv_setting.h"

namespace tavi {

namespace {

constexpr const Ending* kEndings[] = {&kJpgEnding, &kJpegEnding, &kPngEnding, &kBmpEnding, &kPpmEnding, &kPgmEnding};

struct MemDeleter {
    void operator()(uint8_t* data) const { tavi_mem_free_by_virt_addr(data); }
};

struct Shape {
    tavi_pixel_format format;
    uint32_t width;
    uint32_t height;
};

/// What the caller is to get.
Refusal choose_shape(const FileHeader& header, int orientation, const tavi_image_t& img, int kind, Shape& shape) {
    shape = {TAVI_PIXEL_FORMAT_RGB888, header.width, header.height};
    if (turns_sides(orientation))
        std::swap(shape.width, shape.height);
    if (kind == TAVI_IMAGE_READ_AS_STORED)
        shape.format = header.stored;
    else if (kind == TAVI_IMAGE_READ_GRAY)
        shape.format = TAVI_PIXEL_FORMAT_GRAY8;
    else if (kind == TAVI_IMAGE_READ_INTO_RECORD) {
        shape.format = img.pixel_format;
        if (img.width != 0 && img.height != 0) {
            shape.width = img.width;
            shape.height = img.height;
        }
    }
    if (const char* const rule = why_not_viewable(shape.format, shape.width, shape.height))
        return Refusal(TAVI_RET_UNSUPPORTED, "%ux%u in format %u: %s", shape.width, shape.height,
                       static_cast<unsigned>(shape.format), rule);
    return {};
}

Refusal read_file(const char* path, tavi_image_t& img, int read_flag) {
    const int kind = read_flag & ~TAVI_IMAGE_READ_IGNORE_ORIENTATION;
    const bool lent = img.is_prealloc_buf == 1;
    if (kind < TAVI_IMAGE_READ_COLOR || kind > TAVI_IMAGE_READ_INTO_RECORD)
        return {TAVI_RET_PARAM_ERR, "read_flag=%d; allowed are 0 to 3, with 16 added or not", read_flag};
    if (kind == TAVI_IMAGE_READ_INTO_RECORD && !find_format(img.pixel_format))
        return {TAVI_RET_PARAM_ERR, "pixel_format=%u; allowed are 0 to 15", static_cast<unsigned>(img.pixel_format)};
    if (lent != (img.data != nullptr)) // memory that nobody would free, or none where some was promised
        return {TAVI_RET_PARAM_ERR, "data=%p with is_prealloc_buf=%d; give memory and 1, or null and 0",
                static_cast<void*>(img.data), img.is_prealloc_buf};
    Input input;
    std::unique_ptr<Decoder> decoder;
    FileHeader header;
    if (const Refusal no = open_picture(path, input, decoder, header))
        return no;
    const int orientation = read_flag & TAVI_IMAGE_READ_IGNORE_ORIENTATION ? 1 : header.orientation;
    Shape shape;
    if (const Refusal no = choose_shape(header, orientation, img, kind, shape))
        return no;
    const uint64_t bytes = byte_count(kFormats[shape.format], shape.width, shape.height); // at most 2^30
    std::unique_ptr<uint8_t, MemDeleter> attached;
    if (!lent) {
        tavi_mem_record_t record = {};
        if (tavi_mem_alloc(static_cast<int>(bytes), TAVI_MEM_TYPE_HEAP, &record) != TAVI_RET_SUCCESS)
            return {TAVI_RET_FAIL, "no memory for %ux%u pixels", shape.width, shape.height};
        attached.reset(static_cast<uint8_t*>(record.virt_addr));
    } else if (img.size < bytes) {
        return Refusal(TAVI_RET_PARAM_ERR, "size=%u is too small for %ux%u in format %u, which needs %u", img.size,
                       shape.width, shape.height, static_cast<unsigned>(shape.format), static_cast<unsigned>(bytes));
    }
    tavi_image_t target = img;
    target.data = lent ? img.data : attached.get();
    target.fd = lent ? img.fd : 0;
    target.pixel_format = shape.format;
    target.width = shape.width;
    target.height = shape.height;
    {
        const CpuImage pixels(&target, Access::write, yuv_setting());
        if (!pixels)
            return pixels.refusal();
        pixels.clear_tail();
        if (const Refusal no = decode_picture(*decoder, header, orientation, pixels.view(), "tavi_image_read_cpu"))
            return no;
    }
    img.pixel_format = shape.format;
    img.width = shape.width;
    img.height = shape.height;
    if (!lent) {
        img.data = attached.release();
        img.size = static_cast<uint32_t>(bytes);
        img.is_prealloc_buf = 0;
        img.fd = 0;
        img.data_phy = nullptr;
    }
    return {};
}

const Ending* find_ending(const char* path) {
    const char* const slash = std::strrchr(path, '/');
    const char* const dot = std::strrchr(slash ? slash : path, '.');
    const auto found = std::find_if(std::begin(kEndings), std::end(kEndings),
                                    [&](const Ending* e) { return dot && ::strcasecmp(dot, e->text) == 0; });
    return found == std::end(kEndings) ? nullptr : *found;
}

} // namespace

Refusal write_picture(const tavi_image_t& img, const char* path, Output& output) {
    const Ending* const ending = find_ending(path);
    if (!ending)
        return {TAVI_RET_UNSUPPORTED, "unknown ending; allowed are .jpg, .jpeg, .png, .bmp, .ppm and .pgm"};
    const CpuImage source(&img, Access::read, yuv_setting());
    if (!source)
        return Refusal(source.refusal().code, "%ux%u in format %u: %s", img.width, img.height,
                       static_cast<unsigned>(img.pixel_format), source.refusal().text);
    ImageView picture = source.view();
    Bytes converted;
    if (const Refusal no = make_encodable(*ending, picture, converted, "tavi_image_write_cpu"))
        return no;
    if (!output.is_open() && !output.open(path))
        return {TAVI_RET_FAIL, "%s", std::strerror(errno)};
    if (const Refusal no = ending->encode(picture, kDefaultQuality, output))
        return no;
    if (!output.commit())
        return {TAVI_RET_FAIL, "%s", std::strerror(errno)};
    return {};
}

} // namespace tavi

extern "C" int tavi_image_read_cpu(const char* path, tavi_image_t* img, int read_flag) {
    if (!path || !img) {
        LOG_ERROR("path=%p img=%p; neither may be null", static_cast<const void*>(path), static_cast<void*>(img));
        return TAVI_RET_PARAM_ERR;
    }
    const tavi::Refusal no = tavi::read_file(path, *img, read_flag);
    if (no)
        LOG_ERROR("cannot read %s: %s", path, no.text);
    return no.code;
}

extern "C" int tavi_image_write_cpu(const char* path, tavi_image_t* img) {
    if (!path || !img) {
        LOG_ERROR("path=%p img=%p; neither may be null", static_cast<const void*>(path), static_cast<void*>(img));
        return TAVI_RET_PARAM_ERR;
    }
    tavi::Output output;
    const tavi::Refusal no = tavi::write_picture(*img, path, output);
    if (no)
        LOG_ERROR("cannot write %s: %s", path, no.text);
    return no.code;
}
