// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// What a connector's wake and done stage do with bytes and errors.
#include <chrono>
#include <csignal>
#include <thread>

#include <sys/eventfd.h>
#include <sys/ioctl.h>

#include "io/connector_internal.h"
#include "io/engine.h"
#include "support/files.h"
#include "support/heap.h"
#include "support/log_capture.h"

namespace {

using namespace zam::test;

std::string received(const Link &link, int bytes) {
    return text("Connector ", link.fd, " received ", bytes, " bytes from peer.");
}

// The sizes of all reads so far, in order; -1 for one that found the socket drained.
std::vector<int> reads(const LogCapture &log) {
    std::vector<int> sizes;
    for (const auto &line : log.lines()) {
        int fd = 0;
        int bytes = 0;
        if (std::sscanf(line.text.c_str(), "[DEBUG] Connector %d received %d bytes", &fd, &bytes) == 2) {
            sizes.push_back(bytes);
        }
    }
    return sizes;
}

// The largest live block.
uint64_t largest(const Heap &heap) {
    std::istringstream sites{heap.live_sites()};
    uint64_t most = 0;
    for (std::string line; std::getline(sites, line);)
        most = std::max<uint64_t>(most, std::stoull(line.substr(line.rfind(' '))));
    return most;
}

class CloseCounter {
public:
    explicit CloseCounter(zam_connector *connector) {
        calls = 0;
        zam_connector_reg_close_cb(connector, [](zam_connector *c) {
            ++calls;
            closed = c;
        });
    }
    static inline int calls;
    static inline zam_connector *closed;
};

TEST(ConnectorWake, InputBecomesOneReceiveEvent) {
    Link link;
    link.peer_sends("hello");
    LogCapture log;
    EXPECT_EQ(link.wake(), Events{link.received()});
    EXPECT_EQ(link.input(), "hello");
    EXPECT_TRUE(log.has(7, text("Connector ", link.fd, " is waked by event 0x5.")));
    EXPECT_TRUE(log.has(7, received(link, 5)));
    EXPECT_EQ(reads(log), std::vector<int>{5}) << "a short read means that the socket is drained";
    EXPECT_TRUE(link.is_quiet());
}

TEST(ConnectorWake, AnEmptyBufferGivesAReadAreaOf1023BytesWithoutGrowing) {
    Heap heap;
    Link link;
    link.peer_sends(std::string(1022, 'x'));
    LogCapture log;
    EXPECT_EQ(link.wake(), Events{link.received()});
    EXPECT_EQ(reads(log), std::vector<int>{1022});
    EXPECT_EQ(largest(heap), 1024u);
}

TEST(ConnectorWake, AReadThatFillsTheAreaIsFollowedByAnotherAndTheBufferDoubles) {
    Heap heap;
    Link link;
    link.peer_sends(std::string(1023, 'x'));
    LogCapture log;
    EXPECT_EQ(link.wake(), Events{link.received()});
    EXPECT_EQ(reads(log), (std::vector<int>{1023, -1}));
    EXPECT_EQ(largest(heap), 2048u);
    EXPECT_EQ(link.input(), std::string(1023, 'x'));
}

TEST(ConnectorWake, ABufferHolding100BytesGrowsFirstAndGivesAReadAreaOf1947Bytes) {
    Heap heap;
    Link link;
    link.peer_sends(std::string(100, 'a'));
    link.wake();
    EXPECT_EQ(largest(heap), 1024u);
    link.peer_sends(std::string(3000, 'b'));
    LogCapture log;
    EXPECT_EQ(link.wake(), Events{link.received()});
    EXPECT_EQ(reads(log), (std::vector<int>{1947, 1053}));
    EXPECT_EQ(link.input(), std::string(100, 'a') + std::string(3000, 'b'));
}

TEST(ConnectorWake, ABufferWith1024FreeBytesIsNotGrown) {
    Heap heap;
    Link link;
    link.reenter(std::string(8192 - 1024, 'x')); // a re-entry rounds up above its size plus 8 KiB
    const uint64_t capacity = largest(heap);
    ASSERT_GE(capacity, 8192u);
    link.reenter(std::string(capacity - 1024 - (8192 - 1024), 'x'));
    ASSERT_EQ(largest(heap), capacity);
    link.peer_sends(std::string(1000, 'y'));
    LogCapture log;
    link.wake();
    EXPECT_EQ(reads(log), std::vector<int>{1000});
    EXPECT_EQ(largest(heap), capacity);
}

TEST(ConnectorWake, AFullBufferDoublesWithEveryRead) {
    Link link;
    std::string bytes;
    for (int i = 0; bytes.size() < 20000; ++i)
        bytes += text(i, " ");
    bytes.resize(20000);
    link.peer_sends(bytes);
    LogCapture log;
    EXPECT_EQ(link.wake(), Events{link.received()});
    EXPECT_EQ(reads(log), (std::vector<int>{1023, 1024, 2048, 4096, 8192, 3617}));
    EXPECT_EQ(link.input(), bytes);
}

// Bytes to put into the input, and the capacities that this gives and that the next read makes of it.
struct Growth {
    uint32_t content, before, after;
};
class ConnectorGrowth : public testing::TestWithParam<Growth> {};

TEST_P(ConnectorGrowth, DoublesUpTo8MiBAndGoesOnInStepsOf8MiB) {
    const Growth &growth = GetParam();
    Heap heap;
    Link link;
    ASSERT_EQ(link.reenter(std::string(growth.content, 'x')), 0);
    ASSERT_EQ(largest(heap), growth.before);
    link.peer_sends("end");
    EXPECT_EQ(link.wake(), Events{link.received()});
    EXPECT_EQ(largest(heap), growth.after);
    EXPECT_EQ(link.input(), std::string(growth.content, 'x') + "end");
}

constexpr uint32_t mib8 = 0x800000;
INSTANTIATE_TEST_SUITE_P(Sizes, ConnectorGrowth,
                         testing::Values(Growth{8192 * 1023 - 1000, 8192 * 1023, 8192 * 2046},
                                         Growth{mib8 - 1000, mib8, 2 * mib8},
                                         Growth{mib8 + 8192 - 1000, mib8 + 8192, 2 * mib8},
                                         Growth{2 * mib8 - 1000, 2 * mib8, 3 * mib8}));

TEST(ConnectorWake, AReadAreaThatCannotGrowLeavesTheRestInTheSocket) {
    Heap heap;
    Link link;
    const std::string bytes = std::string(1023, 'a') + std::string(977, 'b');
    link.peer_sends(bytes);
    LogCapture log;
    heap.fail_at(1);
    EXPECT_EQ(link.wake(), Events{});
    EXPECT_TRUE(heap.failed());
    EXPECT_TRUE(log.has(0, "Allocate memory for resize rw-bytes buffer unsuccessful."));
    EXPECT_TRUE(log.has(7, text("Proactor rearm trigger ", link.fd, " success")));
    EXPECT_EQ(reads(log), std::vector<int>{1023});
    EXPECT_EQ(zam_connector_closed(link.connector), 0);
    EXPECT_TRUE(zam::io::is_starved(link.connector));

    EXPECT_EQ(link.wake(), Events{link.received()}) << "the re-armed trigger did not report the rest";
    EXPECT_EQ(link.input(), bytes);
    EXPECT_FALSE(zam::io::is_starved(link.connector));
}

TEST(ConnectorWake, WithoutMemoryForItsEventIsStarvedUntilOneHasIt) {
    Heap heap;
    Link link;
    EXPECT_FALSE(zam::io::is_starved(nullptr));
    link.peer_sends("x");
    heap.fail_at(1);
    EXPECT_EQ(link.wake(), Events{});
    EXPECT_TRUE(zam::io::is_starved(link.connector));
    EXPECT_EQ(link.wake(), Events{link.received()});
    EXPECT_FALSE(zam::io::is_starved(link.connector));
}

TEST(ConnectorWake, APeerThatClosesIsReportedOnce) {
    Link link;
    link.peer_closes();
    LogCapture log;
    EXPECT_EQ(link.wake(), Events{link.closed()});
    EXPECT_EQ(zam_connector_closed(link.connector), 1);
    EXPECT_TRUE(log.has(7, text("The peer of connector ", link.fd, " has closed.")));
    EXPECT_FALSE(log.mentions("has closed,events"));
    log.clear();
    EXPECT_EQ(link.wake_again(), Events{});
    EXPECT_EQ(log.count(7, text("Connector ", link.fd, " is waked by event 0x2015.")), 1) << log.all();
    EXPECT_EQ(reads(log), std::vector<int>{}) << "a closed connector must not read any more";
}

TEST(ConnectorWake, ThePeersLastBytesArriveBeforeItsClosing) {
    Link link;
    link.peer_sends("last words");
    link.peer_closes();
    LogCapture log;
    EXPECT_EQ(link.wake(), (Events{link.received(), link.closed()}));
    EXPECT_EQ(link.input(), "last words");
    EXPECT_TRUE(log.has(6, text("The connector ", link.fd, " has closed,events ", 0x2015, "."))) << log.all();
    EXPECT_EQ(zam_connector_closed(link.connector), 1);
}

TEST(ConnectorWake, AClosingSeenByASecondReadIsReportedOnce) {
    Link link;
    link.peer_sends(std::string(1023, 'x'));
    link.peer_closes();
    LogCapture log;
    EXPECT_EQ(link.wake(), Events{link.closed()});
    EXPECT_EQ(reads(log), (std::vector<int>{1023, 0}));
    EXPECT_EQ(link.input().size(), 1023u);
}

TEST(ConnectorWake, AHalfClosedPeerCountsAsGone) {
    Link link;
    shutdown(link.sockets.peer, SHUT_WR);
    EXPECT_EQ(link.wake(), Events{link.closed()});
}

TEST(ConnectorWake, AReadErrorClosesWithATrace) {
    Link link;
    link.write("never read by the peer");
    zam_connector_flush(link.connector);
    link.peer_closes(); // with unread bytes: a reset
    LogCapture log;
    EXPECT_EQ(link.wake(), Events{link.closed()});
    EXPECT_TRUE(log.has(7, text("Connector ", link.fd, " read message not successful(Connection reset by peer).")))
        << log.all();
    EXPECT_EQ(zam_connector_closed(link.connector), 1);
}

TEST(ConnectorWake, AWriteErrorClosesWithAnError) {
    Link link;
    shutdown(link.sockets.peer, SHUT_RD); // nothing to read for us, but writing fails
    link.write("hello");
    LogCapture log;
    EXPECT_EQ(link.wake_again(), Events{link.closed()});
    EXPECT_TRUE(log.has(7, text("Connector ", link.fd, " sent -1 bytes to peer."))) << log.all();
    EXPECT_TRUE(log.has(3, text("Connector ", link.fd, " write message not successful(Broken pipe).")));
    EXPECT_EQ(zam_connector_closed(link.connector), 1);
}

TEST(ConnectorWake, AWriteErrorAfterTheClosingIsNotReportedAgain) {
    Link link;
    link.write("too late");
    link.peer_closes();
    LogCapture log;
    EXPECT_EQ(link.wake(), Events{link.closed()});
    EXPECT_FALSE(log.mentions("write message not successful"));
}

TEST(ConnectorWake, AWriteErrorBetweenTwoReadsIsReportedOnce) {
    Link link;
    link.write("to nobody");
    link.peer_sends(std::string(1023, 'x'));
    link.peer_closes();
    LogCapture log;
    EXPECT_EQ(link.wake(), Events{link.closed()});
    EXPECT_EQ(reads(log), (std::vector<int>{1023, 0}));
    EXPECT_TRUE(log.has(3, text("Connector ", link.fd, " write message not successful(Broken pipe).")));
    EXPECT_FALSE(log.has(7, text("The peer of connector ", link.fd, " has closed.")));
}

TEST(ConnectorWake, WritingToAPeerThatIsGoneRaisesNoSignal) {
    static volatile sig_atomic_t signals;
    signals = 0;
    struct sigaction action {};
    struct sigaction old {};
    action.sa_handler = [](int) { signals = signals + 1; };
    sigaction(SIGPIPE, &action, &old);
    {
        Link link;
        link.write("to nobody");
        link.peer_closes();
        zam_connector_flush(link.connector);
        link.wake();
        link.done();
    }
    sigaction(SIGPIPE, &old, nullptr);
    EXPECT_EQ(signals, 0);
}

TEST(ConnectorWake, OneWakeWritesOnce) {
    Link link{4096};
    link.write(std::string(300000, 'x'));
    LogCapture log;
    EXPECT_EQ(link.wake_again(), Events{});
    const size_t sent = link.peer_reads().size();
    EXPECT_GT(sent, 0u);
    EXPECT_LT(sent, 300000u);
    EXPECT_TRUE(log.has(7, text("Connector ", link.fd, " sent ", sent, " bytes to peer."))) << log.all();
}

TEST(ConnectorWake, OutputLeavesWakeByWakeAsThePeerReads) {
    Link link{4096};
    std::string bytes;
    for (int i = 0; bytes.size() < 500000; ++i)
        bytes += text(i, " ");
    link.write(bytes);
    zam_connector_wake_io(link.connector);
    std::string arrived;
    while (arrived.size() < bytes.size()) {
        link.wake();
        const std::string more = link.peer_reads();
        ASSERT_FALSE(more.empty());
        arrived += more;
    }
    EXPECT_EQ(arrived, bytes);
}

TEST(ConnectorWake, ReadingAndWritingShareAWake) {
    Link link;
    link.write("answer");
    link.peer_sends("question");
    EXPECT_EQ(link.wake(), Events{link.received()});
    EXPECT_EQ(link.input(), "question");
    EXPECT_EQ(link.peer_reads(), "answer");
}

// A counter that is nearly full looks writable and refuses a larger number, until somebody takes enough out of it.
TEST(ConnectorWake, AFullDescriptorIsRetriedAtOnceInTheSameWake) {
    DescriptorCheck descriptors;
    zam_proactor *proactor = zam_proactor_new();
    const int fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC | EFD_SEMAPHORE);
    const uint64_t nearly_full = UINT64_MAX - 2;
    ASSERT_EQ(write(fd, &nearly_full, sizeof(nearly_full)), static_cast<ssize_t>(sizeof(nearly_full)));
    zam_connector *connector = zam_connector_new(proactor, fd, nullptr);
    const uint64_t five = 5;
    zam_connector_write(connector, &five, sizeof(five));

