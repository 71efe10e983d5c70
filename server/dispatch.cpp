// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// A request passes these gates, and an error at any of them is its reply:
//
//   1. its frame's encoding is one that is understood;
//   2. the text is sound and holds one node, before libyang sees it;
//   3. the node's anydata is cut out, and libyang parses the rest strictly;
//   4. it is a request of this server's own protocol, which has a handler in the
//      table, or an operation of an application's module;
//   5. but for `register`, the session is registered.
#include "dispatch.h"

#include <algorithm>
#include <array>

#include <zamc/logger.h>
#include <zamc/yang_module.h>
#include <zamc/yang_wrap.h>

#include "envelope.h"
#include "server.h"
#include "text.h"

namespace zamd {
namespace {

struct Route {
    std::string_view name;
    const char *inset; // the anydata that is cut out before libyang reads the request
    bool before_register;
    Dispatch::Handler serve;
};

constexpr std::array<Route, 11> routes{{
    {"pull", nullptr, false, &Dispatch::serve_pull},
    {"push", "content", false, &Dispatch::serve_push},
    {"diff", nullptr, false, &Dispatch::serve_diff},
    {"locate", nullptr, false, &Dispatch::serve_locate},
    {"notify", "data", false, &Dispatch::serve_notify},
    {"register", nullptr, true, &Dispatch::serve_register},
    {"subscribe", nullptr, false, &Dispatch::serve_subscribe},
    {"unsubscribe", nullptr, false, &Dispatch::serve_unsubscribe},
    {"activate", nullptr, false, &Dispatch::serve_activate},
    {"deactivate", nullptr, false, &Dispatch::serve_deactivate},
    {"verify-configuration", nullptr, false, &Dispatch::serve_verify},
}};

const Route *_route(std::string_view name) {
    const auto found =
        std::find_if(routes.begin(), routes.end(), [&](const Route &route) { return route.name == name; });
    return found == routes.end() ? nullptr : &*found;
}

// A peer that leaves the encoding open shows it in the first character.
uint32_t _encoding(const Frame &frame) {
    if (frame.encoding != ZAM_ENCODE_UNKNOWN) return frame.encoding;
    return trim(frame.payload).starts_with('<') ? ZAM_ENCODE_XML : ZAM_ENCODE_JSON;
}

lyd_node *_operation_node(lyd_node *tree) {
    lyd_node *node = nullptr;
    LYD_TREE_DFS_BEGIN(tree, node) {
        if (node->schema != nullptr && (node->schema->nodetype & (LYS_RPC | LYS_ACTION)) != 0) return node;
        LYD_TREE_DFS_END(tree, node);
    }
    return nullptr;
}

Error _not_registered() {
    return bad_request("access-denied", "Register first: this connection is no session yet.");
}

} // namespace

const lyd_node *Request::child(const char *name) const {
    const lyd_node *node = nullptr;
    LY_LIST_FOR(lyd_child(operation), node) {
        if (node->schema != nullptr && std::string_view{node->schema->name} == name) return node;
    }
    return nullptr;
}

std::string_view Request::leaf(const char *name, std::string_view otherwise) const {
    const lyd_node *node = child(name);
    return node != nullptr ? std::string_view{lyd_get_value(node)} : otherwise;
}

void Dispatch::request(Session &session, const Frame &frame) {
    const Caller caller{session.id(), frame.seq, _encoding(frame)};
    if (caller.encoding != ZAM_ENCODE_JSON && caller.encoding != ZAM_ENCODE_XML)
        return server_.reply_error({caller.session, caller.seq, ZAM_ENCODE_JSON},
                                   bad_request("operation-not-supported", "Only XML and JSON are understood."));
    if (const Outcome outcome = take(session, caller, frame.payload); !outcome)
        server_.reply_error(caller, outcome.error());
}

Dispatch::Outcome Dispatch::take(Session &session, const Caller &caller, std::string_view payload) {
    const Format format = format_of(caller.encoding);
    const Result<Envelope> envelope = open_envelope(payload, format);
    if (!envelope) return envelope.error();

    if (!leads_to(server_.context(), *envelope, LYS_RPC | LYS_ACTION))
        return bad_request("operation-not-supported", "The request names no operation.");

    const Route *route = _route(envelope->name);
    std::optional<Inset> inset;
    if (route != nullptr && route->inset != nullptr) inset = cut_child(*envelope, route->inset);

    const char *text = inset ? inset->rest.c_str() : payload.data();
    Tree tree{zam_lyd_parse_op(server_.context(), text, static_cast<LYD_FORMAT>(format), LYD_TYPE_RPC_YANG)};
    lyd_node *operation = tree ? _operation_node(tree.root) : nullptr;
    if (operation == nullptr) return take_yang_error(server_.context());

    const bool ours = server_module == operation->schema->module->name;
    if (!session.registered() && !(ours && route != nullptr && route->before_register)) return _not_registered();
    if (!ours) {
        server_.operations().call(caller, std::move(tree), operation);
        return {};
    }
    if (route == nullptr)
        return bad_request("operation-not-supported", "There is no operation " + std::string{envelope->name} + ".");
    return (this->*route->serve)({session, caller, operation, inset ? std::move(inset->value) : std::string{}});
}

} // namespace zamd
