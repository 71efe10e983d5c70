// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// A client of the server, and one request with its answer.
#pragma once

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include <zamc/zamc.h>

#include "options.h"

namespace zamctl {

// Ends a command with its exit code and what to tell the user.
struct Failure : std::runtime_error {
    Failure(Exit exit_code, const std::string &text) : std::runtime_error{text}, code{exit_code} {}
    Exit code;
};

template <auto Free>
struct Deleter {
    template <typename T>
    void operator()(T *object) const {
        Free(object);
    }
};
template <typename T, auto Free>
using Owned = std::unique_ptr<T, Deleter<Free>>;
using Client = Owned<zamc_client, zamc_client_free>;
using Tree = Owned<lyd_node, zam_lyd_tree_destroy>;
using Bytes = Owned<zamc_bytes, zamc_free_bytes>;
using Text = Owned<char, zam_free>;

struct Reply {
    bool arrived = false;
    uint32_t encoding = 0;
    std::string text;
};

class Connection {
public:
    Connection(const Options &options, const char *name); // connects and registers, or throws Failure

    zamc_client *client() const { return client_.get(); }
    int fd() const { return fd_; }

    // The answer's text; throws Failure when it is an error, does not come in time, or the connection is lost. Text
    // that the application prints at the operator's terminal meanwhile goes to stderr.
    std::string exchange(lyd_node *request, uint32_t encoding);
    std::string exchange(const std::string &payload, uint32_t encoding);

    // Handles what has arrived; waits for it at most so long. False when the connection is lost.
    bool turn(int timeout_ms);

private:
    const Options &options_;
    Reply reply_; // outlives the client, which may still write to it when a command gives up
    Client client_;
    int fd_ = -1;
};

// The configured name of a datastore: "running" for "ietf-datastores:running".
std::string datastore_name(const std::string &name);
// An argument, or what standard input holds where the argument is "-".
std::string read_argument(const std::string &argument);
// The normal form of a path; throws Failure for one that does not parse.
std::string checked_path(const std::string &path);

} // namespace zamctl
