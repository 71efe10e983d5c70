// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#ifndef ZAMD_OPERATION_H
#define ZAMD_OPERATION_H

#include <cstdint>
#include <map>
#include <string>

#include <libyang/libyang.h>

#include "reply.h"
#include "session.h"
#include "timers.h"

namespace zamd {

class Server;

// RPCs and actions of application modules: each goes to the client that
// subscribed to its schema path, whose answer becomes the caller's reply.
class Operations {
public:
    explicit Operations(Server &server) : server_(server) {}

    // `tree` holds the request from its top, `operation` is its RPC or action node.
    void call(const Caller &caller, Tree tree, lyd_node *operation);

private:
    struct Call {
        Caller caller;
        std::string path; // the operation's schema path
        Tree request;     // the way down to the operation, which is empty
        std::string provider;
        uint32_t session = 0;
        uint32_t seq = 0;
        Timers::Id limit = 0;
    };

    Session *find_provider(const std::string &path, const Place &place, SubscriptionPtr &subscription) const;
    void answered(uint64_t id, const Answer &answer);
    void conclude(const Call &call, const Answer &answer);

    Server &server_;
    std::map<uint64_t, Call> open_;
    uint64_t last_id_ = 0;
};

} // namespace zamd

#endif
