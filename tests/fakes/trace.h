// SPDX-License-Identifier: MIT
// How the arguments of a faked call are written into the trace.
#pragma once

#include <string>

#include "fakes/fakes.h"

namespace fakes {

inline std::string text(int v) { return std::to_string(v); }
inline std::string text(const char* s) { return s ? s : "null"; }
std::string text(const void* address);
std::string text(const tavi_image_t* image); ///< by name, or by what it describes
std::string text(const tavi_rect_t* rect);
std::string text(const tavi_point_t& p);
std::string text(const tavi_color_t& c);

/// Adds a line to the trace; any thread may.
void add(const std::string& line);

/// Records a call, runs its effect, gives its answer.
int finish(const char* name, const std::string& line);

template <typename... Args>
int call(const char* name, const Args&... args) {
    std::string line = name;
    ((line += " " + text(args)), ...);
    return finish(name, line);
}

} // namespace fakes
