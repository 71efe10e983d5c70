// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#ifndef ZAMD_OPTIONS_H
#define ZAMD_OPTIONS_H

#include <chrono>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace zamd {

// Every way to end without serving uses one of these.
enum ExitCode : int { exit_clean = 0, exit_failed = 1, exit_bad_start = 2 };

struct Limits {
    uint32_t frame = 64U << 20;                                 // bytes of payload that one frame may announce
    uint64_t output = 64U << 20;                                // bytes that may wait for a peer that does not read
    std::chrono::milliseconds answer{std::chrono::seconds{30}}; // for a client to answer what the server asks it
};

struct Options {
    std::vector<std::string> listen;
    std::vector<std::string> modules;
    std::string startup;
    bool save = false;
    std::string log = "stdout";
    int log_level = 5;
    Limits limits;
};

// The options, or the exit code of a run that ends here: help and version
// print to stdout and end with 0, a bad flag is one line on stderr and 2.
std::variant<Options, int> parse_options(int argc, char **argv);

} // namespace zamd

#endif
