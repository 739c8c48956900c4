// SPDX-License-Identifier: MIT
// What the fuzzers share: input taken from the front, and a process that names no device and says nothing.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "services/tavi_logger.h"

/// Beyond the end it goes on with zeros.
struct Input {
    const uint8_t* at;
    size_t left;

    uint8_t byte() {
        if (left == 0)
            return 0;
        --left;
        return *at++;
    }
    template <class T>
    T raw() {
        T value;
        uint8_t bytes[sizeof(T)];
        for (uint8_t& b : bytes)
            b = byte();
        std::memcpy(&value, bytes, sizeof(T));
        return value;
    }
};

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setenv("TAVI_BLIT_DEVICE", "none", 1);
    setenv("TAVI_DMA_HEAP", "none", 1);
    setenv("TAVI_MAX_PIXELS", "65536", 1);
    // Lines are formatted, so that their arguments are used, and dropped.
    TaviLogger::GetInstance()->level = TAVI_LOG_DEBUG;
    TaviLogger::GetInstance()->SetSink([](void*, tavi_log_level_t, const char*, const char*, const char*) {},
                                       nullptr);
    return 0;
}
