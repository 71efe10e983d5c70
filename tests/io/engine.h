// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// The event engine as tests use it: a proactor with its queue laid open, and a connector with the test as its peer.
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <zamc/connector.h>
#include <zamc/proactor.h>

namespace zam::test {

constexpr int32_t patience_ms = 10000; // far longer than anything that a test waits for takes

template <typename... Parts>
std::string text(const Parts &...parts) {
    std::ostringstream stream;
    (stream << ... << parts);
    return stream.str();
}

inline bool is_open(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

struct Event {
    uint32_t id;
    void *para;
    bool operator==(const Event &) const = default;
};
using Events = std::vector<Event>;

inline void PrintTo(const Event &event, std::ostream *out) {
    *out << zam_event_name(event.id) << "(" << event.para << ")";
}

// Empties the queue.
inline Events take_events(zam_proactor *proactor) {
    Events events;
    while (zam_event *event = zam_event_pop(proactor)) {
        events.push_back({zam_event_id(event), zam_event_para(event)});
        zam_event_free(event);
    }
    return events;
}

// Dispatches what is queued, as an owner's loop does.
inline void dispatch_events(zam_proactor *proactor) {
    while (zam_event *event = zam_event_pop(proactor)) {
        zam_event_dispatch(proactor, event);
        zam_event_free(event);
    }
}

// Two connected stream sockets, both non-blocking. Closes what has not been given away.
class SocketPair {
public:
    explicit SocketPair(int send_buffer = 0) {
        int fds[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, fds) != 0) std::abort();
        fd = fds[0];
        peer = fds[1];
        if (send_buffer > 0) setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &send_buffer, sizeof(send_buffer));
    }
    ~SocketPair() {
        if (fd >= 0) close(fd);
        close_peer();
    }
    SocketPair(const SocketPair &) = delete;
    SocketPair &operator=(const SocketPair &) = delete;

    int release() { return std::exchange(fd, -1); }
    void close_peer() {
        if (peer >= 0) close(std::exchange(peer, -1));
    }

    int fd;
    int peer;
};

// A connector over a socket pair. The wake that a fresh connector gets for being writable is over when it is made.
class Link {
public:
    explicit Link(int send_buffer = 0) : sockets{send_buffer}, proactor{zam_proactor_new()}, fd{sockets.fd} {
        connector = zam_connector_new(proactor, sockets.release(), this);
        EXPECT_EQ(wake(), Events{});
    }
    ~Link() {
        zam_connector_free(connector);
        zam_proactor_free(proactor);
    }
    Link(const Link &) = delete;
    Link &operator=(const Link &) = delete;

    // Waits for one wake; the events that it queued.
    Events wake() {
        trigger = zam_proactor_wait(proactor, patience_ms);
        EXPECT_NE(trigger, nullptr) << "no wake";
        return take_events(proactor);
    }
    Events wake_again() {
        EXPECT_EQ(zam_connector_wake_io(connector), 0);
        return wake();
    }
    void done() const { zam_proactor_done(proactor, trigger); }
    bool is_quiet() const { return zam_proactor_wait(proactor, 0) == nullptr; }

    void free_connector() { zam_connector_free(std::exchange(connector, nullptr)); }
    Event received() const { return {EVENT_MESSAGE_RECV, connector}; }
    Event closed() const { return {EVENT_CONNECT_CLOSE, connector}; }

    // The peer's side.
    void peer_sends(std::string_view bytes) const {
        ASSERT_EQ(send(sockets.peer, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    }
    std::string peer_reads(size_t most = SIZE_MAX) const {
        std::string bytes;
        std::string part(65536, '\0');
        while (bytes.size() < most) {
            const ssize_t n = read(sockets.peer, part.data(), std::min(part.size(), most - bytes.size()));
            if (n <= 0) return bytes;
            bytes.append(part, 0, static_cast<size_t>(n));
        }
        return bytes;
    }
    void peer_closes() { sockets.close_peer(); }

    // What the connector holds unread.
    std::string input() const {
        uint32_t length = 0;
        const char *data = zam_connector_readbuf(connector, &length);
        return data ? std::string{data, length} : std::string{};
    }
    int32_t write(std::string_view bytes) const {
        return zam_connector_write(connector, bytes.data(), static_cast<uint32_t>(bytes.size()));
    }
    int32_t reenter(std::string_view bytes) const {
        return zam_connector_reentry(connector, bytes.data(), static_cast<uint32_t>(bytes.size()));
    }

    SocketPair sockets;
    zam_proactor *proactor;
    int fd; // the connector's
    zam_connector *connector = nullptr;
    zam_trigger *trigger = nullptr; // of the last wake
};

// While it lives, the process gets no new descriptor.
class NoMoreDescriptors {
public:
    NoMoreDescriptors() {
        getrlimit(RLIMIT_NOFILE, &old_);
        const rlimit none{0, old_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoMoreDescriptors() { setrlimit(RLIMIT_NOFILE, &old_); }
    NoMoreDescriptors(const NoMoreDescriptors &) = delete;
    NoMoreDescriptors &operator=(const NoMoreDescriptors &) = delete;

private:
    rlimit old_{};
};

} // namespace zam::test
