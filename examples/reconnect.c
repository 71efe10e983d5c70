/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */
/*
 * reconnect: an application that outlives its server.
 *
 *     reconnect SERVER-URL MODULE-FOLDER
 *
 * The client keeps its subscriptions. Each new connection is told of them by the next activation, which replays what
 * the datastore holds by then, so that the application need not know what it missed.
 */
#define _POSIX_C_SOURCE 200809L /* sigaction, nanosleep and their like, also with -std=c11 */

#include <signal.h>
#include <stdio.h>
#include <time.h>

#include <zamc/zamc.h>

static volatile sig_atomic_t stop_requested;

static void request_stop(int signal_number) {
    (void)signal_number;
    stop_requested = 1;
}

// region: handler
/* A replay is no change: the data is there already, and refusing it would help nobody. */
static int32_t on_interface(zamc_client *client, uint32_t mask, uint32_t priority, int32_t list_more,
                            const char *target, void *user) {
    (void)client, (void)priority, (void)list_more, (void)user;
    printf("%s %s\n", mask & ZAMC_SCENE_CFGR ? "replayed" : "changed", target);
    return 0;
}
// end

static int32_t on_active(zamc_client *client, int32_t finished, void *user, int32_t reserved) {
    (void)client, (void)finished, (void)user, (void)reserved;
    printf("active\n");
    return 0;
}

// region: pause
enum { FIRST_PAUSE_MS = 100, LONGEST_PAUSE_MS = 5000 };

static void pause_ms(long ms) {
    const struct timespec pause = {ms / 1000, ms % 1000 * 1000000};
    nanosleep(&pause, NULL);
}
// end

// region: serve
/* One connection, from its beginning to its end; returns whether there was one. */
static int serve(zamc_client *client, const char *url) {
    if (zamc_connect(client, url) < 0) return 0;
    printf("connected\n");
    if (zamc_activate(client, 1, on_active, NULL) == 0) {
        while (!stop_requested && zamc_run(client, 200) == 0)
            continue;
    }
    zamc_disconnect(client);
    if (!stop_requested) printf("the connection is lost\n");
    return 1;
}
// end

// region: forever
/* Tries again, less and less often while nobody answers. */
static void serve_for_ever(zamc_client *client, const char *url) {
    long pause = FIRST_PAUSE_MS;
    while (!stop_requested) {
        if (serve(client, url)) pause = FIRST_PAUSE_MS;
        if (stop_requested) return;
        pause_ms(pause);
        pause = pause * 2 < LONGEST_PAUSE_MS ? pause * 2 : LONGEST_PAUSE_MS;
    }
}
// end

// region: prepare
/* What is done once, before the first connection. */
static int prepare(zamc_client *client, const char *modules) {
    const zamc_sub_node interfaces = {.target = "/ietf-interfaces:interfaces/interface",
                                      .type = ZAMC_SUB_CONFIG_CHANGE,
                                      .priority = 100,
                                      .config = on_interface};
    if (zamc_load_module(modules, NULL) != 0) return -1;
    return zamc_subscribe(client, &interfaces);
}
// end

int main(int argc, char **argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: %s SERVER-URL MODULE-FOLDER\n", argv[0]);
        return 2;
    }
    setvbuf(stdout, NULL, _IOLBF, 0);
    struct sigaction action = {.sa_handler = request_stop};
    sigaction(SIGINT, &action, NULL);
    sigaction(SIGTERM, &action, NULL);

    zamc_client *client = zamc_client_new("reconnect", ZAM_ENCODE_JSON);
    const int ready = client && prepare(client, argv[2]) == 0;
    if (ready) serve_for_ever(client, argv[1]);
    zamc_client_free(client);
    return ready ? 0 : 1;
}
