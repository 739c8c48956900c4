// SPDX-License-Identifier: MIT
#include "backends/software/plan.h"

namespace tavi {
namespace {

bool is_packed422(tavi_pixel_format f) {
    return f == TAVI_PIXEL_FORMAT_YUV422_YUYV || f == TAVI_PIXEL_FORMAT_YUV422_UYVY;
}

// Scaling, mirroring and transposing work plane by plane: everything but packed 4:2:2.
tavi_pixel_format planar(tavi_pixel_format f) { return is_packed422(f) ? TAVI_PIXEL_FORMAT_YUV422P_YU16 : f; }

// Half bytes per pixel, to compare how much a step moves.
int weight(tavi_pixel_format f) {
    const Format& row = *find_format(f);
    return 2 * row.sample_bytes * row.bytes_mul >> row.bytes_shift;
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

bool exchanges_sides(tavi_image_transform_mode mode) {
    return mode == TAVI_IMAGE_TRANSFORM_ROTATE_90 || mode == TAVI_IMAGE_TRANSFORM_ROTATE_270 ||
           mode == TAVI_IMAGE_TRANSFORM_TRANSPOSE;
}

Plan make_plan(const PlanRequest& r) {
    Builder b(r);
    const bool turned = exchanges_sides(r.mode);
    const int width = turned ? r.dst_height : r.dst_width, height = turned ? r.dst_width : r.dst_height;
    const bool off_grid = r.box.x != 0 || r.box.y != 0;
    if (width != r.box.width || height != r.box.height || off_grid || r.src_width != r.box.width ||
        r.src_height != r.box.height) {
        const bool shrinks = int64_t{width} * height < int64_t{r.box.width} * r.box.height;
        // A picture scaled down to one row or column has no chroma of its own: it is converted before.
        const bool fits = !why_not_viewable(planar(r.src_format), width, height);
        b.convert(planar((shrinks || off_grid) && fits ? r.src_format : r.dst_format));
        b.scale(width, height);
    }
    if (r.mode == TAVI_IMAGE_TRANSFORM_FLIP_H || r.mode == TAVI_IMAGE_TRANSFORM_ROTATE_180) {
        if (weight(r.dst_format) < weight(b.current()))
            b.convert(planar(r.dst_format));
        b.convert(planar(b.current()));
        b.mirror();
    }
    if (turned) {
        if (weight(r.dst_format) < weight(b.current()))
            b.convert(planar(r.dst_format));
        b.convert(planar(b.current()));
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
