// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Paths, schemas, data trees, texts put at their place, errors, modules; the builders of requests.
#include <array>
#include <cstdlib>
#include <cstring>
#include <string>

#include <zamc/client.h>
#include <zamc/message.h>
#include <zamc/path.h>
#include <zamc/suber.h>
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

constexpr uint32_t unvalidated = LYD_PARSE_ONLY | LYD_PARSE_STRICT;

void take(Run &run, const char *what, char *text) {
    zam_free(run.object(what, text));
}
// Text that comes from the system's heap.
void take_system(Run &run, const char *what, char *text) {
    std::free(run.object(what, text));
}
Tree tree(Run &run, const char *what, lyd_node *node) {
    return Tree{run.object(what, node)};
}

void paths(Run &run) {
    const char *path = R"(/test-main:top/item[name="a\"b"]/part[row='1'][column=2]/label)";
    uint32_t position = 1;
    zam_path_node *node = run.object("segment", zam_get_path_node("item[name='a'][x=\"b\"]/c", &position));
    run.always("position", position == (node ? 22u : 1u));
    zam_free_path_node(&node);
    take(run, "normal form", zam_format_data_path(path, 1));
    take(run, "without keys", zam_format_data_path(path, 0));
    take(run, "normal form", zam_format_path(path));
    take(run, "normal form", zam_format_path("/test-main:top"));
    take(run, "schema path", zam_format_data2schema(test::test_context(), path));
    run.object("schema", zam_find_schema_by_path(test::test_context(), nullptr, "/test-main:top/item"));
    run.object("schema", zam_schema_find(test::test_context(), nullptr, "/test-main:top/item"));
    run.object("schema", zam_lys_find_path(test::test_context(), nullptr, path, 0));
}

void schemas(Run &run) {
    const lysc_node *colors = test::schema_at("/test-main:top/colors");
    take(run, "bits", zam_build_bits_buf(colors, 3));
    take_system(run, "path", zam_lys_data_path(colors, LYSC_PATH_DATA));
    const lysc_node *mode = test::schema_at("/test-main:top/mode");
    run.object("enum", const_cast<char *>(zam_find_enum_name(mode, 3)));
    take(run, "escaped", zam_add_escape_character("a\"b\\c"));
}

void trees(Run &run) {
    ly_ctx *ctx = test::test_context();
    const lys_module *module = zam_ly_ctx_get_module(ctx, "test-main");
    const Tree top = tree(run, "container", zam_lyd_new_inner(nullptr, module, "top"));
    tree(run, "leaf", zam_lyd_new_leaf(top.get(), module, "text", "a")).release();
    tree(run, "list", zam_lyd_new_list(top.get(), module, "item", "[name='x']")).release();
    tree(run, "any", zam_lyd_new_any(top.get(), module, "any", R"({"a":1})", LYD_ANYDATA_JSON)).release();
    const Tree copy = tree(run, "copy", zam_lyd_dup(top.get(), LYD_DUP_RECURSIVE));
    lyd_node *made = run.object("path", zam_lyd_new_path(copy.get(), ctx, "sub/inner/c", "text"));
    run.expect("path", made != nullptr);
    lyd_node *entry = zam_lyd_new_path(copy.get(), ctx, R"(item[name="y"]/part[row="1"][column="2"]/label)", "t");
    run.expect("path", entry != nullptr);
    run.object("found", zam_lyd_find_path(copy.get(), "sub/inner/c"));
    run.object("found", zam_lyd_find_path(copy.get(), R"(item[name="y"]/part[row="1"][column="2"])"));
    take(run, "path", zam_lyd_path(entry ? entry : top.get()));
    run.code("set", zam_leaf_setf(copy.get(), "text", "%s", "text"), {-1, -2, -3, -4, -5});
    const char *raw = zam_leaf_get_raw(copy.get(), "text");
    run.expect("raw", raw != nullptr);
    char text[10];
    run.expect("get", zam_leaf_getf(copy.get(), "text", "%s", text, 10u) == 1);
    uint32_t length = 0;
    take_system(run, "dump", zam_lyd_tree_dump(copy.get(), LYD_JSON, &length));
    take_system(run, "dump", zam_lyd_tree_dump_nosibling(copy.get(), LYD_XML, &length));
    zam_logout_lyd_tree(copy.get());
    run.object("changed", copy.get());
}

// Nodes that have no place in libyang's own trees.
void lightweight_nodes(Run &run) {
    const Tree parent = parse_json(R"({"test-main:top":{"text":"x"}})");
    const lysc_node *schema = test::schema_at("/test-main:top/item");
    lyd_node *entry = run.object("entry", zam_lyd_node_lightweight_new(schema, parent.get(), nullptr, 0));
    lyd_node *named = run.object("named", zam_lyd_node_lightweight_new_list(parent.get(), "item"));
    zam_lyd_tree_destroy_nosibling(entry);
    zam_lyd_tree_destroy_nosibling(named);
    const lysc_node *leaf = test::schema_at("/test-main:top/sub/b");
    const Tree detached = tree(run, "leaf", zam_lyd_node_lightweight_new(leaf, nullptr, "9", 1));
    run.object("value", const_cast<char *>(zam_lyd_value_string(detached.get())));
}

