// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Reading and writing. What "current" and "last" mean depends on the reader: a
// session that takes part in the running transaction sees where it leads and
// where it comes from, everyone else what is committed.
#include <charconv>
#include <memory>

#include "dispatch.h"
#include "envelope.h"
#include "publication_push.h"
#include "server.h"

namespace zamd {
namespace {

int32_t _depth(const Request &request) {
    const std::string_view text = request.leaf("depth", "-1");
    int32_t depth = all_levels;
    std::from_chars(text.data(), text.data() + text.size(), depth); // the schema has made sure of the number
    return depth;
}

View _view(const Request &request, const Standing &standing) {
    return request.leaf("version", "current") == "last" ? standing.last : standing.current;
}

} // namespace

Dispatch::Outcome Dispatch::serve_pull(const Request &request) {
    const Result<Datastore> datastore = datastore_by_name(request.leaf("datastore", "running"));
    if (!datastore) return datastore.error();
    const std::string_view entity = request.leaf("entity", "/");
    Result<Place> place = server_.store().place(entity);
    if (!place) return place.error();
    const View view = _view(request, server_.publications().standing(request.session.id()));
    if (*datastore == Datastore::operational) {
        server_.queries().pull(request.caller, {std::string{entity}, std::move(*place), _depth(request), view});
        return {};
    }
    Result<Text> data =
        server_.store().pull(*datastore, view, *place, _depth(request), format_of(request.caller.encoding));
    if (!data) return data.error();
    server_.reply(request.caller, pull_payload(entity, std::move(*data), request.caller.encoding));
    return {};
}

Dispatch::Outcome Dispatch::serve_push(const Request &request) {
    // By the schema a push that names no datastore means the operational one.
    const Result<Datastore> datastore = datastore_by_name(request.leaf("datastore", "operational"));
    if (!datastore) return datastore.error();
    const Result<Operation> operation = operation_by_name(request.leaf("operation", "merge"));
    if (!operation) return operation.error();
    const std::string_view entity = request.leaf("entity");
    if (entity.empty()) return bad_request("missing-element", "A push needs the entity that it changes.");
    if (server_.publications().holds_up(request.session.id()))
        return refusal("in-use",
                       "A change is being published and waits for this client's answer: push again after it.");
    PushRequest push{*datastore, std::string{entity}, *operation, request.inset, format_of(request.caller.encoding)};
    server_.publications().submit(std::make_unique<PushTransaction>(server_, request.caller, std::move(push)));
    return {};
}

Dispatch::Outcome Dispatch::serve_diff(const Request &request) {
    const Result<Datastore> datastore = datastore_by_name(request.leaf("datastore", "running"));
    if (!datastore) return datastore.error();
    const std::string_view entity = request.leaf("entity", "/");
    const Result<Place> place = server_.store().place(entity);
    if (!place) return place.error();
    const Standing standing =
        *datastore == Datastore::running ? server_.publications().standing(request.session.id()) : Standing{};
    Result<Diff> own = standing.replay ? server_.store().creation(*place) : Diff{};
    if (!own) return own.error();
    const Diff &diff = standing.diff != nullptr ? *standing.diff : *own;
    Result<Text> value = diff.print(*place, _depth(request), format_of(request.caller.encoding));
    if (!value) return value.error();
    server_.reply(request.caller, diff_payload(entity, std::move(*value), request.caller.encoding));
    return {};
}

Dispatch::Outcome Dispatch::serve_locate(const Request &request) {
    const Result<Datastore> datastore = datastore_by_name(request.leaf("datastore", "running"));
    if (!datastore) return datastore.error();
    const std::string_view entity = request.leaf("entity", "/");
    const Result<Place> place = server_.store().place(entity);
    if (!place) return place.error();
    const View view = _view(request, server_.publications().standing(request.session.id()));
    const Result<Neighbours> neighbours = server_.store().locate(*datastore, view, *place);
    if (!neighbours) return neighbours.error();
    server_.reply(request.caller, locate_payload(*neighbours, request.caller.encoding));
    return {};
}

} // namespace zamd
