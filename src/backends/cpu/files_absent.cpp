// SPDX-License-Identifier: MIT
// Stands in for the file routines in a build without them, so that everything links and says why it refuses.
#ifndef TAVI_WITH_FILES
#define TAVI_LOG_TAG "tavi-cpu"
#include "backends/cpu/tavi_image_cpu.h"
#include "services/log.h"

extern "C" int tavi_image_read_cpu(const char* path, tavi_image_t*, int) {
    LOG_ERROR("cannot read %s: this library was built without image files", path ? path : "(null)");
    return TAVI_RET_UNSUPPORTED;
}

extern "C" int tavi_image_write_cpu(const char* path, tavi_image_t*) {
    LOG_ERROR("cannot write %s: this library was built without image files", path ? path : "(null)");
    return TAVI_RET_UNSUPPORTED;
}
#endif
