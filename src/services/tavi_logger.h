// SPDX-License-Identifier: MIT
/**
 * @file tavi_logger.h
 * The process-wide logger. One write per line to standard error, or to a sink of the application's own; levels and
 * the sink's type stand in tavi_log.h.
 */
#ifndef TAVI_LOGGER_H
#define TAVI_LOGGER_H

#include <atomic>
#include <cstdint>

#include "tavi_log.h"

/** The logger. Level and sink may be changed at any time from any thread. */
class TAVI_API TaviLogger {
public:
    /** Current level, first in the object so that it can be read without a call. Starts as TAVI_LOG_LEVEL has it. */
    std::atomic<int32_t> level;

    /** The one logger of the process; never null, alive until the process ends. */
    static TaviLogger* GetInstance();

    /**
     * Formats and writes one line. The caller has tested the level.
     * @param severity level of the line.
     * @param file     source file that issues it.
     * @param func     function that issues it.
     * @param line     source line.
     * @param tag      short name of the module.
     * @param fmt      printf-style format of the arguments after it.
     */
    void Log(tavi_log_level_t severity, const char* file, const char* func, int line, const char* tag,
             const char* fmt, ...) __attribute__((format(printf, 7, 8)));

    /** Sends lines to `sink` instead of standard error; null restores standard error. */
    void SetSink(tavi_log_sink_t sink, void* user);

private:
    explicit constexpr TaviLogger(int32_t first) : level(first) {}
};

#endif // TAVI_LOGGER_H
