// SPDX-License-Identifier: MIT
// Any bytes as two records, and up to four operations on them. Pixels lie in blocks of exactly their size, or behind
// a descriptor alone. Left out is what the contract leaves to the caller: null where it faults, data that is too
// short.
#include <sys/mman.h>
#include <unistd.h>

#include <climits>
#include <cmath>
#include <optional>
#include <string>

#include "fuzz.h"
#include "support/fence_buffer.h"

namespace {

constexpr int kEnds[] = {INT_MIN, INT_MIN + 1, -16384, 255, 4096, 16384, 16385, 65536, INT_MAX - 1, INT_MAX};
constexpr float kReals[] = {NAN, INFINITY, -INFINITY, 1e30f, -1e30f, 1e-30f};
constexpr const char* kPaths[] = {"picture.jpg", "picture.png", "picture.bmp", "picture.ppm", "picture.pgm"};

struct Choices : Input {
    bool rarely() { return byte() > 240; }
    int number() { // mostly small
        const uint8_t b = byte();
        return b < 0xe0 ? b - 16 : b < 0xf0 ? kEnds[byte() % 10] : raw<int>();
    }
    float real() {
        const uint8_t b = byte();
        return b < 0xe0 ? (b - 96) / 16.0f : b < 0xf0 ? kReals[byte() % 6] : raw<float>();
    }
    uint32_t side() {
        const uint8_t b = byte();
        return b < 0xf8 ? b % 65 : static_cast<uint32_t>(number());
    }
    tavi_point_t point() { return {number(), number(), number()}; }
    tavi_rect_t rect(const tavi_image_t& img) { // mostly inside
        if (rarely() || img.width - 1 > 16383 || img.height - 1 > 16383)
            return {number(), number(), number(), number()};
        const int w = static_cast<int>(img.width), h = static_cast<int>(img.height);
        const int x = raw<uint16_t>() % w, y = raw<uint16_t>() % h;
        return {x, y, x + byte() % (w - x), y + byte() % (h - y)};
    }
};

struct Image {
    tavi_image_t record = {};
    uint8_t* block = nullptr;
    std::optional<tavi::test::FenceBuffer> fence; // of what libyuv and the codecs do, which are not instrumented
    uint8_t* given = nullptr;

