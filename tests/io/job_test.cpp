// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Starting and ending the job facility, and jobs without workers; those with workers are in job_pool_test.cpp.
#include <pthread.h>

#include <gmock/gmock.h>

#include "io/job_support.h"
#include "support/files.h"
#include "support/heap.h"
#include "support/log_capture.h"

namespace {

using namespace zam::test;

std::string order;

template <char Mark>
void mark(void *) {
    order += Mark;
}

class InlineJobs : public testing::Test {
protected:
    InlineJobs() {
        order.clear();
        Job::completed = 0;
    }
};

TEST_F(InlineJobs, InitRegistersTheEventAndNeedsNoDescriptor) {
    JobEngine engine;
    DescriptorCheck descriptors;
    LogCapture log;
    EXPECT_EQ(engine.init(0), 0);
    EXPECT_EQ(log.all(), "[DEBUG] Register the event: EVENT_NEW_JOB(id = 22).\n");
    log.clear();
    zam_job_exit();
    EXPECT_EQ(log.all(), "[DEBUG] Unregister event: EVENT_NEW_JOB(id = 22).\n");
}

TEST_F(InlineJobs, RunWorkAndDoneWhenTheEventIsDispatchedInOrderOfSubmission) {
    JobEngine engine;
    ASSERT_EQ(engine.init(0), 0);
    EXPECT_EQ(zam_new_job(nullptr, mark<'a'>, mark<'A'>), 0);
    EXPECT_EQ(zam_new_job(nullptr, mark<'b'>, mark<'B'>), 0);
    EXPECT_EQ(zam_new_job(nullptr, mark<'c'>, mark<'C'>), 0);
    EXPECT_EQ(order, "");
    dispatch_events(engine.proactor);
    EXPECT_EQ(order, "aAbBcC");
}

TEST_F(InlineJobs, TravelAsTheEventOfNewJobs) {
    JobEngine engine;
    ASSERT_EQ(engine.init(0), 0);
    zam_new_job(nullptr, mark<'a'>, nullptr);
    zam_event *event = zam_event_pop(engine.proactor);
    EXPECT_EQ(zam_event_id(event), static_cast<uint32_t>(EVENT_NEW_JOB));
    EXPECT_NE(zam_event_para(event), nullptr);
    zam_event_dispatch(engine.proactor, event);
    zam_event_free(event);
    EXPECT_EQ(order, "a");
}

TEST_F(InlineJobs, HandTheArgumentToBothFunctions) {
    JobEngine engine;
    ASSERT_EQ(engine.init(0), 0);
    Job job;
    EXPECT_EQ(job.submit(), 0);
    dispatch_events(engine.proactor);
    EXPECT_TRUE(job.is_complete());
    EXPECT_EQ(job.worker, std::this_thread::get_id());
}

TEST_F(InlineJobs, MayLackEitherFunction) {
    JobEngine engine;
    ASSERT_EQ(engine.init(0), 0);
    zam_new_job(nullptr, nullptr, mark<'D'>);
    zam_new_job(nullptr, mark<'w'>, nullptr);
    zam_new_job(nullptr, nullptr, nullptr);
    dispatch_events(engine.proactor);
    EXPECT_EQ(order, "Dw");
}

TEST_F(InlineJobs, MaySubmitFurtherJobs) {
    JobEngine engine;
    ASSERT_EQ(engine.init(0), 0);
    zam_new_job(
        nullptr, [](void *) { zam_new_job(nullptr, mark<'2'>, nullptr); }, mark<'1'>);
    dispatch_events(engine.proactor);
    EXPECT_EQ(order, "12");
}

TEST_F(InlineJobs, LoseNothingOf100000) {
    LogCapture quiet{3};
    Heap heap;
    {
        JobEngine engine;
        ASSERT_EQ(engine.init(0), 0);
        std::vector<Job> jobs(100000);
        for (Job &job : jobs)
            ASSERT_EQ(job.submit(), 0);
        dispatch_events(engine.proactor);
        EXPECT_EQ(Job::completed, 100000);
        EXPECT_TRUE(std::all_of(jobs.begin(), jobs.end(), [](const Job &job) { return job.is_complete(); }));
    }
    EXPECT_EQ(heap.live(), 0u);
}

TEST_F(InlineJobs, StillWaitingAtTheExitAreFreedWithoutRunning) {
    Heap heap;
    {
        JobEngine engine;
        ASSERT_EQ(engine.init(0), 0);
        int other = 0;
        zam_new_job(nullptr, mark<'w'>, mark<'d'>);
        zam_event_push(engine.proactor, EVENT_CLIENT_ONLINE, &other, nullptr);
        zam_new_job(nullptr, mark<'w'>, mark<'d'>);
        zam_job_exit();
        EXPECT_EQ(take_events(engine.proactor), (Events{{EVENT_CLIENT_ONLINE, &other}}));
    }
    EXPECT_EQ(order, "");
    EXPECT_EQ(heap.live(), 0u) << heap.live_sites();
}

TEST_F(InlineJobs, AreFreedWithAProactorThatGoesBeforeTheExit) {
    Heap heap;
    zam_proactor *proactor = zam_proactor_new();
    zam_registry *registry = zam_registry_new(23);
    ASSERT_EQ(zam_job_init(proactor, registry, 0), 0);
    zam_new_job(nullptr, mark<'w'>, mark<'d'>);
    zam_proactor_free(proactor);
    EXPECT_EQ(zam_new_job(nullptr, mark<'w'>, mark<'d'>), 0) << "dropped, which the result does not tell";
    zam_job_exit();
    zam_registry_free(registry);
    EXPECT_EQ(order, "");
    EXPECT_EQ(heap.live(), 0u) << heap.live_sites();
}

TEST_F(InlineJobs, WithoutMemoryForTheJobFail) {
    JobEngine engine;
    ASSERT_EQ(engine.init(0), 0);
    Heap heap;
    LogCapture log;
    heap.fail_at(1);
    EXPECT_EQ(zam_new_job(nullptr, mark<'w'>, nullptr), -1);
    EXPECT_TRUE(log.has(3, "Alloc memory for job failed."));
    EXPECT_EQ(take_events(engine.proactor), Events{});
}

TEST_F(InlineJobs, WithoutMemoryForTheEventAreDroppedWithoutAFailure) {
    JobEngine engine;
    ASSERT_EQ(engine.init(0), 0);
    Heap heap;
    LogCapture log;
    heap.fail_at(2);
    EXPECT_EQ(zam_new_job(nullptr, mark<'w'>, nullptr), 0);
    EXPECT_TRUE(log.has(0, "Allocate memory for push event: EVENT_NEW_JOB unsuccessful."));
    EXPECT_FALSE(log.mentions("Alloc memory for job failed."));
    EXPECT_EQ(take_events(engine.proactor), Events{});
    EXPECT_EQ(heap.live(), 0u) << heap.live_sites();
}

TEST(JobExit, BeforeInitIsHarmless) {
    DescriptorCheck descriptors;
    const bool had_input = is_open(0);
    zam_job_exit();
    EXPECT_EQ(is_open(0), had_input) << "closed a descriptor that was never its own";
}

TEST(JobExit, TwiceIsHarmless) {
    JobEngine engine;
    DescriptorCheck descriptors;
    for (const uint32_t threads : {0u, 1u}) {
        ASSERT_EQ(engine.init(threads), 0);
        zam_job_exit();
        LogCapture log;
        zam_job_exit();
        EXPECT_EQ(log.all(), "");
    }
}

TEST(JobExit, LeavesTheFacilityReadyForAnotherInit) {
    Heap heap;
    {
        DescriptorCheck descriptors;
        for (const uint32_t threads : {0u, 2u, 0u, 1u}) {
            JobEngine engine;
            ASSERT_EQ(engine.init(threads), 0);
            Job job;
            Job::completed = 0;
            ASSERT_EQ(job.submit(), 0);
            EXPECT_TRUE(engine.run_until([] { return Job::completed == 1; }));
            EXPECT_TRUE(job.is_complete());
        }
    }
    EXPECT_EQ(heap.live(), 0u) << heap.live_sites();
}

TEST(JobExit, UnregistersTheEventFirst) {
    JobEngine engine;
    ASSERT_EQ(engine.init(1), 0);
    LogCapture log;
    zam_job_exit();
    ASSERT_GE(log.lines().size(), 3u);
    EXPECT_EQ(log.lines()[0].text, "[WARN] Event: EVENT_NEW_JOB(id = 22) is not registered.\n");
    EXPECT_THAT(log.lines()[1].text, testing::StartsWith("[DEBUG] Proactor unarm trigger "));
    EXPECT_THAT(log.lines()[2].text, testing::StartsWith("[DEBUG] Free the trigger "));
}

TEST(JobInit, WhileInUseIsRefusedAndChangesNothing) {
    JobEngine engine;
    ASSERT_EQ(engine.init(0), 0);
    EXPECT_EQ(engine.init(0), -1);
    EXPECT_EQ(engine.init(2), -1);
    Job job;
    EXPECT_EQ(job.submit(), 0);
    dispatch_events(engine.proactor);
    EXPECT_TRUE(job.is_complete());
}

TEST(JobInit, WithoutProactorFails) {
    DescriptorCheck descriptors;
    zam_registry *registry = zam_registry_new(23);
    LogCapture log;
    EXPECT_EQ(zam_job_init(nullptr, registry, 1), -1);
    EXPECT_TRUE(log.has(3, "Create job event triger failed."));
    zam_registry_free(registry);
}

TEST(JobInit, WithoutDescriptorsFails) {
    JobEngine engine;
    LogCapture log;
    {
        NoMoreDescriptors none;
        EXPECT_EQ(engine.init(1), -1);
    }
    EXPECT_EQ(log.count(3, "Create job event triger failed."), 1);
    EXPECT_FALSE(log.mentions("Start workthreads failed."));
}

TEST(JobInit, WithoutMemoryForTheTriggerFails) {
    JobEngine engine;
    DescriptorCheck descriptors;
    Heap heap;
    LogCapture log;
    heap.fail_at(1);
    EXPECT_EQ(engine.init(1), -1);
    EXPECT_EQ(log.count(3, "Create job event triger failed."), 1);
    EXPECT_FALSE(log.mentions("Start workthreads failed."));
    EXPECT_EQ(heap.live(), 0u) << heap.live_sites();
}

TEST(JobInit, WithoutMemoryForAWorkerFailsAndStopsThoseThatRun) {
    JobEngine engine;
    DescriptorCheck descriptors;
    Heap heap;
    LogCapture log;
    heap.fail_at(3); // the trigger, the first worker, the second
    EXPECT_EQ(engine.init(4), -1);
    EXPECT_EQ(log.count(3, "Alloc memory for workthread_t failed"), 1);
    EXPECT_EQ(log.count(3, "Start workthreads failed."), 1);
    EXPECT_FALSE(log.mentions("Create job event triger failed."));
    EXPECT_EQ(heap.live(), 0u) << heap.live_sites();
}

TEST(JobInit, WithoutRoomForAThreadFails) {
    JobEngine engine;
    DescriptorCheck descriptors;
    pthread_attr_t old;
    pthread_attr_t huge;
    pthread_getattr_default_np(&old);
    pthread_getattr_default_np(&huge);
    pthread_attr_setstacksize(&huge, size_t{1} << 47); // as large as the address space
    ASSERT_EQ(pthread_setattr_default_np(&huge), 0);
    LogCapture log;
    EXPECT_EQ(engine.init(1), -1);
    pthread_setattr_default_np(&old);
    EXPECT_EQ(log.count(3, "Create workthread for job failed"), 1) << log.all();
    EXPECT_EQ(log.count(3, "Start workthreads failed."), 1);
}

TEST(JobInit, SurvivesEachFailingAllocation) {
    DescriptorCheck descriptors;
    const uint64_t failed = fail_each_allocation([](bool) {
        zam_proactor *proactor = zam_proactor_new();
        zam_registry *registry = zam_registry_new(23);
        for (const uint32_t threads : {0u, 2u}) {
            if (zam_job_init(proactor, registry, threads) == 0) zam_job_exit();
        }
        zam_proactor_free(proactor);
        zam_registry_free(registry);
    });
    EXPECT_EQ(failed, 5u); // the proactor, the registry, the trigger, two workers
}

TEST(JobSubmission, BeforeInitIsDropped) {
    Heap heap;
    order.clear();
    EXPECT_EQ(zam_new_job(nullptr, mark<'w'>, mark<'d'>), 0);
    EXPECT_EQ(order, "");
    EXPECT_EQ(heap.live(), 0u) << heap.live_sites();
}

} // namespace