    LogCapture log;
    const std::string refused = text("Connector ", fd, " sent -1 bytes to peer.");
    std::thread drainer{[&] {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds{10};
        while (!log.has(7, refused) && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
        uint64_t one = 0;
        for (int i = 0; i < 8; ++i)
            EXPECT_EQ(read(fd, &one, sizeof(one)), static_cast<ssize_t>(sizeof(one)));
    }};
    EXPECT_NE(zam_proactor_wait(proactor, patience_ms), nullptr);
    drainer.join();
    EXPECT_TRUE(log.has(7, refused));
    EXPECT_EQ(log.count(7, text("Connector ", fd, " sent 8 bytes to peer.")), 1);
    EXPECT_EQ(zam_connector_closed(connector), 0);
    zam_connector_free(connector);
    zam_proactor_free(proactor);
}

TEST(ConnectorMemory, OutputIsGivenBackAsItLeaves) {
    Heap heap;
    Link link{4096};
    constexpr uint32_t total = 400000;
    link.write(std::string(total, 'x'));
    EXPECT_GT(largest(heap), total);
    uint32_t arrived = 0;
    while (arrived < total) {
        zam_connector_flush(link.connector);
        int in_flight = 0;
        ioctl(link.sockets.peer, FIONREAD, &in_flight);
        const uint64_t left = total - arrived - static_cast<uint32_t>(in_flight);
        EXPECT_LE(largest(heap), std::max<uint64_t>(8192, 2 * left)) << left;
        const size_t more = link.peer_reads().size();
        ASSERT_GT(more, 0u);
        arrived += static_cast<uint32_t>(more);
    }
    EXPECT_EQ(largest(heap), 8192u);
}

TEST(ConnectorMemory, ABlockThatCouldNotBeSwappedForASmallerOneIsReleased) {
    Heap heap;
    Link link;
    link.write(std::string(50000, 'x'));
    heap.fail_at(1);
    zam_connector_flush(link.connector);
    EXPECT_TRUE(heap.failed());
    EXPECT_LE(largest(heap), 8192u) << heap.live_sites();
    EXPECT_EQ(link.peer_reads().size(), 50000u);
    EXPECT_EQ(link.write("still of use"), 0);
    zam_connector_flush(link.connector);
    EXPECT_EQ(link.peer_reads(), "still of use");
}

TEST(ConnectorMemory, LargeInputIsGivenBackOnceItIsConsumed) {
    Heap heap;
    Link link;
    link.reenter(std::string(1000000, 'x'));
    zam_connector_consume(link.connector, 999990);
    EXPECT_EQ(link.input(), "xxxxxxxxxx");
    EXPECT_EQ(largest(heap), 8192u);
}

TEST(ConnectorMemory, ALackOfItAnywhereInARoundLosesNeitherByteNorEvent) {
    const std::string bytes(30000, 'x');
    const uint64_t failed = fail_each_allocation([&](bool) {
        zam_proactor *proactor = zam_proactor_new();
        SocketPair sockets;
        zam_connector *connector = zam_connector_new(proactor, sockets.fd, nullptr);
        if (connector) {
            sockets.release();
            send(sockets.peer, bytes.data(), bytes.size(), 0);
            uint32_t reported = 0; // bytes that were there when a receive event came
            for (int wakes = 0; reported < bytes.size() && wakes < 10; ++wakes) {
                if (!zam_proactor_wait(proactor, patience_ms)) break;
                if (!take_events(proactor).empty()) zam_connector_readbuf(connector, &reported);
            }
            EXPECT_EQ(reported, bytes.size());
            EXPECT_EQ(zam_connector_closed(connector), 0);
        }
        zam_connector_free(connector);
        zam_proactor_free(proactor);
    });
    EXPECT_GT(failed, 10u);
}

TEST(ConnectorDone, WritesWhatTheHandlersQueued) {
    Link link;
    link.peer_sends("question");
    link.wake();
    link.write("answer");
    LogCapture log;
    link.done();
    EXPECT_EQ(log.all(), text("[DEBUG] Connector ", link.fd, " sent 6 bytes to peer in done stage.\n"));
    EXPECT_EQ(link.peer_reads(), "answer");
}

TEST(ConnectorDone, WithoutOutputDoesNothing) {
    Link link;
    LogCapture log;
    link.done();
    EXPECT_EQ(log.all(), "");
}

TEST(ConnectorDone, WritesOnceAndKeepsTheRest) {
    Link link{4096};
    link.write(std::string(300000, 'x'));
    link.done();
    const size_t sent = link.peer_reads().size();
    EXPECT_GT(sent, 0u);
    EXPECT_LT(sent, 300000u);
    link.done();
    EXPECT_GT(link.peer_reads().size(), 0u);
}

TEST(ConnectorDone, IgnoresWriteErrors) {
    Link link;
    link.write("to nobody");
    shutdown(link.sockets.peer, SHUT_RD);
    LogCapture log;
    link.done();
    EXPECT_EQ(log.all(), text("[DEBUG] Connector ", link.fd, " sent -1 bytes to peer in done stage.\n"));
    EXPECT_EQ(zam_connector_closed(link.connector), 0);
    EXPECT_EQ(take_events(link.proactor), Events{});
}

TEST(ConnectorDone, CallsTheCloseCallbackOfAClosedConnector) {
    Link link;
    const CloseCounter close_counter{link.connector};
    link.peer_closes();
    link.wake();
    EXPECT_EQ(CloseCounter::calls, 0) << "the callback belongs to the done stage";
    LogCapture log;
    link.done();
    EXPECT_EQ(log.all(), text("[DEBUG] Connector fd ", link.fd, " is closed.\n"));
    EXPECT_EQ(CloseCounter::calls, 1);
    EXPECT_EQ(CloseCounter::closed, link.connector);
}

TEST(ConnectorDone, OfAnOpenConnectorCallsNothing) {
    Link link;
    const CloseCounter close_counter{link.connector};
    link.done();
    EXPECT_EQ(CloseCounter::calls, 0);
}

TEST(ConnectorDone, OfAClosedConnectorWithoutCallbackOnlySaysSo) {
    Link link;
    zam_connector_set_closed(link.connector);
    LogCapture log;
    link.done();
    EXPECT_EQ(log.all(), text("[DEBUG] Connector fd ", link.fd, " is closed.\n"));
}

TEST(ConnectorDone, HoldsTheCallbackBackWhileReadBusy) {
    Link link;
    const CloseCounter close_counter{link.connector};
    zam_connector_set_rbusy(link.connector, 1);
    link.peer_closes();
    link.wake();
    LogCapture log;
    link.done();
    EXPECT_EQ(CloseCounter::calls, 0);
    EXPECT_EQ(log.all(), "");
    zam_connector_set_rbusy(link.connector, 0);
    EXPECT_EQ(take_events(link.proactor), (Events{{EVENT_CONNECT_READ_IDLE, link.connector}}));
    link.done();
    EXPECT_EQ(CloseCounter::calls, 1);
}

TEST(ConnectorDone, TheCallbackMayFreeTheConnector) {
    DescriptorCheck descriptors;
    Link link;
    zam_connector_reg_close_cb(link.connector, zam_connector_free);
    link.write("never sent");
    link.peer_closes();
    link.wake();
    link.done();
    EXPECT_FALSE(is_open(link.fd));
    link.done(); // of a trigger that is gone
    link.connector = nullptr;
}

TEST(ConnectorWake, DescriptorsThatAreNoSocketsWorkToo) {
    DescriptorCheck descriptors;
    zam_proactor *proactor = zam_proactor_new();
    int fds[2];
    ASSERT_EQ(pipe2(fds, O_NONBLOCK | O_CLOEXEC), 0);
    zam_connector *connector = zam_connector_new(proactor, fds[1], nullptr);
    zam_connector_write(connector, "hello", 5);
    EXPECT_NE(zam_proactor_wait(proactor, patience_ms), nullptr);
    char buffer[16];
    EXPECT_EQ(read(fds[0], buffer, sizeof(buffer)), 5);
    zam_connector_free(connector);
    close(fds[0]);
    zam_proactor_free(proactor);
}

} // namespace
