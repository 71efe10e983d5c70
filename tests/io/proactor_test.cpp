// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <chrono>
#include <cstring>

#include <sys/eventfd.h>
#include <sys/timerfd.h>

#include "io/engine.h"
#include "io/signal_storm.h"
#include "support/files.h"
#include "support/heap.h"
#include "support/log_capture.h"

namespace {

using namespace zam::test;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

// A descriptor that is readable for as long as it holds a signal, and what its trigger's handlers were called with.
struct Watched {
    Watched() : fd{eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)}, trigger{zam_trigger_new(fd, this, wake, done)} {}
    ~Watched() {
        zam_trigger_free(trigger);
        close(fd);
    }
    Watched(const Watched &) = delete;
    Watched &operator=(const Watched &) = delete;

    void signal() const {
        const uint64_t one = 1;
        ASSERT_EQ(write(fd, &one, sizeof(one)), static_cast<ssize_t>(sizeof(one)));
    }
    static void wake(zam_proactor *proactor, void *arg, uint32_t events) {
        auto *self = static_cast<Watched *>(arg);
        ++self->wakes;
        self->proactor = proactor;
        self->events = events;
    }
    static void done(zam_proactor *proactor, void *arg) {
        auto *self = static_cast<Watched *>(arg);
        ++self->dones;
        self->proactor = proactor;
    }

    int fd;
    zam_trigger *trigger;
    int wakes = 0;
    int dones = 0;
    uint32_t events = 0;
    zam_proactor *proactor = nullptr;
};

class Proactor : public testing::Test {
protected:
    ~Proactor() override { zam_proactor_free(proactor); }
    zam_proactor *proactor = zam_proactor_new();
};

// The number of the descriptor that the next call to open one gets.
int next_descriptor() {
    const int fd = eventfd(0, EFD_CLOEXEC);
    close(fd);
    return fd;
}

TEST(ProactorNew, LogsItsDescriptor) {
    DescriptorCheck descriptors;
    LogCapture log;
    const int expected = next_descriptor();
    zam_proactor *proactor = zam_proactor_new();
    ASSERT_NE(proactor, nullptr);
    EXPECT_EQ(log.all(), text("[DEBUG] Create a proactor ", expected, " success.\n"));
    log.clear();
    zam_proactor_free(proactor);
    EXPECT_EQ(log.all(), text("[DEBUG] Free the proactor ", expected, ".\n"));
}

TEST(ProactorNew, WithoutDescriptorsFailsWithTheReason) {
    LogCapture log;
    {
        NoMoreDescriptors none;
        EXPECT_EQ(zam_proactor_new(), nullptr);
    }
    EXPECT_EQ(log.all(), "[WRONG] Create epoll fd for proactor failed(Too many open files).\n");
}

TEST(ProactorNew, WithoutMemoryFailsAtLevelZero) {
    DescriptorCheck descriptors;
    Heap heap;
    LogCapture log;
    heap.fail_at(1);
    EXPECT_EQ(zam_proactor_new(), nullptr);
    EXPECT_TRUE(log.has(0, "Allocate memory for proactor unsuccessful."));
}

TEST(ProactorNew, SurvivesEachFailingAllocation) {
    DescriptorCheck descriptors;
    const uint64_t failed = fail_each_allocation([](bool) { zam_proactor_free(zam_proactor_new()); });
    EXPECT_EQ(failed, 1u);
}

TEST(ProactorNew, StartsWithAnEmptyQueue) {
    zam_proactor *proactor = zam_proactor_new();
    EXPECT_EQ(zam_event_pop(proactor), nullptr);
    zam_proactor_free(proactor);
}

TEST(ProactorFree, IgnoresNull) {
    LogCapture log;
    zam_proactor_free(nullptr);
    EXPECT_EQ(log.all(), "");
}

TEST(ProactorFree, NeverClosesDescriptorZero) {
    const int saved = fcntl(0, F_DUPFD_CLOEXEC, 3);
    close(0);
    LogCapture log;
    zam_proactor *proactor = zam_proactor_new();
    EXPECT_TRUE(log.has(7, "Create a proactor 0 success."));
    zam_proactor_free(proactor);
    EXPECT_TRUE(is_open(0));
    close(0);
    if (saved >= 0) {
        dup2(saved, 0);
        close(saved);
    }
}

