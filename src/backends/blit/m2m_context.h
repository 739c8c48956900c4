// SPDX-License-Identifier: MIT
// An open context of an engine: set up once, and then fed with buffers. Drivers change what they cannot do and report
// success, so everything that was asked for is read back.
#pragma once

#include <array>
#include <cstdint>

#include <sys/types.h>

#include "backends/blit/m2m_layout.h"
#include "os/unique_fd.h"

namespace tavi {

/// What a context is set to.
struct Setup {
    Side src, dst;
    tavi_image_transform_mode mode = TAVI_IMAGE_TRANSFORM_NONE;
    ColorSpace color[2]; ///< of the YUV pixels of either side; that of RGB is what it is converted from or to
};

bool same_layout(const Setup& a, const Setup& b); ///< formats, sizes, mode and colours
bool same_boxes(const Setup& a, const Setup& b);

/// A DMA buffer, and what tells it from every other one however often its descriptor was duplicated.
struct Buffer {
    int fd = -1;
    uint64_t bytes = 0;
    dev_t device = 0;
    ino_t inode = 0;
};

inline bool same_buffer(const Buffer& a, const Buffer& b) { return a.inode == b.inode && a.device == b.device; }

/// The memory of one side: one buffer, or one for luma and one for chroma.
using Memory = std::array<Buffer, 2>;

class M2mContext {
public:
    M2mContext() = default;
    M2mContext(const M2mContext&) = delete;
    M2mContext& operator=(const M2mContext&) = delete;
    ~M2mContext() { close(); }

    bool is_open() const { return static_cast<bool>(fd_); }
    const Setup& setup() const { return setup_; }

    /// Makes the context ready for `setup`: nothing to do, new rectangles, or everything anew.
    Refusal prepare(const EngineInfo& engine, const Setup& setup);
    /// Whether that took opening the device.
    bool opened() const { return opened_; }
    /// One job; returns when the engine has let go of all buffers. After a refusal the context must be closed.
    Refusal run(const Memory& src, const Memory& dst);
    /// Stops a job that may be running, which waits for its end, and lets go of the last buffers.
    void close();
    /// Gives up a descriptor shared with the parent of this process, whose context goes on.
    void abandon() { fd_.reset(); }

private:
    uint32_t type_of(Queue queue) const { return buffer_type(queue, multiplanar_); }
    const Side& side_of(Queue queue) const { return queue == kSource ? setup_.src : setup_.dst; }
    Refusal set_controls();
    Refusal set_layout(Queue queue, const EngineInfo& engine);
    Refusal check_layout(Queue queue, const Layout& want, const Layout& got);
    Refusal set_box(Queue queue, bool may_set); ///< sets, or only compares
    Refusal set_boxes();
    Refusal verify();
    Refusal request_buffers();
    Refusal stream(bool on);
    Refusal move_boxes();
    Refusal open_new(const EngineInfo& engine);
    Refusal enqueue(Queue queue, const Memory& memory);
    Refusal dequeue(Queue queue);

    UniqueFd fd_;
    bool multiplanar_ = false;
    bool opened_ = false;
    Setup setup_;
    uint64_t engine_bytes_[2][2] = {}; ///< what the engine may touch of each side's buffers
};

} // namespace tavi
