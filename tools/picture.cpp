// SPDX-License-Identifier: MIT
#include "picture.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <unistd.h>

#include "image/format.h"
#include "services/tavi_mem.h"

namespace tool {
namespace {

using File = std::unique_ptr<FILE, int (*)(FILE*)>;

bool is_standard_stream(const std::string& path) { return path == "-"; }

std::string ending_of(const std::string& path) {
    const size_t dot = path.rfind('.');
    std::string ending =
        dot == std::string::npos || path.find('/', dot) != std::string::npos ? "" : path.substr(dot + 1);
    for (char& c : ending)
        c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return ending;
}

// A frame without a header: .raw, .yuv, or the name of a format.
bool is_raw_ending(const std::string& ending) {
    bool known = ending == "raw" || ending == "yuv";
    for (const tavi::Format& f : tavi::kFormats)
        known = known || ending == f.name;
    return known;
}

Picture load_raw(const Input& input, const std::string& name) {
    Picture picture(*input.raw_format, *input.raw_size, input.device);
    const File file(is_standard_stream(input.path) ? stdin : fopen(input.path.c_str(), "rb"),
                    [](FILE* f) { return f == stdin ? 0 : fclose(f); });
    if (!file)
        throw Error(kCannotRead, "cannot read " + name + ": " + strerror(errno));
    const size_t wanted = picture->size, got = fread(picture->data, 1, wanted, file.get());
    if (got < wanted || fgetc(file.get()) != EOF)
        throw Error(kCannotRead, name + " holds " + (got < wanted ? "only " + std::to_string(got) : "more") +
                                     " bytes: a frame of " + picture.describe() + " has " + std::to_string(wanted));
    return picture;
}

void copy_to_stdout(const std::string& path) {
    const File file(fopen(path.c_str(), "rb"), fclose);
    char block[65536];
    for (size_t n = 0; file && (n = fread(block, 1, sizeof(block), file.get())) > 0;)
        fwrite(block, 1, n, stdout);
    if (!file || ferror(file.get()) || fflush(stdout) != 0 || ferror(stdout))
        throw Error(kCannotWrite, std::string("cannot write to standard output: ") + strerror(errno));
}

void write_raw(const Picture& picture, FILE* file, const std::string& name) {
    const bool whole = fwrite(picture->data, 1, picture->size, file) == picture->size;
    if (fflush(file) != 0 || !whole) // the library's raw writer reports no full disk; a command must
        throw Error(kCannotWrite, "cannot write " + name + ": " + strerror(errno));
}

} // namespace

Picture::Picture(tavi_pixel_format format, Size size, bool device) {
    record_.pixel_format = format;
    record_.width = size.width;
    record_.height = size.height;
    check(tavi_image_create_mem2(&record_, device ? TAVI_MEM_TYPE_DEVICE : TAVI_MEM_TYPE_HEAP), kFailed,
          "no memory for " + describe());
}

Picture::~Picture() {
    if (record_.data)
        tavi_image_release(&record_);
}

std::string Picture::describe() const {
    return format_name(record_.pixel_format) + " " + std::to_string(record_.width) + "x" +
           std::to_string(record_.height);
}

void add_input(CLI::App* app, Input& input) {
    app->add_option("IN", input.path, "JPEG, PNG, BMP or PNM file, or a raw frame; - reads standard input")
        ->required();
    CLI::Option* format = add_parsed(app, "--raw-format", input.raw_format, parse_format,
                                     "IN is a raw frame of this format (tavi-image formats lists them)");
    CLI::Option* size = add_parsed(app, "--raw-size", input.raw_size, parse_size, "WIDTHxHEIGHT of the raw frame");
    format->needs(size);
    size->needs(format);
    app->add_flag("--ignore-orientation", input.ignore_orientation, "do not turn a picture as its EXIF data asks");
    app->add_flag("--device", input.device, "keep pictures in device memory, where the blit engine can take them");
}

void add_output(CLI::App* app, Output& output) {
    app->add_option("OUT", output.path,
                    "file to write: .jpg .png .bmp .ppm .pgm, or a raw frame: .raw .yuv or the name of a format; "
                    "- writes standard output")
        ->required();
    app->add_option("--type", output.type, "type of what goes to standard output")
        ->check(CLI::IsMember({"png", "jpg", "bmp", "ppm", "pgm", "raw"}))
        ->capture_default_str();
}

Picture load(const Input& input) {
    const std::string name = is_standard_stream(input.path) ? "standard input" : input.path;
    if (input.raw_format)
        return load_raw(input, name);
    if (is_raw_ending(ending_of(input.path)))
        throw Error(kUsage, name + " looks like a raw frame: give --raw-format and --raw-size");
    Picture picture;
    const int flag = TAVI_IMAGE_READ_AS_STORED | (input.ignore_orientation ? TAVI_IMAGE_READ_IGNORE_ORIENTATION : 0);
    const char* path = is_standard_stream(input.path) ? "/dev/stdin" : input.path.c_str();
    check(tavi_image_read(path, picture.get(), flag), kCannotRead, "cannot read " + name);
    if (!input.device)
        return picture;
    Picture on_device(picture->pixel_format, picture.size(), true);
    memcpy(on_device.get()->data, picture->data, on_device->size);
    return on_device;
}

void save(Picture& picture, const Output& output) {
    const std::string ending = is_standard_stream(output.path) ? output.type : ending_of(output.path);
    if (is_standard_stream(output.path) && ending == "raw")
        return write_raw(picture, stdout, "to standard output");
    if (is_raw_ending(ending)) {
        const File file(fopen(output.path.c_str(), "wb"), fclose);
        if (!file)
            throw Error(kCannotWrite, "cannot write " + output.path + ": " + strerror(errno));
        return write_raw(picture, file.get(), output.path);
    }
    if (!is_standard_stream(output.path))
        return check(tavi_image_write(output.path.c_str(), picture.get()), kCannotWrite,
                     "cannot write " + output.path);

    // The writer needs a name with an ending, so the picture goes through a file of its own.
    const char* tmp = getenv("TMPDIR");
    std::string folder = std::string(tmp ? tmp : "/tmp") + "/tavi-image-XXXXXX";
    if (!mkdtemp(folder.data()))
        throw Error(kCannotWrite, "cannot make a temporary folder " + folder + ": " + strerror(errno));
    const std::string path = folder + "/picture." + ending;
    const auto remove_both = [&](void*) {
        unlink(path.c_str());
        rmdir(folder.c_str());
    };
    const std::unique_ptr<void, decltype(remove_both)> cleanup(&folder, remove_both);
    check(tavi_image_write(path.c_str(), picture.get()), kCannotWrite, "cannot write to standard output");
    copy_to_stdout(path);
}

FILE* results(const Output& output) { return is_standard_stream(output.path) ? stderr : stdout; }

} // namespace tool
