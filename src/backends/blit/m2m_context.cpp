// SPDX-License-Identifier: MIT
#include "backends/blit/m2m_context.h"

#include <cerrno>
#include <cstring>
#include <ctime>

#include <poll.h>

namespace tavi {
namespace {

constexpr int kPatienceMs = 3000; ///< a job that takes longer has failed

int64_t now_ms() {
    timespec t{};
    ::clock_gettime(CLOCK_MONOTONIC, &t);
    return int64_t{t.tv_sec} * 1000 + t.tv_nsec / 1000000;
}

bool same_side(const Side& a, const Side& b) {
    return a.format == b.format && a.width == b.width && a.height == b.height && a.pitch == b.pitch &&
           a.apart == b.apart;
}
bool same_box(const Box& a, const Box& b) {
    return a.x == b.x && a.y == b.y && a.width == b.width && a.height == b.height;
}
bool is_whole(const Side& side) { return same_box(side.box, Box{0, 0, side.width, side.height}); }

bool has_alpha(const Side& side) { return find_format(side.format)->parts == 4; }

} // namespace

bool same_layout(const Setup& a, const Setup& b) {
    return a.mode == b.mode && a.color[0] == b.color[0] && a.color[1] == b.color[1] && same_side(a.src, b.src) &&
           same_side(a.dst, b.dst);
}

bool same_boxes(const Setup& a, const Setup& b) {
    return same_box(a.src.box, b.src.box) && same_box(a.dst.box, b.dst.box);
}

Refusal M2mContext::set_controls() {
    const tavi_image_transform_mode mode = setup_.mode;
    const bool h = mode == TAVI_IMAGE_TRANSFORM_FLIP_H || mode == TAVI_IMAGE_TRANSFORM_ROTATE_180;
    const bool v = mode == TAVI_IMAGE_TRANSFORM_FLIP_V || mode == TAVI_IMAGE_TRANSFORM_ROTATE_180;
    const struct {
        const char* name;
        uint32_t id;
        int value;
        bool meant; ///< where the source has alpha, the engine's own rule stays
    } controls[] = {{"horizontal flip", V4L2_CID_HFLIP, h, true},
                    {"vertical flip", V4L2_CID_VFLIP, v, true},
                    {"rotation", V4L2_CID_ROTATE, 0, true},
                    {"alpha", V4L2_CID_ALPHA_COMPONENT, 255, has_alpha(setup_.dst) && !has_alpha(setup_.src)}};
    for (const auto& c : controls) {
        if (!c.meant)
            continue;
        v4l2_control control{c.id, c.value};
        int error = call_driver(fd_.get(), VIDIOC_S_CTRL, &control);
        if ((error == -EINVAL || error == -ENOTTY) && c.value == 0)
            continue; // the engine has no such control: nothing to switch off
        if (!error)
            error = call_driver(fd_.get(), VIDIOC_G_CTRL, &control);
        if (error)
            return Refusal(TAVI_RET_FAIL, "%s: %d was asked for, the engine answers: %s", c.name, c.value,
                           std::strerror(-error))
                .because_of(error);
        if (control.value != c.value)
            return {TAVI_RET_FAIL, "%s: the engine uses %d, %d was asked for", c.name, control.value, c.value};
    }
    return {};
}

Refusal M2mContext::check_layout(Queue queue, const Layout& want, const Layout& got) {
    for (int i = 0; i < 2; ++i)
        engine_bytes_[queue][i] = got.bytes[i];
    return compare_layout(queue, side_of(queue), setup_.color[queue], want, got);
}

Refusal M2mContext::set_layout(Queue queue, const EngineInfo& engine) {
    const Side& side = side_of(queue);
    Layout want(side, setup_.color[queue]);
    if (queue == kResult)
        want.choose_colors(side, setup_.color[queue], engine);
    v4l2_format format = want.to_v4l2(queue, multiplanar_);
    if (const int error = call_driver(fd_.get(), VIDIOC_S_FMT, &format))
        return Refusal(TAVI_RET_FAIL, "%s format: %.4s %dx%d was asked for, the engine answers: %s",
                       kQueueName[queue], reinterpret_cast<const char*>(&want.fourcc), side.width, side.height,
                       std::strerror(-error))
            .because_of(error);
    return check_layout(queue, want, Layout(format, multiplanar_));
}

Refusal M2mContext::set_box(Queue queue, bool may_set) {
    const char* const name = queue == kSource ? "source rectangle" : "result rectangle";
    const Side& side = side_of(queue);
    v4l2_selection selection{};
    selection.type = buffer_type(queue, false); // the single-planar name on both kinds, by long tradition
    selection.target = queue == kSource ? V4L2_SEL_TGT_CROP : V4L2_SEL_TGT_COMPOSE;
    int error = call_driver(fd_.get(), VIDIOC_G_SELECTION, &selection);
    if (error == -ENOTTY || error == -EINVAL) {
        if (is_whole(side))
            return {};
        return Refusal(TAVI_RET_FAIL, "%s: the engine has whole images only, (%d %d) %dx%d of %dx%d was asked for",
                       name, side.box.x, side.box.y, side.box.width, side.box.height, side.width, side.height);
    }
    if (error)
        return Refusal::of_errno(error, name);
    const auto equals = [&] {
        return same_box(side.box, Box{selection.r.left, selection.r.top, static_cast<int>(selection.r.width),
                                      static_cast<int>(selection.r.height)});
    };
    if (equals())
        return {};
    if (may_set) {
        selection.flags = V4L2_SEL_FLAG_GE | V4L2_SEL_FLAG_LE; // exactly this one
        selection.r = {side.box.x, side.box.y, static_cast<uint32_t>(side.box.width),
                       static_cast<uint32_t>(side.box.height)};
        error = call_driver(fd_.get(), VIDIOC_S_SELECTION, &selection);
        if (error)
            return Refusal::of_errno(error, name);
    }
    if (equals())
        return {};
    const v4l2_rect& r = selection.r;
    const Box& b = side.box;
    return Refusal(TAVI_RET_FAIL, "%s: the engine uses (%d %d) %ux%u, (%d %d) %dx%d was asked for", name, r.left,
                   r.top, r.width, r.height, b.x, b.y, b.width, b.height);
}

Refusal M2mContext::set_boxes() {
    for (const Queue queue : kQueues)
        if (const Refusal no = set_box(queue, true))
            return no;
    return {};
}

// Setting one side may have changed the other.
Refusal M2mContext::verify() {
    for (const Queue queue : kQueues) {
        v4l2_format format{};
        format.type = type_of(queue);
        if (const int error = call_driver(fd_.get(), VIDIOC_G_FMT, &format))
            return Refusal::of_errno(error, "format read back");
        if (const Refusal no =
                check_layout(queue, Layout(side_of(queue), setup_.color[queue]), Layout(format, multiplanar_)))
            return no;
    }
    for (const Queue queue : kQueues)
        if (const Refusal no = set_box(queue, false))
            return no;
    return {};
}

Refusal M2mContext::request_buffers() {
    for (const Queue queue : kQueues) {
        v4l2_requestbuffers request{};
        request.type = type_of(queue);
        request.memory = V4L2_MEMORY_DMABUF;
        request.count = 1;
        int error = call_driver(fd_.get(), VIDIOC_REQBUFS, &request);
        if (!error && request.count < 1)
            error = -ENOMEM;
        if (error)
            return Refusal::of_errno(error, "request for buffers");
    }
    return {};
}

Refusal M2mContext::stream(bool on) {
    for (const Queue queue : kQueues) {
        uint32_t type = type_of(queue);
        if (const int error = call_driver(fd_.get(), on ? VIDIOC_STREAMON : VIDIOC_STREAMOFF, &type))
            return Refusal::of_errno(error, on ? "start of the stream" : "end of the stream");
    }
    return {};
}

Refusal M2mContext::open_new(const EngineInfo& engine) {
    const int opened = open_node(engine.path);
    if (opened < 0)
        return Refusal::of_errno(opened, engine.path);
    fd_.reset(opened);
    multiplanar_ = engine.multiplanar;
    Refusal no = set_controls(); // first: a rotation may change the formats
    for (const Queue queue : kQueues)
        if (!no)
            no = set_layout(queue, engine);
    if (!no)
        no = set_boxes();
    if (!no)
        no = verify();
    if (!no)
        no = request_buffers();
    return no ? no : stream(true);
}

Refusal M2mContext::move_boxes() {
    Refusal no = stream(false);
    if (!no)
        no = set_boxes();
    if (!no)
        no = verify();
    return no ? no : stream(true);
}

Refusal M2mContext::prepare(const EngineInfo& engine, const Setup& setup) {
    opened_ = false;
    if (fd_ && same_layout(setup_, setup)) {
        if (same_boxes(setup_, setup))
            return {};
        // Rectangles alone are cheap. Where that fails, e.g. because the driver wants no buffers then, all is set
        // anew.
        setup_ = setup;
        if (!move_boxes())
            return {};
    }
    close();
    opened_ = true;
    setup_ = setup;
    Refusal no = open_new(engine);
    if (no)
        close();
    return no;
}

Refusal M2mContext::enqueue(Queue queue, const Memory& memory) {
    const Side& side = side_of(queue);
    v4l2_buffer entry{};
    v4l2_plane plane[2]{};
    entry.type = type_of(queue);
    entry.memory = V4L2_MEMORY_DMABUF;
    entry.field = V4L2_FIELD_NONE;
    for (int i = 0; i < side.buffers(); ++i) {
        const Buffer& buffer = memory[static_cast<size_t>(i)];
        const uint64_t touched = engine_bytes_[queue][i];
        if (buffer.bytes < touched)
            return {TAVI_RET_FAIL, "%s buffer: the engine may touch %llu bytes, the buffer has %llu",
                    kQueueName[queue], static_cast<unsigned long long>(touched),
                    static_cast<unsigned long long>(buffer.bytes)};
        plane[i].m.fd = buffer.fd;
        plane[i].length = static_cast<uint32_t>(buffer.bytes < UINT32_MAX ? buffer.bytes : UINT32_MAX);
        plane[i].bytesused = queue == kSource ? static_cast<uint32_t>(bytes_of(side, i)) : 0;
    }
    if (multiplanar_) {
        entry.m.planes = plane;
        entry.length = static_cast<uint32_t>(side.buffers());
    } else {
        entry.m.fd = plane[0].m.fd;
        entry.length = plane[0].length;
        entry.bytesused = plane[0].bytesused;
    }
    if (const int error = call_driver(fd_.get(), VIDIOC_QBUF, &entry))
        return Refusal::of_errno(error, queue == kSource ? "source buffer" : "result buffer");
    return {};
}

Refusal M2mContext::dequeue(Queue queue) {
    v4l2_buffer entry{};
    v4l2_plane plane[2]{};
    entry.type = type_of(queue);
    entry.memory = V4L2_MEMORY_DMABUF;
    if (multiplanar_) {
        entry.m.planes = plane;
        entry.length = static_cast<uint32_t>(side_of(queue).buffers());
    }
    if (const int error = call_driver(fd_.get(), VIDIOC_DQBUF, &entry))
        return Refusal::of_errno(error, queue == kSource ? "source buffer back" : "result buffer back");
    if (entry.flags & V4L2_BUF_FLAG_ERROR)
        return {TAVI_RET_FAIL, "job failed: the %s buffer came back with the error flag", kQueueName[queue]};
    for (const v4l2_plane& p : plane)
        if (p.data_offset) // the driver's choice on the result's side
            return {TAVI_RET_FAIL, "%s buffer: the engine begins at byte %u, the image at 0", kQueueName[queue],
                    p.data_offset};
    return {};
}

Refusal M2mContext::run(const Memory& src, const Memory& dst) {
    if (const Refusal no = enqueue(kSource, src))
        return no;
    if (const Refusal no = enqueue(kResult, dst))
        return no;
    const int64_t deadline = now_ms() + kPatienceMs;
    bool waiting[2] = {true, true};
    while (waiting[kSource] || waiting[kResult]) {
        const int64_t left = deadline - now_ms();
        const short events = static_cast<short>((waiting[kSource] ? POLLOUT : 0) | (waiting[kResult] ? POLLIN : 0));
        const int came = kernel_calls().wait(fd_.get(), events, left > 0 ? static_cast<int>(left) : 0);
        if (came == -EINTR && left > 0)
            continue;
        if (came < 0)
            return Refusal::of_errno(came, "wait for the job");
        if (came == 0)
            return {TAVI_RET_FAIL, "job not done after %d ms", kPatienceMs};
        // After an error the buffers tell the reason, e.g. a device that went away, or a descriptor that somebody
        // else has closed.
        constexpr int kTrouble = POLLERR | POLLHUP | POLLNVAL;
        for (const Queue queue : kQueues) {
            if (!waiting[queue] || !(came & (kTrouble | (queue == kSource ? POLLOUT : POLLIN))))
                continue;
            if (const Refusal no = dequeue(queue))
                return no;
            waiting[queue] = false;
        }
    }
    return {};
}

void M2mContext::close() {
    if (!fd_)
        return;
    for (const Queue queue : kQueues) {
        uint32_t type = type_of(queue);
        call_driver(fd_.get(), VIDIOC_STREAMOFF, &type);
    }
    fd_.reset();
}

} // namespace tavi
