// SPDX-License-Identifier: MIT
// The services as recording fakes. The logger writes into the trace: addresses by name, and a complaint when file,
// line or tag are not what the module must hand over.
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <regex>

#include "fakes/fakes.h"
#include "services/tavi_env.h"
#include "services/tavi_logger.h"
#include "services/tavi_mem.h"
#include "services/tavi_tensor_txt.h"

using fakes::call;
using fakes::world;

int tavi_env_get_int(const char* key, int* value, int default_value) {
    const bool as_agreed = std::string(key) == "use_blit" && *value == 1 && default_value == 1;
    fakes::add(as_agreed ? "env" : "env " + std::string(key) + " " + std::to_string(*value));
    if (!world().setting.empty())
        *value = world().setting.front();
    return 0;
}

int tavi_mem_alloc(int size, int type, tavi_mem_record_t* record) {
    const int ret = call("alloc", size, type);
    if (ret == 0 && size > 0) {
        *record = {1, 1, new uint8_t[static_cast<size_t>(size)], reinterpret_cast<void*>(0x1000), 9, 0, 0, 0};
        world().names[record->virt_addr] = "new";
        world().names[record->phys_addr] = "phys";
    }
    return ret;
}

int tavi_mem_check_record_by_virt_addr(void* addr, int where) {
    return call("mem_check", static_cast<const void*>(addr), where);
}

// A failing free leaves the memory to the test.
int tavi_mem_free_by_virt_addr(void* addr) {
    const int ret = call("mem_free", static_cast<const void*>(addr));
    if (ret == 0)
        delete[] static_cast<uint8_t*>(addr);
    return ret;
}

int tavi_tensor_write_txt_uint8(const char* path, const uint8_t* data, int count) {
    return call("txt", path, static_cast<const void*>(data), count);
}

TaviLogger* TaviLogger::GetInstance() {
    static TaviLogger logger(TAVI_LOG_WARN);
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
