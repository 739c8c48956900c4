// SPDX-License-Identifier: MIT
// Stands in for the file routines in a build without them, so that everything links and says why it refuses.
#ifndef TAVI_WITH_FILES
#define TAVI_LOG_TAG "tavi-cpu"
#include "backends/cpu/files/picture.h"
#include "backends/cpu/tavi_image_cpu.h"
#include "services/log.h"

namespace tavi {

constexpr char kAbsent[] = "this library was built without image files";

Refusal read_header(Input&, std::unique_ptr<Decoder>&, FileHeader&) { return {TAVI_RET_UNSUPPORTED, kAbsent}; }

Refusal open_picture(Input&, uint64_t, std::unique_ptr<Decoder>&, FileHeader&) {
    return {TAVI_RET_UNSUPPORTED, kAbsent};
}

Refusal open_picture(const char*, Input&, std::unique_ptr<Decoder>&, FileHeader&) {
    return {TAVI_RET_UNSUPPORTED, kAbsent};
}

bool turns_sides(int) { return false; }

Refusal decode_picture(Decoder&, const FileHeader&, int, const ImageView&, const char*) {
    return {TAVI_RET_UNSUPPORTED, kAbsent};
}

Refusal encode_picture(const ImageView&, PictureType, int, ByteSink&, const char*) {
    return {TAVI_RET_UNSUPPORTED, kAbsent};
}

Refusal write_picture(const tavi_image_t&, const char*, Output&) { return {TAVI_RET_UNSUPPORTED, kAbsent}; }

} // namespace tavi

extern "C" int tavi_image_read_cpu(const char* path, tavi_image_t*, int) {
    LOG_ERROR("cannot read %s: %s", path ? path : "(null)", tavi::kAbsent);
    return TAVI_RET_UNSUPPORTED;
}

extern "C" int tavi_image_write_cpu(const char* path, tavi_image_t*) {
    LOG_ERROR("cannot write %s: %s", path ? path : "(null)", tavi::kAbsent);
    return TAVI_RET_UNSUPPORTED;
}
#endif
