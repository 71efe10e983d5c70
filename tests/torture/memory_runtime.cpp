// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Memory, containers, buffers, texts and times; the event engine, sockets and jobs.
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstring>

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zamc/connector.h>
#include <zamc/hash.h>
#include <zamc/job.h>
#include <zamc/listener.h>
#include <zamc/logger.h>
#include <zamc/mem.h>
#include <zamc/message.h>
#include <zamc/proactor.h>
#include <zamc/ptrmap.h>
#include <zamc/sock_wrap.h>
#include <zamc/utils.h>
#include <zamc/vector.h>

#include "fuzz/fuzz.h"
#include "memory.h"
#include "support/files.h"
#include "support/frames.h"

namespace zam::torture {
namespace {

void blocks(Run &run) {
    zam_free(run.object("malloc", zam_malloc(10)));
    char *zeroed = run.object("calloc", static_cast<char *>(zam_calloc(4, 4)));
    if (zeroed) run.always("zeroed", zeroed[15] == 0);
    zam_free(zeroed);
    zam_free(run.object("strdup", zam_strdup("text")));
    zam_free(run.object("strndup", zam_strndup("text", 2)));
    char *text = nullptr;
    const int32_t length = zam_asprintf(&text, "%d", 42);
    run.always("asprintf", text ? length == 2 : length == -1);
    run.object("asprintf", text);
    zam_free(text);
}

// An application may leave the second hook out.
void blocks_without_calloc(Run &run) {
    const zam_mem_funs all = g_nyb_mem_funs;
    zam_mem_funs two = all;
    two.allocate_zeroed = nullptr;
    zam_mem_init(&two);
    char *zeroed = run.object("calloc", static_cast<char *>(zam_calloc(4, 4)));
    if (zeroed) run.always("zeroed", zeroed[15] == 0);
    zam_free(zeroed);
    zam_rw_bytes *bytes = run.object("bytes", zam_rw_bytes_new(16));
    zam_rw_bytes_free(bytes);
    zam_mem_init(&all);
}

void vectors(Run &run) {
    zam_vector *vector = run.object("vector", zam_vector_init(1));
    int items[20];
    uint32_t used = 0;
    for (int &item : items) {
        const uint32_t before = zam_vector_used(vector);
        uint32_t index = 99;
        if (run.code("add", zam_vector_add(&vector, &item, &index)) == 0) {
            run.always("item", zam_vector_get(vector, index) == &item);
            ++used;
        } else {
            run.always("as it was", zam_vector_used(vector) == before);
        }
    }
    run.always("used", zam_vector_used(vector) == used);
    for (uint32_t index = 0; index < zam_vector_size(vector); ++index)
        if (zam_vector_get(vector, index)) zam_vector_remove(vector, index, nullptr);
    run.always("used", zam_vector_used(vector) == 0);
    zam_vector_free(vector, nullptr);
}

void hashes(Run &run) {
    zam_hash *hash = run.object("hash", zam_hash_create(
                                            16, [](const void *, uint32_t) { return uint32_t{0}; },
                                            [](const zam_dlist_node *, const void *) { return int32_t{0}; }));
    zam_dlist_node node{};
    const int32_t added = run.code("append", zam_hash_append(hash, &node, "key"));
    run.always("count", zam_hash_num(hash) == (added == 0 ? 1u : 0u));
    run.always("found", zam_hash_find(hash, "key") == (added == 0 ? &node : nullptr));
    const zam_dlist *bucket = zam_hash_get_list(hash, "key");
    run.always("bucket", !hash || (bucket && bucket->head == (added == 0 ? &node : nullptr)));
    run.code("remove", zam_hash_remove(hash, &node, "key"));
    run.always("count", zam_hash_num(hash) == 0);
    zam_hash_free(hash, nullptr);
}

void maps(Run &run) {
    for (const uint32_t type : {uint32_t{ZAM_PTRMAP_KEY_STRING}, uint32_t{ZAM_PTRMAP_KEY_INTEGER}}) {
        zam_ptrmap *map = run.object("map", zam_ptrmap_create(4, type, zam_free));
        for (uint32_t number = 1000; number < 1010; ++number) {
            const std::string text = std::to_string(number);
            const void *key = type == ZAM_PTRMAP_KEY_STRING ? static_cast<const void *>(text.c_str()) : &number;
            char *value = run.object("value", zam_strdup("value"));
            const uint32_t before = zam_ptrmap_size(map);
            if (run.code("add", zam_ptrmap_add(map, key, value)) == 0) continue;
            run.always("as it was", zam_ptrmap_size(map) == before && !zam_ptrmap_find(map, key));
            zam_free(value);
        }
        const uint32_t size = zam_ptrmap_size(map);
        uint32_t visited = 0;
        const auto visit = [](void *, void *arg) {
            ++*static_cast<uint32_t *>(arg);
            return int32_t{0};
        };
        zam_ptrmap_foreach(map, visit, &visited);
        run.always("each", visited == size);
        run.expect("first", (zam_ptrmap_getnext(map, nullptr) != nullptr) == (size > 0));
        const uint32_t number = 1000;
        zam_ptrmap_del(map, type == ZAM_PTRMAP_KEY_STRING ? static_cast<const void *>("1000") : &number, 1);
        zam_ptrmap_clear(map);
        run.always("empty", zam_ptrmap_size(map) == 0);
        zam_ptrmap_destroy(map);
    }
}

void byte_buffers(Run &run) {
    zam_rw_bytes *bytes = run.object("buffer", zam_rw_bytes_new(4));
    const std::string long_text(3000, 'x');
    std::string wanted;
    for (int i = 0; i < 4; ++i) {
        if (run.code("push", zam_rw_bytes_push(bytes, long_text.data(), 3000)) == 0) wanted += long_text;
        if (run.code("push front", zam_rw_bytes_push_front(bytes, "front", 5)) == 0) wanted = "front" + wanted;
        // Returns what was added, so it is no code.
        const uint32_t before = bytes ? bytes->length : 0;
        const int32_t added = zam_rw_bytes_pushf(bytes, "%s", long_text.c_str());
        run.expect("pushf", added >= 0);
        if (added >= 0) wanted += long_text;
        run.always("as it was", !bytes || added >= 0 || bytes->length == before);
    }
    if (bytes) run.always("content", std::string_view(bytes->data, bytes->length) == wanted);
    zam_rw_bytes_resize(bytes, 100000);
    if (bytes) run.always("content", std::string_view(bytes->data, bytes->length) == wanted);
    zam_rw_bytes_pop_front(bytes, 1);
    zam_rw_bytes_pop_back(bytes, 1);
    zam_rw_bytes_free(bytes);
}

// Lists take no memory themselves.
void lists(Run &run) {
    struct Item {
        zam_dlist_node link;
    };
    zam_dlist list;
    zam_dlist_init(&list);
    for (int i = 0; i < 3; ++i) {
        auto *item = run.object("item", static_cast<Item *>(zam_calloc(1, sizeof(Item))));
        if (!item) continue;
        if (list.head) {
            zam_dlist_insert(&list, list.head, &item->link);
        } else {
            zam_dlist_append(&list, &item->link);
        }
    }
    if (zam_dlist_node *first = list.head) {
        zam_dlist_remove(&list, first);
        zam_free(first);
    }
    zam_dlist_free(&list, [](zam_dlist_node *node) { zam_free(node); });
}

ZAM_PRINTF(2, 3) void through_lists(Run &run, const char *format, ...) {
    va_list args;
    va_start(args, format);
    char *text = nullptr;
    run.always("vasprintf", zam_vasprintf(&text, format, args) == (text ? 4 : -1));
    run.object("vasprintf", text);
    zam_free(text);
    va_end(args);
    va_start(args, format);
    zam_rw_bytes *bytes = run.object("buffer", zam_rw_bytes_new(2));
    run.code("vpushf", zam_rw_bytes_vpushf(bytes, format, args));
    zam_rw_bytes_free(bytes);
    va_end(args);
}
void argument_lists(Run &run) {
    through_lists(run, "%s", "text");
}

void string_builders(Run &run) {
    zam_string string;
    zam_init_string(&string);
    const std::string piece(100, 'x');
    std::string wanted;
    for (int i = 0; i < 10; ++i)
        if (run.object("put", zam_put_string(&string, piece.data(), 100))) wanted += piece;
    if (string.text) run.always("content", string.text == wanted);
    zam_reset_string(&string);
}

void texts(Run &run) {
    zam_free(run.object("local time", zam_get_local_time()));
    char *text = nullptr;
    run.code("date", zam_time2datetime(1700000000, &text));
    run.always("date", text || run.failed());
    zam_free(text);
    zam_free(run.object("uuid", zam_get_uuid()));
    time_t time = 0;
    run.code("date", zam_datetime2time("2026-11-15T08:01:55.042+01:00", &time));
    run.always("numbers",
               zam_get_ms() >= INT32_MIN && zam_uint64_safe_add(1, 2) == 3 && zam_str_hash("a") == zam_str_hash("a"));
    run.always("words", zam_get_str_error(ENOENT) && zam_event_name(EVENT_CONNECT_CLOSE));
}

void log_files(Run &run) {
    static const test::TempDir dir;
    zam_open_log_file(dir.path("a").c_str());
    zam_write_log_file(3, "%s", "text\n");
    zam_open_log_file(dir.path("b").c_str());
    zam_write_log_file(3, "%s", "text\n");
    // Lines go through the file's output while it is the log's.
    const int32_t level = zam_get_log_level();
    zam_log_config(ZAM_LOG_DEBUG, zam_write_log_file);
    zam_log_printf(ZAM_LOG_WRONG, "%s\n", "text");
    fuzz::silence_log();
    run.always("level", zam_get_log_level() == level);
    zam_close_log_file();
}

void events(Run &run) {
    zam_proactor *proactor = run.object("proactor", zam_proactor_new());
    zam_registry *registry = run.object("registry", zam_registry_new(23));
    zam_proactor_registry_set(proactor, registry);
    static int handled;
    static int released;
    handled = released = 0;
    zam_event_register(registry, EVENT_CLIENT_ONLINE, [](zam_proactor *, uint32_t, void *) { return ++handled; });
    int pushed = 0;
    for (int i = 0; i < 3; ++i)
        pushed +=
            run.code("push", zam_event_push(proactor, EVENT_CLIENT_ONLINE, &released, [](void *) { ++released; })) == 0;
    zam_event *event = zam_event_pop(proactor);
    if (event) run.always("event", zam_event_id(event) == EVENT_CLIENT_ONLINE && zam_event_para(event) == &released);
    zam_event_dispatch(proactor, event);
    zam_event_free(event);
    run.expect("handled", handled == 1);
    zam_event_unregister(registry, EVENT_CLIENT_ONLINE);
    int pair[2];
    run.always("sockets", socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) == 0);
    zam_trigger *trigger =
        run.object("trigger", zam_trigger_new(
                                  pair[0], nullptr, [](zam_proactor *, void *, uint32_t) {}, nullptr));
    run.code("arm", zam_trigger_arm(proactor, trigger, EPOLLOUT));
    run.code("rearm", zam_trigger_rearm(proactor, trigger, EPOLLOUT));
    zam_trigger *woken = zam_proactor_wait(proactor, 0);
    run.always("woken", woken == trigger || run.failed());
    zam_proactor_done(proactor, woken);
    zam_trigger_unarm(proactor, trigger);
    zam_trigger_free(trigger);
    close(pair[0]);
    close(pair[1]);
    zam_proactor_free(proactor);
    zam_registry_free(registry);
    run.always("released", released == 3); // also what could not be queued
    (void)pushed;
}

struct Engine {
    zam_proactor *proactor = zam_proactor_new();
    zam_registry *registry = zam_registry_new(23);
    Engine() { zam_proactor_registry_set(proactor, registry); }
    ~Engine() {
        zam_proactor_free(proactor);
        zam_registry_free(registry);
    }
    void rounds() {
        for (int round = 0; round < 20; ++round) {
            zam_trigger *trigger = zam_proactor_wait(proactor, 0);
            if (!trigger) return;
            while (zam_event *event = zam_event_pop(proactor)) {
                zam_event_dispatch(proactor, event);
                zam_event_free(event);
            }
            zam_proactor_done(proactor, trigger);
        }
    }
};

void connectors(Run &run) {
    Engine engine;
    run.object("proactor", engine.proactor);
    int pair[2];
    run.always("sockets", socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, pair) == 0);
    zam_connector *connector = run.object("connector", zam_connector_new(engine.proactor, pair[0], nullptr));
    if (!connector) close(pair[0]);
    zam_event_register(engine.registry, EVENT_MESSAGE_RECV, [](zam_proactor *, uint32_t, void *) { return 0; });
    zam_event_register(engine.registry, EVENT_CONNECT_CLOSE, [](zam_proactor *, uint32_t, void *) { return 0; });
    zam_connector_set_context(connector, &engine);
    run.always("context", !connector || zam_connector_context(connector) == &engine);
    zam_connector_reg_close_cb(connector, [](zam_connector *) {});
    zam_connector_set_rbusy(connector, 1);
    run.always("busy", !connector || zam_connector_rbusy(connector) == 1);
    zam_connector_set_rbusy(connector, 0);
    const std::string text(100000, 'x');
    if (run.code("write", zam_connector_write(connector, text.data(), 100000)) == 0) zam_connector_flush(connector);
    std::array<char, 100000> received;
    while (recv(pair[1], received.data(), received.size(), 0) > 0)
        zam_connector_flush(connector);
    run.always("sent", !connector || send(pair[1], text.data(), 50000, MSG_NOSIGNAL) == 50000);
    engine.rounds();
    uint32_t length = 0;
    const char *input = zam_connector_readbuf(connector, &length);
    run.expect("input", input && length == 50000);
    zam_connector_consume(connector, length / 2);
    run.code("reentry", zam_connector_reentry(connector, text.data(), 70000));
    zam_message message{ZAM_ENCODE_JSON, 5, received.data()};
    run.code("frame", zam_message_push(connector, ZAM_MESSAGE_REQUEST, 1, &message));
    run.code("reply", zam_send_reply(connector, 1, &message));
    zam_connector_recall(connector, 1);
    run.code("wake", zam_connector_wake_io(connector));
    zam_connector_set_closed(connector);
    run.always("closed", zam_connector_closed(connector) == 1);
    zam_connector_free(connector);
    close(pair[1]);
}

