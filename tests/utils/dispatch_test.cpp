// SPDX-License-Identifier: MIT
#include "utils/scene.h"

TEST_P(Dispatch, CallsAndLogsInOrder) {
    const Case& c = GetParam();
    Scene scene;
    TaviLogger::GetInstance()->level = c.level;
    if (c.arrange)
        c.arrange(scene, fakes::world());
    EXPECT_EQ(c.act(scene), c.ret);
    EXPECT_EQ(fakes::take_trace(), c.trace);
}
