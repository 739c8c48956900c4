# The engine's backend below the whole module, so that what it refuses is served by software.
tavi_test(blit_test SOURCES blit_test.cpp scripted_engine.cpp LINK tavi_image_static)
tavi_test(engine_test SOURCES engine_test.cpp LINK tavi_image_static)
tavi_test(frame_engine_test SOURCES frame_engine_test.cpp scripted_engine.cpp LINK tavi_image_static)
