// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#ifndef ZAMD_EDIT_H
#define ZAMD_EDIT_H

#include "edit_content.h"
#include "store.h"

namespace zamd {

// Applies a push to `target` in place, as RFC 6241 section 7.2 defines the operations, and marks what it touches (see
// diff_pairs.h); nodes are taken out of `content` rather than copied. The result is not validated: defaults, conditions
// and the other cases of a choice are left to libyang's validation, which knows new nodes by their flag. After an error
// the target is half edited, with everything that was touched marked.
Result<void> apply_edit(const ly_ctx *ctx, Tree &target, const Place &place, Operation operation, Content &content);

} // namespace zamd

#endif
