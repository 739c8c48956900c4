tavi_test(software_test SOURCES ../pixels/convert_test.cpp ../pixels/scale_test.cpp ../pixels/plan_test.cpp ../pixels/chroma_test.cpp
    LINK tavi_test_support tavi_backend_software tavi_pixels tavi_core tavi_services tavi_libyuv Threads::Threads)
tavi_test(warp_test SOURCES warp_test.cpp letterbox_test.cpp LINK tavi_test_support tavi_everything)
tavi_test(thread_test SOURCES thread_test.cpp LINK tavi_everything)
