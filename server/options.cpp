// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "options.h"

#include <cmath>
#include <cstdio>

#include <CLI/CLI.hpp>

namespace zamd {
namespace {

constexpr uint32_t smallest_frame_limit = 1024;       // the longest request that this server's own protocol needs
constexpr uint64_t largest_frame_limit = 0xFFFFFF00U; // the length field has 32 bits
constexpr double longest_answer_s = 86400;

struct Raw {
    uint64_t frame_limit;
    uint64_t output_limit;
    double answer_timeout;
};

void _declare(CLI::App &app, Options &options, Raw &raw) {
    app.set_version_flag("--version", std::string{"zamd "} + ZAMD_VERSION);
    app.add_option("--listen", options.listen,
                   "Address to listen on: unix:///PATH:MODE, ADDRESS:PORT, [IPV6]:PORT or NAME:PORT")
        ->required()
        ->type_name("URL")
        ->allow_extra_args(false);
    app.add_option("--modules", options.modules, "Directory whose YANG modules are served")
        ->required()
        ->type_name("DIR")
        ->allow_extra_args(false);
    app.add_option("--startup", options.startup, "Configuration to start with, JSON or XML")->type_name("FILE");
    app.add_flag("--save", options.save, "Write the running configuration back to the startup file after each change");
    app.add_option("--log", options.log, "Where log lines go: stdout or a file")
        ->capture_default_str()
        ->type_name("stdout|FILE");
    app.add_option("--log-level", options.log_level, "Most verbose level that is logged, 0 (emergency) to 7 (debug)")
        ->capture_default_str()
        ->type_name("N")
        ->check(CLI::Range(0, 7));
    app.add_option("--frame-limit", raw.frame_limit, "Longest payload that a peer's frame may announce, such as 64MB")
        ->capture_default_str()
        ->type_name("BYTES")
        ->transform(CLI::AsSizeValue(false))
        ->check(CLI::Range(uint64_t{smallest_frame_limit}, largest_frame_limit));
    app.add_option("--output-limit", raw.output_limit, "Most that waits for a peer that does not read, such as 64MB")
        ->capture_default_str()
        ->type_name("BYTES")
        ->transform(CLI::AsSizeValue(false));
    app.add_option("--publish-timeout", raw.answer_timeout,
                   "How long a client may take to answer a publication, a status query or an operation")
        ->capture_default_str()
        ->type_name("SECONDS")
        ->check(CLI::Range(0.001, longest_answer_s));
}

// CLI11 explains some mistakes over several lines; an operator's log keeps one.
std::string _one_line(std::string text) {
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    for (char &c : text)
        if (c == '\n') c = ' ';
    return text;
}

int _bad(const std::string &why) {
    std::fprintf(stderr, "zamd: %s (see zamd --help)\n", why.c_str());
    return exit_bad_start;
}

} // namespace

std::variant<Options, int> parse_options(int argc, char **argv) {
    Options options;
    Raw raw{options.limits.frame, options.limits.output, 30};
    CLI::App app{"zamd, the reference datastore server: keeps YANG-modelled configuration and publishes its changes",
                 "zamd"};
    _declare(app, options, raw);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() == 0) return app.exit(error);
        return _bad(_one_line(error.what()));
    }
    if (options.save && options.startup.empty()) return _bad("--save needs --startup, the file to write to");
    if (!std::isfinite(raw.answer_timeout)) return _bad("--publish-timeout: not a number of seconds");
    options.limits.frame = static_cast<uint32_t>(raw.frame_limit);
    options.limits.output = raw.output_limit;
    options.limits.answer = std::chrono::milliseconds{std::llround(raw.answer_timeout * 1000)};
    return options;
}

} // namespace zamd
