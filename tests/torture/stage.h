// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// A client whose server is the suite, and a server whose client is: the bytes between the two are the suite's.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <zamc/client.h>

#include "fuzz/link.h"
#include "server.h"

namespace zam::torture {

// With a handler of every kind, which answers at once and notes what it was called with.
class ClientStage {
public:
    ClientStage();

    zamc_client *client() const { return link_.client(); }
    // Sends all of it, and lets the client run whenever no more fits.
    void write(std::string_view bytes);
    void run() { zamc_run(link_.client(), 0); }
    void discard() { link_.received(); } // what the client has sent
    // Sends a request whose reply is noted under that number, 0 to 3; its sequence number.
    uint32_t request(int number);
    // Lets the client handle what has arrived, answering each rewake as a server does; what was called and answered.
    std::string outcome();

private:
    fuzz::Link link_;
};

// The real server with an empty store, in this process.
class ServerStage {
public:
    ServerStage();
    ~ServerStage();
    ServerStage(const ServerStage &) = delete;
    ServerStage &operator=(const ServerStage &) = delete;

    void write(std::string_view bytes);
    // Lets the server work; the bytes that it has sent.
    std::string outcome();

private:
    zamd::Store store_;
    zamd::Server server_;
    int fd_;
};

} // namespace zam::torture