TEST(ProactorFree, ReleasesTheParametersOfQueuedEvents) {
    Heap heap;
    zam_proactor *proactor = zam_proactor_new();
    int released = 0;
    const auto release = [](void *para) { ++*static_cast<int *>(para); };
    zam_event_push(proactor, EVENT_CLIENT_ONLINE, &released, release);
    zam_event_push(proactor, EVENT_CLIENT_OFFLINE, &released, nullptr);
    zam_event_push(proactor, EVENT_CLIENT_ONLINE, &released, release);
    zam_proactor_free(proactor);
    EXPECT_EQ(released, 2);
    EXPECT_EQ(heap.live(), 0u) << heap.live_sites();
}

TEST(ProactorFree, LeavesRegistryAndTriggersToTheirOwners) {
    Heap heap;
    zam_proactor *proactor = zam_proactor_new();
    zam_registry *registry = zam_registry_new(4);
    {
        Watched watched;
        zam_proactor_registry_set(proactor, registry);
        ASSERT_EQ(zam_trigger_arm(proactor, watched.trigger, EPOLLIN), 0);
        zam_proactor_free(proactor);
        EXPECT_EQ(heap.live(), 2u) << heap.live_sites();
    }
    zam_registry_free(registry);
    EXPECT_EQ(heap.live(), 0u) << heap.live_sites();
}

TEST(ProactorRegistrySet, IgnoresANullProactor) {
    zam_registry *registry = zam_registry_new(2);
    zam_proactor_registry_set(nullptr, registry);
    zam_registry_free(registry);
}

TEST_F(Proactor, ANullProactorWaitsForNothing) {
    LogCapture log;
    EXPECT_EQ(zam_proactor_wait(nullptr, -1), nullptr);
    EXPECT_EQ(log.all(), "");
}

TEST_F(Proactor, AWaitThatTimesOutRunsNoHandler) {
    Watched watched;
    ASSERT_EQ(zam_trigger_arm(proactor, watched.trigger, EPOLLIN), 0);
    LogCapture log;
    const auto start = steady_clock::now();
    EXPECT_EQ(zam_proactor_wait(proactor, 20), nullptr);
    EXPECT_GE(steady_clock::now() - start, milliseconds{19});
    EXPECT_EQ(watched.wakes, 0);
    EXPECT_EQ(log.all(), "");
}

TEST_F(Proactor, AReadyDescriptorRunsItsWakeHandlerAndIsReturned) {
    Watched watched;
    ASSERT_EQ(zam_trigger_arm(proactor, watched.trigger, EPOLLIN), 0);
    watched.signal();
    EXPECT_EQ(zam_proactor_wait(proactor, patience_ms), watched.trigger);
    EXPECT_EQ(watched.wakes, 1);
    EXPECT_EQ(watched.dones, 0);
    EXPECT_EQ(watched.proactor, proactor);
    EXPECT_EQ(watched.events, static_cast<uint32_t>(EPOLLIN));
}

TEST_F(Proactor, AWaitForEverEndsWithTheFirstReadiness) {
    Watched watched;
    ASSERT_EQ(zam_trigger_arm(proactor, watched.trigger, EPOLLIN), 0);
    watched.signal();
    EXPECT_EQ(zam_proactor_wait(proactor, -1), watched.trigger);
}

TEST_F(Proactor, OneWaitHandlesOneOfTwoReadyDescriptors) {
    Watched first;
    Watched second;
    ASSERT_EQ(zam_trigger_arm(proactor, first.trigger, EPOLLIN), 0);
    ASSERT_EQ(zam_trigger_arm(proactor, second.trigger, EPOLLIN), 0);
    first.signal();
    second.signal();
    EXPECT_NE(zam_proactor_wait(proactor, patience_ms), nullptr);
    EXPECT_EQ(first.wakes + second.wakes, 1);
    EXPECT_NE(zam_proactor_wait(proactor, patience_ms), nullptr);
    EXPECT_EQ(first.wakes, 1);
    EXPECT_EQ(second.wakes, 1);
}

TEST_F(Proactor, ATriggerWithoutWakeHandlerCountsAsATimeOut) {
    Watched watched;
    zam_trigger *mute = zam_trigger_new(watched.fd, nullptr, nullptr, nullptr);
    ASSERT_EQ(zam_trigger_arm(proactor, mute, EPOLLIN), 0);
    watched.signal();
    EXPECT_EQ(zam_proactor_wait(proactor, patience_ms), nullptr);
    zam_trigger_unarm(proactor, mute);
    zam_trigger_free(mute);
}

