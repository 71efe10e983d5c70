// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#ifndef ZAMD_STORE_IMPL_H
#define ZAMD_STORE_IMPL_H

#include <optional>

#include "edit_content.h"
#include "store.h"
#include "store_file.h"
#include "store_twin.h"

namespace zamd {

struct Store::Impl {
    explicit Impl(const ly_ctx *context) : ctx(context) {}

    Result<Twin *> twin(Datastore datastore);
    const Tree &tree(Datastore datastore, View view) const;
    Result<void> separate_startup();
    // Edits and validates the draft and finds what changed; on failure the draft is as it was or gone.
    Result<Tree> edit(const PushRequest &request, const Place &place, Content &content);
    Result<void> validate(Tree &draft);
    Result<Tree> inverse(Datastore datastore);
    Result<void> commit(Datastore datastore);
    void give_up(Datastore datastore);

    const ly_ctx *ctx;
    Twin running;
    std::optional<Twin> startup; // none while it is the same as committed running
    DatastoreFile file;
    bool save = false;
    std::optional<Datastore> pending; // where a change waits for its verdict
};

} // namespace zamd

#endif
