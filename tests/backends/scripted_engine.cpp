// SPDX-License-Identifier: MIT
#include "backends/scripted_engine.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

#include "backends/blit/blit_formats.h"
#include "backends/blit/context_pool.h"
#include "image/view.h"

namespace tavi::test {
namespace {

ScriptedEngine* g_engine = nullptr;

bool is_source(uint32_t type) {
    return type == V4L2_BUF_TYPE_VIDEO_OUTPUT || type == V4L2_BUF_TYPE_VIDEO_OUTPUT_MPLANE;
}

/// The fields of a format that the engine looks at; the multi-planar ones are packed and cannot be referred to.
struct Fields {
    uint32_t fourcc, width, height, bytes;
};

Fields fields(const v4l2_format& f, bool multiplanar) {
    const v4l2_pix_format_mplane& m = f.fmt.pix_mp;
    const v4l2_pix_format& s = f.fmt.pix;
    return multiplanar ? Fields{m.pixelformat, m.width, m.height, m.plane_fmt[0].sizeimage}
                       : Fields{s.pixelformat, s.width, s.height, s.sizeimage};
}

std::vector<uint8_t> read_buffer(int fd, size_t bytes) {
    std::vector<uint8_t> pixels(bytes);
    void* map = ::mmap(nullptr, bytes, PROT_READ, MAP_SHARED, fd, 0);
    std::memcpy(pixels.data(), map, bytes);
    ::munmap(map, bytes);
    return pixels;
}

void write_buffer(int fd, const std::vector<uint8_t>& pixels) {
    void* map = ::mmap(nullptr, pixels.size(), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    std::memcpy(map, pixels.data(), pixels.size());
    ::munmap(map, pixels.size());
}

} // namespace

ScriptedEngine::ScriptedEngine() : kernel_(v4l2_ops()), before_(g_engine) {
    ContextPool::instance().forget_engine();
    g_engine = this;
    v4l2_ops() = {[](const char* path) { return g_engine->open(path); },
                  [](int fd, unsigned long r, void* a) { return g_engine->control(fd, r, a); },
                  [](int fd, short events, int) { return g_engine->wait(fd, events); },
                  [](int) { return g_engine->clean; }, [](int) {}};
}

ScriptedEngine::~ScriptedEngine() {
    ContextPool::instance().forget_engine();
    v4l2_ops() = kernel_;
    g_engine = before_;
}

bool ScriptedEngine::fails(const char* what, int& error) {
    if (calls++ != fail_call)
        return false;
    failed.push_back(what);
    error = -fail_errno;
    return true;
}

int ScriptedEngine::open(const char* path) {
    const std::lock_guard<std::mutex> lock(mutex_);
    int error = 0, number = -1;
    if (std::sscanf(path, "/dev/video%d", &number) != 1 || !nodes.count(number))
        return -ENOENT;
    if (fails("open", error))
        return error;
    ++opens;
    const int fd = ::memfd_create("engine", MFD_CLOEXEC);
    contexts_[fd] = Context();
    for (Queue& q : contexts_[fd].queue)
        q.box = {0, 0, 64, 64};
    return fd;
}

int ScriptedEngine::control(int fd, unsigned long request, void* argument) {
    const std::lock_guard<std::mutex> lock(mutex_);
    int error = 0;
    ++count[request];
    // An end of the stream that fails stops nothing on a real device either; it is let through.
    if (request != VIDIOC_STREAMOFF && fails(std::to_string(_IOC_NR(request)).c_str(), error))
        return error;
    return dispatch(contexts_.at(fd), request, argument);
}

int ScriptedEngine::dispatch(Context& c, unsigned long request, void* argument) {
    switch (request) {
    case VIDIOC_QUERYCAP: {
        auto& a = *static_cast<v4l2_capability*>(argument);
        std::strcpy(reinterpret_cast<char*>(a.driver), "script");
        const uint32_t kind = multiplanar ? V4L2_CAP_VIDEO_M2M_MPLANE : V4L2_CAP_VIDEO_M2M;
        a.device_caps = capabilities ? capabilities : kind | V4L2_CAP_STREAMING;
        a.capabilities = a.device_caps | V4L2_CAP_DEVICE_CAPS;
        return 0;
    }
    case VIDIOC_ENUM_FMT: {
        auto& a = *static_cast<v4l2_fmtdesc*>(argument);
        uint32_t list[17] = {};
        uint32_t length = 0;
        for (uint32_t i = 0; i < 16; ++i) {
            if (const BlitFormat* f = find_blit_format(i))
                list[length++] = f->fourcc;
        }
        if (compressed_results && !is_source(a.type))
            list[0] = V4L2_PIX_FMT_H264, length = 1;
        if (a.index >= length)
            return -EINVAL;
        a.pixelformat = list[a.index];
        a.flags = matrix_control ? V4L2_FMT_FLAG_CSC_YCBCR_ENC | V4L2_FMT_FLAG_CSC_QUANTIZATION : 0;
        return 0;
    }
    case VIDIOC_QUERYCTRL:
        return alpha || static_cast<v4l2_queryctrl*>(argument)->id != V4L2_CID_ALPHA_COMPONENT ? 0 : -EINVAL;
    case VIDIOC_S_CTRL: {
        auto& a = *static_cast<v4l2_control*>(argument);
        if (a.id == V4L2_CID_ROTATE || (a.id == V4L2_CID_ALPHA_COMPONENT && !alpha))
            return -EINVAL;
        c.controls[a.id] = a.value;
        return 0;
    }
    case VIDIOC_G_CTRL: {
        auto& a = *static_cast<v4l2_control*>(argument);
        a.value = c.controls[a.id];
        return 0;
    }
    case VIDIOC_S_FMT: {
        auto& a = *static_cast<v4l2_format*>(argument);
        Queue& q = c.queue[!is_source(a.type)];
        if (q.requested)
            return -EBUSY;
        if (adjust_format)
            adjust_format(a);
        if (multiplanar && a.fmt.pix_mp.num_planes == 0)
            a.fmt.pix_mp.num_planes = 1;
        q.format = a;
        const Fields f = fields(a, multiplanar);
        q.box = {0, 0, f.width, f.height};
        return 0;
    }
    case VIDIOC_G_FMT: {
        auto& a = *static_cast<v4l2_format*>(argument);
        a = c.queue[!is_source(a.type)].format;
        return 0;
    }
    case VIDIOC_G_SELECTION:
    case VIDIOC_S_SELECTION: {
        auto& a = *static_cast<v4l2_selection*>(argument);
        if (!selections)
            return -ENOTTY;
        Queue& q = c.queue[!is_source(a.type)];
        if (request == VIDIOC_S_SELECTION) {
            q.box = a.r;
            if (adjust_box)
                adjust_box(q.box);
        }
        a.r = q.box;
        return 0;
    }
    case VIDIOC_REQBUFS: {
        auto& a = *static_cast<v4l2_requestbuffers*>(argument);
        c.queue[!is_source(a.type)].requested = a.count > 0;
        a.capabilities = V4L2_BUF_CAP_SUPPORTS_MMAP | (dma_buffers ? V4L2_BUF_CAP_SUPPORTS_DMABUF : 0u);
        return 0;
    }
    case VIDIOC_STREAMON:
        c.queue[!is_source(*static_cast<uint32_t*>(argument))].streaming = true;
        return 0;
    case VIDIOC_STREAMOFF: {
        if (c.queue[0].buffer >= 0 && c.queue[1].buffer >= 0 && !c.queue[0].done)
            run(c, true); // the job that was under way ends now, and has written until then
        Queue& q = c.queue[!is_source(*static_cast<uint32_t*>(argument))];
        q.streaming = q.done = false;
        q.buffer = -1;
        return 0;
    }
    case VIDIOC_QBUF: {
        auto& a = *static_cast<v4l2_buffer*>(argument);
        Queue& q = c.queue[!is_source(a.type)];
        const int fd = multiplanar ? a.m.planes[0].m.fd : a.m.fd;
        const uint32_t length = multiplanar ? a.m.planes[0].length : a.length;
        if (!q.requested || q.buffer >= 0 || fd < 0 || length < fields(q.format, multiplanar).bytes)
            return -EINVAL;
        q.buffer = fd;
        return 0;
    }
    case VIDIOC_DQBUF: {
        auto& a = *static_cast<v4l2_buffer*>(argument);
        Queue& q = c.queue[!is_source(a.type)];
        if (!q.done)
            return -EAGAIN;
        a.flags = job_error ? V4L2_BUF_FLAG_ERROR : 0;
        q.done = false;
        q.buffer = -1;
        return 0;
    }
    default:
        return -ENOTTY;
    }
}

int ScriptedEngine::wait(int fd, short events) {
    const std::lock_guard<std::mutex> lock(mutex_);
    int error = 0;
    if (fails("poll", error))
        return error;
    Context& c = contexts_.at(fd);
    if (!c.queue[0].streaming || !c.queue[1].streaming)
        return POLLERR;
    if (!c.queue[0].done && !c.queue[1].done) {
        if (never_done || c.queue[0].buffer < 0 || c.queue[1].buffer < 0)
            return 0;
        run(c, job_error);
    }
    return events & ((c.queue[0].done ? POLLOUT : 0) | (c.queue[1].done ? POLLIN : 0));
}

void ScriptedEngine::run(Context& c, bool with_garbage) {
    ++jobs;
    const Fields sf = fields(c.queue[0].format, multiplanar), df = fields(c.queue[1].format, multiplanar);
    c.queue[0].done = c.queue[1].done = true;
    std::vector<uint8_t> to = read_buffer(c.queue[1].buffer, df.bytes);
    if (with_garbage) {
        to.assign(to.size(), 0xEE);
        return write_buffer(c.queue[1].buffer, to);
    }
    std::vector<uint8_t> from = read_buffer(c.queue[0].buffer, sf.bytes);
    const auto src_format = static_cast<tavi_pixel_format>(format_of_fourcc(sf.fourcc));
    const auto dst_format = static_cast<tavi_pixel_format>(format_of_fourcc(df.fourcc));
    const auto box = [](const v4l2_rect& r) {
        return Box{r.left, r.top, static_cast<int>(r.width), static_cast<int>(r.height)};
    };
    const ImageView src =
        crop(make_view(from.data(), src_format, static_cast<int>(sf.width), static_cast<int>(sf.height)),
             box(c.queue[0].box));
    const ImageView dst =
        crop(make_view(to.data(), dst_format, static_cast<int>(df.width), static_cast<int>(df.height)),
             box(c.queue[1].box));
    const bool exchange = src.format->swapped != dst.format->swapped; // of formats with the same planes: red and blue
    for (int i = 0; i < dst.planes(); ++i) {
        const PlaneView &s = src.plane[i], &d = dst.plane[i];
        for (int y = 0; y < d.rows; ++y) {
            for (int x = 0; x < d.cols; ++x) {
                int from_x = x * s.cols / d.cols, from_y = y * s.rows / d.rows;
                from_x = c.controls[V4L2_CID_HFLIP] ? s.cols - 1 - from_x : from_x;
                from_y = c.controls[V4L2_CID_VFLIP] ? s.rows - 1 - from_y : from_y;
                for (int k = 0; k < d.step; ++k)
                    d.at(x, y)[k] = s.at(from_x, from_y)[exchange && k != 1 && k < 3 ? 2 - k : k];
            }
        }
    }
    write_buffer(c.queue[1].buffer, to);
}

} // namespace tavi::test
