// SPDX-License-Identifier: MIT
#define TAVI_LOG_TAG "tavi-blit"
#include "backends/blit/blit_frame.h"

#include <algorithm>
#include <cstdio>

#include "backends/blit/blit_request.h"
#include "image/letterbox.h"
#include "services/log.h"

namespace tavi {
namespace {

constexpr int kNo = TAVI_RET_UNSUPPORTED;
constexpr uint32_t kPitchUnit = 4; // bytes, of every plane: engines count rows in words, and some do not check
constexpr int kMostRatio = 16;     // above, fields of scalers overflow, which nothing that can be read back tells

Refusal check_format(const FramePart& f, const FormatSet& together, const FormatSet& apart) {
    if (!together.has(f.format) && !apart.has(f.format))
        return Refusal(kNo, "%s.format=%u: the engine has those of mask %#x", f.name, static_cast<unsigned>(f.format),
                       together.mask());
    const ChromaGrid grid = chroma_grid(*find_format(f.format));
    if (f.width % grid.x || f.height % grid.y)
        return Refusal(kNo, "%s size=%ux%u: multiples of %dx%d are needed, engines round other ones", f.name, f.width,
                       f.height, grid.x, grid.y);
    return {};
}

/// Finds the buffers, and whether they are two.
Refusal take_buffers(const FramePart& part, const FormatSet& together, const FormatSet& apart, Operand& o) {
    const FramePart::Plane* const plane = part.plane;
    const Format& format = *find_format(part.format);
    bool same = true;
    for (int i = 0; i < format.planes; ++i) {
        Buffer buffer;
        if (!identify_buffer(plane[i].fd, buffer))
            return Refusal(kNo, "%s.plane[%d].fd=%d: the descriptor of a DMA buffer, 1 or more, is needed", part.name,
                           i, plane[i].fd);
        uint64_t extent = 0;
        if (plane[i].data && !lies_in_buffer(plane[i].data, buffer, plane[i].offset, extent))
            return Refusal(kNo, "%s.plane[%d].data=%p is not where the buffer behind fd=%d has its offset=%u",
                           part.name, i, static_cast<void*>(plane[i].data), plane[i].fd, plane[i].offset);
        if (i < 2)
            o.memory[static_cast<size_t>(i)] = buffer, o.extent[i] = extent;
        same = same && same_buffer(buffer, o.memory[0]);
    }
    if (!(same ? together : apart).has(part.format))
        return Refusal(kNo, "%s.plane[1].fd=%d: the engine has %.*s in %s only", part.name, plane[1].fd,
                       static_cast<int>(format.name.size()), format.name.data(), same ? "two buffers" : "one buffer");
    o.side.apart = !same;
    return {};
}

/// The picture that the frame is a part of, as the first plane's offset and the second's have it, and where in it.
/// The engine's own way of beginning inside a buffer (data_offset) is for sources only, and most drivers ignore it.
void find_picture(const FramePart& f, bool rectangles, Side& side, int& x, int& y) {
    const Format& format = *find_format(f.format);
    const uint32_t pitch = f.plane[0].pitch, step = format.plane[0].step;
    const ChromaGrid grid = chroma_grid(format);
    x = static_cast<int>(f.plane[0].offset % pitch / step);
    y = static_cast<int>(f.plane[0].offset / pitch);
    side.format = f.format;
    side.width = x + static_cast<int>(f.width);
    side.height = y + static_cast<int>(f.height);
    // Many engines derive the row from the width, and nearly all of those have rectangles.
    const uint32_t across = pitch / step;
    if (rectangles && pitch % step == 0 && across % static_cast<uint32_t>(grid.x) == 0 && across <= kMaxSide)
        side.width = std::max(side.width, static_cast<int>(across));
    side.pitch = pitch == static_cast<uint32_t>(side.width) * step ? 0 : pitch;
    if (format.planes == 1 || side.apart)
        return;
    side.box = {x, y, 0, 0};
    const SidePlane chroma = plane_of(side, 1);
    const uint32_t inside = chroma.top * chroma.pitch + chroma.left;
    if (f.plane[1].offset > inside)
        side.height = std::max(side.height, static_cast<int>((f.plane[1].offset - inside) / pitch));
}

Refusal take_layout(const FramePart& f, bool rectangles, Operand& o) {
    const Format& format = *find_format(f.format);
    const ChromaGrid grid = chroma_grid(format);
    int x = 0, y = 0;
    find_picture(f, rectangles, o.side, x, y);
    o.side.box = {x, y, static_cast<int>(f.width), static_cast<int>(f.height)};
    for (int i = 0; i < format.planes; ++i) {
        const FramePart::Plane& given = f.plane[i];
        const SidePlane p = plane_of(o.side, i);
        if (given.pitch != p.pitch)
            return Refusal(kNo, "%s.plane[%d].pitch=%u: %u is needed, an engine derives it from the first plane's",
                           f.name, i, given.pitch, p.pitch);
        if (given.pitch % kPitchUnit)
            return Refusal(kNo, "%s.plane[%d].pitch=%u: a multiple of %u is needed, engines count rows in words",
                           f.name, i, given.pitch, kPitchUnit);
        const uint32_t start = p.offset + p.top * p.pitch + p.left;
        if (given.offset != start || p.right > p.pitch || x % grid.x || y % grid.y)
            return Refusal(kNo,
                           "%s.plane[%d].offset=%u: an engine has the plane at %u of the buffer, on whole samples",
                           f.name, i, given.offset, start);
    }
    for (int i = 0; i < o.side.buffers(); ++i) {
        const uint64_t bytes = bytes_of(o.side, i), there = o.memory[static_cast<size_t>(i)].bytes;
        if (o.side.height > kMaxSide || there < bytes)
            return Refusal(kNo, "%s buffer: it has %llu bytes, the engine may touch %llu, all of %dx%d", f.name,
                           static_cast<unsigned long long>(there), static_cast<unsigned long long>(bytes),
                           o.side.width, o.side.height);
    }
    return take_box({x + f.box.x, y + f.box.y, f.box.width, f.box.height}, o);
}

Refusal take_part(const FramePart& part, Queue queue, const EngineInfo& engine, Operand& o) {
    const FormatSet& together = queue == kSource ? engine.sources : engine.results;
    if (const Refusal no = check_format(part, together, engine.apart[queue]))
        return no;
    if (const Refusal no = take_buffers(part, together, engine.apart[queue], o))
        return no;
    if (const Refusal no = take_layout(part, engine.rectangles, o))
        return no;
    o.complete_extents();
    return {};
}

/// Between two YUV frames each has its own colours; else what YUV there is says them for both.
Refusal take_colors(const FramePart& src, const FramePart& dst, Request& r) {
    const bool from_yuv = is_yuv(src.format), to_yuv = is_yuv(dst.format);
    const ColorSpace from = src.color, to = dst.color;
    r.color[0] = from_yuv ? from : to_yuv ? to : ColorSpace();
    r.color[1] = to_yuv ? to : r.color[0];
    // Where an engine does not offer the choice its driver keeps the source's, whatever it answers.
    if (from_yuv && to_yuv &&
        ((from.matrix != to.matrix && !r.engine.sets_matrix.has(dst.format)) ||
         (from.full_range != to.full_range && !r.engine.sets_range.has(dst.format))))
        return Refusal(kNo, "dst.color=(%d %d), src.color=(%d %d): the engine keeps the source's",
                       static_cast<int>(to.matrix), to.full_range, static_cast<int>(from.matrix), from.full_range);
    return {};
}

Refusal check_ratio(const Box& from, const Box& to) {
    const auto too_much = [](int a, int b) { return a >= kMostRatio * b || b >= kMostRatio * a; };
    if (too_much(from.width, to.width) || too_much(from.height, to.height))
        return Refusal(kNo, "%dx%d to %dx%d: engines are asked for ratios below %d", from.width, from.height,
                       to.width, to.height, kMostRatio);
    return {};
}

Refusal make_request(const FramePart& src, const FramePart& dst, tavi_image_transform_mode mode, Request& r) {
    if (const Refusal no = find_engine(mode, r))
        return no;
    if (const Refusal no = check_ratio(src.box, dst.box))
        return no;
    if (const Refusal no = take_part(src, kSource, r.engine, r.src))
        return no;
    if (const Refusal no = take_part(dst, kResult, r.engine, r.dst))
        return no;
    if (const Refusal no = take_colors(src, dst, r))
        return no;
    return check_operands(r);
}

} // namespace

Refusal blit_frame(const FramePart& src, const FramePart& dst, tavi_image_transform_mode mode, bool keep_rest,
                   char (&node)[32]) {
    constexpr char kCaller[] = "tavi_frame_convert";
    Request r(src.name, dst.name);
    Refusal no = make_request(src, dst, mode, r);
    const Side& side = r.dst.side;
    const bool part =
        side.pitch || side.width != static_cast<int>(dst.width) || side.height != static_cast<int>(dst.height);
    if (!no)
        no = run_request(r, keep_rest || part);
    if (no) {
        LOG_AS(kCaller, TAVI_LOG_INFO, "refused: %s", no.text);
        return no;
    }
    LOG_AS(kCaller, TAVI_LOG_INFO, "done by the engine %s", Summary(r).text);
    std::snprintf(node, sizeof node, "%.31s", r.engine.path);
    return {};
}

} // namespace tavi
