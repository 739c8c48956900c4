# 64-bit ARM Linux, where NEON is in the baseline. A compiler or flags of your own win, as for 32 bits.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(TAVI_ARM_ARCH arm64)
set(TAVI_ARM_TRIPLET aarch64-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-arm-common.cmake)
