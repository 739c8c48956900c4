// SPDX-License-Identifier: MIT
// Recording stand-ins for every backend and service that the module calls. They write one trace, log lines included,
// so that a test states order and arguments in one list of text; they answer what the test says.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tavi_image.h"

namespace fakes {

using Trace = std::vector<std::string>;

struct World {
    Trace trace;                              ///< calls as "name arg arg ...", log lines as "E function: message"
    std::map<const void*, std::string> names; ///< how addresses are written in the trace
    std::map<std::string, int> answers; ///< results by a call's line in the trace, or else its name; 0 when absent
    std::vector<int> setting = {1};     ///< what the environment holds for use_blit; empty: nothing
    bool heap_refuses = false;          ///< malloc() of the module answers null

    /// Registers an image's record and pixels under `name` and `name`.data.
    void name(const char* name, const tavi_image_t& image);
};

/// Answers go by the names in the trace; "attach" = 1 lets the software conversion give memory to a destination.
World& world();

/// The trace so far as one line, "a | b | c", and an empty one from here on.
std::string take_trace();

// How the arguments of a faked call are written into the trace.
inline std::string text(int v) { return std::to_string(v); }
inline std::string text(const char* s) { return s ? s : "null"; }
std::string text(const void* address);
std::string text(const tavi_image_t* image); ///< by name, or by what it describes
std::string text(const tavi_rect_t* rect);
std::string text(const tavi_point_t& p);
std::string text(const tavi_color_t& c);

/// Adds a line to the trace; any thread may.
void add(const std::string& line);

/// Records a call, gives its answer.
int finish(const char* name, const std::string& line);

template <typename... Args>
int call(const char* name, const Args&... args) {
    std::string line = name;
    ((line += " " + text(args)), ...);
    return finish(name, line);
}

} // namespace fakes
