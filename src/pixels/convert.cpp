// SPDX-License-Identifier: MIT
// Runs plans: pulls bands of rows through the steps, so that what lies between two steps stays in the second-level
// cache. Only the last step writes to the destination.
#include "pixels/convert.h"

#include <algorithm>

#include "pixels/plan.h"
#include "pixels/scale.h"
#include "pixels/steps.h"

#define TAVI_LOG_TAG "tavi-libyuv"
#include "services/log.h"

namespace tavi {
namespace {

constexpr int kBandBytes = 96 * 1024; // of temporaries per band; second-level caches start at 256 KiB
constexpr int kStripColumns = 32;     // columns of the result per transposed strip

// The next band: an odd last row or column, which has no chroma of its own, goes with those before it.
int band_length(int most, int left) { return left <= most + 1 ? left : most; }

class Runner {
public:
    Runner(const Plan& plan, const ImageView& src, const Box& box, int method)
        : plan_(plan), src_(src), box_(box), method_(method) {}

    bool run(const ImageView& dst);

private:
    bool init(Scratch& scratch);
    bool produce(int index, int first, const ImageView& out);
    bool pull(int index, RowRange rows, Scratch& scratch, ImageView& in, int& in_first);
    bool run_turned(const ImageView& dst);
    int band_rows(const ImageView& dst) const;

