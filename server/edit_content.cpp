// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Values come in forms that libyang's strict parser does not take: a client writes every scalar as a JSON string, an
// entry may come without the keys that its path gives already, an element without its namespace. So leaves and
// leaf-lists are created from their text, and containers and lists are completed to one document that libyang parses
// below the nodes of the path.
//
// A document that was built for editing may ask for a node's deletion without giving its value. That is no valid data;
// such content is parsed a second time with unknown values kept as opaque nodes, and accepted when every opaque node
// is one to be deleted. A leaf-list as a whole, `"name":""` with "delete" as metadata, is no leaf-list to libyang even
// then; it gets a name that no node has and that tells the operation, `"name*delete":""`.
#include "edit_content.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <unordered_set>

#include <zamc/yang_module.h>

#include "store_copy.h"
#include "store_error.h"
#include "text.h"

namespace zamd {
namespace {

constexpr std::size_t most_keys = 16;
constexpr uint32_t plain_parse = LYD_PARSE_ONLY | LYD_PARSE_STRICT;
constexpr uint32_t lenient_parse = LYD_PARSE_ONLY | LYD_PARSE_OPAQ;

std::string_view _local_name(std::string_view name) {
    std::size_t colon = name.find(':');
    return colon == std::string_view::npos ? name : name.substr(colon + 1);
}

// The name is that of the node, alone or with its module in front.
bool _names(std::string_view name, const lysc_node *schema) {
    std::size_t colon = name.find(':');
    if (colon == std::string_view::npos) return name == schema->name;
    return name.substr(0, colon) == schema->module->name && name.substr(colon + 1) == schema->name;
}

bool _is_null(std::string_view value) {
    return value.empty() || value == "null" || value == "\"\"";
}

// What `"@name"` of JSON or an attribute carries when it asks for more than the request's own operation.
bool _may_hold_operations(std::string_view text) {
    return text.find("operation") != std::string_view::npos;
}

// Whether the node or the nearest one above it that states an operation is to be deleted.
bool _is_to_be_deleted(const lyd_node *node) {
    for (; node; node = lyd_parent(node)) {
        std::string_view operation = stated_operation(node);
        if (!operation.empty()) return operation == "delete" || operation == "remove";
    }
    return false;
}

bool _all_opaque_are_deleted(const lyd_node *first) {
    for (const lyd_node *node = first; node; node = node->next) {
        if (!node->schema && !_is_to_be_deleted(node)) return false;
        if (node->schema && !_all_opaque_are_deleted(lyd_child(node))) return false;
    }
    return true;
}

// Gives leaf-lists that are to be deleted as a whole their other name, in an object and all below it. `parent` is the
// schema node of the object, null for a document.
class WholeLeafLists {
public:
    explicit WholeLeafLists(const ly_ctx *ctx) : ctx_(ctx) {}

    std::string rename(std::string_view object, const lysc_node *parent) const {
        std::string text = "{";
        auto members = json_members(object);
        for (const JsonMember &member : members) {
            bool metadata = !member.name.empty() && member.name[0] == '@';
            std::string_view name = member.name.substr(metadata ? 1 : 0);
            const lysc_node *schema = _schema(name, parent);
            bool leaflist = schema && schema->nodetype == LYS_LEAFLIST;
            std::string operation = leaflist ? _operation_on_all(members, name) : std::string();
            if (metadata && !operation.empty()) continue;
            if (text.size() > 1) text += ",";
            text.append("\"").append(member.name);
            if (!operation.empty()) text.append(1, whole_list_sign).append(operation);
            text.append("\":").append(schema && !metadata ? _value(member.value, schema) : std::string(member.value));
        }
        return text + "}";
    }

private:
    std::string _value(std::string_view value, const lysc_node *schema) const {
        if (!(schema->nodetype & (LYS_CONTAINER | LYS_LIST))) return std::string(value);
        if (value[0] == '{') return rename(value, schema);
        if (value[0] != '[') return std::string(value);
        std::string text = "[";
        for (std::string_view element : json_elements(value)) {
            if (text.size() > 1) text += ",";
            text += element[0] == '{' ? rename(element, schema) : std::string(element);
        }
        return text + "]";
    }

    const lysc_node *_schema(std::string_view name, const lysc_node *parent) const {
        std::size_t colon = name.find(':');
        const lys_module *module = parent ? parent->module : nullptr;
        if (colon != std::string_view::npos)
            module = ly_ctx_get_module_implemented(ctx_, std::string(name.substr(0, colon)).c_str());
        std::string_view local = _local_name(name);
        return module && !local.empty() ? lys_find_child(parent, module, local.data(), local.size(), 0, 0) : nullptr;
    }

