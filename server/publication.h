// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#ifndef ZAMD_PUBLICATION_H
#define ZAMD_PUBLICATION_H

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "session.h"
#include "store.h"
#include "subscription.h"
#include "timers.h"

namespace zamd {

class Server;

enum class Scene { normal, rollback, replay };

// The text of a `publish` request.
struct PublishText {
    SubType type = SubType::config_change;
    uint32_t from_session = 0; // on whose behalf
    Scene scene = Scene::normal;
    std::string_view target;
    const Subscription *subscription = nullptr;
    What what = What::updated; // config changes only, as is `more`
    bool more = false;
    std::string_view content; // operations only
    Format format = Format::json;

    std::string print() const;
};

// One thing that one subscriber is told about a change.
struct Publication {
    enum class State {
        waiting, // not sent
        told,    // sent, its answer does not matter
        asked,   // sent, not answered
        agreed,
        refused, // or not answered in time, or the connection is gone
        undone   // told of the rollback
    };

    uint32_t session = 0;
    SubscriptionPtr subscription;
    std::string target;
    What what = What::updated;
    bool more = false;
    State state = State::waiting;
    uint32_t seq = 0; // of the request that is out
};

What inverse(What what);

// "Client 'x' refused the change of /a:b: its own words", or whatever else came in place of its consent.
Error answer_failure(const std::string &client, const std::string &what, const Answer &answer,
                     std::chrono::milliseconds limit);

// Publications that are out together. Each session has a lane of its own: it is
// fed no faster than it reads, and it has the time limit anew after each answer,
// since it works on one publication after the other. A session that runs out of
// time, or is gone, fails once for all that is in its lane.
//
// The handler is the last thing that happens to an answer, so it may abandon
// the round or start it again.
class Round {
public:
    using Handler = std::function<void(Publication &, const Answer &, bool last)>;

    explicit Round(Server &server) : server_(server) {}
    ~Round() { abandon(); }
    Round(const Round &) = delete;
    Round &operator=(const Round &) = delete;

    void run(const std::vector<Publication *> &publications, Scene scene, uint32_t from_session, Handler handler);
    // No answer is waited for any more. What was not sent stays `waiting`.
    void abandon();
    bool waits_for(uint32_t session) const { return lanes_.contains(session); }

private:
    struct Lane {
        std::deque<Publication *> unsent;
        std::set<Publication *> asked; // in the order of their list
        Timers::Id limit = 0;
    };

    void feed(uint32_t session);
    void ask(Session &session, Lane &lane, Publication &publication);
    void restart_limit(uint32_t session, Lane &lane);
    void answered(Publication &publication, const Answer &answer);
    void fail(uint32_t session, Answer::Kind kind);
    void leave(uint32_t session, Lane &lane);

    Server &server_;
    std::map<uint32_t, Lane> lanes_;
    Scene scene_ = Scene::normal;
    uint32_t from_session_ = 0;
    Handler handler_;
};

} // namespace zamd

#endif
