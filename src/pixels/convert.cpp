// SPDX-License-Identifier: MIT
// Runs plans: pulls bands of rows through the steps, so that what lies between two steps stays in the second-level
// cache. Only the last step writes to the destination.
#include "pixels/convert.h"

#include <algorithm>

#include "pixels/image_scaler.h"
#include "pixels/odd_edges.h"
#include "pixels/plan.h"
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

class Runner {
public:
    Runner(const Plan& plan, const ImageView& src, const Box& box, int method, ColorSpace color)
        : step_(plan.step), count_(plan.count), src_(src), box_(box), method_(method), color_(color) {}

    bool run(ImageView dst);

private:
    ImageView take(Scratch& scratch, const Step& step, int width, int height) const;
    bool pull(int index, RowRange rows, Scratch& scratch, ImageView& in);
    bool produce(int index, int first, const ImageView& out);
    bool convert_needed_rows(RowRange rows, int first, int count, Scratch& scratch, ImageView& in);
    bool run_bands(const ImageView& dst);
    bool run_turned(int at, const ImageView& dst);

    const Step* step_; ///< without those at either end that only change a view
    int count_;
    ImageView src_;
    const Box box_; ///< what the scaling step reads, of its own source
    const int method_;
    const ColorSpace color_;        ///< of what stands between the steps
    ImageScaler* scaler_ = nullptr; ///< on run()'s stack, where there is a step for it
};

/// Memory for part of a step's result; an empty view when there is none.
ImageView Runner::take(Scratch& scratch, const Step& step, int width, int height) const {
    uint8_t* pixels = scratch.take<uint8_t>(byte_count(*step.format, width, height));
    return pixels ? make_view(pixels, *step.format, width, height, color_) : ImageView();
}

// The rows [rows.begin, rows.end) of the result of step `index` - 1, or of the source.
bool Runner::pull(int index, RowRange rows, Scratch& scratch, ImageView& in) {
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
    const ImageView band = take(scratch, s, s.width, end - first);
    if (!band || !produce(index - 1, first, band))
        return false;
    in = rows_of(band, rows.begin - first, length);
    return true;
}

// Of the first step's result what the scaler needs of `rows` for `count` rows from `first` on: where it skips most of
// them, they are not converted.
bool Runner::convert_needed_rows(RowRange rows, int first, int count, Scratch& scratch, ImageView& in) {
    const Step& s = step_[0];
    const RowRange one = scaler_->source_rows(first, first + 1);
    const bool by_rows = src_.format->yshift() == 0 && s.format->yshift() == 0;
    if (!by_rows || 2 * (one.end - one.begin) * count > rows.end - rows.begin)
        return pull(1, rows, scratch, in);
    in = take(scratch, s, s.width, rows.end - rows.begin);
    if (!in)
        return false;
    for (int y = first; y < first + count; ++y) {
        const RowRange r = scaler_->source_rows(y, y + 1);
        const int length = r.end - r.begin;
        if (!convert_image(rows_of(src_, r.begin, length), rows_of(in, r.begin - rows.begin, length)))
            return false;
    }
    return true;
}

// Writes the rows [first, first + out.height) of the result of step `index`.
bool Runner::produce(int index, int first, const ImageView& out) {
    const Step& s = step_[index];
    Scratch scratch;
    ImageView in;
    if (s.kind == StepKind::scale) {
        const RowRange rows = index == 0 ? RowRange{0, src_.height} : scaler_->source_rows(first, first + out.height);
        const bool done = index == 1 && step_[0].kind == StepKind::convert
                              ? convert_needed_rows(rows, first, out.height, scratch, in)
                              : pull(index, rows, scratch, in);
        if (done)
            scaler_->run(in, rows.begin, first, out);
        return done;
    }
    if (!pull(index, {first, first + out.height}, scratch, in))
        return false;
    if (s.kind == StepKind::convert)
        return convert_image(in, out);
    mirror_image(in, out);
    return true;
}

bool Runner::run_bands(const ImageView& dst) {
    if (kThirdsToRgb && count_ == 2 && step_[0].kind == StepKind::scale && step_[1].format->model == Model::rgb &&
        scaler_->run_to_rgb(src_, dst, yuv_to_rgb_constants(color_)))
        return true;
    uint64_t bytes = 1; // of the rows between two steps that a row of the result takes, at the most
    for (int i = 0; i + 1 < count_; ++i) {
        const Step& s = step_[i];
        const int rows = std::max(1, s.height / dst.height);
        bytes = std::max(bytes, byte_count(*s.format, s.width, 2) / 2 * rows);
    }
    const int most = count_ == 1 ? dst.height : std::max(2, static_cast<int>(kBandBytes / bytes) & ~1);
    for (int y = 0, rows = 0; y < dst.height; y += rows) {
        rows = band_length(most, dst.height - y);
        if (!produce(count_ - 1, y, rows_of(dst, y, rows)))
            return false;
    }
    return true;
}

