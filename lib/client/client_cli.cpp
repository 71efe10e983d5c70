// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// What an application shows the operator: text sent through the server, or a terminal of its own.

#include <cstdarg>
#include <cstring>
#include <unistd.h>

#include <zamc/logger.h>
#include <zamc/message.h>
#include <zamc/sock_wrap.h>
#include <zamc/utils.h>

#include "client/client_internal.h"
#include "platform/bounded.h"

namespace zam::client {
namespace {

constexpr char stream_name[] = "APPINFO";
constexpr uint32_t addr_size = 64; // the pattern with the longest number takes 41

int32_t _get_termd_addr(uint32_t instance, char *buffer, uint32_t size) {
    if (sprintf_s(buffer, size, "unix:///run/palmet/termd%u.sock", instance) >= 0) return 0;
    zam_log_printf(ZAM_LOG_WRONG, "Build termd url failed.\n");
    return -1;
}

} // namespace
} // namespace zam::client

using namespace zam;
using namespace zam::client;

int32_t zamc_cli_printf(zamc_client *client, const char *format, ...) {
    if (!client) return -3;
    if (!format) return -2;
    char *formatted = nullptr;
    va_list args;
    va_start(args, format);
    const int32_t length = zam_vasprintf(&formatted, format, args);
    va_end(args);
    if (length < 0) return -2; // nothing was stored
    const runtime::owned_text text{formatted};

    const yang::owned_tree notification{zam_message_build_appinfo(text.get(), zam_clients_schema_ctx())};
    if (!notification) {
        zam_log_printf(ZAM_LOG_WRONG, "Build appinfo not successful.\n");
        return -1;
    }
    uint32_t printed_length = 0;
    const runtime::system_text printed{zam_lyd_tree_dump(notification.get(), LYD_XML, &printed_length)};
    if (!printed || printed_length > INT32_MAX) {
        zam_log_printf(ZAM_LOG_WRONG, "Dump appinfo not successful.\n");
        return -1;
    }
    const zamc_bytes data{ZAM_ENCODE_XML, static_cast<int32_t>(printed_length), printed.get()};
    return zamc_notify(client, stream_name, &data);
}

int32_t zamc_borrow_tty(uint32_t instance) {
    char url[addr_size] = "";
    return _get_termd_addr(instance, url, sizeof url) == 0 ? zam_socket_connect(url) : -1;
}

void zamc_return_tty(int32_t fd) {
    if (fd >= 1) close(fd); // descriptor 0 is never ours to close
}
