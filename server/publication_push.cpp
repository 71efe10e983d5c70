// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
//   preparing -> publishing -> committing -> settled
//                    |  ^          |
//                    |  next group | (the file cannot be written)
//                    v             v
//                rolling_back ---------------> settled
//
// A step returns the phase to go to, or its own to wait for answers. Groups of
// one priority are asked together, lowest number first; a rollback goes through
// them in the reverse order.
//
// The caller hears of a failure when the rollback is over, so that whoever sees
// the error finds everything settled. Subscribers that had been asked but had not
// answered when another one refused are told of the rollback too, as they may
// have acted already; but nothing waits for them, nor for one that has let its
// time run out once.
//
// The pusher's own subscriptions are told but not asked: it may be waiting for the
// reply to this very push before it handles anything, and it wants the change.
//
// What a subscriber agreed to is undone whatever its filter mask holds: it has
// acted on it.
#include "publication_push.h"

#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include <zamc/logger.h>

#include "envelope.h"
#include "log.h"
#include "server.h"

namespace zamd {
namespace {

using State = Publication::State;

// `more` says whether the same subscription has more to tell.
void _mark_more(const std::vector<Publication *> &publications) {
    std::set<const Subscription *> later;
    for (auto publication = publications.rbegin(); publication != publications.rend(); ++publication)
        (*publication)->more = !later.insert((*publication)->subscription.get()).second;
}

} // namespace

PushTransaction::PushTransaction(Server &server, Caller caller, PushRequest request)
    : server_(server), caller_(caller), request_(std::move(request)), round_(server) {}

void PushTransaction::start() {
    go(Phase::preparing);
}

void PushTransaction::refuse(const Error &error) {
    server_.reply_error(caller_, error);
}

void PushTransaction::go(Phase phase) {
    static constexpr std::array<Step, 5> steps{&PushTransaction::prepare, &PushTransaction::publish,
                                               &PushTransaction::commit, &PushTransaction::roll_back,
                                               &PushTransaction::settle};
    for (;;) {
        phase_ = phase;
        phase = (this->*steps[static_cast<size_t>(phase_)])();
        if (phase == phase_) return;
    }
}

PushTransaction::Phase PushTransaction::prepare() {
    if (caller_.session != 0 && server_.session(caller_.session) == nullptr) {
        zam_log_printf(ZAM_LOG_INFO, "Dropped a push of session %u, which is gone.\n", caller_.session);
        return Phase::settled;
    }
    Result<Change> change = server_.store().prepare(request_);
    if (!change) {
        failure_ = change.error();
        return Phase::settled;
    }
    change_.emplace(std::move(*change));
    if (!change_->publishes()) return Phase::committing;
    collect();
    return Phase::publishing;
}

void PushTransaction::collect() {
    for (const Session *session : server_.sessions()) {
        for (const SubscriptionPtr &subscription : session->subscriptions.all()) {
            if (subscription->type != SubType::config_change || !subscription->active()) continue;
            if ((subscription->mask & scene_normal) == 0) continue;
            const size_t before = publications_.size();
            for (Touched &touched : change_->forward().touched(subscription->place)) {
                if ((subscription->mask & static_cast<uint32_t>(touched.what)) == 0) continue;
                publications_.push_back(
                    {session->id(), subscription, std::move(touched.path), touched.what, true, State::waiting, 0});
            }
            if (publications_.size() > before) publications_.back().more = false;
        }
    }
    std::stable_sort(publications_.begin(), publications_.end(), [](const Publication &a, const Publication &b) {
        return a.subscription->priority < b.subscription->priority;
    });
}

PushTransaction::Phase PushTransaction::publish() {
    std::vector<Publication *> group;
    for (Publication &publication : publications_) {
        if (publication.state != State::waiting || !publication.subscription->active()) continue;
        if (!group.empty() && publication.subscription->priority != group.front()->subscription->priority) break;
        if (publication.session == caller_.session)
            tell(publication, Scene::normal);
        else
            group.push_back(&publication);
    }
    if (group.empty()) return Phase::committing;
    for (const Publication *publication : group)
        parts_[publication->session] = Part::forward;
    round_.run(
        group, Scene::normal, caller_.session,
        [this](Publication &publication, const Answer &answer, bool last) { on_verdict(publication, answer, last); });
    return Phase::publishing;
}

// Sends a publication that nothing waits for.
void PushTransaction::tell(Publication &publication, Scene scene) {
    const bool undoing = scene == Scene::rollback;
    publication.state = undoing ? State::undone : State::told;
    parts_[publication.session] = undoing ? Part::back : Part::forward;
    Session *session = server_.session(publication.session);
    if (session == nullptr) return;
    const SubscriptionPtr subscription = publication.subscription;
    subscription->consistent = false; // until it says that it agrees
    PublishText text;
    text.from_session = caller_.session;
    text.scene = scene;
    text.target = publication.target;
    text.subscription = subscription.get();
    text.what = undoing ? inverse(publication.what) : publication.what;
    text.more = publication.more;
    text.format = format_of(session->profile().encode);
    session->ask(text.print(), caller_.session, [subscription](const Answer &answer) {
        subscription->consistent = answer.kind == Answer::Kind::agreed || answer.kind == Answer::Kind::output;
    });
}

void PushTransaction::on_verdict(Publication &publication, const Answer &answer, bool last) {
    if (answer.kind == Answer::Kind::agreed || answer.kind == Answer::Kind::output) {
        publication.state = State::agreed;
        publication.subscription->consistent = true;
        if (last) go(Phase::publishing);
        return;
    }
    // Who refuses has not acted; what the others did, nobody knows.
    if (answer.kind != Answer::Kind::refused) publication.subscription->consistent = false;
    publication.state = State::refused;
    parts_.erase(publication.session);
    failure_ = answer_failure(server_.name_of(publication.session), "the change of " + publication.target, answer,
                              server_.limits().answer);
    failure_->path = publication.target;
    zam_log_printf(ZAM_LOG_NOTICE, "The push of session %u is taken back: %s\n", caller_.session,
                   log_text(failure_->message).c_str());
    round_.abandon();
    undo_unawaited(answer.kind == Answer::Kind::timed_out ? publication.session : 0);
    go(Phase::rolling_back);
}

void PushTransaction::undo_unawaited(uint32_t silent_session) {
    std::vector<Publication *> unawaited;
    for (auto publication = publications_.rbegin(); publication != publications_.rend(); ++publication) {
        const bool silent = publication->session == silent_session && publication->state == State::agreed;
        if (silent || publication->state == State::asked || publication->state == State::told)
            unawaited.push_back(&*publication);
    }
    _mark_more(unawaited);
    for (Publication *publication : unawaited)
        tell(*publication, Scene::rollback);
}

PushTransaction::Phase PushTransaction::roll_back() {
    std::vector<Publication *> group;
    for (auto publication = publications_.rbegin(); publication != publications_.rend(); ++publication) {
        if (publication->state != State::agreed) continue;
        if (!group.empty() && publication->subscription->priority != group.front()->subscription->priority) break;
        group.push_back(&*publication);
    }
    if (group.empty()) return Phase::settled;
    _mark_more(group);
    for (const Publication *publication : group)
        parts_[publication->session] = Part::back;
    round_.run(
        group, Scene::rollback, caller_.session,
        [this](Publication &publication, const Answer &answer, bool last) { on_undone(publication, answer, last); });
    return Phase::rolling_back;
}

void PushTransaction::on_undone(Publication &publication, const Answer &answer, bool last) {
    if (answer.kind != Answer::Kind::agreed && answer.kind != Answer::Kind::output) {
        publication.subscription->consistent = false;
        const Error error = answer_failure(server_.name_of(publication.session),
                                           "the rollback of " + publication.target, answer, server_.limits().answer);
        zam_log_printf(ZAM_LOG_WARN, "%s\n", log_text(error.message).c_str());
    }
    // A lane that failed as a whole left others as they were; they are not tried again.
    if (answer.kind == Answer::Kind::lost || answer.kind == Answer::Kind::timed_out)
        for (Publication &other : publications_)
            if (other.session == publication.session && other.state == State::agreed) {
                other.state = State::undone;
                other.subscription->consistent = false;
            }
    publication.state = State::undone;
    if (last) go(Phase::rolling_back);
}

PushTransaction::Phase PushTransaction::commit() {
    if (Result<void> committed = server_.store().commit(*change_); !committed) {
        failure_ = committed.error();
        zam_log_printf(ZAM_LOG_WRONG, "The push of session %u cannot be committed: %s\n", caller_.session,
                       log_text(failure_->message).c_str());
        return Phase::rolling_back;
    }
    return Phase::settled;
}

PushTransaction::Phase PushTransaction::settle() {
    change_.reset();
    if (failure_)
        server_.reply_error(caller_, *failure_);
    else
        server_.reply(caller_, {});
    done();
    return Phase::settled;
}

std::optional<Standing> PushTransaction::standing(uint32_t session) const {
    const auto part = parts_.find(session);
    if (part == parts_.end()) return std::nullopt;
    // Once a session hears of the rollback, the candidate is what it comes from.
    if (part->second == Part::back) return Standing{View::committed, View::candidate, &change_->inverse()};
    return Standing{View::candidate, View::committed, &change_->forward()};
}

} // namespace zamd
