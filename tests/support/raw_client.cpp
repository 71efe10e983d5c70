// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "support/raw_client.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace zam::test {
namespace {

bool _wait(int fd, short events, std::chrono::steady_clock::time_point until) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
    pollfd wait{fd, events, 0};
    return left.count() > 0 && poll(&wait, 1, static_cast<int>(left.count())) > 0;
}

} // namespace

RawClient::RawClient(const std::string &url) {
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = url.substr(std::strlen("unix://"));
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(connect(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0) << std::strerror(errno);
}

RawClient::~RawClient() {
    if (fd_ >= 0) close(fd_);
}

bool RawClient::send(std::string_view bytes) {
    auto until = std::chrono::steady_clock::now() + patience;
    while (!bytes.empty()) {
        const ssize_t sent = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent > 0) {
            bytes.remove_prefix(static_cast<size_t>(sent));
            until = std::chrono::steady_clock::now() + patience;
        } else if (errno != EAGAIN || !_wait(fd_, POLLOUT, until)) {
            return false;
        }
    }
    return true;
}

std::optional<Frame> RawClient::receive(std::chrono::milliseconds deadline) {
    const auto until = std::chrono::steady_clock::now() + deadline;
    for (;;) {
        if (auto frame = decoder_.next()) return frame;
        if (!_wait(fd_, POLLIN, until)) return std::nullopt;
        std::array<char, 65536> block;
        const ssize_t got = recv(fd_, block.data(), block.size(), MSG_DONTWAIT);
        if (got <= 0) return std::nullopt;
        decoder_.feed({block.data(), static_cast<size_t>(got)});
    }
}

std::optional<std::string> RawClient::ask(const std::string &payload, uint32_t encoding) {
    const uint32_t seq = ++seq_;
    if (!send({Kind::request, seq, encoding, payload})) return std::nullopt;
    while (auto frame = receive())
        if (frame->kind == Kind::reply && frame->seq == seq) return frame->payload;
    return std::nullopt;
}

bool RawClient::enter(const std::string &name, uint32_t encoding) {
    const std::string kind = encoding == 1 ? "xml" : "json";
    const auto reply =
        ask(R"({"orvel-zam-server:register":{"name":")" + name + R"(","attribute":{"encode":")" + kind + R"("}}})");
    return reply && reply->find("session-id") != std::string::npos;
}

bool RawClient::closed_by_server(std::chrono::milliseconds deadline) {
    const auto until = std::chrono::steady_clock::now() + deadline;
    while (_wait(fd_, POLLIN, until)) {
        std::array<char, 65536> block;
        const ssize_t got = recv(fd_, block.data(), block.size(), MSG_DONTWAIT);
        if (got == 0 || (got < 0 && errno == ECONNRESET)) return true;
    }
    return false;
}

} // namespace zam::test
