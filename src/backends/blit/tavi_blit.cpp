// SPDX-License-Identifier: MIT
// The contract of the blit engine: checks what the engine must not be trusted with, runs the job, and says why not
// when it refuses. Every refusal is one INFO line with the check that failed and both values.
#define TAVI_LOG_TAG "tavi-blit"
#include "backends/blit/tavi_blit.h"

#include <cstring>

#include "backends/blit/blit_request.h"
#include "image/letterbox.h"
#include "image/numbers.h"
#include "os/mapping.h"
#include "pixels/fill.h"
#include "services/log.h"
#include "services/yuv_setting.h"

namespace tavi {
namespace {

Refusal take_operand(tavi_image_t* image, const FormatSet& offered, Operand& o) {
    constexpr int kNo = TAVI_RET_UNSUPPORTED;
    const char* const name = o.name;
    Buffer& buffer = o.memory[0];
    if (!image)
        return {kNo, "%s record is null", name};
    if (!offered.has(image->pixel_format))
        return {kNo, "%s format: %u was asked for, the engine has those of mask %#x", name,
                static_cast<unsigned>(image->pixel_format), offered.mask()};
    if (const char* problem = why_not_viewable(image->pixel_format, image->width, image->height))
        return {kNo, "%s size %ux%u: %s", name, image->width, image->height, problem};
    const Format& format = *find_format(image->pixel_format);
    const ChromaGrid grid = chroma_grid(format);
    if (image->width % grid.x || image->height % grid.y)
        return Refusal(kNo, "%s size %ux%u: multiples of %dx%d are needed, engines round other ones", name,
                       image->width, image->height, grid.x, grid.y);
    if (!identify_buffer(image->fd, buffer))
        return {kNo, "%s fd=%d: the descriptor of a DMA buffer, 1 or more, is needed", name, image->fd};
    uint64_t extent = byte_count(format, image->width, image->height);
    if (buffer.bytes < extent)
        return {kNo, "%s buffer: it has %llu bytes, the image has %llu", name,
                static_cast<unsigned long long>(buffer.bytes), static_cast<unsigned long long>(extent)};
    if (image->data && !lies_in_buffer(image->data, buffer, 0, extent))
        return {kNo, "%s data=%p is not the start of the buffer behind fd=%d", name, static_cast<void*>(image->data),
                image->fd};
    o.side.format = image->pixel_format;
    o.side.width = static_cast<int>(image->width);
    o.side.height = static_cast<int>(image->height);
    o.side.box = Box{0, 0, o.side.width, o.side.height};
    o.data = image->data;
    o.extent[0] = extent;
    o.complete_extents();
    return {};
}

/// A request between images.
struct ImageRequest : Request {
    ImageRequest() : Request("source", "destination") { color[0] = color[1] = yuv_setting(); }
};

Refusal make_request(tavi_image_t* src, tavi_image_t* dst, tavi_image_transform_mode mode, Request& r) {
    if (const Refusal no = find_engine(mode, r))
        return no;
    if (const Refusal no = take_operand(src, r.engine.sources, r.src))
        return no;
    if (const Refusal no = take_operand(dst, r.engine.results, r.dst))
        return no;
    return check_operands(r);
}

Box box_of(const tavi_rect_t& rect) {
    return {rect.left, rect.top, inclusive_span(rect.left, rect.right), inclusive_span(rect.top, rect.bottom)};
}

Letterbox letterbox_of(const Request& r, LetterboxPosition position) {
    const Side &s = r.src.side, &d = r.dst.side;
    return letterbox_geometry(s.width, s.height, d.width, d.height, chroma_grid(*find_format(d.format)), position);
}

Box box_of(const Letterbox& l) { return {l.x, l.y, l.width, l.height}; }

Refusal letterbox(tavi_image_t* src, tavi_image_t* dst, LetterboxPosition position, uint32_t color, Request& r,
                  Letterbox& picture) {
    if (const Refusal no = make_request(src, dst, TAVI_IMAGE_TRANSFORM_NONE, r))
        return no;
    picture = letterbox_of(r, position);
    if (const Refusal no = take_box(box_of(picture), r.dst))
        return no;
    // Mapped before the job: once it has run, nothing may fail any more.
    CpuMapping mapping;
    if (!dst->data)
        mapping = CpuMapping(dst->fd, static_cast<size_t>(bytes_of(r.dst.side, 0)), Access::read_write);
    uint8_t* const data = dst->data ? dst->data : mapping.data();
    if (!data)
        return {TAVI_RET_FAIL, "destination fd=%d cannot be mapped for its padding: %s", dst->fd,
                std::strerror(mapping.error())};
    if (const Refusal no = run_request(r, false))
        return no;
    // After the job: the import of a buffer throws away what the CPU wrote before it.
    const DmaSync pass(dst->fd, Access::write);
    const Side& side = r.dst.side;
    paint_padding(make_view(data, *find_format(side.format), side.width, side.height, yuv_setting()), box_of(picture),
                  color);
    return {};
}

} // namespace
} // namespace tavi

