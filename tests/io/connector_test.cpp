// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// A connector's calls and its life; what a wake does with bytes is in connector_io_test.cpp.
#include "io/engine.h"
#include "support/files.h"
#include "support/heap.h"
#include "support/log_capture.h"

namespace {

using namespace zam::test;

TEST(ConnectorNew, IsOpenIdleAndEmpty) {
    DescriptorCheck descriptors;
    Heap heap;
    {
        LogCapture log;
        Link link;
        ASSERT_NE(link.connector, nullptr);
        EXPECT_TRUE(log.has(7, text("Create connector ", link.fd, " success.")));
        EXPECT_EQ(zam_connector_closed(link.connector), 0);
        EXPECT_EQ(zam_connector_rbusy(link.connector), 0);
        EXPECT_EQ(zam_connector_context(link.connector), &link);
        uint32_t length = 99;
        EXPECT_EQ(zam_connector_readbuf(link.connector, &length), nullptr);
        EXPECT_EQ(length, 0u);
    }
    EXPECT_EQ(heap.live(), 0u) << heap.live_sites();
}

TEST(ConnectorNew, HasTwoBuffersOf1024Bytes) {
    Heap heap;
    Link link;
    const std::string sites = heap.live_sites();
    int buffers = 0;
    for (size_t at = 0; (at = sites.find(" 1024\n", at)) != std::string::npos; ++at)
        ++buffers;
    EXPECT_EQ(buffers, 2) << sites;
}

TEST(ConnectorNew, IsArmedForReadingAndWriting) {
    DescriptorCheck descriptors;
    zam_proactor *proactor = zam_proactor_new();
    SocketPair sockets;
    const int fd = sockets.release();
    zam_connector *connector = zam_connector_new(proactor, fd, nullptr);
    send(sockets.peer, "x", 1, 0);
    LogCapture log;
    EXPECT_NE(zam_proactor_wait(proactor, patience_ms), nullptr);
    EXPECT_TRUE(log.has(7, text("Connector ", fd, " is waked by event 0x5."))) << log.all();
    zam_connector_free(connector);
    zam_proactor_free(proactor);
}

TEST(ConnectorNew, OverADescriptorThatCannotBeWatchedFailsAndLeavesItOpen) {
    DescriptorCheck descriptors;
    Heap heap;
    zam_proactor *proactor = zam_proactor_new();
    const int fd = open("/dev/null", O_RDWR | O_CLOEXEC);
    LogCapture log;
    EXPECT_EQ(zam_connector_new(proactor, fd, nullptr), nullptr);
    EXPECT_TRUE(log.has(3, text("Proactor arm trigger ", fd, " unsuccessful(Operation not permitted)."))) << log.all();
    EXPECT_TRUE(log.has(3, text("Create connector for sock ", fd, " not successful.")));
    EXPECT_TRUE(is_open(fd));
    close(fd);
    EXPECT_EQ(heap.live(), 1u) << heap.live_sites(); // the proactor
    zam_proactor_free(proactor);
}

TEST(ConnectorNew, WithoutProactorFails) {
    SocketPair sockets;
    LogCapture log;
    EXPECT_EQ(zam_connector_new(nullptr, sockets.fd, nullptr), nullptr);
    EXPECT_TRUE(log.has(3, "Wrong to get proactor when arm trigger."));
    EXPECT_TRUE(log.has(3, text("Create connector for sock ", sockets.fd, " not successful.")));
    EXPECT_TRUE(is_open(sockets.fd));
}

TEST(ConnectorNew, WithoutMemoryForTheRecordLogsBothMessages) {
    zam_proactor *proactor = zam_proactor_new();
    {
        SocketPair sockets;
        Heap heap;
        LogCapture log;
        heap.fail_at(1);
        EXPECT_EQ(zam_connector_new(proactor, sockets.fd, nullptr), nullptr);
        EXPECT_TRUE(log.has(0, "Allocate memory for connector not successful."));
        EXPECT_TRUE(log.has(3, text("Create connector for sock ", sockets.fd, " not successful.")));
    }
    zam_proactor_free(proactor);
}

TEST(ConnectorNew, SurvivesEachFailingAllocation) {
    DescriptorCheck descriptors;
    SocketPair sockets;
    const uint64_t failed = fail_each_allocation([&](bool) {
        zam_proactor *proactor = zam_proactor_new();
        const int fd = dup(sockets.fd);
        LogCapture log;
        zam_connector *connector = zam_connector_new(proactor, fd, nullptr);
        if (connector) {
            zam_connector_free(connector);
        } else {
            EXPECT_TRUE(log.has(3, text("Create connector for sock ", fd, " not successful.")));
            EXPECT_EQ(close(fd), 0); // still ours
        }
        zam_proactor_free(proactor);
    });
    EXPECT_EQ(failed, 7u); // the proactor, the record, two blocks for each buffer, the trigger
}

TEST(ConnectorFree, UnarmsClosesAndSaysSo) {
    DescriptorCheck descriptors;
    Link link;
    LogCapture log;
    link.free_connector();
    EXPECT_EQ(log.all(), text("[DEBUG] Free the connector fd: ", link.fd, ".\n", //
                              "[DEBUG] Proactor unarm trigger ", link.fd, " success\n", "[DEBUG] Free the trigger ",
                              link.fd, ".\n"));
    EXPECT_FALSE(is_open(link.fd));
}

TEST(ConnectorFree, IgnoresNull) {
    LogCapture log;
    zam_connector_free(nullptr);
    EXPECT_EQ(log.all(), "");
}

TEST(ConnectorFree, TakesItsQueuedEventsAlongAndLeavesTheOthersInOrder) {
    Link link;
    int other = 0;
    zam_event_push(link.proactor, EVENT_CLIENT_ONLINE, &other, nullptr);
    zam_event_push(link.proactor, EVENT_MESSAGE_RECV, link.connector, nullptr);
    zam_event_push(link.proactor, EVENT_CLIENT_OFFLINE, &other, nullptr);
    zam_event_push(link.proactor, EVENT_CONNECT_CLOSE, link.connector, nullptr);
    link.free_connector();
    EXPECT_EQ(take_events(link.proactor), (Events{{EVENT_CLIENT_ONLINE, &other}, {EVENT_CLIENT_OFFLINE, &other}}));
}

TEST(ConnectorFree, InAHandlerEndsTheRoundWithoutADoneStage) {
    static int dispatched;
    dispatched = 0;
    Link link;
    zam_registry *registry = zam_registry_new(23);
    zam_proactor_registry_set(link.proactor, registry);
    const auto free_it = [](zam_proactor *, uint32_t, void *para) -> int32_t {
        ++dispatched;
        zam_connector_free(static_cast<zam_connector *>(para));
        return 0;
    };
    zam_event_register(registry, EVENT_MESSAGE_RECV, free_it);
    zam_event_register(registry, EVENT_CONNECT_CLOSE, free_it);
    link.peer_sends("last words");
    link.peer_closes();
    zam_trigger *trigger = zam_proactor_wait(link.proactor, patience_ms); // queues both events
    dispatch_events(link.proactor);
    zam_proactor_done(link.proactor, trigger);
    EXPECT_EQ(dispatched, 1) << "the second event outlived its connector";
    link.connector = nullptr;
    zam_proactor_registry_set(link.proactor, nullptr);
    zam_registry_free(registry);
}

TEST(ConnectorFree, DoesNotCallTheCloseCallback) {
    static int calls;
    calls = 0;
    Link link;
    zam_connector_reg_close_cb(link.connector, [](zam_connector *) { ++calls; });
    zam_connector_set_closed(link.connector);
    link.free_connector();
    EXPECT_EQ(calls, 0);
}

TEST(ConnectorWrite, SendsNothingYet) {
    Link link;
    EXPECT_EQ(link.write("hello"), 0);
    EXPECT_EQ(link.peer_reads(), "");
}

TEST(ConnectorWrite, RefusesNull) {
    Link link;
    EXPECT_EQ(zam_connector_write(nullptr, "x", 1), -1);
    EXPECT_EQ(zam_connector_write(link.connector, nullptr, 1), -1);
    zam_connector_flush(link.connector);
    EXPECT_EQ(link.peer_reads(), "");
}

TEST(ConnectorWrite, WithoutMemoryFailsAndKeepsWhatIsQueued) {
    Heap heap;
    Link link;
    EXPECT_EQ(link.write("kept"), 0);
    LogCapture log;
    heap.fail_at(1);
    EXPECT_EQ(link.write(std::string(2000, 'x')), -1);
    EXPECT_TRUE(log.has(0, "Allocate memory for expand rw-bytes buffer unsuccessful.")) << log.all();
    zam_connector_flush(link.connector);
    EXPECT_EQ(link.peer_reads(), "kept");
}

TEST(ConnectorRecall, TakesTheLastBytesBack) {
    Link link;
    link.write("header+payload");
    zam_connector_recall(link.connector, 8);
    zam_connector_flush(link.connector);
    EXPECT_EQ(link.peer_reads(), "header");
}

TEST(ConnectorRecall, OfMoreThanThereIsEmptiesTheOutput) {
    Link link;
    link.write("abc");
    zam_connector_recall(link.connector, 100);
    zam_connector_recall(link.connector, 1);
    zam_connector_recall(nullptr, 1);
    zam_connector_flush(link.connector);
    EXPECT_EQ(link.peer_reads(), "");
}

TEST(ConnectorRecall, NeverTakesBackWhatHasBeenSent) {
    Link link;
    link.write("sent");
    zam_connector_flush(link.connector);
    link.write("new");
    zam_connector_recall(link.connector, 100);
    link.write("next");
    zam_connector_flush(link.connector);
    EXPECT_EQ(link.peer_reads(), "sentnext");
}

TEST(ConnectorWakeIo, HasTheNextWakeWriteTheOutput) {
    Link link;
    link.write("hello");
    EXPECT_TRUE(link.is_quiet());
    LogCapture log;
    EXPECT_EQ(zam_connector_wake_io(link.connector), 0);
    EXPECT_EQ(log.all(), text("[DEBUG] Proactor rearm trigger ", link.fd, " success\n"));
    EXPECT_EQ(link.wake(), Events{});
    EXPECT_EQ(link.peer_reads(), "hello");
}

TEST(ConnectorWakeIo, OfNullIsZero) {
    EXPECT_EQ(zam_connector_wake_io(nullptr), 0);
}

TEST(ConnectorFlush, SendsEverythingAtOnce) {
    Link link;
    link.write("hello ");
    link.write("world");
    LogCapture log;
    zam_connector_flush(link.connector);
    EXPECT_EQ(log.all(), text("[DEBUG] Connector ", link.fd, " sent 11 bytes to peer.\n"));
    EXPECT_EQ(link.peer_reads(), "hello world");
}

TEST(ConnectorFlush, WithoutOutputDoesNothing) {
    Link link;
    LogCapture log;
    zam_connector_flush(link.connector);
    zam_connector_flush(nullptr);
    EXPECT_EQ(log.all(), "");
}

TEST(ConnectorFlush, OfAFullSocketKeepsTheRestForLater) {
    Link link{4096};
    std::string bytes;
    for (int i = 0; bytes.size() < 300000; ++i)
        bytes += text(i, " ");
    link.write(bytes);
    zam_connector_flush(link.connector);
    std::string received = link.peer_reads();
    EXPECT_LT(received.size(), bytes.size());
    while (received.size() < bytes.size()) {
        zam_connector_flush(link.connector);
        const std::string more = link.peer_reads();
        ASSERT_FALSE(more.empty());
        received += more;
    }
    EXPECT_EQ(received, bytes);
}

TEST(ConnectorFlush, StopsSilentlyWhenThePeerIsGone) {
    Link link;
    link.write("hello");
    link.peer_closes();
    LogCapture log;
    zam_connector_flush(link.connector);
    EXPECT_EQ(log.all(), "");
    EXPECT_EQ(zam_connector_closed(link.connector), 0);
    EXPECT_EQ(take_events(link.proactor), Events{});
}

TEST(ConnectorInput, IsConsumedFromTheFront) {
    Link link;
    link.peer_sends("hello world");
    link.wake();
    EXPECT_EQ(link.input(), "hello world");
    zam_connector_consume(link.connector, 6);
    EXPECT_EQ(link.input(), "world");
    zam_connector_consume(link.connector, 0);
    EXPECT_EQ(link.input(), "world");
    zam_connector_consume(link.connector, 100);
    EXPECT_EQ(link.input(), "");
    EXPECT_EQ(zam_connector_readbuf(link.connector, nullptr), nullptr);
}

TEST(ConnectorInput, EndsInANul) {
    Link link;
    link.peer_sends("hello");
    link.wake();
    uint32_t length = 0;
    EXPECT_STREQ(zam_connector_readbuf(link.connector, &length), "hello");
    EXPECT_EQ(length, 5u);
}

TEST(ConnectorInput, OfNullIsEmpty) {
    uint32_t length = 99;
    EXPECT_EQ(zam_connector_readbuf(nullptr, &length), nullptr);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(zam_connector_readbuf(nullptr, nullptr), nullptr);
    zam_connector_consume(nullptr, 5);
}

TEST(ConnectorReentry, PutsBytesBehindTheUnreadInput) {
    Link link;
    link.peer_sends("first ");
    link.wake();
    EXPECT_EQ(link.reenter("second"), 0);
    EXPECT_EQ(link.input(), "first second");
    EXPECT_EQ(take_events(link.proactor), Events{});
}

TEST(ConnectorReentry, IsSeenWithTheNextWake) {
    Link link;
    EXPECT_EQ(link.reenter("again"), 0);
    link.peer_sends(" and new");
    EXPECT_EQ(link.wake(), Events{link.received()});
    EXPECT_EQ(link.input(), "again and new");
}

TEST(ConnectorReentry, FollowsWhatIsLeftAfterConsuming) {
    Link link;
    link.reenter("abcdef");
    zam_connector_consume(link.connector, 4);
    EXPECT_EQ(link.reenter(std::string(3000, 'x')), 0);
    EXPECT_EQ(link.input(), "ef" + std::string(3000, 'x'));
}

TEST(ConnectorReentry, RefusesNullAndALackOfMemory) {
    Heap heap;
    Link link;
    EXPECT_EQ(zam_connector_reentry(nullptr, "x", 1), -1);
    EXPECT_EQ(zam_connector_reentry(link.connector, nullptr, 1), -1);
    link.reenter("kept");
    heap.fail_at(1);
    EXPECT_EQ(link.reenter(std::string(2000, 'x')), -1);
    EXPECT_EQ(link.input(), "kept");
}

TEST(ConnectorContext, IsTheOwnersToReplace) {
    Link link;
    int owner = 0;
    zam_connector_set_context(link.connector, &owner);
    EXPECT_EQ(zam_connector_context(link.connector), &owner);
    zam_connector_set_context(nullptr, &owner);
    EXPECT_EQ(zam_connector_context(nullptr), nullptr);
}

TEST(ConnectorFlags, ANullConnectorIsClosedAndNotReadBusy) {
    EXPECT_EQ(zam_connector_closed(nullptr), 1);
    EXPECT_EQ(zam_connector_rbusy(nullptr), 0);
    zam_connector_set_closed(nullptr);
    zam_connector_set_rbusy(nullptr, 0);
    zam_connector_reg_close_cb(nullptr, nullptr);
}

TEST(ConnectorFlags, ClosedIsSetWithoutAnEvent) {
    Link link;
    zam_connector_set_closed(link.connector);
    EXPECT_EQ(zam_connector_closed(link.connector), 1);
    EXPECT_EQ(take_events(link.proactor), Events{});
}

TEST(ConnectorFlags, ClearingReadBusyQueuesTheIdleEventSettingItQueuesNone) {
    Link link;
    zam_connector_set_rbusy(link.connector, 1);
    EXPECT_EQ(zam_connector_rbusy(link.connector), 1);
    EXPECT_EQ(take_events(link.proactor), Events{});
    zam_connector_set_rbusy(link.connector, 0);
    EXPECT_EQ(zam_connector_rbusy(link.connector), 0);
    EXPECT_EQ(take_events(link.proactor), (Events{{EVENT_CONNECT_READ_IDLE, link.connector}}));
}

TEST(ConnectorFlags, ClearingReadBusyQueuesTheIdleEventAlsoWhenItWasNotSet) {
    Link link;
    zam_connector_set_rbusy(link.connector, 0);
    EXPECT_EQ(take_events(link.proactor), (Events{{EVENT_CONNECT_READ_IDLE, link.connector}}));
}

} // namespace
