if(TAVI_WITH_DRAWING)
    tavi_test(drawing_test SOURCES drawing_test.cpp
        LINK tavi_test_support tavi_backend_cpu tavi_backend_software tavi_pixels tavi_services tavi_core tavi_libyuv)
endif()
if(TAVI_WITH_DRAWING AND TAVI_WITH_FILES)
    include(examples.cmake)
endif()
