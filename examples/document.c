/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */
/*
 * document: data built node by node, pushed, read back, edited, and pushed again.
 *
 *     document SERVER-URL MODULE-FOLDER
 */
#include <stdio.h>

#include <zamc/zamc.h>

// region: path
#define LOOPBACK "/ietf-interfaces:interfaces/interface[name=\"lo1\"]"
#define IPV4 LOOPBACK "/ietf-ip:ipv4"
// end

// region: build
/* Each node brings its ancestors along. Relative paths start at the current directory. */
static zamc_doc *build(void) {
    zamc_doc *doc = zamc_new_doc(ZAM_ENCODE_JSON);
    if (zamc_change_dir(doc, LOOPBACK) != 0 || zamc_new_node(doc, "type", "iana-if-type:softwareLoopback") != 0 ||
        zamc_new_node(doc, "description", "router \"%s\"", "id") != 0 || zamc_new_node(doc, "enabled", "%d", 1) != 0 ||
        zamc_new_node(doc, "ietf-ip:ipv4/address[ip=\"192.0.2.1\"]/prefix-length", "%d", 32) != 0 ||
        zamc_new_node(doc, "ietf-ip:ipv4/address[ip=\"192.0.2.2\"]/prefix-length", "%d", 32) != 0) {
        zamc_free_doc(doc);
        return NULL;
    }
    return doc;
}
// end

// region: edit
/* Only what changes: one address goes, and the description is another. */
static zamc_doc *edit(void) {
    zamc_doc *doc = zamc_new_doc(ZAM_ENCODE_JSON);
    if (zamc_change_dir(doc, LOOPBACK) != 0 || zamc_new_node(doc, "description", "%s", "management") != 0 ||
        zamc_del_node(doc, "ietf-ip:ipv4/address[ip=\"192.0.2.2\"]") != 0) {
        zamc_free_doc(doc);
        return NULL;
    }
    return doc;
}
// end

// region: push
/* A document is a whole, so it goes to the root; what is to be done stands at its nodes. Takes the document. */
static int push(zamc_client *client, zamc_doc *doc) {
    zamc_bytes *content = zamc_format_doc(doc, ZAM_ENCODE_JSON);
    zamc_free_doc(doc);
    const int32_t result = zamc_push(client, "/", ZAMC_PUSH_MERGE, content);
    zamc_free_bytes(content);
    return result;
}
// end

// region: show
/* Reads the interface back and walks over the addresses. */
static int show(zamc_client *client) {
    zamc_bytes *data = NULL;
    if (zamc_pull(client, 0, LOOPBACK, -1, &data) != 0 || !data) return -1;
    zamc_doc *doc = zamc_parse_bytes(data, LOOPBACK);
    zamc_free_bytes(data);
    if (!doc) return -1;

    int32_t enabled = 0;
    const char *description = zamc_node_content(doc, "description");
    if (zamc_parse_node(doc, "enabled", "%d", &enabled) == 0) {
        printf("%s: %s\n", description ? description : "-", enabled ? "enabled" : "disabled");
    }
    zamc_change_dir(doc, IPV4);
    const char *name = zamc_iter_doc(doc, ZAMC_DIRECTION_CHILD);
    while (name) {
        const char *ip = zamc_node_content(doc, "ip");
        if (ip) printf("    %s %s/%s\n", name, ip, zamc_node_content(doc, "prefix-length"));
        name = zamc_iter_doc(doc, ZAMC_DIRECTION_NEXT);
    }
    zamc_free_doc(doc);
    return 0;
}
// end

// region: run
static int run(zamc_client *client, const char *url, const char *modules) {
    if (zamc_load_module(modules, NULL) != 0 || zamc_connect(client, url) < 0) return -1;
    if (push(client, build()) != 0 || show(client) != 0) return -1;
    if (push(client, edit()) != 0 || show(client) != 0) return -1;
    return 0;
}
// end

int main(int argc, char **argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: %s SERVER-URL MODULE-FOLDER\n", argv[0]);
        return 2;
    }
    zam_log_config(ZAM_LOG_WRONG, zam_log_printf);
    zamc_client *client = zamc_client_new("document", ZAM_ENCODE_JSON);
    const int result = client ? run(client, argv[1], argv[2]) : -1;
    zamc_client_free(client);
    return result == 0 ? 0 : 1;
}