using namespace tavi;

int is_blit_support() {
    EngineInfo info;
    return ContextPool::instance().engine(info) ? 1 : 0;
}

int tavi_image_convert_blit(tavi_image_t* src, tavi_image_t* dst, tavi_image_transform_mode mode) {
    ImageRequest r;
    Refusal no = make_request(src, dst, mode, r);
    if (!no)
        no = run_request(r, false);
    if (no)
        LOG_INFO("refused: %s", no.text);
    else
        LOG_INFO("done by the engine %s", Summary(r).text);
    return no.code;
}

int tavi_image_convert_blit_with_crop(tavi_image_t* src, tavi_rect_t* src_rect, tavi_image_t* dst,
                                      tavi_rect_t* dst_rect, tavi_image_transform_mode mode) {
    if (!src_rect || !dst_rect) {
        LOG_INFO("refused: src_rect=%p dst_rect=%p, both are needed", static_cast<void*>(src_rect),
                 static_cast<void*>(dst_rect));
        return TAVI_RET_PARAM_ERR;
    }
    ImageRequest r;
    Refusal no = make_request(src, dst, mode, r);
    if (!no)
        no = take_box(box_of(*src_rect), r.src);
    if (!no)
        no = take_box(box_of(*dst_rect), r.dst);
    if (!no)
        no = run_request(r, true);
    if (no)
        LOG_INFO("refused: %s", no.text);
    else
        LOG_INFO("done by the engine %s", Summary(r).text);
    return no.code;
}

// Nobody retries a letterbox in software once this says yes, so the engine itself is asked, down to the rectangles.
// The context stays open: the conversion that follows finds it as it needs it.
int tavi_blit_keep_ratio_resize_check(tavi_image_t* src, tavi_image_t* dst, int) {
    ImageRequest r;
    Refusal no = make_request(src, dst, TAVI_IMAGE_TRANSFORM_NONE, r);
    if (!no)
        no = take_box(box_of(letterbox_of(r, LetterboxPosition::centre)), r.dst);
    if (!no)
        no = ContextPool::instance().lease(r.setup()).refusal();
    if (no)
        LOG_INFO("refused: %s", no.text);
    return !no;
}

int tavi_image_convert_keep_ratio_by_blit(tavi_image_t* src, tavi_image_t* dst, int param0, int param1, float* out0,
                                          float* out1, float* out2, float* out3, int) {
    if (param1 < 0 || param1 > 2) {
        LOG_ERROR("position param1=%d: allowed are 0 (centre), 1 (top-left) and 2 (bottom-right)", param1);
        return TAVI_RET_PARAM_ERR;
    }
    // Nobody repeats a letterbox in software: what failed is tried once more, by a context opened anew.
    Refusal said;
    for (int attempt = 0; attempt < 2; ++attempt) {
        ImageRequest r;
        Letterbox picture = {};
        if (const Refusal no = letterbox(src, dst, static_cast<LetterboxPosition>(param1),
                                         static_cast<uint32_t>(param0), r, picture)) {
            if (std::strcmp(no.text, said.text) != 0) // one line for what is refused both times
                LOG_INFO("refused: %s", no.text);
            said = no;
            continue;
        }
        LOG_INFO("done by the engine %s", Summary(r).text);
        if (out0)
            *out0 = picture.scale_x;
        if (out1)
            *out1 = picture.scale_y;
        if (out2)
            *out2 = static_cast<float>(picture.x);
        if (out3)
            *out3 = static_cast<float>(picture.y);
        return TAVI_RET_SUCCESS;
    }
    return TAVI_RET_FAIL;
}
