// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The libyang access layer: contexts, modules, libyang's errors, input handles and the parsers.
//
// Every call of the library into libyang for these goes through here, so that failures are logged in one way and
// results are return values. Nothing is kept between two calls. Null arguments are left to libyang where it refuses
// them, and refused here where it would follow them.

#include <zamc/yang_module.h>

#include <cstring>

#include <zamc/logger.h>

#include "runtime/mem_internal.h"
#include "yang/yang_internal.h"
#include "yang/yang_module_internal.h"
#include "yang/yang_module_scan_internal.h"

using namespace zam::yang;

namespace {

using zam::runtime::owned;

// Keeps the tree of a parse that succeeded and frees what a failed one left behind.
lyd_node *_parsed(LY_ERR result, lyd_node *tree) {
    if (result == LY_SUCCESS) return tree;
    lyd_free_tree(tree);
    return nullptr;
}

bool _may_be_operation(const text_use &use, const char *text, LYD_FORMAT format) {
    if (look_into(use, text, format).fault.what != nullptr) return false;
    return format != LYD_JSON || may_be_json_operation(use.ctx, text);
}

LY_ERR _parse_data(const ly_ctx *ctx, const char *text, LYD_FORMAT format, uint32_t parse_options,
                   uint32_t validate_options, lyd_node **tree) {
    const any_content content = check_text({ctx}, text, format);
    if (content.fault.what != nullptr) return LY_EVALID;
    if (!content.has_several || (parse_options & LYD_PARSE_ONLY) != 0)
        return lyd_parse_data_mem(ctx, text, format, parse_options, validate_options, tree);
    // While it reads an anydata it would refuse what stands there twice, and leak the rest: so it validates afterwards.
    LY_ERR result = lyd_parse_data_mem(ctx, text, format, parse_options | LYD_PARSE_ONLY, 0, tree);
    if (result == LY_SUCCESS) result = lyd_validate_all(tree, ctx, validate_options, nullptr);
    if (result == LY_SUCCESS) return LY_SUCCESS;
    lyd_free_all(*tree);
    *tree = nullptr;
    return result;
}

// Null for a file, whose text only libyang has.
const char *_text_of(ly_in *in) {
    return in != nullptr && ly_in_type(in) == LY_IN_MEMORY ? ly_in_memory(in, nullptr) : nullptr;
}

// The yang-data instance of that name; null when the module has none.
const lysc_ext_instance *_find_yang_data(const lys_module *module, const char *name) {
    if (module->compiled == nullptr || name == nullptr) return nullptr;
    lysc_ext_instance *const exts = module->compiled->exts; // LY_ARRAY_FOR wants it writable
    LY_ARRAY_COUNT_TYPE i;
    LY_ARRAY_FOR(exts, i) {
        const lysc_ext_instance &ext = exts[i];
        if (std::strcmp(ext.def->name, "yang-data") == 0 && ext.argument != nullptr &&
            std::strcmp(ext.argument, name) == 0) {
            return &ext;
        }
    }
    return nullptr;
}

} // namespace

// Contexts and modules

struct ly_ctx *zam_ly_ctx_new(const char *dir, uint16_t options) {
    ly_ctx *ctx = nullptr;
    const LY_ERR result = ly_ctx_new(dir, options, &ctx);
    if (result == LY_SUCCESS) return ctx;
    zam_log_printf(ZAM_LOG_WRONG, "[libyang]New ctx unsuccessful, dir : %s, ret : %u.\n", _shown(dir), result);
    return nullptr;
}

LY_ERR zam_ly_ctx_set_searchdir(struct ly_ctx *ctx, const char *dir) {
    const LY_ERR result = ly_ctx_set_searchdir(ctx, dir);
    if (result != LY_SUCCESS) {
        zam_log_printf(ZAM_LOG_WRONG, "[libyang]Set ctx searchdir unsuccessful, dir : %s, ret : %u.\n", _shown(dir),
                       result);
    }
    return result;
}

struct lyd_node *zam_ly_ctx_get_yanglib_data(const struct ly_ctx *ctx) {
    lyd_node *tree = nullptr;
    const LY_ERR result = ly_ctx_get_yanglib_data(ctx, &tree, "%u", ly_ctx_get_change_count(ctx));
    if (result == LY_SUCCESS) return tree;
    zam_log_printf(ZAM_LOG_WRONG, "[libyang]Get yang-library unsuccessful, ret : %u.\n", result);
    return nullptr;
}

void zam_ly_ctx_destroy(struct ly_ctx *ctx) {
    ly_ctx_destroy(ctx);
}

LY_ERR zam_ly_ctx_compile(struct ly_ctx *ctx) {
    const LY_ERR result = ly_ctx_compile(ctx);
    if (result != LY_SUCCESS) {
        zam_log_printf(ZAM_LOG_WRONG, "[libyang]Compile ly ctx unsuccessful, ret = %u.\n", result);
    }
    return result;
}

