// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "operation.h"

#include <utility>

#include <zamc/logger.h>
#include <zamc/yang_module.h>

#include "envelope.h"
#include "publication.h"
#include "server.h"
#include "text.h"

namespace zamd {
namespace {

std::string _data_path(const lyd_node *node) {
    char *path = lyd_path(node, LYD_PATH_STD, nullptr, 0);
    const Text text{path};
    return std::string{text.view()};
}

// The nodes below the operation as `content` carries them.
std::string _print_children(const lyd_node *operation, Format format) {
    const lyd_node *first = lyd_child(operation);
    if (first == nullptr) return format == Format::json ? "{}" : "";
    char *printed = nullptr;
    lyd_print_mem(&printed, first, static_cast<LYD_FORMAT>(format), LYD_PRINT_WITHSIBLINGS | LYD_PRINT_SHRINK);
    const Text text{printed};
    return std::string{text.view()};
}

// The request's way down to the operation with `output` put into it, as a reply. Only the operation itself is empty
// there, so the last empty node of the text is the place.
std::string _wrap(const Tree &request, std::string_view output, Format format) {
    char *printed = nullptr;
    lyd_print_mem(&printed, request.root, static_cast<LYD_FORMAT>(format),
                  LYD_PRINT_WITHSIBLINGS | LYD_PRINT_SHRINK | LYD_PRINT_KEEPEMPTYCONT);
    const Text printed_text{printed};
    std::string text{printed_text.view()};
    const std::string_view empty = format == Format::json ? "{}" : "/>";
    const size_t at = text.rfind(empty);
    if (at == std::string::npos) return {};
    if (format == Format::json) return text.replace(at, empty.size(), output);

    const size_t open = text.rfind('<', at) + 1;
    const std::string name = text.substr(open, text.find_first_of(" />", open) - open);
    return text.replace(at, empty.size(), ">" + std::string{output} + "</" + name + ">");
}

std::string _print(const Tree &tree, Format format) {
    char *printed = nullptr;
    lyd_print_mem(&printed, tree.root, static_cast<LYD_FORMAT>(format),
                  LYD_PRINT_WITHSIBLINGS | LYD_PRINT_SHRINK | LYD_PRINT_KEEPEMPTYCONT);
    const Text text{printed};
    return std::string{text.view()};
}

void _remove_children(lyd_node *node) {
    while (lyd_node *child = lyd_child(node))
        lyd_free_tree(child);
}

bool _is_empty(std::string_view text, Format format) {
    text = trim(text);
    return text.empty() || (format == Format::json && json_members(text).empty());
}

} // namespace

// A subscription to an action inside a list may name the entries that it serves.
Session *Operations::find_provider(const std::string &path, const Place &place, SubscriptionPtr &found) const {
    for (Session *session : server_.sessions())
        for (const SubscriptionPtr &subscription : session->subscriptions.all())
            if (subscription->type == SubType::operation && subscription->active() &&
                subscription->place.schema_path() == path && subscription->place.covers(place)) {
                found = subscription;
                return session;
            }
    return nullptr;
}

void Operations::call(const Caller &caller, Tree tree, lyd_node *operation) {
    const std::string instance = _data_path(operation);
    const Result<Place> place = server_.store().place(instance);
    if (!place) return server_.reply_error(caller, place.error());
    const std::string path = place->schema_path();
    const std::string target = place->data_path();
    SubscriptionPtr subscription;
    Session *provider = find_provider(path, *place, subscription);
    if (provider == nullptr)
        return server_.reply_error(
            caller, bad_request("operation-not-supported", "No client provides the operation " + path + ".", target));
    if (provider->id() == caller.session && provider->owes_answer())
        return server_.reply_error(caller, refusal("in-use", "This client provides " + path +
                                                                 " itself and cannot be asked for it from inside one "
                                                                 "of its handlers."));
    if (provider->overloaded())
        return server_.reply_error(caller, refusal("resource-denied", "Client '" + provider->profile().name +
                                                                          "' has too much to answer already."));
    PublishText text;
    text.type = SubType::operation;
    text.from_session = caller.session;
    text.target = target;
    text.subscription = subscription.get();
    text.format = format_of(provider->profile().encode);
    const std::string content = _print_children(operation, text.format);
    text.content = content;
    _remove_children(operation);

    const uint64_t id = ++last_id_;
    Call &call = open_[id];
    call.caller = caller;
    call.path = path;
    call.request = std::move(tree);
    call.provider = provider->profile().name;
    call.session = provider->id();
    call.seq = provider->ask(text.print(), caller.session, [this, id](const Answer &answer) { answered(id, answer); });
    call.limit = server_.timers().after(server_.limits().answer, [this, id] {
        answered(id, {Answer::Kind::timed_out, {}, {}, ZAM_ENCODE_JSON, {}});
    });
}

void Operations::answered(uint64_t id, const Answer &answer) {
    const auto found = open_.find(id);
    if (found == open_.end()) return;
    Call call = std::move(found->second);
    open_.erase(found);
    server_.timers().cancel(call.limit);
    server_.forget(call.session, call.seq);
    conclude(call, answer);
}

void Operations::conclude(const Call &call, const Answer &answer) {
    if (answer.kind != Answer::Kind::agreed && answer.kind != Answer::Kind::output)
        return server_.reply_error(
            call.caller, answer_failure(call.provider, "the operation " + call.path, answer, server_.limits().answer));
    const Format format = format_of(answer.encoding);
    const Result<std::string> output = answer_data(answer);
    if (!output) return server_.reply_error(call.caller, output.error());
    if (_is_empty(*output, format)) return server_.reply(call.caller, {});

    const std::string text = _wrap(call.request, *output, format);
    const Tree reply{
        zam_lyd_parse_op(server_.context(), text.c_str(), static_cast<LYD_FORMAT>(format), LYD_TYPE_REPLY_YANG)};
    if (!reply) {
        Error error = take_yang_error(server_.context());
        error.message = "The answer of client '" + call.provider + "' to " + call.path +
                        " does not fit the operation's output: " + error.message;
        return server_.reply_error(call.caller, error);
    }
    server_.reply(call.caller, {_print(reply, format_of(call.caller.encoding)), {}, {}});
}

} // namespace zamd
