// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// The shared schema context in tests: a process as before its first initialisation, and the built-in schema by itself.
#pragma once

#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <zamc/client.h>
#include <zamc/yang_module.h>

#include "client/client_ctx_internal.h"
#include "support/log_capture.h"
#include "support/schema_text.h"

namespace zam::test {

// Takes the shared context of the process away for the time of a test, so that it does not matter which tests ran
// before, and puts it back. What the test builds is destroyed.
class FreshProcess : public testing::Test {
protected:
    FreshProcess() : saved_{*client::_clients_ctx()} {
        *client::_clients_ctx() = {};
        zam_free_module_map();
    }
    ~FreshProcess() override {
        zam_ly_ctx_destroy(client::_clients_ctx()->context);
        *client::_clients_ctx() = saved_;
        zam_free_module_map();
    }

    static ly_ctx *ctx() { return zam_clients_schema_ctx(); }
    static const lys_module *module(const std::string &name) {
        return ly_ctx_get_module_implemented(ctx(), name.c_str());
    }
    static bool usable(const std::string &name) {
        const lys_module *const found = module(name);
        return found && found->compiled;
    }

private:
    client::clients_ctx saved_;
};

// The built-in modules in a context of their own, one for all tests of the suite. For reading only.
class BuiltinSchema : public testing::Test {
public:
    static void SetUpTestSuite() {
        zam_ly_set_log_clb(zam_libyang_log, 0);
        ctx_ = client::_build_ctx(client::_builtin_modules());
    }
    static void TearDownTestSuite() {
        zam_ly_ctx_destroy(ctx_);
        ctx_ = nullptr;
    }

protected:
    void SetUp() override { ASSERT_TRUE(ctx_); }

    static ly_ctx *ctx() { return ctx_; }
    static const lys_module *module(const char *name) { return ly_ctx_get_module_implemented(ctx_, name); }
    static std::string node_text(const char *path) {
        const lysc_node *const node = lys_find_path(ctx_, nullptr, path, 0);
        return node ? schema_text(node) : "no such node\n";
    }
    static const lysc_ext_instance *extension(const char *module_name, const std::string &kind,
                                              const std::string &argument);
    static std::string template_text(const char *module_name, const char *name) {
        const lysc_ext_instance *const found = extension(module_name, "yang-data", name);
        return found ? schema_text(found) : "no such template\n";
    }

private:
    inline static ly_ctx *ctx_ = nullptr;
};

inline const lysc_ext_instance *BuiltinSchema::extension(const char *module_name, const std::string &kind,
                                                         const std::string &argument) {
    lysc_ext_instance *const all = module(module_name)->compiled->exts;
    LY_ARRAY_COUNT_TYPE i;
    LY_ARRAY_FOR(all, i) {
        if (all[i].def->name == kind && all[i].argument && all[i].argument == argument) return &all[i];
    }
    return nullptr;
}

// "name ns prefix revision" and an "import name prefix" for each import that the text states, a line each.
inline std::string head_text(const lys_module *module) {
    std::string text = std::string{module->name} + " " + module->ns + " " + module->prefix + " " +
                       (module->revision ? module->revision : "-") + "\n";
    LY_ARRAY_COUNT_TYPE i;
    LY_ARRAY_FOR(module->parsed->imports, i) {
        const lysp_import &import = module->parsed->imports[i];
        if (!(import.flags & LYS_INTERNAL)) text += std::string{"import "} + import.name + " " + import.prefix + "\n";
    }
    return text;
}

} // namespace zam::test