TEST_F(Proactor, AFailingWaitIsLoggedAsAWarning) {
    const int epoll_fd = next_descriptor();
    zam_proactor *broken = zam_proactor_new();
    close(epoll_fd);
    LogCapture log;
    EXPECT_EQ(zam_proactor_wait(broken, 0), nullptr);
    EXPECT_EQ(log.all(), "[WARN] Proactor wait is interrupted(Bad file descriptor).\n");
    zam_proactor_free(broken);
}

TEST_F(Proactor, AWaitThatSignalsInterruptGoesOnForTheRestOfItsTime) {
    LogCapture log;
    const auto start = steady_clock::now();
    {
        SignalStorm storm;
        EXPECT_EQ(zam_proactor_wait(proactor, 50), nullptr);
        EXPECT_GT(storm.signals(), 1);
    }
    EXPECT_GE(steady_clock::now() - start, milliseconds{49});
    EXPECT_LT(steady_clock::now() - start, milliseconds{patience_ms});
    EXPECT_EQ(log.all(), "");
}

TEST_F(Proactor, ADescriptorThatGetsReadyBetweenSignalsEndsTheWait) {
    for (const int32_t timeout : {patience_ms, -1}) {
        const int fd = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
        const itimerspec soon{{}, {0, 20000000}};
        timerfd_settime(fd, 0, &soon, nullptr);
        zam_trigger *trigger = zam_trigger_new(
            fd, nullptr, [](zam_proactor *, void *, uint32_t) {}, nullptr);
        ASSERT_EQ(zam_trigger_arm(proactor, trigger, EPOLLIN), 0);
        {
            SignalStorm storm;
            EXPECT_EQ(zam_proactor_wait(proactor, timeout), trigger);
            EXPECT_GT(storm.signals(), 0);
        }
        zam_trigger_free(trigger);
        close(fd);
    }
}

TEST_F(Proactor, DoneCallsTheDoneHandler) {
    Watched watched;
    zam_proactor_done(proactor, watched.trigger);
    EXPECT_EQ(watched.dones, 1);
    EXPECT_EQ(watched.wakes, 0);
    EXPECT_EQ(watched.proactor, proactor);
}

TEST_F(Proactor, DoneIgnoresNullAndMissingHandlers) {
    LogCapture log;
    zam_trigger *trigger = zam_trigger_new(0, nullptr, Watched::wake, nullptr);
    zam_proactor_done(proactor, trigger);
    zam_proactor_done(proactor, nullptr);
    zam_proactor_done(nullptr, nullptr);
    zam_trigger_free(trigger);
    EXPECT_EQ(log.lines().size(), 2u); // the trigger's making and freeing
}

TEST_F(Proactor, DonePassesOverATriggerThatAHandlerFreed) {
    struct Self {
        zam_trigger *trigger;
        int fd;
        int dones;
    } self{nullptr, eventfd(1, EFD_CLOEXEC), 0};
    self.trigger = zam_trigger_new(
        self.fd, &self,
        [](zam_proactor *, void *arg, uint32_t) { zam_trigger_free(static_cast<Self *>(arg)->trigger); },
        [](zam_proactor *, void *arg) { ++static_cast<Self *>(arg)->dones; });
    ASSERT_EQ(zam_trigger_arm(proactor, self.trigger, EPOLLIN), 0);
    zam_trigger *ran = zam_proactor_wait(proactor, patience_ms);
    EXPECT_EQ(ran, self.trigger);
    zam_proactor_done(proactor, ran);
    EXPECT_EQ(self.dones, 0);
    close(self.fd);
}

TEST_F(Proactor, DoneStillServesOtherTriggersAfterOneWasFreed) {
    Watched kept;
    ASSERT_EQ(zam_trigger_arm(proactor, kept.trigger, EPOLLIN), 0);
    {
        Watched gone;
        ASSERT_EQ(zam_trigger_arm(proactor, gone.trigger, EPOLLIN), 0);
    }
    kept.signal();
    zam_proactor_done(proactor, zam_proactor_wait(proactor, patience_ms));
    EXPECT_EQ(kept.dones, 1);
}

