// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// What the files of the libyang access layer share with each other and with their tests.
#ifndef ZAMC_YANG_YANG_MODULE_INTERNAL_H
#define ZAMC_YANG_YANG_MODULE_INTERNAL_H

#include <cstdint>
#include <utility>

#include <dirent.h>

#include <zamc/yang_module.h>

namespace zam::yang {

// A text for the log, where callers and libyang may have none.
inline const char *_shown(const char *text) {
    return text != nullptr ? text : "(null)";
}

// Makes a tree printable as JSON and puts it back as it was.
//
// libyang 2.1 prints names and values of opaque nodes as they are, quotes and line breaks included. While this guard
// lives, such nodes point at escaped copies. A tree is used by one thread at a time, so nobody else sees them.
struct json_escapes {
    struct swap; // one pointer of the tree and what it was

    swap *swaps = nullptr; // newest first
    bool complete = true;  // false when memory ran out; the tree must not be printed then

    // With siblings: the whole list that `tree` is in, as printing with LYD_PRINT_WITHSIBLINGS goes over it.
    json_escapes(const lyd_node *tree, bool with_siblings);
    ~json_escapes();
    json_escapes(const json_escapes &) = delete;
    json_escapes &operator=(const json_escapes &) = delete;
};

// The text of a file, ended by a NUL whatever the size of the file.
struct file_text {
    char *address = nullptr;
    uint32_t size = 0; // of the file; the block is one byte larger

    file_text() = default;
    file_text(char *start, uint32_t length) : address(start), size(length) {}
    file_text(file_text &&other) noexcept
        : address(std::exchange(other.address, nullptr)), size(std::exchange(other.size, 0)) {}
    file_text &operator=(file_text &&other) noexcept {
        std::swap(address, other.address);
        std::swap(size, other.size);
        return *this;
    }
    ~file_text();
    explicit operator bool() const { return address != nullptr; }
};

// The user data of _search_module: the pass that runs.
struct import_search {
    LYS_INFORMAT format;
    const char *dir;
};

// yang_module_map.cpp
file_text _get_file_mmap_size(const char *path);
LY_ERR _search_module(const char *module, const char *module_revision, const char *submodule,
                      const char *submodule_revision, void *user_data, LYS_INFORMAT *format, const char **text,
                      ly_module_imp_data_free_clb *release);

// yang_module_guard.cpp
// Whether a well-formed JSON text may be given to libyang's operation parser: one object with one member that is, or may
// hold, an operation. Costs one pass over the text.
bool may_be_json_operation(const ly_ctx *ctx, const char *text);

// yang_module_load.cpp
char *_get_module_name(const char *file_name);
int _is_yang(const dirent *entry);
int _is_yin(const dirent *entry);
int32_t _load_files(ly_ctx *ctx, const char *dir, LYS_INFORMAT format);

} // namespace zam::yang

#endif
