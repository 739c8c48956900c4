// SPDX-License-Identifier: MIT
// A memory-to-memory node, as the probe and the contexts see it: how it is opened, and its two queues.
#pragma once

#include <cerrno>
#include <cstdint>

#include <linux/videodev2.h>

#include "os/kernel_calls.h"

namespace tavi {

enum Queue { kSource, kResult };
constexpr Queue kQueues[] = {kSource, kResult};
constexpr const char* kQueueName[] = {"source", "result"};

/// The kernel names queues as its cameras and displays see them: an engine's source is an output.
inline uint32_t buffer_type(Queue queue, bool multiplanar) {
    if (multiplanar)
        return queue == kSource ? V4L2_BUF_TYPE_VIDEO_OUTPUT_MPLANE : V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE;
    return queue == kSource ? V4L2_BUF_TYPE_VIDEO_OUTPUT : V4L2_BUF_TYPE_VIDEO_CAPTURE;
}

/// A descriptor, or -errno.
inline int open_node(const char* path) {
    int fd;
    do {
        fd = kernel_calls().open(path);
    } while (fd == -EINTR);
    return fd;
}

} // namespace tavi
