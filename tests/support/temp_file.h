// SPDX-License-Identifier: MIT
// A file name of this test's own in the temporary directory; the file is gone when the test ends.
#pragma once

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

inline std::string read_whole(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

class TempFile {
public:
    explicit TempFile(const std::string& ending = "") {
        static std::atomic<int> number{0};
        path_ = testing::TempDir() + "tavi_" + std::to_string(getpid()) + "_" + std::to_string(number++) + ending;
    }
    ~TempFile() { remove(path_.c_str()); }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    const char* path() const { return path_.c_str(); }
    std::string read() const { return read_whole(path_); }

private:
    std::string path_;
};

/// A test that works in a folder of its own, empty at first: what is there afterwards is what it wrote.
class InOwnFolder : public testing::Test {
protected:
    InOwnFolder() {
        std::filesystem::create_directory(folder_);
        std::filesystem::current_path(folder_);
    }
    ~InOwnFolder() override {
        std::filesystem::current_path("/");
        std::filesystem::remove_all(folder_);
    }

private:
    const std::string folder_ = testing::TempDir() + "tavi_folder_" + std::to_string(getpid());
};
