/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */
/* A C11 program that knows <zamc/zamc.h> and libzamc.so, nothing else of ours. */
#include <zamc/zamc.h>

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int failures;

#define EXPECT(condition)                                                                                              \
    do {                                                                                                               \
        if (!(condition)) {                                                                                            \
            fprintf(stderr, "%s:%d: %s does not hold\n", __FILE__, __LINE__, #condition);                              \
            failures++;                                                                                                \
        }                                                                                                              \
    } while (0)

static uint32_t live;

static void *count_malloc(uint32_t size, const char *file, uint32_t line)
{
    (void)file;
    (void)line;
    live++;
    return malloc(size);
}

static void count_free(void *block)
{
    live--;
    free(block);
}

static char last_line[256];

static int keep_line(int level, const char *format, ...) ZAM_PRINTF(2, 3);
static int keep_line(int level, const char *format, ...)
{
    va_list args;
    (void)level;
    va_start(args, format);
    vsnprintf(last_line, sizeof last_line, format, args);
    va_end(args);
    return 0;
}

static void test_logger(void)
{
    zam_log_config(ZAM_LOG_WRONG, keep_line);
    zam_log_printf(ZAM_LOG_DEBUG, "not seen\n");
    EXPECT(last_line[0] == '\0');
    zam_log_printf(ZAM_LOG_WRONG, "seen %d\n", 1);
    EXPECT(strcmp(last_line, "[WRONG] seen 1\n") == 0);
}

static void test_containers(void)
{
    zam_vector *vector = zam_vector_init(1);
    uint32_t index = 9;
    EXPECT(zam_vector_add(&vector, last_line, &index) == 0 && index == 0);
    EXPECT(zam_vector_get(vector, 0) == last_line);
    zam_vector_free(vector, NULL);

    zam_ptrmap *map = zam_ptrmap_create(8, ZAM_PTRMAP_KEY_STRING, NULL);
    EXPECT(zam_ptrmap_add(map, "one", last_line) == 0);
    EXPECT(zam_ptrmap_find(map, "one") == last_line);
    zam_ptrmap_destroy(map);

    zam_rw_bytes *buffer = zam_rw_bytes_new(16);
    EXPECT(zam_rw_bytes_pushf(buffer, "%s-%d", "text", 7) == 0);
    EXPECT(strcmp(buffer->data, "text-7") == 0 && buffer->length == 6);
    zam_rw_bytes_free(buffer);
}

static int32_t on_change(zamc_client *client, uint32_t mask, uint32_t priority, int32_t list_more, const char *target,
                         void *user)
{
    (void)client;
    (void)mask;
    (void)priority;
    (void)list_more;
    (void)target;
    (void)user;
    return 0;
}

static void test_client(void)
{
    zamc_client *client = zamc_client_new("api-test", ZAM_ENCODE_JSON);
    EXPECT(client != NULL);
    EXPECT(zam_clients_schema_ctx() != NULL);

    uint32_t timeout = 0;
    uint32_t length = sizeof timeout;
    EXPECT(zamc_get_attr(client, ZAMC_ATTR_SYNC_TIMEOUT, &timeout, &length) == 0);
    EXPECT(timeout == 300000 && length == 4);

    const zamc_sub_node node = {.target = "/ietf-yang-library:yang-library",
                                .type = ZAMC_SUB_CONFIG_CHANGE,
                                .priority = 10,
                                .filter_mask = 0,
                                .config = on_change};
    EXPECT(zamc_subscribe(client, &node) == 0);
    EXPECT(zamc_run(client, 0) == -1); /* not connected */
    EXPECT(zamc_connect(client, "unix:///nonexistent/zamd.sock") == -1);
    zamc_client_free(client);
}

int main(void)
{
    const zam_mem_funs hooks = {.allocate = count_malloc, .release = count_free};
    zam_mem_init(&hooks);
    test_logger();
    test_containers();
    zamc_initialize();
    const uint32_t before = live;
    test_client();
    EXPECT(live == before);
    return failures != 0;
}
