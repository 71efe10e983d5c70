/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */
/*
 * veto: an application that agrees to changes of interfaces, or refuses them with a reason.
 *
 *     veto SERVER-URL MODULE-FOLDER
 *
 * The device has two ports. An interface that none of them can be is refused before it gets into the configuration, and
 * the operator reads why.
 */
#define _POSIX_C_SOURCE 200809L /* sigaction, nanosleep and their like, also with -std=c11 */

// region: includes
#include <signal.h>
#include <stdio.h>
#include <string.h>

#include <zamc/zamc.h>
// end

// region: hardware
static const char *const ports[] = {"eth0", "eth1"};

/* A code of the application's own, which the operator's tools can look for. */
enum { CODE_NO_SUCH_PORT = 19 };
// end

static volatile sig_atomic_t stop_requested;

static void request_stop(int signal_number) {
    (void)signal_number;
    stop_requested = 1;
}

// region: lookup
static int is_port(const char *name) {
    for (size_t i = 0; i < sizeof ports / sizeof ports[0]; i++) {
        if (strcmp(ports[i], name) == 0) return 1;
    }
    return 0;
}
// end

// region: judge
/* Fetches the change that is being published, reads the name in it, and refuses a name without a port. */
static int32_t judge(zamc_client *client, const char *target) {
    zamc_bytes *change = NULL;
    if (zamc_diff(client, target, -1, &change) != 0) return -1;
    zamc_doc *doc = zamc_parse_bytes(change, "/");
    zamc_free_bytes(change);
    if (zamc_change_dir(doc, target) != 0) {
        zamc_free_doc(doc);
        return -1;
    }
    int32_t result = 0;
    const char *name = zamc_node_content(doc, "name");
    if (!name || !is_port(name)) {
        zamc_error_set(client, CODE_NO_SUCH_PORT, "this device has no port %s", name ? name : "of that name");
        result = -1;
    }
    zamc_free_doc(doc);
    return result;
}
// end

// region: handler
static int32_t on_interface(zamc_client *client, uint32_t mask, uint32_t priority, int32_t list_more,
                            const char *target, void *user) {
    (void)priority, (void)list_more, (void)user;
    int32_t result = 0;
    if ((mask & ZAMC_CONFIG_CREATE) && (mask & ZAMC_SCENE_NORMAL)) result = judge(client, target);
    printf("%s %s\n", result == 0 ? "agreed to" : "refused", target);
    return result;
}
// end

// region: active
static int32_t on_active(zamc_client *client, int32_t finished, void *user, int32_t reserved) {
    (void)client, (void)finished, (void)user, (void)reserved;
    printf("active\n");
    return 0;
}
// end

// region: run
static int run(zamc_client *client, const char *url, const char *modules) {
    const zamc_sub_node interfaces = {.target = "/ietf-interfaces:interfaces/interface",
                                      .type = ZAMC_SUB_CONFIG_CHANGE,
                                      .priority = 100,
                                      .config = on_interface};
    if (zamc_load_module(modules, NULL) != 0) return -1;
    if (zamc_subscribe(client, &interfaces) != 0) return -1;
    if (zamc_connect(client, url) < 0) return -1;
    if (zamc_activate(client, 0, on_active, NULL) != 0) return -1;
    while (!stop_requested) {
        if (zamc_run(client, 200) != 0) return -1;
    }
    return 0;
}
// end

// region: main
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

    zamc_client *client = zamc_client_new("veto", ZAM_ENCODE_JSON);
    const int result = client ? run(client, argv[1], argv[2]) : -1;
    zamc_client_free(client);
    return result == 0 ? 0 : 1;
}
// end
