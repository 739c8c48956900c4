# 32-bit ARM Linux: ARMv7-A, hard float, NEON not in the baseline (it is chosen at run time). A compiler or flags of your
# own win: -DCMAKE_CXX_COMPILER=..., -DCMAKE_CXX_FLAGS=..., or CC, CXX, CFLAGS and CXXFLAGS.
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_C_FLAGS_INIT "-march=armv7-a+fp -mfloat-abi=hard")
set(CMAKE_CXX_FLAGS_INIT "-march=armv7-a+fp -mfloat-abi=hard")
set(TAVI_ARM_ARCH armhf)
set(TAVI_ARM_TRIPLET arm-linux-gnueabihf)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-arm-common.cmake)
