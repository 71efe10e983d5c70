// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The other ends of an exchange: a real zamd, and which cores everybody runs on.
#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

namespace zam::bench {

// A folder that goes with its owner.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;
    std::string path(const std::string &name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

// A zamd that serves the benchmarks' module, started with `startup`, ready when the constructor returns.
class Zamd {
public:
    explicit Zamd(const std::string &startup);
    ~Zamd();
    Zamd(const Zamd &) = delete;
    Zamd &operator=(const Zamd &) = delete;
    std::string url() const { return "unix://" + folder_.path("zamd.sock"); }
    pid_t pid() const { return pid_; }

private:
    TemporaryFolder folder_;
    pid_t pid_ = -1;
};

// Waits for a child; any end but exit status 0 fails the benchmark.
void reap(pid_t pid, const char *name);

// Puts this process and the others on the first core that it may use, or back on all of them.
class Cores {
public:
    Cores();
    ~Cores() { spread(); }
    Cores(const Cores &) = delete;
    Cores &operator=(const Cores &) = delete;
    void add(pid_t pid) { pids_.push_back(pid); }
    void pin() const;
    void spread() const;

private:
    std::vector<pid_t> pids_{0}; // 0 is this process
};

std::string modules_path();

// The configuration of the benchmarks' module: its settings, and so many shelves.
std::string warehouse(int shelves);

} // namespace zam::bench
