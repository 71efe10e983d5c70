// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <array>

#include "io/engine.h"
#include "support/heap.h"
#include "support/log_capture.h"

namespace {

using namespace zam::test;

// Calls of the two handlers below, in order.
struct Call {
    char handler;
    zam_proactor *proactor;
    uint32_t id;
    void *para;
    bool operator==(const Call &) const = default;
};
std::vector<Call> calls;

int32_t handler_a(zam_proactor *proactor, uint32_t id, void *para) {
    calls.push_back({'a', proactor, id, para});
    return 0;
}
int32_t handler_b(zam_proactor *proactor, uint32_t id, void *para) {
    calls.push_back({'b', proactor, id, para});
    return -1; // results are not used
}

void count_release(void *para) {
    ++*static_cast<int *>(para);
}

class Registry : public testing::Test {
protected:
    Registry() { calls.clear(); }
    ~Registry() override {
        zam_registry_free(registry);
        zam_proactor_free(proactor);
    }
    void use(uint32_t count) {
        registry = zam_registry_new(count);
        zam_proactor_registry_set(proactor, registry);
    }
    // Pushes an event and runs it through pop, dispatch and free.
    void run(uint32_t id, void *para = nullptr) {
        ASSERT_EQ(zam_event_push(proactor, id, para, nullptr), 0);
        dispatch_events(proactor);
    }

    zam_proactor *proactor = zam_proactor_new();
    zam_registry *registry = nullptr;
};
using Queue = Registry;

// The smallest id that shares its slot with id 0.
uint32_t slots_of(uint32_t count) {
    LogCapture log;
    for (uint32_t id = 1; id != 0; id <<= 1) {
        zam_registry *registry = zam_registry_new(count);
        zam_event_register(registry, 0, handler_a);
        zam_event_register(registry, id, handler_a);
        zam_registry_free(registry);
        if (log.mentions("Replace registry")) return id;
    }
    return 0;
}

TEST_F(Registry, HasTheSmallestPowerOfTwoOfSlotsThatIsEnough) {
    constexpr std::array<std::array<uint32_t, 2>, 12> expected{
        {{0, 2}, {1, 2}, {2, 2}, {3, 4}, {4, 4}, {5, 8}, {8, 8}, {9, 16}, {23, 32}, {32, 32}, {33, 64}, {64, 64}}};
    for (const auto &[count, slots] : expected)
        EXPECT_EQ(slots_of(count), slots) << count;
}

TEST_F(Registry, WithoutMemoryFailsAtLevelZero) {
    Heap heap;
    LogCapture log;
    heap.fail_at(1);
    EXPECT_EQ(zam_registry_new(23), nullptr);
    EXPECT_TRUE(log.has(0, "Allocate memory for event registry unsuccessful."));
}

TEST_F(Registry, SurvivesEachFailingAllocation) {
    EXPECT_GE(fail_each_allocation([](bool) { zam_registry_free(zam_registry_new(23)); }), 1u);
}

TEST_F(Registry, ThatNoMemoryCanHoldIsRefused) {
    for (const uint32_t count : {0x80000000u, 0x80000001u, 0xFFFFFFFFu}) {
        LogCapture log;
        EXPECT_EQ(zam_registry_new(count), nullptr) << count;
        EXPECT_TRUE(log.has(0, "Allocate memory for event registry unsuccessful.")) << count;
    }
}

TEST_F(Registry, NullIsIgnored) {
    LogCapture log;
    zam_registry_free(nullptr);
    zam_event_register(nullptr, EVENT_NEW_JOB, handler_a);
    zam_event_unregister(nullptr, EVENT_NEW_JOB);
    EXPECT_EQ(log.all(), "");
}

TEST_F(Registry, RegisteringIsTraced) {
    use(23);
    LogCapture log;
    zam_event_register(registry, EVENT_MESSAGE_RECV, handler_a);
    EXPECT_EQ(log.all(), "[DEBUG] Register the event: EVENT_MESSAGE_RECV(id = 3).\n");
}

TEST_F(Registry, ASecondEventInASlotReplacesTheFirstWithAWarning) {
    use(2);
    zam_event_register(registry, EVENT_CONNECT_REQ, handler_a);
    LogCapture log;
    zam_event_register(registry, EVENT_MESSAGE_RECV, handler_b);
    EXPECT_EQ(log.all(), "[WARN] Replace registry of the event: EVENT_CONNECT_REQ(id = 1) with event: "
                         "EVENT_MESSAGE_RECV(id = 3).\n");
    run(EVENT_CONNECT_REQ);
    EXPECT_TRUE(log.has(3, "Event: EVENT_CONNECT_REQ(id = 1) is not registered."));
    EXPECT_TRUE(calls.empty());
    run(EVENT_MESSAGE_RECV);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].handler, 'b');
}

