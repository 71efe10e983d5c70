// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
//   activate direct ------------------------------------> finish
//   activate replay -> waiting --(nobody to wait for)--> replaying -> finish
//                         |  \___(patience ends)________/   |
//                         +--- deactivate, connection ends -+--> forgotten
//
// A session waits for each client it depends on that is connected, or away but
// within the deadline that it announced, and that has not finished an activation
// since it registered. Clients that wait for each other do not; and nobody is
// waited for longer than a client may take to answer.
#include "activation.h"

#include <algorithm>
#include <utility>

#include <zamc/logger.h>

#include "envelope.h"
#include "log.h"
#include "publication_replay.h"
#include "server.h"

namespace zamd {
namespace {

constexpr size_t most_expected = 1024; // clients that are away
constexpr int most_hops = 8;           // of dependencies that are followed when looking for a circle

void _notify(Session &session, const char *operation) {
    const std::string name{operation};
    const bool xml = format_of(session.profile().encode) == Format::xml;
    std::string text = xml ? "<" + name + " xmlns=\"" + std::string{client_namespace} + "\"/>"
                           : "{\"" + std::string{client_module} + ":" + name + "\":{}}";
    session.ask(std::move(text), 0, [label = session.label(), name](const Answer &answer) {
        if (answer.kind == Answer::Kind::refused)
            zam_log_printf(ZAM_LOG_WARN, "%s refused %s: %s\n", label.c_str(), name.c_str(),
                           log_text(answer.message).c_str());
    });
}

} // namespace

Result<void> Activations::may_activate(const Session &session) const {
    if (!open_.contains(session.id())) return {};
    return refusal("in-use", "An activation of this session is still under way.");
}

void Activations::activate(Session &session, bool replay) {
    bool anything_to_replay = false;
    for (const SubscriptionPtr &subscription : session.subscriptions.all()) {
        if (subscription->active() && !subscription->fresh) continue;
        subscription->fresh = false;
        if (replay && subscription->type == SubType::config_change) {
            subscription->activating = true;
            anything_to_replay = true;
            continue;
        }
        subscription->state = Subscription::State::active;
        // What stands at the target already is told to nobody.
        if (subscription->type == SubType::config_change)
            subscription->consistent = server_.store().instances(subscription->place).empty();
    }
    const uint64_t number = ++last_number_;
    open_[session.id()] = {number, Phase::waiting, 0};
    if (anything_to_replay)
        consider(session.id());
    else
        finish(session.id(), number);
}

void Activations::deactivate(Session &session) {
    session.subscriptions.deactivate();
    if (const auto found = open_.find(session.id()); found != open_.end()) {
        server_.timers().cancel(found->second.patience);
        open_.erase(found);
    }
    finished_.erase(session.id());
    _notify(session, "notify-deactivate-finish");
}

void Activations::registered(const Session &session) {
    const auto found = expected_back_.find(session.profile().name);
    if (found == expected_back_.end()) return;
    server_.timers().cancel(found->second);
    expected_back_.erase(found);
}

void Activations::session_closed(const Session &session) {
    if (const auto found = open_.find(session.id()); found != open_.end()) {
        server_.timers().cancel(found->second.patience);
        open_.erase(found);
    }
    finished_.erase(session.id());
    if (!session.registered()) return;
    const Profile &profile = session.profile();
    if (profile.deadline.count() > 0 && expected_back_.size() < most_expected) {
        Timers::Id &timer = expected_back_[profile.name];
        server_.timers().cancel(timer);
        timer = server_.timers().after(profile.deadline, [this, name = profile.name] { give_up_on(name); });
    }
    consider_all();
}

void Activations::give_up_on(const std::string &name) {
    zam_log_printf(ZAM_LOG_NOTICE, "Client '%s' did not come back within its deadline.\n", log_text(name).c_str());
    expected_back_.erase(std::string{name});
    consider_all();
}

void Activations::consider_all() {
    std::vector<uint32_t> waiting;
    for (const auto &[session, activation] : open_)
        if (activation.phase == Phase::waiting) waiting.push_back(session);
    for (const uint32_t session : waiting)
        consider(session);
}

void Activations::consider(uint32_t id) {
    const Session *session = server_.session(id);
    const auto found = open_.find(id);
    if (session == nullptr || found == open_.end() || found->second.phase != Phase::waiting) return;
    if (!must_wait(*session)) return replay(id);
    if (found->second.patience != 0) return;
    found->second.patience = server_.timers().after(server_.limits().answer, [this, id] {
        zam_log_printf(ZAM_LOG_WARN, "Replay of '%s' waits no longer for the clients it depends on.\n",
                       log_text(server_.name_of(id)).c_str());
        replay(id);
    });
}

bool Activations::must_wait(const Session &session) const {
    const std::vector<std::string> &names = session.profile().dependent_clients;
    return std::any_of(names.begin(), names.end(), [&](const std::string &name) {
        if (name == session.profile().name) return false;
        if (expected_back_.contains(name)) return true;
        for (const Session *other : server_.sessions())
            if (other->profile().name == name && !finished_.contains(other->id()) &&
                !waits_for(*other, session.profile().name, most_hops))
                return true;
        return false;
    });
}

// Directly or through others.
bool Activations::waits_for(const Session &session, const std::string &name, int hops) const {
    if (hops == 0) return false;
    const std::vector<std::string> &names = session.profile().dependent_clients;
    return std::any_of(names.begin(), names.end(), [&](const std::string &dependency) {
        if (dependency == name) return true;
        for (const Session *other : server_.sessions())
            if (other->profile().name == dependency && waits_for(*other, name, hops - 1)) return true;
        return false;
    });
}

void Activations::replay(uint32_t id) {
    const auto found = open_.find(id);
    if (found == open_.end()) return;
    server_.timers().cancel(found->second.patience);
    found->second.phase = Phase::replaying;
    const uint64_t number = found->second.number;
    server_.publications().submit(
        std::make_unique<ReplayTransaction>(server_, id, [this, id, number] { finish(id, number); }));
}

void Activations::finish(uint32_t id, uint64_t number) {
    const auto found = open_.find(id);
    if (found == open_.end() || found->second.number != number) return;
    open_.erase(found);
    Session *session = server_.session(id);
    if (session == nullptr) return;
    finished_.insert(id);
    _notify(*session, "notify-activate-finish");
    consider_all();
}

} // namespace zamd
