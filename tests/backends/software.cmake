add_library(tavi_test_support OBJECT ${CMAKE_SOURCE_DIR}/tests/support/reference.cpp)
target_include_directories(tavi_test_support PUBLIC ${CMAKE_SOURCE_DIR}/tests)
target_link_libraries(tavi_test_support PRIVATE tavi_options)

tavi_test(software_test SOURCES convert_test.cpp scale_test.cpp plan_test.cpp
    LINK tavi_test_support tavi_backend_software tavi_core tavi_services tavi_libyuv Threads::Threads)
tavi_test(warp_test SOURCES warp_test.cpp letterbox_test.cpp LINK tavi_test_support tavi_everything)
tavi_test(thread_test SOURCES thread_test.cpp LINK tavi_everything)
