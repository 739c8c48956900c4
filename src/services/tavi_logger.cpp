// SPDX-License-Identifier: MIT
// The process-wide logger: each line is formatted on the caller's thread and leaves in one write, so that lines of
// several threads and processes do not mix.
#include "services/tavi_logger.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>
#include <unistd.h>

#include "os/locks.h"
#include "services/escape.h"
#include "services/last_error.h"
#include "services/parse_int.h"

static_assert(std::atomic<int32_t>::is_always_lock_free && sizeof(std::atomic<int32_t>) == sizeof(int32_t),
              "the level is read as a plain 32-bit field");

namespace {

// Here, since this file is part of every program that links the library, statically too.
[[maybe_unused]] const int g_forks_are_watched = tavi::watch_forks();

// Its lock also keeps the parts of a line together when a write is short.
struct {
    tavi_log_sink_t sink;
    void* user;
} g_output;

// TAVI_LOG_NONE is the level of errors and this: whoever logs sees that an error is wanted, and it is kept for its
// thread. A higher level that is written to the logger's field afterwards holds again.
std::atomic<bool> g_silent{false};

bool is_silent(int32_t level) { return level <= TAVI_LOG_ERROR && g_silent; }

constexpr int32_t kNotRead = INT32_MIN; ///< a level before the setting has been looked at

constexpr const char* kLevelNames[] = {"ERROR", "WARN ", "INFO ", "DEBUG"};

struct Free {
    void operator()(char* p) const { free(p); }
};

size_t format_header(char* to, size_t capacity, tavi_log_level_t severity, const char* tag, const char* func,
                     int line) {
    timespec now{};
    tm local{};
    clock_gettime(CLOCK_REALTIME, &now);
    {
        const std::lock_guard<std::mutex> lock(tavi::g_locks.log);
        localtime_r(&now.tv_sec, &local);
    }
    size_t n = strftime(to, capacity, "%F %T", &local);
    const unsigned level = static_cast<unsigned>(severity);
    const int more = snprintf(to + n, capacity - n, ".%03d %s [%s] %s:%d: ", static_cast<int>(now.tv_nsec / 1000000),
                              level < 4 ? kLevelNames[level] : "?    ", tag, func, line);
    n += more > 0 ? static_cast<size_t>(more) : 0;
    return n < capacity ? n : capacity - 1;
}

void write_whole(const char* from, size_t n) {
    while (n > 0) {
        const ssize_t written = write(STDERR_FILENO, from, n);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return; // a logger has nobody to tell
        from += written;
        n -= static_cast<size_t>(written);
    }
}

} // namespace

// Needs neither a lock, which others hold while they log, nor a constructor or a destructor at run time.
TaviLogger* TaviLogger::GetInstance() {
    static TaviLogger logger(kNotRead);
    if (logger.level.load(std::memory_order_relaxed) != kNotRead)
        return &logger;
    const char* const text = secure_getenv("TAVI_LOG_LEVEL");
    int wanted = TAVI_LOG_WARN;
    const bool is_level =
        !text || (tavi::parse_int(text, &wanted) && wanted >= TAVI_LOG_ERROR && wanted <= TAVI_LOG_DEBUG);
    int32_t before = kNotRead; // another thread may have read the same meanwhile
    if (logger.level.compare_exchange_strong(before, is_level ? wanted : TAVI_LOG_WARN) && !is_level)
        logger.Log(TAVI_LOG_ERROR, __FILE__, __func__, __LINE__, "tavi-log",
                   "TAVI_LOG_LEVEL=\"%s\" is not a level from 0 to 3; %d is used", text,
                   static_cast<int>(TAVI_LOG_WARN));
    return &logger;
}

void TaviLogger::Log(tavi_log_level_t severity, const char*, const char* func, int line, const char* tag,
                     const char* fmt, ...) {
    const int saved_errno = errno; // callers log between a failure and their look at errno
    char small[1024];
    const bool silent = is_silent(this->level.load(std::memory_order_relaxed));
    const size_t header = silent ? 0 : format_header(small, sizeof(small) / 2, severity, tag, func, line);

    va_list args;
    va_start(args, fmt);
    va_list again;
    va_copy(again, args);
    const int formatted = vsnprintf(small + header, sizeof(small) - header, fmt, args);
    va_end(args);
    size_t length = formatted > 0 ? static_cast<size_t>(formatted) : 0;

    char* text = small;
    std::unique_ptr<char, Free> large;
    if (header + length >= sizeof(small)) {
        large.reset(static_cast<char*>(malloc(header + length + 1)));
        if (large) {
            text = large.get();
            memcpy(text, small, header);
            vsnprintf(text + header, length + 1, fmt, again);
        } else {
            length = sizeof(small) - 1 - header; // no memory: the line loses its end
        }
    }
    va_end(again);
    while (length > 0 && text[header + length - 1] == '\n')
        --length; // some messages bring a line feed of their own
    // Names come from others: escaped, none of them ends this line or starts another one.
    if (const size_t escaped = tavi::escaped_length(text + header, length); escaped > length) {
        if (char* const room = static_cast<char*>(malloc(header + escaped + 1))) {
            memcpy(room, text, header + length);
            large.reset(text = room);
        } else {
            const size_t capacity = large ? length : sizeof(small) - 1 - header;
            length = std::min(length, capacity / 4); // the line loses its end
        }
        const size_t kept = tavi::escaped_length(text + header, length);
        tavi::escape_controls(text + header, length, kept);
        length = kept;
    }

    if (severity == TAVI_LOG_ERROR)
        tavi::keep_last_error(text + header, length);
    if (!silent) {
        const std::lock_guard<std::mutex> lock(tavi::g_locks.log);
        if (g_output.sink) {
            text[header + length] = '\0';
            g_output.sink(g_output.user, severity, tag, func, text + header);
        } else {
            text[header + length] = '\n'; // in the terminator's place: nothing reads it as a string any more
            write_whole(text, header + length + 1);
        }
    }
    errno = saved_errno;
}

void TaviLogger::SetSink(tavi_log_sink_t sink, void* user) {
    const std::lock_guard<std::mutex> lock(tavi::g_locks.log);
    g_output = {sink, user};
}

int tavi_log_set_level(int level) {
    TaviLogger* const logger = TaviLogger::GetInstance();
    if (level < TAVI_LOG_NONE || level > TAVI_LOG_DEBUG) {
        logger->Log(TAVI_LOG_ERROR, __FILE__, __func__, __LINE__, "tavi-log", "level=%d; allowed are -1 to 3", level);
        return TAVI_RET_PARAM_ERR;
    }
    const std::lock_guard<std::mutex> lock(tavi::g_locks.log); // two callers must not mix
    g_silent = level == TAVI_LOG_NONE;
    logger->level = std::max<int32_t>(level, TAVI_LOG_ERROR);
    return TAVI_RET_SUCCESS;
}

int tavi_log_get_level() {
    const int32_t level = TaviLogger::GetInstance()->level;
    return is_silent(level) ? TAVI_LOG_NONE : std::clamp<int32_t>(level, TAVI_LOG_NONE, TAVI_LOG_DEBUG);
}

void tavi_log_set_sink(tavi_log_sink_t sink, void* user) { TaviLogger::GetInstance()->SetSink(sink, user); }

const char* tavi_last_error() { return tavi::last_error(); }