    // "delete" or "remove" when the members ask for that and name no entry.
    static std::string _operation_on_all(const std::vector<JsonMember> &members, std::string_view name) {
        std::string_view value, metadata;
        for (const JsonMember &member : members) {
            if (member.name == name) value = member.value;
            if (!member.name.empty() && member.name[0] == '@' && member.name.substr(1) == name) metadata = member.value;
        }
        if (!_is_null(value)) return {};
        std::string_view operation = json_member(metadata, "ietf-netconf:operation").value_or("");
        if (operation != "\"delete\"" && operation != "\"remove\"") return {};
        return std::string(operation.substr(1, operation.size() - 2));
    }

    const ly_ctx *ctx_;
};

class ContentReader {
public:
    ContentReader(const ly_ctx *ctx, const Place &place, Format format, ContentKind kind)
        : ctx_(ctx), place_(place), schema_(place.schema()), format_(format), kind_(kind) {}

    Result<Content> read(std::string_view text) {
        content_.format = format_;
        Result<void> done = _read(trim(text));
        if (!done) return std::move(done).error();
        return std::move(content_);
    }

private:
    Result<void> _read(std::string_view text) {
        auto checked = _check(text);
        if (!checked && !_may_be_plain_text()) return checked;
        std::string joined;
        if (checked && format_ == Format::json && text.find("\\u") != std::string_view::npos)
            text = joined = json_join_surrogates(text);
        if (place_.is_root() && _is_null(text)) return {};
        if (checked && _is_document(text)) return _parse(std::string(text));
        if (auto above = _create_above(); !above) return above;
        if (!checked) return _add_value(std::string(text));
        return format_ == Format::json ? _read_json(text) : _read_xml(text);
    }

    // A provider may answer for a leaf with nothing but its value.
    bool _may_be_plain_text() const {
        return kind_ == ContentKind::answer && schema_ && (schema_->nodetype & LYD_NODE_TERM);
    }

    Result<void> _check(std::string_view text) const {
        if (text.empty()) return {};
        return format_ == Format::json ? json_check(text) : xml_check(text);
    }

    Error _bad(const std::string &why) const {
        return bad_request("invalid-value", "The content for \"" + shown(place_.data_path()) + "\" " + why + ".",
                           place_.data_path());
    }

    // Content of "/", or an answer that begins at the root although its target lies deeper.
    bool _is_document(std::string_view text) const {
        if (place_.is_root()) return true;
        if (kind_ != ContentKind::answer || place_.steps().size() < 2) return false;
        const lysc_node *top = place_.steps().front().schema;
        if (format_ == Format::json) {
            auto members = json_members(text);
            return members.size() == 1 && members[0].name.find(':') != std::string_view::npos &&
                   _names(members[0].name, top) && !_names(members[0].name, schema_);
        }
        auto elements = xml_elements(text);
        return elements.size() == 1 && _local_name(elements[0].name) == top->name &&
               _local_name(elements[0].name) != schema_->name;
    }

    // Creates what is above the place.
    Result<void> _create_above() {
        if (auto keys = needs_keys_above(place_); !keys) return keys;
        for (std::size_t i = 0; i + 1 < place_.steps().size(); ++i) {
            auto created = create_step(content_.tree, content_.parent, place_.steps()[i]);
            if (!created) return std::move(created).error();
            content_.parent = *created;
        }
        return {};
    }

    // ---- JSON

    Result<void> _read_json(std::string_view text) {
        std::string_view value = text;
        std::string_view metadata;
        auto members = json_members(text);
        for (const JsonMember &member : members) {
            if (!member.name.empty() && member.name[0] == '@' && _names(member.name.substr(1), schema_))
                metadata = member.value;
        }
        std::size_t expected = metadata.empty() ? 1 : 2;
        bool wrapped = false;
        for (const JsonMember &member : members) {
            if (members.size() != expected || !_names(member.name, schema_)) continue;
            value = member.value;
            wrapped = true;
        }
        bool bare_container = kind_ == ContentKind::answer;
        bool nothing = !wrapped && (_is_null(value) || value == "{}" || value == "[]");
        if (!wrapped && !nothing && !bare_container)
            return _bad("has to be an object whose only member is \"" + std::string(schema_->name) + "\"");
        if (nothing) return _nothing();
        if (!metadata.empty()) return _parse_below(_json_member(value) + "," + _json_member(metadata, "@"));
        return _read_json_value(value);
    }

