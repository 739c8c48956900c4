// SPDX-License-Identifier: MIT
// The contract of the blit engine: checks what the engine must not be trusted with, runs the job, and says why not
// when it refuses. Every refusal is one INFO line with the check that failed and both values.
#define TAVI_LOG_TAG "tavi-blit"
#include "backends/blit/tavi_blit.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <fcntl.h>

#include "backends/blit/blit_formats.h"
#include "backends/blit/context_pool.h"
#include "image/letterbox.h"
#include "image/numbers.h"
#include "os/dma_sync.h"
#include "os/mapping.h"
#include "pixels/fill.h"
#include "services/log.h"
#include "services/tavi_mem.h"
#include "services/yuv_setting.h"

namespace tavi {
namespace {

/// One image of a request, found fit for an engine.
struct Operand {
    tavi_image_t* record = nullptr;
    Side side;
    Buffer buffer;
    uint64_t bytes = 0;
    uint64_t extent = 0; ///< bytes of the buffer that may hold something, the image's first
};

constexpr uint64_t kPage = 4096;

/// Whether `data` is the first byte of the buffer behind `fd`. A deep clone keeps the descriptor of its source, and a
/// region may start inside a buffer: an engine would work on the wrong picture.
bool owns_descriptor(const tavi_image_t& image, const Buffer& buffer, uint64_t& extent) {
    tavi_mem_record_t record;
    if (tavi_mem_get_record_by_virt_addr(image.data, 1, &record) != 0)
        return offset_in_buffer(image.data, image.fd) == 0; // memory that the application mapped itself
    Buffer own;
    extent = std::max<uint64_t>(record.size, extent);
    return record.virt_addr == image.data &&
           (record.fd == image.fd || (identify_buffer(record.fd, own) && same_buffer(own, buffer)));
}

Refusal take_operand(tavi_image_t* image, const char* name, const FormatSet& offered, Operand& o) {
    constexpr int kNo = TAVI_RET_UNSUPPORTED;
    if (!image)
        return {kNo, "%s record is null", name};
    if (!offered.has(image->pixel_format))
        return {kNo, "%s format: %u was asked for, the engine has those of mask %#x", name,
                static_cast<unsigned>(image->pixel_format), offered.mask()};
    if (const char* problem = why_not_viewable(image->pixel_format, image->width, image->height))
        return {kNo, "%s size %ux%u: %s", name, image->width, image->height, problem};
    const Format& format = *find_format(image->pixel_format);
    const ChromaGrid grid = chroma_grid(format);
    if (image->width % grid.x || image->height % grid.y)
        return Refusal(kNo, "%s size %ux%u: multiples of %dx%d are needed, engines round other ones", name,
                       image->width, image->height, grid.x, grid.y);
    if (!identify_buffer(image->fd, o.buffer))
        return {kNo, "%s fd=%d: the descriptor of a DMA buffer, 1 or more, is needed", name, image->fd};
    o.bytes = byte_count(format, image->width, image->height);
    if (o.buffer.bytes < o.bytes)
        return {kNo, "%s buffer: it has %llu bytes, the image has %llu", name,
                static_cast<unsigned long long>(o.buffer.bytes), static_cast<unsigned long long>(o.bytes)};
    o.extent = o.bytes;
    if (image->data && !owns_descriptor(*image, o.buffer, o.extent))
        return {kNo, "%s data=%p is not the start of the buffer behind fd=%d", name, static_cast<void*>(image->data),
                image->fd};
    // Less than a page more is what the kernel rounded up, not what anybody uses.
    if (o.buffer.bytes - o.bytes >= kPage)
        o.extent = o.buffer.bytes;
    o.record = image;
    o.side.format = image->pixel_format;
    o.side.width = static_cast<int>(image->width);
    o.side.height = static_cast<int>(image->height);
    o.side.box = Box{0, 0, o.side.width, o.side.height};
    return {};
}

Refusal take_box(const Box& box, const char* name, Operand& o) {
    // In 64 bits: the edges are the caller's and may be anything.
    if (box.x < 0 || box.y < 0 || box.width < 1 || box.height < 1 || int64_t{box.x} + box.width > o.side.width ||
        int64_t{box.y} + box.height > o.side.height)
        return Refusal(TAVI_RET_UNSUPPORTED, "%s rectangle (%d %d) %dx%d is not inside %dx%d", name, box.x, box.y,
                       box.width, box.height, o.side.width, o.side.height);
    const ChromaGrid grid = chroma_grid(*find_format(o.side.format));
    if ((box.x | box.width) % grid.x || (box.y | box.height) % grid.y)
        return Refusal(TAVI_RET_UNSUPPORTED,
                       "%s rectangle (%d %d) %dx%d: multiples of %dx%d are needed, engines move other ones", name,
                       box.x, box.y, box.width, box.height, grid.x, grid.y);
    o.side.box = box;
    return {};
}

bool is_whole(const Side& side) { return side.box.width == side.width && side.box.height == side.height; }

bool is_gray(const Side& side) { return find_format(side.format)->parts == 1; }

/// A request that passed every check that needs no engine at hand.
struct Request {
    EngineInfo engine;
    Operand src, dst;
    tavi_image_transform_mode mode = TAVI_IMAGE_TRANSFORM_NONE;
    bool opened = false; ///< the engine was opened for it

