// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// start_floor time|memory: the schema context of the clients, made by libyang alone from the same texts with one
// explicit compilation; prints how long that took in microseconds, or the private memory of the process that holds it,
// in KiB. Does not link the library.
#include <array>
#include <cstring>

#include <libyang/libyang.h>

#include "client/builtin_yang.h"
#include "start.h"

namespace zam::bench {
namespace {

// The library's own texts, in the order of its table.
constexpr std::array<const char *, 7> modules{
    client::yang_ietf_restconf,    client::yang_ietf_netconf,      client::yang_ietf_yang_patch,
    client::yang_ietf_datastores,  client::yang_ietf_yang_library, client::yang_orvel_zam_server,
    client::yang_orvel_zam_client,
};

LY_ERR _import(const char *, const char *, const char *name, const char *, void *, LYS_INFORMAT *format,
               const char **text, ly_module_imp_data_free_clb *release) {
    if (!name || std::strcmp(name, "ietf-netconf-yang-data") != 0) return LY_ENOTFOUND;
    *format = LYS_IN_YANG;
    *text = client::yang_ietf_netconf_yang_data;
    *release = nullptr;
    return LY_SUCCESS;
}

void _build() {
    ly_ctx *ctx = nullptr;
    require(ly_ctx_new(nullptr, LY_CTX_ALL_IMPLEMENTED | LY_CTX_NO_YANGLIBRARY | LY_CTX_EXPLICIT_COMPILE, &ctx) ==
                LY_SUCCESS,
            "no context");
    ly_ctx_set_module_imp_clb(ctx, _import, nullptr);
    for (const char *text : modules)
        require(lys_parse_mem(ctx, text, LYS_IN_YANG, nullptr) == LY_SUCCESS, "a module does not parse");
    ly_ctx_set_module_imp_clb(ctx, nullptr, nullptr);
    require(ly_ctx_compile(ctx) == LY_SUCCESS, "the modules do not compile");
}

double _time() {
    Samples samples;
    samples.time(_build);
    return samples.median();
}

double _memory() {
    _build();
    return static_cast<double>(private_kib());
}

} // namespace
} // namespace zam::bench

int main(int argc, char **argv) {
    using namespace zam::bench;
    require(argc == 2, "usage: start_floor time|memory");
    std::printf("%.3f\n", std::strcmp(argv[1], "time") == 0 ? _time() : _memory());
    return 0;
}
