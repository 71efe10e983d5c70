// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// What the tests of the libyang access layer share: contexts and trees that go with their scope, and a small module.
#pragma once

#include <cstdlib>
#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <libyang/libyang.h>
#include <zamc/yang_module.h>

#include "support/log_capture.h"

namespace zam::test::layer {

constexpr const char *sample_module = R"(
module sample {
    yang-version 1.1;
    namespace "urn:sample";
    prefix s;
    import ietf-yang-metadata { prefix md; }
    feature extra;
    md:annotation mark { type enumeration { enum red; enum blue; } }
    identity animal;
    container top {
        leaf note { type string; }
        leaf size { type uint8; }
        leaf checked {
            type string;
            must ". != 'wrong'" { error-message "Not that."; error-app-tag "not-that"; }
        }
        list item { key name; leaf name { type string; } leaf value { type string; } }
        container empty;
        anydata blob;
        choice either { case left { leaf left { type string; } } case right { leaf right { type string; } } }
        leaf needs-extra { if-feature extra; type string; }
    }
    container second { leaf note { type string; } }
    rpc run {
        input { leaf speed { type uint32; } }
        output { leaf distance { type uint32; } }
    }
}
)";

struct DestroyContext {
    void operator()(ly_ctx *ctx) const { zam_ly_ctx_destroy(ctx); }
};
using Context = std::unique_ptr<ly_ctx, DestroyContext>;

struct FreeTree {
    void operator()(lyd_node *tree) const { lyd_free_all(tree); }
};
using Tree = std::unique_ptr<lyd_node, FreeTree>;

struct FreeSet {
    void operator()(ly_set *set) const { zam_ly_set_free(set); }
};
using Set = std::unique_ptr<ly_set, FreeSet>;

struct FreeInput {
    void operator()(ly_in *in) const { zam_ly_in_free(in); }
};
using Input = std::unique_ptr<ly_in, FreeInput>;

struct FreeText {
    void operator()(char *text) const { std::free(text); }
};
using Text = std::unique_ptr<char, FreeText>;

// libyang's own lines go to the library's logger, not to stderr, while a test runs.
class YangTest : public testing::Test {
protected:
    YangTest() { zam_ly_set_log_clb(zam_libyang_log, 0); }
};

// With the sample module compiled.
class SampleTest : public YangTest {
protected:
    SampleTest() { module_ = zam_lys_parse_mem(ctx_.get(), sample_module, LYS_IN_YANG); }

    void SetUp() override { ASSERT_TRUE(module_); }

    ly_ctx *ctx() const { return ctx_.get(); }
    lys_module *module() const { return module_; }

    Tree parse(const char *json, uint32_t options = LYD_PARSE_STRICT) const {
        return Tree{zam_lyd_parse_data_mem(ctx(), json, LYD_JSON, options, LYD_VALIDATE_PRESENT)};
    }
    const lysc_node *schema(const char *path) const { return lys_find_path(ctx(), nullptr, path, 0); }

private:
    Context ctx_{zam_ly_ctx_new(nullptr, LY_CTX_NO_YANGLIBRARY)};
    lys_module *module_ = nullptr;
};

inline std::string print_json(const lyd_node *tree, uint32_t options = LYD_PRINT_WITHSIBLINGS) {
    char *text = nullptr;
    zam_lyd_print_mem(&text, tree, LYD_JSON, options);
    const Text owned{text};
    return text ? text : "(none)";
}

inline std::string print_xml(const lyd_node *tree, uint32_t options = LYD_PRINT_WITHSIBLINGS) {
    char *text = nullptr;
    zam_lyd_print_mem(&text, tree, LYD_XML, options);
    const Text owned{text};
    return text ? text : "(none)";
}

} // namespace zam::test::layer
