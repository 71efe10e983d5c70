// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The two steps from a URL to socket addresses. Everything that opens a socket goes through both.
#ifndef ZAMC_IO_SOCK_WRAP_INTERNAL_H
#define ZAMC_IO_SOCK_WRAP_INTERNAL_H

#include <cstdint>
#include <sys/socket.h>

#include <zamc/mem.h>

#include "runtime/mem_internal.h"

namespace zam::io {

// A URL cut into its parts. The parts point into a private copy of the text behind the record.
struct parsed_url {
    char *scheme; // null without "://"
    char *host;
    char *port; // null without ":"; the file mode of a unix URL
};

// One candidate address. The socket address lies behind the record.
struct address {
    address *next;
    int32_t family;
    int32_t type;
    uint32_t length;
    sockaddr *addr;
};

// One block, released with zam_free. Null for a null URL, for "[" without "]" and when memory is short.
parsed_url *_parse_url(const char *url);

// The candidates in the order in which they are tried; null when there is none.
address *_get_addrinfo(const parsed_url *url);
void _free_addrinfo(address *list);

using owned_url = runtime::owned_block<parsed_url>;
using owned_addresses = runtime::owned<address, _free_addrinfo>;

} // namespace zam::io

#endif
