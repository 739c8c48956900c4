# Compiler flags that every target of ours shares. -ffp-contract=off is part of the contract: a fused multiply-add
# moves region edges by a pixel on machines that have one.
add_library(tavi_options INTERFACE)
target_compile_options(tavi_options INTERFACE -Wall -Wextra -Wshadow -ffp-contract=off -ffunction-sections -fdata-sections)
# The pixel loops name their own; what is around them is a fifth smaller so, and no slower.
if(CMAKE_CXX_FLAGS_RELEASE MATCHES "-O3") # CMake's choice, not somebody's
    target_compile_options(tavi_options INTERFACE $<$<CONFIG:Release>:-O2>)
endif()
# Hardening, as distributions build. Messages and debug data name files from the top of the tree.
target_compile_options(tavi_options INTERFACE -fstack-protector-strong -ffile-prefix-map=${PROJECT_BINARY_DIR}=.
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
if(NOT TAVI_SANITIZE AND NOT CMAKE_BUILD_TYPE STREQUAL "Debug" AND NOT CMAKE_CXX_FLAGS MATCHES "_FORTIFY_SOURCE")
    target_compile_options(tavi_options INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
endif()
# 64-bit lengths and inodes on 32-bit machines too: without, a file that has one counts as absent.
target_compile_definitions(tavi_options INTERFACE _FILE_OFFSET_BITS=64 TAVI_WITH_FRAMES=$<BOOL:${TAVI_WITH_FRAMES}>)
if(TAVI_WERROR)
    target_compile_options(tavi_options INTERFACE -Werror)
endif()
if(TAVI_SANITIZE)
    target_compile_options(tavi_options INTERFACE -fsanitize=${TAVI_SANITIZE} -fno-omit-frame-pointer)
    target_link_options(tavi_options INTERFACE -fsanitize=${TAVI_SANITIZE})
    if(TAVI_SANITIZE MATCHES undefined)
        target_compile_options(tavi_options INTERFACE -fno-sanitize-recover=undefined)
        if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
            # It takes the lowest bit of a Thumb function's address for a misalignment. Data is checked by the machine.
            target_compile_options(tavi_options INTERFACE -fno-sanitize=alignment)
        endif()
    endif()
endif()
target_include_directories(tavi_options INTERFACE
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/src>)

# tavi_room(NAME FILES...): one room of the library as an object library of its own, so that a test or another team
# can link its own in place of ours.
function(tavi_room name)
    add_library(${name} OBJECT ${ARGN})
    target_link_libraries(${name} PRIVATE tavi_options)
endfunction()
