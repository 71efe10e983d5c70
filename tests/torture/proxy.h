// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// A relay between a client and a server that ends the connection, or falls silent, after a given number of bytes.
#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>

#include <sys/types.h>

#include "support/files.h"

namespace zam::torture {

enum Direction { to_server, to_client };

enum class Death {
    none,    // relays everything
    fin,     // both sides see the end of the stream
    rst,     // both sides see a reset; a unix socket has no reset and sees an end
    half,    // the receiver of the direction sees the end, the other direction goes on
    silence, // nothing passes any more, and nothing tells so
    kill     // the server is killed
};

struct Plan {
    Direction direction = to_client;
    uint64_t bytes = 0; // that pass in this direction before it happens
    Death death = Death::none;
};

class Proxy {
public:
    explicit Proxy(std::string server_path);
    ~Proxy();
    Proxy(const Proxy &) = delete;
    Proxy &operator=(const Proxy &) = delete;

    std::string unix_url() const { return "unix://" + dir_.path("proxy"); }
    std::string tcp_url() const { return "127.0.0.1:" + std::to_string(port_); }

    void plan(Plan plan); // for the next connection; those after it are relayed
    void on_kill(std::function<void()> kill) { kill_ = std::move(kill); }
    bool happened() const { return happened_; }                                 // what was planned
    uint64_t relayed(Direction direction) const { return relayed_[direction]; } // by the connection of the plan
    void close_all();                                                           // and waits until they are closed
    void settle(); // waits until all that has arrived at the proxy has had its consequences

private:
    struct Link {
        std::array<int, 2> fd;                // where bytes of each direction go: [to_server], [to_client]
        std::array<bool, 2> open{true, true}; // the sender of this direction has not ended
        std::array<bool, 2> passes{true, true};
        std::array<uint64_t, 2> relayed{};
        Plan plan;
        bool planned = false;
        bool silent = false;
        bool done = false;
    };

    void run();
    void wait_for_thread(bool closes);
    void accept_from(int listener);
    void relay(Link &link, Direction direction);
    void strike(Link &link);
    static void close_link(Link &link);

    test::TempDir dir_;
    std::string server_path_;
    std::array<int, 2> listeners_{-1, -1};
    int port_ = 0;
    int wake_ = -1;
    std::function<void()> kill_;
    std::list<Link> links_; // the thread's alone
    std::mutex mutex_;
    std::condition_variable changed_;
    Plan plan_;
    bool plan_waits_ = false;
    bool close_wanted_ = false;
    bool round_wanted_ = false;
    std::atomic<bool> stopping_ = false;
    std::atomic<bool> happened_ = false;
    std::array<std::atomic<uint64_t>, 2> relayed_{};
    std::thread thread_;
};

} // namespace zam::torture
