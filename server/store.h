// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The datastores: running, startup and operational. Nothing outside the store knows how trees are kept.
//
// running is kept twice. The committed tree answers reads and is never edited. The spare, made at the first push, is
// its twin: a push edits the spare in place, validates it whole and compares only what was touched; commit swaps the
// two and brings the former committed tree into step by copying only what was touched, and giving up a change brings
// the spare back the same way. So a push costs its own size plus one whole validation, both versions can be read while
// it is pending, and no step of it can harm the committed tree. When the spare cannot be brought back (validation
// refused it, memory ran out), it is dropped and copied anew at the next push.
//
// One change is pending at a time; its owner is the Change that prepare() gave out, and destroying that gives it up.
//
// Two things follow from how changes are published. Only explicitly set data counts: a leaf that falls back to its
// default is deleted, one that is set to it is created. And startup is a datastore of its own that a push edits and
// commit() settles without anything to publish (its Change says `publishes() == false`).
#ifndef ZAMD_STORE_H
#define ZAMD_STORE_H

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "error.h"
#include "store_path.h"
#include "tree.h"

namespace zamd {

// The codes are those of frames and of libyang.
enum class Format : uint32_t { xml = LYD_XML, json = LYD_JSON };

enum class Datastore { running, startup, operational };
enum class Operation { merge, replace, create, remove, del };

// What happened to a node, in the numbers of `modify-type` and of the low bits of a filter mask.
enum class What : uint32_t { created = 0x1, deleted = 0x2, updated = 0x4, moved = 0x8 };

// Which version of running to read: what was committed last, or what the pending change makes of it. Without a pending
// change both are the committed tree.
enum class View { committed, candidate };

// "running", "ietf-datastores:running" and so on; anything else is an invalid-value.
Result<Datastore> datastore_by_name(std::string_view name);
// "merge", "replace", "create", "remove", "delete".
Result<Operation> operation_by_name(std::string_view name);

inline constexpr int32_t all_levels = -1;

struct PushRequest {
    Datastore datastore = Datastore::running;
    std::string entity;
    Operation operation = Operation::merge;
    std::string content; // as it came in the request's `content`: the object or the elements, or empty
    Format format = Format::json;
};

struct Touched {
    std::string path; // instance path; "/" for the whole datastore
    What what = What::updated;
};

// What distinguishes two versions of a datastore: a tree from the root with every node that was created, deleted,
// changed or moved, and the nodes above these. Each node except list keys carries `ietf-netconf:operation`:
//
//   create, delete   the node and all below it came or went
//   replace          a leaf or anydata whose value changed; `orvel-zam-server:origin-value` is the former value
//   merge            something below changed, or the entry has another place in its user-ordered list
//
// A moved or deleted entry of a user-ordered list or leaf-list carries `orvel-zam-server:origin-position`, its former
// place: "first", "after:[key=value]" or "after:value".
class Diff {
public:
    Diff() = default;
    explicit Diff(Tree edits) : edits_(std::move(edits)) {}

    bool empty() const { return !edits_; }
    const lyd_node *tree() const { return edits_.root; }

    // The changes at and below `place`, printed from the root (a document whose top is the datastore): an object in
    // JSON, elements in XML; "{}" and "" when nothing changed there. `depth` counts the levels below the place.
    Result<Text> print(const Place &place, int32_t depth, Format format) const;

    // The instances of `place` that were touched, in the order of the datastore, deleted ones last: every entry for a
    // list without keys, at most one node when the place names one. An instance that came or went with a node above
    // it is created or deleted; an entry that was moved and changed inside is moved.
    std::vector<Touched> touched(const Place &place) const;

private:
    Tree edits_;
};

class Store;

// A push that was found valid and waits for its verdict. Commit it with Store::commit(); destroying it gives it up.
class Change {
public:
    Change(Change &&other) noexcept;
    Change &operator=(Change &&) = delete;
    ~Change();

    bool empty() const { return forward_.empty(); } // nothing differs from what is committed
    bool publishes() const { return !empty() && datastore_ == Datastore::running; }
    Datastore datastore() const { return datastore_; }
    const Diff &forward() const { return forward_; }
    // The same change undone, for subscribers that had agreed already. It has to be asked for while the change is
    // pending; of a settled change it is what it was then, or empty.
    const Diff &inverse() const;

private:
    friend class Store;
    Change(Store *store, Datastore datastore, Diff forward);

    Store *store_; // null once the change is settled
    Datastore datastore_;
    Diff forward_;
    mutable std::unique_ptr<Diff> inverse_; // made when first asked for
};

// A status provider's answer: the value at `target` in a form that a client's documents accept.
struct StateAnswer {
    std::string provider; // the client's name, for messages
    std::string target;
    std::string text;
    Format format = Format::json;
};

// The instance paths of an entry's neighbours, empty at the ends.
struct Neighbours {
    std::string previous;
    std::string next;
};

class Store {
public:
    // The context must outlive the store, and no module may be loaded while it lives.
    explicit Store(const ly_ctx *ctx);
    ~Store();
    Store(const Store &) = delete;
    Store &operator=(const Store &) = delete;

    // Loads running (and startup) from a JSON or XML file. With `save`, every committed change writes the file again,
    // and a file that is not there yet is an empty datastore. The error's message names the file and the place in it.
    Result<void> load(const std::string &file, bool save);

    // The node that a path names; an unknown node, a missing module name or a key that its type refuses is an error.
    Result<Place> place(std::string_view path) const;

    // Edits the spare as RFC 6241 section 7.2 has it, validates it whole and finds what changed.
    Result<Change> prepare(const PushRequest &request);

    // Makes the change current, after writing the file where that was asked for. When the file cannot be written
    // nothing is changed, and the change is still pending. The diffs of a committed change stay readable.
    Result<void> commit(Change &change);

    // The nodes at `place`: in JSON one object whose members are the node's own ("{}" when there is no data), in XML
    // the elements ("" for none). `depth` counts the levels below each node; all_levels prints straight from the tree.
    // operational gives the configuration; see pull_operational().
    Result<Text> pull(Datastore datastore, View view, const Place &place, int32_t depth, Format format) const;

    // The same for configuration and state: `answers` are merged into a copy of what is configured at the place.
    Result<Text> pull_operational(View view, const Place &place, int32_t depth, Format format,
                                  std::span<const StateAnswer> answers) const;

    // The neighbours of an entry of a user-ordered list or leaf-list.
    Result<Neighbours> locate(Datastore datastore, View view, const Place &place) const;

    // The instance paths of the explicitly set data at `place` in committed running: what a replay tells.
    std::vector<std::string> instances(const Place &place) const;

    // That data, and what is above it, as the Diff that creates it: from nothing to committed running.
    Result<Diff> creation(const Place &place) const;

    const ly_ctx *context() const { return ctx_; }

private:
    friend class Change;
    struct Impl;

    const ly_ctx *ctx_;
    std::unique_ptr<Impl> impl_;
};

} // namespace zamd

#endif
