/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */
/*
 * operation: an operation that is answered later.
 *
 *     operation SERVER-URL MODULE-FOLDER
 *
 * It carries out set-current-datetime of ietf-system. A clock chip is slow, so the handler only notes the request, and
 * the answer is given from the main loop, by the request's number; the client serves others meanwhile. While NTP sets
 * the clock nobody else may, and the caller is told so.
 */
#define _POSIX_C_SOURCE 200809L /* sigaction, nanosleep and their like, also with -std=c11 */

#include <inttypes.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>

#include <zamc/zamc.h>

// region: names
#define OPERATION "ietf-system:set-current-datetime"
#define SET_TIME "/" OPERATION
#define NTP_ENABLED "/ietf-system:system/ntp/enabled"

enum { CODE_NTP_ACTIVE = 1, MAX_PENDING = 16 };
// end

// region: pending
/* A request that still has to be answered. */
struct pending {
    uint32_t seq;
    char datetime[64];
};

struct app {
    struct pending pending[MAX_PENDING];
    size_t count;
};
// end

static volatile sig_atomic_t stop_requested;

static void request_stop(int signal_number) {
    (void)signal_number;
    stop_requested = 1;
}

// region: input
/* The input is what stands inside the operation. With the operation's name around it, it is a document. */
static int read_datetime(const zamc_bytes *input, char *datetime, uint32_t size) {
    char *text = NULL;
    const int32_t length = zam_asprintf(&text, "{\"" OPERATION "\":%s}", input->data);
    zamc_bytes *whole = zamc_new_bytes(text, length, ZAM_ENCODE_JSON);
    zam_free(text);
    zamc_doc *doc = zamc_parse_bytes(whole, "/");
    zamc_free_bytes(whole);
    const int32_t result = zamc_parse_node(doc, SET_TIME "/current-datetime", "%s", datetime, size);
    zamc_free_doc(doc);
    return result;
}
// end

// region: handler
/* What it is handed is gone when it returns, so it keeps what it needs. */
static int32_t on_set_time(zamc_client *client, const zamc_bytes *input, zamc_bytes **output, void *user) {
    (void)output;
    struct app *app = user;
    if (app->count == MAX_PENDING) {
        zamc_error_set(client, -1, "too many requests at a time");
        return -1;
    }
    struct pending *next = &app->pending[app->count];
    if (read_datetime(input, next->datetime, sizeof next->datetime) != 0) return -1;
    next->seq = zamc_request_seq(client);
    app->count++;
    printf("%s is to be set\n", next->datetime);
    return ZAMC_REPLY_LATER;
}
// end

// region: ntp
/* 1 when the configuration has NTP set the clock, 0 when not, -1 when the server does not say. */
static int ntp_is_active(zamc_client *client) {
    zamc_bytes *enabled = NULL;
    if (zamc_pull(client, 0, NTP_ENABLED, -1, &enabled) != 0) return -1;
    const int active = enabled && strcmp(enabled->data, "true") == 0;
    zamc_free_bytes(enabled);
    return active;
}
// end

// region: answer
/* Answers the oldest request: success, or the error that is set right before. */
static void answer_one(zamc_client *client, struct app *app) {
    const struct pending request = app->pending[0];
    app->count--;
    memmove(app->pending, app->pending + 1, app->count * sizeof request);
    const int active = ntp_is_active(client);
    if (active == 0) {
        printf("the clock says %s\n", request.datetime);
    } else if (active == 1) {
        printf("refused\n");
        zamc_error_set(client, CODE_NTP_ACTIVE, "NTP sets the clock");
    } else {
        zamc_error_set(client, -1, "it is not known whether NTP sets the clock");
    }
    if (zamc_reply_asyn(client, request.seq, NULL) != 0) fprintf(stderr, "request %" PRIu32 " is lost\n", request.seq);
}
// end

static int32_t on_active(zamc_client *client, int32_t finished, void *user, int32_t reserved) {
    (void)client, (void)finished, (void)user, (void)reserved;
    printf("active\n");
    return 0;
}

// region: run
static int run(zamc_client *client, struct app *app, const char *url, const char *modules) {
    const zamc_sub_node set_time = {
        .target = SET_TIME, .type = ZAMC_SUB_OPERATION, .operation = on_set_time, .user = app};
    if (zamc_load_module(modules, NULL) != 0 || zamc_subscribe(client, &set_time) != 0) return -1;
    if (zamc_connect(client, url) < 0 || zamc_activate(client, 0, on_active, NULL) != 0) return -1;
    while (!stop_requested) {
        if (zamc_run(client, 100) != 0) return -1;
        if (app->count > 0) answer_one(client, app);
    }
    return 0;
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

    struct app app = {0};
    zamc_client *client = zamc_client_new("operation", ZAM_ENCODE_JSON);
    const int result = client ? run(client, &app, argv[1], argv[2]) : -1;
    zamc_client_free(client);
    return result == 0 ? 0 : 1;
}
