// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The record behind the shared schema context, and the step that builds it.
#ifndef ZAMC_CLIENT_CLIENT_CTX_INTERNAL_H
#define ZAMC_CLIENT_CLIENT_CTX_INTERNAL_H

#include <cstdint>
#include <span>

#include <zamc/client.h>

namespace zam::client {

struct clients_ctx {
    ly_ctx *context;        // null until a build succeeded
    uint8_t modules_loaded; // 1 once the application has loaded modules of its own
};

struct builtin_module {
    const char *file_name; // only for the message of a failed parse
    const char *text;
};

// The one record of the process.
clients_ctx *_clients_ctx();

// The modules of the library, in the order in which they import each other.
std::span<const builtin_module> _builtin_modules();

// A context with all of the modules, compiled; null on failure, with nothing left behind.
ly_ctx *_build_ctx(std::span<const builtin_module> modules);

} // namespace zam::client

#endif
