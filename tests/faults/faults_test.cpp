// SPDX-License-Identifier: MIT
// Every operation of the library while the n-th allocation or system call fails: once and from there on, on the first
// call of a process and on a later one. It must answer with a result of its own and an error line, or succeed with
// the same bytes; nothing may be lost, no file half written, and the next call must work. Also interrupted calls and
// short transfers, which nobody may notice.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "faults/inject.h"
#include "tavi_frame.h"
#include "tavi_image.h"
#include "tavi_logger.h"
#include "tavi_mem.h"

extern "C" int tavi_tensor_write_txt_uint8(const char* path, const uint8_t* data, int count);

namespace {

struct Outcome {
    int code = 0;
    uint64_t digest = 14695981039346656037u; ///< FNV-1a of what was made

    void add(const void* bytes, size_t size) {
        for (size_t i = 0; i < size; ++i)
            digest = (digest ^ static_cast<const uint8_t*>(bytes)[i]) * 1099511628211u;
    }
};

/// What a child tells its parent.
struct Report {
    char wrong[200];
    uint64_t digest;
    long blocks;
    int descriptors;
    Counts counts;
};

Plan g_plan; ///< of the next faulty() only
Counts g_counts;
int g_errors = 0;
std::string g_folder;
std::string file(const char* name) { return g_folder + "/" + name; }

template <class Call>
auto faulty(Call call) {
    arm(g_plan);
    const auto result = call();
    g_counts = disarm();
    g_plan = Plan();
    return result;
}

struct Shape {
    tavi_pixel_format format;
    uint32_t width, height;

    operator tavi_image_t() const {
        tavi_image_t img = {};
        img.pixel_format = format;
        img.width = width;
        img.height = height;
        return img;
    }
};

/// An image over memory of this program.
struct Picture {
    tavi_image_t img;
    uint8_t bytes[128 * 96 * 4];