    const Plan& plan_;
    const ImageView& src_;
    const Box box_; ///< what the scaling step reads, of its own source
    const int method_;
    ImageScaler scaler_;
};

bool Runner::init(Scratch& scratch) {
    for (int i = 0; i < plan_.count; ++i) {
        const Step& s = plan_.step[i];
        if (s.kind == StepKind::scale)
            return scaler_.init(scratch, *find_format(s.format), src_.width, src_.height, box_, s.width, s.height,
                                method_);
    }
    return true;
}

// Rows of the result of step `index` - 1, or of the source. `in_first` is the number of its first row: bands of
// 4:2:0 pictures start at even rows.
bool Runner::pull(int index, RowRange rows, Scratch& scratch, ImageView& in, int& in_first) {
    if (index == 0) {
        in_first = 0;
        in = src_;
        return true;
    }
    const Step& s = plan_.step[index - 1];
    in_first = rows.begin & ~1;
    if (in_first == s.height - 1 && in_first > 0)
        in_first -= 2; // an odd last row uses the chroma of the rows above
    const int end = std::min((rows.end + 1) & ~1, s.height);
    uint8_t* pixels = scratch.take<uint8_t>(byte_count(*find_format(s.format), s.width, end - in_first));
    if (!pixels)
        return false;
    in = make_view(pixels, s.format, s.width, end - in_first);
    return produce(index - 1, in_first, in);
}

// Writes the rows [first, first + out.height) of the result of step `index`.
bool Runner::produce(int index, int first, const ImageView& out) {
    const Step& s = plan_.step[index];
    Scratch scratch;
    ImageView in;
    int in_first = 0;
    if (s.kind == StepKind::scale) {
        if (!pull(index, scaler_.source_rows(first, first + out.height), scratch, in, in_first))
            return false;
        scaler_.run(in, in_first, first, out);
        return true;
    }
    if (!pull(index, {first, first + out.height}, scratch, in, in_first))
        return false;
    const ImageView rows = rows_of(in, first - in_first, out.height);
    if (s.kind == StepKind::convert)
        return convert_image(rows, out);
    mirror_image(rows, out);
    return true;
}

int Runner::band_rows(const ImageView& dst) const {
    size_t bytes = 0;
    for (int i = 0; i + 1 < plan_.count; ++i)
        bytes = std::max<size_t>(bytes, byte_count(*find_format(plan_.step[i].format), plan_.step[i].width, 2) / 2);
    if (bytes == 0)
        return dst.height;
    return std::max(2, std::min(static_cast<int>(kBandBytes / bytes), dst.height)) & ~1;
}

// A transposition takes bands of rows of its source to strips of columns of the result.
bool Runner::run_turned(const ImageView& dst) {
    const int at = plan_.transpose_at;
    if (plan_.count == 1) // nothing between: the transposition does its own tiling
        return transpose_image(plan_.flip_source ? flip_rows(src_) : src_, dst);
    for (int x = 0, columns = 0; x < dst.width; x += columns) {
        columns = band_length(kStripColumns, dst.width - x);
        const int first = plan_.flip_source ? dst.width - x - columns : x;
        Scratch scratch;
        ImageView in;
        int in_first = 0;
        if (!pull(at, {first, first + columns}, scratch, in, in_first))
            return false;
        ImageView rows = rows_of(in, first - in_first, columns);
        if (plan_.flip_source)
            rows = flip_rows(rows);
        const ImageView strip = crop(dst, Box{x, 0, columns, dst.height});
        if (at == plan_.count - 1) {
            if (!transpose_image(rows, strip))
                return false;
            continue;
        }
        const tavi_pixel_format format = plan_.step[at].format;
        uint8_t* pixels = scratch.take<uint8_t>(byte_count(*find_format(format), columns, dst.height));
        if (!pixels)
            return false;
        const ImageView turned = make_view(pixels, format, columns, dst.height);
        if (!transpose_image(rows, turned) || !convert_image(turned, strip))
            return false;
    }
    return true;
}

bool Runner::run(const ImageView& dst) {
    Scratch scratch;
    if (!init(scratch))
        return false;
    if (plan_.transpose_at >= 0)
        return run_turned(dst);
    const int most = band_rows(dst);
    for (int y = 0, rows = 0; y < dst.height; y += rows) {
        rows = band_length(most, dst.height - y);
        if (!produce(plan_.count - 1, y, rows_of(dst, y, rows)))
            return false;
    }
    return true;
}

} // namespace

Refusal convert_region(const ImageView& src, const Box& box, const ImageView& dst, int mode, int method) {
    // Only what the box touches is converted: the source becomes the box, widened to whole chroma samples. A box that
    // starts between chroma samples needs the scaler to place them, also where the size stays.
    const bool wide_samples = src.format->xshift() == 1;
    const bool tall_samples = src.format->yshift() == 1;
    int x = wide_samples ? box.x & ~1 : box.x, y = tall_samples ? box.y & ~1 : box.y;
    // An odd last column or row has no chroma of its own: the part starts at the sample that it shares.
    if (wide_samples && x == src.width - 1)
        x -= 2;
    if (tall_samples && y == src.height - 1)
        y -= 2;

    Box part{x, y, box.x + box.width - x, box.y + box.height - y};
    const Box inner{box.x - x, box.y - y, box.width, box.height};
    const bool turned = exchanges_sides(mode);
    const bool same_size =
        (turned ? dst.height : dst.width) == box.width && (turned ? dst.width : dst.height) == box.height;
    if (!same_size || inner.x || inner.y) {
        if (wide_samples)
            part.width = std::min((part.width + 1) & ~1, src.width - x);
        if (tall_samples)
            part.height = std::min((part.height + 1) & ~1, src.height - y);
    }
    const ImageView view = crop(src, part);
    const Plan plan = make_plan({src.id(), view.width, view.height, inner, dst.id(), dst.width, dst.height, mode});
    LOG_DEBUG("%s %dx%d -> %s %dx%d mode=%d by software: %s", src.format->name.data(), inner.width, inner.height,
              dst.format->name.data(), dst.width, dst.height, mode, describe(plan, src.id()).c_str());
    const ImageView out = plan.flip_result ? flip_rows(dst) : dst;
    const bool direct = plan.count == 0 || (plan.count == 1 && plan.step[0].kind == StepKind::convert);
    const bool done = direct ? convert_image(view, out) : Runner(plan, view, inner, method).run(out);
    if (done)
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

Refusal convert_views(const ImageView& src, const ImageView& dst, int mode, int method) {
    return convert_region(src, Box{0, 0, src.width, src.height}, dst, mode, method);
}

} // namespace tavi
