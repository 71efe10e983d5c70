// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// One thread relays all connections. A direction that does not pass any more is still read, so that what arrives late
// does not turn the end of a stream into a reset; after silence nothing is read, as of a process that is stopped.
#include "torture/proxy.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace zam::torture {
namespace {

constexpr size_t block_size = 65536;

sockaddr_un address_of(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

int listen_unix(const std::string &path) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = address_of(path);
    if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 || listen(fd, 64) != 0)
        throw std::runtime_error{"the proxy cannot listen on " + path};
    return fd;
}

int listen_tcp(int &port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(fd, reinterpret_cast<const sockaddr *>(&address), size) != 0 || listen(fd, 64) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size) != 0)
        throw std::runtime_error{"the proxy cannot listen"};
    port = ntohs(address.sin_port);
    return fd;
}

int connect_unix(const std::string &path) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = address_of(path);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0) return fd;
    close(fd);
    return -1;
}

void send_all(int fd, const char *data, size_t size) {
    while (size > 0) {
        const ssize_t sent = send(fd, data, size, MSG_NOSIGNAL);
        if (sent <= 0) return; // it has gone; its end arrives by itself
        data += sent;
        size -= static_cast<size_t>(sent);
    }
}

void reset(int fd) {
    const linger at_once{1, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
}

Direction other(Direction direction) {
    return direction == to_server ? to_client : to_server;
}

} // namespace

Proxy::Proxy(std::string server_path) : server_path_{std::move(server_path)} {
    listeners_ = {listen_unix(dir_.path("proxy")), listen_tcp(port_)};
    wake_ = eventfd(0, EFD_CLOEXEC);
    thread_ = std::thread{[this] { run(); }};
}

Proxy::~Proxy() {
    stopping_ = true;
    eventfd_write(wake_, 1);
    thread_.join();
    for (Link &link : links_)
        close_link(link);
    for (const int fd : {listeners_[0], listeners_[1], wake_})
        close(fd);
}

void Proxy::plan(Plan plan) {
    std::lock_guard guard{mutex_};
    plan_ = plan;
    plan_waits_ = true;
    happened_ = false;
    relayed_[to_server] = relayed_[to_client] = 0;
}

void Proxy::close_all() {
    wait_for_thread(true);
}

void Proxy::settle() {
    wait_for_thread(false);
}

// A round of the thread that begins now ends what it was about.
void Proxy::wait_for_thread(bool closes) {
    std::unique_lock lock{mutex_};
    close_wanted_ = closes;
    round_wanted_ = true;
    eventfd_write(wake_, 1);
    changed_.wait(lock, [&] { return !round_wanted_; });
}

void Proxy::run() {
    while (!stopping_) {
        std::vector<pollfd> waits{{wake_, POLLIN, 0}, {listeners_[0], POLLIN, 0}, {listeners_[1], POLLIN, 0}};
        for (const Link &link : links_)
            for (const Direction direction : {to_server, to_client}) {
                // The sender of a direction is the one to whom the other direction goes.
                const short events = link.silent ? POLLRDHUP : POLLIN;
                waits.push_back({link.open[direction] ? link.fd[other(direction)] : -1, events, 0});
            }
        poll(waits.data(), waits.size(), -1);
        size_t at = 3;
        for (Link &link : links_)
            for (const Direction direction : {to_server, to_client}) {
                const bool ready = waits[at++].revents != 0;
                if (!ready || link.done) continue;
                if (link.silent)
                    link.done = direction == to_server; // the client has gone; a server's end stays unseen
                else
                    relay(link, direction);
                if (link.silent) link.open[to_client] = false;
            }
        for (auto link = links_.begin(); link != links_.end();) {
            const bool over = link->done || (!link->open[to_server] && !link->open[to_client]);
            if (over) close_link(*link);
            link = over ? links_.erase(link) : std::next(link);
        }
        if (waits[0].revents != 0) {
            eventfd_t ignored = 0;
            eventfd_read(wake_, &ignored);
            std::lock_guard guard{mutex_};
            if (std::exchange(close_wanted_, false)) {
                for (Link &link : links_)
                    close_link(link);
                links_.clear();
            }
            round_wanted_ = false;
            changed_.notify_all();
        }
        for (const size_t i : {1, 2})
            if (waits[i].revents != 0) accept_from(waits[i].fd);
    }
}

void Proxy::accept_from(int listener) {
    const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) return;
    const int one = 1;
    setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one); // a unix socket refuses it
    const int server = connect_unix(server_path_);
    if (server < 0) {
        close(client);
        return;
    }
    Link link;
    link.fd = {server, client};
    {
        std::lock_guard guard{mutex_};
        if (std::exchange(plan_waits_, false)) {
            link.plan = plan_;
            link.planned = true;
        }
    }
    links_.push_back(link);
    if (link.planned && link.plan.death != Death::none && link.plan.bytes == 0) strike(links_.back());
}

void Proxy::relay(Link &link, Direction direction) {
    char block[block_size];
    const ssize_t got = recv(link.fd[other(direction)], block, sizeof block, MSG_DONTWAIT);
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (got <= 0) {
        link.open[direction] = false;
        if (link.passes[direction]) shutdown(link.fd[direction], SHUT_WR);
        return;
    }
    if (!link.passes[direction]) return;
    auto size = static_cast<uint64_t>(got);
    const bool strikes = link.planned && link.plan.death != Death::none && link.plan.direction == direction &&
                         link.relayed[direction] + size >= link.plan.bytes && !happened_;
    if (strikes) size = link.plan.bytes - link.relayed[direction];
    link.relayed[direction] += size;
    if (link.planned) relayed_[direction] = link.relayed[direction];
    send_all(link.fd[direction], block, size);
    if (strikes) strike(link);
}

void Proxy::strike(Link &link) {
    const Direction direction = link.plan.direction;
    happened_ = true;
    switch (link.plan.death) {
    case Death::none: return;
    case Death::half:
        shutdown(link.fd[direction], SHUT_WR);
        link.passes[direction] = false;
        return;
    case Death::silence: link.silent = true; return;
    case Death::rst:
        reset(link.fd[to_client]);
        reset(link.fd[to_server]);
        link.done = true;
        return;
    case Death::kill: kill_(); [[fallthrough]];
    case Death::fin:
        for (const Direction each : {to_server, to_client}) {
            shutdown(link.fd[each], SHUT_WR);
            link.passes[each] = false;
        }
    }
}

void Proxy::close_link(Link &link) {
    close(link.fd[to_server]);
    close(link.fd[to_client]);
}

} // namespace zam::torture
