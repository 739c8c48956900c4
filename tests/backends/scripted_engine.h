// SPDX-License-Identifier: MIT
// A memory-to-memory engine made of a script: it keeps formats, rectangles and queues like a driver, does its jobs
// pixel by pixel, and misbehaves as told. It sees memory, the processor its caches, which are the buffers' files
// here: what one of them writes reaches the other when the caches are cleaned and discarded, and not before.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include <linux/videodev2.h>
#include <sys/types.h>

#include "image/view.h"
#include "os/kernel_calls.h"

namespace tavi::test {

struct ScriptedEngine {
    // What the device is.
    bool multiplanar = false;
    uint32_t capabilities = 0; ///< 0 = a memory-to-memory device of the kind above
    bool selections = true;
    bool alpha = true;
    bool dma_buffers = true;
    bool apart = false;  ///< has NV12 in two buffers, too
    bool spills = false; ///< writes what is between the rows of a result
    bool compressed_results = false;
    std::set<int> nodes = {0}; ///< numbers of /dev/videoN that are there

    // What it does wrong.
    std::function<void(v4l2_format&)> adjust_format; ///< after S_FMT
    std::function<void(v4l2_rect&)> adjust_box;      ///< after S_SELECTION
    bool never_done = false;                         ///< jobs end only when the stream is stopped
    int ready_too_early = 0;                         ///< what poll says; the buffers do not come
    bool job_error = false;
    uint32_t data_offset = 0;    ///< of multi-planar results
    bool matrix_control = false; ///< results take SET_CSC
    bool clean = true;           ///< descriptors are DMA buffers
    int fail_call = -1;          ///< the call that fails once, counted from 0
    int fail_every = 0;          ///< every nth call fails, mappings excepted
    int fail_errno = 0;

    // What happened.
    int calls = 0;
    int opens = 0;
    int jobs = 0;
    int mappings = 0;   ///< made and not undone
    std::string failed; ///< the last call that failed

    ScriptedEngine(); ///< takes the place of the kernel's calls
    ~ScriptedEngine();
    ScriptedEngine(const ScriptedEngine&) = delete;
    ScriptedEngine& operator=(const ScriptedEngine&) = delete;

    void detach(); ///< its buffers: the next job imports them for the first time
    void dirty();  ///< what the processor wrote last is in no memory yet

private:
    struct Queue {
        v4l2_format format{};
        v4l2_rect box{};
        bool streaming = false;
        bool requested = false;
        int buffer[2] = {-1, -1}; ///< queued
        bool done = false;
    };
    struct Imported {
        uint8_t* caches = nullptr; ///< what the processor sees
        std::vector<uint8_t> memory;
    };
    struct Context {
        Queue queue[2]; ///< source, result
        std::map<uint32_t, int> controls;
    };

    int open(const char* path);
    int control(int fd, unsigned long request, void* argument);
    int wait(int fd, short events);
    int map(int fd, size_t bytes, int protection, void** address);
    void unmap(void* address, size_t bytes);
    int failure(const std::string& what);
    int dispatch(Context& c, unsigned long request, void* argument);
    Imported& import(int fd, uint32_t type);
    ImageView whole(const Queue& q);
    void run(Context& c, bool with_garbage);

    int sync(int fd, uint64_t flags);

    KernelCalls kernel_;
    ScriptedEngine* before_;
    std::mutex mutex_;
    std::map<int, Context> contexts_;
    std::map<ino_t, Imported> buffers_; ///< by inode
};

} // namespace tavi::test
