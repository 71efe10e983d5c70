// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Jobs on worker threads.
#include <fstream>

#include <sys/syscall.h>

#include "io/job_support.h"
#include "support/files.h"
#include "support/heap.h"
#include "support/log_capture.h"

namespace {

using namespace zam::test;

class PooledJobs : public testing::Test {
protected:
    PooledJobs() { Job::completed = 0; }

    LogCapture quiet{3};
    DescriptorCheck descriptors;
};

class PoolOf : public PooledJobs, public testing::WithParamInterface<uint32_t> {};

TEST_P(PoolOf, LosesNothingOf100000Jobs) {
    JobEngine engine;
    ASSERT_EQ(engine.init(GetParam()), 0);
    std::vector<Job> jobs(100000);
    for (Job &job : jobs)
        ASSERT_EQ(job.submit(), 0);
    EXPECT_TRUE(engine.run_until([] { return Job::completed == 100000; })) << Job::completed;
    EXPECT_TRUE(std::all_of(jobs.begin(), jobs.end(), [](const Job &job) { return job.is_complete(); }));
}

TEST_P(PoolOf, LosesNoJobThatIsSubmittedAlone) {
    JobEngine engine;
    ASSERT_EQ(engine.init(GetParam()), 0);
    for (int i = 0; i < 300; ++i) {
        Job job;
        ASSERT_EQ(job.submit(), 0);
        ASSERT_TRUE(engine.run_until([i] { return Job::completed == i + 1; })) << i;
        EXPECT_TRUE(job.is_complete());
    }
}

INSTANTIATE_TEST_SUITE_P(Workers, PoolOf, testing::Values(1u, 4u, 16u));

TEST_F(PooledJobs, TenAtOnceOnFourWorkersAreAllDoneOnTheProactorsThread) {
    JobEngine engine;
    ASSERT_EQ(engine.init(4), 0);
    std::vector<Job> jobs(10);
    for (Job &job : jobs)
        ASSERT_EQ(job.submit(), 0);
    EXPECT_TRUE(engine.run_until([] { return Job::completed == 10; }));
    for (const Job &job : jobs) {
        EXPECT_TRUE(job.is_complete());
        EXPECT_NE(job.worker, std::this_thread::get_id());
    }
}

TEST_F(PooledJobs, AreDoneInsideTheWaitAndNotAsEvents) {
    JobEngine engine;
    ASSERT_EQ(engine.init(1), 0);
    Job job;
    job.submit();
    zam_trigger *trigger = zam_proactor_wait(engine.proactor, patience_ms);
    EXPECT_NE(trigger, nullptr);
    EXPECT_TRUE(job.is_complete());
    EXPECT_EQ(take_events(engine.proactor), Events{});
    zam_proactor_done(engine.proactor, trigger);
}

TEST_F(PooledJobs, LeaveNoSignalBehindWhenTheyAreDone) {
    JobEngine engine;
    ASSERT_EQ(engine.init(1), 0);
    Job job;
    job.submit();
    zam_trigger *trigger = zam_proactor_wait(engine.proactor, patience_ms);
    ASSERT_TRUE(job.is_complete());
    ASSERT_EQ(zam_trigger_rearm(engine.proactor, trigger, EPOLLIN), 0);
    EXPECT_EQ(zam_proactor_wait(engine.proactor, 0), nullptr);
}

TEST_F(PooledJobs, OfOneWorkerRunInOrderOfSubmission) {
    JobEngine engine;
    ASSERT_EQ(engine.init(1), 0);
    static std::vector<intptr_t> worked;
    static std::vector<intptr_t> done;
    worked.clear();
    done.clear();
    for (intptr_t i = 0; i < 1000; ++i) {
        zam_new_job(
            reinterpret_cast<void *>(i), [](void *arg) { worked.push_back(reinterpret_cast<intptr_t>(arg)); },
            [](void *arg) { done.push_back(reinterpret_cast<intptr_t>(arg)); });
    }
    ASSERT_TRUE(engine.run_until([] { return done.size() == 1000; }));
    EXPECT_TRUE(std::is_sorted(done.begin(), done.end()));
    EXPECT_EQ(worked, done);
}

TEST_F(PooledJobs, UseAllWorkersAtOnce) {
    JobEngine engine;
    ASSERT_EQ(engine.init(4), 0);
    static std::atomic<int> arrived;
    static std::atomic<int> met;
    static int done;
    arrived = 0;
    met = 0;
    done = 0;
    for (int i = 0; i < 4; ++i) {
        zam_new_job(
            nullptr,
            [](void *) {
                ++arrived;
                if (wait_until([] { return arrived == 4; })) ++met;
            },
            [](void *) { ++done; });
    }
    EXPECT_TRUE(engine.run_until([] { return done == 4; }));
    EXPECT_EQ(met, 4) << "the jobs waited for each other in vain";
}

TEST_F(PooledJobs, MayLackEitherFunction) {
    JobEngine engine;
    ASSERT_EQ(engine.init(2), 0);
    static std::atomic<int> works;
    static int dones;
    works = 0;
    dones = 0;
    zam_new_job(nullptr, nullptr, nullptr);
    zam_new_job(
        nullptr, [](void *) { ++works; }, nullptr);
    zam_new_job(nullptr, nullptr, [](void *) { ++dones; });
    EXPECT_TRUE(engine.run_until([] { return dones == 1; }));
    EXPECT_TRUE(wait_until([] { return works == 1; }));
}

TEST_F(PooledJobs, MaySubmitJobsFromBothFunctions) {
    JobEngine engine;
    ASSERT_EQ(engine.init(2), 0);
    static std::atomic<int> works;
    static int dones;
    works = 0;
    dones = 0;
    const auto leaf = [](void *) { ++works; };
    static zam_job_fn leaf_work;
    leaf_work = leaf;
    const auto submit_one = [](void *) { zam_new_job(nullptr, leaf_work, [](void *) { ++dones; }); };
    for (int i = 0; i < 100; ++i)
        zam_new_job(nullptr, submit_one, submit_one);
    EXPECT_TRUE(engine.run_until([] { return dones == 200; })) << dones;
    EXPECT_EQ(works, 200);
}

TEST_F(PooledJobs, MayBeSubmittedByOtherThreads) {
    JobEngine engine;
    ASSERT_EQ(engine.init(4), 0);
    std::vector<std::vector<Job>> jobs(4, std::vector<Job>(2000));
    std::vector<std::thread> threads;
    threads.reserve(jobs.size());
    for (auto &mine : jobs) {
        threads.emplace_back([&mine] {
            for (Job &job : mine)
                EXPECT_EQ(job.submit(), 0);
        });
    }
    EXPECT_TRUE(engine.run_until([] { return Job::completed == 8000; })) << Job::completed;
    for (auto &thread : threads)
        thread.join();
    for (const auto &mine : jobs)
        EXPECT_TRUE(std::all_of(mine.begin(), mine.end(), [](const Job &job) { return job.is_complete(); }));
}

TEST_F(PooledJobs, ThatWaitForTheirCompletionAtTheExitAreFreedWithoutIt) {
    Heap heap;
    static std::atomic<int> works;
    works = 0;
    {
        JobEngine engine;
        ASSERT_EQ(engine.init(2), 0);
        for (int i = 0; i < 10; ++i)
            zam_new_job(
                nullptr, [](void *) { ++works; }, [](void *) { ADD_FAILURE() << "completed by the exit"; });
        EXPECT_TRUE(wait_until([] { return works == 10; }));
        zam_job_exit();
        EXPECT_EQ(zam_proactor_wait(engine.proactor, 0), nullptr);
    }
    EXPECT_EQ(heap.live(), 0u) << heap.live_sites();
}

// Whether a thread of this process sleeps in the kernel.
bool sleeps(pid_t tid) {
    std::ifstream file{text("/proc/self/task/", tid, "/stat")};
    std::string line;
    std::getline(file, line);
    const size_t name_end = line.rfind(')');
    return name_end != std::string::npos && name_end + 2 < line.size() && line[name_end + 2] == 'S';
}

TEST_F(PooledJobs, PendingAtTheExitAreFreedWithoutRunning) {
    Heap heap;
    static std::atomic<bool> started;
    static std::atomic<bool> exiting;
    static std::atomic<pid_t> main_thread;
    started = false;
    exiting = false;
    main_thread = static_cast<pid_t>(syscall(SYS_gettid));
    {
        JobEngine engine;
        ASSERT_EQ(engine.init(1), 0);
        const auto completed = [](void *) { ADD_FAILURE() << "completed by the exit"; };
        const auto hold_until_exit_waits = [](void *) {
            started = true;
            EXPECT_TRUE(wait_until([] { return exiting && sleeps(main_thread); }));
        };
        zam_new_job(nullptr, hold_until_exit_waits, completed);
        for (int i = 0; i < 10; ++i)
            zam_new_job(
                nullptr, [](void *) { ADD_FAILURE() << "worked on after the exit"; }, completed);
        ASSERT_TRUE(wait_until([] { return started.load(); }));
        exiting = true;
        zam_job_exit();
    }
    EXPECT_EQ(heap.live(), 0u) << heap.live_sites();
}

// Counts the threads that have ended after making one.
struct Farewell {
    ~Farewell() { ++ended; }
    static inline std::atomic<int> ended = 0;
};

TEST_F(PooledJobs, ExitReturnsOnlyAfterEveryWorkerHasEnded) {
    static std::atomic<int> arrived;
    Farewell::ended = 0;
    arrived = 0;
    JobEngine engine;
    ASSERT_EQ(engine.init(4), 0);
    for (int i = 0; i < 4; ++i) {
        zam_new_job(
            nullptr,
            [](void *) {
                thread_local Farewell farewell; // goes with its worker
                static_cast<void>(&farewell);
                ++arrived;
                EXPECT_TRUE(wait_until([] { return arrived == 4; }));
            },
            nullptr);
    }
    EXPECT_TRUE(wait_until([] { return arrived == 4; }));
    zam_job_exit();
    EXPECT_EQ(Farewell::ended, 4);
}

TEST_F(PooledJobs, ADoneFunctionMayEndTheFacility) {
    Heap heap;
    {
        JobEngine engine;
        ASSERT_EQ(engine.init(2), 0);
        static bool ended;
        ended = false;
        for (int i = 0; i < 5; ++i) {
            zam_new_job(nullptr, nullptr, [](void *) {
                EXPECT_FALSE(ended);
                ended = true;
                zam_job_exit();
            });
        }
        EXPECT_TRUE(engine.run_until([] { return ended; }));
    }
    EXPECT_EQ(heap.live(), 0u) << heap.live_sites();
}

TEST_F(PooledJobs, OutliveTheirProactorUncompleted) {
    Heap heap;
    zam_proactor *proactor = zam_proactor_new();
    zam_registry *registry = zam_registry_new(23);
    ASSERT_EQ(zam_job_init(proactor, registry, 2), 0);
    static std::atomic<int> works;
    works = 0;
    const auto count = [](void *) { ++works; };
    for (int i = 0; i < 10; ++i)
        zam_new_job(nullptr, count, [](void *) { ADD_FAILURE() << "completed without a proactor"; });
    EXPECT_TRUE(wait_until([] { return works == 10; }));
    zam_proactor_free(proactor);
    zam_job_exit();
    zam_registry_free(registry);
    EXPECT_EQ(heap.live(), 0u) << heap.live_sites();
}

TEST_F(PooledJobs, WithoutMemoryForTheJobFail) {
    JobEngine engine;
    ASSERT_EQ(engine.init(1), 0);
    Heap heap;
    heap.fail_at(1);
    Job job;
    EXPECT_EQ(job.submit(), -1);
    EXPECT_TRUE(quiet.has(3, "Alloc memory for job failed."));
}

} // namespace
