# libyuv as the target tavi_libyuv. `system` is the installed one: Debian ships neither a pkg-config file nor a CMake
# config, so it is found by header and library. `source` builds a source tree as a static library that stays hidden
# inside ours, on 32-bit ARM with NEON that is chosen at run time; Debian's binary for that target has none.
set(TAVI_LIBYUV system CACHE STRING "Where libyuv comes from: system or source")
set_property(CACHE TAVI_LIBYUV PROPERTY STRINGS system source)
add_library(tavi_libyuv INTERFACE)

if(TAVI_LIBYUV STREQUAL system)
    find_path(TAVI_LIBYUV_INCLUDE libyuv.h REQUIRED)
    find_library(TAVI_LIBYUV_LIBRARY NAMES yuv REQUIRED)
    target_include_directories(tavi_libyuv SYSTEM INTERFACE ${TAVI_LIBYUV_INCLUDE})
    target_link_libraries(tavi_libyuv INTERFACE ${TAVI_LIBYUV_LIBRARY})
    set(TAVI_PC_LIBYUV "-lyuv ") # what else a static link of ours needs
elseif(TAVI_LIBYUV STREQUAL source)
    set(TAVI_LIBYUV_SOURCE_DIR "$ENV{TAVI_LIBYUV_SOURCE_DIR}" CACHE PATH "libyuv's source tree, for TAVI_LIBYUV=source")
    if(NOT EXISTS "${TAVI_LIBYUV_SOURCE_DIR}/include/libyuv.h")
        message(FATAL_ERROR "TAVI_LIBYUV=source: TAVI_LIBYUV_SOURCE_DIR='${TAVI_LIBYUV_SOURCE_DIR}' holds no "
            "include/libyuv.h. Name libyuv's source tree; `. scripts/arm-env.sh` fetches Debian's and names it.")
    endif()
    file(GLOB libyuv_sources "${TAVI_LIBYUV_SOURCE_DIR}/source/*.cc")
    list(FILTER libyuv_sources EXCLUDE REGEX "mjpeg") # needs a JPEG library, and nothing of it is used
    add_library(tavi_libyuv_static STATIC ${libyuv_sources})
    target_include_directories(tavi_libyuv_static SYSTEM PUBLIC "${TAVI_LIBYUV_SOURCE_DIR}/include")
    # Optimised in every build: its NEON rows do not compile otherwise. Its warnings are not ours.
    target_compile_options(tavi_libyuv_static PRIVATE -O2 -w -ffunction-sections -fdata-sections)
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
        # Every file is told that there are NEON rows, and only those that hold them are compiled for NEON: a
        # processor without it never gets there.
        target_compile_definitions(tavi_libyuv_static PRIVATE LIBYUV_NEON)
        set(libyuv_neon ${libyuv_sources})
        list(FILTER libyuv_neon INCLUDE REGEX "_neon\\.cc$")
        set_source_files_properties(${libyuv_neon} PROPERTIES COMPILE_OPTIONS "-mfpu=neon")
    endif()
    target_link_libraries(tavi_libyuv INTERFACE tavi_libyuv_static)
else()
    message(FATAL_ERROR "TAVI_LIBYUV=${TAVI_LIBYUV}: system and source are allowed")
endif()