    Result<void> _read_json_value(std::string_view value) {
        content_.given = true;
        switch (schema_->nodetype) {
        case LYS_LEAF: return _read_json_leaf(value);
        case LYS_LEAFLIST: return _read_json_leaflist(value);
        case LYS_LIST: return _read_json_list(value);
        case LYS_CONTAINER:
            if (_is_null(value)) return _nothing();
            if (value[0] != '{') return _bad("has to be an object");
            break;
        default: break;
        }
        return _parse_below(_json_member(value));
    }

    std::string _json_member(std::string_view value, const char *sign = "") const {
        std::string member("\"");
        return member.append(sign)
            .append(schema_->module->name)
            .append(":")
            .append(schema_->name)
            .append("\":")
            .append(value);
    }

    // The text of a scalar; `[null]`, which stands for the value of an empty leaf, is the empty text.
    Result<std::string> _json_scalar(std::string_view value) const {
        if (value[0] == '"') return json_unescape(value.substr(1, value.size() - 2));
        if (value[0] == '[' && json_elements(value).size() == 1 && json_elements(value)[0] == "null")
            return std::string();
        if (value[0] == '{' || value[0] == '[' || value == "null") return _bad("has to be a single value");
        return std::string(value);
    }

    Result<void> _read_json_leaf(std::string_view value) {
        auto text = _json_scalar(value);
        if (!text) return std::move(text).error();
        return _add_value(*text);
    }

    Result<void> _read_json_leaflist(std::string_view value) {
        std::vector<std::string_view> values{value};
        if (value[0] == '[')
            values = json_elements(value);
        else if (_is_null(value) && (kind_ == ContentKind::deletion || !place_.is_all_entries()))
            values.clear();
        std::unordered_set<std::string> seen;
        for (std::string_view element : values) {
            auto text = _json_scalar(element);
            if (!text) return std::move(text).error();
            if (kind_ != ContentKind::answer && !seen.insert(*text).second)
                return _bad("gives the value \"" + shown(*text) + "\" twice");
            if (auto added = _add_value(*text); !added) return added;
        }
        return values.empty() ? _nothing() : _only_the_named_entry();
    }

    Result<void> _read_json_list(std::string_view value) {
        if (_is_null(value) || value == "{}" || value == "[]") return _nothing();
        if (value[0] != '[' && value[0] != '{') return _bad("has to be an object or an array of objects");
        if (place_.is_all_entries())
            return _parse_below(_json_member(value[0] == '[' ? std::string(value) : "[" + std::string(value) + "]"));
        std::vector<std::string_view> entries{value};
        if (value[0] == '[') entries = json_elements(value);
        if (entries.size() != 1 || entries[0].empty() || entries[0][0] != '{') return _bad("has to be one entry");
        auto keys = _missing_keys([members = json_members(entries[0])](const lysc_node *key) {
            return std::any_of(members.begin(), members.end(),
                               [key](const JsonMember &member) { return _names(member.name, key); });
        });
        if (!keys) return std::move(keys).error();
        std::string_view rest = trim(entries[0].substr(1));
        if (!keys->empty() && rest[0] == '}') keys->pop_back(); // the comma after the last key
        auto parsed = _parse_below(_json_member("[{" + *keys + std::string(rest) + "]"));
        return parsed ? _only_the_named_entry() : parsed;
    }

    // ---- XML

    Result<void> _read_xml(std::string_view text) {
        auto elements = xml_elements(text);
        if (elements.empty()) return _nothing();
        content_.given = true;
        if (elements.size() > 1 && !place_.is_all_entries()) return _bad("has to be a single element");
        std::string document;
        for (const XmlElement &element : elements) {
            if (_local_name(element.name) != schema_->name)
                return _bad("holds the element \"" + shown(element.name) + "\" in its place");
            auto completed = _complete(element);
            if (!completed) return std::move(completed).error();
            document += *completed;
        }
        if (_stands_for_nothing(elements[0]) && schema_->nodetype == LYS_LEAFLIST && elements.size() == 1 &&
            !_may_hold_operations(text))
            return _nothing();
        auto parsed = _parse_below(document);
        return parsed ? _only_the_named_entry() : parsed;
    }

    bool _stands_for_nothing(const XmlElement &element) const {
        return trim(element.content).empty() && !place_.is_all_entries();
    }

