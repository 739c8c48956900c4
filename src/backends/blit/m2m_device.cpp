// SPDX-License-Identifier: MIT
#include "backends/blit/m2m_device.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <linux/videodev2.h>
#include <poll.h>

#include "backends/blit/blit_formats.h"
#include "os/kernel_calls.h"

namespace tavi {
namespace {

constexpr int kPatienceMs = 3000; ///< a job that takes longer has failed

const char* const kQueueName[] = {"source", "result"};

int fail(int error, Why& why, const char* what) {
    why.set("%s: %s", what, std::strerror(-error));
    return error;
}

bool is_rgb(tavi_pixel_format format) { return find_format(format)->model == Model::rgb; }

/// A buffer type's single- or multi-planar twin.
uint32_t type_of(bool source, bool multiplanar) {
    if (multiplanar)
        return source ? V4L2_BUF_TYPE_VIDEO_OUTPUT_MPLANE : V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE;
    return source ? V4L2_BUF_TYPE_VIDEO_OUTPUT : V4L2_BUF_TYPE_VIDEO_CAPTURE;
}

int64_t now_ms() {
    timespec t{};
    ::clock_gettime(CLOCK_MONOTONIC, &t);
    return int64_t{t.tv_sec} * 1000 + t.tv_nsec / 1000000;
}

int open_node(const char* path) {
    int fd;
    do {
        fd = kernel_calls().open(path);
    } while (fd == -EINTR);
    return fd;
}

bool has_control(int fd, uint32_t id) {
    v4l2_queryctrl query{};
    query.id = id;
    return call_driver(fd, VIDIOC_QUERYCTRL, &query) == 0 && !(query.flags & V4L2_CTRL_FLAG_DISABLED);
}

/// Fills the formats of one side; `first` receives the V4L2 name of the first of them.
int list_formats(int fd, bool source, EngineInfo& info, uint32_t& first) {
    uint16_t& formats = source ? info.sources : info.results;
    for (uint32_t i = 0; i < 256; ++i) { // a driver that never ends the list is not followed for ever
        v4l2_fmtdesc entry{};
        entry.index = i;
        entry.type = type_of(source, info.multiplanar);
        const int error = call_driver(fd, VIDIOC_ENUM_FMT, &entry);
        if (error)
            return error == -EINVAL ? 0 : error; // the end of the list
        const int format = format_of_fourcc(entry.pixelformat);
        if (format < 0 || (entry.flags & V4L2_FMT_FLAG_COMPRESSED))
            continue;
        if (!formats)
            first = entry.pixelformat;
        const auto bit = static_cast<uint16_t>(1u << format);
        formats |= bit;
        if (!source && (entry.flags & V4L2_FMT_FLAG_CSC_YCBCR_ENC))
            info.sets_matrix |= bit;
        if (!source && (entry.flags & V4L2_FMT_FLAG_CSC_QUANTIZATION))
            info.sets_range |= bit;
    }
    return 0;
}

int check_dma_buffers(int fd, bool source, const EngineInfo& info, Why& why) {
    v4l2_requestbuffers request{};
    request.type = type_of(source, info.multiplanar);
    request.memory = V4L2_MEMORY_DMABUF;
    if (const int error = call_driver(fd, VIDIOC_REQBUFS, &request))
        return fail(error, why, source ? "DMA buffers as source" : "DMA buffers as result");
    // No capabilities at all: a kernel that does not tell them yet.
    if (request.capabilities && !(request.capabilities & V4L2_BUF_CAP_SUPPORTS_DMABUF)) {
        why.set("DMA buffers as %s: capabilities %#x, %#x is needed", kQueueName[!source], request.capabilities,
                unsigned{V4L2_BUF_CAP_SUPPORTS_DMABUF});
        return -EOPNOTSUPP;
    }
    return 0;
}

/// The size that a side settles on when asked for `side` x `side`.
uint32_t settled_width(int fd, bool source, bool multiplanar, uint32_t fourcc, uint32_t side) {
    v4l2_format f{};
    f.type = type_of(source, multiplanar);
    if (multiplanar) {
        f.fmt.pix_mp.pixelformat = fourcc;
        f.fmt.pix_mp.width = f.fmt.pix_mp.height = side;
        f.fmt.pix_mp.num_planes = 1;
    } else {
        f.fmt.pix.pixelformat = fourcc;
        f.fmt.pix.width = f.fmt.pix.height = side;
    }
    if (call_driver(fd, VIDIOC_S_FMT, &f) != 0)
        return 0;
    return multiplanar ? f.fmt.pix_mp.width : f.fmt.pix.width;
}

void learn_extras(int fd, uint32_t source_fourcc, uint32_t result_fourcc, EngineInfo& info) {
    info.scales = settled_width(fd, true, info.multiplanar, source_fourcc, 256) == 256 &&
                  settled_width(fd, false, info.multiplanar, result_fourcc, 128) == 128;
    info.hflip = has_control(fd, V4L2_CID_HFLIP);
    info.vflip = has_control(fd, V4L2_CID_VFLIP);
    info.rotate = has_control(fd, V4L2_CID_ROTATE);
    info.alpha = has_control(fd, V4L2_CID_ALPHA_COMPONENT);
    v4l2_selection box{};
    box.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    box.target = V4L2_SEL_TGT_CROP;
    info.rectangles = call_driver(fd, VIDIOC_G_SELECTION, &box) == 0;
    v4l2_frmsizeenum sizes{};
    sizes.pixel_format = source_fourcc;
    if (call_driver(fd, VIDIOC_ENUM_FRAMESIZES, &sizes) != 0 || sizes.type == V4L2_FRMSIZE_TYPE_DISCRETE)
        return;
    info.smallest[0] = sizes.stepwise.min_width;
    info.smallest[1] = sizes.stepwise.min_height;
    info.largest[0] = sizes.stepwise.max_width;
    info.largest[1] = sizes.stepwise.max_height;
}

} // namespace

void Why::set(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
}

int examine_engine(const char* path, EngineInfo& info, Why& why) {
    info = EngineInfo();
    if (std::snprintf(info.path, sizeof(info.path), "%s", path) >= static_cast<int>(sizeof(info.path))) {
        why.set("path of %zu bytes, at most %zu are allowed", std::strlen(path), sizeof(info.path) - 1);
        return -ENAMETOOLONG;
    }
    const int opened = open_node(path);
    if (opened < 0)
        return fail(opened, why, "open");
    const UniqueFd fd(opened);

    v4l2_capability capability{};
    if (const int error = call_driver(fd.get(), VIDIOC_QUERYCAP, &capability))
        return fail(error, why, "no V4L2 device");
    std::snprintf(info.driver, sizeof(info.driver), "%.15s", reinterpret_cast<const char*>(capability.driver));
    std::snprintf(info.card, sizeof(info.card), "%.31s", reinterpret_cast<const char*>(capability.card));
    const uint32_t offered =
        (capability.capabilities & V4L2_CAP_DEVICE_CAPS) ? capability.device_caps : capability.capabilities;
    constexpr uint32_t kMemToMem = V4L2_CAP_VIDEO_M2M | V4L2_CAP_VIDEO_M2M_MPLANE;
    if (!(offered & kMemToMem) || !(offered & V4L2_CAP_STREAMING)) {
        why.set("capabilities %#x: no memory-to-memory device that streams", offered);
        return -EOPNOTSUPP;
    }
    info.multiplanar = !(offered & V4L2_CAP_VIDEO_M2M);

    uint32_t source_fourcc = 0;
    uint32_t result_fourcc = 0;
    int error = list_formats(fd.get(), true, info, source_fourcc);
    if (!error)
        error = list_formats(fd.get(), false, info, result_fourcc);
    if (error)
        return fail(error, why, "list of formats");
    if (!info.sources || !info.results) { // codecs: one side is compressed
        why.set("pictures of a known format: source %s, result %s; both are needed", info.sources ? "yes" : "no",
                info.results ? "yes" : "no");
        return -EOPNOTSUPP;
    }
    error = check_dma_buffers(fd.get(), true, info, why);
    if (!error)
        error = check_dma_buffers(fd.get(), false, info, why);
    if (error)
        return error;
    learn_extras(fd.get(), source_fourcc, result_fourcc, info);
    return 0;
}

namespace {
bool same_side(const Side& a, const Side& b) {
    return a.format == b.format && a.width == b.width && a.height == b.height;
}
bool same_box(const Box& a, const Box& b) {
    return a.x == b.x && a.y == b.y && a.width == b.width && a.height == b.height;
}
bool is_whole(const Side& side) { return same_box(side.box, Box{0, 0, side.width, side.height}); }
} // namespace

bool same_layout(const Setup& a, const Setup& b) {
    return a.mode == b.mode && same_side(a.src, b.src) && same_side(a.dst, b.dst);
}

bool same_boxes(const Setup& a, const Setup& b) {
    return same_box(a.src.box, b.src.box) && same_box(a.dst.box, b.dst.box);
}

/// The fields of a format that matter, single- or multi-planar.
struct M2mContext::Layout {
    uint32_t fourcc = 0, width = 0, height = 0, field = V4L2_FIELD_NONE;
    uint32_t pitch = 0;
    uint32_t bytes = 0;
    uint32_t planes = 1;
    uint32_t colorspace = 0, encoding = 0, range = 0;
    uint32_t flags = 0;