    Setup setup() const { return {src.side, dst.side, mode, yuv_setting()}; }
};

Refusal make_request(tavi_image_t* src, tavi_image_t* dst, tavi_image_transform_mode mode, Request& r) {
    constexpr int kNo = TAVI_RET_UNSUPPORTED;
    if (!ContextPool::instance().engine(r.engine))
        return {kNo, "no engine"};
    if (mode < TAVI_IMAGE_TRANSFORM_NONE || mode > TAVI_IMAGE_TRANSFORM_ROTATE_180)
        // Which way V4L2_CID_ROTATE turns is not laid down, and drivers differ; a wrong turn would go unnoticed.
        return {kNo, "transform mode %d: 0 to 3 are given to engines, whose quarter turns may go either way", mode};
    r.mode = mode;
    if (const Refusal no = take_operand(src, "source", r.engine.sources, r.src))
        return no;
    if (const Refusal no = take_operand(dst, "destination", r.engine.results, r.dst))
        return no;
    if (same_buffer(r.src.buffer, r.dst.buffer))
        return {kNo, "fd=%d and fd=%d are one buffer, two are needed", src->fd, dst->fd};
    if ((::fcntl(dst->fd, F_GETFL) & O_ACCMODE) == O_RDONLY) // drivers import it and write all the same
        return {kNo, "destination fd=%d is open for reading only", dst->fd};
    if ((is_gray(r.src.side) || is_gray(r.dst.side)) && r.src.side.format != r.dst.side.format)
        return {kNo, "format %u to %u: what engines take for grey is not laid down",
                static_cast<unsigned>(src->pixel_format), static_cast<unsigned>(dst->pixel_format)};
    for (const Operand* o : {&r.src, &r.dst}) {
        // The CPU's pixels reach memory before the engine looks at it.
        if (const int error = clean_for_device(o->buffer.fd))
            return {kNo, "fd=%d is no DMA buffer, or not a sound one: %s", o->buffer.fd, std::strerror(-error)};
    }
    return {};
}

/// Keeps what the CPU wrote around the destination's rectangle, and behind the image in its buffer. The import of a
/// buffer as a destination throws away what is still in the caches only, and that cannot be cleaned before: a heap
/// cleans for devices that have the buffer, which the engine then does not. Newer kernels import a buffer once, older
/// ones for every job.
class Surroundings {
public:
    /// With `around` what is in the image around the rectangle, too.
    Refusal save(const Operand& dst, bool around) {
        around_ = around;
        begin_ = around ? 0 : static_cast<size_t>(dst.bytes);
        if (begin_ >= dst.extent)
            return {};
        const auto end = static_cast<size_t>(dst.extent);
        if (!dst.record->data || dst.extent > dst.bytes)
            mapping_ = CpuMapping(dst.buffer.fd, end, Access::read_write);
        data_ = mapping_ ? mapping_.data() : dst.record->data;
        saved_.reset(data_ && mapping_.error() == 0 ? static_cast<uint8_t*>(std::malloc(end - begin_)) : nullptr);
        if (!saved_)
            return {TAVI_RET_FAIL, "no memory, or no mapping, to keep %zu bytes around the destination",
                    end - begin_};
        const DmaSync pass(dst.buffer.fd, Access::read);
        std::memcpy(saved_.get(), data_ + begin_, end - begin_);
        return {};
    }

