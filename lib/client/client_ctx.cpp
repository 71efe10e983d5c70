// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The schema context that all clients of a process share.
//
//   absent --zamc_initialize--> built, for the rest of the process
//
// A build happens in a context of its own, which becomes the shared one only when every module is
// parsed and compiled: nobody ever sees a half-built context, and a failed build can be tried again.
// g_client_ctx_mutex serialises the builds. Loading the application's modules takes no lock, because
// libyang rebuilds compiled schemas then and no reader may be about in any case.

#include <zamc/client.h>

#include <array>
#include <cstring>
#include <string_view>

#include <zamc/logger.h>
#include <zamc/yang_module.h>

#include "client/builtin_yang.h"
#include "client/client_ctx_internal.h"
#include "runtime/mem_internal.h"

pthread_mutex_t g_client_ctx_mutex = PTHREAD_MUTEX_INITIALIZER;

namespace zam::client {

namespace {

using owned_ctx = runtime::owned<ly_ctx, zam_ly_ctx_destroy>;

// All parsed modules implemented; the library brings its own ietf-yang-library; one compilation for all modules.
constexpr uint16_t ctx_options = LY_CTX_ALL_IMPLEMENTED | LY_CTX_NO_YANGLIBRARY | LY_CTX_EXPLICIT_COMPILE;

constexpr std::array<builtin_module, 7> builtin_modules{{
    {"ietf-restconf.yang", yang_ietf_restconf},
    {"ietf-netconf.yang", yang_ietf_netconf},
    {"ietf-yang-patch.yang", yang_ietf_yang_patch},
    {"ietf-datastores.yang", yang_ietf_datastores},
    {"ietf-yang-library.yang", yang_ietf_yang_library},
    {"orvel-zam-server.yang", yang_orvel_zam_server},
    {"orvel-zam-client.yang", yang_orvel_zam_client},
}};

clients_ctx shared;

// Serves the one submodule of the built-in modules while they are parsed.
LY_ERR _builtin_submodule(const char *, const char *, const char *submodule, const char *, void *, LYS_INFORMAT *format,
                          const char **text, ly_module_imp_data_free_clb *release) {
    if (submodule == nullptr || std::strcmp(submodule, "ietf-netconf-yang-data") != 0) return LY_ENOTFOUND;
    *format = LYS_IN_YANG;
    *text = yang_ietf_netconf_yang_data;
    *release = nullptr;
    return LY_SUCCESS;
}

int32_t _parse_modules(ly_ctx *ctx, std::span<const builtin_module> modules) {
    for (const builtin_module &module : modules) {
        if (zam_lys_parse_mem(ctx, module.text, LYS_IN_YANG) == nullptr) {
            zam_log_printf(ZAM_LOG_WRONG, "Parse %s not successful.\n", module.file_name);
            return -1;
        }
    }
    return 0;
}

int32_t _init_yang_ctx() {
    zam_log_printf(ZAM_LOG_INFO, "Init client global yang context.\n");
    // Whoever replaced the handler since the last call gets ours back.
    zam_ly_set_log_clb(zam_libyang_log, 0);
    if (shared.context != nullptr) return 0;
    shared.context = _build_ctx(builtin_modules);
    return shared.context != nullptr ? 0 : -1;
}

// One file of the directory, made usable: a parsed module is of no use before it is compiled, and a module that does
// not compile would take the modules loaded after it along.
int32_t _load_file(ly_ctx *ctx, const char *dir, const char *file_name, LYS_INFORMAT format) {
    const int32_t result = zam_load_module(ctx, dir, file_name, format);
    if (result != 0) return result;
    return zam_ly_ctx_compile(ctx) == LY_SUCCESS ? 0 : -1;
}

int32_t _load_named(ly_ctx *ctx, const char *dir, const char *name, const char *extension, LYS_INFORMAT format) {
    char *text = nullptr;
    if (zam_asprintf(&text, "%s%s", name, extension) < 0) return -1;
    const runtime::owned_text file_name{text};
    return _load_file(ctx, dir, file_name.get(), format);
}

int32_t _load_modules(ly_ctx *ctx, const char *dir, const char *name) {
    if (name == nullptr) return zam_load_directory(ctx, dir);
    const std::string_view given{name};
    if (given.ends_with(".yang")) return _load_file(ctx, dir, name, LYS_IN_YANG);
    if (given.ends_with(".yin")) return _load_file(ctx, dir, name, LYS_IN_YIN);
    if (_load_named(ctx, dir, name, ".yang", LYS_IN_YANG) == 0) return 0;
    return _load_named(ctx, dir, name, ".yin", LYS_IN_YIN);
}

} // namespace

clients_ctx *_clients_ctx() {
    return &shared;
}

std::span<const builtin_module> _builtin_modules() {
    return builtin_modules;
}

ly_ctx *_build_ctx(std::span<const builtin_module> modules) {
    owned_ctx ctx{zam_ly_ctx_new(nullptr, ctx_options)};
    if (!ctx) {
        zam_log_printf(ZAM_LOG_WRONG, "Allocate memory for client yang-ctxt not successful.\n");
        return nullptr;
    }
    zam_ly_ctx_set_module_imp_clb(ctx.get(), _builtin_submodule, nullptr);
    const int32_t parsed = _parse_modules(ctx.get(), modules);
    // Imports of the application's modules are not the business of this callback.
    zam_ly_ctx_set_module_imp_clb(ctx.get(), nullptr, nullptr);
    if (parsed != 0 || zam_ly_ctx_compile(ctx.get()) != LY_SUCCESS) return nullptr;
    return ctx.release();
}

} // namespace zam::client

using namespace zam::client;

int32_t zamc_initialize(void) {
    if (pthread_mutex_lock(&g_client_ctx_mutex) != 0) {
        zam_log_printf(ZAM_LOG_EMERG, "Lock unsuccessful when initialize.\n");
        return -1;
    }
    const int32_t result = _init_yang_ctx();
    pthread_mutex_unlock(&g_client_ctx_mutex);
    return result;
}

int32_t zamc_load_module(const char *dir, const char *name) {
    if (dir == nullptr) return -3;
    ly_ctx *const ctx = zam_clients_schema_ctx();
    if (ctx == nullptr) return -1;
    const LY_ERR searchdir = zam_ly_ctx_set_searchdir(ctx, dir);
    // The directory of an earlier call is as good as a new one.
    if (searchdir != LY_SUCCESS && searchdir != LY_EEXIST) {
        zam_log_printf(ZAM_LOG_WRONG,
                       "Set searchdir %s not successful. Load module will result in failure to cache local data.\n",
                       dir);
        return -3;
    }
    if (_load_modules(ctx, dir, name) != 0) {
        zam_log_printf(ZAM_LOG_WRONG, "Load module %s not successful.\n", name != nullptr ? name : "(null)");
        return -1;
    }
    _clients_ctx()->modules_loaded = 1;
    return 0;
}

void zamc_finalize(void) {}

struct ly_ctx *zam_clients_schema_ctx(void) {
    return _clients_ctx()->context;
}

uint8_t zam_module_load(void) {
    return _clients_ctx()->modules_loaded;
}
