// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The request's operation holds for the nodes at its place and is handed down; a node of the content may state its own
// with `ietf-netconf:operation`, and its place in a user-ordered list with `yang:insert`.
//
// Cost: that of the content, plus for a replacement that of the child lists it replaces. No step looks through the
// siblings of an entry one by one.
#include "edit.h"

#include <cstring>
#include <map>
#include <optional>
#include <unordered_set>

#include "diff_pairs.h"
#include "store_copy.h"

namespace zamd {
namespace {

// Nodes of a user-ordered list in the order that a replacement gives them.
using Sequences = std::map<const lysc_node *, std::vector<lyd_node *>>;

const char *_yang_annotation(const lyd_node *node, const char *name) {
    for (const lyd_meta *meta = node->meta; meta; meta = meta->next) {
        if (std::strcmp(meta->name, name) == 0 && std::strcmp(meta->annotation->module->name, "yang") == 0)
            return lyd_get_meta_value(meta);
    }
    return nullptr;
}

bool _is_deletion(Operation operation) {
    return operation == Operation::remove || operation == Operation::del;
}
bool _is_key(const lyd_node *node) {
    return node->schema && lysc_is_key(node->schema);
}
bool _is_inner(const lyd_node *node) {
    return node->schema->nodetype & (LYS_CONTAINER | LYS_LIST);
}

// Something below or at the node asks for more than to be there.
bool _has_wishes(const lyd_node *node) {
    if (!node->schema || node->meta) return true;
    for (const lyd_node *child = lyd_child(node); child; child = child->next) {
        if (_has_wishes(child)) return true;
    }
    return false;
}

Error _exists(const lyd_node *node) {
    std::string path = instance_path(node);
    return refusal("data-exists", "\"" + shown(path) + "\" exists already.", path);
}

Error _missing(const std::string &path) {
    return refusal("data-missing", "\"" + shown(path) + "\" does not exist.", path);
}

Error _key_stays(const std::string &path) {
    return bad_request("operation-not-supported", "A key goes with its entry and cannot be deleted alone.", path);
}

class Editor {
public:
    Editor(const ly_ctx *ctx, Tree &target, Content &content)
        : ctx_(ctx), target_(target), content_(content), top_level_(target) {}

    Result<void> apply(const Place &place, Operation operation) {
        if (place.is_root())
            return _is_deletion(operation) ? _delete_all(operation) : _edit_level(nullptr, nullptr, operation, true);
        if (auto keys = needs_keys_above(place); !keys) return keys;
        lyd_node *parent = nullptr;
        for (std::size_t i = 0; i + 1 < place.steps().size(); ++i) {
            lyd_node *found = find_step(_children(parent), place.steps()[i]);
            if (!found && operation == Operation::remove) return {};
            if (!found && operation == Operation::del) return _missing(place.data_path());
            if (!found) {
                auto created = _create(parent, place.steps()[i]);
                if (!created) return std::move(created).error();
                found = *created;
            }
            parent = found;
        }
        if (lysc_is_key(place.schema())) return _edit_key(place, parent, operation);
        return _is_deletion(operation) ? _delete(place, parent, operation) : _put(place, parent, operation);
    }

private:
    lyd_node *_children(lyd_node *parent) const { return parent ? lyd_child(parent) : target_.root; }

    // ---- what happens at the place itself

    // A key is the identity of its entry: it can be stated, not changed or taken away.
    Result<void> _edit_key(const Place &place, const lyd_node *parent, Operation operation) const {
        std::string path = place.data_path();
        if (_is_deletion(operation)) return _key_stays(path);
        const lyd_node *given = content_.first();
        while (given && given->schema != place.schema())
            given = given->next;
        if (!given || !parent)
            return bad_request("missing-element", "There is no value for \"" + shown(path) + "\".", path);
        const lyd_node *key = lyd_child(parent);
        while (key && key->schema != place.schema())
            key = key->next;
        if (key && is_same_value(key, given))
            return operation == Operation::create ? Result<void>(_exists(key)) : Result<void>();
        return bad_request("invalid-value", "The key \"" + shown(path) + "\" cannot be given another value.", path);
    }

    Result<void> _delete_all(Operation operation) {
        bool any = false;
        for (lyd_node *node = target_.root, *next; node; node = next) {
            next = node->next;
            if (!is_explicit(node)) continue;
            _remove(node);
            any = true;
        }
        return any || operation == Operation::remove ? Result<void>() : Result<void>(_missing("/"));
    }

