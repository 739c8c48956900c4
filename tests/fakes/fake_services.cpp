// SPDX-License-Identifier: MIT
#include "fakes/trace.h"
#include "services/tavi_env.h"
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
    if (ret == 0 && size > 0)
        *record = {1, 1, new uint8_t[static_cast<size_t>(size)], reinterpret_cast<void*>(0x1000), 9, 0, 0, 0};
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
