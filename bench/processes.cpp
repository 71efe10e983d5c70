// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "processes.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "measure.h"

namespace zam::bench {
namespace {

// The cores that this process was given at its start.
const cpu_set_t &_all_cores() {
    static const cpu_set_t cores = [] {
        cpu_set_t set;
        require(sched_getaffinity(0, sizeof set, &set) == 0, "sched_getaffinity failed");
        return set;
    }();
    return cores;
}

cpu_set_t _first_core() {
    const cpu_set_t &all = _all_cores();
    size_t core = 0;
    while (!CPU_ISSET(core, &all))
        core++;
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(core, &set);
    return set;
}

std::string _read_line(int fd) {
    std::string line;
    for (char c = 0; read(fd, &c, 1) == 1 && c != '\n';)
        line.push_back(c);
    return line;
}

pid_t _spawn(std::vector<std::string> command, int output) {
    std::vector<char *> argv;
    for (std::string &word : command)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    pid_t pid = -1;
    const int result = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    require(result == 0, "cannot start " + command[0]);
    return pid;
}

} // namespace

TemporaryFolder::TemporaryFolder() {
    std::string name = std::filesystem::temp_directory_path() / "zamc-bench-XXXXXX";
    require(mkdtemp(name.data()) != nullptr, "cannot make a temporary folder");
    path_ = name;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

Zamd::Zamd(const std::string &startup) {
    std::ofstream{folder_.path("startup.json")} << startup;
    std::array<int, 2> out{};
    require(pipe2(out.data(), O_CLOEXEC) == 0, "pipe2 failed");
    pid_ = _spawn({ZAMC_ZAMD_PATH, "--listen", url() + ":600", "--modules", modules_path(), "--startup",
                   folder_.path("startup.json"), "--log", folder_.path("log"), "--log-level", "4"},
                  out[1]);
    close(out[1]);
    const std::string line = _read_line(out[0]);
    close(out[0]);
    require(line.find("ready") != std::string::npos, "zamd did not start: " + line);
}

Zamd::~Zamd() {
    kill(pid_, SIGTERM);
    reap(pid_, "zamd");
}

void reap(pid_t pid, const char *name) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    require(WIFEXITED(status) && WEXITSTATUS(status) == 0, std::string{name} + " did not end well");
}

Cores::Cores() {
    _all_cores();
}

void Cores::pin() const {
    const cpu_set_t core = _first_core();
    for (const pid_t pid : pids_)
        require(sched_setaffinity(pid, sizeof core, &core) == 0, "sched_setaffinity failed");
}

void Cores::spread() const {
    for (const pid_t pid : pids_)
        sched_setaffinity(pid, sizeof _all_cores(), &_all_cores());
}

std::string modules_path() {
    return ZAMC_BENCH_MODULES_PATH;
}

std::string warehouse(int shelves) {
    std::string text = R"({"warehouse:settings":{"level":7,"motto":"first in, first out","open":true,"mode":"fast"})";
    if (shelves > 0) text += R"(,"warehouse:shelves":{"shelf":[)";
    for (int i = 0; i < shelves; i++) {
        std::array<char, 200> entry;
        std::snprintf(
            entry.data(), entry.size(),
            R"(%s{"name":"shelf-%06d","label":"row %d, behind door %d","width":%d,"locked":%s,"serial":"%d"})",
            i > 0 ? "," : "", i, i / 40, i % 97, 600 + i % 5000, i % 2 ? "true" : "false", 1000000000 + i);
        text += entry.data();
    }
    if (shelves > 0) text += "]}";
    return text + "}";
}

} // namespace zam::bench
