// SPDX-License-Identifier: MIT
#include "backends/blit/blit_request.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>

#include <fcntl.h>

#include "image/letterbox.h"
#include "os/dma_sync.h"
#include "os/mapping.h"
#include "services/tavi_mem.h"

namespace tavi {
namespace {

constexpr int kNo = TAVI_RET_UNSUPPORTED;
constexpr uint64_t kPage = 4096;

bool is_whole(const Side& side) { return side.box.width == side.width && side.box.height == side.height; }

bool has_gaps(const Side& side) {
    const SidePlane p = plane_of(side, 0);
    return p.pitch > static_cast<uint32_t>(side.width) * find_format(side.format)->plane[0].step;
}

bool is_gray(const Side& side) { return find_format(side.format)->parts == 1; }

/// Keeps what the CPU wrote around the destination's rectangle, between its rows, and behind the picture in its
/// buffers. The import of a buffer as a destination throws away what is still in the caches only, and that cannot be
/// cleaned before: a heap cleans for devices that have the buffer, which the engine then does not. Newer kernels
/// import a buffer once, older ones for every job. Nor is it laid down that an engine leaves the end of a row alone.
class Surroundings {
public:
    explicit Surroundings(const Operand& dst) : dst_(dst) {}

    /// With `around` what is in the picture around the rectangle, too.
    Refusal save(bool around) {
        around_ = around;
        const size_t bytes = walk(Step::count);
        if (bytes == 0)
            return {};
        bool seen = true;
        for (int i = 0; i < dst_.side.buffers(); ++i) {
            if (!dst_.data || dst_.extent[i] > bytes_of(dst_.side, i))
                mapping_[i] = CpuMapping(dst_.memory[i].fd, static_cast<size_t>(dst_.extent[i]), Access::read_write);
            data_[i] = mapping_[i] ? mapping_[i].data() : dst_.data;
            seen = seen && data_[i] && mapping_[i].error() == 0;
        }
        saved_.reset(seen ? static_cast<uint8_t*>(std::malloc(bytes)) : nullptr);
        if (!saved_)
            return {TAVI_RET_FAIL, "no memory, or no mapping, to keep %zu bytes around the destination", bytes};
        walk(Step::save);
        return {};
    }

    void restore() {
        if (saved_)
            walk(Step::restore);
    }

private:
    enum class Step { count, save, restore };
    struct Free {
        void operator()(uint8_t* p) const { std::free(p); }
    };

    size_t walk(Step step) {
        step_ = step;
        at_ = 0;
        for (int i = 0; i < dst_.side.buffers(); ++i) {
            std::optional<DmaSync> pass;
            if (step != Step::count)
                pass.emplace(dst_.memory[i].fd, step == Step::save ? Access::read : Access::write);
            const uint64_t bytes = bytes_of(dst_.side, i);
            for (int k = 0; around_ && k < find_format(dst_.side.format)->planes; ++k)
                if (const SidePlane p = plane_of(dst_.side, k); p.buffer == i)
                    walk_plane(p);
            move(i, bytes, dst_.extent[i] - bytes);
        }
        return at_;
    }

    void walk_plane(const SidePlane& p) {
        uint64_t row = p.offset;
        for (uint32_t y = 0; y < p.rows; ++y, row += p.pitch) {
            const bool beside = y >= p.top && y < p.bottom;
            move(p.buffer, row, beside ? p.left : p.pitch);
            if (beside)
                move(p.buffer, row + p.right, p.pitch - p.right);
        }
    }

    void move(int buffer, uint64_t offset, uint64_t bytes) {
        const auto count = static_cast<size_t>(bytes);
        if (step_ == Step::save)
            std::memcpy(saved_.get() + at_, data_[buffer] + offset, count);
        else if (step_ == Step::restore)
            std::memcpy(data_[buffer] + offset, saved_.get() + at_, count);
        at_ += count;
    }

