// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "support/peer.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace zam::test {
namespace {

int _listen(const std::string &path) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 || listen(fd, 16) != 0) {
        throw std::runtime_error{"cannot listen on " + path + ": " + std::strerror(errno)};
    }
    return fd;
}

bool _send_all(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent <= 0) return false;
        bytes.remove_prefix(static_cast<size_t>(sent));
    }
    return true;
}

} // namespace

Peer::Peer() : url_{"unix://" + dir_.path("peer.sock")}, listen_fd_{_listen(dir_.path("peer.sock"))} {
    wake_fd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    thread_ = std::thread{[this] { run(); }};
}

Peer::~Peer() {
    stopping_ = true;
    wake();
    thread_.join();
    if (listen_fd_ >= 0) close(listen_fd_);
    close(wake_fd_);
}

void Peer::wake() {
    const uint64_t one = 1;
    if (write(wake_fd_, &one, sizeof one) != sizeof one) std::perror("peer: wake");
}

void Peer::run() {
    while (!stopping_) {
        std::array<pollfd, 2> fds{pollfd{listen_fd_, POLLIN, 0}, pollfd{wake_fd_, POLLIN, 0}};
        poll(fds.data(), fds.size(), -1);
        uint64_t ignored = 0;
        if (fds[1].revents && read(wake_fd_, &ignored, sizeof ignored) < 0) continue;
        if ((fds[0].revents & POLLIN) == 0) continue;
        const int fd = accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) continue;
        drop_ = false;
        {
            std::lock_guard guard{mutex_};
            fd_ = fd;
            ++connections_;
        }
        changed_.notify_all();
        Decoder decoder;
        while (serve(fd, decoder)) {
        }
        std::lock_guard guard{mutex_};
        fd_ = -1;
        close(fd);
    }
}

// One wake-up of the connection; false when it is over.
bool Peer::serve(int fd, Decoder &decoder) {
    std::array<pollfd, 2> fds{pollfd{fd, POLLIN, 0}, pollfd{wake_fd_, POLLIN, 0}};
    poll(fds.data(), fds.size(), -1);
    uint64_t ignored = 0;
    if (fds[1].revents && read(wake_fd_, &ignored, sizeof ignored) > 0 && (stopping_ || drop_)) return false;
    if ((fds[0].revents & (POLLIN | POLLHUP)) == 0) return true;
    std::array<char, 65536> bytes{};
    const ssize_t got = recv(fd, bytes.data(), bytes.size(), 0);
    if (got <= 0) return false;
    decoder.feed({bytes.data(), static_cast<size_t>(got)});
    while (auto frame = decoder.next()) {
        Answer answer;
        {
            std::lock_guard guard{mutex_};
            answer = answer_;
            frames_.push_back(*frame);
            taken_.push_back(false);
        }
        changed_.notify_all();
        for (const auto &reply : answer(*frame))
            _send_all(fd, encode(reply));
    }
    return true;
}

void Peer::answer_with(Answer answer) {
    std::lock_guard guard{mutex_};
    answer_ = std::move(answer);
}

void Peer::send_raw(const std::string &bytes) {
    std::unique_lock lock{mutex_};
    if (!changed_.wait_for(lock, std::chrono::seconds{10}, [this] { return fd_ >= 0; })) {
        ADD_FAILURE() << "nobody is connected";
        return;
    }
    EXPECT_TRUE(_send_all(fd_, bytes)) << std::strerror(errno);
}

void Peer::drop_connection() {
    drop_ = true;
    wake();
}

void Peer::stop_listening() {
    shutdown(listen_fd_, SHUT_RDWR);
    unlink(dir_.path("peer.sock").c_str());
}

std::optional<Frame> Peer::wait_for(const std::function<bool(const Frame &)> &wanted,
                                    std::chrono::milliseconds deadline) {
    std::optional<Frame> found;
    std::unique_lock lock{mutex_};
    changed_.wait_for(lock, deadline, [&] {
        for (size_t i = 0; i < frames_.size() && !found; ++i) {
            if (taken_[i] || !wanted(frames_[i])) continue;
            taken_[i] = true;
            found = frames_[i];
        }
        return found.has_value();
    });
    return found;
}

std::optional<Frame> Peer::wait_for_request(std::string_view holding) {
    return wait_for([holding = std::string{holding}](const Frame &frame) {
        return frame.kind == Kind::request && frame.payload.find(holding) != std::string::npos;
    });
}

std::optional<Frame> Peer::wait_for_reply(uint32_t seq) {
    return wait_for([seq](const Frame &frame) { return frame.kind == Kind::reply && frame.seq == seq; });
}

std::vector<Frame> Peer::received() const {
    std::lock_guard guard{mutex_};
    return frames_;
}

Frame Peer::reply_to(const Frame &request, std::string payload) {
    return {Kind::reply, request.seq, request.encoding, std::move(payload)};
}

std::vector<Frame> Peer::obliging(const Frame &frame) {
    if (frame.kind == Kind::rewake) return {frame};
    if (frame.kind != Kind::request) return {};
    if (frame.payload.find("register") == std::string::npos) return {reply_to(frame)};
    const std::string json = R"({"orvel-zam-server:register":{"session-id":7}})";
    const std::string xml =
        R"(<register xmlns="urn:orvel:params:xml:ns:yang:orvel-zam-server"><session-id>7</session-id></register>)";
    return {reply_to(frame, frame.encoding == 1 ? xml : json)};
}

} // namespace zam::test
