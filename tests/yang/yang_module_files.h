// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Module texts and contexts for the tests that load modules from files.
#pragma once

#include <cerrno>
#include <string>

#include <zamc/utils.h>
#include <zamc/yang_module.h>

#include "support/files.h"
#include "yang/yang_module_fixture.h"

namespace zam::test::layer {

constexpr const char *system_modules = "/usr/local/conf/nyblib/modules";

inline std::string yang_text(const std::string &name, const std::string &body = {}) {
    return "module " + name + " { yang-version 1.1; namespace 'urn:" + name + "'; prefix p; " + body + " }";
}

inline std::string yang_importing(const std::string &name, const std::string &import, const std::string &body = {}) {
    return yang_text(name, "import " + import + " { prefix i; } " + body);
}

inline std::string yin_text(const std::string &name, const std::string &body = {}) {
    return "<?xml version='1.0'?><module name='" + name +
           "' xmlns='urn:ietf:params:xml:ns:yang:yin:1' xmlns:p='urn:" + name +
           "'><yang-version value='1.1'/><namespace uri='urn:" + name + "'/><prefix value='p'/>" + body + "</module>";
}

inline std::string yin_importing(const std::string &name, const std::string &import) {
    return yin_text(name, "<import module='" + import + "'><prefix value='i'/></import>");
}

constexpr const char *broken_text = "module broken { this is no YANG";

// Parses, but does not compile.
inline std::string dangling_text(const std::string &name) {
    return yang_text(name, "leaf l { type leafref { path '/p:none'; } }");
}

// A text of exactly that size, padded with blanks.
inline std::string padded(std::string text, size_t size) {
    text.resize(size, ' ');
    return text;
}

// A context as the library's own: everything parsed is implemented, and nothing compiled until asked for. Starts and
// ends with no text of an import kept.
class ModuleFileTest : public YangTest {
protected:
    ModuleFileTest() { zam_free_module_map(); }
    ~ModuleFileTest() override { zam_free_module_map(); }

    static Context new_context() {
        return Context{
            zam_ly_ctx_new(nullptr, LY_CTX_ALL_IMPLEMENTED | LY_CTX_NO_YANGLIBRARY | LY_CTX_EXPLICIT_COMPILE)};
    }

    bool has(const char *name) const { return ly_ctx_get_module_implemented(ctx_.get(), name) != nullptr; }
    bool compiled(const char *name) const {
        const lys_module *const module = ly_ctx_get_module_implemented(ctx_.get(), name);
        return module && module->compiled;
    }
    std::string file(const char *name) const { return dir_.path(name); }

    TempDir dir_;
    Context ctx_ = new_context();
};

inline std::string cannot_access(const std::string &path) {
    return "Can't access to path " + path + " for mmap (" + zam_get_str_error(ENOENT) + ").";
}

} // namespace zam::test::layer
