// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "store_path.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace zamd {
namespace {

constexpr std::size_t longest_shown = 160;

bool _is_name_char(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-' ||
           c == '.';
}

// One predicate as written: "[name='value']", or "[3]" with an empty name.
struct Predicate {
    std::string_view name;
    std::string value;
};

// One segment as written.
struct Segment {
    std::string_view module; // empty without prefix
    std::string_view name;
    std::vector<Predicate> predicates;
};

// Splits a path into segments. Every reader returns false at a character that does not belong there.
class PathReader {
public:
    explicit PathReader(std::string_view path) : path_(path) {}

    bool at_end() const { return at_ == path_.size(); }
    std::size_t position() const { return at_; }

    bool separator() { return _take('/'); }

    bool segment(Segment &segment) {
        if (!_identifier(segment.name)) return false;
        if (_take(':')) {
            segment.module = segment.name;
            if (!_identifier(segment.name)) return false;
        }
        while (_take('[')) {
            if (!_predicate(segment.predicates.emplace_back())) return false;
        }
        return at_end() || path_[at_] == '/';
    }

private:
    bool _take(char c) {
        if (at_ == path_.size() || path_[at_] != c) return false;
        ++at_;
        return true;
    }

    bool _identifier(std::string_view &name) {
        std::size_t from = at_;
        while (at_ < path_.size() && _is_name_char(path_[at_]))
            ++at_;
        name = path_.substr(from, at_ - from);
        return !name.empty();
    }

    bool _predicate(Predicate &predicate) {
        if (_take('.')) {
            predicate.name = ".";
        } else {
            if (!_identifier(predicate.name)) return false;
            if (_take(':') && !_identifier(predicate.name)) return false;
        }
        if (_take(']')) { // a position
            predicate.value = predicate.name;
            predicate.name = {};
            return true;
        }
        return _take('=') && _value(predicate.value) && _take(']');
    }

    bool _value(std::string &value) {
        if (at_ == path_.size()) return false;
        char quote = path_[at_];
        if (quote != '"' && quote != '\'') {
            std::size_t end = path_.find(']', at_);
            if (end == std::string_view::npos || end == at_) return false;
            value = path_.substr(at_, end - at_);
            at_ = end;
            return true;
        }
        for (++at_; at_ < path_.size() && path_[at_] != quote; ++at_) {
            if (quote == '"' && path_[at_] == '\\' && ++at_ == path_.size()) return false;
            value.push_back(path_[at_]);
        }
        return _take(quote);
    }

    std::string_view path_;
    std::size_t at_ = 0;
};

// Keeps libyang from logging what becomes an Error of ours.
class QuietLibyang {
public:
    QuietLibyang() : options_(ly_log_options(0)) {}
    ~QuietLibyang() { ly_log_options(options_); }
    QuietLibyang(const QuietLibyang &) = delete;
    QuietLibyang &operator=(const QuietLibyang &) = delete;

private:
    uint32_t options_;
};

// A value's canonical text in the schema of a key or leaf-list; nothing when its type refuses it.
std::optional<std::string> _canonical(const ly_ctx *ctx, const lysc_node *schema, const std::string &value) {
    QuietLibyang quiet;
    const char *text = nullptr;
    LY_ERR result = lyd_value_validate(nullptr, schema, value.c_str(), value.size(), nullptr, nullptr, &text);
    if (result != LY_SUCCESS && result != LY_EINCOMPLETE) return std::nullopt;
    std::string canonical = text ? text : value;
    if (text) lydict_remove(ctx, text);
    return canonical;
}

// How a value stands in a predicate; see instance_path().
std::string _quoted(std::string_view value) {
    std::string quoted = "\"";
    for (char c : value) {
        if (c == '"' || c == '\\') quoted.push_back('\\');
        quoted.push_back(c);
    }
    return quoted + "\"";
}

std::string _predicates(const lysc_node *schema, const std::vector<std::string> &values) {
    if (values.empty()) return {};
    if (schema->nodetype == LYS_LEAFLIST) return "[.=" + _quoted(values.front()) + "]";
    std::string text;
    const lysc_node *key = lysc_node_child(schema);
    for (const std::string &value : values) {
        text.append("[").append(key->name).append("=").append(_quoted(value)).append("]");
        key = key->next;
    }
    return text;
}

// The values that tell the entry `node` from the others of its list.
std::vector<std::string> _entry_values(const lyd_node *node) {
    std::vector<std::string> values;
    if (node->schema->nodetype == LYS_LEAFLIST) values.emplace_back(lyd_get_value(node));
    if (node->schema->nodetype != LYS_LIST) return values;
    for (const lyd_node *key = lyd_child(node); key && key->schema && lysc_is_key(key->schema); key = key->next)
        values.emplace_back(lyd_get_value(key));
    return values;
}

uint32_t _position(const lyd_node *node) {
    uint32_t position = 1;
    for (const lyd_node *before = node; before->prev->next && before->prev->schema == node->schema;
         before = before->prev)
        ++position;
    return position;
}

// Turns the segments of one path into steps.
class PlaceFinder {
public:
    PlaceFinder(const ly_ctx *ctx, std::string_view path) : ctx_(ctx), path_(path) {}

