// SPDX-License-Identifier: MIT
// info, formats and probe: what a file holds, what the formats are, what this machine offers.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "backends/blit/context_pool.h"
#include "backends/blit/tavi_blit.h"
#include "backends/cpu/files/picture.h"
#include "image/format.h"
#include "kernels/kernels.h"
#include "picture.h"
#include "services/mem_sources.h"
#include "services/parse_int.h"
#include "services/pixel_limit.h"
#include "services/tavi_mem.h"
#include "services/yuv_setting.h"

namespace tool {
namespace {

void print_picture(tavi_pixel_format format, uint32_t width, uint32_t height) {
    const tavi::Format& f = *tavi::find_format(format);
    printf("size    %ux%u\n", width, height);
    printf("format  %.*s (%u: %s)\n", static_cast<int>(f.name.size()), f.name.data(), static_cast<unsigned>(format),
           f.layout);
    printf("bytes   %llu\n", static_cast<unsigned long long>(tavi::byte_count(f, width, height)));
}

// From the head of the file alone: nothing is decoded.
void run_info(const Input& input) {
    if (input.raw_format) {
        const Picture picture = load(input);
        return print_picture(picture->pixel_format, picture->width, picture->height);
    }
    tavi::Input file;
    std::unique_ptr<tavi::Decoder> decoder;
    tavi::FileHeader header;
    if (const tavi::Refusal no = tavi::open_picture(encoded_path(input).c_str(), file, decoder, header))
        throw Error(kCannotRead, "cannot read " + name_of(input) + ": " + no.text);
    printf("type    %s (%d bits", header.type, header.bits);
    if (header.xsubsampling * header.ysubsampling > 1)
        printf(", a chroma sample for %dx%d pixels", header.xsubsampling, header.ysubsampling);
    printf(")\n");
    if (header.orientation != 1)
        printf("stored  %ux%u, EXIF orientation %d\n", header.width, header.height, header.orientation);
    if (header.orientation > 4 && !input.ignore_orientation) // upright, its sides are exchanged
        std::swap(header.width, header.height);
    print_picture(header.stored, header.width, header.height);
}

void run_formats(Size size) {
    char bytes[32];
    snprintf(bytes, sizeof(bytes), "bytes %ux%u", size.width, size.height);
    printf("%3s  %-7s  %-8s  %16s  %s\n", "no.", "name", "channels", bytes, "memory");
    for (size_t i = 0; i < tavi::kFormats.size(); ++i) {
        const tavi::Format& f = tavi::kFormats[i];
        tavi_image_t image{};
        image.pixel_format = static_cast<tavi_pixel_format>(i);
        const int count = tavi_image_get_channels(&image);
        const std::string channels = count < 0 ? "-" : std::to_string(count);
        printf("%3zu  %-7.*s  %-8s  %16llu  %s\n", i, static_cast<int>(f.name.size()), f.name.data(),
               channels.c_str(), static_cast<unsigned long long>(tavi::byte_count(f, size.width, size.height)),
               f.layout);
    }
}

struct Setting {
    const char* name;  ///< variable asked first
    const char* other; ///< and then this one, or null
    const char* unset; ///< what holds when neither is set
    bool (*good)(const char* text);
};

bool any_text(const char*) { return true; }

bool is_number(const char* text) {
    int value = 0;
    return tavi::parse_int(text, &value);
}

bool is_level(const char* text) {
    int value = 0;
    return tavi::parse_int(text, &value) && value >= 0 && value <= 3;
}

bool is_yuv_value(const char* text) {
    tavi::ColorSpace color;
    return tavi::parse_yuv(text, color);
}

bool is_pixel_limit(const char* text) {
    int pixels = 0;
    return tavi::parse_pixel_limit(text, pixels);
}

bool is_build(const char* text) {
    const tavi::Builds all = tavi::builds();
    return std::any_of(all.begin(), all.end(), [=](const tavi::Kernels* k) { return strcmp(k->name, text) == 0; });
}

constexpr Setting kSettings[] = {
    {"TAVI_LOG_LEVEL", nullptr, "1", is_level},
    {"TAVI_USE_BLIT", "use_blit", "1", is_number},
    {"TAVI_BLIT_DEVICE", nullptr, "the first engine that qualifies", any_text},
    {"TAVI_YUV", nullptr, "bt601", is_yuv_value},
    {"TAVI_MAX_PIXELS", nullptr, sizeof(void*) > 4 ? "268435456" : "67108864", is_pixel_limit},
    {"TAVI_KERNELS", nullptr, "the fastest that the processor runs", is_build},
    {"TAVI_DMA_HEAP", nullptr, "any contiguous heap, then the system heap", any_text},
};

void print_setting(const Setting& s) {
    const char* from = s.name;
    const char* text = getenv(s.name);
    if (!text && s.other) {
        from = s.other;
        text = getenv(s.other);
    }
    if (!text)
        printf("  %-16s  %s (default)\n", s.name, s.unset);
    else if (s.good(text))
        printf("  %-16s  %s (from %s)\n", s.name, text, from);
    else
        printf("  %-16s  %s (default: \"%s\" in %s is malformed)\n", s.name, s.unset, text, from);
}

std::string names_of(const tavi::FormatSet& formats) {
    std::string names;
    for (size_t i = 0; i < tavi::kFormats.size(); ++i)
        if (formats.has(static_cast<uint32_t>(i)))
            names += (names.empty() ? "" : " ") + std::string(tavi::kFormats[i].name);
    return names.empty() ? "none" : names;
}

struct Found {
    int nodes = 0;
    bool locked = false; ///< a node that this user may not open
};

bool print_engine(const tavi::EngineInfo& e, const char* why_not, void* user) {
    Found& found = *static_cast<Found*>(user);
    ++found.nodes;
    printf("  %-13s  %s %s: %s\n", e.path, e.driver, e.card, why_not ? why_not : "usable");
    if (why_not) {
        found.locked |= strstr(why_not, strerror(EACCES)) != nullptr;
        return true;
    }
    printf("                 takes %s\n                 gives %s\n", names_of(e.sources).c_str(),
           names_of(e.results).c_str());
    if (e.largest[0])
        printf("                 sides %ux%u to %ux%u,", e.smallest[0], e.smallest[1], e.largest[0], e.largest[1]);
    else
        printf("                 sides not told,");
    printf("%s%s%s%s%s%s, %s-planar\n", e.scales ? " scales" : " does not scale", e.rectangles ? " crops" : "",
           e.hflip ? " flip-h" : "", e.vflip ? " flip-v" : "", e.rotate ? " rotates" : "",
           e.alpha ? " sets alpha" : "", e.multiplanar ? "multi" : "single");
    return true;
}

void print_source(const tavi::SourceReport& r, void* user) {
    static_cast<Found*>(user)->locked |= r.error == EACCES;
    printf("  %-24s  %s\n", r.path, r.error == 0 ? "usable" : strerror(r.error));
}

void run_probe() {
    printf("engine\n");
    Found found;
    const char* only = getenv("TAVI_BLIT_DEVICE");
    if (only && !*only)
        only = nullptr;
    if (only && strcmp(only, "none") == 0)
        printf("  switched off by TAVI_BLIT_DEVICE=none\n");
    else
        tavi::visit_engines(only, print_engine, &found);
    if (!only && !found.nodes)
        printf("  no video device\n");
    printf("  %s\n",
           is_blit_support() ? "requests go to the engine when they qualify" : "software serves every request");
    printf("memory sources, in the order in which they are asked\n");
    tavi::visit_sources(print_source, &found);
    if (found.locked)
        printf("permission: for a group that you are in, a file in /etc/udev/rules.d with\n"
               "  SUBSYSTEM==\"dma_heap\", GROUP=\"video\", MODE=\"0660\"\n"
               "  KERNEL==\"udmabuf\", GROUP=\"video\", MODE=\"0660\"\n"
               "  SUBSYSTEM==\"video4linux\", GROUP=\"video\", MODE=\"0660\"\n");
    printf("device memory comes from\n");
    tavi_mem_record_t record{};
    if (tavi_mem_alloc(4096, TAVI_MEM_TYPE_DEVICE, &record) == 0) {
        static const char* const kSources[] = {"the heap", "a contiguous DMA heap", "the system DMA heap", "udmabuf",
                                               "a memfd (shared between processes, but no engine can import it)"};
        printf("  %s\n", record.flags < std::size(kSources) ? kSources[record.flags] : "an unknown source");
        tavi_mem_free_by_virt_addr(record.virt_addr);
    } else {
        printf("  nowhere\n");
    }
    printf("processor\n  pixel loops: %s\n", tavi::kernels().name);
    printf("settings\n");
    for (const Setting& s : kSettings)
        print_setting(s);
}

} // namespace

void add_info(CLI::App& app, Run& run) {
    const auto input = std::make_shared<Input>();
    CLI::App* sub = app.add_subcommand("info", "Tell size and format of a picture");
    add_input(sub, *input);
    sub->callback([input, &run] { run = [input] { run_info(*input); }; });
}

void add_formats(CLI::App& app, Run& run) {
    const auto size = std::make_shared<Size>(Size{1920, 1080});
    CLI::App* sub = app.add_subcommand("formats", "List the pixel formats");
    add_parsed(sub, "--size", *size, parse_size, "WIDTHxHEIGHT to count bytes for (default 1920x1080)");
    sub->callback([size, &run] { run = [size] { run_formats(*size); }; });
}

void add_probe(CLI::App& app, Run& run) {
    CLI::App* sub = app.add_subcommand("probe", "Tell what this machine offers: engine, memory, processor, settings");
    sub->callback([&run] { run = run_probe; });
}

} // namespace tool