// A transposition, step `at`, takes bands of rows of its source to strips of columns of the result.
bool Runner::run_turned(int at, const ImageView& dst) {
    if (count_ == 1) // nothing between: the transposition does its own tiling
        return transpose_image(src_, dst);
    for (int x = 0, columns = 0; x < dst.width; x += columns) {
        columns = band_length(kStripColumns, dst.width - x);
        Scratch scratch;
        ImageView rows;
        if (!pull(at, {x, x + columns}, scratch, rows))
            return false;
        const ImageView strip = crop(dst, Box{x, 0, columns, dst.height});
        ImageView done;
        for (int i = at; i < count_; ++i) {
            if (step_[i].kind == StepKind::flip) {
                done = flip_rows(done);
                continue;
            }
            const ImageView out = i == count_ - 1 ? strip : take(scratch, step_[i], columns, dst.height);
            if (!out || !(i == at ? transpose_image(rows, out) : convert_image(done, out)))
                return false;
            done = out;
        }
    }
    return true;
}

bool Runner::run(ImageView dst) {
    for (; count_ > 0 && (step_->kind == StepKind::luma || step_->kind == StepKind::flip); ++step_, --count_)
        src_ = step_->kind == StepKind::luma ? luma_view(src_) : flip_rows(src_);
    for (; count_ > 0 && step_[count_ - 1].kind == StepKind::flip; --count_)
        dst = flip_rows(dst);
    if (count_ == 0 || (count_ == 1 && step_->kind == StepKind::convert))
        return convert_image(src_, dst);
    const auto turn =
        std::find_if(step_, step_ + count_, [](const Step& s) { return s.kind == StepKind::transpose; });
    const auto rest = [&] {
        return turn < step_ + count_ ? run_turned(static_cast<int>(turn - step_), dst) : run_bands(dst);
    };
    const auto scale = std::find_if(step_, step_ + count_, [](const Step& s) { return s.kind == StepKind::scale; });
    if (scale == step_ + count_)
        return rest();
    const Format& before = scale == step_ ? *src_.format : *scale[-1].format;
    Scratch scratch;
    ImageScaler scaler;
    scaler_ = &scaler;
    const bool done = scaler.init(scratch, {&before, src_.width, src_.height, box_, scale->format, scale->width,
                                            scale->height, method_}) &&
                      rest();
    scaler_ = nullptr;
    return done;
}

} // namespace

Refusal convert_region(const ImageView& src, const Box& box, const ImageView& dst, int mode, int method,
                       const char* caller) {
    // Only what the box touches is converted: the source becomes the box, widened to whole chroma samples. A box that
    // starts between chroma samples is reached by scaling, also where the size stays.
    const int wide = src.format->xshift(), tall = src.format->yshift();
    int x = box.x >> wide << wide, y = box.y >> tall << tall;
    // An odd last column or row has no chroma of its own: the part starts at the sample that it shares.
    if (wide && x == src.width - 1)
        x -= 2;
    if (tall && y == src.height - 1)
        y -= 2;

    Box part{x, y, box.x + box.width - x, box.y + box.height - y};
    const Box inner{box.x - x, box.y - y, box.width, box.height};
    const bool turned = exchanges_sides(mode);
    const bool same_size =
        (turned ? dst.height : dst.width) == box.width && (turned ? dst.width : dst.height) == box.height;
    if (!same_size || inner.x || inner.y) {
        const auto whole = [](int length, int shift) { return (length + shift) >> shift << shift; };
        part.width = std::min(whole(part.width, wide), src.width - x);
        part.height = std::min(whole(part.height, tall), src.height - y);
    }
    const ImageView view = crop(src, part);
    const Plan plan =
        make_plan({src.format, view.width, view.height, inner, dst.format, dst.width, dst.height, mode});
    LOG_AS(caller, TAVI_LOG_DEBUG, "%s %dx%d -> %s %dx%d mode=%d by software: %s", src.format->name.data(),
           inner.width, inner.height, dst.format->name.data(), dst.width, dst.height, mode,
           PlanText(plan, *src.format).text);
    if (Runner(plan, view, inner, method, color_between(src, dst)).run(dst))
        return {};
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
