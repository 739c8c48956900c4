// SPDX-License-Identifier: MIT
// Runs plans: pulls bands of rows through the steps, so that what lies between two steps stays in the second-level
// cache. Only the last step writes to the destination.
#include "pixels/convert.h"

#include <algorithm>

#include "pixels/image_scaler.h"
#include "pixels/odd_edges.h"
#include "pixels/plan.h"
#include "pixels/recolour.h"
#include "pixels/turn.h"

#define TAVI_LOG_TAG "tavi-libyuv"
#include "services/log.h"

namespace tavi {
namespace {

constexpr int kBandBytes = 96 * 1024; // of temporaries per band; second-level caches start at 256 KiB
constexpr int kStripColumns = 32;     // columns of the result per transposed strip

// The next band: an odd last row or column, which has no chroma of its own, goes with those before it.
int band_length(int most, int left) { return left <= most + 1 ? left : most; }

/// Luma as a grey picture.
ImageView luma_view(const ImageView& v) {
    ImageView luma = v;
    luma.format = &kFormats[TAVI_PIXEL_FORMAT_GRAY8];
    return luma;
}

} // namespace

/// Memory for part of a step's result; an empty view when there is none.
ImageView ConversionRun::take(Scratch& scratch, int index, int width, int height) const {
    const Format& format = *step_[index].format;
    const ColorSpace color = index < first_recoloured_ ? conversion_.src_color : conversion_.dst_color;
    uint8_t* pixels = scratch.take<uint8_t>(packed_bytes(format, width, height, chroma_up_));
    return pixels ? make_view(pixels, format, width, height, color, chroma_up_) : ImageView();
}

// The rows [rows.begin, rows.end) of the result of step `index` - 1, or of the source.
bool ConversionRun::pull(int index, RowRange rows, Scratch& scratch, ImageView& in) {
    const int length = rows.end - rows.begin;
    if (index == 0) {
        in = rows_of(src_, rows.begin, length);
        return true;
    }
    const Step& s = step_[index - 1];
    if (s.kind == StepKind::flip) {
        if (!pull(index - 1, {s.height - rows.end, s.height - rows.begin}, scratch, in))
            return false;
        in = flip_rows(in);
        return true;
    }
    // Bands of 4:2:0 pictures start at even rows; an odd last row uses the chroma of the rows above.
    int first = rows.begin & ~1;
    if (first == s.height - 1 && first > 0)
        first -= 2;
    const int end = std::min((rows.end + 1) & ~1, s.height);
    const ImageView band = take(scratch, index - 1, s.width, end - first);
    if (!band || !produce(index - 1, first, band))
        return false;
    in = rows_of(band, rows.begin - first, length);
    return true;
}

// Of the first step's result what the scaler needs of `rows` for `count` rows from `first` on: where it skips most of
// them, they are not converted.
bool ConversionRun::convert_needed_rows(RowRange rows, int first, int count, Scratch& scratch, ImageView& in) {
    const Step& s = step_[0];
    const RowRange one = scaler_.source_rows(first, first + 1);
    const bool by_rows = src_.format->yshift() == 0 && s.format->yshift() == 0;
    if (!by_rows || 2 * (one.end - one.begin) * count > rows.end - rows.begin)
        return pull(1, rows, scratch, in);
    in = take(scratch, 0, s.width, rows.end - rows.begin);
    if (!in)
        return false;
    for (int y = first; y < first + count; ++y) {
        const RowRange r = scaler_.source_rows(y, y + 1);
        const int length = r.end - r.begin;
        if (!convert_image(rows_of(src_, r.begin, length), rows_of(in, r.begin - rows.begin, length)))
            return false;
    }
    return true;
}

// Writes the rows [first, first + out.height) of the result of step `index`.
bool ConversionRun::produce(int index, int first, const ImageView& out) {
    const Step& s = step_[index];
    Scratch scratch;
    ImageView in;
    if (s.kind == StepKind::scale) {
        const RowRange rows = index == 0 ? RowRange{0, src_.height} : scaler_.source_rows(first, first + out.height);
        const bool done = index == 1 && step_[0].kind == StepKind::convert
                              ? convert_needed_rows(rows, first, out.height, scratch, in)
                              : pull(index, rows, scratch, in);
        if (done)
            scaler_.run(in, rows.begin, first, out);
        return done;
    }
    if (!pull(index, {first, first + out.height}, scratch, in))
        return false;
    if (s.kind == StepKind::convert)
        return convert_image(in, out);
    if (TAVI_WITH_FRAMES && s.kind == StepKind::recolour)
        return recolour_image(in, out);
    mirror_image(in, out);
    return true;
}

bool ConversionRun::make_rows(int first, const ImageView& out) {
    if (kThirdsToRgb && count_ == 2 && step_[0].kind == StepKind::scale && step_[1].format->model == Model::rgb &&
        scaler_.run_to_rgb(src_, first, out, yuv_to_rgb_constants(conversion_.src_color)))
        return true;
    uint64_t bytes = 1; // of the rows between two steps that a row of the result takes, at the most
    for (int i = 0; i + 1 < count_; ++i) {
        const Step& s = step_[i];
        const int rows = std::max(1, s.height / conversion_.dst_height);
        bytes = std::max(bytes, byte_count(*s.format, s.width, 2) / 2 * rows);
    }
    const int most = count_ == 1 ? out.height : std::max(2, static_cast<int>(kBandBytes / bytes) & ~1);
    for (int y = 0, rows = 0; y < out.height; y += rows) {
        rows = band_length(most, out.height - y);
        if (!produce(count_ - 1, first + y, rows_of(out, y, rows)))
            return false;
    }
    return true;
}

// A transposition takes bands of rows of its source to strips of columns of the result.
bool ConversionRun::make_columns(int first, const ImageView& out) {
    if (count_ == 1) // nothing between: the transposition does its own tiling
        return transpose_image(rows_of(src_, first, out.width), out);
    for (int x = 0, columns = 0; x < out.width; x += columns) {
        columns = band_length(kStripColumns, out.width - x);
        Scratch scratch;
        ImageView rows;
        if (!pull(turn_, {first + x, first + x + columns}, scratch, rows))
            return false;
        const ImageView strip = crop(out, Box{x, 0, columns, out.height});
        ImageView done;
        for (int i = turn_; i < count_; ++i) {
            const StepKind kind = step_[i].kind;
            if (kind == StepKind::flip) {
                done = flip_rows(done);
                continue;
            }
            const ImageView to = i == count_ - 1 ? strip : take(scratch, i, columns, out.height);
            if (!to || !(i == turn_                                       ? transpose_image(rows, to)
                         : TAVI_WITH_FRAMES && kind == StepKind::recolour ? recolour_image(done, to)
                                                                          : convert_image(done, to)))
                return false;
            done = to;
        }
    }
    return true;
}

ConversionRun::ConversionRun(const Conversion& c)
    : conversion_(c), step_(c.plan.step), count_(c.plan.count), src_(c.src),
      chroma_up_(c.src.chroma_up || c.dst_chroma_up) {
    for (; count_ > 0 && (step_->kind == StepKind::luma || step_->kind == StepKind::flip); ++step_, --count_)
        src_ = step_->kind == StepKind::luma ? luma_view(src_) : flip_rows(src_);
    for (; count_ > 0 && step_[count_ - 1].kind == StepKind::flip; --count_)
        ends_flipped_ = !ends_flipped_;
    const auto position = [&](auto fits) {
        return static_cast<int>(std::find_if(step_, step_ + count_, fits) - step_);
    };
    turn_ = position([](const Step& s) { return s.kind == StepKind::transpose; });
    first_recoloured_ =
        position([](const Step& s) { return s.kind == StepKind::recolour || s.format->model == Model::rgb; });
    const int scale = position([](const Step& s) { return s.kind == StepKind::scale; });
    if (scale == count_)
        return;
    const Step& s = step_[scale];
    const bool first = scale == 0, last = scale + 1 == count_;
    const Format& from = first ? *src_.format : *step_[scale - 1].format;
    // Rows of chroma that were averaged stand between those that they are of.
    const Siting siting{src_.siting.left, src_.siting.top && from.yshift() == src_.format->yshift()};
    ready_ = scaler_.init(scratch_, {&from, src_.width, src_.height, c.box, s.format, s.width, s.height, c.method,
                                     first ? src_.chroma_up : chroma_up_, last ? c.dst_chroma_up : chroma_up_, siting,
                                     c.dst_siting});
}

bool ConversionRun::make(int first, int end, ImageView out) {
    if (ends_flipped_) {
        out = flip_rows(out);
        if (!conversion_.by_columns) {
            const int rows = end - first;
            first = conversion_.dst_height - end;
            end = first + rows;
        }
    }
    if (!ready_)
        return false;
    if (count_ == 0 || (count_ == 1 && step_->kind == StepKind::convert))
        return convert_image(lines_of(src_, conversion_.by_columns, first, end), out);
    return conversion_.by_columns ? make_columns(first, out) : make_rows(first, out);
}

ImageView lines_of(const ImageView& view, bool by_columns, int first, int end) {
    return crop(view, by_columns ? Box{first, 0, end - first, view.height} : Box{0, first, view.width, end - first});
}

namespace {

/// crop() where a part of a picture that rounds chroma down ends between samples: the last column or row keeps the
/// sample that covers it, unless it is that of the picture. A part that needs both is widened, for the scaler to cut.
ImageView crop_with_chroma(const ImageView& source, Box& part) {
    ImageView from = source;
    const int wide = source.format->xshift(), tall = source.format->yshift();
    const bool odd_x = wide && part.width % 2, odd_y = tall && part.height % 2;
    const bool cut_x = odd_x && part.x + part.width < source.width,
               cut_y = odd_y && part.y + part.height < source.height;
    if (!source.chroma_up && (cut_x || cut_y)) {
        if (cut_x == odd_x && cut_y == odd_y) {
            from.chroma_up = true;
        } else {
            part.width += cut_x;
            part.height += cut_y;
        }
    }
    return crop(from, part);
}

} // namespace

Conversion::Conversion(const ImageView& source, const Box& part_of_source, const ImageView& dst, int mode, int how)
    : method(how), dst_height(dst.height), dst_siting(dst.siting), src_color(color_between(source, dst)),
      dst_color(dst.format->is_yuv() ? dst.color : src_color) {
    // Only what the box touches is converted: the source becomes the box, widened to whole chroma samples. A box that
    // starts between chroma samples is reached by scaling, also where the size stays.
    const int wide = source.format->xshift(), tall = source.format->yshift();
    int x = part_of_source.x >> wide << wide, y = part_of_source.y >> tall << tall;
    // An odd last column or row without chroma of its own: the part starts at the sample that it shares.
    if (wide && !source.chroma_up && x == source.width - 1)
        x -= 2;
    if (tall && !source.chroma_up && y == source.height - 1)
        y -= 2;

    Box part{x, y, part_of_source.x + part_of_source.width - x, part_of_source.y + part_of_source.height - y};
    box = {part_of_source.x - x, part_of_source.y - y, part_of_source.width, part_of_source.height};
    const bool turned = exchanges_sides(mode);
    const bool same_size =
        (turned ? dst.height : dst.width) == box.width && (turned ? dst.width : dst.height) == box.height;
    if (!same_size || box.x || box.y) {
        const auto whole = [](int length, int shift) { return (length + shift) >> shift << shift; };
        part.width = std::min(whole(part.width, wide), source.width - x);
        part.height = std::min(whole(part.height, tall), source.height - y);
    }
    src = crop_with_chroma(source, part);
    // A side without subsampled chroma does not round: what stands in between is as on the other one.
    dst_chroma_up = dst.format->subsampled() ? dst.chroma_up : src.chroma_up;
    if (!src.format->subsampled())
        src.chroma_up = dst_chroma_up;
    plan = make_plan({src.format, src.width, src.height, box, dst.format, dst.width, dst.height, mode, src.chroma_up,
                      dst_chroma_up, src.siting.left || src.siting.top, src_color != dst_color});
    by_columns = turned;
    lines = turned ? dst.width : dst.height;
    divisible = mode == TAVI_IMAGE_TRANSFORM_NONE || (dst.width | dst.height | src.width | src.height) % 2 == 0;
}

Refusal convert_region(const ImageView& src, const Box& box, const ImageView& dst, int mode, int method,
                       const char* caller) {
    const Conversion conversion(src, box, dst, mode, method);
    LOG_AS(caller, TAVI_LOG_DEBUG, "%s %dx%d -> %s %dx%d mode=%d by software: %s", src.format->name.data(), box.width,
           box.height, dst.format->name.data(), dst.width, dst.height, mode,
           PlanText(conversion.plan, *src.format).text);
    if (ConversionRun(conversion).make(0, conversion.lines, dst))
        return {};
    return no_memory_for(src, dst);
}

Refusal no_memory_for(const ImageView& src, const ImageView& dst) {
    return {TAVI_RET_FAIL,
            "no memory for temporaries: src size=%dx%d fmt=%s dst size=%dx%d fmt=%s",
            src.width,
            src.height,
            src.format->name.data(),
            dst.width,
            dst.height,
            dst.format->name.data()};
}

Refusal convert_views(const ImageView& src, const ImageView& dst, int mode, int method, const char* caller) {
    return convert_region(src, Box{0, 0, src.width, src.height}, dst, mode, method, caller);
}

} // namespace tavi
