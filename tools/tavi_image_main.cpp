// SPDX-License-Identifier: MIT
// tavi-image: the library from the command line.
#include <cstdio>
#include <exception>
#include <unistd.h>

#include "services/escape.h"
#include "tool.h"

namespace {

const char* const kFooter = "Exit codes: 0 done, 1 the picture could not be processed, 2 wrong command line,\n"
                            "3 a file could not be read, 4 a file could not be written.\n"
                            "Examples:\n"
                            "  tavi-image info photo.jpg\n"
                            "  tavi-image convert photo.jpg small.png --size 320x240 --explain\n"
                            "  tavi-image letterbox photo.jpg input.png --size 640x640\n"
                            "  tavi-image COMMAND --help tells more about a command.";

// Constants of the option parser take memory before main() can catch anything.
__attribute__((constructor(101))) void end_without_memory() {
    std::set_terminate([] {
        fputs("tavi-image: no memory\n", stderr);
        _exit(tool::kFailed);
    });
}

int fail(int code, std::string line) {
    const size_t length = line.size(), escaped = tavi::escaped_length(line.data(), length);
    line.resize(escaped); // names come from others: one line stays one
    tavi::escape_controls(line.data(), length, escaped);
    fprintf(stderr, "tavi-image: %s\n", line.c_str());
    return code;
}

int run_tool(int argc, char** argv) {
    tool::capture_log();
    CLI::App app("Convert, cut, letterbox, warp and annotate pictures.", "tavi-image");
    app.set_version_flag("--version", "tavi-image " TAVI_VERSION);
    app.footer(kFooter);
    app.require_subcommand(1);
    app.fallthrough();
    app.add_option_function<int>("--log-level", tool::show_log,
                                 "show the library's log lines up to this level: 0 errors, 1 warnings, 2 the trace "
                                 "of normal work, 3 everything")
        ->check(CLI::Range(0, 3));

    tool::Run run;
    tool::add_convert(app, run);
    tool::add_roi(app, run);
    tool::add_letterbox(app, run);
    tool::add_draw(app, run);
    tool::add_affine(app, run);
    tool::add_transpose(app, run);
    tool::add_info(app, run);
    tool::add_formats(app, run);
    tool::add_probe(app, run);
    try {
        app.parse(argc, argv);
        run();
        return fflush(stdout) == 0 ? tool::kDone : fail(tool::kCannotWrite, "cannot write to standard output");
    } catch (const CLI::Success& e) { // --help and --version
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        if (app.get_subcommands().empty() && argc > 1 && argv[1][0] != '-')
            return fail(tool::kUsage, std::string("there is no command ") + argv[1] + " (try tavi-image --help)");
        return fail(tool::kUsage, std::string(e.what()) + " (try tavi-image --help)");
    } catch (const tool::Error& e) {
        return fail(e.code, e.what());
    } catch (const std::exception& e) {
        return fail(tool::kFailed, e.what());
    }
}

} // namespace

int main(int argc, char** argv) {
    try {
        return run_tool(argc, argv);
    } catch (const std::exception& e) { // while the command was set up, or while its failure was told
        fprintf(stderr, "tavi-image: %s\n", e.what());
        return tool::kFailed;
    }
}
