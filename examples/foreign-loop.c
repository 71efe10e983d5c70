/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */
/*
 * foreign-loop: a client inside an event loop that is not the library's, here that of libuv.
 *
 *     foreign-loop SERVER-URL MODULE-FOLDER
 *
 * The loop polls the descriptor that zamc_connect() returns and calls zamc_run(client, 0) when there is something to
 * read. The descriptor is the client's: polling ends before the client closes it.
 */
#define _POSIX_C_SOURCE 200809L /* sigaction, nanosleep and their like, also with -std=c11 */

#include <signal.h>
#include <stdio.h>

#include <uv.h>
#include <zamc/zamc.h>

/* A slow beat picks up what no descriptor tells: output that the socket did not take at once. */
enum { BEAT_MS = 1000, RETRY_MS = 200 };

// region: app
struct app {
    uv_loop_t loop;
    uv_poll_t poll;     /* the connection; open while `polling` */
    uv_timer_t timer;   /* the beat while connected, the next try while not */
    uv_signal_t signal; /* SIGTERM ends the program */
    int polling, stopping;
    zamc_client *client;
    const char *url;
};
// end

static void connect_later(struct app *app);

static int32_t on_interface(zamc_client *client, uint32_t mask, uint32_t priority, int32_t list_more,
                            const char *target, void *user) {
    (void)client, (void)priority, (void)list_more, (void)user;
    printf("%s %s\n", mask & ZAMC_SCENE_CFGR ? "replayed" : "changed", target);
    return 0;
}

static int32_t on_active(zamc_client *client, int32_t finished, void *user, int32_t reserved) {
    (void)client, (void)finished, (void)user, (void)reserved;
    printf("active\n");
    return 0;
}

// region: close
/* The loop has let go of the descriptor; now the client may close it. */
static void on_poll_closed(uv_handle_t *handle) {
    struct app *app = handle->data;
    app->polling = 0;
    zamc_disconnect(app->client);
    if (app->stopping) return;
    printf("the connection is lost\n");
    connect_later(app);
}

static void stop_polling(struct app *app) {
    if (!app->polling || uv_is_closing((uv_handle_t *)&app->poll)) return;
    uv_timer_stop(&app->timer);
    uv_close((uv_handle_t *)&app->poll, on_poll_closed);
}
// end

// region: turn
/* Handles what has arrived and returns at once. */
static void turn(struct app *app) {
    if (zamc_run(app->client, 0) != 0) stop_polling(app);
}

static void on_readable(uv_poll_t *handle, int status, int events) {
    (void)status, (void)events; /* an error shows in zamc_run() as well */
    turn(handle->data);
}

static void on_beat(uv_timer_t *handle) {
    turn(handle->data);
}
// end

// region: connect
static void on_try(uv_timer_t *handle) {
    struct app *app = handle->data;
    const int32_t fd = zamc_connect(app->client, app->url);
    if (fd < 0) {
        connect_later(app);
        return;
    }
    printf("connected\n");
    if (uv_poll_init(&app->loop, &app->poll, fd) != 0) {
        zamc_disconnect(app->client);
        connect_later(app);
        return;
    }
    app->poll.data = app;
    app->polling = 1;
    if (uv_poll_start(&app->poll, UV_READABLE, on_readable) != 0 ||
        zamc_activate(app->client, 1, on_active, NULL) != 0) {
        stop_polling(app);
        return;
    }
    uv_timer_start(&app->timer, on_beat, BEAT_MS, BEAT_MS);
    turn(app); /* for what came while zamc_activate() waited for its answer */
}

static void connect_later(struct app *app) {
    uv_timer_start(&app->timer, on_try, RETRY_MS, 0);
}
// end

static void on_signal(uv_signal_t *handle, int number) {
    (void)number;
    struct app *app = handle->data;
    app->stopping = 1;
    stop_polling(app);
    uv_close((uv_handle_t *)&app->timer, NULL);
    uv_close((uv_handle_t *)&app->signal, NULL);
}

// region: run
/* Runs until SIGTERM has closed the last handle. */
static int run(struct app *app) {
    if (uv_loop_init(&app->loop) != 0) return -1;
    if (uv_timer_init(&app->loop, &app->timer) != 0 || uv_signal_init(&app->loop, &app->signal) != 0 ||
        uv_signal_start(&app->signal, on_signal, SIGTERM) != 0) {
        return -1;
    }
    app->timer.data = app->signal.data = app;
    on_try(&app->timer);
    uv_run(&app->loop, UV_RUN_DEFAULT);
    return uv_loop_close(&app->loop);
}
// end

int main(int argc, char **argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: %s SERVER-URL MODULE-FOLDER\n", argv[0]);
        return 2;
    }
    setvbuf(stdout, NULL, _IOLBF, 0);
    const zamc_sub_node interfaces = {.target = "/ietf-interfaces:interfaces/interface",
                                      .type = ZAMC_SUB_CONFIG_CHANGE,
                                      .priority = 100,
                                      .config = on_interface};
    struct app app = {.url = argv[1], .client = zamc_client_new("foreign-loop", ZAM_ENCODE_JSON)};
    int result = -1;
    if (app.client && zamc_load_module(argv[2], NULL) == 0 && zamc_subscribe(app.client, &interfaces) == 0) {
        result = run(&app);
    }
    zamc_client_free(app.client);
    return result == 0 ? 0 : 1;
}
