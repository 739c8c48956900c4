// SPDX-License-Identifier: MIT
#include <cstdio>
#include <sstream>

#include "utils/scene.h"

static void change(tavi_image_t& image, const std::string& field, int value) {
    const auto number = static_cast<uint32_t>(value);
    if (field == "fd")
        image.fd = value;
    else if (field == "w")
        image.width = number;
    else if (field == "h")
        image.height = number;
    else if (field == "fmt")
        image.pixel_format = static_cast<tavi_pixel_format>(number);
    else if (field == "lent")
        image.is_prealloc_buf = static_cast<uint8_t>(number);
    else if (field == "data")
        image.data = value ? image.data : nullptr;
    else if (field == "phy")
        image.data_phy = reinterpret_cast<void*>(static_cast<uintptr_t>(number));
    else
        ADD_FAILURE() << field;
}

Scene::Scene(const std::string& changes) {
    fakes::World& w = fakes::world();
    w.name("src", src);
    w.name("dst", dst);
    w.names[&rect] = "rect";
    w.names[&out] = "out";
    for (int i = 0; i < 4; ++i)
        w.names[&f[i]] = "f" + std::to_string(i);

    std::istringstream words(changes);
    for (std::string word; words >> word;) {
        const size_t equals = word.find('=');
        const std::string key = word.substr(0, equals), text = word.substr(equals + 1);
        const int value = atoi(text.c_str());
        if (key == "roi")
            EXPECT_EQ(sscanf(text.c_str(), "%d,%d,%d,%d", &rect.left, &rect.top, &rect.right, &rect.bottom), 4);
        else if (key == "setting")
            w.setting = text.empty() ? std::vector<int>{} : std::vector<int>{value};
        else if (key == "heap")
            w.heap_refuses = value == 0;
        else if (key.substr(0, 4) == "src." || key.substr(0, 4) == "dst.")
            change(key[0] == 's' ? src : dst, key.substr(4), value);
        else
            w.answers[key] = value;
    }
}

TEST_P(Dispatch, CallsAndLogsInOrder) {
    const Case& c = GetParam();
    Scene scene(c.changes);
    TaviLogger::GetInstance()->level = c.level;
    EXPECT_EQ(c.act(scene), c.ret);
    EXPECT_EQ(fakes::take_trace(), c.trace);
}