    Result<std::vector<Step>> find() {
        PathReader reader(path_);
        if (!reader.separator()) return _bad("begins without \"/\"");
        while (!reader.at_end()) {
            Segment segment;
            if (!reader.segment(segment))
                return _bad("cannot be read from \"" + shown(path_.substr(reader.position())) + "\" on");
            if (auto taken = _take(segment); !taken) return std::move(taken).error();
            if (!reader.at_end() && !reader.separator()) return _bad("holds what is no step");
        }
        if (parent_ && (parent_->nodetype & (LYS_CHOICE | LYS_CASE)))
            return _bad("ends at a choice or case, which holds no data of its own");
        return std::move(steps_);
    }

private:
    Error _bad(const std::string &why, const char *tag = "invalid-value") const {
        return bad_request(tag, "The path \"" + shown(path_) + "\" " + why + ".");
    }

    Result<void> _take(const Segment &segment) {
        const lys_module *module = parent_ ? parent_->module : nullptr;
        if (!segment.module.empty()) {
            module = ly_ctx_get_module_implemented(ctx_, std::string(segment.module).c_str());
            if (!module)
                return _bad("names the module \"" + shown(segment.module) + "\", which is not loaded",
                            "unknown-element");
        }
        if (!module) return _bad("lacks the name of a module in its first step");
        if (_is_operation_part(segment)) return {};
        const lysc_node *schema = _child(module, segment.name);
        if (!schema)
            return _bad("names \"" + shown(segment.name) + "\", which the module \"" + module->name +
                            "\" does not have there",
                        "unknown-element");
        parent_ = schema;
        if (schema->nodetype & (LYS_CHOICE | LYS_CASE)) return {};
        Step &step = steps_.emplace_back();
        step.schema = schema;
        return segment.predicates.empty() ? Result<void>() : _take_predicates(step, segment);
    }

    // "input" and "output" of an operation are steps for some and none for others.
    bool _is_operation_part(const Segment &segment) {
        if (!parent_ || !(parent_->nodetype & (LYS_RPC | LYS_ACTION))) return false;
        if (segment.name == "output") options_ |= LYS_GETNEXT_OUTPUT;
        return segment.name == "input" || segment.name == "output";
    }

    const lysc_node *_child(const lys_module *module, std::string_view name) const {
        const lysc_node *found = lys_find_child(parent_, module, name.data(), name.size(), 0, options_);
        if (found) return found;
        while ((found = lys_getnext(found, parent_, module->compiled,
                                    options_ | LYS_GETNEXT_WITHCHOICE | LYS_GETNEXT_WITHCASE))) {
            if (found->module == module && name == found->name) break;
        }
        return found;
    }

    Result<void> _take_predicates(Step &step, const Segment &segment) {
        const lysc_node *schema = step.schema;
        if (schema->nodetype == LYS_LEAFLIST) return _take_value(step, segment);
        if (schema->nodetype != LYS_LIST)
            return _bad("has a predicate at \"" + std::string(schema->name) + "\", which is no list");
        if (schema->flags & LYS_KEYLESS) return _take_position(step, segment);
        for (const lysc_node *key = lysc_node_child(schema); key && lysc_is_key(key); key = key->next) {
            auto given = std::find_if(segment.predicates.begin(), segment.predicates.end(),
                                      [key](const Predicate &p) { return p.name == key->name; });
            if (given == segment.predicates.end())
                return _bad("lacks the key \"" + std::string(key->name) + "\" of \"" + schema->name + "\"",
                            "missing-element");
            if (auto added = _add_value(step, key, given->value); !added) return added;
        }
        if (segment.predicates.size() != step.values.size())
            return _bad("has a predicate that is no key of \"" + std::string(schema->name) + "\"");
        return {};
    }

    Result<void> _take_value(Step &step, const Segment &segment) {
        if (segment.predicates.size() != 1 || segment.predicates.front().name != ".")
            return _bad("takes \"" + std::string(step.schema->name) + "\" for a list, and it is a leaf-list");
        return _add_value(step, step.schema, segment.predicates.front().value);
    }

    Result<void> _take_position(Step &step, const Segment &segment) {
        const Predicate &predicate = segment.predicates.front();
        const char *end = predicate.value.data() + predicate.value.size();
        auto parsed = std::from_chars(predicate.value.data(), end, step.position);
        if (segment.predicates.size() != 1 || !predicate.name.empty() || parsed.ec != std::errc() ||
            parsed.ptr != end || step.position == 0)
            return _bad("needs a position at \"" + std::string(step.schema->name) + "\", a list without keys");
        return {};
    }

    Result<void> _add_value(Step &step, const lysc_node *schema, const std::string &value) {
        auto canonical = _canonical(ctx_, schema, value);
        if (!canonical)
            return _bad("gives \"" + std::string(schema->name) + "\" the value \"" + shown(value) +
                        "\", which its type refuses");
        step.values.push_back(std::move(*canonical));
        return {};
    }

