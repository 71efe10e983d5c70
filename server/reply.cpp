// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "reply.h"

#include <memory>

#include <zamc/utils.h>
#include <zamc/yang_module.h>
#include <zamc/yang_tree_data.h>
#include <zamc/yang_wrap.h>

#include "envelope.h"
#include "text.h"

namespace zamd {
namespace {

struct TreeDestroyer {
    void operator()(lyd_node *tree) const { zam_lyd_tree_destroy(tree); }
};
struct InputFree {
    void operator()(ly_in *input) const { zam_ly_in_free(input); }
};
using Input = std::unique_ptr<ly_in, InputFree>;

using LibraryTree = std::unique_ptr<lyd_node, TreeDestroyer>; // may hold the library's own nodes

LYD_FORMAT _lyd_format(uint32_t encoding) {
    return format_of(encoding) == Format::xml ? LYD_XML : LYD_JSON;
}

// Bytes of the UTF-8 character at the front, 0 when there is none that a YANG string may hold.
size_t _character(std::string_view text) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    if (byte(0) < 0x80) return byte(0) >= 0x20 || byte(0) == '\n' || byte(0) == '\t' ? 1 : 0;
    const size_t size = byte(0) >= 0xF0 ? 4 : byte(0) >= 0xE0 ? 3 : 2;
    if (byte(0) < 0xC2 || byte(0) > 0xF4 || text.size() < size) return 0;
    for (size_t i = 1; i < size; i++)
        if ((byte(i) & 0xC0) != 0x80) return 0;
    const bool overlong = (byte(0) == 0xE0 && byte(1) < 0xA0) || (byte(0) == 0xF0 && byte(1) < 0x90);
    const bool beyond = (byte(0) == 0xED && byte(1) > 0x9F) || (byte(0) == 0xF4 && byte(1) > 0x8F);
    const bool no_character = byte(0) == 0xEF && byte(1) == 0xBF && byte(2) >= 0xBE; // U+FFFE and U+FFFF
    return overlong || beyond || no_character ? 0 : size;
}

// Messages quote what peers sent; what a string leaf refuses must not cost the whole message.
std::string _printable(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const size_t size = _character(text);
        result.append(size == 0 ? "?" : text.substr(0, size));
        text.remove_prefix(size == 0 ? 1 : size);
    }
    return result;
}

const char *_or_null(const std::string &text) {
    return text.empty() ? nullptr : text.c_str();
}

LibraryTree _error_tree(ly_ctx *ctx, const Error &error) {
    const std::string app_tag = _printable(error.app_tag);
    const std::string path = _printable(error.path);
    const std::string message = _printable(error.message);
    return LibraryTree{zam_create_error(ctx, error.type.c_str(), error.tag.c_str(), _or_null(app_tag), _or_null(path),
                                        message.empty() ? nullptr : "%s", message.c_str())};
}

std::string _leaf(const lyd_node *tree, const char *name) {
    const lyd_node *node = nullptr;
    LY_LIST_FOR(lyd_child(tree), node) {
        if (node->schema != nullptr && std::string_view{node->schema->name} == name) return lyd_get_value(node);
    }
    return {};
}

LibraryTree _parse_error(ly_ctx *ctx, std::string_view payload, Format format) {
    const std::string text{payload};
    const Input input{zam_ly_in_new_memory(text.c_str())};
    if (!input) return nullptr;
    return LibraryTree{zam_lyd_parse_ext_data(ctx, "ietf-netconf", input.get(), static_cast<LYD_FORMAT>(format),
                                              LYD_PARSE_ONLY, 0, "yang-errors")};
}

std::string _open_xml(std::string_view operation) {
    return "<" + std::string{operation} + " xmlns=\"" + std::string{server_namespace} + "\">";
}

std::string _open_json(std::string_view operation) {
    return "{\"" + std::string{server_module} + ":" + std::string{operation} + "\":{";
}

} // namespace

Payload error_payload(ly_ctx *ctx, const Error &error, uint32_t encoding) {
    const LibraryTree tree = _error_tree(ctx, error);
    uint32_t length = 0;
    Text text{tree ? zam_lyd_tree_dump(tree.get(), _lyd_format(encoding), &length) : nullptr};
    if (!text.empty()) return {{}, std::move(text), {}};
    // Out of memory, most likely; the caller is not to take silence for success.
    if (format_of(encoding) == Format::xml)
        return {"<rpc-error xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\"><error-type>application</error-type>"
                "<error-tag>operation-failed</error-tag></rpc-error>",
                {},
                {}};
    return {"{\"ietf-netconf:rpc-error\":{\"error-type\":\"application\",\"error-tag\":\"operation-failed\"}}", {}, {}};
}

