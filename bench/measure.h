// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Clock, medians and the lines that `run` makes its table of.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace zam::bench {

using Clock = std::chrono::steady_clock;

[[noreturn]] inline void fail(const std::string &what) {
    std::fprintf(stderr, "bench: %s\n", what.c_str());
    std::exit(1);
}

inline void require(bool holds, const std::string &what) {
    if (!holds) fail(what);
}

// One thing measured again and again; times in microseconds.
class Samples {
public:
    void add(double value) { values_.push_back(value); }
    template <typename F>
    void time(F &&work) {
        const auto start = Clock::now();
        work();
        add(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    double median() const {
        if (values_.empty()) return 0;
        auto sorted = values_;
        std::sort(sorted.begin(), sorted.end());
        return sorted[sorted.size() / 2];
    }

private:
    std::vector<double> values_;
};

inline void report(const std::string &figure, double value) {
    std::printf("%s %.3f\n", figure.c_str(), value);
    std::fflush(stdout);
}

// Both medians and how many times the floor ours is.
inline void report(const std::string &figure, const Samples &ours, const Samples &floor) {
    report(figure + ".us", ours.median());
    report(figure + ".floor-us", floor.median());
    report(figure, ours.median() / floor.median());
}

} // namespace zam::bench