    // The content of a deletion matters only where the place is a list as a whole: it may name the entries.
    Result<void> _delete(const Place &place, lyd_node *parent, Operation operation) {
        if (place.is_all_entries()) {
            bool named = false;
            for (const lyd_node *node = content_.first(); node; node = node->next)
                named |= node->schema == place.schema();
            if (named) return _edit_level(parent, place.schema(), operation, false);
        }
        bool any = _remove_all(parent, place.steps().back());
        return any || operation == Operation::remove ? Result<void>() : Result<void>(_missing(place.data_path()));
    }

    Result<void> _put(const Place &place, lyd_node *parent, Operation operation) {
        bool any = false;
        for (const lyd_node *node = content_.first(); node; node = node->next)
            any |= !node->schema || node->schema == place.schema();
        std::string path = place.data_path();
        if (!any && !place.is_all_entries())
            return bad_request("missing-element", "There is no value for \"" + shown(path) + "\".", path);
        return _edit_level(parent, place.schema(), operation, place.is_all_entries());
    }

    // Edits children of `parent` as the content says, all of them or those of one schema node. A replacement of the
    // level takes away what the content does not hold.
    Result<void> _edit_level(lyd_node *parent, const lysc_node *only, Operation operation, bool whole) {
        lyd_node *first = content_.first();
        if (auto done = _delete_all_unvalued(first, parent, operation); !done) return done;
        if (operation == Operation::replace && whole) _prune(parent, first, only);
        Sequences sequences;
        for (lyd_node *node = first, *next; node; node = next) {
            next = node->next;
            if (only && node->schema != only) continue;
            auto edited = _edit(node, parent, operation, sequences);
            if (!edited) return edited;
        }
        return operation == Operation::replace && whole ? _reorder(parent, sequences) : Result<void>();
    }

    // ---- one node of the content

    static Result<Operation> _operation(const lyd_node *node, Operation inherited) {
        std::string_view own = stated_operation(node);
        return own.empty() ? Result<Operation>(inherited) : operation_by_name(own);
    }

    Result<void> _edit(lyd_node *node, lyd_node *parent, Operation inherited, Sequences &sequences) {
        auto operation = _operation(node, inherited);
        if (!operation) return std::move(operation).error();
        lyd_node *existing = _find(parent, node);
        if (_is_deletion(*operation)) {
            if (_is_key(node)) return _key_stays(instance_path(node));
            bool any = is_explicit(existing);
            if (any)
                _remove(existing);
            else if (_may_name_all(node))
                any = _remove_all(parent, Step{node->schema, {}, 0});
            return any || *operation == Operation::remove ? Result<void>()
                                                          : Result<void>(_missing(instance_path(node)));
        }
        if (*operation == Operation::create && is_explicit(existing)) return _exists(existing);
        std::string insert, anchor;
        if (is_user_ordered(node)) _read_insert(node, insert, anchor);
        auto result = existing ? _change(node, existing, *operation) : _insert(node, parent, *operation);
        if (!result) return std::move(result).error();
        if (is_user_ordered(*result) && *operation == Operation::replace)
            sequences[(*result)->schema].push_back(*result);
        return insert.empty() ? Result<void>() : _place_entry(*result, parent, insert, anchor);
    }

    // XML writes an entry with an empty value as it writes none at all; where there is no such entry, the leaf-list as
    // a whole is meant.
    bool _may_name_all(const lyd_node *node) const {
        return content_.format == Format::xml && node->schema->nodetype == LYS_LEAFLIST && !*lyd_get_value(node);
    }

    // Deletions that give no value go first and out of the content: libyang cannot search among opaque nodes.
    Result<void> _delete_all_unvalued(lyd_node *&first, lyd_node *parent, Operation inherited) {
        for (lyd_node *node = first, *next; node; node = next) {
            next = node->next;
            if (node->schema) continue;
            if (node == first) first = next;
            detach(content_.tree, node);
            Node owner(node);
            auto operation = _operation(node, inherited);
            if (!operation) return std::move(operation).error();
            if (auto deleted = _delete_unvalued(node, parent, *operation); !deleted) return deleted;
        }
        return {};
    }