TEST_F(Proactor, AnOwnersRoundRunsWakeThenEventsThenDone) {
    static std::string order;
    order.clear();
    zam_registry *registry = zam_registry_new(23);
    zam_proactor_registry_set(proactor, registry);
    zam_event_register(registry, EVENT_CLIENT_ONLINE, [](zam_proactor *, uint32_t, void *) -> int32_t {
        order += "event ";
        return 0;
    });
    const int fd = eventfd(1, EFD_CLOEXEC);
    zam_trigger *trigger = zam_trigger_new(
        fd, nullptr,
        [](zam_proactor *p, void *, uint32_t) {
            order += "wake ";
            zam_event_push(p, EVENT_CLIENT_ONLINE, nullptr, nullptr);
            zam_event_push(p, EVENT_CLIENT_ONLINE, nullptr, nullptr);
        },
        [](zam_proactor *, void *) { order += "done"; });
    ASSERT_EQ(zam_trigger_arm(proactor, trigger, EPOLLIN), 0);
    zam_trigger *ran = zam_proactor_wait(proactor, patience_ms);
    dispatch_events(proactor);
    zam_proactor_done(proactor, ran);
    EXPECT_EQ(order, "wake event event done");
    zam_trigger_free(trigger);
    close(fd);
    zam_registry_free(registry);
}

TEST(Trigger, LogsItsMakingAndFreeing) {
    Heap heap;
    LogCapture log;
    zam_trigger *trigger = zam_trigger_new(1234, nullptr, nullptr, nullptr);
    ASSERT_NE(trigger, nullptr);
    EXPECT_EQ(log.all(), "[DEBUG] Create a trigger 1234 success.\n");
    log.clear();
    zam_trigger_free(trigger);
    EXPECT_EQ(log.all(), "[DEBUG] Free the trigger 1234.\n");
    EXPECT_EQ(heap.live(), 0u);
}

TEST(Trigger, WithoutMemoryFailsAtLevelZero) {
    Heap heap;
    LogCapture log;
    heap.fail_at(1);
    EXPECT_EQ(zam_trigger_new(1, nullptr, nullptr, nullptr), nullptr);
    EXPECT_TRUE(log.has(0, "Allocate memory for trigger unsuccessful."));
}

TEST(Trigger, FreeingLeavesTheDescriptorOpen) {
    const int fd = eventfd(0, EFD_CLOEXEC);
    zam_trigger_free(zam_trigger_new(fd, nullptr, nullptr, nullptr));
    zam_trigger_free(nullptr);
    EXPECT_TRUE(is_open(fd));
    close(fd);
}

TEST_F(Proactor, ArmingLogsTheDescriptor) {
    Watched watched;
    LogCapture log;
    EXPECT_EQ(zam_trigger_arm(proactor, watched.trigger, EPOLLIN), 0);
    EXPECT_EQ(log.all(), text("[DEBUG] Proactor arm trigger ", watched.fd, " success\n"));
}

TEST_F(Proactor, ArmingWithoutProactorFails) {
    Watched watched;
    LogCapture log;
    EXPECT_EQ(zam_trigger_arm(nullptr, watched.trigger, EPOLLIN), -1);
    EXPECT_EQ(log.all(), "[WRONG] Wrong to get proactor when arm trigger.\n");
}

TEST_F(Proactor, ArmingTwiceFailsWithTheReason) {
    Watched watched;
    ASSERT_EQ(zam_trigger_arm(proactor, watched.trigger, EPOLLIN), 0);
    LogCapture log;
    EXPECT_EQ(zam_trigger_arm(proactor, watched.trigger, EPOLLIN), -1);
    EXPECT_EQ(log.all(), text("[WRONG] Proactor arm trigger ", watched.fd, " unsuccessful(File exists).\n"));
}

TEST_F(Proactor, NullTriggersAreRefused) {
    EXPECT_EQ(zam_trigger_arm(proactor, nullptr, EPOLLIN), -1);
    EXPECT_EQ(zam_trigger_rearm(proactor, nullptr, EPOLLIN), -1);
    zam_trigger_unarm(proactor, nullptr);
}

TEST_F(Proactor, ArmingAlwaysAddsEdgeTriggering) {
    Watched watched;
    ASSERT_EQ(zam_trigger_arm(proactor, watched.trigger, EPOLLIN), 0);
    watched.signal();
    EXPECT_EQ(zam_proactor_wait(proactor, patience_ms), watched.trigger);
    EXPECT_EQ(zam_proactor_wait(proactor, 0), nullptr) << "the readiness was reported twice";
}

