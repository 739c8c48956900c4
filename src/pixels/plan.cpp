// SPDX-License-Identifier: MIT
#include "pixels/plan.h"

#include <initializer_list>

namespace tavi {
namespace {

bool is_packed422(tavi_pixel_format f) {
    return f == TAVI_PIXEL_FORMAT_YUV422_YUYV || f == TAVI_PIXEL_FORMAT_YUV422_UYVY;
}

// Mirroring and transposing work plane by plane: everything but packed 4:2:2. Scaling takes that too.
tavi_pixel_format planar(tavi_pixel_format f) { return is_packed422(f) ? TAVI_PIXEL_FORMAT_YUV422P_YU16 : f; }

// Half bytes per pixel, to compare how much a step moves.
int weight(tavi_pixel_format f) {
    const Format& row = *find_format(f);
    return row.bits_per_pixel / 4;
}

class Builder {
public:
    explicit Builder(const PlanRequest& r) : current_(r.src_format), width_(r.src_width), height_(r.src_height) {}

    void convert(tavi_pixel_format to) {
        if (to == current_)
            return;
        current_ = to;
        add(StepKind::convert);
    }
    void scale(int width, int height) {
        width_ = width;
        height_ = height;
        add(StepKind::scale);
    }
    void mirror() { add(StepKind::mirror); }
    void transpose() {
        plan.transpose_at = plan.count;
        const int width = width_;
        width_ = height_;
        height_ = width;
        add(StepKind::transpose);
    }
    tavi_pixel_format current() const { return current_; }

    Plan plan;

private:
    void add(StepKind kind) { plan.step[plan.count++] = {kind, current_, width_, height_}; }

    tavi_pixel_format current_;
    int width_, height_;
};

} // namespace

bool is_transform_mode(tavi_image_transform_mode mode) {
    return (mode >= 0 && mode <= 4) || mode == TAVI_IMAGE_TRANSFORM_ROTATE_270 ||
           mode == TAVI_IMAGE_TRANSFORM_TRANSPOSE;
}

namespace {

struct Size {
    int width;
    int height;
};

bool is_gray(tavi_pixel_format f) { return find_format(f)->model == Model::gray; }

// The first format that can hold a picture of both sizes: one row or column of pixels has no chroma sample.
tavi_pixel_format first_that_holds(std::initializer_list<tavi_pixel_format> formats, Size a, Size b) {
    for (const tavi_pixel_format f : formats)
        if (!why_not_viewable(f, a.width, a.height) && !why_not_viewable(f, b.width, b.height))
            return f;
    return *(formats.end() - 1);
}

} // namespace

Plan make_plan(const PlanRequest& r) {
    Builder b(r);
    const bool turned = exchanges_sides(r.mode);
    const Size source{r.src_width, r.src_height}, result{r.dst_width, r.dst_height};
    const Size before_turn{turned ? result.height : result.width, turned ? result.width : result.height};
    const tavi_pixel_format src = planar(r.src_format), dst = planar(r.dst_format);
    const tavi_pixel_format any_size =
        is_gray(src) || is_gray(dst) ? TAVI_PIXEL_FORMAT_GRAY8 : TAVI_PIXEL_FORMAT_RGB888;

    const bool whole = r.box.x == 0 && r.box.y == 0 && r.box.width == source.width && r.box.height == source.height;
    if (!whole || source.width != before_turn.width || source.height != before_turn.height) {
        const bool shrinks = int64_t{before_turn.width} * before_turn.height < int64_t{r.box.width} * r.box.height;
        const bool source_first = shrinks || r.box.x != 0 || r.box.y != 0;
        // Packed 4:2:2 is scaled twice, which is less than taking it apart where much of it is skipped.
        const bool to_a_quarter =
            4 * int64_t{before_turn.width} * before_turn.height <= int64_t{r.box.width} * r.box.height;
        const tavi_pixel_format first = to_a_quarter ? r.src_format : source_first ? src : dst;
        b.convert(first_that_holds({first, source_first ? dst : src, any_size}, source, before_turn));
        b.scale(before_turn.width, before_turn.height);
    }
    const bool mirrored = r.mode == TAVI_IMAGE_TRANSFORM_FLIP_H || r.mode == TAVI_IMAGE_TRANSFORM_ROTATE_180;
    if (mirrored || turned) { // on whichever side has fewer bytes to move
        const tavi_pixel_format current = planar(b.current());
        const bool dst_first = weight(r.dst_format) < weight(b.current());
        b.convert(
            first_that_holds({dst_first ? dst : current, dst_first ? current : dst, any_size}, before_turn, result));
        if (mirrored)
            b.mirror();
        else
            b.transpose();
    }
    b.convert(r.dst_format);
    b.plan.flip_source = r.mode == TAVI_IMAGE_TRANSFORM_ROTATE_90;
    b.plan.flip_result = r.mode == TAVI_IMAGE_TRANSFORM_FLIP_V || r.mode == TAVI_IMAGE_TRANSFORM_ROTATE_180 ||
                         r.mode == TAVI_IMAGE_TRANSFORM_ROTATE_270;
    return b.plan;
}

std::string describe(const Plan& plan, tavi_pixel_format src_format) {
    std::string text;
    tavi_pixel_format from = src_format;
    for (int i = 0; i < plan.count; ++i) {
        const Step& s = plan.step[i];
        const std::string name(find_format(s.format)->name);
        const std::string size = std::to_string(s.width) + "x" + std::to_string(s.height);
        if (i)
            text += "; ";
        switch (s.kind) {
        case StepKind::convert:
            text += std::string(find_format(from)->name) + ">" + name;
            break;
        case StepKind::scale:
            text += "scale " + name + " " + size;
            break;
        case StepKind::mirror:
            text += "mirror " + name;
            break;
        case StepKind::transpose:
            text += (plan.flip_source ? "transpose upturned " : "transpose ") + name;
            break;
        }
        from = s.format;
    }
    if (!plan.count)
        text = "copy";
    if (plan.flip_result)
        text += "; upturned";
    return text;
}

} // namespace tavi
