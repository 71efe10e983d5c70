// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Signals that keep interrupting the system calls of the process while the object lives.
#pragma once

#include <atomic>
#include <csignal>

#include <sys/time.h>

namespace zam::test {

class SignalStorm {
public:
    SignalStorm() {
        count_ = 0;
        struct sigaction action {};
        action.sa_handler = [](int) { ++count_; }; // without SA_RESTART: calls end with EINTR
        sigaction(SIGALRM, &action, &old_);
        const itimerval often{{0, 2000}, {0, 2000}};
        setitimer(ITIMER_REAL, &often, nullptr);
    }
    ~SignalStorm() {
        const itimerval never{};
        setitimer(ITIMER_REAL, &never, nullptr);
        signal(SIGALRM, SIG_IGN); // one that is still on its way is dropped
        sigaction(SIGALRM, &old_, nullptr);
    }
    SignalStorm(const SignalStorm &) = delete;
    SignalStorm &operator=(const SignalStorm &) = delete;

    static int signals() { return count_; }

private:
    static inline std::atomic<int> count_ = 0;
    struct sigaction old_ {};
};

} // namespace zam::test