    // The element with the namespace of its node, if it names none, and with the keys of its path, if it lacks them.
    Result<std::string> _complete(const XmlElement &element) const {
        std::string keys;
        if (schema_->nodetype == LYS_LIST && !place_.is_all_entries()) {
            auto missing = _missing_keys([children = xml_elements(element.content)](const lysc_node *key) {
                return std::any_of(children.begin(), children.end(),
                                   [key](const XmlElement &child) { return _local_name(child.name) == key->name; });
            });
            if (!missing) return std::move(missing).error();
            keys = std::move(*missing);
        }
        std::string text = "<" + std::string(element.name);
        bool has_namespace = element.name.find(':') != std::string_view::npos || xml_attribute(element, "xmlns");
        if (!has_namespace) text.append(" xmlns=\"").append(schema_->module->ns).append("\"");
        if (!element.attributes.empty()) text.append(" ").append(element.attributes);
        text.append(">").append(keys).append(element.content);
        return text.append("</").append(element.name).append(">");
    }

    // ---- both

    // The keys that the path gives and the content lacks, printed to stand in front of the entry's other members.
    template <class HasKey>
    Result<std::string> _missing_keys(HasKey &&has_key) const {
        Tree scratch;
        lyd_node *entry = nullptr;
        for (const Step &step : place_.steps()) {
            auto created = create_step(scratch, entry, step);
            if (!created) return std::move(created).error();
            entry = *created;
        }
        return _printed_keys(entry, has_key);
    }

    // The keys of a node, those aside that `has_key` knows; in JSON each with a comma behind it.
    template <class HasKey>
    std::string _printed_keys(const lyd_node *entry, HasKey &&has_key) const {
        std::string printed;
        for (const lyd_node *key = lyd_child(entry); key && lysc_is_key(key->schema); key = key->next) {
            if (has_key(key->schema)) continue;
            char *text = nullptr;
            lyd_print_mem(&text, key, static_cast<LYD_FORMAT>(format_), LYD_PRINT_SHRINK);
            Text owner(text);
            std::string_view view = owner.view();
            if (format_ == Format::json && view.size() > 2) printed.append(view.substr(1, view.size() - 2)).append(",");
            if (format_ == Format::xml) printed.append(view);
        }
        return printed;
    }

    // Without content the place itself is what is meant: a container, the entry that the path names, an empty leaf.
    Result<void> _nothing() {
        const Step &step = place_.steps().back();
        bool stands_alone = (schema_->nodetype & LYS_CONTAINER) || step.names_entry();
        if (!stands_alone) return {};
        auto created = create_step(content_.tree, content_.parent, step);
        if (!created) return std::move(created).error();
        return {};
    }

    Result<void> _add_value(const std::string &text) {
        if (!is_yang_text(text)) return _bad("holds a character that no value may have");
        LibyangErrors errors(ctx_);
        lyd_node *node = nullptr;
        if (lyd_new_term(content_.parent, schema_->module, schema_->name, text.c_str(), 0, &node) != LY_SUCCESS) {
            Error error = errors.take("The value \"" + shown(text) + "\" is refused.");
            error.path = place_.data_path(); // libyang tells the path without keys
            return error;
        }
        if (!content_.parent && lyd_insert_sibling(content_.tree.root, node, &content_.tree.root) != LY_SUCCESS)
            lyd_free_tree(node);
        content_.given = true;
        return {};
    }

    // Content for one entry must be about that entry.
    Result<void> _only_the_named_entry() const {
        const Step &step = place_.steps().back();
        if (!step.names_entry()) return {};
        for (const lyd_node *node = content_.first(); node; node = node->next) {
            if (node->schema == schema_ && !step.matches(node))
                return _bad("is about another entry, " + shown(entry_predicates(node)));
        }
        return {};
    }

    // Parses members or elements that belong below what is above the place. They are put into a document from the root:
    // given a parent node, libyang 2.1.30 dies of metadata on the first level.
    Result<void> _parse_below(const std::string &text) {
        if (text.empty()) return {};
        bool json = format_ == Format::json;
        auto none = [](const lysc_node *) { return false; };
        std::string before, after;
        for (const lyd_node *node = content_.parent; node; node = lyd_parent(node)) {
            bool list = node->schema->nodetype == LYS_LIST;
            std::string name = node->schema->name;
            std::string keys = list ? _printed_keys(node, none) : std::string();
            if (json) {
                before = "\"" + std::string(node->schema->module->name) + ":" + name + (list ? "\":[{" : "\":{") +
                         keys + before;
                after += list ? "}]" : "}";
            } else {
                before = "<" + name + " xmlns=\"" + node->schema->module->ns + "\">" + keys + before;
                after += "</" + name + ">";
            }
        }
        auto parsed = _parse(json ? "{" + before + text + after + "}" : before + text + after);
        if (!parsed) return parsed;
        _find_parent();
        return {};
    }

