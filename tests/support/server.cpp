// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "support/server.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace zam::test {
namespace {

constexpr int start_deadline_ms = 60000; // under valgrind and sanitizers the schema takes its time

std::vector<char *> _argv(const std::vector<std::string> &command) {
    std::vector<char *> argv;
    for (const auto &word : command)
        argv.push_back(const_cast<char *>(word.c_str()));
    argv.push_back(nullptr);
    return argv;
}

void _move_fd(int from, int to) {
    dup2(from, to);
    if (from != to) close(from);
}

int _status(int raw) {
    return WIFSIGNALED(raw) ? 128 + WTERMSIG(raw) : WEXITSTATUS(raw);
}

// Until the first line or the end of the stream.
std::string _read_line(int fd, int deadline_ms) {
    std::string line;
    pollfd wait{fd, POLLIN, 0};
    while (poll(&wait, 1, deadline_ms) > 0) {
        char c = 0;
        const ssize_t got = read(fd, &c, 1);
        if (got <= 0 || c == '\n') break;
        line.push_back(c);
    }
    return line;
}

// ZAMC_TEST_WRAPPER, such as "valgrind -q --error-exitcode=99", goes before every program of ours.
std::vector<std::string> _wrapped(std::vector<std::string> command) {
    std::vector<std::string> words;
    if (const char *wrapper = std::getenv("ZAMC_TEST_WRAPPER")) {
        std::string rest = wrapper;
        for (size_t at = 0; at != std::string::npos;) {
            const size_t end = rest.find(' ', at);
            words.push_back(rest.substr(at, end == std::string::npos ? end : end - at));
            at = end == std::string::npos ? end : end + 1;
        }
    }
    words.insert(words.end(), command.begin(), command.end());
    return words;
}

} // namespace

Server::Server() : Server{Options{}} {}

Server::Server(Options options) : options_{std::move(options)} {
    if (!options_.startup.empty()) dir_.write(options_.startup_name, options_.startup);
    start();
}

Server::~Server() {
    if (pid_ <= 0) return;
    const int status = stop();
    EXPECT_EQ(status, 0) << log();
}

void Server::start() {
    std::vector<std::string> command{zamd_path(),      "--listen",    listen_url(),      "--log",
                                     dir_.path("log"), "--log-level", options_.log_level};
    for (const auto &modules : options_.modules.empty() ? std::vector{models_path()} : options_.modules) {
        command.insert(command.end(), {"--modules", modules});
    }
    if (!options_.startup.empty()) command.insert(command.end(), {"--startup", dir_.path(options_.startup_name)});
    command.insert(command.end(), options_.arguments.begin(), options_.arguments.end());
    command = _wrapped(command);

    std::array<int, 2> out{};
    if (pipe2(out.data(), O_CLOEXEC) != 0) throw std::runtime_error{"pipe2"};
    const auto argv = _argv(command);
    pid_ = fork();
    if (pid_ == 0) {
        _move_fd(out[1], STDOUT_FILENO);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    close(out[1]);
    announcement_ = _read_line(out[0], start_deadline_ms);
    close(out[0]);
    if (announcement_.find("ready") == std::string::npos) {
        const int status = stop();
        throw std::runtime_error{"zamd did not start: \"" + announcement_ + "\", status " + std::to_string(status)};
    }
}

int Server::reap() {
    int raw = 0;
    while (waitpid(pid_, &raw, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    return _status(raw);
}

int Server::stop() {
    ::kill(pid_, SIGTERM);
    return reap();
}

void Server::kill() {
    ::kill(pid_, SIGKILL);
    reap();
}

ProcessResult run_process(const std::vector<std::string> &command, const std::string &input) {
    const TempDir dir;
    dir.write("in", input);
    const auto words = _wrapped(command);
    const auto argv = _argv(words);
    const pid_t pid = fork();
    if (pid == 0) {
        _move_fd(open(dir.path("in").c_str(), O_RDONLY), STDIN_FILENO);
        _move_fd(open(dir.path("out").c_str(), O_WRONLY | O_CREAT, 0600), STDOUT_FILENO);
        _move_fd(open(dir.path("err").c_str(), O_WRONLY | O_CREAT, 0600), STDERR_FILENO);
        alarm(60); // a program that hangs ends by its signal, and so fails the test
        execvp(argv[0], argv.data());
        _exit(127);
    }
    int raw = 0;
    while (waitpid(pid, &raw, 0) < 0 && errno == EINTR) {
    }
    return {_status(raw), read_file(dir.path("out")), read_file(dir.path("err"))};
}

std::string zamd_path() {
    return ZAMC_ZAMD_PATH;
}
std::string zamctl_path() {
    return ZAMC_ZAMCTL_PATH;
}
std::string models_path() {
    return ZAMC_MODELS_PATH;
}

} // namespace zam::test
