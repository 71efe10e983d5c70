// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#ifndef ZAMD_MODULES_H
#define ZAMD_MODULES_H

#include <string>
#include <vector>

#include "error.h"

namespace zamd {

// Loads every module of the directories into the library's schema context. The
// error names the directory, the file and the place in it.
Result<void> load_modules(const std::vector<std::string> &directories);

} // namespace zamd

#endif