    const ly_ctx *ctx_;
    std::string_view path_;
    const lysc_node *parent_ = nullptr;
    uint32_t options_ = 0;
    std::vector<Step> steps_;
};

} // namespace

std::string Step::predicates() const {
    return position ? "[" + std::to_string(position) + "]" : _predicates(schema, values);
}

bool Step::matches(const lyd_node *node) const {
    if (node->schema != schema) return false;
    if (values.empty()) return true;
    if (schema->nodetype == LYS_LEAFLIST) return values.front() == lyd_get_value(node);
    const lyd_node *key = lyd_child(node);
    for (const std::string &value : values) {
        if (!key || !key->schema || !lysc_is_key(key->schema) || value != lyd_get_value(key)) return false;
        key = key->next;
    }
    return true;
}

Result<Place> Place::find(const ly_ctx *ctx, std::string_view path) {
    Place place;
    if (path == "/") return place;
    auto steps = PlaceFinder(ctx, path).find();
    if (!steps) return std::move(steps).error();
    place.steps_ = std::move(*steps);
    return place;
}

bool Place::is_all_entries() const {
    return !is_root() && (schema()->nodetype & (LYS_LIST | LYS_LEAFLIST)) && !steps_.back().names_entry();
}

bool Place::is_one_instance(bool itself) const {
    std::size_t count = steps_.size() - (itself || steps_.empty() ? 0 : 1);
    return std::all_of(steps_.begin(), steps_.begin() + static_cast<std::ptrdiff_t>(count), [](const Step &step) {
        return !(step.schema->nodetype & (LYS_LIST | LYS_LEAFLIST)) || step.names_entry();
    });
}

std::string Place::schema_path() const {
    if (is_root()) return "/";
    std::string text;
    const lys_module *module = nullptr;
    for (const Step &step : steps_) {
        text.push_back('/');
        if (step.schema->module != module) text.append(step.schema->module->name).push_back(':');
        text.append(step.schema->name);
        module = step.schema->module;
    }
    return text;
}

std::string Place::data_path() const {
    if (is_root()) return "/";
    std::string text;
    const lys_module *module = nullptr;
    for (const Step &step : steps_) {
        text.push_back('/');
        if (step.schema->module != module) text.append(step.schema->module->name).push_back(':');
        text.append(step.schema->name).append(step.predicates());
        module = step.schema->module;
    }
    return text;
}

bool Place::covers(const Place &other) const {
    if (steps_.size() > other.steps_.size()) return false;
    return std::equal(steps_.begin(), steps_.end(), other.steps_.begin(), [](const Step &mine, const Step &theirs) {
        if (mine.schema != theirs.schema) return false;
        bool both = mine.names_entry() && theirs.names_entry();
        return !both || (mine.values == theirs.values && mine.position == theirs.position);
    });
}

lyd_node *find_step(const lyd_node *first, const Step &step) {
    lyd_node *found = nullptr;
    if (!first) return nullptr;
    if (step.position || (step.schema->flags & LYS_KEYLESS && step.schema->nodetype == LYS_LIST)) {
        uint32_t left = std::max(step.position, 1u);
        for (const lyd_node *node = first; node; node = node->next) {
            if (node->schema == step.schema && --left == 0) return const_cast<lyd_node *>(node);
        }
        return nullptr;
    }
    bool leaflist = step.schema->nodetype == LYS_LEAFLIST;
    std::string sought = step.values.empty() ? std::string() : leaflist ? step.values.front() : step.predicates();
    if (leaflist || sought.find('\\') == std::string::npos) {
        QuietLibyang quiet;
        lyd_find_sibling_val(first, step.schema, step.values.empty() ? nullptr : sought.c_str(), sought.size(), &found);
        return found;
    }
    // Escapes of ours are none of libyang's predicates, which cannot hold both kinds of quotes: look one by one.
    for (const lyd_node *node = first; node; node = node->next) {
        if (step.matches(node)) return const_cast<lyd_node *>(node);
    }
    return nullptr;
}

std::string entry_predicates(const lyd_node *node) {
    if (node->schema->nodetype == LYS_LIST && (node->schema->flags & LYS_KEYLESS))
        return "[" + std::to_string(_position(node)) + "]";
    return _predicates(node->schema, _entry_values(node));
}

std::string instance_path(const lyd_node *node) {
    if (!node) return "/";
    std::string text;
    const lyd_node *parent = lyd_parent(node);
    if (parent) text = instance_path(parent);
    text.push_back('/');
    if (!parent || parent->schema->module != node->schema->module)
        text.append(node->schema->module->name).push_back(':');
    return text.append(node->schema->name).append(entry_predicates(node));
}

std::string shown(std::string_view text) {
    if (text.size() <= longest_shown) return std::string(text);
    std::size_t cut = longest_shown;
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80)
        --cut;
    return std::string(text.substr(0, cut)) + "...";
}

} // namespace zamd
