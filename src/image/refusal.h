// SPDX-License-Identifier: MIT
// Why something is not done: the one way in which private code reports it. A contract function logs the text under
// its own name and answers with the code; nobody in between logs.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "tavi_image.h"

namespace tavi {

/// Converts to true when there is a refusal, so that `if (const Refusal no = ...)` handles it.
class [[nodiscard]] Refusal {
public:
    Refusal() { text[0] = 0; } // the rest stays as it is: this is what every request that is served returns
    __attribute__((format(printf, 3, 4))) Refusal(int result, const char* format, ...) : code(result) {
        va_list arguments;
        va_start(arguments, format);
        std::vsnprintf(text, sizeof text, format, arguments);
        va_end(arguments);
    }
    /// Of a system call that answered -errno.
    static Refusal of_errno(int negative_errno, const char* what) {
        Refusal no(TAVI_RET_FAIL, "%s: %s", what, std::strerror(-negative_errno));
        no.error = negative_errno;
        return no;
    }

    /// The same, with the -errno that the device code looks at.
    Refusal because_of(int negative_errno) const {
        Refusal no = *this;
        no.error = negative_errno;
        return no;
    }

    explicit operator bool() const { return code != TAVI_RET_SUCCESS; }

    int code = TAVI_RET_SUCCESS; ///< a result code of the public header
    int error = 0;               ///< -errno of the call behind it, 0 where there is none
    char text[320];              ///< what was asked for, and what is allowed
};

} // namespace tavi