TEST_F(Registry, RegisteringAnEventAgainReplacesItsHandlerWithoutWarning) {
    use(23);
    zam_event_register(registry, EVENT_MESSAGE_RECV, handler_a);
    LogCapture log;
    zam_event_register(registry, EVENT_MESSAGE_RECV, handler_b);
    EXPECT_EQ(log.all(), "[DEBUG] Register the event: EVENT_MESSAGE_RECV(id = 3).\n");
    run(EVENT_MESSAGE_RECV);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].handler, 'b');
}

TEST_F(Registry, UnregisteringEmptiesTheSlot) {
    use(2);
    zam_event_register(registry, EVENT_CONNECT_REQ, handler_a);
    LogCapture log;
    zam_event_unregister(registry, EVENT_CONNECT_REQ);
    EXPECT_EQ(log.all(), "[DEBUG] Unregister event: EVENT_CONNECT_REQ(id = 1).\n");
    run(EVENT_CONNECT_REQ);
    EXPECT_TRUE(calls.empty());
    log.clear();
    zam_event_register(registry, EVENT_MESSAGE_RECV, handler_b);
    EXPECT_EQ(log.all(), "[DEBUG] Register the event: EVENT_MESSAGE_RECV(id = 3).\n");
}

TEST_F(Registry, UnregisteringAnotherEventOfTheSlotLeavesItUntouched) {
    use(2);
    zam_event_register(registry, EVENT_CONNECT_REQ, handler_a);
    LogCapture log;
    zam_event_unregister(registry, EVENT_MESSAGE_RECV);
    EXPECT_EQ(log.all(), "[WARN] Event: EVENT_MESSAGE_RECV(id = 3) is not registered.\n");
    run(EVENT_CONNECT_REQ);
    EXPECT_EQ(calls.size(), 1u);
}

TEST_F(Registry, UnregisteringWhatWasNeverRegisteredIsAWarning) {
    use(23);
    LogCapture log;
    zam_event_unregister(registry, EVENT_NEW_JOB);
    EXPECT_EQ(log.all(), "[WARN] Event: EVENT_NEW_JOB(id = 22) is not registered.\n");
}

TEST_F(Registry, IdsAreLoggedAsSignedNumbers) {
    use(2);
    LogCapture log;
    zam_event_unregister(registry, 0xFFFFFFFF);
    EXPECT_EQ(log.all(), "[WARN] Event: UNKNOWN(id = -1) is not registered.\n");
}

TEST_F(Queue, DispatchCallsTheHandlerWithProactorIdAndParameter) {
    use(23);
    zam_event_register(registry, EVENT_MESSAGE_RECV, handler_a);
    int para = 0;
    run(EVENT_MESSAGE_RECV, &para);
    EXPECT_EQ(calls, (std::vector<Call>{{'a', proactor, EVENT_MESSAGE_RECV, &para}}));
}

TEST_F(Queue, DispatchOfAnUnregisteredEventIsAnError) {
    use(23);
    zam_event_push(proactor, EVENT_CLIENT_ONLINE, nullptr, nullptr);
    zam_event *event = zam_event_pop(proactor);
    LogCapture log;
    zam_event_dispatch(proactor, event);
    EXPECT_EQ(log.all(), "[WRONG] Event: EVENT_CLIENT_ONLINE(id = 4) is not registered.\n");
    zam_event_free(event);
}

TEST_F(Queue, DispatchOfAnEventWithANullHandlerDoesNothing) {
    use(23);
    zam_event_register(registry, EVENT_MESSAGE_RECV, nullptr);
    zam_event_push(proactor, EVENT_MESSAGE_RECV, nullptr, nullptr);
    zam_event *event = zam_event_pop(proactor);
    LogCapture log;
    zam_event_dispatch(proactor, event);
    EXPECT_EQ(log.all(), "");
    zam_event_free(event);
}

TEST_F(Queue, AnEventWithTheNumberOfEmptySlotsMeetsNoHandler) {
    use(32);
    zam_event_push(proactor, 23, nullptr, nullptr);
    zam_event *event = zam_event_pop(proactor);
    LogCapture log;
    zam_event_dispatch(proactor, event);
    EXPECT_EQ(log.all(), "");
    zam_event_free(event);
}