void frames(Run &run) {
    Engine engine;
    run.object("proactor", engine.proactor);
    int pair[2];
    run.always("sockets", socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, pair) == 0);
    run.code("non-blocking", zam_socket_block(pair[0], 0));
    run.code("inherited", zam_socket_cloexec(pair[0]));
    zam_connector *connector = run.object("connector", zam_connector_new(engine.proactor, pair[0], nullptr));
    if (!connector) close(pair[0]);
    const std::string bytes = test::encode({test::Kind::reply, 7, ZAM_ENCODE_JSON, "text"});
    if (run.code("input", zam_connector_reentry(connector, bytes.data(), static_cast<uint32_t>(bytes.size()))) == 0) {
        uint32_t length = 0;
        char *input = zam_connector_readbuf(connector, &length);
        zam_message message{};
        run.always("frame", zam_message_peek(input, length, &message) == 1);
        run.always("reply", zam_message_type(&message) == ZAM_MESSAGE_REPLY && zam_message_seq(&message) == 7 &&
                                zam_message_is_reply(&message, 7) == 1);
        zam_message_pop(connector, &message);
        run.always("nothing left", !zam_connector_readbuf(connector, &length) || length == 0);
    }
    zam_connector_free(connector);
    close(pair[1]);
}

// Without a worker, and with two.
void jobs(Run &run) {
    for (const uint32_t threads : {0u, 2u}) {
        Engine engine;
        run.object("proactor", engine.proactor);
        static int done;
        done = 0;
        int submitted = 0;
        if (engine.registry && run.code("jobs", zam_job_init(engine.proactor, engine.registry, threads)) == 0) {
            for (int i = 0; i < 3; ++i)
                submitted += run.code("job", zam_new_job(
                                                 nullptr, [](void *) {}, [](void *) { ++done; })) == 0;
            for (int round = 0; round < (run.failed() ? 5 : 1000) && done < submitted; ++round) {
                while (zam_event *event = zam_event_pop(engine.proactor)) {
                    zam_event_dispatch(engine.proactor, event);
                    zam_event_free(event);
                }
                if (zam_trigger *trigger = zam_proactor_wait(engine.proactor, 1))
                    zam_proactor_done(engine.proactor, trigger);
            }
            run.expect("done", done == submitted);
        }
        zam_job_exit();
    }
}

