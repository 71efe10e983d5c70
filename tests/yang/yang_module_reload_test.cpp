// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// The status of a schema reload.
#include <zamc/yang_module.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <optional>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "support/files.h"

namespace {

// While set, a timed wait of this thread notes its deadline and is over at once.
thread_local bool time_is_up = false;
thread_local timespec deadline_seen = {};
thread_local int waits = 0;

} // namespace

// Stands before the C library's in this program, so that a minute need not pass.
extern "C" int pthread_cond_timedwait(pthread_cond_t *condition, pthread_mutex_t *mutex, const timespec *deadline) {
    if (!time_is_up) return pthread_cond_clockwait(condition, mutex, CLOCK_REALTIME, deadline);
    deadline_seen = *deadline;
    ++waits;
    return ETIMEDOUT;
}

namespace {

class ReloadStatus : public testing::Test {
protected:
    ReloadStatus() { zam_reload_schema_init(); }
    ~ReloadStatus() override { zam_reset_schema_status(); }
};

// A thread that waits for a status, known to sleep in its wait.
class Waiter {
public:
    Waiter()
        : thread_{[this] {
              tid_ = static_cast<pid_t>(syscall(SYS_gettid));
              result_ = zam_wait_reload_schema_status();
          }} {
        using namespace std::chrono;
        const auto give_up = steady_clock::now() + seconds{10};
        while (!sleeps() && steady_clock::now() < give_up)
            std::this_thread::yield();
    }
    uint32_t result() {
        thread_.join();
        return result_;
    }

private:
    // The third field behind the name, in brackets, is the state.
    bool sleeps() const {
        if (tid_ == 0) return false;
        const std::string stat = zam::test::read_file("/proc/self/task/" + std::to_string(tid_) + "/stat");
        const size_t end = stat.rfind(')');
        return end != std::string::npos && stat.compare(end, 3, ") S") == 0;
    }

    std::atomic<pid_t> tid_ = 0;
    std::atomic<uint32_t> result_ = 0;
    std::thread thread_;
};

TEST_F(ReloadStatus, InitSucceedsAndSetsItToZero) {
    zam_notify_reload_schema_status(5);
    EXPECT_EQ(zam_reload_schema_init(), 0);
    time_is_up = true;
    EXPECT_EQ(zam_wait_reload_schema_status(), 0u);
    time_is_up = false;
}

TEST_F(ReloadStatus, OneNotifiedBeforeTheWaitIsReturnedAtOnce) {
    EXPECT_EQ(zam_notify_reload_schema_status(7), 0);
    time_is_up = true;
    waits = 0;
    EXPECT_EQ(zam_wait_reload_schema_status(), 7u);
    time_is_up = false;
    EXPECT_EQ(waits, 0);
}

TEST_F(ReloadStatus, AWaitDoesNotResetIt) {
    zam_notify_reload_schema_status(7);
    EXPECT_EQ(zam_wait_reload_schema_status(), 7u);
    EXPECT_EQ(zam_wait_reload_schema_status(), 7u);
}

TEST_F(ReloadStatus, TheLastNotifiedCounts) {
    zam_notify_reload_schema_status(7);
    zam_notify_reload_schema_status(0xFFFFFFFF);
    EXPECT_EQ(zam_wait_reload_schema_status(), 0xFFFFFFFF);
}

TEST_F(ReloadStatus, AResetSetsItBackToZero) {
    zam_notify_reload_schema_status(7);
    EXPECT_EQ(zam_reset_schema_status(), 0);
    time_is_up = true;
    EXPECT_EQ(zam_wait_reload_schema_status(), 0u);
    time_is_up = false;
}

TEST_F(ReloadStatus, AWaitWithoutNotificationGivesZeroAfterSixtySeconds) {
    timespec before = {};
    timespec after = {};
    time_is_up = true;
    waits = 0;
    clock_gettime(CLOCK_REALTIME, &before);
    EXPECT_EQ(zam_wait_reload_schema_status(), 0u);
    clock_gettime(CLOCK_REALTIME, &after);
    time_is_up = false;
    EXPECT_EQ(waits, 1);
    const auto nanoseconds = [](const timespec &time) { return time.tv_sec * 1'000'000'000LL + time.tv_nsec; };
    constexpr long long minute = 60'000'000'000LL;
    EXPECT_GE(nanoseconds(deadline_seen), nanoseconds(before) + minute);
    EXPECT_LE(nanoseconds(deadline_seen), nanoseconds(after) + minute);
}

TEST_F(ReloadStatus, ANotificationWakesAWaitingThread) {
    Waiter waiter;
    EXPECT_EQ(zam_notify_reload_schema_status(3), 0);
    EXPECT_EQ(waiter.result(), 3u);
}

TEST_F(ReloadStatus, ANotificationOfZeroLeavesTheThreadWaiting) {
    Waiter waiter;
    EXPECT_EQ(zam_notify_reload_schema_status(0), 0);
    EXPECT_EQ(zam_notify_reload_schema_status(4), 0);
    EXPECT_EQ(waiter.result(), 4u);
}

TEST_F(ReloadStatus, EachNotificationWakesOneOfSeveralThreads) {
    Waiter first;
    Waiter second;
    EXPECT_EQ(zam_notify_reload_schema_status(3), 0);
    EXPECT_EQ(zam_notify_reload_schema_status(3), 0);
    EXPECT_EQ(first.result(), 3u);
    EXPECT_EQ(second.result(), 3u);
}

} // namespace
