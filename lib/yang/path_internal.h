// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors

// What the readers of paths share.
#ifndef ZAMC_YANG_PATH_INTERNAL_H
#define ZAMC_YANG_PATH_INTERNAL_H

#include <zamc/path.h>

#include "runtime/mem_internal.h"

namespace zam::yang {

inline void free_path_node(zam_path_node *node) {
    zam_free_path_node(&node);
}

using owned_path_node = runtime::owned<zam_path_node, free_path_node>;

} // namespace zam::yang

#endif
