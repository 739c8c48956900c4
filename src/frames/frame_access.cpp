// SPDX-License-Identifier: MIT
#include "frames/frame_access.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace tavi {
namespace {

constexpr uint32_t kMaxPitch = 1u << 28; // libyuv counts in ints, and doubles it

/// Bytes from the first of a plane to its last.
uint64_t extent_of(const PlaneView& p) {
    return static_cast<uint64_t>(p.rows - 1) * static_cast<uint64_t>(p.pitch) +
           static_cast<uint64_t>(p.cols) * static_cast<uint64_t>(p.step);
}

int64_t address_of(const PlaneView& p) { return static_cast<int64_t>(reinterpret_cast<uintptr_t>(p.data)); }

/// Whether two planes share bytes, at addresses or offsets that can be compared.
bool share_bytes(int64_t a_start, const PlaneView& a, int64_t b_start, const PlaneView& b) {
    if (a_start + static_cast<int64_t>(extent_of(a)) <= b_start ||
        b_start + static_cast<int64_t>(extent_of(b)) <= a_start)
        return false;
    if (a.pitch != b.pitch)
        return true;
    // Side by side in rows of one pitch.
    const int64_t apart = ((b_start - a_start) % a.pitch + a.pitch) % a.pitch;
    return apart < int64_t{a.cols} * a.step || a.pitch - apart < int64_t{b.cols} * b.step;
}

} // namespace

bool all_zero(const uint32_t (&reserved)[8]) {
    return std::all_of(reserved, reserved + 8, [](uint32_t word) { return word == 0; });
}

Refusal check_shape(const tavi_frame_t* frame, const char* name) {
    if (!frame)
        return {TAVI_RET_PARAM_ERR, "%s is null", name};
    const Format* const format = find_format(frame->format);
    if (!format)
        return {TAVI_RET_UNSUPPORTED, "%s.format=%u: allowed are 0 to 15", name,
                static_cast<unsigned>(frame->format)};
    if (frame->chroma_rounding != TAVI_CHROMA_ROUNDS_UP && frame->chroma_rounding != TAVI_CHROMA_ROUNDS_DOWN)
        return {TAVI_RET_PARAM_ERR, "%s.chroma_rounding=%d: allowed are 0 (up) and 1 (down)", name,
                frame->chroma_rounding};
    const uint32_t least_x = frame->chroma_rounding ? 1u << format->xshift() : 1u;
    const uint32_t least_y = frame->chroma_rounding ? 1u << format->yshift() : 1u;
    if (frame->width < least_x || frame->width > kMaxSide || frame->height < least_y || frame->height > kMaxSide)
        return {TAVI_RET_UNSUPPORTED,
                "%s size=%ux%u: allowed in %s are widths of %u to %d and heights of %u to %d",
                name,
                frame->width,
                frame->height,
                format->name.data(),
                least_x,
                kMaxSide,
                least_y,
                kMaxSide};
    if (format->is_yuv()) {
        const tavi_color_space_t& c = frame->color;
        if (c.matrix < TAVI_MATRIX_BT601 || c.matrix > TAVI_MATRIX_BT2020)
            return {TAVI_RET_PARAM_ERR, "%s.color.matrix=%d: allowed are 0 (BT.601), 1 (BT.709) and 2 (BT.2020)",
                    name, c.matrix};
        if (c.range < TAVI_RANGE_LIMITED || c.range > TAVI_RANGE_FULL)
            return {TAVI_RET_PARAM_ERR, "%s.color.range=%d: allowed are 0 (limited) and 1 (full)", name, c.range};
        if (c.siting < TAVI_SITING_CENTRE || c.siting > TAVI_SITING_TOP_LEFT)
            return {TAVI_RET_PARAM_ERR, "%s.color.siting=%d: allowed are 0 (centre), 1 (left) and 2 (top left)", name,
                    c.siting};
    }
    if (!all_zero(frame->reserved))
        return {TAVI_RET_PARAM_ERR, "%s.reserved is not zero", name};
    return {};
}

ColorSpace color_of(const tavi_frame_t& frame) {
    return {static_cast<Matrix>(frame.color.matrix), frame.color.range == TAVI_RANGE_FULL};
}

ImageView shape_of(const tavi_frame_t& frame) {
    ImageView shape =
        make_shape(*find_format(frame.format), static_cast<int>(frame.width), static_cast<int>(frame.height),
                   color_of(frame), frame.chroma_rounding == TAVI_CHROMA_ROUNDS_UP);
    shape.siting = {frame.color.siting != TAVI_SITING_CENTRE, frame.color.siting == TAVI_SITING_TOP_LEFT};
    return shape;
}

FrameAccess::FrameAccess(const tavi_frame_t* frame, Access access, const char* name)
    : name_(name), access_(access), refusal_(check(frame)) {}

Refusal FrameAccess::check(const tavi_frame_t* frame) {
    if (const Refusal no = check_shape(frame, name_))
        return no;
    view_ = shape_of(*frame);
    for (int i = 0; i < view_.planes(); ++i)
        if (const Refusal no = place(frame->plane[i], i, view_.plane[i]))
            return no;
    show();
    return {};
}

// The planes as they are reached by now, U before V.
void FrameAccess::show() {
    const int planes = view_.planes();
    for (int i = 0; i < planes; ++i)
        view_.plane[i] = plane_[i].view;
    if (planes == 3 && view_.format->swapped())
        std::swap(view_.plane[1], view_.plane[2]);
}