    explicit Picture(Shape shape) : img(shape) {
        img.data = bytes;
        img.size = static_cast<uint32_t>(tavi_image_get_size(&img));
        img.is_prealloc_buf = 1;
        for (size_t i = 0; i < sizeof(bytes); ++i)
            bytes[i] = static_cast<uint8_t>(i * 7 + i / 97);
    }
};

constexpr tavi_pixel_format kRgb = TAVI_PIXEL_FORMAT_RGB888;
constexpr Shape kFrame{TAVI_PIXEL_FORMAT_YUV420SP_NV12, 96, 64}, kOdd{TAVI_PIXEL_FORMAT_YUV422_YUYV, 96, 63};

template <class Call>
Outcome between(Shape from, Shape to, Call call) {
    Picture src(from), dst(to);
    Outcome o;
    o.code = faulty([&] { return call(&src.img, &dst.img); });
    o.add(dst.img.data, dst.img.size);
    return o;
}

/// Calls that attach memory to a record.
template <class Call>
Outcome attach(tavi_image_t record, Call call) {
    Outcome o;
    o.code = faulty([&] { return call(&record); });
    if (record.data && record.pixel_format == kRgb)
        o.add(record.data, static_cast<size_t>(tavi_image_get_size(&record)));
    if (record.data)
        tavi_image_release(&record);
    return o;
}

Outcome clone(int deep) {
    Picture src(kFrame);
    Outcome o;
    tavi_image_t* copy = faulty([&] { return tavi_image_clone2(&src.img, deep); });
    o.code = copy ? 0 : -1;
    if (copy && deep) {
        o.add(copy->data, src.img.size);
        tavi_image_release(copy);
    }
    free(copy);
    return o;
}

/// Writes over a file: what stands there afterwards is the old or the new contents, and nothing beside it.
template <class Call>
Outcome write(const char* name, bool whole, Call call) {
    const std::string path = file(name);
    if (FILE* old = fopen(path.c_str(), "wb")) {
        fputs("old", old);
        fclose(old);
    }
    Outcome o;
    Picture src({kRgb, 40, 30});
    o.code = faulty([&] { return call(path.c_str(), &src.img); });
    char bytes[8192];
    FILE* now = fopen(path.c_str(), "rb");
    const size_t size = now ? fread(bytes, 1, sizeof(bytes), now) : 0;
    if (now)
        fclose(now);
    o.add(bytes, size);
    unlink(path.c_str());
    int entries = 0;
    if (DIR* folder = opendir(g_folder.c_str())) {
        while (readdir(folder))
            ++entries;
        closedir(folder);
    }
    o.add(&entries, sizeof(entries));
    if (o.code != 0 && whole && (size != 3 || memcmp(bytes, "old", 3) != 0 || entries != 2 + 4))
        o.code = -1000; // half a file, or a temporary left behind
    return o;
}

Outcome read(const char* name, Shape shape = {kRgb, 0, 0}) {
    const std::string path = file(name);
    return attach(shape,
                  [&](tavi_image_t* img) { return tavi_image_read(path.c_str(), img, TAVI_IMAGE_READ_INTO_RECORD); });
}

Outcome decode(const char* name, uint32_t width, uint32_t height) {
    uint8_t bytes[8192];
    FILE* in = fopen(file(name).c_str(), "rb");
    const size_t size = in ? fread(bytes, 1, sizeof(bytes), in) : 0;
    if (in)
        fclose(in);
    tavi_frame_t frame = {};
    frame.format = kRgb;
    frame.width = width;
    frame.height = height;
    Outcome o;
    o.code = faulty([&] { return tavi_frame_decode(bytes, size, &frame, nullptr); });
    if (o.code == 0)
        o.add(frame.plane[0].data, size_t{frame.plane[0].pitch} * frame.height);
    else if (frame.plane[0].data)
        o.code = -1000;
    tavi_frame_release(&frame);
    return o;
}

Outcome encode(tavi_picture_type_t type) {
    Picture src(kFrame);
    tavi_frame_t frame = {};
    frame.format = src.img.pixel_format;
    frame.width = src.img.width;
    frame.height = src.img.height;
    for (int i = 0; i < 2; ++i) {
        frame.plane[i].data = src.bytes + i * 96 * 64;
        frame.plane[i].pitch = 96;
    }
    Outcome o;
    const auto add = [](void* user, const void* bytes, size_t size) {
        static_cast<Outcome*>(user)->add(bytes, size);
        return 0;
    };
    const tavi_sink_t sink = {add, &o};
    o.code = faulty([&] { return tavi_frame_encode(&frame, type, 0, &sink); });
    return o;
}

int letterbox(tavi_image_t* src, tavi_image_t* dst) {
    return tavi_image_convert_keep_ration(src, dst, 0x727272, 0, nullptr, nullptr, nullptr, nullptr);
}

tavi_rect_t g_box = {8, 8, 60, 50}, g_at;

int crop(tavi_image_t* src, tavi_image_t* dst) { return tavi_image_crop_and_resize_cpu(src, &g_box, dst, 0); }

int lent_roi(tavi_image_t* src, tavi_image_t* dst) {
    return tavi_image_roi_with_align_convert_prealloc(src, &g_box, dst, &g_at, 0);
}

int roi(tavi_image_t* result) {
    Picture src(kFrame);
    return tavi_image_roi_with_align_cvt(&src.img, &g_box, result, 16, kRgb);
}

int affine(tavi_image_t* src, tavi_image_t* dst) {
    const float matrix[6] = {0.9f, 0.1f, 3, -0.1f, 0.9f, 4};
    return tavi_image_affine_transform(src, dst, matrix);
}

int draw(tavi_image_t*, tavi_image_t* img) {
    const tavi_color_t c = {250, 20, 90};
    int code = tavi_image_draw_circle(img, {30, 30, 0}, 20, c, 3);
    code = code ? code : tavi_image_draw_line(img, {1, 2, 0}, {90, 60, 0}, c, 2);
    code = code ? code : tavi_image_draw_rect(img, {5, 5, 0}, {60, 40, 0}, c, -1);
    code = code ? code : tavi_image_draw_quad(img, {{9, 9, 0}, {50, 9, 0}, {9, 40, 0}, {50, 40, 0}}, c, 2);
    return code ? code : tavi_image_draw_text(img, "b\xc3\xa4t 7", {4, 4, 20}, c, 2);
}

int write_tensor(const char* path, tavi_image_t* img) {
    return tavi_tensor_write_txt_uint8(path, img->data, 100) == 100 ? 0 : -1;
}

template <int Mode>
int convert(tavi_image_t* src, tavi_image_t* dst) {
    return tavi_image_convert(src, dst, Mode);
}

/// Whether a failure has a line. Some of the module's refusals have none, and a dump does not look at what arrives.
enum Saying { speaks, silent, dumps };

const struct Operation {
    const char* name;
    Outcome (*run)();
    Saying saying = speaks;
    int lost = 0; ///< blocks that the codec's library itself loses where it gets no memory at all
} kOperations[] = {
    {"create_mem", [] { return attach(kFrame, tavi_image_create_mem); }},
    {"create_mem2", [] { return attach(kFrame, [](tavi_image_t* i) { return tavi_image_create_mem2(i, 0); }); }},
    {"clone", [] { return clone(1); }, silent},
    {"clone2", [] { return clone(0); }, silent},
    {"convert",
     [] {
         return between(kFrame, {kRgb, 96, 64}, convert<0>);
     }},
    {"convert, scale and turn",
     [] {
         return between(kOdd, {kRgb, 41, 67}, convert<4>);
     }},
    {"convert grey",
     [] {
         return between({TAVI_PIXEL_FORMAT_GRAY16, 64, 63}, kFrame, convert<0>);
     }},
    {"letterbox",
     [] {
         return between(kFrame, {kRgb, 64, 64}, letterbox);
     }},
    {"crop and resize",
     [] {
         return between(kFrame, {kRgb, 31, 30}, crop);
     }},
    {"roi", [] { return attach({}, roi); }, silent},
    {"roi into lent memory",
     [] {
         return between(kFrame, {kRgb, 48, 40}, lent_roi);
     }},
    {"transpose",
     [] {
         return between({kRgb, 96, 64}, {kRgb, 64, 96}, tavi_image_transpose);
     }},
    {"affine",
     [] {
         return between(kOdd, {kOdd.format, 80, 60}, affine);
     }},
    {"draw", [] { return between(kFrame, kFrame, draw); }},
    {"read jpeg", [] { return read("in.jpg"); }, speaks, 1},
    {"read png", [] { return read("in.png"); }},
    {"read bmp", [] { return read("in.bmp"); }},
    {"read ppm", [] { return read("in.ppm"); }},
    {"read png, smaller",
     [] {
         return read("in.png", {kRgb, 20, 13});
     }},
    {"read jpeg, smaller",
     [] {
         return read("in.jpg", {kRgb, 5, 4});
     },
     speaks, 1},
    {"write jpeg", [] { return write("out.jpg", true, tavi_image_write); }, speaks, 1},
    {"write png", [] { return write("out.png", true, tavi_image_write); }},
    {"write bmp", [] { return write("out.bmp", true, tavi_image_write); }},
    {"write ppm", [] { return write("out.ppm", true, tavi_image_write); }},
    {"decode jpeg", [] { return decode("in.jpg", 0, 0); }, speaks, 1},
    {"decode png, smaller", [] { return decode("in.png", 20, 13); }},
    {"encode jpeg", [] { return encode(TAVI_PICTURE_JPEG); }, speaks, 1},
    {"encode png", [] { return encode(TAVI_PICTURE_PNG); }},
    {"write raw", [] { return write("out.bin", false, tavi_image_write_raw); }, dumps},
    {"write txt", [] { return write("out.txt", false, tavi_image_write_to_txt); }},
    {"write tensor", [] { return write("out.txt", false, write_tensor); }},
};

int open_descriptors() {
    int n = 0;
    for (int fd = 3; fd < 64; ++fd)
        n += fcntl(fd, F_GETFD) >= 0;
    return n;
}

/// In a child: the operation under a plan, then twice without. `expected` is null for the run that sets the measure.
void try_one(const Operation& op, bool warm, const Plan& plan, const Report* expected, Report& report) {
    const auto complain = [&](const char* what, long value) {
        if (!report.wrong[0])
            snprintf(report.wrong, sizeof(report.wrong), "%s (%ld)", what, value);
    };
    if (!inject_available())
        return complain("this kernel does not let a process catch its own system calls", 0);
    TaviLogger::GetInstance()->SetSink(
        [](void*, tavi_log_level_t level, const char*, const char*, const char*) { g_errors += level == 0; },
        nullptr);
    if (warm)
        op.run();
    g_plan = plan;
    g_errors = 0;
    const Outcome tried = op.run();
    report.counts = g_counts;
    const int errors = g_errors;
    op.run();
    const Outcome after = op.run();
    tavi_mem_trim();
    tavi_image_convert(nullptr, nullptr, 0); // after its first error a thread has memory for the text of the last one
    report.digest = after.digest;
    report.blocks = live_blocks();
    report.descriptors = open_descriptors();
    if (after.code != 0)
        complain("a later call fails", after.code);
    if (!expected)
        return;
    const bool must_succeed = plan.fault == Fault::interrupted || plan.fault == Fault::short_count;
    if (tried.code != 0 && must_succeed)
        complain("fails", tried.code);
    if (tried.code == -1000)
        complain("half a file, or a temporary", 0);
    if (tried.code != 0 && errors == 0 && op.saying == speaks)
        complain("fails without an error line", tried.code);
    if (tried.code == 0 && tried.digest != expected->digest && (op.saying != dumps || must_succeed))
        complain("succeeds with other bytes", 0);
    if (after.digest != expected->digest)
        complain("a later call makes other bytes", 0);
    if (report.blocks - expected->blocks > (plan.fault == Fault::allocation && plan.persistent ? op.lost : 0))
        complain("blocks that nobody frees", report.blocks - expected->blocks);
    if (report.descriptors != expected->descriptors)
        complain("descriptors that nobody closes", report.descriptors - expected->descriptors);
}

Report* g_report; ///< shared with the children

Report in_child(const Operation& op, bool warm, const Plan& plan, const Report* expected) {
    *g_report = {};
    const pid_t child = fork();
    if (child == 0) {
        try_one(op, warm, plan, expected, *g_report);
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (status != 0 && !g_report->wrong[0])
        snprintf(g_report->wrong, sizeof(g_report->wrong), "the process dies, status %d", status);
    return *g_report;
}

} // namespace

int main() {
    tzset(); // what it keeps counts for nobody
    setvbuf(stdout, nullptr, _IONBF, 0);
    char folder[] = "faults-XXXXXX";
    if (!mkdtemp(folder))
        return perror(folder), 1;
    g_folder = folder;
    g_report = static_cast<Report*>(
        mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    if (fork() == 0) { // not in this process: what it has used its children have
        Picture src({kRgb, 40, 30});
        for (const char* name : {"in.jpg", "in.png", "in.bmp", "in.ppm"})
            tavi_image_write(file(name).c_str(), &src.img);
        _exit(0);
    }
    wait(nullptr);

    constexpr struct {
        Fault fault;
        const char* name;
    } kFaults[] = {{Fault::allocation, "no memory for allocation"},
                   {Fault::call, "EIO from call"},
                   {Fault::interrupted, "EINTR from call"},
                   {Fault::short_count, "one byte in transfer"}};
    int tried = 0, failed = 0;
    for (const Operation& op : kOperations) {
        for (const bool warm : {false, true}) {
            for (const auto& kind : kFaults) {
                const Report clean = in_child(op, warm, {kind.fault, 0, false}, nullptr);
                const int count = kind.fault == Fault::allocation ? clean.counts.allocations : clean.counts.calls;
                if (clean.wrong[0]) {
                    printf("%s: %s\n", op.name, clean.wrong);
                    ++failed;
                    break;
                }
                // Failed from the start, a call may make others than it made before: two more are tried.
                for (int n = 1; n <= count + 2; ++n) {
                    for (const bool persistent : {false, true}) {
                        if (persistent && kind.fault == Fault::interrupted)
                            continue; // for ever
                        const Report r = in_child(op, warm, {kind.fault, n, persistent}, &clean);
                        tried += r.counts.hit;
                        failed += r.wrong[0] != 0;
                        if (r.wrong[0])
                            printf("%s, %s, %s %d%s: %s\n", op.name, warm ? "warm" : "cold", kind.name, n,
                                   persistent ? " and on" : "", r.wrong);
                    }
                }
            }
        }
    }
    for (const char* name : {"in.jpg", "in.png", "in.bmp", "in.ppm"})
        unlink(file(name).c_str());
    rmdir(folder);
    printf("%d passed, %d failed\n", tried - failed, failed);
    return failed != 0 || tried < 1000;
}
