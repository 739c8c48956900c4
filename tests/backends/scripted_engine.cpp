// SPDX-License-Identifier: MIT
#include "backends/scripted_engine.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include <linux/dma-buf.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "backends/blit/blit_formats.h"
#include "backends/blit/context_pool.h"
#include "image/view.h"
#include "os/dma_sync.h"

namespace tavi::test {
namespace {

ScriptedEngine* g_engine = nullptr;

template <class T>
T& as(void* argument) {
    return *static_cast<T*>(argument);
}

bool is_source(uint32_t type) {
    return type == V4L2_BUF_TYPE_VIDEO_OUTPUT || type == V4L2_BUF_TYPE_VIDEO_OUTPUT_MPLANE;
}

/// Both kinds of format have the sides and the name of the pixels in one place, and the bytes in two.
uint32_t bytes_of(const v4l2_format& f, bool multiplanar, int buffer) {
    return multiplanar ? f.fmt.pix_mp.plane_fmt[buffer].sizeimage : f.fmt.pix.sizeimage;
}

int buffers_of(const v4l2_format& f, bool multiplanar) { return multiplanar ? f.fmt.pix_mp.num_planes : 1; }

ino_t inode_of(int fd) {
    struct stat info {};
    ::fstat(fd, &info);
    return info.st_ino;
}

} // namespace

ScriptedEngine::ScriptedEngine() : kernel_(kernel_calls()), before_(g_engine) {
    ContextPool::instance().forget_engine();
    g_engine = this;
    kernel_calls() = {[](const char* path) { return g_engine->open(path); },
                      [](int fd, unsigned long r, void* a) { return g_engine->control(fd, r, a); },
                      [](int fd, short events, int) { return g_engine->wait(fd, events); },
                      [](int fd, size_t n, int p, void** a) { return g_engine->map(fd, n, p, a); },
                      [](void* a, size_t n) { g_engine->unmap(a, n); }};
}

ScriptedEngine::~ScriptedEngine() {
    ContextPool::instance().forget_engine();
    kernel_calls() = kernel_;
    g_engine = before_;
    detach();
}

void ScriptedEngine::detach() {
    for (auto& [inode, b] : buffers_)
        ::munmap(b.caches, b.memory.size());
    buffers_.clear();
}

void ScriptedEngine::dirty() {
    for (auto& [inode, b] : buffers_)
        std::fill(b.memory.begin(), b.memory.end(), 0xDD);
}

int ScriptedEngine::failure(const std::string& what) {
    const int call = calls++;
    if (call != fail_call && !(fail_every && call % fail_every == 0 && what != "mmap"))
        return 0;
    failed = what;
    return -fail_errno;
}

int ScriptedEngine::open(const char* path) {
    const std::lock_guard<std::mutex> lock(mutex_);
    int number = -1;
    if (std::sscanf(path, "/dev/video%d", &number) != 1 || !nodes.count(number))
        return -ENOENT;
    if (const int error = failure("open"))
        return error;
    ++opens;
    const int fd = ::memfd_create("engine", MFD_CLOEXEC);
    contexts_[fd] = Context();
    return fd;
}

int ScriptedEngine::control(int fd, unsigned long request, void* argument) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (const int error = failure("ioctl " + std::to_string(_IOC_NR(request))))
        return error;
    if (request == DMA_BUF_IOCTL_SYNC)
        return sync(fd, static_cast<dma_buf_sync*>(argument)->flags);
    return dispatch(contexts_.at(fd), request, argument);
}

int ScriptedEngine::sync(int fd, uint64_t flags) {
    const auto found = buffers_.find(inode_of(fd));
    if (found != buffers_.end()) { // of others nothing is known to a heap
        auto& [caches, memory] = found->second;
        if (flags == (DMA_BUF_SYNC_END | DMA_BUF_SYNC_WRITE))
            std::memcpy(memory.data(), caches, memory.size());
        else if (!(flags & DMA_BUF_SYNC_END) && (flags & DMA_BUF_SYNC_READ))
            std::memcpy(caches, memory.data(), memory.size()); // discarded: what was not cleaned is lost
    }
    return clean ? 0 : -ENOTTY;
}

int ScriptedEngine::map(int fd, size_t bytes, int protection, void** address) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (const int error = failure("mmap"))
        return error;
    ++mappings;
    return kernel_.map(fd, bytes, protection, address);
}

void ScriptedEngine::unmap(void* address, size_t bytes) {
    const std::lock_guard<std::mutex> lock(mutex_);
    --mappings;
    kernel_.unmap(address, bytes);
}

