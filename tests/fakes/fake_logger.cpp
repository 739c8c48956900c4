// SPDX-License-Identifier: MIT
// A logger that writes into the trace: addresses by name, and a complaint when file, line or tag are not what the
// module must hand over.
#include "services/tavi_logger.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <regex>

#include "fakes/trace.h"

TaviLogger::TaviLogger() : level(TAVI_LOG_WARN) {}

TaviLogger* TaviLogger::GetInstance() {
    static TaviLogger logger;
    return &logger;
}

void TaviLogger::Log(tavi_log_level_t severity, const char* file, const char* func, int line, const char* tag,
                     const char* fmt, ...) {
    char message[1024];
    va_list args;
    va_start(args, fmt);
    vsnprintf(message, sizeof(message), fmt, args);
    va_end(args);

    std::string named = std::string(1, "EWID"[severity]) + " " + func + ": ";
    std::string rest = message;
    static const std::regex address("0x[0-9a-f]{4,}|\\(nil\\)");
    for (std::smatch m; std::regex_search(rest, m, address); rest = m.suffix()) {
        const std::string known = fakes::text(reinterpret_cast<const void*>(strtoull(m.str().c_str(), nullptr, 16)));
        named += m.prefix().str() + (known == "unknown" ? m.str() : known);
    }
    named += rest;
    if (!strstr(file, "src/utils/tavi_image_") || line <= 0 || strcmp(tag, "tavi-image") != 0)
        named += " [wrong file, line or tag]";
    fakes::add(named);
}

void TaviLogger::SetSink(tavi_log_sink_t, void*) {}
