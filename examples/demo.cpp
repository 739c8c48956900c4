// SPDX-License-Identifier: MIT
// A camera frame's way through the library: device memory, conversion, a region for a network, a letterboxed network
// input, an annotated frame. Usage: tavi-demo PHOTO OUTPUT_FOLDER
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tavi_image.h"
#include "tavi_letterbox.h"
#include "tavi_logger.h"
#include "tavi_mem.h"

namespace {

// What the library said about the last step: what software did, and why the engine did not.
std::string g_software, g_refusal;

void listen(void*, tavi_log_level_t level, const char* tag, const char*, const char* message) {
    if (std::strcmp(tag, "tavi-blit") == 0 && level == TAVI_LOG_INFO)
        g_refusal = message; // the probe's answer stays: it is asked once
    const char* plan = std::strstr(message, "by software: ");
    if (plan)
        g_software += std::string(g_software.empty() ? "" : "; ") + (plan + std::strlen("by software: "));
    if (level <= TAVI_LOG_WARN)
        std::fprintf(stderr, "[%s] %s\n", tag, message);
}

[[noreturn]] void fail(const char* what, int code) {
    std::fprintf(stderr, "tavi-demo: %s failed with %d\n", what, code);
    std::exit(1);
}

/// Runs one step, checks it and prints how long it took.
template <class Body>
void step(const char* what, Body body) {
    g_software.clear();
    const auto begin = std::chrono::steady_clock::now();
    const int code = body();
    const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - begin;
    if (code != TAVI_RET_SUCCESS)
        fail(what, code);
    std::printf("%-52s %8.3f ms\n", what, time.count());
    if (!g_software.empty())
        std::printf("    by software: %s%s%s\n", g_software.c_str(), g_refusal.empty() ? "" : "   (",
                    g_refusal.empty() ? "" : (g_refusal + ")").c_str());
}

tavi_image_t picture(tavi_pixel_format format, uint32_t width, uint32_t height) {
    tavi_image_t img = {};
    img.pixel_format = format;
    img.width = width;
    img.height = height;
    return img;
}

const char* source_of(const tavi_image_t& img) {
    constexpr const char* kSources[] = {"heap", "contiguous DMA heap", "system DMA heap", "udmabuf",
                                        "memfd (no engine can import it)"};
    tavi_mem_record_t record = {};
    if (tavi_mem_get_record_by_virt_addr(img.data, 0, &record) != 0)
        return "ordinary heap";
    return kSources[record.flags];
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: tavi-demo PHOTO OUTPUT_FOLDER\n");
        return 2;
    }
    const std::string out = std::string(argv[2]) + "/";
    TaviLogger::GetInstance()->SetSink(listen, nullptr);
    TaviLogger::GetInstance()->level = TAVI_LOG_DEBUG;

    tavi_image_t photo = {};
    step("read the photograph", [&] { return tavi_image_read(argv[1], &photo, TAVI_IMAGE_READ_COLOR); });

    // What a camera delivers: an NV12 frame in device memory, sides even.
    tavi_image_t frame = picture(TAVI_PIXEL_FORMAT_YUV420SP_NV12, photo.width & ~3u, photo.height & ~1u);
    step("device memory for the camera frame", [&] { return tavi_image_create_mem(&frame); });
    std::printf("    %ux%u NV12, %u bytes, descriptor %d, from: %s\n", frame.width, frame.height, frame.size,
                frame.fd, source_of(frame));
    step("photograph to NV12", [&] { return tavi_image_convert(&photo, &frame, TAVI_IMAGE_TRANSFORM_NONE); });

    tavi_image_t small = picture(TAVI_PIXEL_FORMAT_RGB888, 320, 320 * frame.height / frame.width);
    step("device memory for the result", [&] { return tavi_image_create_mem(&small); });
    step("NV12 frame to RGB at another size", [&] { return tavi_image_convert(&frame, &small, 0); });
    step("write converted.png", [&] { return tavi_image_write((out + "converted.png").c_str(), &small); });
    step("write converted.jpg", [&] { return tavi_image_write((out + "converted.jpg").c_str(), &small); });

    // A face box from a detector, expanded, made square, aligned and scaled to a network's input.
    const int w = static_cast<int>(frame.width), h = static_cast<int>(frame.height);
    tavi_rect_t box = {w * 34 / 100, h * 6 / 100, w * 55 / 100, h * 36 / 100};
    float margin[4] = {0.1f, 0.1f, 0.1f, 0.1f};
    tavi_image_rect_expand(&frame, &box, &box, margin);
    tavi_image_rect_keep_ratio(&frame, &box, &box, 1.0f);
    tavi_image_rect_align(w, h, &box, 4, 2, &box);
    tavi_image_t face = picture(TAVI_PIXEL_FORMAT_RGB888, 112, 112);
    step("memory for a 112x112 network input", [&] { return tavi_image_create_mem(&face); });
    step("region, expanded and aligned, to the network input",
         [&] { return tavi_image_convert_with_crop(&frame, &box, &face, nullptr, 0); });
    step("write region.png", [&] { return tavi_image_write((out + "region.png").c_str(), &face); });

    tavi_image_t input = picture(TAVI_PIXEL_FORMAT_RGB888, 640, 360);
    float scale_x = 0, scale_y = 0, left = 0, top = 0;
    step("memory for a 640x360 network input", [&] { return tavi_image_create_mem(&input); });
    step("letterbox into the network input", [&] {
        return tavi_image_convert_keep_ratio_by_method(&frame, &input, 0x727272, 0, &scale_x, &scale_y, &left, &top,
                                                       TAVI_IMAGE_RESIZE_DEFAULT, 0);
    });
    std::printf("    scale %.4f x %.4f, padding %.0f left, %.0f top\n", scale_x, scale_y, left, top);
    step("write letterbox.png", [&] { return tavi_image_write((out + "letterbox.png").c_str(), &input); });

    // Results painted on the NV12 frame itself, in colour.
    const tavi_color_t green = {0, 220, 90}, red = {255, 60, 60}, white = {255, 255, 255};
    step("annotate the NV12 frame", [&] {
        const int x = box.left, y = box.top, bw = box.right - box.left, bh = box.bottom - box.top;
        const int label = y >= 24 ? y - 24 : y; // above the box where there is room
        int code = tavi_image_draw_rect(&frame, {x, y, 0}, {box.right, box.bottom, 0}, green, 3);
        if (code == 0)
            code = tavi_image_draw_rect(&frame, {x, label, 0}, {x + 132, label + 23, 0}, green, -1);
        if (code == 0)
            code = tavi_image_draw_text(&frame, "visage 0,98 \xC3\xA9t\xC3\xA9", {x + 5, label + 3, 18}, white, 2);
        const int marks[][2] = {{30, 42}, {62, 40}, {48, 58}, {36, 74}, {60, 73}};
        for (const auto& m : marks)
            if (code == 0)
                code = tavi_image_draw_circle(&frame, {x + bw * m[0] / 100, y + bh * m[1] / 100, 0}, 4, red, -1);
        return code;
    });
    step("write annotated.jpg", [&] { return tavi_image_write((out + "annotated.jpg").c_str(), &frame); });
    step("write annotated.png", [&] { return tavi_image_write((out + "annotated.png").c_str(), &frame); });

    for (tavi_image_t* img : {&photo, &frame, &small, &face, &input})
        tavi_image_release(img);
    return 0;
}
