// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// What the suites of this folder share: they count cells, and what does not hold in them.
#pragma once

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

namespace zam::torture {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Whether the suite has to find the fault that it plants itself.
inline bool planted() {
    const char *wanted = std::getenv("ZAMC_PLANT");
    return wanted != nullptr && *wanted == '1';
}

inline double ms_since(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// Looks again and again, without keeping the processor from the others, until it holds or the time is up.
bool eventually(const std::function<bool()> &holds, milliseconds deadline);

struct Tally {
    uint64_t cells = 0;
    uint64_t failures = 0;

    // The first few are printed, each with the cell it belongs to.
    bool expect(bool holds, const std::string &cell, const std::string &what) {
        if (holds) return true;
        if (++failures <= 20) {
            std::printf("%s: %s\n", cell.c_str(), what.c_str());
            std::fflush(stdout);
        }
        return false;
    }
};

// Spreads a wanted number of cells evenly over those that there are.
class Spread {
public:
    Spread(uint64_t wanted, uint64_t available) : wanted_{wanted}, available_{available} {}
    bool takes_next() {
        sum_ += std::min(wanted_, available_);
        if (sum_ < available_) return false;
        sum_ -= available_;
        return true;
    }

private:
    uint64_t wanted_, available_;
    uint64_t sum_ = 0;
};

} // namespace zam::torture
