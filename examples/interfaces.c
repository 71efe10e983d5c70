/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */
/*
 * interfaces: an application that implements the interfaces of a device.
 *
 *     interfaces SERVER-URL MODULE-FOLDER
 *
 * It is told of every change of an interface and may refuse it, answers queries of the interfaces' state, and carries out
 * an operation, whose answer it gives later. When the server goes away it connects again. Copy it and make it yours.
 */
#define _POSIX_C_SOURCE 200809L /* sigaction, nanosleep and their like, also with -std=c11 */

#include <zamc/zamc.h>

#include <inttypes.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#define INTERFACE "/ietf-interfaces:interfaces/interface"
#define STATE "/ietf-interfaces:interfaces-state"
#define SET_TIME "/ietf-system:set-current-datetime"

/* The interface that carries the management session must stay up; its own error code tells the operator's tools why. */
#define MANAGEMENT_INTERFACE "eth0"
#define CODE_MANAGEMENT 17

struct app {
    uint32_t pending_seq; /* the operation that still has to be answered */
    uint64_t in_octets;   /* stands for a counter of the hardware */
};

static volatile sig_atomic_t stop_requested;

static void request_stop(int signal_number)
{
    (void)signal_number;
    stop_requested = 1;
}

static const char *change_name(uint32_t mask)
{
    if (mask & ZAMC_CONFIG_CREATE) return "create";
    if (mask & ZAMC_CONFIG_DELETE) return "delete";
    return mask & ZAMC_CONFIG_MOVE ? "move" : "update";
}

static const char *scene_name(uint32_t mask)
{
    if (mask & ZAMC_SCENE_ROLLBACK) return "rollback";
    return mask & ZAMC_SCENE_CFGR ? "replay" : "normal";
}

/* Prints what happens to the node at the directory: to a leaf with its value, to another one through what is in it. */
static void print_change(zamc_doc *doc, const char *target)
{
    if (zamc_iter_doc(doc, ZAMC_DIRECTION_CHILD)) {
        do {
            print_change(doc, target);
        } while (zamc_iter_doc(doc, ZAMC_DIRECTION_NEXT));
        zamc_iter_doc(doc, ZAMC_DIRECTION_PARENT);
        return;
    }
    const char *operation = zamc_node_attr(doc, NULL, "operation"); /* its own, or that of what it is in */
    if (!operation || strcmp(operation, "merge") == 0) return;      /* only leads to what changes */
    const char *path = zamc_current_dir(doc);
    if (strncmp(path, target, strlen(target)) == 0) path += strlen(target);
    const char *value = zamc_node_content(doc, NULL);
    const char *old_value = zamc_node_attr(doc, NULL, "origin-value");
    printf("  %s %s", operation, *path ? path : "it");
    if (value) printf(" = %s", value);
    if (old_value) printf(" (was %s)", old_value);
    printf("\n");
}

/* Prints a change, and says whether the application can live with it. */
static int32_t judge(zamc_client *client, const zamc_bytes *change, const char *target)
{
    zamc_doc *doc = zamc_parse_bytes(change, "/");
    if (zamc_change_dir(doc, target) != 0) {
        zamc_free_doc(doc);
        return -1;
    }
    print_change(doc, target); /* the directory is back at the target afterwards */
    const char *enabled = zamc_node_content(doc, "enabled");
    const char *operation = zamc_node_attr(doc, NULL, "operation");
    const int shut_down = enabled && strcmp(enabled, "false") == 0;
    const int deleted = operation && (strcmp(operation, "delete") == 0 || strcmp(operation, "remove") == 0);
    zamc_free_doc(doc);
    if ((shut_down || deleted) && strstr(target, "\"" MANAGEMENT_INTERFACE "\"")) {
        zamc_error_set(client, CODE_MANAGEMENT, "%s carries the management session", MANAGEMENT_INTERFACE);
        return -1;
    }
    return 0;
}

/* The configuration of an interface changes. */
static int32_t on_interface(zamc_client *client, uint32_t mask, uint32_t priority, int32_t list_more, const char *target,
                            void *user)
{
    (void)user;
    printf("%s %s (priority %" PRIu32 ", scene %s%s)\n", change_name(mask), target, priority, scene_name(mask),
           list_more ? ", more to come" : "");
    int32_t result = 0;
    if (mask & ZAMC_SCENE_NORMAL) {
        zamc_bytes *change = NULL;
        if (zamc_diff(client, target, -1, &change) == 0 && change) result = judge(client, change, target);
        zamc_free_bytes(change);
    }
    if (result != 0) printf("  refused\n");
    return result;
}

