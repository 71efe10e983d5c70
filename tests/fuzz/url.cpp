// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// URLs taken apart. Names are not resolved: only numbers and unix paths go on to addresses.
#include <cctype>
#include <cstring>

#include <netinet/in.h>
#include <sys/un.h>

#include "fuzz.h"
#include "io/sock_wrap_internal.h"

namespace zam::fuzz {
namespace {

bool needs_resolver(const io::parsed_url &url) {
    if (url.scheme && std::strcmp(url.scheme, "unix") == 0) return false;
    for (const char *at = url.host; at && *at; ++at) {
        const auto c = static_cast<unsigned char>(*at);
        if (!std::isxdigit(c) && c != '.' && c != ':' && c != '[' && c != ']') return true;
        if (std::isalpha(c) && std::strchr(url.host, ':') == nullptr) return true;
    }
    return !url.host || !*url.host;
}

} // namespace

void start() {}

void run(std::string_view input) {
    const std::string text{input.substr(0, input.find('\0'))};
    const io::owned_url url{io::_parse_url(text.c_str())};
    if (!url) return;
    FUZZ_EXPECT(url->host != nullptr);
    FUZZ_EXPECT(std::strlen(url->host) <= text.size());
    if (planted() && url->scheme && url->port && std::strcmp(url->host, "::1") == 0 &&
        std::strcmp(url->port, "77") == 0)
        planted_fault();
    if (needs_resolver(*url)) return;
    const io::owned_addresses list{io::_get_addrinfo(url.get())};
    for (const io::address *at = list.get(); at; at = at->next) {
        FUZZ_EXPECT(at->addr != nullptr && at->length <= sizeof(sockaddr_storage));
        FUZZ_EXPECT(at->family == AF_UNIX || at->family == AF_INET || at->family == AF_INET6);
    }
}

} // namespace zam::fuzz
