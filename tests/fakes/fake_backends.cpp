// SPDX-License-Identifier: MIT
#include "backends/blit/tavi_blit.h"
#include "backends/cpu/tavi_image_cpu.h"
#include "backends/software/tavi_image_libyuv.h"
#include "fakes/fakes.h"

using fakes::call;

namespace {

void attach_memory(tavi_image_t* image) {
    image->data = new uint8_t[1];
    fakes::world().names[image->data] = "temp";
}

} // namespace

int is_blit_support() { return call("probe"); }

int tavi_image_convert_blit(tavi_image_t* src, tavi_image_t* dst, tavi_image_transform_mode mode) {
    return call("blit", src, dst, mode);
}

int tavi_image_convert_blit_with_crop(tavi_image_t* src, tavi_rect_t* src_rect, tavi_image_t* dst,
                                      tavi_rect_t* dst_rect, tavi_image_transform_mode mode) {
    return call("blit_crop", src, src_rect, dst, dst_rect, mode);
}

int tavi_blit_keep_ratio_resize_check(tavi_image_t* src, tavi_image_t* dst, int option) {
    return call("check", src, dst, option);
}

int tavi_image_convert_keep_ratio_by_blit(tavi_image_t* src, tavi_image_t* dst, int param0, int param1, float* out0,
                                          float* out1, float* out2, float* out3, int option) {
    return call("keep_ratio_blit", src, dst, param0, param1, out0, out1, out2, out3, option);
}

int tavi_image_convert_libyuv(tavi_image_t* src, tavi_image_t* dst, tavi_image_transform_mode mode) {
    const int ret = call("libyuv", src, dst, mode);
    if (fakes::world().answers["attach"])
        attach_memory(dst);
    return ret;
}

int tavi_image_convert2_libyuv(tavi_image_t* src, tavi_image_t* dst, int keep_ratio, int param0, int param1,
                               float* out0, float* out1, float* out2, float* out3,
                               tavi_image_resize_method_t method) {
    return call("libyuv2", src, dst, keep_ratio, param0, param1, out0, out1, out2, out3, method);
}

int tavi_image_crop_and_resize_cpu_imp(tavi_image_t* src, tavi_rect_t* rect, tavi_image_t* dst) {
    const int ret = call("crop", src, rect, dst);
    if (ret == 0 && !dst->data)
        attach_memory(dst); // as the contract asks
    return ret;
}

int tavi_image_read_cpu(const char* path, tavi_image_t* img, int read_flag) {
    return call("read", path, img, read_flag);
}

int tavi_image_write_cpu(const char* path, tavi_image_t* img) { return call("write", path, img); }

int tavi_image_transpose_cpu(tavi_image_t* src, tavi_image_t* dst) { return call("transpose", src, dst); }

int tavi_get_affine_transform_cpu(const float* src, const float* dst, int n, float* matrix) {
    return call("get_affine", src, dst, n, matrix);
}

int tavi_image_affine_transform_cpu(tavi_image_t* src, tavi_image_t* dst, const float* matrix) {
    return call("affine", src, dst, matrix);
}

int tavi_image_draw_circle_cpu(tavi_image_t* img, tavi_point_t center, int radius, tavi_color_t color,
                               int thickness) {
    return call("circle", img, center, radius, color, thickness);
}

int tavi_image_draw_line_cpu(tavi_image_t* img, tavi_point_t pt1, tavi_point_t pt2, tavi_color_t color,
                             int thickness) {
    return call("line", img, pt1, pt2, color, thickness);
}

int tavi_image_draw_rect_cpu(tavi_image_t* img, tavi_point_t pt1, tavi_point_t pt2, tavi_color_t color,
                             int thickness) {
    return call("rect", img, pt1, pt2, color, thickness);
}

int tavi_image_draw_text_cpu(tavi_image_t* img, const char* text, tavi_point_t pt, tavi_color_t color,
                             int thickness) {
    return call("text", img, text, pt, color, thickness);
}