void sockets(Run &run) {
    static const test::TempDir dir;
    const std::string path = "unix://" + dir.path("s");
    for (const std::string &url : {path + ":600", std::string{"127.0.0.1:0"}}) {
        const int32_t fd = zam_socket_listen(url.c_str());
        run.always("listen", fd >= -1);
        run.expect("listen", fd >= 0);
        if (fd < 0) continue;
        if (url[0] == 'u') {
            const int32_t connected = zam_socket_connect(path.c_str());
            run.expect("connect", connected >= 0);
            const int32_t accepted = connected >= 0 ? zam_socket_accept(fd) : -1;
            if (accepted >= 0) close(accepted);
            if (connected >= 0) close(connected);
        }
        Engine engine;
        zam_listener *listener = run.object("listener", zam_listener_new(engine.proactor, fd));
        if (!listener) close(fd);
        zam_listener_free(listener);
        zam_socket_listen_release(url.c_str());
    }
    const int32_t none = zam_socket_connect("127.0.0.1:1");
    run.always("nobody", none == -1);
}

} // namespace

std::span<const Scene> runtime_scenes() {
    static constexpr Scene scenes[] = {
        {"blocks", blocks},
        {"blocks without calloc", blocks_without_calloc},
        {"vectors", vectors},
        {"hashes", hashes},
        {"maps", maps},
        {"byte buffers", byte_buffers},
        {"lists", lists},
        {"argument lists", argument_lists},
        {"strings", string_builders},
        {"texts", texts},
        {"log files", log_files},
        {"events", events},
        {"connectors", connectors},
        {"frames", frames},
        {"jobs", jobs},
        {"sockets", sockets},
    };
    return scenes;
}

} // namespace zam::torture