    explicit Layout(const Side& side) {
        const Format& f = *find_format(side.format);
        fourcc = find_blit_format(side.format)->fourcc;
        width = static_cast<uint32_t>(side.width);
        height = static_cast<uint32_t>(side.height);
        pitch = width * f.plane[0].step;
        bytes = static_cast<uint32_t>(byte_count(f, width, height));
        // The range stays at its default, which means limited for YUV and full for RGB. Drivers copy a source's
        // fields to the result: an explicit "limited" would come back as limited RGB.
        colorspace = f.model == Model::rgb ? V4L2_COLORSPACE_SRGB : V4L2_COLORSPACE_SMPTE170M;
        encoding = V4L2_YCBCR_ENC_601;
        range = V4L2_QUANTIZATION_DEFAULT;
    }

    explicit Layout(const v4l2_format& f, bool multiplanar) {
        if (multiplanar) {
            const v4l2_pix_format_mplane& p = f.fmt.pix_mp;
            fourcc = p.pixelformat, width = p.width, height = p.height, field = p.field;
            planes = p.num_planes;
            pitch = p.plane_fmt[0].bytesperline, bytes = p.plane_fmt[0].sizeimage;
            colorspace = p.colorspace, encoding = p.ycbcr_enc, range = p.quantization;
        } else {
            const v4l2_pix_format& p = f.fmt.pix;
            fourcc = p.pixelformat, width = p.width, height = p.height, field = p.field;
            pitch = p.bytesperline, bytes = p.sizeimage;
            colorspace = p.colorspace, encoding = p.ycbcr_enc, range = p.quantization;
        }
    }

