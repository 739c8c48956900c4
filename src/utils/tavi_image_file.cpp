// SPDX-License-Identifier: MIT
// Files: encoded pictures go to the file routines, text to the tensor writer; the raw dump is written here.
#include <cstdio>

#include "backends/cpu/tavi_image_cpu.h"
#include "os/open_file.h"
#include "services/tavi_tensor_txt.h"
#include "utils/log_args.h"

namespace {

int write_data_to_file(const char* path, const uint8_t* data, uint32_t count) {
    FILE* file = tavi::open_to_write(path);
    if (!file) {
        LOG_DEBUG("open error: %s", path); // the callers of a dump decide how loud a missing folder is
        return TAVI_RET_FAIL;
    }
    fwrite(data, 1, count, file); // how much arrived is not looked at: a short dump still counts as written
    fflush(file);
    fclose(file);
    return TAVI_RET_SUCCESS;
}

} // namespace

int tavi_image_read(const char* path, tavi_image_t* img, int read_flag) {
    return img && path ? tavi_image_read_cpu(path, img, read_flag) : TAVI_RET_PARAM_ERR;
}

int tavi_image_write(const char* path, tavi_image_t* img) {
    LOG_INFO("write image(data=%p) to %s", img->data, path); // a null image faults here, when the line is wanted
    return tavi_image_write_cpu(path, img);
}

int tavi_image_write_raw(const char* path, tavi_image_t* img) {
    LOG_INFO("write image to %s", path);
    if (!img || !img->data)
        return TAVI_RET_PARAM_ERR;
    return write_data_to_file(path, img->data, static_cast<uint32_t>(tavi_image_get_size(img)));
}

int tavi_image_write_to_txt(const char* path, tavi_image_t* img) {
    LOG_INFO("write image to %s", path);
    if (!img || !img->data)
        return TAVI_RET_PARAM_ERR;
    const int written = tavi_tensor_write_txt_uint8(path, img->data, tavi_image_get_size(img));
    return written < 0 ? TAVI_RET_FAIL : TAVI_RET_SUCCESS;
}