Payload register_payload(uint32_t session_id, uint32_t encoding) {
    const std::string id = std::to_string(session_id);
    if (format_of(encoding) == Format::xml)
        return {_open_xml("register") + "<session-id>" + id + "</session-id></register>", {}, {}};
    return {_open_json("register") + "\"session-id\":" + id + "}}", {}, {}};
}

Payload pull_payload(std::string_view entity, Text data, uint32_t encoding) {
    if (format_of(encoding) == Format::xml)
        return {_open_xml("pull") + "<entity>" + xml_escape(entity) + "</entity><data>", std::move(data),
                "</data></pull>"};
    return {_open_json("pull") + "\"entity\":" + json_quote(entity) + ",\"data\":", std::move(data), "}}"};
}

Payload diff_payload(std::string_view entity, Text value, uint32_t encoding) {
    if (format_of(encoding) == Format::xml)
        return {_open_xml("diff") + "<entity>" + xml_escape(entity) +
                    "</entity><yang-patch><patch-id>1</patch-id><edit><edit-id>1</edit-id><operation>merge</operation>"
                    "<target>/</target><value>",
                std::move(value), "</value></edit></yang-patch></diff>"};
    return {_open_json("diff") + "\"entity\":" + json_quote(entity) +
                ",\"yang-patch\":{\"patch-id\":\"1\",\"edit\":[{\"edit-id\":\"1\",\"operation\":\"merge\","
                "\"target\":\"/\",\"value\":",
            std::move(value), "}]}}}"};
}

Payload locate_payload(const Neighbours &neighbours, uint32_t encoding) {
    if (format_of(encoding) == Format::xml)
        return {_open_xml("locate") + "<prev-entity>" + xml_escape(neighbours.previous) +
                    "</prev-entity><post-entity>" + xml_escape(neighbours.next) + "</post-entity></locate>",
                {},
                {}};
    return {_open_json("locate") + "\"prev-entity\":" + json_quote(neighbours.previous) +
                ",\"post-entity\":" + json_quote(neighbours.next) + "}}",
            {},
            {}};
}

Payload verify_payload(bool consistent, uint32_t encoding) {
    const std::string word = consistent ? "consistent" : "inconsistent";
    if (format_of(encoding) == Format::xml)
        return {
            _open_xml("verify-configuration") + "<consistent>" + word + "</consistent></verify-configuration>", {}, {}};
    return {_open_json("verify-configuration") + "\"consistent\":\"" + word + "\"}}", {}, {}};
}

Error take_yang_error(ly_ctx *ctx) {
    const LibraryTree tree{zam_get_ly_error(ctx)};
    if (!tree) return bad_request("operation-failed", "The data layer refused it without a reason.");
    Error error{_leaf(tree.get(), "error-type"), _leaf(tree.get(), "error-tag"), _leaf(tree.get(), "error-app-tag"),
                _leaf(tree.get(), "error-path"), _leaf(tree.get(), "error-message")};
    if (error.message.empty()) error.message = "The payload does not fit the schema.";
    return error;
}

Answer read_answer(ly_ctx *ctx, const Frame &frame) {
    Answer answer;
    answer.encoding = frame.encoding;
    answer.payload = trim(frame.payload);
    if (answer.payload.empty() || answer.payload == "<ok/>") return answer;

    const Format format = format_of(frame.encoding);
    const Result<Envelope> envelope = open_envelope(answer.payload, format);
    if (!envelope) {
        answer.kind = Answer::Kind::refused;
        answer.message = "its answer cannot be read: " + envelope.error().message;
        return answer;
    }
    answer.kind = Answer::Kind::output;
    if (envelope->name != "rpc-error") return answer;
    answer.kind = Answer::Kind::refused;
    const LibraryTree tree = _parse_error(ctx, answer.payload, format);
    answer.app_tag = _leaf(tree.get(), "error-app-tag");
    answer.message = tree ? _leaf(tree.get(), "error-message") : "its error cannot be read";
    return answer;
}

Result<std::string> answer_data(const Answer &answer) {
    if (answer.kind == Answer::Kind::agreed) return std::string{format_of(answer.encoding) == Format::json ? "{}" : ""};
    const Result<Envelope> envelope = open_envelope(answer.payload, format_of(answer.encoding));
    if (!envelope) return envelope.error();
    if (envelope->name != "publish")
        return bad_request("malformed-message",
                           "its answer is no \"publish\" but \"" + std::string{envelope->name} + "\"");
    return child_value(*envelope, "data").value_or(envelope->format == Format::json ? "{}" : "");
}

} // namespace zamd
