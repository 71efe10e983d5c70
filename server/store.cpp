// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Writing. A change goes through prepare() and then either commit() or the end of its Change; reading is in
// store_read.cpp.
//
// startup is running's own committed tree until the two differ: until running changes without being written to the
// file, or startup is pushed to.
#include "store.h"

#include <array>

#include "diff_build.h"
#include "diff_pairs.h"
#include "edit.h"
#include "edit_content.h"
#include "store_copy.h"
#include "store_error.h"
#include "store_impl.h"

namespace zamd {
namespace {

constexpr std::string_view datastores_module = "ietf-datastores:";

struct DatastoreName {
    std::string_view name;
    Datastore datastore;
};
constexpr std::array<DatastoreName, 3> datastore_names{
    {{"running", Datastore::running}, {"startup", Datastore::startup}, {"operational", Datastore::operational}}};

struct OperationName {
    std::string_view name;
    Operation operation;
};
constexpr std::array<OperationName, 5> operation_names{{{"merge", Operation::merge},
                                                        {"replace", Operation::replace},
                                                        {"create", Operation::create},
                                                        {"remove", Operation::remove},
                                                        {"delete", Operation::del}}};

// A push is for configuration: operations and state are other requests' business.
Result<void> _check_writable(const Place &place) {
    for (const Step &step : place.steps()) {
        bool data = step.schema->nodetype & (LYS_CONTAINER | LYS_LIST | LYS_LEAF | LYS_LEAFLIST | LYS_ANYDATA);
        if (data && (step.schema->flags & LYS_CONFIG_W)) continue;
        std::string path = place.data_path();
        return bad_request("invalid-value", "\"" + shown(path) + "\" is no configuration and cannot be pushed.", path);
    }
    return {};
}

// Marks where validation added defaults or took nodes away: `changes` is the tree in which libyang records that.
void _mark_changes(const lyd_node *changes, lyd_node *parent, lyd_node *siblings) {
    SiblingFinder finder(siblings);
    for (const lyd_node *change = changes; change; change = change->next) {
        const lyd_meta *operation = lyd_find_meta(change->meta, nullptr, "yang:operation");
        std::string_view what = operation ? lyd_get_meta_value(operation) : "none";
        lyd_node *node = finder.find(change);
        if (node && what == "none") {
            _mark_changes(lyd_child(change), node, lyd_child(node));
            continue;
        }
        mark_children(parent);
        if (node) mark_whole(node);
    }
}

} // namespace

Result<Datastore> datastore_by_name(std::string_view name) {
    std::string_view bare = name;
    if (bare.substr(0, datastores_module.size()) == datastores_module) bare.remove_prefix(datastores_module.size());
    for (const DatastoreName &known : datastore_names) {
        if (known.name == bare) return known.datastore;
    }
    return bad_request("invalid-value",
                       "The datastore \"" + shown(name) + "\" is not supported; running, startup and operational are.");
}

Result<Operation> operation_by_name(std::string_view name) {
    for (const OperationName &known : operation_names) {
        if (known.name == name) return known.operation;
    }
    return bad_request("invalid-value", "The operation \"" + shown(name) +
                                            "\" is unknown; merge, replace, create, remove and delete are known.");
}

// ---- Change

Change::Change(Store *store, Datastore datastore, Diff forward)
    : store_(store), datastore_(datastore), forward_(std::move(forward)) {}

Change::Change(Change &&other) noexcept
    : store_(std::exchange(other.store_, nullptr)), datastore_(other.datastore_), forward_(std::move(other.forward_)),
      inverse_(std::move(other.inverse_)) {}

Change::~Change() {
    if (store_) store_->impl_->give_up(datastore_);
}

const Diff &Change::inverse() const {
    if (!inverse_) {
        auto tree = store_ ? store_->impl_->inverse(datastore_) : Result<Tree>(Tree());
        inverse_ = std::make_unique<Diff>(tree ? std::move(*tree) : Tree());
    }
    return *inverse_;
}

// ---- Store

Store::Store(const ly_ctx *ctx) : ctx_(ctx), impl_(std::make_unique<Impl>(ctx)) {}
Store::~Store() = default;

Result<void> Store::load(const std::string &file, bool save) {
    DatastoreFile description;
    auto tree = load_file(ctx_, file, save, description);
    if (!tree) return std::move(tree).error();
    impl_->running = Twin(std::move(*tree));
    impl_->startup.reset();
    impl_->file = std::move(description);
    impl_->save = save;
    return {};
}

Result<Place> Store::place(std::string_view path) const {
    return Place::find(ctx_, path);
}

Result<Change> Store::prepare(const PushRequest &request) {
    if (impl_->pending) return refusal("in-use", "Another change is being made.");
    if (request.datastore == Datastore::operational)
        return bad_request("operation-not-supported", "The operational datastore cannot be pushed to.");
    auto place = Place::find(ctx_, request.entity);
    if (!place) return std::move(place).error();
    if (auto writable = _check_writable(*place); !writable) return std::move(writable).error();

    bool deletes = request.operation == Operation::remove || request.operation == Operation::del;
    Content content;
    if (!deletes || place->is_all_entries()) {
        auto read = read_content(ctx_, *place, request.content, request.format,
                                 deletes ? ContentKind::deletion : ContentKind::configuration);
        if (!read) return std::move(read).error();
        content = std::move(*read);
    }
    auto diff = impl_->edit(request, *place, content);
    if (!diff) return std::move(diff).error();
    impl_->pending = request.datastore;
    return Change(this, request.datastore, Diff(std::move(*diff)));
}

Result<void> Store::commit(Change &change) {
    if (change.store_ != this) return refusal("operation-failed", "The change is settled already.");
    if (change.empty())
        impl_->give_up(change.datastore_);
    else if (auto done = impl_->commit(change.datastore_); !done)
        return done;
    change.store_ = nullptr;
    return {};
}

// ---- Impl

Result<Twin *> Store::Impl::twin(Datastore datastore) {
    if (datastore != Datastore::startup) return &running;
    if (auto separate = separate_startup(); !separate) return std::move(separate).error();
    return &*startup;
}

Result<void> Store::Impl::separate_startup() {
    if (startup) return {};
    auto copy = copy_tree(running.committed());
    if (!copy) return std::move(copy).error();
    startup.emplace(std::move(*copy));
    return {};
}

Result<Tree> Store::Impl::edit(const PushRequest &request, const Place &place, Content &content) {
    auto target = twin(request.datastore);
    if (!target) return std::move(target).error();
    auto draft = (*target)->draft();
    if (!draft) return std::move(draft).error();
    if (auto edited = apply_edit(ctx, **draft, place, request.operation, content); !edited) {
        (*target)->restore();
        return std::move(edited).error();
    }
    // What validation changed before it failed is not told, so a refused draft cannot be put right again.
    if (auto valid = validate(**draft); !valid) {
        (*target)->drop();
        return std::move(valid).error();
    }
    auto diff = build_diff(ctx, (*target)->committed().root, (*draft)->root);
    if (!diff) (*target)->drop();
    return diff;
}

Result<void> Store::Impl::validate(Tree &draft) {
    drop_bare_defaults(draft);
    LibyangErrors errors(ctx);
    lyd_node *recorded = nullptr;
    LY_ERR result = lyd_validate_all(&draft.root, ctx, LYD_VALIDATE_PRESENT | LYD_VALIDATE_NO_STATE, &recorded);
    Tree changes(recorded);
    if (result != LY_SUCCESS) return errors.take("The result does not fit the data model.");
    _mark_changes(changes.root, nullptr, draft.root);
    return {};
}

Result<Tree> Store::Impl::inverse(Datastore datastore) {
    auto target = twin(datastore);
    if (!target) return std::move(target).error();
    return build_diff(ctx, (*target)->edited_draft().root, (*target)->committed().root);
}

Result<void> Store::Impl::commit(Datastore datastore) {
    auto target = twin(datastore);
    if (!target) return std::move(target).error();
    if (datastore == Datastore::running && !save) {
        if (auto separate = separate_startup(); !separate) return separate;
    }
    if (save) {
        if (auto saved = save_file(file, (*target)->edited_draft()); !saved) return saved;
    }
    (*target)->commit();
    if (datastore == Datastore::running && save) startup.reset();
    pending.reset();
    return {};
}

void Store::Impl::give_up(Datastore datastore) {
    auto target = twin(datastore);
    if (target) (*target)->restore();
    pending.reset();
}

} // namespace zamd
