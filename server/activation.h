// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#ifndef ZAMD_ACTIVATION_H
#define ZAMD_ACTIVATION_H

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "error.h"
#include "timers.h"

namespace zamd {

class Server;
class Session;

// From `activate` to its finish: a replay waits for the clients that the session
// depends on, then for its turn among the transactions.
class Activations {
public:
    explicit Activations(Server &server) : server_(server) {}

    // An error leaves everything as it was; the caller answers before what follows goes out.
    Result<void> may_activate(const Session &session) const;
    void activate(Session &session, bool replay);
    void deactivate(Session &session);

    void registered(const Session &session);
    void session_closed(const Session &session);

private:
    enum class Phase { waiting, replaying };

    struct Activation {
        uint64_t number; // tells it from a later one of the same session
        Phase phase;
        Timers::Id patience;
    };

    void consider(uint32_t session);
    void consider_all();
    bool must_wait(const Session &session) const;
    bool waits_for(const Session &session, const std::string &name, int hops) const;
    void replay(uint32_t session);
    void finish(uint32_t session, uint64_t number);
    void give_up_on(const std::string &name);

    Server &server_;
    std::map<uint32_t, Activation> open_;
    std::set<uint32_t> finished_;                     // sessions that were activated since they registered
    std::map<std::string, Timers::Id> expected_back_; // clients that are away within their deadline
    uint64_t last_number_ = 0;
};

} // namespace zamd

#endif
