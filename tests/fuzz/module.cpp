// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// A module's text, loaded from its file: the context takes it or stays usable.
#include <cctype>
#include <cstdio>
#include <memory>

#include <libyang/libyang.h>
#include <zamc/yang_module.h>

#include "fuzz.h"
#include "support/files.h"

namespace zam::fuzz {
namespace {

using Context = std::unique_ptr<ly_ctx, decltype([](ly_ctx *ctx) { ly_ctx_destroy(ctx); })>;

test::TempDir *dir = nullptr;

// The planted fault: a default that begins with a digit other than 2, the only one in the corpus.
bool has_other_default(std::string_view text) {
    constexpr std::string_view statement = "default ";
    const size_t at = text.find(statement);
    if (at == std::string_view::npos) return false;
    const std::string_view value = text.substr(at + statement.size());
    return !value.empty() && std::isdigit(static_cast<unsigned char>(value.front())) && value.front() != '2';
}

} // namespace

void start() {
    static test::TempDir folder;
    dir = &folder;
}

void run(std::string_view input) {
    dir->write("m.yang", input);
    ly_ctx *made = nullptr;
    FUZZ_EXPECT(ly_ctx_new(nullptr, LY_CTX_NO_YANGLIBRARY | LY_CTX_EXPLICIT_COMPILE, &made) == LY_SUCCESS);
    const Context ctx{made};
    const int32_t loaded = zam_load_directory(ctx.get(), dir->path("").c_str());
    zam_free_module_map();
    FUZZ_EXPECT(loaded <= 0);
    const lys_module *module = zam_ly_ctx_get_module(ctx.get(), "m");
    if (loaded == 0 && module) FUZZ_EXPECT(module->compiled != nullptr);
    if (planted() && loaded == 0 && module && has_other_default(input)) planted_fault();
}

} // namespace zam::fuzz
