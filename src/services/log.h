// SPDX-License-Identifier: MIT
// The guarded log call: the level is read first, the logger is fetched again for the call, and the arguments of a
// suppressed line are not evaluated. A file that logs defines TAVI_LOG_TAG before it includes this one.
#pragma once

#include "services/tavi_logger.h"

#ifndef TAVI_LOG_TAG
#error "define TAVI_LOG_TAG before including services/log.h"
#endif

/// A line that a helper issues carries the name of the contract function that it works for.
#define LOG_AS(function, severity, ...)                                                                              \
    do {                                                                                                             \
        if (TaviLogger::GetInstance()->level.load(std::memory_order_relaxed) >= (severity))                          \
            TaviLogger::GetInstance()->Log((severity), __FILE__, (function), __LINE__, TAVI_LOG_TAG, __VA_ARGS__);   \
    } while (0)

#define TAVI_LOG(severity, ...) LOG_AS(__func__, severity, __VA_ARGS__)

#define LOG_ERROR(...) TAVI_LOG(TAVI_LOG_ERROR, __VA_ARGS__)
#define LOG_WARN(...) TAVI_LOG(TAVI_LOG_WARN, __VA_ARGS__)
#define LOG_INFO(...) TAVI_LOG(TAVI_LOG_INFO, __VA_ARGS__)
#define LOG_DEBUG(...) TAVI_LOG(TAVI_LOG_DEBUG, __VA_ARGS__)
