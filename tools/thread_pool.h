// SPDX-License-Identifier: MIT
// A few threads that wait for work: what an application lends to the frames as a tavi_executor_t.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "tavi_frame.h"

class ThreadPool {
public:
    /// `threads` in all: the caller of run() is one of them.
    explicit ThreadPool(int threads) : executor{&ThreadPool::run, this, threads} {
        for (int i = 1; i < threads; ++i)
            workers_.emplace_back([this] { work(); });
    }
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;
    ~ThreadPool() {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            ends_ = true;
        }
        wake_.notify_all();
        for (std::thread& t : workers_)
            t.join();
    }

    const tavi_executor_t executor;

private:
    using Job = void (*)(void* context, int32_t index);

    static void run(void* self, Job job, void* context, int32_t count) {
        auto& pool = *static_cast<ThreadPool*>(self);
        const std::lock_guard<std::mutex> one_at_a_time(pool.callers_);
        std::unique_lock<std::mutex> lock(pool.mutex_);
        pool.job_ = job, pool.context_ = context;
        pool.next_ = 0, pool.count_ = pool.left_ = count;
        pool.wake_.notify_all();
        while (pool.next_ < pool.count_)
            pool.do_next(lock);
        pool.done_.wait(lock, [&] { return pool.left_ == 0; });
    }

    void do_next(std::unique_lock<std::mutex>& lock) {
        const Job job = job_;
        void* const context = context_;
        const int32_t index = next_++;
        lock.unlock();
        job(context, index);
        lock.lock();
        if (--left_ == 0)
            done_.notify_one();
    }

    void work() {
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;) {
            wake_.wait(lock, [this] { return ends_ || next_ < count_; });
            if (ends_)
                return;
            do_next(lock);
        }
    }

    std::mutex callers_; ///< one request at a time
    std::mutex mutex_;   ///< of what follows
    std::condition_variable wake_, done_;
    Job job_ = nullptr;
    void* context_ = nullptr;
    int32_t next_ = 0, count_ = 0, left_ = 0;
    bool ends_ = false;
    std::vector<std::thread> workers_;
};
