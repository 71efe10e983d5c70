// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The texts of yang/*.yang, made part of the library at build time. Each is a NUL-terminated string.
#ifndef ZAMC_CLIENT_BUILTIN_YANG_H
#define ZAMC_CLIENT_BUILTIN_YANG_H

namespace zam::client {

extern const char yang_ietf_restconf[];
extern const char yang_ietf_netconf[];
extern const char yang_ietf_netconf_yang_data[];
extern const char yang_ietf_yang_patch[];
extern const char yang_ietf_datastores[];
extern const char yang_ietf_yang_library[];
extern const char yang_orvel_zam_server[];
extern const char yang_orvel_zam_client[];

} // namespace zam::client

#endif
