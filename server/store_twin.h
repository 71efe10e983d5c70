// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#ifndef ZAMD_STORE_TWIN_H
#define ZAMD_STORE_TWIN_H

#include "error.h"
#include "tree.h"

namespace zamd {

// A datastore's two trees: what is committed, and a draft to edit. Between changes the draft is a twin of the
// committed tree; during one it carries the marks of what was touched (see diff_pairs.h).
class Twin {
public:
    Twin() = default;
    explicit Twin(Tree committed) : committed_(std::move(committed)) {}

    const Tree &committed() const { return committed_; }
    // The draft, equal to the committed tree until it is edited. Only the first call, and one after drop(), copies.
    Result<Tree *> draft();
    const Tree &edited_draft() const { return draft_; }

    // The draft becomes what is committed, and what was committed the draft.
    void commit();
    // The draft becomes a twin of the committed tree again.
    void restore();
    // The draft is beyond repair: what was touched is not known.
    void drop();

private:
    void _follow(Tree &follower, Tree &leader);

    Tree committed_;
    Tree draft_;
    bool has_draft_ = false;
};

Result<Tree> copy_tree(const Tree &tree);

} // namespace zamd

#endif
