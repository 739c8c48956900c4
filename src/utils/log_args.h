// SPDX-License-Identifier: MIT
// The arguments that the module's log lines repeat: an image's size, a rectangle's edges and size.
#pragma once

#include "image/numbers.h"

#define TAVI_LOG_TAG "tavi-image"
#include "services/log.h"

#define WH(image) (image).width, (image).height
#define LTRB(rect) (rect).left, (rect).top, (rect).right, (rect).bottom
#define RECT_WH(rect) tavi::inclusive_span((rect).left, (rect).right), tavi::inclusive_span((rect).top, (rect).bottom)