    void _find_parent() {
        content_.parent = nullptr;
        for (std::size_t i = 0; i + 1 < place_.steps().size(); ++i)
            content_.parent = find_step(content_.first(), place_.steps()[i]);
    }

    // Parses a document from the root in place of what the content held until now.
    Result<void> _parse(const std::string &document) {
        content_.given = true;
        content_.parent = nullptr;
        if (document.empty()) return {};
        uint32_t state = kind_ != ContentKind::answer ? LYD_PARSE_NO_STATE : 0;
        LibyangErrors errors(ctx_);
        if (_parse_with(document, plain_parse | state)) return {};
        Error error = errors.take(fault_ ? std::string("The content is not read: ") + fault_ + "."
                                         : "The content does not fit the data model.");
        if (kind_ == ContentKind::answer || !_may_hold_operations(document)) return error;
        std::string again = format_ == Format::json ? WholeLeafLists(ctx_).rename(document, nullptr) : document;
        bool parsed = _parse_with(again, lenient_parse | state) && _all_opaque_are_deleted(content_.tree.root);
        return parsed ? Result<void>() : error;
    }

    bool _parse_with(const std::string &document, uint32_t options) {
        fault_ = zam_lyd_text_fault(ctx_, document.c_str(), static_cast<LYD_FORMAT>(format_), nullptr);
        if (fault_) return false;
        lyd_node *parsed = nullptr;
        LY_ERR result =
            lyd_parse_data_mem(ctx_, document.c_str(), static_cast<LYD_FORMAT>(format_), options, 0, &parsed);
        content_.tree = Tree(parsed);
        return result == LY_SUCCESS;
    }

    const ly_ctx *ctx_;
    const Place &place_;
    const lysc_node *schema_;
    Format format_;
    ContentKind kind_;
    const char *fault_ = nullptr; // why the document was not given to libyang
    Content content_;
};

} // namespace

std::string_view stated_operation(const lyd_node *node) {
    if (node->schema) {
        for (const lyd_meta *meta = node->meta; meta; meta = meta->next) {
            bool netconf = std::strcmp(meta->annotation->module->name, "ietf-netconf") == 0;
            if (netconf && std::strcmp(meta->name, "operation") == 0) return lyd_get_meta_value(meta);
        }
        return {};
    }
    const auto &opaque = *reinterpret_cast<const lyd_node_opaq *>(node);
    if (const char *sign = std::strchr(opaque.name.name, whole_list_sign)) return sign + 1;
    for (const lyd_attr *attr = opaque.attr; attr; attr = attr->next) {
        if (std::strcmp(attr->name.name, "operation") == 0) return attr->value;
    }
    return {};
}

Result<Content> read_content(const ly_ctx *ctx, const Place &place, std::string_view text, Format format,
                             ContentKind kind) {
    return ContentReader(ctx, place, format, kind).read(text);
}

Result<lyd_node *> create_step(Tree &tree, lyd_node *parent, const Step &step) {
    const lysc_node *schema = step.schema;
    lyd_node *node = nullptr;
    LY_ERR result = LY_EINVAL;
    if (schema->nodetype == LYS_CONTAINER) {
        result = lyd_new_inner(parent, schema->module, schema->name, 0, &node);
    } else if (schema->nodetype == LYS_LIST && step.values.size() <= most_keys) {
        std::array<const char *, most_keys> v{};
        for (std::size_t i = 0; i < step.values.size(); ++i)
            v[i] = step.values[i].c_str();
        // It takes as many values as the list has keys, and leaves the others alone.
        result = lyd_new_list(parent, schema->module, schema->name, 0, &node, v[0], v[1], v[2], v[3], v[4], v[5], v[6],
                              v[7], v[8], v[9], v[10], v[11], v[12], v[13], v[14], v[15]);
    } else if (schema->nodetype & LYD_NODE_TERM) {
        const char *value = step.values.empty() ? "" : step.values.front().c_str();
        result = lyd_new_term(parent, schema->module, schema->name, value, 0, &node);
    }
    if (result != LY_SUCCESS || !node)
        return bad_request("operation-failed", "\"" + std::string(schema->name) + "\" cannot be created.");
    if (!parent && lyd_insert_sibling(tree.root, node, &tree.root) != LY_SUCCESS) {
        lyd_free_tree(node);
        return refusal("resource-denied", "\"" + std::string(schema->name) + "\" cannot be inserted.");
    }
    return node;
}

} // namespace zamd