void zam_ly_ctx_set_module_imp_clb(struct ly_ctx *ctx, ly_module_imp_clb callback, void *user_data) {
    ly_ctx_set_module_imp_clb(ctx, callback, user_data);
}

struct lys_module *zam_ly_ctx_get_module_iter(const struct ly_ctx *ctx, uint32_t *index) {
    lys_module *const module = ctx != nullptr && index != nullptr ? ly_ctx_get_module_iter(ctx, index) : nullptr;
    if (module == nullptr) zam_log_printf(ZAM_LOG_DEBUG, "[libyang]The last module was already returned.\n");
    return module;
}

struct lys_module *zam_ly_ctx_get_module(const struct ly_ctx *ctx, const char *name) {
    if (name == nullptr) return nullptr;
    lys_module *const module = ly_ctx_get_module_implemented(ctx, name);
    if (module == nullptr) zam_log_printf(ZAM_LOG_DEBUG, "[libyang]Get module unsuccessful, name : %s.\n", name);
    return module;
}

struct lys_module *zam_lys_parse_mem(struct ly_ctx *ctx, const char *text, LYS_INFORMAT format) {
    lys_module *module = nullptr;
    if (lys_parse_mem(ctx, text, format, &module) == LY_SUCCESS) return module;
    zam_log_printf(ZAM_LOG_WRONG, "[libyang]Parse mem unsuccessful, format : %u.\n", format);
    return nullptr;
}

struct lys_module *zam_lys_parse_path(struct ly_ctx *ctx, const char *path, LYS_INFORMAT format) {
    lys_module *module = nullptr;
    if (lys_parse_path(ctx, path, format, &module) == LY_SUCCESS) return module;
    zam_log_printf(ZAM_LOG_WRONG, "[libyang]Parse path unsuccessful, path : %s, format : %u.\n", _shown(path), format);
    return nullptr;
}

LY_ERR zam_lys_set_implemented(struct lys_module *module, const char **features) {
    const LY_ERR result = module != nullptr ? lys_set_implemented(module, features) : LY_EINVAL;
    if (result != LY_SUCCESS) {
        zam_log_printf(ZAM_LOG_WRONG, "[libyang]Set implemented unsuccessful, ret = %u.\n", result);
    }
    return result;
}

const struct lysc_node *zam_lys_getnext(const struct lysc_node *last, const struct lysc_node *parent,
                                        const struct lys_module *module, uint32_t options) {
    const lysc_module *const compiled = module != nullptr ? module->compiled : nullptr;
    // A module that waits for its compilation has no nodes yet, and that is no error.
    if (parent == nullptr && compiled == nullptr) return nullptr;
    return lys_getnext(last, parent, compiled, options);
}

char *zam_lys_data_path(const struct lysc_node *node, LYSC_PATH_TYPE type) {
    char *const path = node != nullptr ? lysc_path(node, type, nullptr, 0) : nullptr;
    if (path == nullptr) zam_log_printf(ZAM_LOG_WRONG, "[libyang]Get datapath by schema node unsuccessful.\n");
    return path;
}

// libyang's errors

LY_VECODE zam_ly_vecode(const struct ly_ctx *ctx) {
    return ctx != nullptr ? ly_vecode(ctx) : LYVE_SUCCESS;
}

const char *zam_ly_errmsg(const struct ly_ctx *ctx) {
    return ctx != nullptr ? ly_errmsg(ctx) : nullptr;
}

const char *zam_ly_errpath(const struct ly_ctx *ctx) {
    return ctx != nullptr ? ly_errpath(ctx) : nullptr;
}

const char *zam_ly_errapptag(const struct ly_ctx *ctx) {
    return ctx != nullptr ? ly_errapptag(ctx) : nullptr;
}

void zam_ly_err_clean(struct ly_ctx *ctx) {
    if (ctx != nullptr) ly_err_clean(ctx, nullptr);
}

void zam_ly_set_log_clb(ly_log_clb callback, int32_t path) {
    ly_set_log_clb(callback, path);
}

void zam_libyang_log(LY_LOG_LEVEL level, const char *message, const char *path) {
    // libyang's warnings tell of its own habits, not of faults of ours.
    const int own_level = level == LY_LLERR ? ZAM_LOG_WRONG : ZAM_LOG_DEBUG;
    zam_log_printf(own_level, "libyang[%d]: %s path:%s\n", level, _shown(message), path != nullptr ? path : "null");
}

// Input handles and sets

void zam_ly_set_free(struct ly_set *set) {
    ly_set_free(set, nullptr);
}

void zam_ly_in_free(struct ly_in *in) {
    ly_in_free(in, 0);
}

