// SPDX-License-Identifier: MIT
#include "pixels/plan.h"

#include <cstdio>
#include <utility>

#include "pixels/even.h"

namespace tavi {
namespace {

const Format& kGray8 = kFormats[TAVI_PIXEL_FORMAT_GRAY8];
const Format& kRgb = kFormats[TAVI_PIXEL_FORMAT_RGB888];

bool is_gray(const Format& f) { return f.model == Model::gray; }

/// Packed 4:2:2 taken apart, so that each plane can be worked on for itself.
const Format& unpacked(const Format& f) {
    const Format* const pairs = f.packed() ? find_yuv(2, f.xshift(), f.yshift(), false) : nullptr;
    return pairs ? *pairs : f;
}

/// What a mode does: rows and columns exchanged, and before or after that sides exchanged.
struct Moves {
    bool flip_first, transpose, mirror, flip_last;
    bool reverses_x, reverses_y; ///< of the picture before the transposition
};

Moves moves_of(tavi_image_transform_mode mode) {
    switch (mode) {
    case TAVI_IMAGE_TRANSFORM_FLIP_H:
        return {false, false, true, false, true, false};
    case TAVI_IMAGE_TRANSFORM_FLIP_V:
        return {false, false, false, true, false, true};
    case TAVI_IMAGE_TRANSFORM_ROTATE_180:
        return {false, false, true, true, true, true};
    case TAVI_IMAGE_TRANSFORM_ROTATE_90:
        return {true, true, false, false, false, true};
    case TAVI_IMAGE_TRANSFORM_ROTATE_270:
        return {false, true, false, true, true, false};
    case TAVI_IMAGE_TRANSFORM_TRANSPOSE:
        return {false, true, false, false, false, false};
    default:
        return {};
    }
}

/// The next format on the way to another one.
const Format& next_towards(const Format& from, const Format& to) {
    if (converts_directly(from, to))
        return to;
    const auto full_chroma = [](const Format& f) { return f.is_yuv() && !f.subsampled(); };
    if (full_chroma(from))
        return kRgb;
    if (from.bits == 16 || to.bits == 16)
        return kGray8;
    if (full_chroma(to))
        return kRgb;
    // Between packed and pairs in the order V U, or on another grid: pairs in the order U V.
    return *find_yuv(2, 1, from.packed() ? to.yshift() : from.yshift(), false);
}

class Builder {
public:
    explicit Builder(const PlanRequest& r)
        : request_(r), dst_(*r.dst_format), current_(r.src_format), width_(r.src_width), height_(r.src_height) {}

    Plan build() {
        const bool turned = exchanges_sides(request_.mode);
        const int width = turned ? request_.dst_height : request_.dst_width;
        const int height = turned ? request_.dst_width : request_.dst_height;
        const Box& box = request_.box;
        const bool scales =
            box.x || box.y || box.width != width_ || box.height != height_ || width != width_ || height != height_;
        if (is_gray(dst_) && current_->is_yuv() && (scales || request_.mode != TAVI_IMAGE_TRANSFORM_NONE)) {
            if (current_->packed())
                convert(kGray8);
            else
                add(StepKind::luma, kGray8);
        }
        if (scales)
            scale(width, height);
        transform();
        recolour();
        convert(dst_);
        if (moved_as_they_are_ && rounds_otherwise(request_.dst_chroma_up, dst_))
            add(StepKind::convert, dst_);
        return plan_;
    }

private:
    void add(StepKind kind, const Format& format) {
        current_ = &format;
        plan_.step[plan_.count++] = {kind, current_, width_, height_};
        moved_as_they_are_ = kind == StepKind::mirror || kind == StepKind::transpose || kind == StepKind::recolour ||
                             (kind == StepKind::flip && moved_as_they_are_);
        passed_rgb_ = passed_rgb_ || format.model == Model::rgb;
    }

    /// Planes are worked on one by one: odd ones that are counted in another way are copied before, and after.
    void even_out_rounding() {
        if (plan_.count == 0 && rounds_otherwise(request_.src_chroma_up, *current_))
            add(StepKind::convert, *current_);
    }

    /// What goes through RGB gets the destination's colours there.
    void recolour() {
        if (!TAVI_WITH_FRAMES || !request_.recolours || passed_rgb_ || !current_->is_yuv() || !current_->subsampled())
            return;
        convert(unpacked(*current_));
        even_out_rounding();
        add(StepKind::recolour, *current_);
    }

    void convert(const Format& to) {
        while (current_ != &to)
            add(StepKind::convert, next_towards(*current_, to));
    }

    /// Whether a picture that stands in between has a chroma sample.
    bool holds(const Format& f, int width, int height) const {
        const bool up = request_.src_chroma_up || request_.dst_chroma_up;
        return samples_along(width, f.xshift(), up) > 0 && samples_along(height, f.yshift(), up) > 0;
    }

    /// The current layout, not packed, on another chroma grid; of the destination's order where that costs nothing.
    const Format* on_grid(int xshift, int yshift, int bits = 8) const {
        const Format& f = unpacked(*current_);
        const bool swapped = f.planes == 2 ? f.swapped() : dst_.planes == 3 && dst_.swapped() && bits == 8;
        return find_yuv(f.planes, xshift, yshift, swapped, bits);
    }

