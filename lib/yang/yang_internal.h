// What the files of lib/yang, and the layers above, share.
#ifndef ZAMC_YANG_YANG_INTERNAL_H
#define ZAMC_YANG_YANG_INTERNAL_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include <zamc/yang_module.h>
#include <zamc/yang_tree_data.h>
#include <zamc/yang_wrap.h>

#include "runtime/mem_internal.h"

namespace zam::yang {

// Parts of a text, where the caller knows that it is long enough: substr would bring in the C++ runtime library.
inline std::string_view text_before(std::string_view text, size_t end) {
    return {text.data(), end};
}
inline std::string_view text_from(std::string_view text, size_t begin) {
    return {text.data() + begin, text.size() - begin};
}
inline bool starts_with(std::string_view text, std::string_view begin) {
    return text.size() >= begin.size() && text_before(text, begin.size()) == begin;
}

// A tree of our making or a parsed one, with all its siblings.
using owned_tree = runtime::owned<lyd_node, zam_lyd_tree_destroy>;
using owned_set = runtime::owned<ly_set, zam_ly_set_free>;

// What a message shows of a text that may be absent.
inline const char *shown(const char *text) {
    return text ? text : "(null)";
}

// One of libyang's arrays, whose length stands in front of the first element; null is the empty one.
template <typename T>
std::span<T> sized_array(T *array) {
    return {array, static_cast<size_t>(LY_ARRAY_COUNT(array))};
}

// The bit of `priv` that marks a lightweight node.
constexpr uintptr_t lightweight_mark = 1;

// Where a node keeps its first child; null for null and for nodes that have no children by their kind.
lyd_node **child_slot(lyd_node *node);

// An identity without the prefix of `module`: the text after its first colon when the module's name and a colon stand
// anywhere in it, else the value as it is. Borrowed from `value`.
const char *without_own_prefix(const char *value, const lys_module *module);

// Brackets open at the same time in a JSON text that we accept: ten times what a model needs, and far from what makes a
// recursive parser at the other end run out of stack.
constexpr size_t json_depth_max = 1024;

struct json_scan {
    bool well_formed;   // exactly one JSON value (RFC 8259) in valid UTF-8, blanks around it allowed
    bool nested_arrays; // an array stands directly inside an array; libyang does not take those in an anydata
    size_t offset;      // the place of the harm, the fault or the nested array; the length of a text without one
    const char *harm;   // what libyang must not be given though it may be well-formed; null when there is nothing
};

// Reads a text once, without recursion and without memory.
json_scan scan_json(std::string_view text);

// What is wrong with a text that came from a peer; nothing when `what` is null.
struct text_fault {
    const char *what = nullptr;
    size_t offset = 0;
};

// The first thing in an XML text that libyang must not be given. Its form is libyang's to judge.
text_fault scan_xml(std::string_view text);
// Why a text in either format may not be parsed. JSON has to be well-formed as well: of other text libyang takes the
// part that it likes, or leaks it. A blank text is no fault.
text_fault find_text_fault(const char *text, LYD_FORMAT format);
// Attaches outgoing JSON as the anydata child `name` of `parent`, an inner node with a schema node. `module` is the
// anydata's module, null for the parent's; with `output` the anydata is one of the operation's output. Printed as JSON
// the content is `text`, byte for byte, blanks inside and around it included; printed as XML it would be that text
// again, so it goes out in JSON only.
//
// The new node belongs to the parent. It is an anydata when the text is "{}" or an object that begins with its first
// name, a colon right behind it, and ends with its brace; for any other value it is an opaque leaf that stands in the
// anydata's place, behind all siblings with a schema node. The text is copied.
//
// Null, with a line at level 3, when the text is not one well-formed JSON value (see scan_json), when there is no such
// anydata or when libyang refuses the node; null for null arguments and without memory.
lyd_node *new_raw_json(lyd_node *parent, const lys_module *module, const char *name, const char *text, bool output);

} // namespace zam::yang

#endif
