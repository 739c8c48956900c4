// SPDX-License-Identifier: MIT
// The library at the edges of a process's life: forks among busy threads, work while threads and the process end.
// Usage: life_test fork|ends
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tavi_image.h"
#include "tavi_log.h"
#include "tavi_mem.h"

namespace {

/// Memory, a conversion that needs a scratch, lines of the log and an error; 0 when all went well.
int work() {
    tavi_image_t src = {}, dst = {};
    src.pixel_format = TAVI_PIXEL_FORMAT_YUV422_UYVY;
    src.width = src.height = 64;
    dst.pixel_format = TAVI_PIXEL_FORMAT_RGB888;
    dst.width = 32;
    dst.height = 40;
    if (tavi_image_create_mem2(&src, TAVI_MEM_TYPE_HEAP) != 0 || tavi_image_create_mem(&dst) != 0)
        return 1;
    std::memset(src.data, 128, src.size);
    const int failed = tavi_image_convert(&src, &dst, TAVI_IMAGE_TRANSFORM_ROTATE_90) != 0 || dst.data[3839] != 130;
    tavi_log_set_level(9);
    if (std::strncmp(tavi_last_error(), "level=9", 7) != 0)
        return 1;
    return failed + (tavi_image_release(&src) != 0) + (tavi_image_release(&dst) != 0);
}

void work_or_die() {
    if (work() != 0)
        std::_Exit(3);
}

/// 0 when the child of a fork has done its work in time.
template <class Work>
int in_child(unsigned seconds, Work child_work) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(seconds); // a lock that is never freed
        _exit(child_work());
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

/// Children of a process whose threads hold its locks most of the time, from their first calls on.
int fork_among_threads() {
    tavi_log_set_level(TAVI_LOG_DEBUG);
    tavi_log_set_sink([](void*, tavi_log_level_t, const char*, const char*, const char*) {}, nullptr);
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&] {
            while (!stop)
                work_or_die();
        });
    int failed = 0;
    for (int i = 0; i < 25 && failed == 0; ++i)
        failed = in_child(20, work);
    stop = true;
    for (std::thread& t : threads)
        t.join();
    return failed != 0;
}

int forks() {
    int failed = 0;
    for (int i = 0; i < 20; ++i)
        failed += in_child(60, fork_among_threads) != 0;
    std::printf("%d of 20 processes with a child that failed or hung\n", failed);
    return failed;
}

struct AtTheEnd {
    ~AtTheEnd() { work_or_die(); }
};
AtTheEnd g_static;
thread_local AtTheEnd g_of_thread;

/// Work in every kind of destructor, before and after the library has used its own.
int ends() {
    tavi_log_set_level(TAVI_LOG_NONE);
    pthread_key_t before, after;
    pthread_key_create(&before, [](void*) { work_or_die(); });
    std::atexit(work_or_die);
    work_or_die();
    pthread_key_create(&after, [](void*) { work_or_die(); });
    std::thread([&] {
        pthread_setspecific(before, &before);
        pthread_setspecific(after, &after);
        static_cast<void>(&g_of_thread);
        work_or_die();
    }).join();
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    return mode == "fork" ? forks() : mode == "ends" ? ends() : 2;
}
