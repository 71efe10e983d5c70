// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// What the command line said.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <zamc/utils.h>

namespace zamctl {

// Exit codes of every command.
enum Exit { exit_done = 0, exit_refused = 1, exit_usage = 2, exit_unreachable = 3 };

struct Options {
    std::string server = "unix:///run/zamd/zamd.sock";
    std::vector<std::string> modules;
    uint32_t encoding = ZAM_ENCODE_JSON;
    int timeout_s = 60;
    bool verbose = false;

    std::string datastore = "running";
    std::string path;
    std::string content; // "-": standard input
    std::string operation = "merge";
    int32_t depth = -1;
    bool last = false;

    uint32_t priority = 100;
    std::string mask = "all";
    bool replay = false;
    uint64_t count = 0; // publications to wait for; 0: for ever
};

int pull(const Options &options);
int push(const Options &options);
int rpc(const Options &options);
int watch(const Options &options);

} // namespace zamctl
