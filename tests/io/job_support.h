// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Jobs that keep a record of themselves, and an engine that completes them.
#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

#include <zamc/job.h>

#include "io/engine.h"

namespace zam::test {

// A proactor with a registry. Ends the job facility before both.
class JobEngine {
public:
    JobEngine() { zam_proactor_registry_set(proactor, registry); }
    ~JobEngine() {
        zam_job_exit();
        zam_proactor_free(proactor);
        zam_registry_free(registry);
    }
    JobEngine(const JobEngine &) = delete;
    JobEngine &operator=(const JobEngine &) = delete;

    int32_t init(uint32_t threads) const { return zam_job_init(proactor, registry, threads); }

    // Runs rounds until `finished` holds or it takes too long.
    template <typename Condition>
    bool run_until(Condition finished) const {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds{patience_ms};
        dispatch_events(proactor);
        while (!finished()) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0) return false;
            zam_trigger *trigger = zam_proactor_wait(proactor, static_cast<int32_t>(left.count()));
            dispatch_events(proactor);
            zam_proactor_done(proactor, trigger);
        }
        return true;
    }

    zam_proactor *proactor = zam_proactor_new();
    zam_registry *registry = zam_registry_new(23);
};

// What is expected of a job, checked while it runs: work once, then done once on the thread that made this record.
struct Job {
    static void work(void *arg) {
        auto *job = static_cast<Job *>(arg);
        job->worker = std::this_thread::get_id();
        ++job->works;
    }
    static void done(void *arg) {
        auto *job = static_cast<Job *>(arg);
        job->done_after_work = job->works == 1 && job->dones == 0;
        job->done_at_home = std::this_thread::get_id() == job->home;
        ++job->dones;
        ++completed;
    }
    int32_t submit() { return zam_new_job(this, work, done); }
    bool is_complete() const { return works == 1 && dones == 1 && done_after_work && done_at_home; }

    std::thread::id home = std::this_thread::get_id();
    std::thread::id worker;
    int works = 0; // handed from worker to proactor by the facility itself: it is what orders these accesses
    int dones = 0;
    bool done_after_work = false;
    bool done_at_home = false;
    static inline int completed = 0; // of the test's thread
};

// Yields until the condition holds or it takes too long.
template <typename Condition>
bool wait_until(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds{patience_ms};
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::yield();
    }
    return true;
}

} // namespace zam::test