    v4l2_format to_v4l2(uint32_t type, bool multiplanar) const {
        v4l2_format f{};
        f.type = type;
        if (multiplanar) {
            v4l2_pix_format_mplane& p = f.fmt.pix_mp;
            p.pixelformat = fourcc, p.width = width, p.height = height, p.field = field;
            p.num_planes = 1;
            p.plane_fmt[0].bytesperline = pitch, p.plane_fmt[0].sizeimage = bytes;
            p.colorspace = colorspace;
            p.ycbcr_enc = static_cast<uint8_t>(encoding), p.quantization = static_cast<uint8_t>(range);
            p.flags = static_cast<uint8_t>(flags);
        } else {
            v4l2_pix_format& p = f.fmt.pix;
            p.pixelformat = fourcc, p.width = width, p.height = height, p.field = field;
            p.bytesperline = pitch, p.sizeimage = bytes;
            p.priv = V4L2_PIX_FMT_PRIV_MAGIC; // without it the colour fields are not looked at
            p.colorspace = colorspace, p.ycbcr_enc = encoding, p.quantization = range;
            p.flags = flags;
        }
        return f;
    }

    uint32_t true_encoding() const {
        return encoding ? encoding : static_cast<uint32_t>(V4L2_MAP_YCBCR_ENC_DEFAULT(colorspace));
    }
    uint32_t true_range(bool rgb) const {
        return range ? range : static_cast<uint32_t>(V4L2_MAP_QUANTIZATION_DEFAULT(rgb, colorspace, true_encoding()));
    }
};

uint32_t M2mContext::buffer_type(Queue queue) const { return type_of(queue == kSource, multiplanar_); }

int M2mContext::set_controls(const Setup& setup, Why& why) {
    const bool h = setup.mode == TAVI_IMAGE_TRANSFORM_FLIP_H || setup.mode == TAVI_IMAGE_TRANSFORM_ROTATE_180;
    const bool v = setup.mode == TAVI_IMAGE_TRANSFORM_FLIP_V || setup.mode == TAVI_IMAGE_TRANSFORM_ROTATE_180;
    const bool new_alpha = find_blit_format(setup.dst.format)->alpha && !find_blit_format(setup.src.format)->alpha;
    const struct {
        const char* name;
        uint32_t id;
        int value;
        bool meant; ///< where the source has alpha, the engine's own rule stays
    } controls[] = {{"horizontal flip", V4L2_CID_HFLIP, h, true},
                    {"vertical flip", V4L2_CID_VFLIP, v, true},
                    {"rotation", V4L2_CID_ROTATE, 0, true},
                    {"alpha", V4L2_CID_ALPHA_COMPONENT, 255, new_alpha}};
    for (const auto& c : controls) {
        if (!c.meant)
            continue;
        v4l2_control control{c.id, c.value};
        int error = call_driver(fd_.get(), VIDIOC_S_CTRL, &control);
        if ((error == -EINVAL || error == -ENOTTY) && c.value == 0)
            continue; // the engine has no such control: nothing to switch off
        if (!error)
            error = call_driver(fd_.get(), VIDIOC_G_CTRL, &control);
        if (error) {
            why.set("%s: %d was asked for, the engine answers: %s", c.name, c.value, std::strerror(-error));
            return error;
        }
        if (control.value != c.value) {
            why.set("%s: the engine uses %d, %d was asked for", c.name, control.value, c.value);
            return -ERANGE;
        }
    }
    return 0;
}

int M2mContext::check_layout(Queue queue, const Layout& want, const Layout& got, Why& why) {
    const char* const name = kQueueName[queue];
    const Side& side = queue == kSource ? setup_.src : setup_.dst;
    if (got.fourcc != want.fourcc)
        why.set("%s format: the engine uses %.4s, %.4s was asked for", name,
                reinterpret_cast<const char*>(&got.fourcc), reinterpret_cast<const char*>(&want.fourcc));
    else if (got.width != want.width || got.height != want.height)
        why.set("%s size: the engine uses %ux%u, %ux%u was asked for", name, got.width, got.height, want.width,
                want.height);
    else if (got.field != V4L2_FIELD_NONE)
        why.set("%s field: the engine uses %u, %u (whole frames) was asked for", name, got.field,
                unsigned{V4L2_FIELD_NONE});
    else if (got.planes != 1)
        why.set("%s buffers: the engine uses %u, an image has 1", name, got.planes);
    else if (got.pitch != want.pitch)
        why.set("%s row length: the engine uses %u bytes, the image has %u", name, got.pitch, want.pitch);
    else if (got.bytes < want.bytes)
        why.set("%s bytes: the engine uses %u, the image has %u", name, got.bytes, want.bytes);
    else if (is_yuv(side.format) && got.true_encoding() != V4L2_YCBCR_ENC_601)
        why.set("%s colour matrix: the engine uses %u, %u (BT.601) was asked for", name, got.true_encoding(),
                unsigned{V4L2_YCBCR_ENC_601});
    else if (is_yuv(side.format) && got.true_range(false) != V4L2_QUANTIZATION_LIM_RANGE)
        why.set("%s colour range: the engine uses %u, %u (limited) was asked for", name, got.true_range(false),
                unsigned{V4L2_QUANTIZATION_LIM_RANGE});
    else if (is_rgb(side.format) && got.true_range(true) != V4L2_QUANTIZATION_FULL_RANGE)
        why.set("%s colour range: the engine uses %u, %u (full) was asked for", name, got.true_range(true),
                unsigned{V4L2_QUANTIZATION_FULL_RANGE});
    else {
        engine_bytes_[queue] = got.bytes;
        return 0;
    }
    return -ERANGE;
}

int M2mContext::set_layout(Queue queue, const Side& side, const EngineInfo& engine, Why& why) {
    Layout want(side);
    const unsigned bit = 1u << side.format;
    if (queue == kResult) {
        // Without the flag a driver takes the source's colours over and ignores these fields.
        if ((engine.sets_matrix | engine.sets_range) & bit)
            want.flags = V4L2_PIX_FMT_FLAG_SET_CSC;
        if (engine.sets_range & bit)
            want.range = is_rgb(side.format) ? V4L2_QUANTIZATION_FULL_RANGE : V4L2_QUANTIZATION_LIM_RANGE;
    }
    v4l2_format format = want.to_v4l2(buffer_type(queue), multiplanar_);
    if (const int error = call_driver(fd_.get(), VIDIOC_S_FMT, &format)) {
        why.set("%s format: %.4s %dx%d was asked for, the engine answers: %s", kQueueName[queue],
                reinterpret_cast<const char*>(&want.fourcc), side.width, side.height, std::strerror(-error));
        return error;
    }
    return check_layout(queue, want, Layout(format, multiplanar_), why);
}

int M2mContext::set_box(Queue queue, const Side& side, bool may_set, Why& why) {
    const char* const name = queue == kSource ? "source rectangle" : "result rectangle";
    v4l2_selection selection{};
    selection.type = type_of(queue == kSource, false); // the single-planar name on both kinds, by long tradition
    selection.target = queue == kSource ? V4L2_SEL_TGT_CROP : V4L2_SEL_TGT_COMPOSE;
    int error = call_driver(fd_.get(), VIDIOC_G_SELECTION, &selection);
    if (error == -ENOTTY || error == -EINVAL) {
        if (is_whole(side))
            return 0;
        why.set("%s: the engine has whole images only, (%d %d) %dx%d of %dx%d was asked for", name, side.box.x,
                side.box.y, side.box.width, side.box.height, side.width, side.height);
        return error;
    }
    if (error)
        return fail(error, why, name);
    const auto equals = [&] {
        return same_box(side.box, Box{selection.r.left, selection.r.top, static_cast<int>(selection.r.width),
                                      static_cast<int>(selection.r.height)});
    };
    if (equals())
        return 0;
    if (may_set) {
        selection.flags = V4L2_SEL_FLAG_GE | V4L2_SEL_FLAG_LE; // exactly this one
        selection.r = {side.box.x, side.box.y, static_cast<uint32_t>(side.box.width),
                       static_cast<uint32_t>(side.box.height)};
        error = call_driver(fd_.get(), VIDIOC_S_SELECTION, &selection);
        if (error)
            return fail(error, why, name);
    }
    if (equals())
        return 0;
    why.set("%s: the engine uses (%d %d) %ux%u, (%d %d) %dx%d was asked for", name, selection.r.left, selection.r.top,
            selection.r.width, selection.r.height, side.box.x, side.box.y, side.box.width, side.box.height);
    return -ERANGE;
}

// Setting one side may have changed the other.
int M2mContext::verify(const Setup& setup, Why& why) {
    for (const Queue queue : {kSource, kResult}) {
        v4l2_format format{};
        format.type = buffer_type(queue);
        if (const int error = call_driver(fd_.get(), VIDIOC_G_FMT, &format))
            return fail(error, why, "format read back");
        const Side& side = queue == kSource ? setup.src : setup.dst;
        if (const int error = check_layout(queue, Layout(side), Layout(format, multiplanar_), why))
            return error;
    }
    if (const int error = set_box(kSource, setup.src, false, why))
        return error;
    return set_box(kResult, setup.dst, false, why);
}

int M2mContext::stream(bool on, Why& why) {
    for (const Queue queue : {kSource, kResult}) {
        uint32_t type = buffer_type(queue);
        if (const int error = call_driver(fd_.get(), on ? VIDIOC_STREAMON : VIDIOC_STREAMOFF, &type))
            return fail(error, why, on ? "start of the stream" : "end of the stream");
    }
    return 0;
}

int M2mContext::open_new(const EngineInfo& engine, const Setup& setup, Why& why) {
    const int opened = open_node(engine.path);
    if (opened < 0)
        return fail(opened, why, engine.path);
    fd_.reset(opened);
    multiplanar_ = engine.multiplanar;
    setup_ = setup;
    int error = set_controls(setup, why); // first: a rotation may change the formats
    if (!error)
        error = set_layout(kSource, setup.src, engine, why);
    if (!error)
        error = set_layout(kResult, setup.dst, engine, why);
    if (!error)
        error = set_box(kSource, setup.src, true, why);
    if (!error)
        error = set_box(kResult, setup.dst, true, why);
    if (!error)
        error = verify(setup, why);
    if (error)
        return error;
    for (const Queue queue : {kSource, kResult}) {
        v4l2_requestbuffers request{};
        request.type = buffer_type(queue);
        request.memory = V4L2_MEMORY_DMABUF;
        request.count = 1;
        error = call_driver(fd_.get(), VIDIOC_REQBUFS, &request);
        if (!error && request.count < 1)
            error = -ENOMEM;
        if (error)
            return fail(error, why, "request for buffers");
    }
    return stream(true, why);
}

int M2mContext::prepare(const EngineInfo& engine, const Setup& setup, Why& why) {
    opened_ = false;
    if (fd_ && same_layout(setup_, setup)) {
        if (same_boxes(setup_, setup))
            return 0;
        // Rectangles alone are cheap. Where that fails, e.g. because the driver wants no buffers then, all is set
        // anew.
        setup_ = setup;
        Why ignored;
        if (stream(false, ignored) == 0 && set_box(kSource, setup.src, true, ignored) == 0 &&
            set_box(kResult, setup.dst, true, ignored) == 0 && verify(setup, ignored) == 0 &&
            stream(true, ignored) == 0)
            return 0;
    }
    close();
    opened_ = true;
    const int error = open_new(engine, setup, why);
    if (error)
        close();
    return error;
}

int M2mContext::enqueue(Queue queue, const Buffer& buffer, Why& why) {
    const Side& side = queue == kSource ? setup_.src : setup_.dst;
    if (buffer.bytes < engine_bytes_[queue]) {
        why.set("%s buffer: the engine may touch %llu bytes, the buffer has %llu", kQueueName[queue],
                static_cast<unsigned long long>(engine_bytes_[queue]), static_cast<unsigned long long>(buffer.bytes));
        return -ENOSPC;
    }
    const auto length = static_cast<uint32_t>(buffer.bytes < UINT32_MAX ? buffer.bytes : UINT32_MAX);
    const uint32_t used =
        queue == kSource
            ? static_cast<uint32_t>(byte_count(*find_format(side.format), static_cast<uint32_t>(side.width),
                                               static_cast<uint32_t>(side.height)))
            : 0;
    v4l2_buffer entry{};
    v4l2_plane plane{};
    entry.type = buffer_type(queue);
    entry.memory = V4L2_MEMORY_DMABUF;
    entry.field = V4L2_FIELD_NONE;
    if (multiplanar_) {
        plane.m.fd = buffer.fd;
        plane.length = length;
        plane.bytesused = used;
        entry.m.planes = &plane;
        entry.length = 1;
    } else {
        entry.m.fd = buffer.fd;
        entry.length = length;
        entry.bytesused = used;
    }
    if (const int error = call_driver(fd_.get(), VIDIOC_QBUF, &entry))
        return fail(error, why, queue == kSource ? "source buffer" : "result buffer");
    return 0;
}

int M2mContext::dequeue(Queue queue, Why& why) {
    v4l2_buffer entry{};
    v4l2_plane plane{};
    entry.type = buffer_type(queue);
    entry.memory = V4L2_MEMORY_DMABUF;
    if (multiplanar_) {
        entry.m.planes = &plane;
        entry.length = 1;
    }
    if (const int error = call_driver(fd_.get(), VIDIOC_DQBUF, &entry))
        return fail(error, why, queue == kSource ? "source buffer back" : "result buffer back");
    if (entry.flags & V4L2_BUF_FLAG_ERROR) {
        why.set("job failed: the %s buffer came back with the error flag", kQueueName[queue]);
        return -EIO;
    }
    if (plane.data_offset) { // the driver's choice on the result's side
        why.set("%s buffer: the engine begins at byte %u, the image at 0", kQueueName[queue], plane.data_offset);
        return -EIO;
    }
    return 0;
}

int M2mContext::run(const Buffer& src, const Buffer& dst, Why& why) {
    int error = enqueue(kSource, src, why);
    if (!error)
        error = enqueue(kResult, dst, why);
    if (error)
        return error;
    const int64_t deadline = now_ms() + kPatienceMs;
    bool waiting[2] = {true, true};
    while (waiting[kSource] || waiting[kResult]) {
        const int64_t left = deadline - now_ms();
        const short events = static_cast<short>((waiting[kSource] ? POLLOUT : 0) | (waiting[kResult] ? POLLIN : 0));
        const int came = kernel_calls().wait(fd_.get(), events, left > 0 ? static_cast<int>(left) : 0);
        if (came == -EINTR && left > 0)
            continue;
        if (came < 0)
            return fail(came, why, "wait for the job");
        if (came == 0) {
            why.set("job not done after %d ms", kPatienceMs);
            return -ETIMEDOUT;
        }
        // After an error the buffers tell the reason, e.g. a device that went away, or a descriptor that somebody
        // else has closed.
        constexpr int kTrouble = POLLERR | POLLHUP | POLLNVAL;
        for (const Queue queue : {kSource, kResult}) {
            if (!waiting[queue] || !(came & (kTrouble | (queue == kSource ? POLLOUT : POLLIN))))
                continue;
            error = dequeue(queue, why);
            if (error)
                return error;
            waiting[queue] = false;
        }
    }
    return 0;
}

void M2mContext::close() {
    if (!fd_)
        return;
    for (const Queue queue : {kSource, kResult}) {
        uint32_t type = buffer_type(queue);
        call_driver(fd_.get(), VIDIOC_STREAMOFF, &type);
    }
    fd_.reset();
}

} // namespace tavi
