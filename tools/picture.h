// SPDX-License-Identifier: MIT
// A picture that owns its pixels, and the ways in and out: encoded files, raw frames, standard streams.
#pragma once

#include <utility>

#include "tool.h"

namespace tool {

class Picture {
public:
    Picture() = default;
    Picture(tavi_pixel_format format, Size size, bool device);
    Picture(Picture&& other) noexcept : record_(std::exchange(other.record_, tavi_image_t{})) {}
    Picture& operator=(Picture&& other) noexcept {
        std::swap(record_, other.record_);
        return *this;
    }
    ~Picture();

    tavi_image_t* get() { return &record_; }
    const tavi_image_t* operator->() const { return &record_; }
    Size size() const { return {record_.width, record_.height}; }
    std::string describe() const; ///< "nv12 640x480"

private:
    tavi_image_t record_{};
};

struct Input {
    std::string path;
    std::optional<tavi_pixel_format> raw_format;
    std::optional<Size> raw_size;
    bool ignore_orientation = false;
    bool device = false;
};

struct Output {
    std::string path;
    std::string type = "png"; ///< of what goes to standard output
};

void add_input(CLI::App* app, Input& input);
void add_output(CLI::App* app, Output& output);

std::string name_of(const Input& input);      ///< for a person
std::string encoded_path(const Input& input); ///< of a file that is no raw frame; throws when it looks like one
Picture load(const Input& input);
void save(Picture& picture, const Output& output);

/// Where to print results: not where the picture goes.
FILE* results(const Output& output);

} // namespace tool