TEST_F(Queue, DispatchWithoutProactorEventOrRegistryDoesNothing) {
    zam_event_push(proactor, EVENT_MESSAGE_RECV, nullptr, nullptr);
    zam_event *event = zam_event_pop(proactor);
    LogCapture log;
    zam_event_dispatch(proactor, event);
    zam_event_dispatch(nullptr, event);
    zam_event_dispatch(proactor, nullptr);
    EXPECT_EQ(log.all(), "");
    zam_event_free(event);
}

TEST_F(Queue, DispatchDoesNotFreeTheEvent) {
    use(23);
    zam_event_register(registry, EVENT_MESSAGE_RECV, handler_a);
    int released = 0;
    zam_event_push(proactor, EVENT_MESSAGE_RECV, &released, count_release);
    zam_event *event = zam_event_pop(proactor);
    zam_event_dispatch(proactor, event);
    zam_event_dispatch(proactor, event);
    EXPECT_EQ(calls.size(), 2u);
    EXPECT_EQ(released, 0);
    zam_event_free(event);
    EXPECT_EQ(released, 1);
}

TEST_F(Queue, EventsArePoppedInTheOrderInWhichTheyWerePushed) {
    int a = 0;
    int b = 0;
    int c = 0;
    zam_event_push(proactor, EVENT_CLIENT_ONLINE, &a, nullptr);
    zam_event_push(proactor, EVENT_LISTENER_CLOSE, &b, nullptr);
    zam_event_push(proactor, EVENT_CLIENT_ONLINE, &c, nullptr);
    EXPECT_EQ(take_events(proactor),
              (Events{{EVENT_CLIENT_ONLINE, &a}, {EVENT_LISTENER_CLOSE, &b}, {EVENT_CLIENT_ONLINE, &c}}));
    EXPECT_EQ(zam_event_pop(proactor), nullptr);
}

TEST_F(Queue, PushAndPopAreTraced) {
    LogCapture log;
    EXPECT_EQ(zam_event_push(proactor, EVENT_SET_STATE_DATA, nullptr, nullptr), 0);
    EXPECT_EQ(log.all(), "[DEBUG] Push an event: EVENT_SET_STATE_DATA.\n");
    log.clear();
    zam_event_free(zam_event_pop(proactor));
    EXPECT_EQ(log.all(), "[DEBUG] Pop an event: EVENT_SET_STATE_DATA.\n");
    log.clear();
    EXPECT_EQ(zam_event_pop(proactor), nullptr);
    EXPECT_EQ(log.all(), "");
}

TEST_F(Queue, APushWithoutMemoryReleasesTheParameter) {
    Heap heap;
    int released = 0;
    LogCapture log;
    heap.fail_at(1);
    EXPECT_EQ(zam_event_push(proactor, EVENT_CONNECT_CLOSE, &released, count_release), -1);
    EXPECT_EQ(released, 1);
    EXPECT_TRUE(log.has(0, "Allocate memory for push event: EVENT_CONNECT_CLOSE unsuccessful."));
    EXPECT_EQ(zam_event_pop(proactor), nullptr);
    heap.fail_at(1);
    EXPECT_EQ(zam_event_push(proactor, EVENT_CONNECT_CLOSE, &released, nullptr), -1);
    EXPECT_EQ(released, 1);
}

TEST_F(Queue, APushWithoutProactorReleasesTheParameter) {
    int released = 0;
    EXPECT_EQ(zam_event_push(nullptr, EVENT_CONNECT_CLOSE, &released, count_release), -1);
    EXPECT_EQ(released, 1);
    EXPECT_EQ(zam_event_pop(nullptr), nullptr);
}

TEST_F(Queue, AHandlersPushIsHandledInTheSameRoundBehindTheOthers) {
    use(23);
    zam_event_register(registry, EVENT_CLIENT_ONLINE, [](zam_proactor *p, uint32_t id, void *para) -> int32_t {
        zam_event_push(p, EVENT_CLIENT_OFFLINE, para, nullptr);
        return handler_a(p, id, para);
    });
    zam_event_register(registry, EVENT_CLIENT_OFFLINE, handler_b);
    zam_event_register(registry, EVENT_SESSION_CLOSE, handler_b);
    zam_event_push(proactor, EVENT_CLIENT_ONLINE, nullptr, nullptr);
    zam_event_push(proactor, EVENT_SESSION_CLOSE, nullptr, nullptr);
    dispatch_events(proactor);
    EXPECT_EQ(calls, (std::vector<Call>{{'a', proactor, EVENT_CLIENT_ONLINE, nullptr},
                                        {'b', proactor, EVENT_SESSION_CLOSE, nullptr},
                                        {'b', proactor, EVENT_CLIENT_OFFLINE, nullptr}}));
}

