// SPDX-License-Identifier: MIT
#include "tool.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdlib>
#include <mutex>

#include "image/format.h"
#include "services/parse_int.h"
#include "services/tavi_logger.h"
#include "services/yuv_setting.h"

namespace tool {
namespace {

struct LogLines {
    std::mutex mutex;
    std::string last_error;
    bool shown = false;
    bool explained = false;
} lines;

void take_line(void*, tavi_log_level_t severity, const char* tag, const char* func, const char* message) {
    static const char* const kNames[] = {"error", "warning", "info", "debug"};
    const std::lock_guard<std::mutex> lock(lines.mutex);
    if (severity == TAVI_LOG_ERROR)
        lines.last_error = message;
    if (lines.explained)
        fprintf(stderr, "explain: %-11s %s: %s\n", tag, func, message);
    else if (lines.shown)
        fprintf(stderr, "%s: [%s] %s: %s\n", kNames[severity & 3], tag, func, message);
}

struct Name {
    const char* name;
    int value;
};

constexpr Name kTransforms[] = {{"none", TAVI_IMAGE_TRANSFORM_NONE},
                                {"flip-h", TAVI_IMAGE_TRANSFORM_FLIP_H},
                                {"flip-v", TAVI_IMAGE_TRANSFORM_FLIP_V},
                                {"rotate-90", TAVI_IMAGE_TRANSFORM_ROTATE_90},
                                {"rotate-180", TAVI_IMAGE_TRANSFORM_ROTATE_180},
                                {"rotate-270", TAVI_IMAGE_TRANSFORM_ROTATE_270},
                                {"transpose", TAVI_IMAGE_TRANSFORM_TRANSPOSE}};

constexpr Name kFilters[] = {{"default", TAVI_FILTER_DEFAULT},   {"nearest", TAVI_FILTER_NEAREST},
                             {"bilinear", TAVI_FILTER_BILINEAR}, {"box", TAVI_FILTER_BOX},
                             {"bicubic", TAVI_FILTER_BICUBIC},   {"lanczos", TAVI_FILTER_LANCZOS3},
                             {"triangle", TAVI_FILTER_TRIANGLE}, {"mean", TAVI_FILTER_MEAN}};

[[noreturn]] void refuse(const std::string& option, const std::string& text, const std::string& allowed) {
    throw CLI::ValidationError(option, "\"" + text + "\" is not allowed here: " + allowed);
}

template <size_t N>
int parse_name(const std::string& option, const std::string& text, const Name (&names)[N]) {
    std::string allowed = "one of";
    for (const Name& n : names) {
        if (text == n.name)
            return n.value;
        allowed += std::string(" ") + n.name;
    }
    refuse(option, text, allowed);
}

std::vector<std::string> split(const std::string& text) {
    std::vector<std::string> parts(1);
    for (const char c : text) {
        if (c == ',')
            parts.emplace_back();
        else
            parts.back() += c;
    }
    return parts;
}

} // namespace

void check(int result, ExitCode code, const std::string& what) {
    if (result == TAVI_RET_SUCCESS)
        return;
    const std::lock_guard<std::mutex> lock(lines.mutex);
    const char* const reason = result == TAVI_RET_UNSUPPORTED ? "this is not supported"
                               : result == TAVI_RET_PARAM_ERR ? "an argument does not fit the picture"
                                                              : "the operation failed";
    std::string why = lines.last_error.empty() ? reason : lines.last_error;
    if (why.rfind("cannot ", 0) == 0 && why.find(": ") != std::string::npos)
        why = why.substr(why.find(": ") + 2); // "cannot read x" has been said
    throw Error(code, what + ": " + why);
}

Size parse_size(const std::string& option, const std::string& text) {
    const size_t x = text.find('x');
    int width = 0, height = 0;
    if (x == std::string::npos || !tavi::parse_int(text.substr(0, x).c_str(), &width) ||
        !tavi::parse_int(text.substr(x + 1).c_str(), &height) || width < 1 || height < 1 || width > 16384 ||
        height > 16384)
        refuse(option, text, "WIDTHxHEIGHT with sides from 1 to 16384, as in 640x480");
    return {static_cast<uint32_t>(width), static_cast<uint32_t>(height)};
}

uint32_t parse_color(const std::string& option, const std::string& text) {
    const std::string digits = text.substr(text[0] == '#' ? 1 : 0);
    if (digits.size() != 6 || digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        refuse(option, text, "a colour as RRGGBB in hexadecimal, as in ff8000");
    return static_cast<uint32_t>(strtoul(digits.c_str(), nullptr, 16));
}

std::vector<int> parse_ints(const std::string& option, const std::string& text, size_t count, const char* form) {
    std::vector<int> numbers;
    for (const std::string& part : split(text)) {
        int number = 0;
        if (!tavi::parse_int(part.c_str(), &number))
            refuse(option, text, std::string("whole numbers as ") + form);
        numbers.push_back(number);
    }
    if (numbers.size() != count)
        refuse(option, text, std::to_string(count) + " numbers as " + form);
    return numbers;
}

std::vector<float> parse_floats(const std::string& option, const std::string& text) {
    std::vector<float> numbers;
    for (const std::string& part : split(text)) {
        char* end = nullptr;
        const float number = strtof(part.c_str(), &end);
        if (part.empty() || *end || !std::isfinite(number))
            refuse(option, text, "finite numbers separated by commas");
        numbers.push_back(number);
    }
    return numbers;
}

tavi_pixel_format parse_format(const std::string& option, const std::string& text) {
    std::string allowed = "one of";
    for (size_t i = 0; i < tavi::kFormats.size(); ++i) {
        if (text == tavi::kFormats[i].name)
            return static_cast<tavi_pixel_format>(i);
        allowed += " " + std::string(tavi::kFormats[i].name);
    }
    refuse(option, text, allowed);
}

tavi_image_transform_mode parse_transform(const std::string& option, const std::string& text) {
    return parse_name(option, text, kTransforms);
}

tavi_filter_t parse_filter(const std::string& option, const std::string& text) {
    return parse_name(option, text, kFilters);
}

tavi_color_space_t parse_color_space(const std::string& option, const std::string& text) {
    tavi::ColorSpace color;
    if (!tavi::parse_yuv(text.c_str(), color))
        refuse(option, text, "bt601, bt709 or bt2020, each with -full or without");
    return {static_cast<tavi_matrix_t>(color.matrix), color.full_range, TAVI_SITING_CENTRE};
}

tavi_rect_t parse_rect(const std::string& option, const std::string& text) {
    const std::vector<int> n = parse_ints(option, text, 4, "LEFT,TOP,RIGHT,BOTTOM (right and bottom inclusive)");
    return {n[0], n[1], n[2], n[3]};
}

std::string format_name(tavi_pixel_format format) {
    const tavi::Format* f = tavi::find_format(format);
    return f ? std::string(f->name) : "format " + std::to_string(static_cast<uint32_t>(format));
}

void capture_log() {
    TaviLogger::GetInstance()->SetSink(take_line, nullptr);
    lines.shown = getenv("TAVI_LOG_LEVEL") != nullptr;
}

void show_log(int level) {
    TaviLogger::GetInstance()->level = level;
    lines.shown = true;
}

void explain_log() {
    TaviLogger::GetInstance()->level = TAVI_LOG_DEBUG;
    lines.explained = true;
}

void explain(const char* format, ...) {
    if (!lines.explained)
        return;
    va_list args;
    va_start(args, format);
    fprintf(stderr, "explain: ");
    vfprintf(stderr, format, args);
    fputc('\n', stderr);
    va_end(args);
}

} // namespace tool
