/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */
/*
 * status: a provider of operational state.
 *
 *     status SERVER-URL MODULE-FOLDER
 *
 * Whoever reads the operational datastore finds in it the platform that this program runs on, and what its clock says.
 * Nothing is stored: the server asks each time.
 */
#define _POSIX_C_SOURCE 200809L /* sigaction, nanosleep and their like, also with -std=c11 */

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/utsname.h>
#include <time.h>

#include <zamc/zamc.h>

#define PLATFORM "/ietf-system:system-state/platform"
#define CLOCK "/ietf-system:system-state/clock"

static volatile sig_atomic_t stop_requested;

static void request_stop(int signal_number) {
    (void)signal_number;
    stop_requested = 1;
}

// region: platform
/* The value is that of the container, without its name. The kernel's names hold nothing that JSON would have escaped.
 */
static int32_t on_platform(zamc_client *client, const char *target, void *reserved, zamc_bytes **output, void *user) {
    (void)reserved, (void)user;
    printf("%s is asked for\n", target);
    struct utsname machine;
    if (uname(&machine) != 0) {
        zamc_error_set(client, errno, "the kernel does not say what it is: %s", strerror(errno));
        return -1;
    }
    char text[512];
    const int length = snprintf(text, sizeof text, "{\"os-name\":\"%s\",\"os-release\":\"%s\",\"machine\":\"%s\"}",
                                machine.sysname, machine.release, machine.machine);
    if (length < 0 || (size_t)length >= sizeof text) return -1;
    *output = zamc_new_bytes(text, length, ZAM_ENCODE_JSON);
    return *output ? 0 : -1;
}
// end

// region: clock
/* Asked each time, so it is never old. */
static int32_t on_clock(zamc_client *client, const char *target, void *reserved, zamc_bytes **output, void *user) {
    (void)client, (void)reserved, (void)user;
    printf("%s is asked for\n", target);
    const time_t now = time(NULL);
    struct tm utc;
    char text[64];
    if (!gmtime_r(&now, &utc)) return -1;
    const size_t length = strftime(text, sizeof text, "{\"current-datetime\":\"%Y-%m-%dT%H:%M:%SZ\"}", &utc);
    *output = zamc_new_bytes(text, (int32_t)length, ZAM_ENCODE_JSON);
    return *output ? 0 : -1;
}
// end

static int32_t on_active(zamc_client *client, int32_t finished, void *user, int32_t reserved) {
    (void)client, (void)finished, (void)user, (void)reserved;
    printf("active\n");
    return 0;
}

// region: subscribe
static int subscribe(zamc_client *client) {
    const zamc_sub_node platform = {.target = PLATFORM, .type = ZAMC_SUB_STATUS_QUERY, .status = on_platform};
    const zamc_sub_node clock = {.target = CLOCK, .type = ZAMC_SUB_STATUS_QUERY, .status = on_clock};
    if (zamc_subscribe(client, &platform) != 0) return -1;
    return zamc_subscribe(client, &clock);
}
// end

static int run(zamc_client *client, const char *url, const char *modules) {
    if (zamc_load_module(modules, NULL) != 0 || subscribe(client) != 0) return -1;
    if (zamc_connect(client, url) < 0 || zamc_activate(client, 0, on_active, NULL) != 0) return -1;
    while (!stop_requested) {
        if (zamc_run(client, 200) != 0) return -1;
    }
    return 0;
}

int main(int argc, char **argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: %s SERVER-URL MODULE-FOLDER\n", argv[0]);
        return 2;
    }
    setvbuf(stdout, NULL, _IOLBF, 0);
    struct sigaction action = {.sa_handler = request_stop};
    sigaction(SIGINT, &action, NULL);
    sigaction(SIGTERM, &action, NULL);
    zam_log_config(ZAM_LOG_WRONG, zam_log_printf);

    zamc_client *client = zamc_client_new("status", ZAM_ENCODE_JSON);
    const int result = client ? run(client, argv[1], argv[2]) : -1;
    zamc_client_free(client);
    return result == 0 ? 0 : 1;
}
