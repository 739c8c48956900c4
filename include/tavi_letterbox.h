/* SPDX-License-Identifier: MIT */
/**
 * @file tavi_letterbox.h
 * Maps results found in a letterboxed picture back to the source. Header only, C99 and C++17.
 */
#ifndef TAVI_LETTERBOX_H
#define TAVI_LETTERBOX_H

#include "tavi_image.h"

#endif /* TAVI_LETTERBOX_H */
