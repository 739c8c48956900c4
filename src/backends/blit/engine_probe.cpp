// SPDX-License-Identifier: MIT
#include "backends/blit/engine_probe.h"

#include <cstdio>
#include <cstring>

#include "backends/blit/m2m_node.h"
#include "os/unique_fd.h"

namespace tavi {
namespace {

bool has_control(int fd, uint32_t id) {
    v4l2_queryctrl query{};
    query.id = id;
    return call_driver(fd, VIDIOC_QUERYCTRL, &query) == 0 && !(query.flags & V4L2_CTRL_FLAG_DISABLED);
}

/// Fills the formats of one side; `first` receives the V4L2 name of the first of them. 0, or -errno.
int list_formats(int fd, Queue queue, EngineInfo& info, uint32_t& first) {
    FormatSet& formats = queue == kSource ? info.sources : info.results;
    for (uint32_t i = 0; i < 256; ++i) { // a driver that never ends the list is not followed for ever
        v4l2_fmtdesc entry{};
        entry.index = i;
        entry.type = buffer_type(queue, info.multiplanar);
        const int error = call_driver(fd, VIDIOC_ENUM_FMT, &entry);
        if (error)
            return error == -EINVAL ? 0 : error; // the end of the list
        if (const int apart = format_of_fourcc(entry.pixelformat, true); apart >= 0)
            info.apart[queue].add(static_cast<uint32_t>(apart));
        const int format = format_of_fourcc(entry.pixelformat);
        if (format < 0 || (entry.flags & V4L2_FMT_FLAG_COMPRESSED))
            continue;
        if (formats.empty())
            first = entry.pixelformat;
        formats.add(format);
        if (queue == kResult && (entry.flags & V4L2_FMT_FLAG_CSC_YCBCR_ENC))
            info.sets_matrix.add(format);
        if (queue == kResult && (entry.flags & V4L2_FMT_FLAG_CSC_QUANTIZATION))
            info.sets_range.add(format);
    }
    return 0;
}

Refusal check_dma_buffers(int fd, Queue queue, const EngineInfo& info) {
    v4l2_requestbuffers request{};
    request.type = buffer_type(queue, info.multiplanar);
    request.memory = V4L2_MEMORY_DMABUF;
    if (const int error = call_driver(fd, VIDIOC_REQBUFS, &request))
        return Refusal::of_errno(error, queue == kSource ? "DMA buffers as source" : "DMA buffers as result");
    // No capabilities at all: a kernel that does not tell them yet.
    if (request.capabilities && !(request.capabilities & V4L2_BUF_CAP_SUPPORTS_DMABUF))
        return {TAVI_RET_UNSUPPORTED, "DMA buffers as %s: capabilities %#x, %#x is needed", kQueueName[queue],
                request.capabilities, unsigned{V4L2_BUF_CAP_SUPPORTS_DMABUF}};
    return {};
}

/// The size that a side settles on when asked for `side` x `side`.
uint32_t settled_width(int fd, Queue queue, bool multiplanar, uint32_t fourcc, uint32_t side) {
    v4l2_format f{};
    f.type = buffer_type(queue, multiplanar);
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
    info.scales = settled_width(fd, kSource, info.multiplanar, source_fourcc, 256) == 256 &&
                  settled_width(fd, kResult, info.multiplanar, result_fourcc, 128) == 128;
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

Refusal examine_engine(const char* path, EngineInfo& info) {
    info = EngineInfo();
    if (std::snprintf(info.path, sizeof(info.path), "%s", path) >= static_cast<int>(sizeof(info.path)))
        return {TAVI_RET_UNSUPPORTED, "path of %zu bytes, at most %zu are allowed", std::strlen(path),
                sizeof(info.path) - 1};
    const int opened = open_node(path);
    if (opened < 0)
        return Refusal::of_errno(opened, "open");
    const UniqueFd fd(opened);

    v4l2_capability capability{};
    if (const int error = call_driver(fd.get(), VIDIOC_QUERYCAP, &capability))
        return Refusal::of_errno(error, "no V4L2 device");
    std::snprintf(info.driver, sizeof(info.driver), "%.15s", reinterpret_cast<const char*>(capability.driver));
    std::snprintf(info.card, sizeof(info.card), "%.31s", reinterpret_cast<const char*>(capability.card));
    const uint32_t offered =
        (capability.capabilities & V4L2_CAP_DEVICE_CAPS) ? capability.device_caps : capability.capabilities;
    constexpr uint32_t kMemToMem = V4L2_CAP_VIDEO_M2M | V4L2_CAP_VIDEO_M2M_MPLANE;
    if (!(offered & kMemToMem) || !(offered & V4L2_CAP_STREAMING))
        return {TAVI_RET_UNSUPPORTED, "capabilities %#x: no memory-to-memory device that streams", offered};
    info.multiplanar = !(offered & V4L2_CAP_VIDEO_M2M);

    uint32_t source_fourcc = 0;
    uint32_t result_fourcc = 0;
    int error = list_formats(fd.get(), kSource, info, source_fourcc);
    if (!error)
        error = list_formats(fd.get(), kResult, info, result_fourcc);
    if (error)
        return Refusal::of_errno(error, "list of formats");
    if (info.sources.empty() || info.results.empty()) // codecs: one side is compressed
        return {TAVI_RET_UNSUPPORTED, "pictures of a known format: source %s, result %s; both are needed",
                info.sources.empty() ? "no" : "yes", info.results.empty() ? "no" : "yes"};
    for (const Queue queue : kQueues)
        if (const Refusal no = check_dma_buffers(fd.get(), queue, info))
            return no;
    learn_extras(fd.get(), source_fourcc, result_fourcc, info);
    return {};
}

} // namespace tavi
