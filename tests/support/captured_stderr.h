// SPDX-License-Identifier: MIT
// Standard error as it is really written, by descriptor: the logger uses write(2), which stream redirection misses.
#pragma once

#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "support/temp_file.h"

class CapturedStderr {
public:
    CapturedStderr() : saved_(dup(STDERR_FILENO)) {
        const int fd = open(file_.path(), O_CREAT | O_TRUNC | O_WRONLY | O_APPEND | O_CLOEXEC, 0600);
        dup2(fd, STDERR_FILENO);
        close(fd);
    }
    ~CapturedStderr() { restore(); }

    /// Ends the capture and returns what was written.
    std::string text() {
        restore();
        return file_.read();
    }

private:
    void restore() {
        if (saved_ >= 0) {
            dup2(saved_, STDERR_FILENO);
            close(saved_);
            saved_ = -1;
        }
    }

    TempFile file_;
    int saved_;
};