/* Somebody asks for the state of the interfaces. */
static int32_t on_state(zamc_client *client, const char *target, void *reserved, zamc_bytes **output, void *user)
{
    (void)client;
    (void)reserved;
    struct app *app = user;
    app->in_octets += 1500;
    char text[512];
    const int length = snprintf(text, sizeof text,
                                "{\"interface\":[{\"name\":\"%s\",\"type\":\"iana-if-type:ethernetCsmacd\","
                                "\"admin-status\":\"up\",\"oper-status\":\"up\",\"if-index\":1,\"statistics\":{"
                                "\"discontinuity-time\":\"2026-01-01T00:00:00+00:00\",\"in-octets\":\"%" PRIu64 "\"}}]}",
                                MANAGEMENT_INTERFACE, app->in_octets);
    printf("state of %s is asked for\n", target);
    *output = zamc_new_bytes(text, length, ZAM_ENCODE_JSON);
    return *output ? 0 : -1;
}

/* An operation. Setting a clock takes a while, so the answer is given later, by its number. */
static int32_t on_set_time(zamc_client *client, const zamc_bytes *input, zamc_bytes **output, void *user)
{
    (void)output;
    struct app *app = user;
    printf("set-current-datetime %s\n", input->data);
    app->pending_seq = zamc_request_seq(client);
    return ZAMC_REPLY_LATER;
}

static int32_t on_active(zamc_client *client, int32_t finished, void *user, int32_t reserved)
{
    (void)client;
    (void)finished;
    (void)user;
    (void)reserved;
    printf("active\n");
    return 0;
}

static int subscribe(zamc_client *client, struct app *app)
{
    const zamc_sub_node nodes[] = {
        {.target = INTERFACE,
         .type = ZAMC_SUB_CONFIG_CHANGE,
         .priority = 100,
         .filter_mask = ZAMC_CONFIG_CREATE | ZAMC_CONFIG_DELETE | ZAMC_CONFIG_UPDATE | ZAMC_SCENE_NORMAL |
                        ZAMC_SCENE_CFGR | ZAMC_SCENE_ROLLBACK,
         .config = on_interface,
         .user = app},
        {.target = STATE, .type = ZAMC_SUB_STATUS_QUERY, .status = on_state, .user = app},
        {.target = SET_TIME, .type = ZAMC_SUB_OPERATION, .operation = on_set_time, .user = app},
    };
    for (size_t i = 0; i < sizeof nodes / sizeof nodes[0]; i++) {
        if (zamc_subscribe(client, &nodes[i]) != 0) return -1;
    }
    return 0;
}

static void pause_ms(long ms)
{
    const struct timespec pause = {ms / 1000, ms % 1000 * 1000000};
    nanosleep(&pause, NULL);
}

/* Serves one connection until it is lost or the program is told to stop. */
static void serve(zamc_client *client, struct app *app)
{
    while (!stop_requested && zamc_run(client, 200) == 0) {
        if (app->pending_seq == 0) continue;
        printf("the clock is set\n");
        zamc_reply_asyn(client, app->pending_seq, NULL);
        app->pending_seq = 0;
    }
    app->pending_seq = 0; /* an answer that is still owed goes with its connection */
}

static void connect_and_serve(zamc_client *client, const char *url, struct app *app)
{
    if (zamc_connect(client, url) < 0) {
        pause_ms(200);
        return;
    }
    printf("connected\n");
    if (zamc_activate(client, 1, on_active, NULL) == 0) serve(client, app);
    if (stop_requested) return;
    printf("the connection is lost\n");
    zamc_disconnect(client);
    pause_ms(200);
}

int main(int argc, char **argv)
{
    if (argc != 3) {
        fprintf(stderr, "usage: %s SERVER-URL MODULE-FOLDER\n", argv[0]);
        return 2;
    }
    setvbuf(stdout, NULL, _IOLBF, 0);
    struct sigaction action = {.sa_handler = request_stop};
    sigaction(SIGINT, &action, NULL);
    sigaction(SIGTERM, &action, NULL);
    zam_log_config(ZAM_LOG_WRONG, zam_log_printf);

    struct app app = {0};
    zamc_client *client = zamc_client_new("interfaces", ZAM_ENCODE_JSON);
    if (!client || zamc_load_module(argv[2], NULL) != 0 || subscribe(client, &app) != 0) {
        fprintf(stderr, "%s: cannot start with the modules of %s\n", argv[0], argv[2]);
        zamc_client_free(client);
        return 1;
    }
    while (!stop_requested) connect_and_serve(client, argv[1], &app);
    zamc_client_free(client);
    return 0;
}
