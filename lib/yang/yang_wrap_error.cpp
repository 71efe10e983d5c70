// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors

// Error trees: rpc-error containers of the yang-data template that the built-in ietf-netconf declares. Two of them side
// by side are always linked by hand: libyang's own insertion, looking for the place of a yang-data node among its like,
// never ends.

#include <cstdarg>
#include <cstring>

#include <zamc/logger.h>

#include "yang/yang_wrap_internal.h"

namespace zam::yang {
namespace {

using runtime::owned_text;

struct code_tag {
    LY_VECODE code;
    const char *tag;
};

// "syntax" and "semantic" are no tags of NETCONF; the peers know them all the same.
constexpr code_tag code_tags[] = {
    {LYVE_SYNTAX, "syntax"},           {LYVE_SYNTAX_YANG, "syntax"},  {LYVE_SYNTAX_YIN, "syntax"},
    {LYVE_REFERENCE, "invalid-value"}, {LYVE_XPATH, "invalid-value"}, {LYVE_SEMANTICS, "semantic"},
    {LYVE_SYNTAX_XML, "syntax"},       {LYVE_SYNTAX_JSON, "syntax"},  {LYVE_DATA, "invalid-value"},
    {LYVE_OTHER, "operation-failed"},
};

struct error_leaf {
    const char *name;
    const char *value;
    bool required;
    const char *failure;
};

bool _add_leaf(lyd_node *error, const error_leaf &leaf) {
    if (!leaf.value && !leaf.required) return true;
    if (leaf.value && zam_lyd_new_leaf(error, nullptr, leaf.name, leaf.value)) return true;
    zam_log_printf(ZAM_LOG_WRONG, "%s\n", leaf.failure);
    return false;
}

// What libyang keeps of its last error only until the next one.
struct ly_error_copy {
    owned_text app_tag;
    owned_text path;
    owned_text message;
};

bool _copy_text(const char *text, owned_text &copy) {
    copy.reset(zam_strdup(text));
    return copy || !text;
}

bool _holds_conversion(const char *text) {
    for (const char *at = strchr(text, '%'); at; at = strchr(at + 2, '%')) {
        if (at[1] != '%') return true;
    }
    return false;
}

// libyang's message serves as a format, in which only "%%" means something: a message that quotes a conversion from
// the data it complains about stands as it is.
void _format_message(char *message) {
    if (!message || _holds_conversion(message)) return;
    char *to = message;
    for (const char *from = message; *from; ++from) {
        *to++ = *from;
        if (*from == '%') ++from;
    }
    *to = '\0';
}

lyd_node *_build_ly_error(ly_ctx *ctx) {
    const char *tag = _get_ly_error(zam_ly_vecode(ctx));
    ly_error_copy error;
    if (!_copy_text(zam_ly_errapptag(ctx), error.app_tag) || !_copy_text(zam_ly_errpath(ctx), error.path) ||
        !_copy_text(zam_ly_errmsg(ctx), error.message)) {
        return nullptr;
    }
    _format_message(error.message.get());
    return zam_create_error(ctx, "protocol", tag, error.app_tag.get(), error.path.get(), error.message ? "%s" : nullptr,
                            error.message.get());
}

} // namespace

const char *_get_ly_error(LY_VECODE code) {
    for (const code_tag &row : code_tags) {
        if (row.code == code) return row.tag;
    }
    return "operation-failed";
}

int32_t _create_error_entry(lyd_node *error, const char *type, const char *tag, const char *app_tag, const char *path,
                            const char *format, va_list args) {
    const error_leaf leaves[] = {
        {"error-type", type, true, "Create 'error-type' data node unsuccessful."},
        {"error-tag", tag, true, "Create 'error-tag' data node unsuccessful."},
        {"error-path", path, false, "Create 'error-path' data node unsuccessful."},
        {"error-app-tag", app_tag, false, "Create 'error-app-tag' data node unsuccessful."},
    };
    for (const error_leaf &leaf : leaves) {
        if (!_add_leaf(error, leaf)) return -1;
    }
    if (!format) return 0;
    char *text = nullptr;
    if (zam_vasprintf(&text, format, args) < 0) return -1;
    const owned_text message{text};
    const error_leaf leaf{"error-message", message.get(), true, "Create 'error-message' data node unsuccessful."};
    return _add_leaf(error, leaf) ? 0 : -1;
}

} // namespace zam::yang

using namespace zam::yang;

lyd_node *zam_create_error(ly_ctx *ctx, const char *type, const char *tag, const char *app_tag, const char *path,
                           const char *format, ...) {
    if (!ctx) return nullptr;
    const lys_module *module = zam_ly_ctx_get_module(ctx, "ietf-netconf");
    if (!module) {
        zam_log_printf(ZAM_LOG_WRONG, "Get 'ietf-restconf' module unsuccessful.\n");
        return nullptr;
    }
    owned_tree error{zam_lyd_new_yangdata(module, "yang-errors", "rpc-error")};
    if (!error) {
        zam_log_printf(ZAM_LOG_WRONG, "Create 'yang-errors' yang-data node unsuccessful.\n");
        return nullptr;
    }
    va_list args;
    va_start(args, format);
    const int32_t result = _create_error_entry(error.get(), type, tag, app_tag, path, format, args);
    va_end(args);
    return result == 0 ? error.release() : nullptr;
}

lyd_node *zam_get_ly_error(ly_ctx *ctx) {
    if (!ctx) return nullptr;
    lyd_node *error = _build_ly_error(ctx);
    zam_ly_err_clean(ctx);
    return error;
}

int32_t zam_merge_error(lyd_node *tree, lyd_node *error) {
    if (!tree || !error || error->parent) return -1;
    lyd_node *first = zam_lyd_first_sibling(tree);
    lyd_node *other = zam_lyd_first_sibling(error);
    if (first == other) return -1; // a list cannot follow itself
    zam_tree_add_sibling(first, other);
    return 0;
}

int32_t zam_is_rpc_error_node(const lyd_node *node) {
    if (!node) return 0;
    const char *name = zam_lyd_get_schema_name(node);
    if (!name || strcmp(name, "rpc-error") != 0) return 0;
    const char *module = zam_lyd_get_module_name(node);
    return module && strcmp(module, "ietf-netconf") == 0;
}
