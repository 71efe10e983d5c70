// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#ifndef ZAMD_DIFF_BUILD_H
#define ZAMD_DIFF_BUILD_H

#include "error.h"
#include "tree.h"

namespace zamd {

// The tree that a Diff holds: what distinguishes `after` from `before`. One of the two carries the marks of what was
// touched (see diff_pairs.h); the cost is that of the touched child lists.
Result<Tree> build_diff(const ly_ctx *ctx, lyd_node *before, lyd_node *after);

} // namespace zamd

#endif
