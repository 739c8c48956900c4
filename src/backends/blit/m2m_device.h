// SPDX-License-Identifier: MIT
// One V4L2 memory-to-memory device: is it an engine, and one conversation with it, set up once and then fed with
// buffers. Drivers change what they cannot do and report success, so everything that was asked for is read back.
#pragma once

#include <cstdint>

#include <sys/types.h>

#include "image/view.h"
#include "os/unique_fd.h"

namespace tavi {

/// The reason for a refusal: which check failed, with both values.
struct Why {
    char text[200] = "";
    void set(const char* format, ...) __attribute__((format(printf, 2, 3)));
};

/// What an engine is and offers.
struct EngineInfo {
    char path[64] = "";
    char driver[16] = "";
    char card[32] = "";
    bool multiplanar = false;
    uint16_t sources = 0;     ///< one bit for each of our formats
    uint16_t results = 0;     ///< likewise
    uint16_t sets_matrix = 0; ///< results whose YUV matrix can be chosen
    uint16_t sets_range = 0;  ///< results whose range can be chosen
    bool scales = false;
    bool rectangles = false;                                          ///< crop and compose
    bool hflip = false, vflip = false, rotate = false, alpha = false; ///< controls
    uint32_t smallest[2] = {0, 0};                                    ///< sides of a source, when the driver tells
    uint32_t largest[2] = {0, 0};
};

/// Opens a node and finds out whether it is a usable engine: 0, or -errno with the reason. `info` holds what was
/// learnt until then.
int examine_engine(const char* path, EngineInfo& info, Why& why);

/// One side of a conversion.
struct Side {
    tavi_pixel_format format = TAVI_PIXEL_FORMAT_GRAY8;
    int width = 0;
    int height = 0;
    Box box; ///< the part that is read or written
};

/// What a conversation is set to.
struct Setup {
    Side src, dst;
    tavi_image_transform_mode mode = TAVI_IMAGE_TRANSFORM_NONE;
};

bool same_layout(const Setup& a, const Setup& b); ///< formats, sizes and mode
bool same_boxes(const Setup& a, const Setup& b);

/// A DMA buffer, and what tells it from every other one however often its descriptor was duplicated.
struct Buffer {
    int fd = -1;
    uint64_t bytes = 0;
    dev_t device = 0;
    ino_t inode = 0;
};

inline bool same_buffer(const Buffer& a, const Buffer& b) { return a.inode == b.inode && a.device == b.device; }

class M2mContext {
public:
    M2mContext() = default;
    M2mContext(const M2mContext&) = delete;
    M2mContext& operator=(const M2mContext&) = delete;
    ~M2mContext() { close(); }

    bool is_open() const { return static_cast<bool>(fd_); }
    const Setup& setup() const { return setup_; }

    /// Makes the conversation ready for `setup`: nothing to do, new rectangles, or everything anew. 0, or -errno.
    int prepare(const EngineInfo& engine, const Setup& setup, Why& why);
    /// Whether that took opening the device.
    bool opened() const { return opened_; }
    /// One job; returns when the engine has let go of both buffers. On failure the context must be closed.
    int run(const Buffer& src, const Buffer& dst, Why& why);
    /// Stops a job that may be running, which waits for its end, and lets go of the last buffers.
    void close();
    /// Gives up a descriptor shared with the parent of this process, whose conversation goes on.
    void abandon() { fd_.reset(); }

private:
    enum Queue { kSource, kResult };
    struct Layout;

    uint32_t buffer_type(Queue queue) const;
    int set_controls(const Setup& setup, Why& why);
    int set_layout(Queue queue, const Side& side, const EngineInfo& engine, Why& why);
    int check_layout(Queue queue, const Layout& want, const Layout& got, Why& why);
    int set_box(Queue queue, const Side& side, bool may_set, Why& why); ///< sets, or only compares
    int verify(const Setup& setup, Why& why);
    int stream(bool on, Why& why);
    int open_new(const EngineInfo& engine, const Setup& setup, Why& why);
    int enqueue(Queue queue, const Buffer& buffer, Why& why);
    int dequeue(Queue queue, Why& why);

    UniqueFd fd_;
    bool multiplanar_ = false;
    bool opened_ = false;
    Setup setup_;
    uint64_t engine_bytes_[2] = {0, 0}; ///< what the engine may touch of each buffer
};

} // namespace tavi
