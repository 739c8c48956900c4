// SPDX-License-Identifier: MIT
#include "rows.h"

#include <cmath>
#include <cstring>

#include "backends/cpu/tavi_image_cpu.h"
#include "backends/software/tavi_image_libyuv.h"
#include "image/format.h"
#include "tavi_frame.h"

namespace tavi::bench {
namespace {

std::string size_text(int w, int h) { return std::to_string(w) + "x" + std::to_string(h); }
std::string name_of(int f) { return std::string(find_format(f)->name); }

Row make(Kind kind, int s, int sw, int sh, int d, int dw, int dh) {
    Row r;
    r.kind = kind;
    r.src = std::make_shared<Picture>(s, sw, sh);
    r.dst = std::make_shared<Picture>(d, dw, dh);
    return r;
}

void add_conversions(std::vector<Row>& rows, int w, int h) {
    constexpr int kPairs[][2] = {{NV12, RGB},     {NV12, BGR},    {NV12, RGBA}, {NV21, RGB},  {YU12, RGB},
                                 {NV16, RGB},     {YUYV, RGB},    {UYVY, BGR},  {RGB, NV12},  {BGR, YU12},
                                 {RGBA, NV12},    {RGB, BGR},     {RGB, RGBA},  {RGB, GRAY8}, {NV12, GRAY8},
                                 {NV12, NV21},    {NV12, YU12},   {YUYV, NV12}, {NV16, NV12}, {GRAY8, RGB},
                                 {GRAY16, GRAY8}, {GRAY8, GRAY16}};
    for (const auto& p : kPairs) {
        Row r = make(Kind::convert, p[0], w, h, p[1], w, h);
        r.name = name_of(p[0]) + " to " + name_of(p[1]) + " " + size_text(w, h);
        rows.push_back(r);
    }
}

void add_large(std::vector<Row>& rows) {
    for (const auto& [from, to] : {std::pair{NV12, RGB}, {YUYV, NV12}, {RGB, NV12}}) {
        Row r = make(Kind::convert, from, 3840, 2160, to, 3840, 2160);
        r.name = name_of(from) + " to " + name_of(to) + " 3840x2160";
        rows.push_back(r);
    }
}

void add_resizes(std::vector<Row>& rows) {
    struct Resize {
        int s, sw, sh, d, dw, dh;
        bool area;
    };
    constexpr Resize kResizes[] = {
        {RGB, 1920, 1080, RGB, 640, 640, false},       {RGB, 1920, 1080, RGB, 224, 224, false},
        {RGB, 640, 480, RGB, 1920, 1080, false},       {NV12, 1920, 1080, NV12, 640, 360, false},
        {NV12, 1920, 1080, NV12, 1280, 720, false},    {GRAY8, 1920, 1080, GRAY8, 640, 360, false},
        {GRAY16, 1920, 1080, GRAY16, 640, 360, false}, {RGBA, 1920, 1080, RGBA, 640, 360, false},
        {RGB, 1920, 1080, RGB, 640, 640, true},        {RGB, 1920, 1080, RGB, 224, 224, true},
        {NV12, 1920, 1080, NV12, 640, 360, true},      {NV12, 1920, 1080, NV12, 1280, 720, true},
        {GRAY8, 1920, 1080, GRAY8, 640, 360, true},    {GRAY16, 1920, 1080, GRAY16, 640, 360, true},
        {RGBA, 1920, 1080, RGBA, 640, 360, true},      {NV12, 1920, 1080, RGB, 640, 640, false},
        {NV12, 1920, 1080, RGB, 300, 300, false},      {YUYV, 1280, 720, BGR, 640, 360, false},
        {NV12, 3840, 2160, RGB, 640, 360, false},      {RGB, 1920, 1080, NV12, 1280, 720, false},
        {NV12, 1920, 1080, RGB, 640, 640, true},       {NV12, 1920, 1080, RGB, 300, 300, true},
        {YUYV, 1280, 720, BGR, 640, 360, true},        {NV12, 3840, 2160, RGB, 640, 360, true},
        {RGB, 3840, 2160, RGB, 1920, 1200, true},      {NV12, 3840, 2160, RGB, 1280, 1280, false},
        {RGB, 1920, 1080, NV12, 1280, 720, true},
    };
    for (const Resize& z : kResizes) {
        Row r = make(Kind::resize, z.s, z.sw, z.sh, z.d, z.dw, z.dh);
        r.method = z.area ? TAVI_IMAGE_RESIZE_BOX : TAVI_IMAGE_RESIZE_BILINEAR;
        r.name = name_of(z.s) + " " + size_text(z.sw, z.sh) + " to " + name_of(z.d) + " " + size_text(z.dw, z.dh) +
                 (z.area ? " area" : " bilinear");
        rows.push_back(r);
    }
}

void add_regions(std::vector<Row>& rows) {
    for (int s : {NV12, RGB}) {
        Row r = make(Kind::letterbox, s, 1920, 1080, RGB, 640, 640);
        r.method = TAVI_IMAGE_RESIZE_BILINEAR;
        r.name = name_of(s) + " 1920x1080 to rgb 640x640 letterbox";
        rows.push_back(r);
    }
    struct Region {
        int s, w, h, dw, dh;
    };
    for (const Region& z :
         {Region{NV12, 400, 300, 224, 224}, Region{RGB, 400, 300, 112, 112}, Region{RGB, 640, 480, 640, 480}}) {
        Row r = make(Kind::crop, z.s, 1920, 1080, RGB, z.dw, z.dh);
        r.region = {500, 300, 500 + z.w - 1, 300 + z.h - 1};
        r.name = name_of(z.s) + " region " + size_text(z.w, z.h) + " to rgb " + size_text(z.dw, z.dh);
        rows.push_back(r);
    }
}

void add_tensors(std::vector<Row>& rows) {
    for (const int element : {TAVI_TENSOR_FLOAT32, TAVI_TENSOR_INT8}) {
        Row r = make(Kind::tensor, NV12, 1920, 1080, RGB, 640, 640);
        r.method = TAVI_IMAGE_RESIZE_BILINEAR;
        r.element = element;
        r.name =
            std::string("nv12 1920x1080 to tensor 3x640x640 ") + (element == TAVI_TENSOR_INT8 ? "int8" : "float32");
        rows.push_back(r);
    }
}

void add_transforms(std::vector<Row>& rows) {
    const std::pair<int, const char*> modes[] = {{4, "rotate 90"}, {3, "rotate 180"}, {7, "rotate 270"},
                                                 {1, "flip h"},    {2, "flip v"},     {8, "transpose"}};
    for (int f : {RGB, RGBA, NV12, GRAY8})
        for (const auto& m : modes) {
            const bool turned = m.first >= 4;
            Row r = make(Kind::transform, f, 1920, 1080, f, turned ? 1080 : 1920, turned ? 1920 : 1080);
            r.mode = m.first;
            r.name = std::string(m.second) + " " + name_of(f) + " 1920x1080";
            rows.push_back(r);
        }
    Row large = make(Kind::transform, NV12, 3840, 2160, NV12, 2160, 3840);
    large.mode = TAVI_IMAGE_TRANSFORM_ROTATE_90;
    large.name = "rotate 90 nv12 3840x2160";
    rows.push_back(large);
    for (bool face : {true, false}) {
        Row r = make(Kind::affine, RGB, 1920, 1080, RGB, face ? 112 : 1920, face ? 112 : 1080);
        const double angle = 0.2, scale = face ? 0.35 : 1.0;
        const float cx = face ? 56 : 960, cy = face ? 56 : 540, sx = 900, sy = 500;
        const float c = static_cast<float>(std::cos(angle) * scale), s = static_cast<float>(std::sin(angle) * scale);
        const float m[6] = {c, -s, cx - c * sx + s * sy, s, c, cy - s * sx - c * sy};
        std::memcpy(r.matrix, m, sizeof m);
        r.name = face ? "affine rgb 1920x1080 to 112x112" : "affine rgb 1920x1080";
        rows.push_back(r);
    }
}

void add_drawings(std::vector<Row>& rows) {
    const char* shapes[] = {"100 rectangles", "100 lines", "100 circles", "100 filled circles", "20 texts"};
    for (int f : {RGB, NV12})
        for (int i = 0; i < 5; ++i) {
            Row r = make(Kind::draw, f, 2, 2, f, 1920, 1080);
            r.shape = i;
            r.name = std::string(shapes[i]) + " on " + name_of(f) + " 1920x1080";
            rows.push_back(r);
        }
}

void draw_ours(const Row& row) {
    tavi_image_t* img = &row.dst->image;
    const tavi_color_t color = {255, 64, 0};
    for (int i = 0; i < (row.shape == 4 ? 20 : 100); ++i) {
        const Shape s = shape_of(i, 1920, 1080);
        const tavi_point_t a = {s.x0, s.y0, 0}, b = {s.x1, s.y1, 0};
        switch (row.shape) {
        case 0:
            tavi_image_draw_rect(img, a, b, color, 2);
            break;
        case 1:
            tavi_image_draw_line(img, a, b, color, 2);
            break;
        case 2:
            tavi_image_draw_circle(img, a, s.radius, color, 2);
            break;
        case 3:
            tavi_image_draw_circle(img, a, s.radius, color, -1);
            break;
        default:
            tavi_image_draw_text(img, "person 0.93", a, color, 2);
        }
    }
}

} // namespace

Picture::Picture(int format, int width, int height) {
    image.pixel_format = static_cast<tavi_pixel_format>(format);
    image.width = width;
    image.height = height;
    image.size = static_cast<uint32_t>(tavi_image_get_size(&image));
    pixels.resize(image.size + 4096); // swscale runs over the end of exact buffers
    // Slopes with some texture: what a photograph costs, without one.
    for (size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = static_cast<uint8_t>(16 + (i * 7 / 64 + (i >> 9) * 3 + (i * 2654435761u >> 29)) % 220);
    image.data = reinterpret_cast<uint8_t*>((reinterpret_cast<uintptr_t>(pixels.data()) + 63) &
                                            ~uintptr_t{63}); // and wants alignment
}

Shape shape_of(int i, int width, int height) {
    const auto at = [i](int k, int range) {
        return static_cast<int>((i * 7919u + k * 104729u) * 2654435761u % range);
    };
    const int x = at(1, width - 300), y = at(2, height - 200);
    return {x, y, x + 40 + at(3, 250), y + 30 + at(4, 160), 20 + at(5, 60)};
}

std::vector<Row> all_rows() {
    std::vector<Row> rows;
    add_conversions(rows, 1920, 1080);
    add_conversions(rows, 640, 480);
    add_large(rows);
    add_resizes(rows);
    add_regions(rows);
    add_tensors(rows);
    add_transforms(rows);
    add_drawings(rows);
    add_conversions(rows, 16, 16);
    return rows;
}

Run ours(const Row& row) {
    tavi_image_t *s = &row.src->image, *d = &row.dst->image;
    switch (row.kind) {
    case Kind::convert:
    case Kind::transform:
        return [=] { tavi_image_convert(s, d, row.mode); };
    case Kind::resize:
        return [=] { tavi_image_convert2_libyuv(s, d, 0, 0, 0, nullptr, nullptr, nullptr, nullptr, row.method); };
    case Kind::letterbox:
        return [=] {
            tavi_image_convert_keep_ratio_by_method(s, d, 0x727272, 0, nullptr, nullptr, nullptr, nullptr, row.method,
                                                    0);
        };
    case Kind::crop:
        return [=] {
            tavi_rect_t region = row.region;
            tavi_image_convert_with_crop(s, &region, d, nullptr, 0);
        };
    case Kind::affine:
        return [=] { tavi_image_affine_transform(s, d, row.matrix); };
    case Kind::draw:
        return [=] { draw_ours(row); };
    case Kind::tensor:
        return tensor_by_frames(row);
    }
    return {};
}

Run by_copying(const Row& row) {
    // Each byte that must be read or written, moved once.
    size_t read = row.src->image.size;
    const size_t write = row.kind == Kind::draw ? 100 * 1000 : row.dst->image.size;
    if (row.kind == Kind::crop)
        read = read * (row.region.right - row.region.left + 1) * (row.region.bottom - row.region.top + 1) /
               (1920 * 1080);
    if (row.kind == Kind::affine && write < read)
        read = write * 8;
    const size_t bytes = (read + write) / 2;
    auto from = std::make_shared<std::vector<uint8_t>>(bytes, uint8_t{1});
    auto to = std::make_shared<std::vector<uint8_t>>(bytes, uint8_t{2});
    return [=] { std::memcpy(to->data(), from->data(), bytes); };
}

// Peers that are not there have no way to do anything.
#ifndef TAVI_BENCH_OPENCV
Run by_opencv(const Row&) { return {}; }
#endif
#ifndef TAVI_BENCH_SWSCALE
Run by_swscale(const Row&) { return {}; }
#endif

} // namespace tavi::bench
