// SPDX-License-Identifier: MIT
// Encoded pictures in memory: their headers, their pixels in frames, and frames as bytes for a sink.
#define TAVI_LOG_TAG "tavi-frame"
#include <memory>

#include "backends/cpu/files/picture.h"
#include "frames/frame_access.h"
#include "services/log.h"
#include "services/tavi_mem.h"
#include "tavi_frame.h"

namespace tavi {
namespace {

static_assert(static_cast<int>(PictureType::jpeg) == TAVI_PICTURE_JPEG &&
                  static_cast<int>(PictureType::png) == TAVI_PICTURE_PNG &&
                  static_cast<int>(PictureType::bmp) == TAVI_PICTURE_BMP &&
                  static_cast<int>(PictureType::pnm) == TAVI_PICTURE_PNM,
              "the codecs count as the header does");

Refusal check_bytes(const void* bytes, size_t size) {
    if (!bytes || size == 0)
        return {TAVI_RET_PARAM_ERR, "bytes=%p size=%zu; give a picture of one byte or more", bytes, size};
    return {};
}

Refusal check_options(const tavi_decode_options_t& o) {
    if (o.ignore_orientation != 0 && o.ignore_orientation != 1)
        return {TAVI_RET_PARAM_ERR, "options.ignore_orientation=%d; allowed are 0 and 1", o.ignore_orientation};
    if (o.as_stored != 0 && o.as_stored != 1)
        return {TAVI_RET_PARAM_ERR, "options.as_stored=%d; allowed are 0 and 1", o.as_stored};
    if (!all_zero(o.reserved))
        return {TAVI_RET_PARAM_ERR, "options.reserved is not zero"};
    return {};
}

/// Whether the library is to give it memory. The format is a valid one.
bool is_empty(const tavi_frame_t& frame) {
    bool empty = true;
    for (int i = 0; i < kFormats[frame.format].planes; ++i)
        empty = empty && !frame.plane[i].data && frame.plane[i].fd <= 0;
    return empty;
}

/// The rows of a plane and what the pictures' codecs read must not be the same memory.
Refusal check_apart(const ImageView& picture, const void* bytes, size_t size) {
    const auto from = reinterpret_cast<uintptr_t>(bytes);
    for (int i = 0; i < picture.planes(); ++i) {
        const PlaneView& p = picture.plane[i];
        const auto begin = reinterpret_cast<uintptr_t>(p.data);
        const auto end = reinterpret_cast<uintptr_t>(p.at(p.cols, p.rows - 1));
        if (begin < from + size && from < end)
            return {TAVI_RET_PARAM_ERR, "bytes=%p of size=%zu overlap the planes of the frame", bytes, size};
    }
    return {};
}

/// What a frame without memory becomes.
void take_shape(tavi_frame_t& frame, const FileHeader& header, int orientation, bool as_stored) {
    const bool turned = turns_sides(orientation);
    if (as_stored)
        frame.format = header.stored;
    if (frame.width == 0)
        frame.width = turned ? header.height : header.width;
    if (frame.height == 0)
        frame.height = turned ? header.width : header.height;
}

Refusal probe(const void* bytes, size_t size, tavi_picture_info_t* info) {
    if (const Refusal no = check_bytes(bytes, size))
        return no;
    if (!info)
        return {TAVI_RET_PARAM_ERR, "info=null; give a record to fill"};
    Input input;
    input.open(bytes, size);
    std::unique_ptr<Decoder> decoder;
    FileHeader header;
    if (const Refusal no = read_header(input, decoder, header))
        return no;
    *info = {};
    info->type = static_cast<tavi_picture_type_t>(header.kind);
    info->width = header.width;
    info->height = header.height;
    info->channels = kFormats[header.stored].parts;
    info->bits = static_cast<uint32_t>(header.bits);
    info->orientation = static_cast<uint32_t>(header.orientation);
    info->subsampling_x = static_cast<uint32_t>(header.xsubsampling);
    info->subsampling_y = static_cast<uint32_t>(header.ysubsampling);
    info->stored = header.stored;
    return {};
}

Refusal decode_to(const tavi_frame_t& frame, const void* bytes, size_t size, Decoder& decoder,
                  const FileHeader& header, int orientation) {
    FrameAccess access(&frame, Access::write, "frame");
    if (const Refusal no = access.open())
        return no;
    if (const Refusal no = check_apart(access.view(), bytes, size))
        return no;
    return decode_picture(decoder, header, orientation, access.view(), "tavi_frame_decode");
}

Refusal decode(const void* bytes, size_t size, tavi_frame_t* frame, const tavi_decode_options_t& options) {
    if (const Refusal no = check_bytes(bytes, size))
        return no;
    if (const Refusal no = check_options(options))
        return no;
    const bool empty = frame && find_format(frame->format) && is_empty(*frame);
    if (const Refusal no = empty ? Refusal() : check_shape(frame, "frame"))
        return no;
    Input input;
    input.open(bytes, size);
    std::unique_ptr<Decoder> decoder;
    FileHeader header;
    if (const Refusal no = open_picture(input, options.max_pixels, decoder, header))
        return no;
    const int orientation = options.ignore_orientation ? 1 : header.orientation;
    if (!empty)
        return decode_to(*frame, bytes, size, *decoder, header, orientation);
    tavi_frame_t made = *frame;
    take_shape(made, header, orientation, options.as_stored == 1);
    if (const Refusal no = check_shape(&made, "frame"))
        return no;
    if (tavi_frame_create(&made, 1, TAVI_MEM_TYPE_HEAP) != TAVI_RET_SUCCESS)
        return {TAVI_RET_FAIL, "no memory for a picture of %ux%u", made.width, made.height};
    const Refusal no = decode_to(made, bytes, size, *decoder, header, orientation);
    if (no)
        tavi_frame_release(&made);
    else
        *frame = made;
    return no;
}

/// The caller's.
class CallerSink final : public ByteSink {
public:
    explicit CallerSink(const tavi_sink_t& sink) : sink_(sink) {}
    bool write(const void* from, size_t size) override {
        answer_ = size > 0 ? sink_.write(sink_.user, from, size) : 0;
        taken_ += answer_ == 0 ? size : 0;
        return answer_ == 0;
    }
    Refusal why() const override {
        return {TAVI_RET_FAIL, "the sink answers %d after %llu bytes", answer_,
                static_cast<unsigned long long>(taken_)};
    }

private:
    const tavi_sink_t sink_;
    uint64_t taken_ = 0;
    int answer_ = 0;
};

Refusal encode(const tavi_frame_t* frame, tavi_picture_type_t type, int quality, const tavi_sink_t* sink) {
    if (!frame || !sink || !sink->write)
        return {TAVI_RET_PARAM_ERR, "frame=%p sink=%p; give both, with a function to write",
                static_cast<const void*>(frame), static_cast<const void*>(sink)};
    if (type < TAVI_PICTURE_JPEG || type > TAVI_PICTURE_PNM)
        return {TAVI_RET_PARAM_ERR, "type=%d; allowed are 1 to 4", type};
    const int best = type == TAVI_PICTURE_JPEG ? 100 : 0;
    if (quality < 0 || quality > best)
        return {TAVI_RET_PARAM_ERR, "quality=%d with type=%d; allowed are 0 to 100 for JPEG and 0 for the others",
                quality, type};
    FrameAccess access(frame, Access::read, "frame");
    if (const Refusal no = access.open())
        return no;
    CallerSink output(*sink);
    return encode_picture(access.view(), static_cast<PictureType>(type), quality ? quality : kDefaultQuality, output,
                          "tavi_frame_encode");
}

} // namespace
} // namespace tavi

int tavi_frame_probe(const void* bytes, size_t size, tavi_picture_info_t* info) {
    const tavi::Refusal no = tavi::probe(bytes, size, info);
    if (no)
        LOG_ERROR("cannot read the header of a picture: %s", no.text);
    return no.code;
}

int tavi_frame_decode(const void* bytes, size_t size, tavi_frame_t* frame, const tavi_decode_options_t* options) {
    const tavi::Refusal no = tavi::decode(bytes, size, frame, options ? *options : tavi_decode_options_t{});
    if (no)
        LOG_ERROR("cannot decode a picture: %s", no.text);
    return no.code;
}

int tavi_frame_encode(const tavi_frame_t* frame, tavi_picture_type_t type, int quality, const tavi_sink_t* sink) {
    const tavi::Refusal no = tavi::encode(frame, type, quality, sink);
    if (no)
        LOG_ERROR("cannot encode a picture: %s", no.text);
    return no.code;
}
