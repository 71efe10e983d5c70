// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// A real zamd in a process of its own, on a unix socket in a temporary folder.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

#include "support/files.h"

namespace zam::test {

class Server {
public:
    struct Options {
        std::string startup{}; // text of the startup file; none when empty
        std::string startup_name = "startup.json";
        std::vector<std::string> modules{};   // folders; the real models when empty
        std::vector<std::string> arguments{}; // further ones
        std::string log_level = "6";
    };

    Server();
    explicit Server(Options options);
    ~Server(); // stops it; a server that then exits with anything but 0, or was killed by itself, fails the test
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    std::string url() const { return "unix://" + dir_.path("zamd.sock"); }
    std::string listen_url() const { return url() + ":600"; }
    pid_t pid() const { return pid_; }
    std::string log() const { return read_file(dir_.path("log")); }
    const TempDir &dir() const { return dir_; }
    const std::string &announcement() const { return announcement_; } // its first line on stdout

    void start();
    int stop();  // SIGTERM; the exit status
    void kill(); // SIGKILL

private:
    int reap();

    TempDir dir_;
    Options options_;
    pid_t pid_ = -1;
    std::string announcement_;
};

struct ProcessResult {
    int status; // exit status, 128 + the number of the signal that ended it
    std::string out, err;
};
// Runs a program of the build to its end, at most a minute; `input` is its standard input.
ProcessResult run_process(const std::vector<std::string> &command, const std::string &input = {});

// Where this build put its programs, and the folder of plain-named links to the IETF's modules.
std::string zamd_path();
std::string zamctl_path();
std::string models_path();

} // namespace zam::test
