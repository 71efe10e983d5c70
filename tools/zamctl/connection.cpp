// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "connection.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <iterator>

#include <poll.h>

#include "output.h"

namespace zamctl {
namespace {

using Clock = std::chrono::steady_clock;

int32_t keep_reply(zamc_client *, const zam_message *message, void *arg) {
    auto *reply = static_cast<Reply *>(arg);
    reply->arrived = true;
    if (message) {
        reply->encoding = message->encoding;
        reply->text.assign(message->data, message->length);
    }
    return 0;
}

LYD_FORMAT lyd_format(uint32_t encoding) {
    return static_cast<LYD_FORMAT>(zam_ownfmt2lydfmt(encoding));
}

std::string leaf(lyd_node *tree, const char *name) {
    const char *value = zam_leaf_get_raw(tree, name);
    return value ? value : "";
}

Tree parse_error(const std::string &text, uint32_t encoding) {
    const Owned<ly_in, zam_ly_in_free> in{zam_ly_in_new_memory(text.c_str())};
    if (!in) return nullptr;
    return Tree{zam_lyd_parse_ext_data(zam_clients_schema_ctx(), "ietf-netconf", in.get(), lyd_format(encoding),
                                       LYD_PARSE_ONLY, LYD_VALIDATE_PRESENT, "yang-errors")};
}

// "message (error-tag, code 7, at /path)"
std::string describe_error(lyd_node *error) {
    std::string text = leaf(error, "error-message");
    if (text.empty()) text = "refused";
    text += " (" + leaf(error, "error-tag");
    if (const auto code = leaf(error, "error-app-tag"); !code.empty()) text += ", code " + code;
    if (const auto path = leaf(error, "error-path"); !path.empty()) text += ", at " + path;
    return text + ")";
}

void refuse_if_error(const Reply &reply) {
    if (reply.text.find("rpc-error") == std::string::npos) return;
    // An answer may quote the word; only what parses as an error is one.
    const bool looks_like_one =
        reply.text.starts_with("{\"ietf-netconf:rpc-error\"") || reply.text.starts_with("<rpc-error");
    if (!looks_like_one) return;
    const Tree error = parse_error(reply.text, reply.encoding);
    throw Failure{exit_refused, error ? describe_error(error.get()) : reply.text};
}

int32_t show_message(zamc_client *, uint32_t type, const zam_message *message, void *) {
    if (type != ZAM_MESSAGE_OTHER_2) return 0;
    const std::string text{message->data, message->length};
    const bool is_xml = text.starts_with('<');
    const Tree tree{
        zam_lyd_parse_op(zam_clients_schema_ctx(), text.c_str(), is_xml ? LYD_XML : LYD_JSON, LYD_TYPE_NOTIF_YANG)};
    const char *shown = tree ? zam_leaf_get_raw(tree.get(), "/orvel-zam-server:appinfo/data") : nullptr;
    std::cerr << (shown ? shown : text);
    if (!(shown ? std::string_view{shown} : text).ends_with('\n')) std::cerr << '\n';
    return 0;
}

void load_modules(const Options &options) {
    if (zamc_initialize() != 0) throw Failure{exit_refused, "cannot build the schema: " + last_log_line()};
    for (const auto &dir : options.modules) {
        if (zamc_load_module(dir.c_str(), nullptr) != 0) {
            throw Failure{exit_usage, "cannot load the modules of " + dir + ": " + last_log_line()};
        }
    }
}

} // namespace

Connection::Connection(const Options &options, const char *name) : options_{options} {
    load_modules(options);
    client_.reset(zamc_client_new(name, options.encoding));
    if (!client_) throw Failure{exit_refused, "cannot make a client: " + last_log_line()};
    const auto timeout_ms = static_cast<uint32_t>(options.timeout_s) * 1000;
    zamc_set_attr(client(), ZAMC_ATTR_SYNC_TIMEOUT, &timeout_ms, sizeof timeout_ms);
    zamc_set_message_recv_cb(client(), show_message, nullptr);
    fd_ = zamc_connect(client(), options.server.c_str());
    if (fd_ < 0) {
        const std::string reason = last_log_line();
        throw Failure{exit_unreachable, "cannot reach " + options.server + (reason.empty() ? "" : ": " + reason)};
    }
}

bool Connection::turn(int timeout_ms) {
    if (zamc_run(client(), 0) != 0) return false;
    if (reply_.arrived) return true; // nothing more needs to come
    pollfd wait{fd_, POLLIN, 0};
    if (poll(&wait, 1, timeout_ms) <= 0) return true;
    return zamc_run(client(), 0) == 0;
}

std::string Connection::exchange(lyd_node *request, uint32_t encoding) {
    const Tree tree{request};
    if (!tree) throw Failure{exit_usage, last_log_line()};
    uint32_t length = 0;
    const Owned<char, std::free> text{zam_lyd_tree_dump(tree.get(), lyd_format(encoding), &length)};
    if (!text) throw Failure{exit_usage, last_log_line()};
    return exchange(std::string{text.get(), length}, encoding);
}

std::string Connection::exchange(const std::string &payload, uint32_t encoding) {
    const Bytes bytes{zamc_new_bytes(payload.data(), static_cast<int32_t>(payload.size()), encoding)};
    reply_ = {};
    if (!bytes || zamc_send_rpc_asyn(client(), bytes.get(), keep_reply, &reply_) != 0) {
        throw Failure{exit_unreachable, "cannot send to " + options_.server};
    }
    const auto deadline = Clock::now() + std::chrono::seconds{options_.timeout_s};
    while (!reply_.arrived) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) throw Failure{exit_unreachable, "no answer within " + std::to_string(options_.timeout_s) + " s"};
        if (!turn(static_cast<int>(left)) && !reply_.arrived) {
            throw Failure{exit_unreachable, "the connection to " + options_.server + " was lost"};
        }
    }
    refuse_if_error(reply_);
    return reply_.text;
}

std::string datastore_name(const std::string &name) {
    return name.find(':') == std::string::npos ? "ietf-datastores:" + name : name;
}

std::string read_argument(const std::string &argument) {
    if (argument != "-") return argument;
    return {std::istreambuf_iterator<char>{std::cin}, {}};
}

std::string checked_path(const std::string &path) {
    const Text normal{zam_format_data_path(path.c_str(), 1)};
    if (!normal || path.empty() || path.front() != '/') {
        throw Failure{exit_usage, "not a data path: " + path + " (such as /module:container/list[key=\"value\"])"};
    }
    return normal.get();
}

} // namespace zamctl