TEST_F(Proactor, ArmingAlwaysAddsTheHalfClose) {
    SocketPair sockets;
    Watched seen;
    zam_trigger *trigger = zam_trigger_new(sockets.fd, &seen, Watched::wake, nullptr);
    ASSERT_EQ(zam_trigger_arm(proactor, trigger, 0), 0);
    shutdown(sockets.peer, SHUT_WR);
    EXPECT_EQ(zam_proactor_wait(proactor, patience_ms), trigger);
    EXPECT_EQ(seen.events, static_cast<uint32_t>(EPOLLRDHUP));
    zam_trigger_free(trigger);
}

TEST_F(Proactor, RearmingReportsTheReadinessAgain) {
    Watched watched;
    ASSERT_EQ(zam_trigger_arm(proactor, watched.trigger, EPOLLIN), 0);
    watched.signal();
    ASSERT_EQ(zam_proactor_wait(proactor, patience_ms), watched.trigger);
    LogCapture log;
    EXPECT_EQ(zam_trigger_rearm(proactor, watched.trigger, EPOLLIN), 0);
    EXPECT_EQ(log.all(), text("[DEBUG] Proactor rearm trigger ", watched.fd, " success\n"));
    EXPECT_EQ(zam_proactor_wait(proactor, patience_ms), watched.trigger);
    EXPECT_EQ(zam_proactor_wait(proactor, 0), nullptr) << "re-arming lost the edge triggering";
}

TEST_F(Proactor, RearmingReplacesTheMask) {
    Watched watched;
    ASSERT_EQ(zam_trigger_arm(proactor, watched.trigger, EPOLLIN), 0);
    ASSERT_EQ(zam_trigger_rearm(proactor, watched.trigger, EPOLLIN | EPOLLOUT), 0);
    ASSERT_EQ(zam_proactor_wait(proactor, patience_ms), watched.trigger);
    EXPECT_EQ(watched.events, static_cast<uint32_t>(EPOLLOUT));
}

TEST_F(Proactor, RearmingWhatIsNotArmedFailsWithTheReason) {
    Watched watched;
    LogCapture log;
    EXPECT_EQ(zam_trigger_rearm(proactor, watched.trigger, EPOLLIN), -1);
    EXPECT_EQ(log.all(),
              text("[WRONG] Proactor rearm trigger ", watched.fd, " unsuccessful(No such file or directory).\n"));
}

TEST_F(Proactor, RearmingWithoutProactorFailsLikeAClosedDescriptor) {
    Watched watched;
    LogCapture log;
    EXPECT_EQ(zam_trigger_rearm(nullptr, watched.trigger, EPOLLIN), -1);
    EXPECT_EQ(log.all(), text("[WRONG] Proactor rearm trigger ", watched.fd, " unsuccessful(Bad file descriptor).\n"));
}

TEST_F(Proactor, UnarmingStopsTheWatch) {
    Watched watched;
    ASSERT_EQ(zam_trigger_arm(proactor, watched.trigger, EPOLLIN), 0);
    LogCapture log;
    zam_trigger_unarm(proactor, watched.trigger);
    EXPECT_EQ(log.all(), text("[DEBUG] Proactor unarm trigger ", watched.fd, " success\n"));
    watched.signal();
    EXPECT_EQ(zam_proactor_wait(proactor, 0), nullptr);
}

TEST_F(Proactor, UnarmingWithoutProactorIsLogged) {
    Watched watched;
    LogCapture log;
    zam_trigger_unarm(nullptr, watched.trigger);
    EXPECT_EQ(log.all(), "[WRONG] Wrong to get proactor when unarm trigger.\n");
}

TEST_F(Proactor, UnarmingAClosedDescriptorIsOnlyTraced) {
    const int fd = eventfd(0, EFD_CLOEXEC);
    zam_trigger *trigger = zam_trigger_new(fd, nullptr, Watched::wake, nullptr);
    ASSERT_EQ(zam_trigger_arm(proactor, trigger, EPOLLIN), 0);
    close(fd);
    LogCapture log;
    zam_trigger_unarm(proactor, trigger);
    EXPECT_EQ(log.all(), text("[DEBUG] Proactor unarm trigger ", fd, " unsuccessful(Bad file descriptor).\n"));
    zam_trigger_free(trigger);
}

} // namespace