int ScriptedEngine::dispatch(Context& c, unsigned long request, void* argument) {
    const auto queue = [&c](uint32_t type) -> Queue& { return c.queue[!is_source(type)]; };
    if (request == VIDIOC_QUERYCAP) {
        auto& a = as<v4l2_capability>(argument);
        const uint32_t kind = multiplanar ? V4L2_CAP_VIDEO_M2M_MPLANE : V4L2_CAP_VIDEO_M2M;
        a.device_caps = capabilities ? capabilities : kind | V4L2_CAP_STREAMING;
        a.capabilities = a.device_caps | V4L2_CAP_DEVICE_CAPS;
    } else if (request == VIDIOC_ENUM_FMT) {
        auto& a = as<v4l2_fmtdesc>(argument);
        const bool compressed = compressed_results && !is_source(a.type);
        if (a.index >= (compressed ? 1u : 16u + apart))
            return -EINVAL;
        a.pixelformat = compressed ? V4L2_PIX_FMT_H264 : a.index < 16 ? fourcc_of(a.index) : V4L2_PIX_FMT_NV12M;
        a.flags = matrix_control ? V4L2_FMT_FLAG_CSC_YCBCR_ENC | V4L2_FMT_FLAG_CSC_QUANTIZATION : 0;
    } else if (request == VIDIOC_QUERYCTRL) {
        return alpha || as<v4l2_queryctrl>(argument).id != V4L2_CID_ALPHA_COMPONENT ? 0 : -EINVAL;
    } else if (request == VIDIOC_S_CTRL) {
        const auto& a = as<v4l2_control>(argument);
        if (a.id == V4L2_CID_ROTATE || (a.id == V4L2_CID_ALPHA_COMPONENT && !alpha))
            return -EINVAL;
        c.controls[a.id] = a.value;
    } else if (request == VIDIOC_G_CTRL) {
        auto& a = as<v4l2_control>(argument);
        a.value = c.controls[a.id];
    } else if (request == VIDIOC_S_FMT) {
        auto& a = as<v4l2_format>(argument);
        Queue& q = queue(a.type);
        if (q.requested)
            return -EBUSY;
        if (adjust_format)
            adjust_format(a);
        q.format = a;
        q.box = {0, 0, a.fmt.pix.width, a.fmt.pix.height};
    } else if (request == VIDIOC_G_FMT) {
        auto& a = as<v4l2_format>(argument);
        a = queue(a.type).format;
    } else if (request == VIDIOC_G_SELECTION || request == VIDIOC_S_SELECTION) {
        auto& a = as<v4l2_selection>(argument);
        if (!selections)
            return -ENOTTY;
        Queue& q = queue(a.type);
        if (request == VIDIOC_S_SELECTION) {
            if (q.streaming)
                return -EBUSY;
            q.box = a.r;
            if (adjust_box)
                adjust_box(q.box);
        }
        a.r = q.box;
    } else if (request == VIDIOC_REQBUFS) {
        auto& a = as<v4l2_requestbuffers>(argument);
        queue(a.type).requested = a.count > 0;
        a.capabilities = V4L2_BUF_CAP_SUPPORTS_MMAP | (dma_buffers ? V4L2_BUF_CAP_SUPPORTS_DMABUF : 0u);
    } else if (request == VIDIOC_STREAMON) {
        queue(as<uint32_t>(argument)).streaming = true;
    } else if (request == VIDIOC_STREAMOFF) {
        if (c.queue[0].buffer[0] >= 0 && c.queue[1].buffer[0] >= 0 && !c.queue[0].done)
            run(c, true); // the job that was under way ends now, and has written until then
        Queue& q = queue(as<uint32_t>(argument));
        q.streaming = q.done = false;
        q.buffer[0] = -1;
    } else if (request == VIDIOC_QBUF) {
        const auto& a = as<v4l2_buffer>(argument);
        Queue& q = queue(a.type);
        if (!q.requested || q.buffer[0] >= 0 ||
            (multiplanar && a.length != static_cast<uint32_t>(buffers_of(q.format, true))))
            return -EINVAL;
        for (int i = 0; i < buffers_of(q.format, multiplanar); ++i) {
            const int descriptor = multiplanar ? a.m.planes[i].m.fd : a.m.fd;
            if (descriptor < 0 ||
                (multiplanar ? a.m.planes[i].length : a.length) < bytes_of(q.format, multiplanar, i))
                return -EINVAL;
            import(q.buffer[i] = descriptor, a.type);
        }
    } else if (request == VIDIOC_DQBUF) {
        auto& a = as<v4l2_buffer>(argument);
        Queue& q = queue(a.type);
        if (!q.done)
            return -EAGAIN;
        a.flags = job_error ? V4L2_BUF_FLAG_ERROR : 0;
        if (multiplanar)
            a.m.planes[0].data_offset = is_source(a.type) ? 0 : data_offset;
        q.done = false;
        q.buffer[0] = -1;
    } else {
        return -ENOTTY;
    }
    return 0;
}

