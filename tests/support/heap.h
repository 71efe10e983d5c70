// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Memory hooks for tests: they count live blocks, note who asked for them, and fail on demand.
#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>

namespace zam::test {

// Installs hooks for its lifetime. Blocks made before it must not be released inside it, and the other way round.
class Heap {
public:
    Heap();
    ~Heap();
    Heap(const Heap &) = delete;
    Heap &operator=(const Heap &) = delete;

    uint64_t live() const;        // blocks allocated and not yet released
    uint64_t allocations() const; // since construction or the last reset
    void reset_count();
    std::string live_sites() const; // "file:line size" of each live block, a line each, for failure messages

    // The n-th allocation from now (1 = the next) fails; with `from_then_on` all later ones too. 0 switches it off.
    void fail_at(uint64_t n, bool from_then_on = false);
    bool failed() const; // whether a failure was injected since fail_at

    // "file:line" of all that were ever failed, by this object and by those before it.
    static std::set<std::string> failed_sites();
};

// Runs `body` with the 1st, 2nd, … allocation failing, until a run in which nothing failed; each run must leave no live
// block behind. Returns how many allocations were failed. `body` makes and releases everything itself and checks
// results.
uint64_t fail_each_allocation(const std::function<void(bool expect_failure)> &body, bool from_then_on = false);

} // namespace zam::test
