// SPDX-License-Identifier: MIT
// What the commands of tavi-image share: how they fail, how they read their arguments, where the library's log lines
// go.
#pragma once

#include <array>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "tavi_frame.h"

namespace tool {

/// Documented in --help.
enum ExitCode { kDone = 0, kFailed = 1, kUsage = 2, kCannotRead = 3, kCannotWrite = 4 };

/// Ends the command: one line for a person, and the code to exit with.
struct Error : std::runtime_error {
    Error(ExitCode exit_code, const std::string& text) : std::runtime_error(text), code(exit_code) {}
    ExitCode code;
};

/// Throws when a call of the library failed; the library's own last error line becomes the reason.
void check(int result, ExitCode code, const std::string& what);

// ---- arguments; all throw CLI::ValidationError, which names the option, the value and what is allowed

struct Size {
    uint32_t width = 0;
    uint32_t height = 0;
};

Size parse_size(const std::string& option, const std::string& text);      ///< 640x480
uint32_t parse_color(const std::string& option, const std::string& text); ///< RRGGBB, # allowed
std::vector<int> parse_ints(const std::string& option, const std::string& text, size_t count, const char* form);
std::vector<float> parse_floats(const std::string& option, const std::string& text);
tavi_pixel_format parse_format(const std::string& option, const std::string& text); ///< names of the table
tavi_image_transform_mode parse_transform(const std::string& option, const std::string& text);
tavi_filter_t parse_filter(const std::string& option, const std::string& text);
tavi_color_space_t parse_color_space(const std::string& option, const std::string& text); ///< as TAVI_YUV has it
tavi_rect_t parse_rect(const std::string& option, const std::string& text);               ///< L,T,R,B, inclusive

/// Adds an option whose text goes through one of the functions above.
template <typename T, typename Parse>
CLI::Option* add_parsed(CLI::App* app, const std::string& name, T& value, Parse parse, const std::string& help) {
    return app->add_option_function<std::string>(
        name, [name, &value, parse](const std::string& text) { value = parse(name, text); }, help);
}

std::string format_name(tavi_pixel_format format);

// ---- log lines

/// Routes the library's lines through the tool: shown on standard error when a level was asked for, and kept as the
/// reason of a failure otherwise.
void capture_log();
void show_log(int level); ///< --log-level
void explain_log();       ///< --explain: every line, marked as such
void explain(const char* format, ...) __attribute__((format(printf, 1, 2)));

// ---- commands; each adds itself and leaves what is to be done in `run`

using Run = std::function<void()>;

void add_convert(CLI::App& app, Run& run);
void add_roi(CLI::App& app, Run& run);
void add_letterbox(CLI::App& app, Run& run);
void add_draw(CLI::App& app, Run& run);
void add_affine(CLI::App& app, Run& run);
void add_transpose(CLI::App& app, Run& run);
void add_info(CLI::App& app, Run& run);
void add_formats(CLI::App& app, Run& run);
void add_probe(CLI::App& app, Run& run);

} // namespace tool
