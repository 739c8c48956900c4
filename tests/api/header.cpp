// SPDX-License-Identifier: MIT
// Every installed header as C++17, the public one before any other and twice.
#include "tavi_image.h"

#include "services/tavi_logger.h"
#include "services/tavi_mem.h"
#include "services/tavi_mlrt.h"
#include "tavi_frame.h"
#include "tavi_image.h"
#include "tavi_letterbox.h"
#include "tavi_log.h"