void spliced(Run &run) {
    ly_ctx *ctx = test::test_context();
    struct Text {
        const char *path, *data;
        LYD_FORMAT format;
        int32_t bare;
    };
    static constexpr Text texts[] = {
        {"/test-main:top/sub", R"({"a":"x"})", LYD_JSON, 1},
        {"/test-main:top/sub", R"({"sub":{"a":"x"}})", LYD_JSON, 0},
        {"/test-main:top/text", "text", LYD_JSON, 1},
        {"/test-main:top/number", "5", LYD_JSON, 1},
        {"/test-main:top/item", R"([{"name":"a","value":1}])", LYD_JSON, 1},
        {"/test-main:top/tag", R"(["a","b"])", LYD_JSON, 1},
        {"/test-main:top/sub", "<sub><a>x</a></sub>", LYD_XML, 0},
        {"/test-main:top/sub", "<sub/>", LYD_XML, 0},
        {"/test-main:top/text", "<text>x</text>", LYD_XML, 0},
        {"/test-main:top/text", "<text></text>", LYD_XML, 0},
        {R"(/test-main:top/item[name="a"])", "<item><name>a</name><value>1</value></item>", LYD_XML, 0},
        {"/", R"({"test-main:top":{"text":"x"}})", LYD_JSON, 1},
        {"/", R"(<top xmlns="urn:test:main"><text>x</text></top>)", LYD_XML, 0},
    };
    for (const Text &text : texts) {
        const zam_mem_doc doc{text.path, text.data, text.format};
        tree(run, text.data, zam_parse_mem(ctx, &doc, unvalidated, text.bare, 0));
    }
    // Entries that their path names already; whether a document comes of them is not the point.
    for (const Text &text : {Text{"/test-main:top/tag[.='a']", "<tag/>", LYD_XML, 0},
                             Text{"/test-main:top/tag[.='a']", R"(["a"])", LYD_JSON, 1},
                             Text{R"(/test-main:top/item[name="a"])", R"({"name":"a"})", LYD_JSON, 1},
                             Text{R"(/test-main:top/item[name="a"])", "<name>a</name>", LYD_XML, 0},
                             Text{R"(/test-main:top/tag[.="a"])", "<tag>a</tag>", LYD_XML, 0}}) {
        const zam_mem_doc doc{text.path, text.data, text.format};
        const Tree any{zam_parse_mem(ctx, &doc, unvalidated, text.bare, 0)};
    }
    const zam_mem_doc operation{"/", R"({"test-main:run":{"speed":5}})", LYD_JSON};
    tree(run, "operation", zam_parse_mem(ctx, &operation, 0, 1, 1));
}

void any_data(Run &run) {
    ly_ctx *ctx = test::test_context();
    const Tree top = parse_json(R"({"test-main:top":{"any":{"test-main:single":"x"}}})");
    const lyd_node *any = lyd_child(top.get());
    uint32_t length = 0;
    take(run, "dump", zam_anydata_dump(any, LYD_JSON, &length));
    take(run, "dump", zam_anydata_dump(any, LYD_XML, &length));
    tree(run, "tree", zam_anydata2lyd_tree(ctx, any, unvalidated));
    const lys_module *module = zam_ly_ctx_get_module(ctx, "test-main");
    const Tree text = tree(run, "any", zam_lyd_new_inner(nullptr, module, "top"));
    lyd_node *stored = zam_lyd_new_any(text.get(), module, "any", R"({"test-main:single":"x"})", LYD_ANYDATA_JSON);
    run.object("any", stored);
    if (stored) take(run, "dump", zam_anydata_dump(stored, LYD_JSON, &length));
    if (stored) tree(run, "tree", zam_anydata2lyd_tree(ctx, stored, unvalidated));
    take(run, "value",
         zam_get_value("/test-main:top", R"({"orvel-zam-server:pull":{"data":{"test-main:top":{"a":1}}}})"));
    take(run, "value",
         zam_get_value("/test-main:single", R"({"orvel-zam-server:pull":{"data":{"test-main:single":"\u00e9\n"}}})"));
    take(run, "value", zam_get_value("/", R"({"orvel-zam-server:pull":{"data":{"test-main:single":"x"}}})"));
    take(run, "name", zam_add_name("/test-main:top/text", "x"));
    take(run, "name", zam_add_name("/test-main:top", "{}"));
    take(run, "name", zam_add_name("/", "{}"));
    take(run, "name", zam_add_name("/test-main:top", nullptr));
}

