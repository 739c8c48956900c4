// SPDX-License-Identifier: MIT
// The lines that pass the logger's level while this lives.
#pragma once

#include <string>
#include <vector>

#include "services/tavi_logger.h"

class CapturedLog {
public:
    CapturedLog() { TaviLogger::GetInstance()->SetSink(&CapturedLog::receive, this); }
    ~CapturedLog() { TaviLogger::GetInstance()->SetSink(nullptr, nullptr); }
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;

    struct Line {
        tavi_log_level_t level;
        std::string tag, func, message;
    };
    std::vector<Line> lines;

private:
    static void receive(void* self, tavi_log_level_t level, const char* tag, const char* func, const char* message) {
        static_cast<CapturedLog*>(self)->lines.push_back({level, tag, func, message});
    }
};
