// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <charconv>
#include <utility>
#include <vector>

#include <zamc/logger.h>
#include <zamc/yang_module.h>

#include "dispatch.h"
#include "envelope.h"
#include "log.h"
#include "server.h"
#include "text.h"

namespace zamd {
namespace {

// Each costs a look at every change, so a client may not have any number of them.
constexpr size_t most_subscriptions = 4096;

// Names go into messages to others, and dependencies are looked up at each arrival and departure.
constexpr size_t longest_name = 255;
constexpr size_t most_dependencies = 64;

constexpr std::string_view terminal_stream = "APPINFO";

template <class Number>
Number _number(std::string_view text, Number otherwise = 0) {
    Number number = otherwise;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

std::vector<std::string> _words(std::string_view text) {
    std::vector<std::string> words;
    while (!(text = trim(text)).empty()) {
        words.emplace_back(text.substr(0, text.find(' ')));
        text.remove_prefix(words.back().size());
    }
    return words;
}

Result<void> _check_target(const Subscription &subscription) {
    const lysc_node *schema = subscription.place.schema();
    const bool operation = schema != nullptr && (schema->nodetype & (LYS_RPC | LYS_ACTION)) != 0;
    if (operation == (subscription.type == SubType::operation)) return {};
    return bad_request("invalid-value",
                       operation ? subscription.target + " is an operation and can only be subscribed to as one."
                                 : subscription.target + " is no operation.");
}

Result<Subscription> _subscription(const Store &store, const Request &entry) {
    const std::string_view target = entry.leaf("target");
    const std::optional<SubType> type = sub_type_by_name(entry.leaf("sub-type"));
    if (target.empty() || !type) return bad_request("missing-element", "A subscription needs its target and sub-type.");
    Result<Place> place = store.place(target);
    if (!place) return place.error();

    Subscription subscription;
    subscription.type = *type;
    subscription.target = target;
    subscription.place = std::move(*place);
    subscription.priv_data = _number<uint64_t>(entry.leaf("priv-data"));
    if (auto fits = _check_target(subscription); !fits) return fits.error();
    if (*type != SubType::config_change) return subscription;

    if (entry.child("priority") == nullptr)
        return bad_request("missing-element", "The subscription to " + subscription.target + " needs a priority.");
    subscription.priority = _number<uint32_t>(entry.leaf("priority"));
    const Result<uint32_t> mask = mask_by_names(entry.leaf("filter-mask"));
    if (!mask) return mask.error();
    subscription.mask = *mask;
    return subscription;
}

} // namespace

Dispatch::Outcome Dispatch::serve_register(const Request &request) {
    Profile profile;
    profile.name = request.leaf("name", "null");
    if (const lyd_node *node = request.child("attribute"); node != nullptr) {
        const Request attribute{request.session, request.caller, node, {}};
        profile.encode = attribute.leaf("encode", "json") == "xml" ? ZAM_ENCODE_XML : ZAM_ENCODE_JSON;
        profile.deadline = std::chrono::seconds{std::max(0, _number<int32_t>(attribute.leaf("deadline")))};
        profile.api_version = attribute.leaf("api-version", "v2");
        profile.dependent_clients = _words(attribute.leaf("dependent-clients"));
    }
    if (profile.name.size() > longest_name || profile.dependent_clients.size() > most_dependencies)
        return bad_request("invalid-value", "A name has " + std::to_string(longest_name) +
                                                " bytes at the most, and a client " +
                                                std::to_string(most_dependencies) + " dependencies.");
    Session &session = request.session;
    const bool again = session.registered();
    session.set_profile(std::move(profile));
    server_.activations().registered(session);
    zam_log_printf(ZAM_LOG_INFO, "%s %s, %s.\n", again ? "Updated" : "Registered", session.label().c_str(),
                   session.peer().c_str());
    server_.reply(request.caller, register_payload(session.id(), request.caller.encoding));
    return {};
}

Dispatch::Outcome Dispatch::serve_subscribe(const Request &request) {
    return change_subscriptions(request, true);
}

Dispatch::Outcome Dispatch::serve_unsubscribe(const Request &request) {
    return change_subscriptions(request, false);
}

// All of them or, after an error, none.
Dispatch::Outcome Dispatch::change_subscriptions(const Request &request, bool add) {
    Subscriptions &subscriptions = request.session.subscriptions;
    std::vector<Subscription> changed;
    const lyd_node *node = nullptr;
    LY_LIST_FOR(lyd_child(request.child("subscriptions")), node) {
        const Request entry{request.session, request.caller, node, {}};
        Result<Subscription> subscription = _subscription(server_.store(), entry);
        if (!subscription) return subscription.error();
        changed.push_back(std::move(*subscription));
        if (add && subscriptions.all().size() + changed.size() > most_subscriptions)
            return refusal("resource-denied",
                           "A session may have " + std::to_string(most_subscriptions) + " subscriptions at the most.");
    }
    for (Subscription &subscription : changed) {
        if (add)
            subscriptions.add(std::move(subscription));
        else
            subscriptions.remove(subscription);
    }
    server_.reply(request.caller, {});
    return {};
}

Dispatch::Outcome Dispatch::serve_activate(const Request &request) {
    if (auto allowed = server_.activations().may_activate(request.session); !allowed) return allowed;
    server_.reply(request.caller, {}); // before anything that follows from it
    server_.activations().activate(request.session, request.leaf("mode", "replay") == "replay");
    return {};
}

Dispatch::Outcome Dispatch::serve_deactivate(const Request &request) {
    server_.reply(request.caller, {});
    server_.activations().deactivate(request.session);
    return {};
}

Dispatch::Outcome Dispatch::serve_verify(const Request &request) {
    const std::string_view name = request.leaf("name", "null");
    bool known = false;
    bool consistent = true;
    for (const Session *session : server_.sessions()) {
        if (session->profile().name != name) continue;
        known = true;
        consistent = consistent && session->subscriptions.consistent();
    }
    server_.reply(request.caller, verify_payload(known && consistent, request.caller.encoding));
    return {};
}

Dispatch::Outcome Dispatch::serve_notify(const Request &request) {
    bool for_terminal = false;
    const lyd_node *node = nullptr;
    LY_LIST_FOR(lyd_child(request.child("streams")), node) {
        const Request stream{request.session, request.caller, node, {}};
        const std::string name{stream.leaf("name")};
        zam_log_printf(ZAM_LOG_NOTICE, "%s notifies on stream %s: %s\n", request.session.label().c_str(),
                       log_text(name).c_str(), log_text(request.inset).c_str());
        for_terminal = for_terminal || name == terminal_stream;
    }
    if (for_terminal)
        if (auto forwarded = forward_appinfo(request); !forwarded) return forwarded;
    server_.reply(request.caller, {});
    return {};
}

// To the session on whose behalf this one is working, in that session's encoding.
Dispatch::Outcome Dispatch::forward_appinfo(const Request &request) {
    const Format format = format_of(request.caller.encoding);
    const std::string text = format == Format::xml ? declare_namespace(request.inset, server_namespace) : request.inset;
    const Result<Envelope> envelope = open_envelope(text, format);
    if (!envelope) return envelope.error();
    if (!leads_to(server_.context(), *envelope, LYS_NOTIF))
        return bad_request("invalid-value", "The data for stream APPINFO is no notification.");
    const Tree notification{
        zam_lyd_parse_op(server_.context(), text.c_str(), static_cast<LYD_FORMAT>(format), LYD_TYPE_NOTIF_YANG)};
    if (!notification) return take_yang_error(server_.context());
    const std::vector<uint32_t> causes = request.session.causes();
    Session *cause = causes.empty() ? nullptr : server_.session(causes.front());
    if (cause == nullptr || !cause->registered()) return {};
    const uint32_t encoding = cause->profile().encode;
    char *printed = nullptr;
    lyd_print_mem(&printed, notification.root, static_cast<LYD_FORMAT>(format_of(encoding)),
                  LYD_PRINT_WITHSIBLINGS | LYD_PRINT_SHRINK);
    Text body{printed};
    if (!body.empty()) cause->send(ZAM_MESSAGE_OTHER_2, 0, encoding, {{}, std::move(body), {}});
    return {};
}

} // namespace zamd