void errors(Run &run) {
    ly_ctx *ctx = test::test_context();
    const Tree first =
        tree(run, "error", zam_create_error(ctx, "application", "operation-failed", "5", "/a", "%s", "text"));
    Tree second = tree(run, "error", zam_create_error(ctx, "rpc", "tag", nullptr, nullptr, nullptr));
    if (first && second && zam_merge_error(first.get(), second.get()) == 0) second.release();
    for (const char *bad : {R"({"test-main:top":{"number":"x%d"}})", R"({"test-main:top":{"number":999}})", "{"}) {
        const Tree none{zam_lyd_parse_data_mem(ctx, bad, LYD_JSON, unvalidated, 0)};
        run.always("refused", !none);
        tree(run, "error", zam_get_ly_error(ctx));
    }
}

// What is looked through before it is parsed, and what is made valid when it is printed.
void parsed_and_printed(Run &run) {
    ly_ctx *ctx = test::test_context();
    std::string many = R"({"test-main:top":{"tag":["a")";
    for (int i = 0; i < 2500; ++i)
        many += ",\"" + std::to_string(i) + "\"";
    many += "]}}";
    tree(run, "many", zam_lyd_parse_data_mem(ctx, many.c_str(), LYD_JSON, unvalidated, 0));
    const char *xml = R"(<top xmlns="urn:test:main"><tag>a</tag><tag>b</tag><any><x/></any></top>)";
    tree(run, "xml", zam_lyd_parse_data_mem(ctx, xml, LYD_XML, unvalidated, 0));
    tree(run, "operation", zam_lyd_parse_op(ctx, R"({"test-main:run":{"speed":5}})", LYD_JSON, LYD_TYPE_RPC_YANG));
    tree(run, "operation",
         zam_lyd_parse_op(ctx, R"(<run xmlns="urn:test:main"><speed>5</speed></run>)", LYD_XML, LYD_TYPE_RPC_YANG));
    ly_in *in = run.object("input", zam_ly_in_new_memory(R"({"ietf-netconf:rpc-error":{"error-type":"rpc"}})"));
    if (in) Tree{zam_lyd_parse_ext_data(ctx, "ietf-netconf", in, LYD_JSON, LYD_PARSE_ONLY, 0, "yang-errors")};
    zam_ly_in_free(in);
    const Tree opaque = tree(run, "opaque", zam_lyd_new_opaq(nullptr, ctx, "a\"b", "c\"\\\n", "test-main"));
    char *text = nullptr;
    run.code("print", zam_lyd_print_mem(&text, opaque.get(), LYD_JSON, 0), {1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
    std::free(text);
    char *stream_text = nullptr;
    size_t size = 0;
    FILE *stream = open_memstream(&stream_text, &size);
    run.code("print", zam_lyd_print_file(stream, opaque.get(), LYD_JSON, 0), {1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
    std::fclose(stream);
    std::free(stream_text);
}

// A content of several members is looked at, and parsed, for itself.
void content_of_several(Run &run) {
    ly_ctx *ctx = test::test_context();
    const char *good = R"({"test-main:top":{"any":{"a":1,"test-main:top":{"xml":{"b":2,"c":[3]}}}}})";
    const char *bad = R"({"test-main:top":{"any":{"a":1,"b":[]}}})";
    size_t offset = 0;
    run.expect("no fault", zam_lyd_text_fault(ctx, good, LYD_JSON, &offset) == nullptr);
    run.always("fault", zam_lyd_text_fault(ctx, bad, LYD_JSON, &offset) != nullptr);
    tree(run, "data", zam_lyd_parse_data_mem(ctx, good, LYD_JSON, unvalidated, 0));
    tree(run, "valid data", zam_lyd_parse_data_mem(ctx, good, LYD_JSON, LYD_PARSE_STRICT, LYD_VALIDATE_PRESENT));
    const Tree none{zam_lyd_parse_data_mem(ctx, bad, LYD_JSON, unvalidated, 0)};
    run.always("refused", !none);
    tree(run, "operation",
         zam_lyd_parse_op(ctx, R"({"test-main:run":{"content":{"a":1,"b":2}}})", LYD_JSON, LYD_TYPE_RPC_YANG));
    const char *patch = R"({"ietf-yang-patch:yang-patch":{"edit":[{"edit-id":"1","value":{"a":1,"b":2}}]}})";
    ly_in *in = run.object("input", zam_ly_in_new_memory(patch));
    if (in)
        tree(run, "patch", zam_lyd_parse_ext_data(ctx, "ietf-yang-patch", in, LYD_JSON, unvalidated, 0, "yang-patch"));
    zam_ly_in_free(in);
}

std::string module_text(const std::string &name, const std::string &imported = {}) {
    return "module " + name + " { namespace \"urn:" + name + "\"; prefix p; " +
           (imported.empty() ? "" : "import " + imported + " { prefix i; } ") + "feature f; leaf l { type string; } }";
}

void modules(Run &run) {
    static const test::TempDir dir;
    static const bool written = [] {
        dir.write("a-user.yang", module_text("a-user", "z-base"));
        dir.write("z-base.yang", module_text("z-base"));
        dir.write("other@2020-01-01.yang", module_text("other"));
        return true;
    }();
    run.always("files", written);
    for (const bool whole : {true, false}) {
        ly_ctx *ctx = run.object("context", zam_ly_ctx_new(nullptr, LY_CTX_NO_YANGLIBRARY | LY_CTX_EXPLICIT_COMPILE));
        if (whole) {
            run.code("folder", zam_load_directory(ctx, dir.path().c_str()), {-1, -2, -3});
        } else {
            run.code("module", zam_load_module(ctx, dir.path().c_str(), "z-base.yang", LYS_IN_YANG), {-1, -2, -3});
        }
        zam_ly_ctx_destroy(ctx);
        zam_free_module_map();
    }
}

const ly_ctx *context() {
    return zam_clients_schema_ctx();
}

void requests(Run &run) {
    const zam_register_attrs attrs{ZAM_ENCODE_JSON, 30, "a b", 1};
    tree(run, "register", zam_message_build_register("c", &attrs, context()));
    tree(run, "activate", zam_message_build_activate(1, context()));
    tree(run, "deactivate", zam_message_build_deactivate(context()));
    tree(run, "verify", zam_message_build_verify_cfg("c", context()));
    tree(run, "appinfo", zam_message_build_appinfo("text", context()));
    for (const int32_t depth : {-1, 0, 5}) {
        tree(run, "pull", zam_message_build_pull("ietf-datastores:startup", 1, "/a", depth, context()));
        tree(run, "diff", zam_message_build_diff(nullptr, "/a", depth, context()));
    }
    tree(run, "locate", zam_message_build_locate(nullptr, 1, "/a", context()));
}

struct Content {
    zamc_bytes *bytes;
    Content(Run &run, const char *text, uint32_t format)
        : bytes{run.object("bytes", zamc_new_bytes(text, static_cast<int32_t>(std::strlen(text)), format))} {}
    ~Content() { zamc_free_bytes(bytes); }
};

void requests_with_content(Run &run) {
    const Content json{run, R"({"a":"x"})", ZAM_ENCODE_JSON},
        xml{run, R"(<sub xmlns="urn:test:main"><a>x</a></sub>)", ZAM_ENCODE_XML}, text{run, "x", ZAM_ENCODE_JSON},
        empty{run, "", ZAM_ENCODE_JSON};
    for (const Content *content : {&json, &xml, &text, &empty})
        tree(run, "push", zam_message_build_push(nullptr, "/test-main:top/sub", "merge", content->bytes, context()));
    for (const Content *content : {&json, &xml}) {
        tree(run, "notify", zam_message_build_notify("s", content->bytes, context()));
        tree(run, "output", zam_message_build_publish_output(content->bytes, context()));
    }
    tree(run, "output", zam_message_build_publish_output(nullptr, context()));
}

void requests_for_subscriptions(Run &run) {
    zam_vector *vector = run.object("vector", zam_vector_init(2));
    char target[] = "/test-main:top";
    std::array<zam_suber, 3> subers{};
    for (int32_t type = 0; zam_suber & suber : subers) {
        suber.target = target;
        suber.type = type++;
        suber.filter_mask = 0x8F;
        suber.status = 0x101;
        run.code("add", zam_vector_add(&vector, &suber, nullptr));
    }
    tree(run, "subscribe", zam_message_build_subscribe(vector, context()));
    for (zam_suber &suber : subers)
        suber.status = 0x201;
    tree(run, "unsubscribe", zam_message_build_unsubscribe(vector, context()));
    zam_vector_free(vector, nullptr);
}

} // namespace

std::span<const Scene> yang_scenes() {
    static constexpr Scene scenes[] = {
        {"paths", paths},
        {"schemas", schemas},
        {"trees", trees},
        {"lightweight", lightweight_nodes},
        {"spliced", spliced},
        {"anydata", any_data},
        {"errors", errors},
        {"parsed and printed", parsed_and_printed},
        {"content of several", content_of_several},
        {"modules", modules},
    };
    return scenes;
}

std::span<const Scene> wire_scenes() {
    static constexpr Scene scenes[] = {
        {"requests", requests},
        {"requests with content", requests_with_content},
        {"requests for subscriptions", requests_for_subscriptions},
    };
    return scenes;
}

} // namespace zam::torture
