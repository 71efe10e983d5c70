// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "envelope.h"

#include <algorithm>
#include <vector>

#include <zamc/utils.h>

#include "text.h"

namespace zamd {
namespace {

std::string_view _local(std::string_view name) {
    return name.substr(name.rfind(':') + 1);
}

Result<Envelope> _open_json(std::string_view text) {
    if (auto checked = json_check(text); !checked) return std::move(checked).error();
    const std::vector<JsonMember> members = json_members(text);
    if (members.size() != 1) return bad_request("malformed-message", "The payload must be an object with one member.");
    const JsonMember &top = members.front();
    return Envelope{Format::json, text, _local(top.name), top.value, {}};
}

Result<Envelope> _open_xml(std::string_view text) {
    if (auto checked = xml_check(text); !checked) return std::move(checked).error();
    const std::vector<XmlElement> elements = xml_elements(text);
    if (elements.size() != 1) return bad_request("malformed-message", "The payload must be one element.");
    const XmlElement &top = elements.front();
    return Envelope{Format::xml, text, _local(top.name), top.content, top.attributes};
}

struct Attribute {
    std::string_view name;
    std::string_view quoted; // its value with the quotes around it
};

constexpr std::string_view blanks = " \t\r\n";

std::vector<Attribute> _attributes(std::string_view text) {
    std::vector<Attribute> all;
    for (;;) {
        text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
        const size_t equals = text.find('=');
        if (equals == std::string_view::npos) return all;
        const std::string_view name = trim(text.substr(0, equals));
        text.remove_prefix(equals + 1);
        text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
        if (text.empty()) return all;
        const size_t end = text.find(text.front(), 1);
        if (end == std::string_view::npos) return all;
        all.push_back({name, text.substr(0, end + 1)});
        text.remove_prefix(end + 1);
    }
}

// Adds to each top element the declarations that it does not make itself.
std::string _declare(std::string_view text, const std::vector<Attribute> &wanted) {
    std::string result{text};
    std::vector<XmlElement> elements = wanted.empty() ? std::vector<XmlElement>{} : xml_elements(text);
    // From the back, so that the places of the earlier ones stay.
    for (auto element = elements.rbegin(); element != elements.rend(); ++element) {
        std::string added;
        for (const Attribute &attribute : wanted) {
            if (xml_attribute(*element, attribute.name)) continue;
            added.append(" ").append(attribute.name).append("=").append(attribute.quoted);
        }
        const auto after_name = static_cast<size_t>(element->name.data() + element->name.size() - text.data());
        result.insert(after_name, added);
    }
    return result;
}

// The prefixes that an element and the one around it declare; the inner one counts.
std::vector<Attribute> _prefixes(std::string_view outer, std::string_view inner) {
    std::vector<Attribute> prefixes;
    for (const std::string_view attributes : {inner, outer})
        for (const Attribute &attribute : _attributes(attributes)) {
            const bool known = std::any_of(prefixes.begin(), prefixes.end(),
                                           [&](const Attribute &other) { return other.name == attribute.name; });
            if (!known && attribute.name.starts_with("xmlns:")) prefixes.push_back(attribute);
        }
    return prefixes;
}

bool _leads_to(const ly_ctx *ctx, const lysc_node *parent, std::string_view object, uint16_t kinds) {
    for (const JsonMember &member : json_members(object)) {
        if (member.name.starts_with('@')) continue; // metadata
        const size_t colon = member.name.find(':');
        const lys_module *module = parent != nullptr ? parent->module : nullptr;
        if (colon != std::string_view::npos)
            module = ly_ctx_get_module_implemented(ctx, std::string{member.name.substr(0, colon)}.c_str());
        const std::string_view name = _local(member.name);
        if (module == nullptr || name.empty()) return true;
        const uint16_t inner = LYS_CONTAINER | LYS_LIST;
        const lysc_node *node = lys_find_child(parent, module, name.data(), name.size(), 0, 0);
        if (node == nullptr || (node->nodetype & kinds) != 0) return true;
        if ((node->nodetype & inner) == 0) continue;
        if (_leads_to(ctx, node, member.value, kinds)) return true;
        for (const std::string_view element : json_elements(member.value))
            if (_leads_to(ctx, node, element, kinds)) return true;
    }
    return false;
}

struct Found {
    std::string_view whole; // what to put something else in place of
    std::string value;
};

std::optional<Found> _find_child(const Envelope &envelope, std::string_view name) {
    if (envelope.format == Format::json) {
        for (const JsonMember &member : json_members(envelope.value))
            if (_local(member.name) == name) return Found{member.value, std::string{member.value}};
        return std::nullopt;
    }
    for (const XmlElement &element : xml_elements(envelope.value))
        if (_local(element.name) == name)
            return Found{element.whole, _declare(element.content, _prefixes(envelope.attributes, element.attributes))};
    return std::nullopt;
}

} // namespace

Format format_of(uint32_t encoding) {
    return encoding == ZAM_ENCODE_XML ? Format::xml : Format::json;
}

uint32_t encoding_of(Format format) {
    return format == Format::xml ? ZAM_ENCODE_XML : ZAM_ENCODE_JSON;
}

Result<Envelope> open_envelope(std::string_view text, Format format) {
    return format == Format::json ? _open_json(text) : _open_xml(text);
}

bool leads_to(const ly_ctx *ctx, const Envelope &envelope, uint16_t kinds) {
    return envelope.format != Format::json || _leads_to(ctx, nullptr, envelope.text, kinds);
}

std::optional<Inset> cut_child(const Envelope &envelope, std::string_view name) {
    std::optional<Found> found = _find_child(envelope, name);
    if (!found) return std::nullopt;
    const auto at = static_cast<size_t>(found->whole.data() - envelope.text.data());
    Inset inset;
    inset.rest.reserve(envelope.text.size() - found->whole.size() + 2);
    inset.rest.append(envelope.text.substr(0, at));
    if (envelope.format == Format::json) inset.rest.append("{}");
    inset.rest.append(envelope.text.substr(at + found->whole.size()));
    inset.value = std::move(found->value);
    return inset;
}

std::optional<std::string> child_value(const Envelope &envelope, std::string_view name) {
    std::optional<Found> found = _find_child(envelope, name);
    if (!found) return std::nullopt;
    return std::move(found->value);
}

std::string declare_namespace(std::string_view elements, std::string_view outer) {
    const std::string quoted = "\"" + std::string{outer} + "\"";
    return _declare(elements, {{"xmlns", quoted}});
}

} // namespace zamd
