// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// A client whose server is the input: connected and registered, with the other end of its connection in hand.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include <zamc/client.h>

namespace zam::fuzz {

class Link {
public:
    // Subscribed and activated, too, if there is something to subscribe.
    explicit Link(std::span<const zamc_sub_node> subscriptions = {});
    ~Link();
    Link(const Link &) = delete;
    Link &operator=(const Link &) = delete;

    zamc_client *client() const { return client_; }
    // Sends a frame to the client.
    void send(uint32_t type, uint32_t seq, uint32_t encoding, std::string_view payload);
    // Sends bytes as they are; returns how many the socket's buffer took.
    size_t write(std::string_view bytes);
    // What the client has sent since the last call.
    std::string received();
    // Lets the client handle all that is there.
    void settle();

private:
    zamc_client *client_;
    int peer_;
};

// A record of an input as a frame: its kind, whether XML or JSON, and the payload.
struct Record {
    explicit Record(const std::string &text);
    uint32_t type;
    uint32_t seq;
    uint32_t encoding;
    std::string payload;
};

} // namespace zam::fuzz
