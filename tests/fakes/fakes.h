// SPDX-License-Identifier: MIT
// Recording stand-ins for every backend and service that the module calls. They write one trace, log lines included,
// so that a test states order and arguments in one list of text; they answer what the test says.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tavi_image.h"

namespace fakes {

using Trace = std::vector<std::string>;

struct World {
    Trace trace;                              ///< calls as "name arg arg ...", log lines as "E function: message"
    std::map<const void*, std::string> names; ///< how addresses are written in the trace
    std::map<std::string, int> answers;       ///< result of a call by its name in the trace; 0 when absent
    std::map<std::string, std::function<void()>> effects; ///< what a call does besides
    std::vector<int> setting = {1};                       ///< what the environment holds for use_blit; empty: nothing
    bool heap_refuses = false;                            ///< malloc() of the module answers null

    /// Registers an image's record and pixels under `name` and `name`.data.
    void name(const char* name, const tavi_image_t& image);
};

/// Answers go by the names in the trace; "attach" = 1 lets the software conversion give memory to a destination.
World& world();

/// The trace so far as one line, "a | b | c", and an empty one from here on.
std::string take_trace();

} // namespace fakes
