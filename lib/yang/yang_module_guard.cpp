// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// What libyang must not be given, whatever the text is. Besides, its operation parser leaks what it has built whenever
// the JSON text turns out not to be one operation and nothing else, and any peer can send such texts without end; so
// they are told apart before it sees them.

#include <string_view>

#include <libyang/libyang.h>

#include <zamc/logger.h>

#include "yang/yang_internal.h"
#include "yang/yang_module_internal.h"
#include "yang/yang_module_scan_internal.h"

namespace zam::yang {
namespace {

// Whether "module:name" is an RPC or a notification.
bool _is_top_operation(const ly_ctx *ctx, std::string_view name) {
    const size_t colon = name.find(':');
    if (colon == std::string_view::npos) return false;
    const lys_module *module = find_module(ctx, text_before(name, colon));
    const lysc_node *node = find_child(nullptr, module, text_from(name, colon + 1), 0);
    return node && (node->nodetype & (LYS_RPC | LYS_NOTIF));
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

any_content look_into(const text_use &use, const char *text, LYD_FORMAT format) {
    const text_fault fault = find_text_fault(text, format);
    if (fault.what && use.ctx) ly_err_clean(const_cast<ly_ctx *>(use.ctx), nullptr); // it is about something else
    if (fault.what || format != LYD_JSON || !use.ctx || !text) return {fault};
    return look_into_any(use, text);
}

any_content check_text(const text_use &use, const char *text, LYD_FORMAT format) {
    const any_content found = look_into(use, text, format);
    if (found.fault.what) {
        zam_log_printf(ZAM_LOG_WRONG, "The %s text is not parsed: %s, offset : %zu.\n",
                       format == LYD_JSON ? "JSON" : "XML", found.fault.what, found.fault.offset);
    }
    return found;
}

bool may_be_json_operation(const ly_ctx *ctx, const char *text) {
    object_members members{text};
    if (!members.next()) return false;
    const std::string_view name = members.name();
    if (members.next() || name.starts_with('@')) return false;
    return _is_top_operation(ctx, name) || !_is_plain_data(ctx, text);
}

} // namespace zam::yang
