if(TAVI_WITH_FILES)
    find_package(PkgConfig REQUIRED)
    pkg_check_modules(TURBOJPEG REQUIRED IMPORTED_TARGET libturbojpeg)
    find_package(PNG REQUIRED)
    tavi_test(files_test SOURCES files_test.cpp jpeg_test.cpp
        LINK tavi_test_support tavi_backend_cpu tavi_backend_software tavi_pixels tavi_services tavi_core tavi_libyuv PkgConfig::TURBOJPEG PNG::PNG)
endif()
