// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// What the readers of JSON and XML texts share: a look at a text before libyang gets it.
#ifndef ZAMC_YANG_YANG_MODULE_SCAN_INTERNAL_H
#define ZAMC_YANG_YANG_MODULE_SCAN_INTERNAL_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "runtime/mem_internal.h"
#include "yang/yang_internal.h"

namespace zam::yang {

constexpr const char *too_deep = "too many levels";
constexpr const char *unfit_metadata = "metadata that does not fit its member";
constexpr const char *too_many_equal = "a value that stands too often in one place";

// A configuration holds no two values in one place, and a thousand cost libyang some milliseconds.
constexpr size_t most_equal = 1000;

// Counts equal values of one place, such as an array, without keeping them: libyang takes quadratic time over those of
// a leaf-list. Values of different places never count together, but by a rare chance that the limit allows for.
class equal_values {
public:
    // Whether the value may stand there once more.
    bool count(size_t place, std::string_view value);

private:
    runtime::owned_block<uint16_t> counters; // from the first value that could be too many on
    size_t total = 0;
};

// The place of the quote that ends the string which begins at `at`. For well-formed JSON only.
size_t string_end(std::string_view text, size_t at);

// The names of the members that stand directly in an object, as they are written, one after the other. For well-formed
// JSON only; a text that is no object has none, and what follows the object is not looked at.
class object_members {
public:
    explicit object_members(std::string_view object);
    bool next();
    std::string_view name() const { return current; }

private:
    std::string_view text;
    size_t at;
    bool name_is_due = true;
    std::string_view current;
};

// The implemented and compiled module of that name, or null.
const lys_module *find_module(const ly_ctx *ctx, std::string_view name);
// The data node of that name and module below `parent`, or at the top for null; LYS_GETNEXT_ options. Null when there
// is none, and for a null module.
const lysc_node *find_child(const lysc_node *parent, const lys_module *module, std::string_view name, uint32_t options);

// What a text is to be read as.
struct text_use {
    const ly_ctx *ctx;
    const lysc_ext_instance *ext = nullptr; // an instance of this yang-data template
    bool reply = false;                     // an operation with its output, not its input
};

// What a JSON text holds in its anydata and anyxml nodes.
struct any_content {
    text_fault fault;         // the first content that libyang must not be given
    bool has_several = false; // there is one of several nodes: members, or elements of a member
};

// For texts without a fault of another kind. Why a content does not parse is libyang's last error then.
any_content look_into_any(const text_use &use, std::string_view text);

// The whole look at a text before it is parsed. After a fault, libyang's last error is the one of its content, or none.
any_content look_into(const text_use &use, const char *text, LYD_FORMAT format);
// The same with a line at level 3 for a fault.
any_content check_text(const text_use &use, const char *text, LYD_FORMAT format);

} // namespace zam::yang

#endif
