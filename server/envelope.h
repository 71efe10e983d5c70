// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Payloads as text: an operation's node around what it carries. What a client
// puts into an anydata is cut out and put in byte for byte, since libyang does not
// keep it as it was written.
#ifndef ZAMD_ENVELOPE_H
#define ZAMD_ENVELOPE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "error.h"
#include "store.h"

namespace zamd {

inline constexpr std::string_view server_module = "orvel-zam-server";
inline constexpr std::string_view server_namespace = "urn:orvel:params:xml:ns:yang:orvel-zam-server";
inline constexpr std::string_view client_module = "orvel-zam-client";
inline constexpr std::string_view client_namespace = "urn:orvel:params:xml:ns:yang:orvel-zam-client";

// How a frame's encoding code is printed: one that says nothing is JSON.
Format format_of(uint32_t encoding);
uint32_t encoding_of(Format format);

// The single node at the top of a checked payload.
struct Envelope {
    Format format = Format::json;
    std::string_view text;  // the whole payload
    std::string_view name;  // of the node, without module or prefix
    std::string_view value; // JSON: the node's value; XML: what is between its tags
    std::string_view attributes;
};

// Refuses what is no well-formed payload, or holds more or less than one top node.
Result<Envelope> open_envelope(std::string_view text, Format format);

// Whether the nodes of a JSON document lead to one of these kinds (LYS_RPC and so on). libyang leaks a node when an
// operation is asked for and the document has none; what is unknown is left for it to explain.
bool leads_to(const ly_ctx *ctx, const Envelope &envelope, uint16_t kinds);

// A child of the top node, taken out.
struct Inset {
    std::string rest;  // the payload with an empty child in its place
    std::string value; // JSON: the child's value; XML: its elements, with the prefixes that they use declared
};

std::optional<Inset> cut_child(const Envelope &envelope, std::string_view name);
// Only the value of it.
std::optional<std::string> child_value(const Envelope &envelope, std::string_view name);

// XML elements that stood in an element of namespace `outer` and leave it: one that relied on it says it now.
std::string declare_namespace(std::string_view elements, std::string_view outer);

} // namespace zamd

#endif
