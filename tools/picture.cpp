// SPDX-License-Identifier: MIT
#include "picture.h"

#include <cerrno>
#include <cstring>
#include <memory>

#include "backends/cpu/files/picture.h"
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

std::string name_of(const Input& input) { return is_standard_stream(input.path) ? "standard input" : input.path; }

std::string encoded_path(const Input& input) {
    if (is_raw_ending(ending_of(input.path)))
        throw Error(kUsage, name_of(input) + " looks like a raw frame: give --raw-format and --raw-size");
    return is_standard_stream(input.path) ? "/dev/stdin" : input.path;
}

Picture load(const Input& input) {
    const std::string name = name_of(input);
    if (input.raw_format)
        return load_raw(input, name);
    const std::string path = encoded_path(input);
    Picture picture;
    const int flag = TAVI_IMAGE_READ_AS_STORED | (input.ignore_orientation ? TAVI_IMAGE_READ_IGNORE_ORIENTATION : 0);
    check(tavi_image_read(path.c_str(), picture.get(), flag), kCannotRead, "cannot read " + name);
    if (!input.device)
        return picture;
    Picture on_device(picture->pixel_format, picture.size(), true);
    memcpy(on_device.get()->data, picture->data, on_device->size);
    return on_device;
}

void save(Picture& picture, const Output& output) {
    const bool standard = is_standard_stream(output.path);
    const std::string ending = standard ? output.type : ending_of(output.path);
    const std::string name = standard ? "to standard output" : output.path;
    if (!standard && !is_raw_ending(ending))
        return check(tavi_image_write(output.path.c_str(), picture.get()), kCannotWrite, "cannot write " + name);
    tavi::Output file; // a raw frame appears whole or not at all, where the library's raw writer leaves half of one
    const bool open = standard ? file.open(tavi::UniqueFd(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)))
                               : file.open(output.path.c_str());
    if (!open)
        throw Error(kCannotWrite, "cannot write " + name + ": " + strerror(errno));
    if (is_raw_ending(ending)) {
        if (!file.write(picture->data, picture->size) || !file.commit())
            throw Error(kCannotWrite, "cannot write " + name + ": " + strerror(errno));
        return;
    }
    if (const tavi::Refusal no = tavi::write_picture(*picture.get(), ("." + ending).c_str(), file))
        throw Error(kCannotWrite, "cannot write " + name + ": " + no.text);
}

FILE* results(const Output& output) { return is_standard_stream(output.path) ? stderr : stdout; }

} // namespace tool