    const Operand& dst_;
    CpuMapping mapping_[2];
    uint8_t* data_[2] = {};
    bool around_ = false;
    Step step_ = Step::count;
    size_t at_ = 0; ///< in what is saved
    std::unique_ptr<uint8_t, Free> saved_;
};

} // namespace

bool lies_in_buffer(uint8_t* data, const Buffer& buffer, uint64_t offset, uint64_t& extent) {
    tavi_mem_record_t record;
    if (tavi_mem_get_record_by_virt_addr(data, 1, &record) != 0)
        return offset_in_buffer(data, buffer.fd) == static_cast<int64_t>(offset); // the application's own mapping
    Buffer own;
    extent = std::max<uint64_t>(record.size, extent);
    return static_cast<uint8_t*>(record.virt_addr) + offset == data &&
           (record.fd == buffer.fd || (identify_buffer(record.fd, own) && same_buffer(own, buffer)));
}

void Operand::complete_extents() {
    for (int i = 0; i < side.buffers(); ++i) {
        const uint64_t bytes = bytes_of(side, i);
        extent[i] = std::max(extent[i], bytes);
        // Less than a page more is what the kernel rounded up, not what anybody uses.
        if (memory[i].bytes - bytes >= kPage)
            extent[i] = memory[i].bytes;
    }
}

Refusal find_engine(tavi_image_transform_mode mode, Request& r) {
    if (!ContextPool::instance().engine(r.engine))
        return {kNo, "no engine"};
    if (mode < TAVI_IMAGE_TRANSFORM_NONE || mode > TAVI_IMAGE_TRANSFORM_ROTATE_180)
        // Which way V4L2_CID_ROTATE turns is not laid down, and drivers differ; a wrong turn would go unnoticed.
        return {kNo, "transform mode %d: 0 to 3 are given to engines, whose quarter turns may go either way", mode};
    r.mode = mode;
    return {};
}

Refusal check_operands(const Request& r) {
    const Memory &src = r.src.memory, &dst = r.dst.memory;
    for (int i = 0; i < r.dst.side.buffers(); ++i) {
        for (int k = 0; k < r.src.side.buffers(); ++k)
            if (same_buffer(src[k], dst[i]))
                return {kNo, "fd=%d and fd=%d are one buffer, two are needed", src[k].fd, dst[i].fd};
        if ((::fcntl(dst[i].fd, F_GETFL) & O_ACCMODE) == O_RDONLY) // drivers import it and write all the same
            return {kNo, "%s fd=%d is open for reading only", r.dst.name, dst[i].fd};
    }
    if ((is_gray(r.src.side) || is_gray(r.dst.side)) && r.src.side.format != r.dst.side.format)
        return {kNo, "format %u to %u: what engines take for grey is not laid down",
                static_cast<unsigned>(r.src.side.format), static_cast<unsigned>(r.dst.side.format)};
    for (const Operand* o : {&r.src, &r.dst}) {
        // The CPU's pixels reach memory before the engine looks at it.
        for (int i = 0; i < o->side.buffers(); ++i)
            if (const int error = clean_for_device(o->memory[i].fd))
                return {kNo, "fd=%d is no DMA buffer, or not a sound one: %s", o->memory[i].fd,
                        std::strerror(-error)};
    }
    return {};
}

Refusal take_box(const Box& box, Operand& o) {
    // In 64 bits: the edges are the caller's and may be anything.
    if (box.x < 0 || box.y < 0 || box.width < 1 || box.height < 1 || int64_t{box.x} + box.width > o.side.width ||
        int64_t{box.y} + box.height > o.side.height)
        return Refusal(kNo, "%s rectangle (%d %d) %dx%d is not inside %dx%d", o.name, box.x, box.y, box.width,
                       box.height, o.side.width, o.side.height);
    const ChromaGrid grid = chroma_grid(*find_format(o.side.format));
    if ((box.x | box.width) % grid.x || (box.y | box.height) % grid.y)
        return Refusal(kNo, "%s rectangle (%d %d) %dx%d: multiples of %dx%d are needed, engines move other ones",
                       o.name, box.x, box.y, box.width, box.height, grid.x, grid.y);
    o.side.box = box;
    return {};
}

Refusal run_request(Request& r, bool keep_rest) {
    Surroundings rest(r.dst);
    Refusal no;
    {
        ContextPool::Lease lease = ContextPool::instance().lease(r.setup());
        if (!lease)
            return lease.refusal();
        no = rest.save(keep_rest && (!is_whole(r.dst.side) || has_gaps(r.dst.side)));
        if (no)
            return no;
        r.opened = lease.opened();
        no = lease.run(r.src.memory, r.dst.memory);
    }
    for (int i = 0; i < r.dst.side.buffers(); ++i)
        if (const int stale = discard_after_device(r.dst.memory[i].fd); stale && !no)
            no = {TAVI_RET_FAIL, "result buffer fd=%d cannot be made visible: %s", r.dst.memory[i].fd,
                  std::strerror(-stale)};
    rest.restore();
    return no;
}

Summary::Summary(const Request& r) {
    char sides[2][80];
    const Side* const side[] = {&r.src.side, &r.dst.side};
    for (int i = 0; i < 2; ++i) {
        const Side& s = *side[i];
        const Format& f = *find_format(s.format);
        std::snprintf(sides[i], sizeof(sides[i]), "%.*s %dx%d (%d %d) %dx%d", static_cast<int>(f.name.size()),
                      f.name.data(), s.width, s.height, s.box.x, s.box.y, s.box.width, s.box.height);
    }
    std::snprintf(text, sizeof(text), "%.63s: %s to %s, mode %d, context %s", r.engine.path, sides[0], sides[1],
                  r.mode, r.opened ? "opened" : "kept from before");
}

} // namespace tavi