void FrameAccess::begin() {
    for (int i = 0; i < view_.planes(); ++i) {
        const auto same_buffer = [&](const Plane& p) { return p.sync && p.fd == plane_[i].fd; };
        if (plane_[i].fd > 0 && std::none_of(plane_, plane_ + i, same_buffer))
            plane_[i].sync.emplace(plane_[i].fd, access_);
    }
}

Refusal FrameAccess::map() {
    if (refusal_)
        return refusal_;
    const int planes = view_.planes();
    for (int i = 0; i < planes; ++i)
        if (!plane_[i].view.data)
            if (const Refusal no = map_from(i))
                return no;
    for (int i = 1; i < planes; ++i) {
        for (int k = 0; k < i; ++k) {
            int64_t starts[2];
            if (find_starts(plane_[k], plane_[i], starts[0], starts[1]) &&
                share_bytes(starts[0], plane_[k].view, starts[1], plane_[i].view))
                return {TAVI_RET_PARAM_ERR,
                        "%s.plane[%d] and %s.plane[%d] overlap: allowed are separate planes",
                        name_,
                        k,
                        name_,
                        i};
        }
    }
    show();
    return {};
}

Refusal FrameAccess::place(const tavi_plane_t& given, int i, const PlaneView& shape) {
    const char* const name = name_;
    const auto row = static_cast<uint32_t>(shape.pitch);
    if (given.pitch < row || given.pitch > kMaxPitch)
        return {TAVI_RET_PARAM_ERR,
                "%s.plane[%d].pitch=%u: allowed for rows of %u bytes are %u to %u",
                name,
                i,
                given.pitch,
                row,
                row,
                kMaxPitch};
    if (!given.data && given.fd <= 0)
        return {TAVI_RET_PARAM_ERR, "%s.plane[%d] has no memory: data is null and fd=%d", name, i, given.fd};
    Plane& p = plane_[i];
    p.view = shape;
    p.view.data = given.data;
    p.view.pitch = static_cast<ptrdiff_t>(given.pitch);
    p.fd = given.fd;
    p.offset = given.fd > 0 ? given.offset : 0;
    const uint64_t end = p.offset + extent_of(p.view);
    if (end > INT32_MAX)
        return {TAVI_RET_UNSUPPORTED, "%s.plane[%d] ends %llu bytes into its memory: allowed is less than 2 GiB",
                name, i, static_cast<unsigned long long>(end)};
    const off_t size = p.fd > 0 ? buffer_bytes(p.fd) : 0;
    if (size > 0 && static_cast<uint64_t>(size) < end)
        return {TAVI_RET_PARAM_ERR,
                "%s.plane[%d].offset=%u: its rows end after %llu bytes of fd=%d, which has %lld",
                name,
                i,
                given.offset,
                static_cast<unsigned long long>(end),
                p.fd,
                static_cast<long long>(size)};
    return {};
}

// One mapping serves all planes of a descriptor.
Refusal FrameAccess::map_from(int first) {
    const int planes = view_.planes();
    const int fd = plane_[first].fd;
    uint64_t end = 0;
    for (int i = first; i < planes; ++i)
        if (plane_[i].fd == fd && !plane_[i].view.data)
            end = std::max(end, plane_[i].offset + extent_of(plane_[i].view));
    CpuMapping& mapping = plane_[first].mapping;
    mapping = CpuMapping(fd, static_cast<size_t>(end), access_);
    if (!mapping)
        return {TAVI_RET_FAIL,
                "%s.plane[%d].fd=%d cannot be mapped: %s",
                name_,
                first,
                fd,
                std::strerror(mapping.error())};
    for (int i = first; i < planes; ++i) {
        if (plane_[i].fd != fd || plane_[i].view.data)
            continue;
        plane_[i].view.data = mapping.data() + plane_[i].offset;
        plane_[i].mapped = true;
    }
    return {};
}

// Where a plane starts in the buffer behind `fd`; -1 when it is not in it.
int64_t FrameAccess::place_in(int fd, const Plane& p) {
    if (p.fd > 0 && is_same_buffer(p.fd, fd))
        return p.offset;
    return p.mapped ? -1 : offset_in_buffer(p.view.data, fd);
}

bool FrameAccess::find_starts(const Plane& a, const Plane& b, int64_t& a_start, int64_t& b_start) {
    a_start = address_of(a.view);
    b_start = address_of(b.view);
    // One buffer may be seen at several addresses, and what is mapped for this call has one of its own: the place in
    // the buffer counts.
    if (!a.mapped && !b.mapped && (a.fd <= 0 || b.fd <= 0 || !is_same_buffer(a.fd, b.fd)))
        return true;
    const int fd = a.mapped ? a.fd : b.fd;
    a_start = place_in(fd, a);
    b_start = place_in(fd, b);
    return a_start >= 0 && b_start >= 0;
}

FrameAccess::Overlap FrameAccess::overlap(const FrameAccess& other) const {
    const int planes = view_.planes(), others = other.view_.planes();
    bool same = planes == others && view_.width == other.view_.width && view_.height == other.view_.height,
         meet = false;
    for (int i = 0; i < planes; ++i) {
        for (int k = 0; k < others; ++k) {
            const Plane &a = plane_[i], &b = other.plane_[k];
            int64_t a_start, b_start;
            if (!find_starts(a, b, a_start, b_start)) {
                same = same && i != k;
                continue;
            }
            meet = meet || share_bytes(a_start, a.view, b_start, b.view);
            if (i == k)
                same = same && a_start == b_start && a.view.pitch == b.view.pitch && a.view.rows == b.view.rows &&
                       a.view.cols * a.view.step == b.view.cols * b.view.step;
        }
    }
    return same ? Overlap::same_planes : meet ? Overlap::partial : Overlap::none;
}

} // namespace tavi
