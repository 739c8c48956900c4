# What both ARM toolchain files share; they name TAVI_ARM_ARCH as Debian does, and TAVI_ARM_TRIPLET.
# TAVI_ARM_SYSROOT (cache or environment) is a folder with the target's libraries, e.g. as scripts/arm-env.sh makes it.
set(CMAKE_SYSTEM_NAME Linux)
if(NOT DEFINED CMAKE_C_COMPILER AND NOT DEFINED ENV{CC})
    set(CMAKE_C_COMPILER ${TAVI_ARM_TRIPLET}-gcc)
endif()
if(NOT DEFINED CMAKE_CXX_COMPILER AND NOT DEFINED ENV{CXX})
    set(CMAKE_CXX_COMPILER ${TAVI_ARM_TRIPLET}-g++)
endif()

if(NOT TAVI_ARM_SYSROOT)
    set(TAVI_ARM_SYSROOT "$ENV{TAVI_ARM_SYSROOT}" CACHE PATH "Folder with the libraries of the ARM target" FORCE)
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TAVI_ARM_SYSROOT)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
if(TAVI_ARM_SYSROOT)
    list(APPEND CMAKE_FIND_ROOT_PATH ${TAVI_ARM_SYSROOT})
    set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
    set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
    set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
    set(tavi_arm_lib ${TAVI_ARM_SYSROOT}/usr/lib/${TAVI_ARM_TRIPLET})
    set(ENV{PKG_CONFIG_LIBDIR} ${tavi_arm_lib}/pkgconfig:${TAVI_ARM_SYSROOT}/usr/share/pkgconfig)
    set(ENV{PKG_CONFIG_SYSROOT_DIR} ${TAVI_ARM_SYSROOT})
    # Libraries that our libraries need are found there too.
    foreach(kind EXE SHARED)
        set(CMAKE_${kind}_LINKER_FLAGS_INIT
            "-Wl,-rpath-link,${tavi_arm_lib}:${TAVI_ARM_SYSROOT}/lib/${TAVI_ARM_TRIPLET}")
    endforeach()
endif()

# Tests run in an emulator where there is no board.
if(NOT DEFINED CMAKE_CROSSCOMPILING_EMULATOR)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/run-arm.sh ${TAVI_ARM_ARCH})
endif()
