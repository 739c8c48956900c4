# libyuv: Debian ships neither a pkg-config file nor a CMake config, so it is found by header and library.
find_path(TAVI_LIBYUV_INCLUDE libyuv.h REQUIRED)
find_library(TAVI_LIBYUV_LIBRARY NAMES yuv REQUIRED)
add_library(tavi_libyuv INTERFACE)
target_include_directories(tavi_libyuv SYSTEM INTERFACE ${TAVI_LIBYUV_INCLUDE})
target_link_libraries(tavi_libyuv INTERFACE ${TAVI_LIBYUV_LIBRARY})
