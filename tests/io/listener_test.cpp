// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <zamc/listener.h>
#include <zamc/sock_wrap.h>

#include "io/engine.h"
#include "support/files.h"
#include "support/heap.h"
#include "support/log_capture.h"

namespace {

using namespace zam::test;

void *as_parameter(int fd) {
    return reinterpret_cast<void *>(static_cast<intptr_t>(fd));
}

// A listener on a unix socket.
class Listener : public testing::Test {
protected:
    Listener() : url{"unix://" + dir.path("sock")}, fd{zam_socket_listen((url + ":600").c_str())} {
        zam_socket_block(fd, 0);
        listener = zam_listener_new(proactor, fd);
    }
    ~Listener() override {
        zam_listener_free(listener);
        zam_proactor_free(proactor);
    }
    Events wake() {
        trigger = zam_proactor_wait(proactor, patience_ms);
        EXPECT_NE(trigger, nullptr) << "no wake";
        return take_events(proactor);
    }

    TempDir dir;
    std::string url;
    zam_proactor *proactor = zam_proactor_new();
    int fd;
    zam_listener *listener;
    zam_trigger *trigger = nullptr;
};

// A "listener" whose socket has lost its peer, which is an error event for it.
class BrokenListener : public Listener {
protected:
    BrokenListener() {
        zam_listener_free(listener);
        SocketPair sockets;
        fd = sockets.release();
        listener = zam_listener_new(proactor, fd);
    }
};

TEST_F(Listener, RaisesARequestWhoseParameterIsTheDescriptorsNumber) {
    const int client = zam_socket_connect(url.c_str());
    EXPECT_EQ(wake(), (Events{{EVENT_CONNECT_REQ, as_parameter(fd)}}));
    const int accepted = zam_socket_accept(fd);
    EXPECT_GE(accepted, 0);
    close(accepted);
    close(client);
}

TEST_F(Listener, RaisesOneRequestPerReadiness) {
    const int first = zam_socket_connect(url.c_str());
    const int second = zam_socket_connect(url.c_str());
    EXPECT_EQ(wake(), (Events{{EVENT_CONNECT_REQ, as_parameter(fd)}}));
    EXPECT_EQ(zam_proactor_wait(proactor, 0), nullptr);
    const int third = zam_socket_connect(url.c_str());
    EXPECT_EQ(wake(), (Events{{EVENT_CONNECT_REQ, as_parameter(fd)}}));
    close(first);
    close(second);
    close(third);
}

TEST_F(Listener, IsKeptByItsDoneStageWhileItIsOpen) {
    const int client = zam_socket_connect(url.c_str());
    wake();
    zam_proactor_done(proactor, trigger);
    EXPECT_TRUE(is_open(fd));
    close(client);
}

TEST_F(BrokenListener, RaisesTheCloseEventAndLogsTheMask) {
    LogCapture log;
    EXPECT_EQ(wake(), (Events{{EVENT_LISTENER_CLOSE, listener}}));
    EXPECT_TRUE(log.has(3, text("Listener ", fd, " occurred some error event(0x2011)."))) << log.all();
}

TEST_F(BrokenListener, IsFreedByItsDoneStage) {
    wake();
    EXPECT_TRUE(is_open(fd));
    zam_proactor_done(proactor, trigger);
    EXPECT_FALSE(is_open(fd));
    listener = nullptr;
}

TEST_F(BrokenListener, RaisesNothingOnceItIsClosed) {
    wake();
    ASSERT_EQ(zam_trigger_rearm(proactor, trigger, EPOLLIN), 0);
    LogCapture log;
    EXPECT_EQ(wake(), Events{});
    EXPECT_TRUE(log.has(7, text("Listener ", fd, " has been closed."))) << log.all();
    EXPECT_FALSE(log.mentions("occurred some error event"));
}

TEST_F(BrokenListener, MayBeFreedByTheHandlerOfItsCloseEvent) {
    zam_registry *registry = zam_registry_new(2);
    zam_proactor_registry_set(proactor, registry);
    zam_event_register(registry, EVENT_LISTENER_CLOSE, [](zam_proactor *, uint32_t, void *para) -> int32_t {
        zam_listener_free(static_cast<zam_listener *>(para));
        return 0;
    });
    zam_trigger *ran = zam_proactor_wait(proactor, patience_ms);
    dispatch_events(proactor);
    EXPECT_FALSE(is_open(fd));
    zam_proactor_done(proactor, ran);
    listener = nullptr;
    zam_proactor_registry_set(proactor, nullptr);
    zam_registry_free(registry);
}

TEST_F(BrokenListener, TakesItsQueuedCloseEventAlong) {
    zam_proactor_wait(proactor, patience_ms);
    zam_listener_free(listener);
    listener = nullptr;
    EXPECT_EQ(take_events(proactor), Events{});
}

TEST(ListenerNew, SaysSo) {
    DescriptorCheck descriptors;
    Heap heap;
    zam_proactor *proactor = zam_proactor_new();
    SocketPair sockets;
    const int fd = sockets.release();
    LogCapture log;
    zam_listener *listener = zam_listener_new(proactor, fd);
    EXPECT_TRUE(log.has(7, text("Create listener ", fd, " success.")));
    zam_listener_free(listener);
    EXPECT_FALSE(is_open(fd));
    zam_proactor_free(proactor);
    EXPECT_EQ(heap.live(), 0u) << heap.live_sites();
}

TEST(ListenerNew, IsArmedForReadingOnly) {
    zam_proactor *proactor = zam_proactor_new();
    SocketPair sockets; // writable at once
    zam_listener *listener = zam_listener_new(proactor, sockets.release());
    EXPECT_EQ(zam_proactor_wait(proactor, 0), nullptr);
    zam_listener_free(listener);
    zam_proactor_free(proactor);
}

TEST(ListenerNew, OverADescriptorThatCannotBeWatchedFailsAndLeavesItOpen) {
    DescriptorCheck descriptors;
    zam_proactor *proactor = zam_proactor_new();
    const int fd = open("/dev/null", O_RDWR | O_CLOEXEC);
    LogCapture log;
    EXPECT_EQ(zam_listener_new(proactor, fd), nullptr);
    EXPECT_TRUE(log.has(3, text("Create listener ", fd, " failed.")));
    EXPECT_TRUE(is_open(fd));
    close(fd);
    zam_proactor_free(proactor);
}

TEST(ListenerNew, WithoutProactorFails) {
    SocketPair sockets;
    LogCapture log;
    EXPECT_EQ(zam_listener_new(nullptr, sockets.fd), nullptr);
    EXPECT_TRUE(log.has(3, text("Create listener ", sockets.fd, " failed.")));
    EXPECT_TRUE(is_open(sockets.fd));
}

TEST(ListenerNew, WithoutMemoryForTheRecordFailsAtLevelZero) {
    zam_proactor *proactor = zam_proactor_new();
    {
        Heap heap;
        LogCapture log;
        heap.fail_at(1);
        EXPECT_EQ(zam_listener_new(proactor, 77), nullptr);
        EXPECT_TRUE(log.has(0, "Allocate memory for listener 77 failed."));
        EXPECT_FALSE(log.has(3, "Create listener 77 failed."));
    }
    zam_proactor_free(proactor);
}

TEST(ListenerNew, WithoutMemoryForTheTriggerFails) {
    zam_proactor *proactor = zam_proactor_new();
    {
        Heap heap;
        LogCapture log;
        heap.fail_at(2);
        EXPECT_EQ(zam_listener_new(proactor, 77), nullptr);
        EXPECT_TRUE(log.has(3, "Create listener 77 failed."));
        EXPECT_EQ(heap.live(), 0u) << heap.live_sites();
    }
    zam_proactor_free(proactor);
}

TEST(ListenerNew, SurvivesEachFailingAllocation) {
    DescriptorCheck descriptors;
    SocketPair sockets;
    const uint64_t failed = fail_each_allocation([&](bool) {
        zam_proactor *proactor = zam_proactor_new();
        const int fd = dup(sockets.fd);
        zam_listener *listener = zam_listener_new(proactor, fd);
        if (listener) {
            zam_listener_free(listener);
        } else {
            EXPECT_EQ(close(fd), 0); // still ours
        }
        zam_proactor_free(proactor);
    });
    EXPECT_EQ(failed, 3u); // the proactor, the record, the trigger
}

TEST(ListenerFree, IgnoresNull) {
    zam_listener_free(nullptr);
}

} // namespace
