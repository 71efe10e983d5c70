// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#ifndef ZAMD_DISPATCH_H
#define ZAMD_DISPATCH_H

#include <optional>
#include <string>
#include <string_view>

#include <libyang/libyang.h>

#include "error.h"
#include "frame.h"
#include "reply.h"
#include "tree.h"

namespace zamd {

class Server;
class Session;

// A request of this server's own protocol.
struct Request {
    Session &session;
    Caller caller;
    const lyd_node *operation;
    std::string inset; // what its anydata carries, byte for byte

    // The value of a child leaf, or the other one when it is absent.
    std::string_view leaf(const char *name, std::string_view otherwise = {}) const;
    const lyd_node *child(const char *name) const;
};

// From a request frame to whoever serves it. A handler either replies or hands
// the caller on; an error that it returns becomes the reply.
class Dispatch {
public:
    explicit Dispatch(Server &server) : server_(server) {}

    void request(Session &session, const Frame &frame);

    // What the handlers return.
    using Outcome = Result<void>;
    using Handler = Outcome (Dispatch::*)(const Request &);

    // Sessions and subscriptions
    Outcome serve_register(const Request &request);
    Outcome serve_subscribe(const Request &request);
    Outcome serve_unsubscribe(const Request &request);
    Outcome serve_activate(const Request &request);
    Outcome serve_deactivate(const Request &request);
    Outcome serve_verify(const Request &request);
    Outcome serve_notify(const Request &request);

    // Data
    Outcome serve_pull(const Request &request);
    Outcome serve_push(const Request &request);
    Outcome serve_diff(const Request &request);
    Outcome serve_locate(const Request &request);

private:
    Outcome take(Session &session, const Caller &caller, std::string_view payload);
    Outcome change_subscriptions(const Request &request, bool add);
    Outcome forward_appinfo(const Request &request);

    Server &server_;
};

} // namespace zamd

#endif
