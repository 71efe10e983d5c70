// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#ifndef ZAMD_TIMERS_H
#define ZAMD_TIMERS_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <unordered_map>

namespace zamd {

// Deadlines in the order in which they come. The loop waits no longer than
// wait_ms() and then runs what is due; an action may set and cancel timers.
class Timers {
public:
    using Clock = std::chrono::steady_clock;
    using Id = uint64_t; // never 0, so that 0 can say "not set"

    Id after(std::chrono::milliseconds delay, std::function<void()> action);
    void cancel(Id &id); // sets it to 0; a timer that ran or never was is no mistake
    int wait_ms() const; // -1 when no timer is set
    void run_due();

private:
    struct Timer {
        Id id;
        std::function<void()> action;
    };
    using Queue = std::multimap<Clock::time_point, Timer>;

    Queue queue_;
    std::unordered_map<Id, Queue::iterator> by_id_;
    Id last_id_ = 0;
};

// How long one peer, or one kind of work, may keep the loop from the others.
class Share {
public:
    bool spent() const { return Timers::Clock::now() >= end_; }

private:
    Timers::Clock::time_point end_ = Timers::Clock::now() + std::chrono::microseconds{250};
};

} // namespace zamd

#endif
