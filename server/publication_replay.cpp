// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "publication_replay.h"

#include <algorithm>
#include <utility>

#include <zamc/logger.h>

#include "log.h"
#include "server.h"

namespace zamd {
namespace {

using State = Publication::State;

} // namespace

ReplayTransaction::ReplayTransaction(Server &server, uint32_t session, std::function<void()> finished)
    : server_(server), session_(session), finished_(std::move(finished)), round_(server) {}

void ReplayTransaction::start() {
    Session *session = server_.session(session_);
    if (session == nullptr) return finish();
    collect(*session);
    next_group();
}

void ReplayTransaction::collect(Session &session) {
    for (const SubscriptionPtr &subscription : session.subscriptions.all()) {
        if (subscription->type != SubType::config_change || !subscription->activating) continue;
        subscription->activating = false;
        subscription->state = Subscription::State::active;
        subscription->consistent = true;
        for (std::string &path : server_.store().instances(subscription->place))
            publications_.push_back({session_, subscription, std::move(path), What::created, true, State::waiting, 0});
        if (!publications_.empty()) publications_.back().more = false;
    }
    std::stable_sort(publications_.begin(), publications_.end(), [](const Publication &a, const Publication &b) {
        return a.subscription->priority < b.subscription->priority;
    });
}

void ReplayTransaction::next_group() {
    std::vector<Publication *> group;
    for (Publication &publication : publications_) {
        if (publication.state != State::waiting || !publication.subscription->active()) continue;
        if (!group.empty() && publication.subscription->priority != group.front()->subscription->priority) break;
        group.push_back(&publication);
    }
    if (group.empty()) return finish();
    round_.run(group, Scene::replay, session_, [this](Publication &publication, const Answer &answer, bool last) {
        on_answer(publication, answer, last);
    });
}

void ReplayTransaction::on_answer(Publication &publication, const Answer &answer, bool last) {
    const bool agreed = answer.kind == Answer::Kind::agreed || answer.kind == Answer::Kind::output;
    publication.state = agreed ? State::agreed : State::refused;
    if (!agreed) {
        publication.subscription->consistent = false;
        const Error error = answer_failure(server_.name_of(session_), "the replay of " + publication.target, answer,
                                           server_.limits().answer);
        zam_log_printf(ZAM_LOG_WARN, "%s\n", log_text(error.message).c_str());
    }
    // What exists cannot be vetoed, so a refusal does not keep the rest back. A client that does not answer at all
    // would keep everyone else waiting, one time limit after the other.
    if (answer.kind == Answer::Kind::lost || answer.kind == Answer::Kind::timed_out) {
        for (Publication &other : publications_)
            if (other.state == State::waiting || other.state == State::asked) other.subscription->consistent = false;
        return finish();
    }
    if (last) next_group();
}

void ReplayTransaction::finish() {
    if (is_done()) return;
    done();
    finished_();
}

std::optional<Standing> ReplayTransaction::standing(uint32_t session) const {
    if (session != session_) return std::nullopt;
    return Standing{View::committed, View::committed, nullptr, true};
}

} // namespace zamd