    void restore(const Operand& dst) {
        if (!saved_)
            return;
        const DmaSync pass(dst.buffer.fd, Access::write);
        const auto bytes = static_cast<size_t>(dst.bytes);
        std::memcpy(data_ + bytes, saved_.get() + (bytes - begin_), static_cast<size_t>(dst.extent) - bytes);
        if (!around_)
            return;
        const Side& side = dst.side;
        const ImageView from = make_view(saved_.get(), side.format, side.width, side.height);
        const ImageView to = make_view(data_, side.format, side.width, side.height);
        const Box& b = side.box;
        const Box boxes[] = {{0, 0, side.width, b.y},
                             {0, b.y + b.height, side.width, side.height - b.y - b.height},
                             {0, b.y, b.x, b.height},
                             {b.x + b.width, b.y, side.width - b.x - b.width, b.height}};
        for (const Box& box : boxes)
            copy(crop(from, box), crop(to, box));
    }

private:
    struct Free {
        void operator()(uint8_t* p) const { std::free(p); }
    };

    static void copy(const ImageView& from, const ImageView& to) {
        for (int i = 0; i < from.planes(); ++i) {
            const PlaneView& p = from.plane[i];
            for (int y = 0; y < p.rows; ++y)
                std::memcpy(to.plane[i].row(y), p.row(y), static_cast<size_t>(p.cols) * p.step);
        }
    }

