// SPDX-License-Identifier: MIT
// What the library shows to others, and which room of it knows which.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <string>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;

TEST(Api, ExportsTheListedNamesAndNoOthers) {
    std::ifstream listed(TAVI_SOURCE_DIR "/tests/api/exports.txt");
    std::set<std::string> expected{std::istream_iterator<std::string>(listed), {}};

    std::set<std::string> exported;
    const std::unique_ptr<FILE, int (*)(FILE*)> nm(
        popen(TAVI_NM " -D -C --defined-only --format=posix '" TAVI_LIBRARY "'", "r"), pclose);
    char line[512];
    while (nm && fgets(line, sizeof(line), nm.get())) {
        std::string name(line);
        if (name.find(" A ") == name.npos) // a version
            exported.insert(name.substr(0, name.find_first_of("(@ ")));
    }
    EXPECT_EQ(exported, expected);
}

TEST(Api, TheLibraryIsHardenedAndStaysLoaded) {
    const std::unique_ptr<FILE, int (*)(FILE*)> elf(
        popen("LC_ALL=C " TAVI_READELF " -W -l -d --dyn-syms '" TAVI_LIBRARY "'", "r"), pclose);
    std::string shown;
    for (char line[512]; elf && fgets(line, sizeof(line), elf.get());)
        shown += line;
    for (const char* mark : {"GNU_RELRO", "NOW", "NODELETE", "__stack_chk_fail"})
        EXPECT_NE(shown.find(mark), std::string::npos) << mark;
#ifdef _FORTIFY_SOURCE
    EXPECT_NE(shown.find("__snprintf_chk"), std::string::npos);
#endif
#ifndef __SANITIZE_ADDRESS__ // whose reports name whole paths
    std::ifstream file(TAVI_LIBRARY, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    EXPECT_GT(bytes.size(), 10000u);
    for (const char* path : {TAVI_SOURCE_DIR "/", TAVI_BINARY_DIR})
        EXPECT_EQ(bytes.find(path), std::string::npos) << "a path of the machine that built it";
#endif
}

// One room above another in this list may include it; rooms of one rank do not know each other.
const std::map<std::string, int> kRanks = {{"os", 0},     {"image", 1},    {"services", 2}, {"kernels", 3},
                                           {"pixels", 4}, {"backends", 5}, {"utils", 6},    {"frames", 6}};

std::string why_not(const std::string& file, const std::string& header) {
    const std::string room = file.substr(0, file.find('/')), other = header.substr(0, header.find('/'));
    const auto to = kRanks.find(other);
    if (to == kRanks.end())
        return header == "tavi_image.h" || header == "tavi_letterbox.h" || header == "tavi_log.h" ||
                       (header == "tavi_frame.h" && (room == "frames" || room == "pixels"))
                   ? ""
                   : "not written from src/";
    if (to->second > kRanks.at(room) || (to->second == kRanks.at(room) && room != other))
        return "points upwards";
    if (room == "backends" && other == "backends") {
        const auto backend = [](const std::string& path) { return path.substr(0, path.find('/', 9)); };
        return backend(file) == backend(header) ? "" : "backends do not know each other";
    }
    if (room == "utils" && other == "image")
        return header == "image/format.h" || header == "image/numbers.h" ? "" : "the module sees no views";
    if (room == "utils" && other == "os")
        return header == "os/open_file.h" || header == "os/locks.h" ? "" : "not header-only";
    if (room == "utils" && other != "utils")
        return std::regex_search(header, std::regex("/(tavi_[a-z_]+|log)\\.h$")) ? "" : "not a contract header";
    return "";
}

TEST(Api, IncludesPointDownwards) {
    const struct {
        const char* header;
        const char* room;
    } kept_in[] = {{"libyuv", "pixels/"},
                   {"linux/videodev2.h", "backends/blit/"},
                   {"turbojpeg.h", "backends/cpu/files/"},
                   {"png.h", "backends/cpu/files/"}};
    const std::regex include(R"re(^\s*#\s*include\s+(["<])([^">]+)[">])re");
    const fs::path src = fs::path(TAVI_SOURCE_DIR) / "src";
    int read = 0;
    for (const auto& entry : fs::recursive_directory_iterator(src)) {
        const std::string file = fs::relative(entry.path(), src).generic_string();
        if (entry.path().extension() != ".h" && entry.path().extension() != ".cpp")
            continue;
        std::ifstream in(entry.path());
        std::smatch m;
        for (std::string line; std::getline(in, line);) {
            EXPECT_FALSE(line.find("fopen(") != line.npos && file.rfind("os/", 0) != 0)
                << file << " may open a standard stream";
            if (!std::regex_search(line, m, include))
                continue;
            ++read;
            const std::string header = m[2];
            EXPECT_EQ(m[1] == "<" ? "" : why_not(file, header), "") << file << " includes " << header;
            for (const auto& kept : kept_in)
                EXPECT_FALSE(header.rfind(kept.header, 0) == 0 && file.rfind(kept.room, 0) != 0)
                    << file << " includes " << header;
        }
    }
    EXPECT_GT(read, 100);
    EXPECT_EQ(why_not("os/mapping.cpp", "image/view.h"), "points upwards");
    EXPECT_EQ(why_not("backends/blit/tavi_blit.cpp", "backends/cpu/tavi_image_cpu.h"),
              "backends do not know each other");
}

} // namespace
