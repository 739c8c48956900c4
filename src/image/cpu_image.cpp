// SPDX-License-Identifier: MIT
#include "image/cpu_image.h"

#include <cstring>

namespace tavi {

Refusal CpuImage::open(const tavi_image_t* record, Access access, ColorSpace color) {
    if (!record)
        return {TAVI_RET_PARAM_ERR, "the record is null"};
    if (!record->data && record->fd <= 0)
        return record->data_phy ? Refusal(TAVI_RET_UNSUPPORTED, "only a physical address: data or fd is needed")
                                : Refusal(TAVI_RET_PARAM_ERR, "no memory: data or fd is needed");
    if (const char* problem = why_not_viewable(record->pixel_format, record->width, record->height))
        return {TAVI_RET_UNSUPPORTED, "%s", problem};
    const Format& format = *find_format(record->pixel_format);
    const uint64_t bytes = byte_count(format, record->width, record->height);
    if (bytes > INT32_MAX)
        return {TAVI_RET_UNSUPPORTED, "allowed are pixels of less than 2 GiB"};
    bytes_ = static_cast<size_t>(bytes);
    data_ = record->data;
    fd_ = record->fd;
    if (!data_) {
        mapping_ = CpuMapping(record->fd, bytes_, access);
        if (!mapping_)
            return {TAVI_RET_FAIL, "the descriptor cannot be mapped, or its buffer is too small"};
        data_ = mapping_.data();
    }
    if (record->fd > 0)
        sync_.emplace(record->fd, access);
    view_ = make_view(data_, format, static_cast<int>(record->width), static_cast<int>(record->height), color);
    return {};
}

void CpuImage::clear_tail() const {
    size_t used = 0;
    for (int i = 0; i < view_.planes(); ++i)
        used += static_cast<size_t>(view_.plane[i].cols) * view_.plane[i].step * view_.plane[i].rows;
    std::memset(data_ + used, 128, bytes_ - used);
}

int64_t CpuImage::place_in(int fd) const {
    return mapping_ ? (is_same_buffer(fd_, fd) ? 0 : -1) : offset_in_buffer(data_, fd);
}

Overlap CpuImage::overlap(const CpuImage& other) const {
    auto mine = static_cast<int64_t>(reinterpret_cast<uintptr_t>(data_));
    auto others = static_cast<int64_t>(reinterpret_cast<uintptr_t>(other.data_));
    if (mapping_ || other.mapping_) {
        // What is mapped for this call is seen at an address of its own: the place in the buffer counts.
        const int fd = mapping_ ? fd_ : other.fd_;
        mine = place_in(fd);
        others = other.place_in(fd);
        if (mine < 0 || others < 0)
            return Overlap::none;
    }
    if (mine == others)
        return Overlap::same_start;
    return mine < others + static_cast<int64_t>(other.bytes_) && others < mine + static_cast<int64_t>(bytes_)
               ? Overlap::partial
               : Overlap::none;
}

CpuImage::CpuImage(const tavi_image_t* record, Access access, ColorSpace color)
    : refusal_(open(record, access, color)) {}

CpuPair::CpuPair(const tavi_image_t* src_record, const tavi_image_t* dst_record, ColorSpace color, InPlace rule)
    : src(src_record, Access::read, color), dst(dst_record, Access::write, color) {
    if (!src) {
        refusal = {src.refusal().code, "src=" RECORD_TEXT ": %s", RECORD(src_record), src.refusal().text};
    } else if (!dst) {
        refusal = {dst.refusal().code, "dst=" RECORD_TEXT ": %s", RECORD(dst_record), dst.refusal().text};
    } else {
        const Overlap overlap = src.overlap(dst);
        in_place = overlap == Overlap::same_start;
        if (overlap == Overlap::partial)
            refusal = {TAVI_RET_PARAM_ERR,
                       "src data=%p bytes=%zu and dst data=%p bytes=%zu overlap partly: allowed are separate memory, "
                       "or the same start",
                       static_cast<void*>(src.data()),
                       src.bytes(),
                       static_cast<void*>(dst.data()),
                       dst.bytes()};
        else if (in_place && rule == InPlace::refused)
            refusal = {TAVI_RET_PARAM_ERR, "src and dst are the same memory %p: allowed are separate images",
                       static_cast<void*>(dst.data())};
    }
}

} // namespace tavi
