// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// A client that is nothing but a socket: it can say what the library never would.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "support/frames.h"

namespace zam::test {

class RawClient {
public:
    static constexpr std::chrono::milliseconds patience = std::chrono::seconds{10};

    explicit RawClient(const std::string &url); // unix://PATH; fails the test when it cannot connect
    ~RawClient();
    RawClient(const RawClient &) = delete;
    RawClient &operator=(const RawClient &) = delete;

    int fd() const { return fd_; }
    // Whether all of it went out; false once the server has closed the connection, or took nothing for so long.
    bool send(std::string_view bytes);
    bool send(const Frame &frame) { return send(encode(frame)); }
    // The next frame; none by the deadline or once the connection ended.
    std::optional<Frame> receive(std::chrono::milliseconds deadline = patience);
    // Sends a request and returns the payload of the reply to it, whatever else arrives before.
    std::optional<std::string> ask(const std::string &payload, uint32_t encoding = 2);
    // Registers under that name; false unless the server gave a session.
    bool enter(const std::string &name, uint32_t encoding = 2);
    bool closed_by_server(std::chrono::milliseconds deadline = patience); // reads what is left until the end

private:
    int fd_ = -1;
    uint32_t seq_ = 0;
    Decoder decoder_;
};

} // namespace zam::test
