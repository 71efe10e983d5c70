// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Trees and schemas that are asked, taken apart and put together; contexts with modules of their own.
#include <filesystem>
#include <string>

#include <dirent.h>
#include <zamc/client.h>
#include <zamc/format.h>
#include <zamc/message.h>
#include <zamc/path.h>
#include <zamc/utils.h>
#include <zamc/yang_module.h>
#include <zamc/yang_tree_data.h>
#include <zamc/yang_wrap.h>

#include "memory.h"
#include "support/files.h"
#include "support/test_schema.h"

namespace zam::torture {
namespace {

using test::parse_json;
using test::Tree;

// libyang's codes other than success.
const std::initializer_list<int32_t> refusals = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};

// Each question has its answer as long as its tree was made: answers take no memory.
void tree_lookups(Run &run) {
    const Tree top =
        parse_json(R"({"test-main:top":{"text":"x","mode":"fast","item":[{"name":"a","value":1}],"sub":{"a":"y"}}})");
    const lyd_node *text = zam_lyd_child(top.get());
    const lyd_node *entry = run.object("entry", zam_lyd_find_path(top.get(), "item[name='a']"));
    const lyd_node *mode = run.object("mode", zam_lyd_find_path(top.get(), "mode"));
    const lysc_node *schema = test::schema_at("/test-main:top/text");
    run.always("child", text && zam_lyd_first_sibling(text) == text && zam_lyd_get_schema(text, nullptr) == schema);
    run.always("by schema", zam_find_child_by_schema(top.get(), schema) == text);
    run.always("value", std::string_view{zam_get_leaf_value(text)} == "x");
    if (mode) run.always("number", static_cast<int32_t>(zam_lyd_get_value(mode)) == 7);
    run.always("names", std::string_view{zam_lyd_get_schema_name(text)} == "text" &&
                            std::string_view{zam_lyd_get_module_name(text)} == "test-main");
    run.always("module", zam_lyd_node_module(text) == zam_lys_node_module(schema));
    run.always("kind", zam_lyd_get_nodetype(text) == LYS_LEAF && zam_is_rpc_error_node(text) == 0);
    if (entry) run.always("more than keys", zam_has_non_key_child(entry) == 1);
    run.always("no action", !zam_find_action_node(top.get()));
    ly_set *instances = run.object("instances", zam_lyd_find_instance(top.get(), schema));
    run.always("instances", !instances || instances->count == 1);
    zam_ly_set_free(instances);
    zam_free(run.object("path", zam_lyd_path(text)));
}

void schema_lookups(Run &run) {
    const lysc_node *item = test::schema_at("/test-main:top/item");
    const lysc_node *top = zam_lys_parent(item);
    const lysc_node *left = test::schema_at("/test-main:top/left");
    run.always("parent", top == test::schema_at("/test-main:top"));
    run.always("without choice", zam_lys_parent_without_choice(left) == top);
    run.always("list", zam_lys_nodetype(item) == LYS_LIST && zam_lys_list_key_num(item) == 1);
    run.always("children", zam_lys_child(item) == zam_lys_getnext(nullptr, item, nullptr, 0));
    const lysc_node *toggle = test::schema_at("/test-main:top/switch");
    run.always("leaf", zam_is_edge_node(toggle) == 1 && zam_lys_type_base(toggle) == LY_TYPE_BOOL &&
                           zam_lys_realtype(toggle) == LY_TYPE_BOOL);
    run.always("default", std::string_view{zam_lys_get_default_value(toggle)} == "true");
    int mark = 0;
    void *before = zam_lys_set_private(toggle, &mark);
    run.always("kept", zam_lys_set_private(toggle, before) == &mark);
    run.always("datastores", zam_is_config_datastore("running") == 1 && zam_calc_parse_opt("running", 1, 0) != 0);
    run.always("encodings", zam_lydfmt2ownfmt(zam_ownfmt2lydfmt(ZAM_ENCODE_JSON)) == ZAM_ENCODE_JSON);
    run.always("words", std::string_view{zam_xlate_edit_enum2str(ZAMC_PUSH_MERGE)} == "merge" &&
                            zam_xlate_subtype_str2enum("config-change") >= 0);
    zam_free(run.object("path", zam_format_data2schema(test::test_context(), "/test-main:top/item[name='a']")));
}

void metadata_and_links(Run &run) {
    const Tree top = parse_json(R"({"test-main:top":{"text":"x","sub":{"a":"y"}}})");
    lyd_node *text = lyd_child(top.get());
    run.code("metadata", zam_lyd_new_meta(text, nullptr, nullptr, "ietf-netconf:operation", "merge"), refusals);
    if (text->meta) {
        run.always("metadata", std::string_view{zam_lyd_meta_value(text->meta)} == "merge" &&
                                   std::string_view{zam_get_node_meta_value(text, "operation")} == "merge");
        zam_lyd_free_meta_siblings(text->meta);
    }
    run.code("change", zam_lyd_change_leaf(text, "z"), refusals);
    const lys_module *module = zam_lyd_node_module(top.get());
    lyd_node *first = run.object("first", zam_lyd_new_opaq(nullptr, LYD_CTX(top.get()), "one", "1", "test-main"));
    lyd_node *second = run.object("second", zam_lyd_new_opaq(nullptr, LYD_CTX(top.get()), "two", "2", "test-main"));
    lyd_node *third = run.object("third", zam_lyd_new_opaq(nullptr, LYD_CTX(top.get()), "three", "3", "test-main"));
    zam_tree_add_child(top.get(), zam_tree_insert_sibling(zam_tree_add_sibling(first, second), third));
    if (second) {
        zam_lyd_unlink(second);
        zam_lyd_free(second);
    }
    lyd_node *other = run.object("other", zam_lyd_new_inner(nullptr, module, "top"));
    zam_lyd_tree_destroy(other);
    zam_free(run.object("path", zam_lyd_path(text)));
}

void outputs_and_templates(Run &run) {
    ly_ctx *ctx = test::test_context();
    const lys_module *module = zam_ly_ctx_get_module(ctx, "test-main");
    const Tree operation{run.object("operation", zam_lyd_new_output_inner(nullptr, module, "run"))};
    run.object("result", zam_lyd_new_output_leaf(operation.get(), module, "result", "done"));
    const lys_module *server = zam_ly_ctx_get_module(ctx, "orvel-zam-server");
    const Tree pull{run.object("pull", zam_lyd_new_output_inner(nullptr, server, "pull"))};
    run.object("data", zam_lyd_new_output_any(pull.get(), server, "data", nullptr, LYD_ANYDATA_STRING));
    run.always("no list", !zam_lyd_new_output_list(pull.get(), server, "data", ""));
    const lys_module *netconf = zam_ly_ctx_get_module(ctx, "ietf-netconf");
    const Tree hello{run.object("template", zam_lyd_new_yangdata(netconf, "hello", "hello"))};
    static const test::TempDir dir;
    static const bool written = [] {
        dir.write("data.json", R"({"test-main:top":{"text":"x"}})");
        dir.write("errors.json", R"({"ietf-netconf:rpc-error":{"error-type":"rpc"}})");
        return true;
    }();
    run.always("files", written);
    const Tree file{run.object("file", zam_lyd_parse_data_path(ctx, dir.path("data.json").c_str(), LYD_JSON,
                                                               LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0))};
    ly_in *in = run.object("input", zam_ly_in_new_filepath(dir.path("errors.json").c_str()));
    if (in) Tree{zam_lyd_parse_ext_data(ctx, "ietf-netconf", in, LYD_JSON, LYD_PARSE_ONLY, 0, "yang-errors")};
    zam_ly_in_free(in);
    zam_free(run.object("text", zam_strdup("text")));
}

LY_ERR no_import(const char *, const char *, const char *, const char *, void *, LYS_INFORMAT *, const char **,
                 ly_module_imp_data_free_clb *) {
    return LY_ENOTFOUND;
}

void contexts(Run &run) {
    static const test::TempDir dir;
    static const bool written = [] {
        std::filesystem::create_directory(dir.path("sub"));
        dir.write("sub/a.yang", "module a { namespace \"urn:a\"; prefix a; leaf l { type string; } }");
        dir.write("b.yang", "module b { namespace \"urn:b\"; prefix b; leaf l { type string; } }");
        return true;
    }();
    run.always("files", written);
    run.always("locks", zam_module_init() == 0 && zam_reload_schema_init() == 0);
    ly_ctx *ctx = run.object("context", zam_ly_ctx_new(nullptr, LY_CTX_NO_YANGLIBRARY | LY_CTX_EXPLICIT_COMPILE));
    run.code("search", zam_ly_ctx_set_searchdir(ctx, dir.path().c_str()), refusals);
    zam_ly_ctx_set_module_imp_clb(ctx, no_import, nullptr);
    lys_module *text = run.object(
        "module", zam_lys_parse_mem(ctx, "module c { namespace \"urn:c\"; prefix c; feature f; }", LYS_IN_YANG));
    lys_module *file = run.object("module", zam_lys_parse_path(ctx, dir.path("b.yang").c_str(), LYS_IN_YANG));
    static const char *all[] = {"*", nullptr};
    if (text && file) run.code("features", zam_lys_set_implemented(text, all), refusals);
    run.code("folders", nyb_load_sub_schema_ctx(ctx, dir.path().c_str()), {-1, -2, -3});
    run.code("compile", zam_ly_ctx_compile(ctx), refusals);
    uint32_t index = 0;
    run.object("modules", zam_ly_ctx_get_module_iter(ctx, &index));
    zam_ly_ctx_destroy(ctx);
    zam_free_module_map();
    run.always("locks", zam_module_exit() == 0);
    run.always("status", zam_notify_reload_schema_status(3) == 0 && zam_wait_reload_schema_status() == 3 &&
                             zam_reset_schema_status() == 0);
    dirent **found = nullptr;
    const int count = scandir(dir.path().c_str(), &found, nyb_is_directory, alphasort);
    run.always("folders", count == 1);
    if (count >= 0) nyb_free_file_list(found, count);
}

void shared_context(Run &run) {
    run.always("initialized", zamc_initialize() == 0 && zam_module_load() == 1);
    zamc_finalize(); // leaves it to those who hold something of it
    ly_ctx *ctx = test::test_context();
    const Tree library{zam_ly_ctx_get_yanglib_data(ctx)};
    run.object("library", library.get());
    zam_ly_set_log_clb(zam_libyang_log, 1);
    const Tree none{zam_lyd_parse_data_mem(ctx, R"({"test-main:top":{"number":999}})", LYD_JSON,
                                           LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0)};
    run.always("refused", !none && zam_ly_errmsg(ctx) && zam_ly_errpath(ctx) && zam_ly_vecode(ctx) != LYVE_SUCCESS);
    run.always("no tag", !zam_ly_errapptag(ctx));
    zam_ly_err_clean(ctx);
    run.always("forgotten", !zam_ly_errmsg(ctx));
    zam_free(run.object("text", zam_strdup("text")));
}

} // namespace

std::span<const Scene> lookup_scenes() {
    static constexpr Scene scenes[] = {
        {"tree lookups", tree_lookups},
        {"schema lookups", schema_lookups},
        {"metadata and links", metadata_and_links},
        {"outputs and templates", outputs_and_templates},
        {"contexts", contexts},
        {"shared context", shared_context},
    };
    return scenes;
}

} // namespace zam::torture
