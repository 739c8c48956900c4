// SPDX-License-Identifier: MIT
// The command as people use it: the real program, its output, its exit code.
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/temp_file.h"

namespace {

class Tool : public InOwnFolder {
protected:
    Tool() { std::filesystem::copy_file(TAVI_ASSETS "/coffee.png", "photo.png"); } // 600 x 400

    // Runs a shell line in which "@" stands for the program.
    int run(std::string line) {
        line = std::regex_replace(line, std::regex("@"), TAVI_TOOL);
        const int status = std::system(("(" + line + ") >out 2>err").c_str());
        out = read_whole("out"), err = read_whole("err");
        return WEXITSTATUS(status);
    }

    std::string out, err;
};

TEST_F(Tool, ExitCodesAndWordsOfRefusals) {
    const struct {
        const char* line;
        int code;
        const char* words;
    } rows[] = {
        {"@ frobnicate", 2, "there is no command frobnicate"},
        {"@ convert photo.png a.png --size 0x3", 2, "--size: \"0x3\""},
        {"@ convert photo.png a.png --format rgb565", 2, "one of gray8 rgb bgr rgba bgra yu12"},
        {"@ convert photo.png a.png --crop 1,2,3", 2, "--crop: \"1,2,3\""},
        {"@ convert photo.png a.png --fit-ratio -1", 2, "above 0"},
        {"@ convert photo.png a.png --raw-format nv12", 2, "--raw-size"},
        {"@ convert frame.nv12 a.png", 2, "give --raw-format and --raw-size"},
        {"@ convert none.png a.png", 3, "cannot read none.png: No such file or directory"},
        {"echo junk | @ convert - a.png", 3, "cannot read standard input: its first bytes"},
        {"@ convert --raw-format nv12 --raw-size 64x64 photo.png a.png", 3, "a frame of nv12 64x64 has 6144"},
        {"head -c 6143 photo.png | @ convert --raw-format nv12 --raw-size 64x64 - a.png", 3, "only 6143 bytes"},
        {"@ convert photo.png a.tiff", 4, "allowed are .jpg"},
        {"@ convert photo.png nowhere/a.png", 4, "cannot write nowhere/a.png: No such file or directory"},
        {"@ convert photo.png - --type raw >/dev/full", 4, "No space left on device"},
        {"@ convert photo.png - >/dev/full", 4, "No space left on device"},
        {"trap '' XFSZ; ulimit -f 9; @ convert photo.png a.nv12 --format nv12", 4,
         "cannot write a.nv12: File too large"},
        {"@ info \"$(printf 'a\\nb\\033[m')\"", 3, "cannot read a\\x0ab\\x1b[m: No such file"},
        {"@ convert photo.png a.png --crop 0,0,600,9", 1, "the region 0,0,600,9 is empty or not inside"},
        {"@ roi photo.png a.png --rect 0,0,9,400", 1, "out of image (600x400)"},
        {"@ affine photo.png a.png --from 1,1,1,1,1,1 --to 0,0,5,0,0,5", 1, "do not determine a map"},
        {"@ affine photo.png a.png --from 1,1,2,2 --to 0,0", 2, "--from has 4 numbers"},
        {"echo '[{\"rect\":[1,2]}]' | @ draw photo.png a.png --json", 2, "item 1 of the JSON list"},
        {"echo '[{\"rect\":[1,2,4294967306,9]}]' | @ draw photo.png a.png --json", 2, "4294967306 is no number from"},
        {"echo '[{\"circle\":[1,2,3],\"thicknes\":1e10}]' | @ draw photo.png a.png --json", 2,
         "the nearest is \"thickness\""},
        {"echo '[{' | @ draw photo.png a.png --json", 2, "standard input: "},
        {"@ draw photo.png a.png --text 1,2", 2, "X,Y,SIZE,WORDS"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(run(row.line), row.code) << row.line;
        EXPECT_NE(err.find(row.words), std::string::npos) << row.line << "\n" << err;
        EXPECT_TRUE(std::regex_match(err, std::regex("tavi-image: [^\n]*\n"))) << row.line << "\n" << err;
        EXPECT_EQ(run("ls -A"), 0);
        EXPECT_EQ(out, "err\nout\nphoto.png\n") << row.line;
    }
}

TEST_F(Tool, WritesWhatItSays) {
    const struct {
        const char *line, *result; // what info tells of it
    } rows[] = {
        {"@ convert photo.png a.png --size 320x240", "PNG 320x240 rgb "},
        {"@ convert photo.png a.jpg --transform rotate-90", "JPEG 400x600 rgb "},
        {"@ convert photo.png a.pgm --format gray8 --filter box --size 60x40 --transform transpose",
         "PNM 60x40 gray8 "},
        {"@ convert photo.png a.png --crop 100,80,219,239", "PNG 120x160 rgb "},
        {"@ convert photo.png a.png --crop 100,100,199,199 --expand 0.1,0.2,0.1,0.3", "PNG 120x150 rgb "},
        {"@ convert photo.png a.png --crop 100,100,299,199 --fit-ratio 1 --filter nearest", "PNG 199x199 rgb "},
        {"@ convert photo.png b.nv12 --format nv12 --device && @ convert --raw-format nv12 --raw-size 600x400 b.nv12 "
         "a.bmp",
         "BMP 600x400 rgb "},
        {"@ convert - - --type jpg <photo.png | @ convert - a.png --format rgba", "PNG 600x400 rgba "},
        {"@ convert photo.png a.png --size 50x60 --cover --filter lanczos --threads 3", "PNG 50x60 rgb "},
        {"@ convert photo.png b.nv12 --format nv12 --out-color bt709-full && @ convert --raw-format nv12 --raw-size "
         "600x400 b.nv12 a.png --format rgb --in-color bt709-full",
         "PNG 600x400 rgb "},
        {"@ letterbox photo.png a.png --size 64x64 --filter mean --position bottom-right", "PNG 64x64 rgb "},
        {"@ transpose photo.png a.png", "PNG 400x600 rgb "},
        {"@ affine photo.png a.png --size 112x96 --from 0,0,9,0,0,9 --to 0,0,9,0,0,9", "PNG 112x96 rgb "},
        {"@ roi photo.png a.png --exact --rect 0,0,9,9 --rect 3,4,12,24 && mv a-2.png a.png", "PNG 10x21 rgb "},
    };
    for (const auto& row : rows) {
        ASSERT_EQ(run(row.line), 0) << row.line << "\n" << err;
        EXPECT_EQ(run("@ info a.* | sed 's/.*  //; s/ .*//' | tr '\\n' ' '"), 0);
        EXPECT_EQ(out.rfind(row.result, 0), 0u) << row.line << "\n" << out;
        run("rm -f a* b*");
    }
}

TEST_F(Tool, TellsWhatItDid) {
    ASSERT_EQ(run("@ letterbox photo.png - --size 300x300 --position top-left >b.png"), 0);
    EXPECT_EQ(err, "scale 0.5 0.5 padding 0 0\n");
    ASSERT_EQ(run("@ convert photo.png a.nv12 --format nv12 --size 300x200 --explain"), 0);
    EXPECT_TRUE(out.empty());
    for (const char* words :
         {"explain: request     rgb 600x400 -> nv12 300x200\n", "tavi_image_convert: transform mode=0\n",
          "by software: ", "tavi_image_convert: tavi_image_convert finish ret=0\n"})
        EXPECT_NE(err.find(words), std::string::npos) << words << err;
    ASSERT_EQ(run("export TAVI_USE_BLIT=maybe use_blit=0 TAVI_YUV=bt709-full TAVI_MAX_PIXELS=9; @ formats --size "
                  "3x3; @ --version; @ probe"),
              0);
    for (const char* words :
         {"  7  nv12     -                       13  Y plane, U V plane\n", "tavi-image " TAVI_VERSION "\n",
          "\"maybe\" in TAVI_USE_BLIT is malformed", "bt709-full (from TAVI_YUV)", " 9 (from TAVI_MAX_PIXELS)"})
        EXPECT_NE(out.find(words), std::string::npos) << words << out;
    // Set to nothing is not set.
    EXPECT_EQ(run("unset TAVI_BLIT_DEVICE; @ probe | head -n 3 >a; TAVI_BLIT_DEVICE= @ probe | head -n 3 | cmp - a"),
              0);
}

TEST_F(Tool, LeavesNothingBehindAndReadsNoMoreThanItNeeds) {
    EXPECT_EQ(run("mkdir t; TMPDIR=t @ convert photo.png - --type bmp | head -c 2 && rmdir t"), 0) << err;
    EXPECT_EQ(out, "BM");
    ASSERT_EQ(run("head -c 99 photo.png | @ info -"), 0) << err;
    EXPECT_EQ(out, "type    PNG (8 bits)\nsize    600x400\nformat  rgb (1: R G B)\nbytes   720000\n");
}

TEST_F(Tool, DrawsInOrderFromArgumentsAndJson) {
    ASSERT_EQ(run("echo '[{\"circle\":[50,50,9],\"color\":\"#0000ff\",\"thickness\":-1},"
                  "{\"line\":[2147483647,-2147483648,9,-2147483648],\"label\":\"out of "
                  "sight\",\"size\":2147483647}]' | @ draw photo.png a.ppm --json "
                  "--color ff0000 --thickness -1 --rect 10,10,90,90 --color 00ff00 --rect 20,20,80,80"),
              0)
        << err;
    const auto pixel = [](size_t x, size_t y) { return read_whole("a.ppm").substr(15 + (y * 600 + x) * 3, 3); };
    EXPECT_EQ(pixel(10, 90), std::string("\xff\0\0", 3));
    EXPECT_EQ(pixel(20, 80), std::string("\0\xff\0", 3));
    EXPECT_EQ(pixel(50, 50), std::string("\0\0\xff", 3));
}

// Every block of shell commands in the tool's page; a block of text after one is what it prints.
TEST_F(Tool, ExamplesOfThePageDoWhatItSays) {
    const std::string page = read_whole(TAVI_PAGE);
    const std::regex example("```sh\n([^`]*)```(\n\n```text\n([^`]*)```)?");
    int blocks = 0;
    for (std::sregex_iterator it(page.begin(), page.end(), example), end; it != end; ++it, ++blocks) {
        const std::string shell = std::regex_replace(it->str(1), std::regex("tavi-image"), TAVI_TOOL);
        ASSERT_EQ(run("set -e\n" + shell + "true"), 0) << shell << err;
        EXPECT_TRUE(!(*it)[2].matched || out == it->str(3)) << shell << out;
    }
    EXPECT_GE(blocks, 9);
}

} // namespace