    /// Chroma goes straight to the result's grid: for RGB that is each pixel.
    const Format* scaled_yuv(int width, int height, bool shrinks) {
        const Format* const grid = dst_.is_yuv() ? on_grid(dst_.xshift(), dst_.yshift()) : nullptr;
        // Rows of chroma that the result has no place for are averaged before much of them is skipped.
        const bool averages = grid && shrinks && grid->yshift() > current_->yshift() && holds(*grid, width_, height_);
        convert(averages ? *grid : unpacked(*current_));
        return grid && holds(*grid, width, height) ? grid : on_grid(0, 0, 16);
    }

    void scale(int width, int height) {
        const bool shrinks = int64_t{width} * height < int64_t{request_.box.width} * request_.box.height;
        const Format* result = nullptr;
        if (current_->is_yuv() && (shrinks || dst_.is_yuv() || request_.sited)) {
            result = scaled_yuv(width, height, shrinks);
        } else {
            // In the format in which less is lost, then with fewer bytes. Chroma is made after scaling.
            const bool deepens = is_gray(dst_) && dst_.bits == 16;
            if (deepens || (!shrinks && !dst_.is_yuv() && (dst_.parts <= current_->parts || current_->is_yuv())))
                convert(dst_);
            result = current_;
        }
        width_ = width;
        height_ = height;
        add(StepKind::scale, *result);
    }

    /// Whether a picture of a format keeps its chroma in place through the mode.
    bool keeps_chroma(const Format& f, const Moves& m) const {
        return !((m.reverses_x && width_ % (1 << f.xshift())) || (m.reverses_y && height_ % (1 << f.yshift())) ||
                 (m.transpose && f.xshift() != f.yshift()));
    }

    /// The format to move pixels in: the lighter of those on both sides in which no chroma moves.
    const Format& format_to_move_in(const Moves& m) const {
        const Format &from = unpacked(*current_), &to = unpacked(dst_);
        const bool to_fits = holds(to, width_, height_);
        const bool saves_unpacking = current_->packed() != dst_.packed();
        const bool to_is_lighter =
            to_fits && (saves_unpacking ? current_->packed()
                                        : to.bits_per_pixel < from.bits_per_pixel ||
                                              (to.bits_per_pixel == from.bits_per_pixel && from.is_yuv()));
        const Format &first = to_is_lighter ? to : from, &second = to_is_lighter || !to_fits ? from : to;
        return keeps_chroma(first, m) || !keeps_chroma(second, m) ? first : second;
    }

    void transform() {
        const Moves m = moves_of(request_.mode);
        if (!m.mirror && !m.transpose && !m.flip_last)
            return;
        if (!m.mirror && !m.transpose && keeps_chroma(dst_, m)) { // written from the bottom up
            convert(dst_);
        } else {
            convert(format_to_move_in(m));
        }
        if (m.transpose && !holds(*current_, height_, width_))
            convert(kRgb); // a picture of one row or column has no chroma sample
        even_out_rounding();
        if (m.flip_first)
            add(StepKind::flip, *current_);
        if (m.mirror)
            add(StepKind::mirror, *current_);
        if (m.transpose) {
            std::swap(width_, height_);
            add(StepKind::transpose, *current_);
        }
        if (m.flip_last)
            add(StepKind::flip, *current_);
    }

    /// Whether chroma planes of the current size are larger where both sides meet than on one of them.
    bool rounds_otherwise(bool chroma_up, const Format& f) const {
        const bool odd = width_ % (1 << f.xshift()) || height_ % (1 << f.yshift());
        return odd && chroma_up != (request_.src_chroma_up || request_.dst_chroma_up);
    }

    const PlanRequest& request_;
    const Format& dst_;
    const Format* current_;
    int width_, height_;
    bool moved_as_they_are_ = false; ///< the last step's planes are those of its source
    bool passed_rgb_ = false;
    Plan plan_;
};

} // namespace

bool is_transform_mode(tavi_image_transform_mode mode) {
    return (mode >= 0 && mode <= 4) || mode == TAVI_IMAGE_TRANSFORM_ROTATE_270 ||
           mode == TAVI_IMAGE_TRANSFORM_TRANSPOSE;
}

Plan make_plan(const PlanRequest& request) { return Builder(request).build(); }

PlanText::PlanText(const Plan& plan, const Format& src_format) {
    std::snprintf(text, sizeof text, "copy");
    const Format* from = &src_format;
    int at = 0;
    for (int i = 0; i < plan.count; ++i) {
        const Step& s = plan.step[i];
        const char *const before = from->name.data(), *const after = s.format->name.data();
        const int room = static_cast<int>(sizeof text) - at;
        const char* const gap = i ? "; " : "";
        int length = 0;
        switch (s.kind) {
        case StepKind::convert:
            length = std::snprintf(text + at, room, "%s%s>%s", gap, before, after);
            break;
        case StepKind::scale:
            length =
                from == s.format
                    ? std::snprintf(text + at, room, "%sscale %s %dx%d", gap, after, s.width, s.height)
                    : std::snprintf(text + at, room, "%sscale %s>%s %dx%d", gap, before, after, s.width, s.height);
            break;
        case StepKind::recolour:
            length = std::snprintf(text + at, room, "%srecolour %s", gap, after);
            break;
        case StepKind::luma:
            length = std::snprintf(text + at, room, "%sluma of %s", gap, before);
            break;
        case StepKind::mirror:
            length = std::snprintf(text + at, room, "%smirror %s", gap, after);
            break;
        case StepKind::flip:
            length = std::snprintf(text + at, room, "%sflip %s", gap, after);
            break;
        case StepKind::transpose:
            length = std::snprintf(text + at, room, "%stranspose %s", gap, after);
            break;
        }
        if (length < 0 || length >= room)
            return; // cut short
        at += length;
        from = s.format;
    }
}

} // namespace tavi
