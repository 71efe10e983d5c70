// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Endpoints named by a URL: parsing, resolving, and the socket calls on top.
//
//     unix://PATH[:MODE]    [scheme://]A.B.C.D:PORT    [scheme://][IPV6]:PORT    [scheme://]NAME:PORT
//
// Parsing cuts at the separators and validates nothing else; what makes no sense finds no address. Of the schemes only
// "unix" means something. Resolving gives a list of candidates, of which listening and connecting take the first that
// works; a candidate that fails leaves no descriptor behind.

#include "io/sock_wrap_internal.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <zamc/logger.h>
#include <zamc/sock_wrap.h>

#include "io/errno_text.h"
#include "platform/bounded.h"
#include "runtime/mem_internal.h"

namespace zam::io {
namespace {

constexpr int backlog = 10;
constexpr int connect_tries = 64; // a signal interrupts a connect now and then, not that often

bool _is_unix(const parsed_url *url) {
    return url->scheme && std::string_view{url->scheme} == "unix";
}

// Only the low 16 bits of the number count, as everywhere a port is read.
uint16_t _port_of(const parsed_url *url) {
    return htons(static_cast<uint16_t>(strtol(url->port, nullptr, 10)));
}

address *_new_address(int32_t family, int32_t type, uint32_t length) {
    auto *entry = runtime::mem_new<address>(length);
    if (!entry) return nullptr;
    entry->family = family;
    entry->type = type;
    entry->length = length;
    entry->addr = reinterpret_cast<sockaddr *>(entry + 1);
    return entry;
}

address *_unix_address(const parsed_url *url) {
    owned_addresses entry{_new_address(AF_UNIX, SOCK_STREAM, sizeof(sockaddr_un))};
    if (!entry) {
        zam_log_printf(ZAM_LOG_EMERG, "Allocate memory for unix-address-info unsuccessful.\n");
        return nullptr;
    }
    auto *un = reinterpret_cast<sockaddr_un *>(entry->addr);
    un->sun_family = AF_UNIX;
    if (strncpy_s(un->sun_path, sizeof(un->sun_path), url->host, strlen(url->host)) != 0) return nullptr;
    return entry.release();
}

address *_ipv4_address(const in_addr &host, uint16_t port) {
    address *entry = _new_address(AF_INET, SOCK_STREAM, sizeof(sockaddr_in));
    if (!entry) {
        zam_log_printf(ZAM_LOG_EMERG, "Allocate memory for ipv4-address-info unsuccessful.\n");
        return nullptr;
    }
    auto *in = reinterpret_cast<sockaddr_in *>(entry->addr);
    in->sin_family = AF_INET;
    in->sin_port = port;
    in->sin_addr = host;
    return entry;
}

address *_ipv6_address(const in6_addr &host, uint16_t port) {
    address *entry = _new_address(AF_INET6, SOCK_STREAM, sizeof(sockaddr_in6));
    if (!entry) {
        zam_log_printf(ZAM_LOG_EMERG, "Allocate memory for ipv6-address-info unsuccessful.\n");
        return nullptr;
    }
    auto *in6 = reinterpret_cast<sockaddr_in6 *>(entry->addr);
    in6->sin6_family = AF_INET6;
    in6->sin6_port = port;
    in6->sin6_addr = host;
    return entry;
}

address *_resolve_name(const parsed_url *url) {
    addrinfo hints{};
    hints.ai_protocol = IPPROTO_TCP;
    addrinfo *found = nullptr;
    const int error = getaddrinfo(url->host, url->port, &hints, &found);
    if (error != 0) {
        const int cause = error == EAI_SYSTEM ? errno : 0; // else what the resolver last tried in vain
        zam_log_printf(ZAM_LOG_WRONG, "Get address info for %s unsuccessful(%s).\n", url->host, gai_strerror(error));
        errno = cause;
        return nullptr;
    }
    const runtime::owned<addrinfo, freeaddrinfo> results{found};
    address *list = nullptr;
    for (const addrinfo *result = found; result; result = result->ai_next) {
        address *entry = _new_address(result->ai_family, result->ai_socktype, result->ai_addrlen);
        if (!entry) {
            zam_log_printf(ZAM_LOG_WRONG, "Allocate memory for dns-address-info unsuccessful.\n");
            continue;
        }
        memcpy_s(entry->addr, entry->length, result->ai_addr, result->ai_addrlen);
        // At the head: the resolver's last answer is tried first. Installations count on "localhost" meaning
        // 127.0.0.1 before ::1.
        entry->next = list;
        list = entry;
    }
    return list;
}

// What the public calls need of a URL; logs why not.
enum class need { host, host_and_port };

parsed_url *_checked_url(const char *text, need parts) {
    if (!text) {
        zam_log_printf(ZAM_LOG_WRONG, "Input url invalid.\n");
        return nullptr;
    }
    owned_url url{_parse_url(text)};
    if (!url || !url->host || (parts == need::host_and_port && !url->port)) {
        zam_log_printf(ZAM_LOG_WRONG, "Parse url %s unsuccessful.\n", text);
        return nullptr;
    }
    return url.release();
}

// Makes the socket file accessible as the URL's octal mode says.
int _set_file_mode(const parsed_url *url, const char *text) {
    const auto mode = static_cast<mode_t>(strtol(url->port, nullptr, 8));
    if (chmod(url->host, mode) == 0) return 0;
    zam_log_printf(ZAM_LOG_WRONG, "Change the permiss of file %s unsuccess(%s).\n", text, errno_text(errno).c_str());
    return -1;
}

int _bind_and_listen(int fd, const address *entry, const parsed_url *url, const char *text) {
    if (entry->family == AF_UNIX) {
        // The file takes over the mode of its socket when it is bound, so it is at no moment more open than the URL
        // says. A kernel that refuses this leaves it to the chmod that follows.
        static_cast<void>(fchmod(fd, static_cast<mode_t>(strtol(url->port, nullptr, 8))));
        unlink(url->host); // a file that a dead server left behind
    }
    if (bind(fd, entry->addr, entry->length) != 0 || listen(fd, backlog) != 0) {
        zam_log_printf(ZAM_LOG_WRONG, "Listen for %s unsuccessful(%s).\n", text, errno_text(errno).c_str());
        return -1;
    }
    return entry->family == AF_UNIX ? _set_file_mode(url, text) : 0;
}

int _listen_on(const address *entry, const parsed_url *url, const char *text) {
    const int fd = socket(entry->family, entry->type, 0);
    if (fd < 0) {
        zam_log_printf(ZAM_LOG_WRONG, "Create listen_sock fd unsuccessful(%s).\n", errno_text(errno).c_str());
        return -1;
    }
    if (_bind_and_listen(fd, entry, url, text) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// A blocking connect that a signal interrupts goes on in the kernel; calling again waits for it, or finds it done.
bool _connect(int fd, const address *entry) {
    for (int i = 0; i < connect_tries; ++i) {
        if (connect(fd, entry->addr, entry->length) == 0) return true;
        if (errno == EISCONN && i > 0) return true;
        if (errno != EINTR) return false;
    }
    return false;
}

int _connect_to(const address *entry) {
    const int fd = socket(entry->family, entry->type, 0);
    if (fd < 0) {
        zam_log_printf(ZAM_LOG_WRONG, "Create conn_sock fd unsuccessful(%s).\n", errno_text(errno).c_str());
        return -1;
    }
    if (!_connect(fd, entry)) {
        close(fd); // silently: the caller reports that nobody answered
        return -1;
    }
    // An answer that is followed by a request would else wait for the peer's delayed acknowledgement, 40 ms.
    const int at_once = 1;
    if (entry->family != AF_UNIX) setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &at_once, sizeof at_once);
    return fd;
}

} // namespace

parsed_url *_parse_url(const char *url) {
    if (!url) return nullptr;
    const size_t length = strlen(url);
    owned_url parsed;
    if (length < UINT32_MAX - sizeof(parsed_url)) {
        parsed.reset(runtime::mem_new<parsed_url>(static_cast<uint32_t>(length) + 1));
    }
    if (!parsed) {
        zam_log_printf(ZAM_LOG_EMERG, "Allocate memory for url-info unsuccessful.\n");
        return nullptr;
    }
    auto *text = reinterpret_cast<char *>(parsed.get() + 1);
    if (strncpy_s(text, length + 1, url, length) != 0) return nullptr;

    parsed->host = text;
    if (char *separator = strstr(text, "://")) {
        parsed->scheme = text;
        parsed->host = separator + 3;
        *separator = '\0';
    }
    char *rest = parsed->host;
    if (*rest == '[') {
        char *bracket = strchr(rest, ']');
        if (!bracket) return nullptr;
        parsed->host = rest + 1;
        *bracket = '\0';
        rest = bracket + 1;
    }
    if (char *colon = strchr(rest, ':')) {
        parsed->port = colon + 1;
        *colon = '\0';
    }
    return parsed.release();
}

address *_get_addrinfo(const parsed_url *url) {
    if (!url || !url->host) return nullptr;
    if (_is_unix(url)) return _unix_address(url);
    if (!url->port) return nullptr;
    in_addr ipv4{};
    if (inet_pton(AF_INET, url->host, &ipv4) == 1) return _ipv4_address(ipv4, _port_of(url));
    in6_addr ipv6{};
    if (inet_pton(AF_INET6, url->host, &ipv6) == 1) return _ipv6_address(ipv6, _port_of(url));
    return _resolve_name(url);
}

void _free_addrinfo(address *list) {
    while (list) {
        address *next = list->next;
        zam_free(list);
        list = next;
    }
}

} // namespace zam::io

using namespace zam::io;

int32_t zam_socket_listen(const char *url) {
    const owned_url parsed{_checked_url(url, need::host_and_port)};
    if (!parsed) return -1;
    const owned_addresses list{_get_addrinfo(parsed.get())};
    for (const address *entry = list.get(); entry; entry = entry->next) {
        const int fd = _listen_on(entry, parsed.get(), url);
        if (fd >= 0) return fd;
    }
    return -1;
}

void zam_socket_listen_release(const char *url) {
    const owned_url parsed{_checked_url(url, need::host)};
    if (!parsed) return;
    const owned_addresses list{_get_addrinfo(parsed.get())};
    for (const address *entry = list.get(); entry; entry = entry->next) {
        if (entry->family != AF_UNIX) continue;
        zam_log_printf(ZAM_LOG_INFO, "Release %s .\n", url);
        unlink(parsed->host);
    }
}

int32_t zam_socket_connect(const char *url) {
    const owned_url parsed{_checked_url(url, need::host)};
    if (!parsed) return -1;
    const owned_addresses list{_get_addrinfo(parsed.get())};
    for (const address *entry = list.get(); entry; entry = entry->next) {
        const int fd = _connect_to(entry);
        if (fd >= 0) return fd;
    }
    return -1;
}

int32_t zam_socket_accept(int32_t fd) {
    return accept(fd, nullptr, nullptr);
}

int32_t zam_socket_block(int32_t fd, int32_t blocking) {
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0) {
        return zam_log_printf(ZAM_LOG_WRONG, "Get the flags of fd %d unsuccessful(%s).\n", fd,
                              errno_text(errno).c_str());
    }
    const int wanted = blocking ? flags & ~O_NONBLOCK : flags | O_NONBLOCK;
    if (fcntl(fd, F_SETFL, wanted) < 0) {
        return zam_log_printf(ZAM_LOG_WRONG, "Set the flags of fd %d unsuccessful(%s).\n", fd,
                              errno_text(errno).c_str());
    }
    return 0;
}

int32_t zam_socket_cloexec(int32_t fd) {
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0) {
        return zam_log_printf(ZAM_LOG_WRONG, "Get the flags of fd %d unsuccessful(%s) when add FD_CLOEXEC.\n", fd,
                              errno_text(errno).c_str());
    }
    // The status flags, not the descriptor flags: the system ignores the bit there, and descriptors stay inherited as
    // applications that start helpers have come to expect.
    if (fcntl(fd, F_SETFL, flags | FD_CLOEXEC) < 0) {
        return zam_log_printf(ZAM_LOG_WRONG, "Add FD_CLOEXEC flag of fd %d unsuccessful(%s).\n", fd,
                              errno_text(errno).c_str());
    }
    return 0;
}