struct ly_in *zam_ly_in_new_filepath(const char *path) {
    ly_in *in = nullptr;
    if (ly_in_new_filepath(path, 0, &in) == LY_SUCCESS) return in;
    zam_log_printf(ZAM_LOG_WRONG, "[libyang]New ly_in by filepath unsuccessful, filepath : %s\n", _shown(path));
    return nullptr;
}

struct ly_in *zam_ly_in_new_memory(const char *text) {
    zam_log_printf(ZAM_LOG_DEBUG, "[libyang]New ly_in by str : %s\n", _shown(text));
    ly_in *in = nullptr;
    if (ly_in_new_memory(text, &in) == LY_SUCCESS) return in;
    zam_log_printf(ZAM_LOG_WRONG, "[libyang]New ly_in by str unsuccessful, str : %s\n", _shown(text));
    return nullptr;
}

// Data parsing

const char *zam_lyd_text_fault(const struct ly_ctx *ctx, const char *text, LYD_FORMAT format, size_t *offset) {
    const text_fault fault = look_into({ctx}, text, format).fault;
    if (offset != nullptr) *offset = fault.offset;
    return fault.what;
}

struct lyd_node *zam_lyd_parse_data_mem(const struct ly_ctx *ctx, const char *text, LYD_FORMAT format,
                                        uint32_t parse_options, uint32_t validate_options) {
    zam_log_printf(ZAM_LOG_DEBUG, "[libyang]Parse data mem, data : %s\n", _shown(text));
    lyd_node *tree = nullptr;
    const LY_ERR result = _parse_data(ctx, text, format, parse_options, validate_options, &tree);
    if (result != LY_SUCCESS) {
        zam_log_printf(ZAM_LOG_WRONG, "[libyang]Parse data mem unsuccessful, ret :%u.\n", result);
    }
    return _parsed(result, tree);
}

struct lyd_node *zam_lyd_parse_data_path(const struct ly_ctx *ctx, const char *path, LYD_FORMAT format,
                                         uint32_t parse_options, uint32_t validate_options) {
    lyd_node *tree = nullptr;
    const LY_ERR result = lyd_parse_data_path(ctx, path, format, parse_options, validate_options, &tree);
    if (result != LY_SUCCESS) {
        zam_log_printf(ZAM_LOG_WRONG, "[libyang]Parse data path(%s) unsuccessful.\n", _shown(path));
    }
    return _parsed(result, tree);
}

struct lyd_node *zam_lyd_parse_op(const struct ly_ctx *ctx, const char *text, LYD_FORMAT format, enum lyd_type type) {
    ly_in *handle = nullptr;
    LY_ERR result = ly_in_new_memory(text, &handle);
    if (result != LY_SUCCESS) {
        zam_log_printf(ZAM_LOG_WRONG, "[libyang]Create ly_in for parse op unsuccessful, ret %u.\n", result);
        return nullptr;
    }
    const owned<ly_in, zam_ly_in_free> in{handle};
    if (ctx != nullptr && !_may_be_operation({ctx, nullptr, type == LYD_TYPE_REPLY_YANG}, text, format)) {
        zam_log_printf(ZAM_LOG_DEBUG, "[libyang]Parse op unsuccessful, ret : %u.\n", LY_EVALID);
        return nullptr;
    }
    lyd_node *tree = nullptr;
    result = lyd_parse_op(ctx, nullptr, in.get(), format, type, &tree, nullptr);
    // Callers also parse to find out whether a text is an operation at all, so that it is not is nothing to report.
    if (result != LY_SUCCESS) zam_log_printf(ZAM_LOG_DEBUG, "[libyang]Parse op unsuccessful, ret : %u.\n", result);
    return _parsed(result, tree);
}

struct lyd_node *zam_lyd_parse_ext_data(const struct ly_ctx *ctx, const char *module_name, struct ly_in *in,
                                        LYD_FORMAT format, uint32_t parse_options, uint32_t validate_options,
                                        const char *yang_data_name) {
    const lys_module *const module =
        ctx != nullptr && module_name != nullptr ? ly_ctx_get_module_implemented(ctx, module_name) : nullptr;
    if (module == nullptr) {
        zam_log_printf(ZAM_LOG_WRONG, "[libyang]Get module(%s) for parse ext data unsuccessful.\n",
                       _shown(module_name));
        return nullptr;
    }
    const lysc_ext_instance *const ext = _find_yang_data(module, yang_data_name);
    lyd_node *tree = nullptr;
    // Without this option libyang looks for the place of a second top node of a template, and never finds it.
    const LY_ERR result =
        check_text({ctx, ext}, _text_of(in), format).fault.what == nullptr
            ? lyd_parse_ext_data(ext, nullptr, in, format, parse_options | LYD_PARSE_ORDERED, validate_options, &tree)
            : LY_EVALID;
    if (result != LY_SUCCESS) zam_log_printf(ZAM_LOG_WRONG, "[libyang]Parse ext data unsuccessful.\n");
    return _parsed(result, tree);
}
