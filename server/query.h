// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#ifndef ZAMD_QUERY_H
#define ZAMD_QUERY_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "reply.h"
#include "session.h"
#include "store.h"
#include "timers.h"

namespace zamd {

class Server;

// Pulls of the operational datastore: every provider of state that meets the
// selection is asked at once; the first failure fails the pull.
class Queries {
public:
    explicit Queries(Server &server) : server_(server) {}

    struct Selection {
        std::string entity; // as the caller wrote it
        Place place;
        int32_t depth = all_levels;
        View view = View::committed;
    };

    void pull(const Caller &caller, Selection selection);

private:
    struct Asked {
        uint32_t session;
        uint32_t seq;
        Timers::Id limit;
    };
    struct Query {
        Caller caller;
        Selection selection;
        std::map<size_t, Asked> asked; // by the place of its answer
        std::vector<StateAnswer> answers;
    };

    void ask(uint64_t id, Query &query, Session &provider, const Subscription &subscription);
    void answered(uint64_t id, size_t place, const Answer &answer);
    void conclude(Query &query);
    void fail(uint64_t id, const Error &error);

    Server &server_;
    std::map<uint64_t, Query> open_;
    uint64_t last_id_ = 0;
};

} // namespace zamd

#endif
