/* SPDX-License-Identifier: MIT */
/**
 * @file tavi_env.h
 * Settings from the environment.
 */
#ifndef TAVI_ENV_H
#define TAVI_ENV_H

#include "tavi_image.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Reads an integer setting: the variable TAVI_ + the key in capitals, else the key as it stands; decimal or 0x
 * hexadecimal. A malformed value is reported once at the error level and counts as absent.
 * @param key           e.g. "use_blit" for TAVI_USE_BLIT, else use_blit.
 * @param value         receives the setting, or the default when there is none; not null.
 * @param default_value what to store when the setting is absent.
 * @return 0 when the setting is present and well formed, TAVI_RET_FAIL when the default was stored,
 *         TAVI_RET_PARAM_ERR for a null argument.
 */
TAVI_API int tavi_env_get_int(const char* key, int* value, int default_value);

#ifdef __cplusplus
}
#endif

#endif /* TAVI_ENV_H */
