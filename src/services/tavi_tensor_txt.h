/* SPDX-License-Identifier: MIT */
/**
 * @file tavi_tensor_txt.h
 * Writes tensors as text.
 */
#ifndef TAVI_TENSOR_TXT_H
#define TAVI_TENSOR_TXT_H

#include "tavi_image.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Writes unsigned bytes as decimal numbers, one a line. The file is created or truncated.
 * @param path  file to write.
 * @param data  the bytes; may be null when `count` is 0.
 * @param count how many, 0 or more.
 * @return how many were written, or -1 for a bad argument or when the file cannot be written whole.
 */
TAVI_API int tavi_tensor_write_txt_uint8(const char* path, const uint8_t* data, int count);

#ifdef __cplusplus
}
#endif

#endif /* TAVI_TENSOR_TXT_H */
