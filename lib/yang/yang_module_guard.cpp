// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// What libyang must not be given. Its operation parser leaks what it has built whenever the JSON text turns out not to
// be one operation and nothing else, and any peer can send such texts without end; so they are told apart before it
// sees them.

#include <string_view>

#include <libyang/libyang.h>

#include "yang/yang_internal.h"
#include "yang/yang_module_internal.h"

namespace zam::yang {
namespace {

// The name of the top object's first member, without data where there is none, and whether it is the only one. For
// well-formed texts only.
struct top_member {
    std::string_view name;
    bool alone;
};

// One past the string's closing quote; `at` is the place of its opening one.
size_t _skip_string(std::string_view text, size_t at) {
    for (++at; text[at] != '"'; ++at) {
        if (text[at] == '\\') ++at;
    }
    return at + 1;
}

top_member _find_top_member(std::string_view text) {
    top_member top{{}, true};
    const size_t start = text.find_first_not_of(" \t\r\n");
    if (start == std::string_view::npos || text[start] != '{') return top;
    int depth = 0;
    for (size_t at = 0; at < text.size();) {
        const char c = text[at];
        if (c == '"') {
            const size_t end = _skip_string(text, at);
            if (depth == 1 && top.name.data() == nullptr) top.name = {&text[at + 1], end - at - 2};
            at = end;
            continue;
        }
        if (c == '{' || c == '[') ++depth;
        if (c == '}' || c == ']') --depth;
        if (c == ',' && depth == 1) top.alone = false;
        ++at;
    }
    return top;
}

// Whether "module:name" is an RPC or a notification.
bool _is_top_operation(const ly_ctx *ctx, std::string_view name) {
    const size_t colon = name.find(':');
    if (colon == std::string_view::npos) return false;
    const lys_module *module = nullptr;
    uint32_t index = 0;
    while ((module = ly_ctx_get_module_iter(ctx, &index)) != nullptr) {
        if (module->implemented && module->compiled && std::string_view{module->name}.size() == colon &&
            name.find(module->name) == 0) {
            const char *node = name.data() + colon + 1;
            return lys_find_child(nullptr, module, node, name.size() - colon - 1, LYS_RPC | LYS_NOTIF, 0) != nullptr;
        }
    }
    return false;
}

// An action stands inside data, but a text that holds one does not parse as data.
bool _is_plain_data(const ly_ctx *ctx, const char *text) {
    uint32_t silent = 0;
    ly_temp_log_options(&silent);
    lyd_node *tree = nullptr;
    const LY_ERR result = lyd_parse_data_mem(ctx, text, LYD_JSON, LYD_PARSE_ONLY, 0, &tree);
    ly_temp_log_options(nullptr);
    lyd_free_all(tree);
    return result == LY_SUCCESS;
}

} // namespace

bool may_be_json_operation(const ly_ctx *ctx, const char *text) {
    const top_member top = _find_top_member(text);
    if (top.name.data() == nullptr || !top.alone || top.name.starts_with('@')) return false;
    return _is_top_operation(ctx, top.name) || !_is_plain_data(ctx, text);
}

} // namespace zam::yang
