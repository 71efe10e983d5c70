/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */
/*
 * pull-and-watch: prints a subtree, then each change of it as it happens, with what was there before.
 *
 *     pull-and-watch SERVER-URL MODULE-FOLDER PATH
 *
 * It asks the server from inside the handler: during a publication the current version is what the change leads to, the
 * last one what it comes from.
 */
#define _POSIX_C_SOURCE 200809L /* sigaction, nanosleep and their like, also with -std=c11 */

#include <signal.h>
#include <stdio.h>

#include <zamc/zamc.h>

static volatile sig_atomic_t stop_requested;

static void request_stop(int signal_number) {
    (void)signal_number;
    stop_requested = 1;
}

// region: print
enum { VERSION_CURRENT = 0, VERSION_LAST = 1 };

static int print_value(zamc_client *client, const char *title, int32_t version, const char *path) {
    zamc_bytes *value = NULL;
    if (zamc_pull(client, version, path, -1, &value) != 0) return -1;
    printf("%s %s\n", title, value ? value->data : "nothing");
    zamc_free_bytes(value);
    return 0;
}
// end

// region: handler
/* The brief form of a config-change handler, without list_more. A watcher agrees to everything, whatever it can read.
 */
static int32_t on_change(zamc_client *client, uint32_t mask, uint32_t priority, const char *target, void *user) {
    (void)priority, (void)user;
    printf("%s%s\n", target, mask & ZAMC_SCENE_ROLLBACK ? " is taken back" : "");
    if (mask & ZAMC_SCENE_ROLLBACK) return 0;
    if (print_value(client, "    was", VERSION_LAST, target) != 0 ||
        print_value(client, "    is", VERSION_CURRENT, target) != 0) {
        fprintf(stderr, "%s cannot be read\n", target);
    }
    return 0;
}
// end

static int32_t on_active(zamc_client *client, int32_t finished, void *user, int32_t reserved) {
    (void)client, (void)finished, (void)user, (void)reserved;
    printf("watching\n");
    return 0;
}

// region: run
/* Subscribed first and pulled then: a change in between is seen twice rather than never. */
static int run(zamc_client *client, const char *url, const char *modules, const char *path) {
    const zamc_sub_node node = {.target = path,
                                .type = ZAMC_SUB_CONFIG_CHANGE_BRIEF,
                                .priority = 1000, /* after those who may refuse */
                                .config_brief = on_change};
    if (zamc_load_module(modules, NULL) != 0 || zamc_subscribe(client, &node) != 0) return -1;
    if (zamc_connect(client, url) < 0 || zamc_activate(client, 0, on_active, NULL) != 0) return -1;
    if (print_value(client, "now", VERSION_CURRENT, path) != 0) return -1;
    while (!stop_requested) {
        if (zamc_run(client, 200) != 0) return -1;
    }
    return 0;
}
// end

int main(int argc, char **argv) {
    if (argc != 4) {
        fprintf(stderr, "usage: %s SERVER-URL MODULE-FOLDER PATH\n", argv[0]);
        return 2;
    }
    setvbuf(stdout, NULL, _IOLBF, 0);
    struct sigaction action = {.sa_handler = request_stop};
    sigaction(SIGINT, &action, NULL);
    sigaction(SIGTERM, &action, NULL);
    zam_log_config(ZAM_LOG_WRONG, zam_log_printf);

    zamc_client *client = zamc_client_new("pull-and-watch", ZAM_ENCODE_JSON);
    const int result = client ? run(client, argv[1], argv[2], argv[3]) : -1;
    zamc_client_free(client);
    return result == 0 ? 0 : 1;
}
