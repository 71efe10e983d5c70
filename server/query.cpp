// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "query.h"

#include <utility>

#include "envelope.h"
#include "publication.h"
#include "server.h"

namespace zamd {

void Queries::pull(const Caller &caller, Selection selection) {
    const uint64_t id = ++last_id_;
    Query &query = open_[id];
    query.caller = caller;
    query.selection = std::move(selection);
    const Session *asker = server_.session(caller.session);
    for (Session *provider : server_.sessions()) {
        for (const SubscriptionPtr &subscription : provider->subscriptions.all()) {
            if (subscription->type != SubType::status_query || !subscription->active()) continue;
            if (!subscription->place.meets(query.selection.place)) continue;
            if (provider == asker && asker->owes_answer())
                return fail(id, refusal("in-use",
                                        "This client provides " + subscription->target +
                                            " itself and cannot be asked for it from inside one of its handlers.",
                                        subscription->target));
            if (provider->overloaded())
                return fail(id, refusal("resource-denied",
                                        "Client '" + provider->profile().name + "' has too much to answer already.",
                                        subscription->target));
            ask(id, query, *provider, *subscription);
        }
    }
    if (!query.asked.empty()) return;
    conclude(query);
    open_.erase(id);
}

void Queries::ask(uint64_t id, Query &query, Session &provider, const Subscription &subscription) {
    PublishText text;
    text.type = SubType::status_query;
    text.from_session = query.caller.session;
    text.target = subscription.target;
    text.subscription = &subscription;
    text.format = format_of(provider.profile().encode);

    const size_t place = query.answers.size();
    query.answers.push_back({provider.profile().name, subscription.target, {}, text.format});
    Asked &asked = query.asked[place];
    asked.session = provider.id();
    asked.seq = provider.ask(text.print(), query.caller.session,
                             [this, id, place](const Answer &answer) { answered(id, place, answer); });
    asked.limit = server_.timers().after(server_.limits().answer, [this, id, place] {
        answered(id, place, {Answer::Kind::timed_out, {}, {}, ZAM_ENCODE_JSON, {}});
    });
}

void Queries::answered(uint64_t id, size_t place, const Answer &answer) {
    const auto found = open_.find(id);
    if (found == open_.end()) return;
    Query &query = found->second;
    StateAnswer &state = query.answers[place];
    if (answer.kind != Answer::Kind::agreed && answer.kind != Answer::Kind::output) {
        Error error = answer_failure(state.provider, "the query of " + state.target, answer, server_.limits().answer);
        error.path = state.target;
        return fail(id, error);
    }
    Result<std::string> data = answer_data(answer);
    if (!data) {
        Error error = data.error();
        error.message = "The answer of client '" + state.provider + "' to the query of " + state.target +
                        " cannot be used: " + error.message;
        return fail(id, error);
    }
    state.text = std::move(*data);
    state.format = format_of(answer.encoding);
    const auto asked = query.asked.find(place);
    server_.timers().cancel(asked->second.limit);
    query.asked.erase(asked);
    if (!query.asked.empty()) return;
    conclude(query);
    open_.erase(found);
}

void Queries::conclude(Query &query) {
    const Selection &selection = query.selection;
    std::erase_if(query.answers, [](const StateAnswer &answer) { return answer.text.empty() || answer.text == "{}"; });
    Result<Text> data = server_.store().pull_operational(selection.view, selection.place, selection.depth,
                                                         format_of(query.caller.encoding), query.answers);
    if (!data) return server_.reply_error(query.caller, data.error());
    server_.reply(query.caller, pull_payload(selection.entity, std::move(*data), query.caller.encoding));
}

void Queries::fail(uint64_t id, const Error &error) {
    const auto found = open_.find(id);
    for (auto &[place, asked] : found->second.asked) {
        server_.timers().cancel(asked.limit);
        server_.forget(asked.session, asked.seq);
    }
    server_.reply_error(found->second.caller, error);
    open_.erase(found);
}

} // namespace zamd