    // A deletion that gives no value: the node of that name, or all entries of that list.
    Result<void> _delete_unvalued(const lyd_node *node, lyd_node *parent, Operation operation) {
        const auto &opaque = *reinterpret_cast<const lyd_node_opaq *>(node);
        const lys_module *module = parent ? parent->schema->module : nullptr;
        if (opaque.name.module_name) // of XML it is the namespace
            module = opaque.format == LY_VALUE_XML ? ly_ctx_get_module_implemented_ns(ctx_, opaque.name.module_ns)
                                                   : ly_ctx_get_module_implemented(ctx_, opaque.name.module_name);
        std::string_view name = opaque.name.name;
        name = name.substr(0, name.find(whole_list_sign));
        std::string path = instance_path(parent);
        const lysc_node *schema =
            module ? lys_find_child(parent ? parent->schema : nullptr, module, name.data(), name.size(), 0, 0)
                   : nullptr;
        if (!schema) return bad_request("unknown-element", "There is no \"" + shown(name) + "\" here.", path);
        if (lysc_is_key(schema)) return _key_stays(path);
        if (!_is_deletion(operation))
            return bad_request("invalid-value", "\"" + shown(name) + "\" has no valid value.", path);
        Step step{schema, {}, 0};
        bool valued = opaque.value && opaque.value[0];
        if (schema->nodetype == LYS_LEAFLIST && valued) step.values.emplace_back(opaque.value);
        if (_remove_all(parent, step) || operation == Operation::remove) return {};
        bool prefixed = !parent || parent->schema->module != module;
        return _missing((parent ? instance_path(parent) : std::string()) + "/" +
                        (prefixed ? module->name + std::string(":") : "") + schema->name);
    }

    Result<lyd_node *> _change(lyd_node *node, lyd_node *existing, Operation operation) {
        if (_is_inner(node)) {
            auto changed = _change_inside(node, existing, operation);
            if (!changed) return std::move(changed).error();
            return existing;
        }
        if (is_explicit(existing) && is_same_value(existing, node)) return existing;
        lyd_node *parent = lyd_parent(existing);
        _remove(existing);
        lyd_free_meta_siblings(node->meta);
        return _take(node, parent);
    }

    Result<void> _change_inside(lyd_node *node, lyd_node *existing, Operation operation) {
        lyd_node *first = lyd_child(node);
        if (auto done = _delete_all_unvalued(first, existing, operation); !done) return done;
        if (operation == Operation::replace) _prune(existing, first, nullptr);
        Sequences sequences;
        for (lyd_node *child = first, *next; child; child = next) {
            next = child->next;
            if (_is_key(child) && !child->meta) continue;
            auto edited = _edit(child, existing, operation, sequences);
            if (!edited) return edited;
        }
        return operation == Operation::replace ? _reorder(existing, sequences) : Result<void>();
    }

    Result<lyd_node *> _insert(lyd_node *node, lyd_node *parent, Operation operation) {
        if (!_has_wishes(node)) return _take(node, parent);
        lyd_node *copy = nullptr;
        if (lyd_dup_single(node, nullptr, LYD_DUP_NO_META, &copy) != LY_SUCCESS) return _no_memory();
        auto inserted = _take(copy, parent);
        if (!inserted || !_is_inner(node)) return inserted;
        auto filled = _change_inside(node, copy, operation);
        if (!filled) return std::move(filled).error();
        return copy;
    }

    // ---- the target

    static Error _no_memory() { return refusal("resource-denied", "The change could not be made for want of memory."); }

    lyd_node *_find(lyd_node *parent, const lyd_node *like) {
        if (parent) return SiblingFinder(lyd_child(parent)).find(like);
        lyd_node *found = is_entry(like) ? _top().find(like) : SiblingFinder(target_.root).find(like);
        return removed_.contains(found) ? nullptr : found;
    }

    SiblingFinder &_top() {
        if (!top_) top_.emplace(target_.root);
        return *top_;
    }

    Result<lyd_node *> _create(lyd_node *parent, const Step &step) {
        auto created = create_step(target_, parent, step);
        if (created) mark_children(parent);
        return created;
    }

    // Moves a node of the content, or one that hangs nowhere, below `parent`.
    Result<lyd_node *> _take(lyd_node *node, lyd_node *parent) {
        detach(content_.tree, node);
        mark_children(parent);
        bool done = parent ? lyd_insert_child(parent, node) == LY_SUCCESS : top_level_.insert(node);
        if (done && !removed_.empty()) mark_whole(node);
        if (done) return node;
        lyd_free_tree(node);
        return _no_memory();
    }