TEST_F(Queue, AReleaseFunctionMayPushWhileTheProactorIsFreed) {
    struct Chain {
        zam_proactor *proactor;
        int left;
    } chain{zam_proactor_new(), 3};
    static zam_event_release_fn again;
    again = [](void *para) {
        auto *self = static_cast<Chain *>(para);
        if (self->left-- > 0) zam_event_push(self->proactor, EVENT_CLIENT_ONLINE, self, again);
    };
    zam_event_push(chain.proactor, EVENT_CLIENT_ONLINE, &chain, again);
    zam_proactor_free(chain.proactor);
    EXPECT_EQ(chain.left, -1);
}

TEST_F(Queue, ANullEventHasTheHighestIdAndNoParameter) {
    EXPECT_EQ(zam_event_id(nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(zam_event_para(nullptr), nullptr);
    zam_event_free(nullptr);
}

TEST_F(Queue, AMillionEventsKeepTheirOrder) {
    LogCapture quiet{3};
    constexpr uintptr_t count = 1000000;
    for (uintptr_t i = 0; i < count; ++i)
        zam_event_push(proactor, EVENT_CLIENT_ONLINE, reinterpret_cast<void *>(i), nullptr);
    for (uintptr_t i = 0; i < count; ++i) {
        zam_event *event = zam_event_pop(proactor);
        ASSERT_EQ(zam_event_para(event), reinterpret_cast<void *>(i));
        zam_event_free(event);
    }
    EXPECT_EQ(zam_event_pop(proactor), nullptr);
}

TEST(EventName, NamesTheWholeList) {
    constexpr std::array names{
        "EVENT_LISTENER_CLOSE",  "EVENT_CONNECT_REQ",     "EVENT_CONNECT_CLOSE", "EVENT_MESSAGE_RECV",
        "EVENT_CLIENT_ONLINE",   "EVENT_CLIENT_OFFLINE",  "EVENT_PUB_RPC_REQ",   "EVENT_PUB_RPC_RSP",
        "EVENT_PUB_RPC_END",     "EVENT_PUB_CFG_REQ",     "EVENT_PUB_CFG_RSP",   "EVENT_PUB_CFG_END",
        "EVENT_PUB_GET_REQ",     "EVENT_PUB_GET_RSP",     "EVENT_PUB_GET_END",   "EVENT_SET_STATE_DATA",
        "EVENT_CFG_RESTORE_REQ", "EVENT_CFG_RESTORE_END", "EVENT_SESSION_CLOSE", "EVENT_CONNECT_READ_IDLE",
        "EVENT_NC_HELLO_REQ",    "EVENT_NC_HELLO_RSP",    "EVENT_NEW_JOB"};
    for (uint32_t id = 0; id < names.size(); ++id)
        EXPECT_STREQ(zam_event_name(id), names.at(id));
}

TEST(EventName, CallsEverythingElseUnknown) {
    EXPECT_STREQ(zam_event_name(23), "UNKNOWN");
    EXPECT_STREQ(zam_event_name(24), "UNKNOWN");
    EXPECT_STREQ(zam_event_name(0xFFFFFFFF), "UNKNOWN");
}

TEST(EventName, TheNumbersOfTheListAreFixed) {
    EXPECT_EQ(EVENT_LISTENER_CLOSE, 0);
    EXPECT_EQ(EVENT_CONNECT_REQ, 1);
    EXPECT_EQ(EVENT_CONNECT_CLOSE, 2);
    EXPECT_EQ(EVENT_MESSAGE_RECV, 3);
    EXPECT_EQ(EVENT_SESSION_CLOSE, 18);
    EXPECT_EQ(EVENT_CONNECT_READ_IDLE, 19);
    EXPECT_EQ(EVENT_NC_HELLO_REQ, 20);
    EXPECT_EQ(EVENT_NC_HELLO_RSP, 21);
    EXPECT_EQ(EVENT_NEW_JOB, 22);
}

} // namespace