    /// With a lender its memory may be taken instead, from any byte on.
    explicit Image(Choices& in, const Image* lender = nullptr) {
        static const int fds[] = {memfd_create("pixels", 0), memfd_create("pixels", 0)};
        const uint8_t format = in.byte(), where = in.byte();
        record.pixel_format = static_cast<tavi_pixel_format>(format < 0xf0 ? format % 16 : in.number());
        record.width = in.side();
        record.height = in.side();
        const bool wraps = record.width > 20000 || record.height > 20000; // the byte count, which is small then
        record.size = record.pixel_format < 16 ? static_cast<uint32_t>(tavi_image_get_size(&record)) : 64;
        if (where > 0xf8 || wraps || record.size > 1 << 16) {
            record.fd = where & 2 ? -1 : 0;
            record.data_phy = where & 4 ? &record : nullptr;
        } else if (where > 0xf0) { // a byte short at times
            record.fd = fds[where >> 2 & 1];
            if (ftruncate(record.fd, off_t{record.size} - (record.size > 0 && where & 2)) != 0)
                __builtin_trap();
        } else if (where > 0xe0 && lender && lender->given && lender->record.size >= record.size) {
            record.data = lender->given + in.byte() % (lender->record.size - record.size + 1);
        } else {
            record.data = where & 8 ? fence.emplace(record.size).data()
                                    : block = static_cast<uint8_t*>(std::malloc(record.size));
            for (uint32_t i = 0; i < record.size; ++i)
                record.data[i] = static_cast<uint8_t>((i + where) * 0x9e3779b1u >> 13);
        }
        given = record.data;
    }
    ~Image() {
        if (record.data != given)
            tavi_image_release(&record); // a crop has attached it
        if (fence && !fence->intact())
            __builtin_trap();
        std::free(block);
    }
};

void files(Choices& in, tavi_image_t* img, tavi_image_t* copy) {
    static const int fd = memfd_create("file", 0);
    static const std::string memory = "/proc/self/fd/" + std::to_string(fd);
    const char* const path = kPaths[in.byte() % 5];
    if (tavi_image_write(path, img) == 0 && tavi_image_read(path, copy, in.byte() % 3) != 0)
        __builtin_trap();
    if (img->pixel_format < 16) // otherwise the raw writer takes the error value for a byte count, as it is asked to
        tavi_image_write_raw(memory.c_str(), img);
    tavi_image_write_to_txt(memory.c_str(), img);
}

void operate(Choices& in, tavi_image_t* src, tavi_image_t* dst) {
    float f[14];
    tavi_image_t out = {};
    const int operation = in.byte() % 24, mode = in.byte() % 9, n = in.number();
    tavi_rect_t box = in.rect(*src), place = in.rect(*dst);
    tavi_image_t* const s = in.rarely() ? nullptr : src; // where null is refused
    tavi_image_t* const d = in.rarely() ? nullptr : dst;
    tavi_rect_t* const r = in.rarely() ? nullptr : &box;
    tavi_rect_t* const p = mode & 1 ? &box : &place; // in place
    const bool draws = operation >= 16 && operation <= 20;
    const tavi_point_t a = draws ? in.point() : tavi_point_t{}, b = draws ? in.point() : tavi_point_t{};
    const tavi_color_t color = {static_cast<uint8_t>(a.x), static_cast<uint8_t>(b.y), 99};
    const std::string text(reinterpret_cast<const char*>(in.at), in.left < 16 ? in.left : 16);
    for (float& value : f)
        value = operation == 13 || operation == 14 ? in.real() : 1;
    // clang-format off
    switch (operation) {
    case 0: tavi_image_crop_and_resize_cpu(src, &box, dst, mode); break;
    case 1: tavi_image_convert_with_crop(s, r, d, mode & 1 ? &place : nullptr, mode); break;
    case 2: tavi_image_convert_keep_ration(s, d, n, mode - 1, f, f, mode & 1 ? nullptr : f, f); break;
    case 3: tavi_image_convert_keep_ratio_by_method(src, dst, n, n & 3, f, f, f, f, mode - 1, 0); break;
    case 4: tavi_image_roi_cpu(s, r, &out); break;
    case 5: tavi_image_roi_with_align_cvt(s, r, &out, n, in.byte() % 17); break;
    case 6: mode & 1 ? tavi_image_roi(s, r, &out) : tavi_image_roi_with_align(s, r, &out, n); break;
    case 7: tavi_image_roi_with_align_convert_prealloc(s, r, d, &place, mode & 1); break;
    case 8: tavi_image_rect_align(in.number(), in.number(), &box, n, in.number(), p); break;
    case 9: tavi_image_rect_keep_ratio(s, r, p, in.real()); break;
    case 10: tavi_image_transpose(s, d); break;
    case 11: files(in, src, &out); break;
    case 12: mode & 1 ? tavi_image_equalize_hist(src, d) : tavi_image_detect_occlusion(src, f); break;
    case 13: tavi_image_rect_expand(s, r, p, f); break;
    case 14: if (mode & 1 || tavi_get_affine_transform(f, f + 6, mode / 2, f) == 0) tavi_image_affine_transform(s, d, f); break;
    case 15: if (tavi_image_t* const clone = tavi_image_clone(s)) out = *clone, std::free(clone); break;
    case 16: tavi_image_draw_circle(s, a, b.x, color, n); break;
    case 17: tavi_image_draw_line(s, a, b, color, n); break;
    case 18: tavi_image_draw_rect(s, a, b, color, n); break;
    case 19: tavi_image_draw_quad(s, {a, b, in.point(), in.point()}, color, n); break;
    case 20: tavi_image_draw_text(s, text.c_str(), a, color, n); break;
    default: tavi_image_convert(s, d, mode == 5 ? n : mode); break;
    }
    // clang-format on
    tavi_image_release(&out);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    Choices in{{bytes, size}};
    Image src(in), dst(in, &src);
    for (int i = 0; i < 4 && in.left > 0; ++i)
        operate(in, &src.record, &dst.record);
    return 0;
}