int ScriptedEngine::wait(int fd, short events) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (const int error = failure("poll"))
        return error;
    Context& c = contexts_.at(fd);
    if (ready_too_early)
        return ready_too_early;
    if (!c.queue[0].streaming || !c.queue[1].streaming)
        return POLLERR;
    if (!c.queue[0].done && !c.queue[1].done) {
        if (never_done || c.queue[0].buffer[0] < 0 || c.queue[1].buffer[0] < 0)
            return 0;
        run(c, job_error);
    }
    return events & ((c.queue[0].done ? POLLOUT : 0) | (c.queue[1].done ? POLLIN : 0));
}

// The first import of a source cleans the caches, that of a result throws them away.
ScriptedEngine::Imported& ScriptedEngine::import(int fd, uint32_t type) {
    const auto [entry, fresh] = buffers_.try_emplace(inode_of(fd));
    auto& [caches, memory] = entry->second;
    if (!fresh)
        return entry->second;
    memory.assign(static_cast<size_t>(buffer_bytes(fd)), 0xDD);
    caches = static_cast<uint8_t*>(::mmap(nullptr, memory.size(), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
    if (is_source(type))
        std::memcpy(memory.data(), caches, memory.size());
    else
        std::memcpy(caches, memory.data(), memory.size());
    return entry->second;
}

/// Rows as long as the format says, planes one behind the other in a buffer.
ImageView ScriptedEngine::whole(const Queue& q) {
    const v4l2_pix_format& f = q.format.fmt.pix;
    const bool two = buffers_of(q.format, multiplanar) == 2;
    const Format& format = kFormats[static_cast<size_t>(format_of_fourcc(f.pixelformat, two))];
    ImageView v = make_shape(format, int(f.width), int(f.height), {});
    const ptrdiff_t first = multiplanar ? q.format.fmt.pix_mp.plane_fmt[0].bytesperline : f.bytesperline;
    uint8_t* at = nullptr;
    for (int i = 0; i < v.planes(); ++i) {
        if (i == 0 || two)
            at = buffers_.at(inode_of(q.buffer[i])).memory.data();
        v.plane[i].data = at;
        v.plane[i].pitch = v.plane[i].pitch * first / v.plane[0].cols / v.plane[0].step;
        at += v.plane[i].pitch * v.plane[i].rows;
    }
    if (v.planes() == 3 && format.swapped())
        std::swap(v.plane[1], v.plane[2]);
    return v;
}

void ScriptedEngine::run(Context& c, bool with_garbage) {
    ++jobs;
    c.queue[0].done = c.queue[1].done = true;
    for (int i = 0; with_garbage && i < buffers_of(c.queue[1].format, multiplanar); ++i)
        std::memset(buffers_.at(inode_of(c.queue[1].buffer[i])).memory.data(), 0xEE,
                    bytes_of(c.queue[1].format, multiplanar, i));
    if (with_garbage)
        return;
    const auto view = [this](const Queue& q) {
        return crop(whole(q), Box{q.box.left, q.box.top, int(q.box.width), int(q.box.height)});
    };
    const ImageView src = view(c.queue[0]), dst = view(c.queue[1]), around = whole(c.queue[1]);
    for (const PlaneView& p : around.plane)
        for (int y = 0; spills && y < p.rows; ++y)
            std::fill(p.at(p.cols, y), p.row(y) + p.pitch, uint8_t{0xEE});
    // Of formats with the same planes: red and blue.
    const bool exchange = src.format->swapped() != dst.format->swapped();
    const bool flip_h = c.controls[V4L2_CID_HFLIP], flip_v = c.controls[V4L2_CID_VFLIP];
    const bool sets_alpha = c.controls.count(V4L2_CID_ALPHA_COMPONENT); // of all pixels, as some engines do
    for (int i = 0; i < dst.planes(); ++i) {
        const PlaneView &s = src.plane[i], &d = dst.plane[i];
        for (int y = 0; y < d.rows; ++y) {
            for (int x = 0; x < d.cols; ++x) {
                const int from_x = x * s.cols / d.cols, from_y = y * s.rows / d.rows;
                const uint8_t* const pixel =
                    s.at(flip_h ? s.cols - 1 - from_x : from_x, flip_v ? s.rows - 1 - from_y : from_y);
                uint8_t* const result = d.at(x, y);
                for (int k = 0; k < d.step; ++k)
                    result[k] = pixel[exchange && k != 1 && k < 3 ? 2 - k : k];
                if (sets_alpha && d.step == 4)
                    result[3] = static_cast<uint8_t>(c.controls[V4L2_CID_ALPHA_COMPONENT]);
            }
        }
    }
}

} // namespace tavi::test
