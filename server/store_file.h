// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#ifndef ZAMD_STORE_FILE_H
#define ZAMD_STORE_FILE_H

#include <string>

#include "store.h"

namespace zamd {

// A datastore's file. Its format is that of its name (.xml, .json) or else of its first character, and JSON for a new
// file.
struct DatastoreFile {
    std::string path; // symbolic links resolved, so that replacing the file leaves them alone
    Format format = Format::json;
};

// Reads and validates a file. A file that does not exist is an empty datastore if `may_be_missing`.
Result<Tree> load_file(const ly_ctx *ctx, const std::string &path, bool may_be_missing, DatastoreFile &file);

// Replaces the file by the tree, at once or not at all: a temporary file beside it is written, synchronised and
// renamed, and the directory synchronised. The file keeps its mode and, where the process may set it, its owner; a new
// one can be read by its owner only.
Result<void> save_file(const DatastoreFile &file, const Tree &tree);

// Takes away the top nodes of each module that has nothing but defaults there. libyang validates a module once it has
// any node, and would hold such a rest to the module's mandatory nodes.
void drop_bare_defaults(Tree &tree);

} // namespace zamd

#endif
