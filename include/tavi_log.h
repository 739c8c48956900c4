/* SPDX-License-Identifier: MIT */
/**
 * @file tavi_log.h
 * The log from C: which lines are written and where to, and the last error of a thread as text. TaviLogger
 * (tavi_logger.h) is the same log from C++. Every function may be called at any time from any thread.
 *
 * @code
 * tavi_log_set_level(TAVI_LOG_NONE);
 * if (tavi_image_convert(&src, &dst, TAVI_IMAGE_TRANSFORM_NONE) != TAVI_RET_SUCCESS)
 *     return fail(tavi_last_error());
 * @endcode
 *
 * The header compiles as C99 and as C++17.
 */
#ifndef TAVI_LOG_H
#define TAVI_LOG_H

#include "tavi_image.h"

/** Severity of a line; lower is more severe. A line is written when the log's level is at least its own. */
#ifdef __cplusplus
enum tavi_log_level_t : int32_t {
#else
typedef int32_t tavi_log_level_t;
enum {
#endif
    TAVI_LOG_ERROR = 0, /**< refused arguments and impossible requests */
    TAVI_LOG_WARN = 1,  /**< recoverable events; the default level */
    TAVI_LOG_INFO = 2,  /**< the trace of normal work */
    TAVI_LOG_DEBUG = 3  /**< everything */
};

/** For tavi_log_set_level(): no line at all. */
#define TAVI_LOG_NONE (-1)

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Receives each line that passes the level, already formatted, without a line feed at its end.
 * Called on the thread that logs, under the logger's lock: it must neither log nor fork.
 * @param user what was given with the sink.
 */
typedef void (*tavi_log_sink_t)(void* user, tavi_log_level_t level, const char* tag, const char* func,
                                const char* message);

/**
 * Sets the level for the process, in place of the setting TAVI_LOG_LEVEL.
 * @param level one of TAVI_LOG_*. With TAVI_LOG_NONE errors are still kept for tavi_last_error().
 * @return TAVI_RET_SUCCESS; TAVI_RET_PARAM_ERR for another value, which changes nothing.
 */
TAVI_API int tavi_log_set_level(int level);

/** The level: TAVI_LOG_NONE to TAVI_LOG_DEBUG. */
TAVI_API int tavi_log_get_level(void);

/** Sends lines to `sink` instead of standard error; null restores standard error. */
TAVI_API void tavi_log_set_sink(tavi_log_sink_t sink, void* user);

/**
 * The last line at the error level that the calling thread issued: its message as a sink gets it, cut after 511 bytes
 * between two characters. Written or not, it is kept until the next one; calls that succeed do not clear it.
 * @return never null, "" when there was none; valid until the thread's next error, or its end.
 */
TAVI_API const char* tavi_last_error(void);

#ifdef __cplusplus
}
#endif

#endif /* TAVI_LOG_H */
