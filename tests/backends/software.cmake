tavi_test(warp_test SOURCES warp_test.cpp letterbox_test.cpp LINK tavi_test_support tavi_everything)
tavi_test(thread_test SOURCES thread_test.cpp LINK tavi_everything)