    // Nodes that are taken out live until the edit is done: others may still point to them.
    void _remove(lyd_node *node) {
        top_level_.forget();
        mark_children(lyd_parent(node));
        detach(target_, node);
        removed_.insert(node);
        graveyard_.emplace_back(node);
    }

    // Takes away what is explicit of the step's node: its entry, or every one when the step names none.
    bool _remove_all(lyd_node *parent, const Step &step) {
        bool any = false;
        for (lyd_node *node = find_step(_children(parent), step), *next; node && node->schema == step.schema;
             node = next) {
            next = step.names_entry() ? nullptr : node->next;
            if (!is_explicit(node)) continue;
            _remove(node);
            any = true;
        }
        return any;
    }

    // Takes away the explicit children of `parent` that have no counterpart among `kept` and its siblings.
    void _prune(lyd_node *parent, lyd_node *kept, const lysc_node *only) {
        SiblingFinder finder(kept);
        for (lyd_node *node = _children(parent), *next; node; node = next) {
            next = node->next;
            if (_is_key(node) || !is_explicit(node) || (only && node->schema != only)) continue;
            if (!finder.find(node)) _remove(node);
        }
    }

    // ---- the order of user-ordered lists

    Result<void> _reorder(lyd_node *parent, const Sequences &sequences) {
        for (const auto &[schema, nodes] : sequences) {
            lyd_node *previous = nullptr;
            for (lyd_node *node : nodes) {
                if (removed_.contains(node)) continue;
                if (auto moved = _move_behind(parent, node, previous); !moved) return std::move(moved).error();
                previous = node;
            }
        }
        return {};
    }

    Result<bool> _move_behind(lyd_node *parent, lyd_node *node, lyd_node *previous) {
        auto moved = move_entry(target_, node, previous);
        if (!moved || !*moved) return moved;
        mark_children(parent);
        top_level_.forget();
        return true;
    }

    static void _read_insert(const lyd_node *node, std::string &insert, std::string &anchor) {
        const char *where = _yang_annotation(node, "insert");
        const char *which = _yang_annotation(node, node->schema->nodetype == LYS_LIST ? "key" : "value");
        insert = where ? where : "";
        anchor = which ? which : "";
    }

    Result<void> _place_entry(lyd_node *node, lyd_node *parent, const std::string &insert, const std::string &anchor) {
        lyd_node *previous = nullptr;
        if (insert == "last") {
            for (previous = node; previous->next && previous->next->schema == node->schema;)
                previous = previous->next;
        } else if (insert != "first") {
            lyd_node *named = _find_anchor(node, parent, anchor);
            if (!named || named == node) {
                Error error = bad_request(
                    "bad-attribute", "There is no entry \"" + shown(anchor) + "\" to insert \"" + insert + "\" it.",
                    instance_path(node));
                error.app_tag = "missing-instance";
                return error;
            }
            bool begins = !named->prev->next || named->prev->schema != named->schema;
            previous = insert == "after" ? named : begins ? nullptr : named->prev;
        }
        auto moved = _move_behind(parent, node, previous);
        if (!moved) return std::move(moved).error();
        if (*moved) set_mark(node, Mark::moved);
        return {};
    }

    lyd_node *_find_anchor(const lyd_node *node, lyd_node *parent, const std::string &anchor) const {
        if (node->schema->nodetype == LYS_LEAFLIST)
            return find_step(_children(parent), Step{node->schema, {anchor}, 0});
        char *path = lysc_path(node->schema, LYSC_PATH_DATA, nullptr, 0);
        Text owner(path);
        auto place = Place::find(ctx_, std::string(owner.view()) + anchor);
        return place && place->schema() == node->schema ? find_step(_children(parent), place->steps().back()) : nullptr;
    }

    const ly_ctx *ctx_;
    Tree &target_;
    Content &content_;
    TopLevel top_level_;
    std::optional<SiblingFinder> top_; // made when first used, after what is replaced was taken away
    std::unordered_set<const lyd_node *> removed_;
    std::vector<Node> graveyard_;
};

} // namespace

Result<void> apply_edit(const ly_ctx *ctx, Tree &target, const Place &place, Operation operation, Content &content) {
    return Editor(ctx, target, content).apply(place, operation);
}

} // namespace zamd