    CpuMapping mapping_;
    uint8_t* data_ = nullptr;
    size_t begin_ = 0; ///< of what is saved
    bool around_ = false;
    std::unique_ptr<uint8_t, Free> saved_;
};

/// Runs a request. With `keep_rest` the destination's pixels outside its rectangle survive, also when it fails.
Refusal run_request(Request& r, bool keep_rest) {
    Surroundings rest;
    Refusal no;
    {
        ContextPool::Lease lease = ContextPool::instance().lease(r.setup());
        if (!lease)
            return lease.refusal();
        no = rest.save(r.dst, keep_rest && !is_whole(r.dst.side));
        if (no)
            return no;
        r.opened = lease.opened();
        no = lease.run(r.src.buffer, r.dst.buffer);
    }
    if (const int stale = discard_after_device(r.dst.buffer.fd); stale && !no)
        no = {TAVI_RET_FAIL, "result buffer fd=%d cannot be made visible: %s", r.dst.buffer.fd,
              std::strerror(-stale)};
    rest.restore(r.dst);
    return no;
}

/// What was done, in words, for the line that says so.
struct Summary {
    char text[300];
    explicit Summary(const Request& r) {
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
};

Box box_of(const tavi_rect_t& rect) {
    return {rect.left, rect.top, inclusive_span(rect.left, rect.right), inclusive_span(rect.top, rect.bottom)};
}

Letterbox letterbox_of(const Request& r, LetterboxPosition position) {
    const Side &s = r.src.side, &d = r.dst.side;
    return letterbox_geometry(s.width, s.height, d.width, d.height, chroma_grid(*find_format(d.format)), position);
}

Box box_of(const Letterbox& l) { return {l.x, l.y, l.width, l.height}; }

Refusal letterbox(tavi_image_t* src, tavi_image_t* dst, LetterboxPosition position, uint32_t color, Request& r,
                  Letterbox& picture) {
    if (const Refusal no = make_request(src, dst, TAVI_IMAGE_TRANSFORM_NONE, r))
        return no;
    picture = letterbox_of(r, position);
    if (const Refusal no = take_box(box_of(picture), "destination", r.dst))
        return no;
    // Mapped before the job: once it has run, nothing may fail any more.
    CpuMapping mapping;
    if (!dst->data)
        mapping = CpuMapping(dst->fd, static_cast<size_t>(r.dst.bytes), Access::read_write);
    uint8_t* const data = dst->data ? dst->data : mapping.data();
    if (!data)
        return {TAVI_RET_FAIL, "destination fd=%d cannot be mapped for its padding: %s", dst->fd,
                std::strerror(mapping.error())};
    if (const Refusal no = run_request(r, false))
        return no;
    // After the job: the import of a buffer throws away what the CPU wrote before it.
    const DmaSync pass(dst->fd, Access::write);
    const Side& side = r.dst.side;
    paint_padding(make_view(data, *find_format(side.format), side.width, side.height, yuv_setting()), box_of(picture),
                  color);
    return {};
}

} // namespace
} // namespace tavi

using namespace tavi;

int is_blit_support() {
    EngineInfo info;
    return ContextPool::instance().engine(info) ? 1 : 0;
}

int tavi_image_convert_blit(tavi_image_t* src, tavi_image_t* dst, tavi_image_transform_mode mode) {
    Request r;
    Refusal no = make_request(src, dst, mode, r);
    if (!no)
        no = run_request(r, false);
    if (no)
        LOG_INFO("refused: %s", no.text);
    else
        LOG_INFO("done by the engine %s", Summary(r).text);
    return no.code;
}

int tavi_image_convert_blit_with_crop(tavi_image_t* src, tavi_rect_t* src_rect, tavi_image_t* dst,
                                      tavi_rect_t* dst_rect, tavi_image_transform_mode mode) {
    if (!src_rect || !dst_rect) {
        LOG_INFO("refused: src_rect=%p dst_rect=%p, both are needed", static_cast<void*>(src_rect),
                 static_cast<void*>(dst_rect));
        return TAVI_RET_PARAM_ERR;
    }
    Request r;
    Refusal no = make_request(src, dst, mode, r);
    if (!no)
        no = take_box(box_of(*src_rect), "source", r.src);
    if (!no)
        no = take_box(box_of(*dst_rect), "destination", r.dst);
    if (!no)
        no = run_request(r, true);
    if (no)
        LOG_INFO("refused: %s", no.text);
    else
        LOG_INFO("done by the engine %s", Summary(r).text);
    return no.code;
}

// Nobody retries a letterbox in software once this says yes, so the engine itself is asked, down to the rectangles.
// The context stays open: the conversion that follows finds it as it needs it.
int tavi_blit_keep_ratio_resize_check(tavi_image_t* src, tavi_image_t* dst, int) {
    Request r;
    Refusal no = make_request(src, dst, TAVI_IMAGE_TRANSFORM_NONE, r);
    if (!no)
        no = take_box(box_of(letterbox_of(r, LetterboxPosition::centre)), "destination", r.dst);
    if (!no)
        no = ContextPool::instance().lease(r.setup()).refusal();
    if (no)
        LOG_INFO("refused: %s", no.text);
    return !no;
}

int tavi_image_convert_keep_ratio_by_blit(tavi_image_t* src, tavi_image_t* dst, int param0, int param1, float* out0,
                                          float* out1, float* out2, float* out3, int) {
    if (param1 < 0 || param1 > 2) {
        LOG_ERROR("position param1=%d: allowed are 0 (centre), 1 (top-left) and 2 (bottom-right)", param1);
        return TAVI_RET_PARAM_ERR;
    }
    // Nobody repeats a letterbox in software: what failed is tried once more, by a context opened anew.
    Refusal said;
    for (int attempt = 0; attempt < 2; ++attempt) {
        Request r;
        Letterbox picture = {};
        if (const Refusal no = letterbox(src, dst, static_cast<LetterboxPosition>(param1),
                                         static_cast<uint32_t>(param0), r, picture)) {
            if (std::strcmp(no.text, said.text) != 0) // one line for what is refused both times
                LOG_INFO("refused: %s", no.text);
            said = no;
            continue;
        }
        LOG_INFO("done by the engine %s", Summary(r).text);
        if (out0)
            *out0 = picture.scale_x;
        if (out1)
            *out1 = picture.scale_y;
        if (out2)
            *out2 = static_cast<float>(picture.x);
        if (out3)
            *out3 = static_cast<float>(picture.y);
        return TAVI_RET_SUCCESS;
    }
    return TAVI_RET_FAIL;
}
