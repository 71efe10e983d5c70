/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */
/*
 * first: the shortest application there is. It agrees to every change of an interface and prints it.
 *
 *     first SERVER-URL MODULE-FOLDER
 */
// region: application
#include <stdio.h>

#include <zamc/zamc.h>

/* Called before a change of an interface takes effect; anything but 0 refuses it. */
static int32_t on_interface(zamc_client *client, uint32_t mask, uint32_t priority, int32_t list_more,
                            const char *target, void *user) {
    (void)client, (void)priority, (void)list_more, (void)user;
    printf("%s %s\n", mask & ZAMC_CONFIG_CREATE ? "new" : "changed", target);
    return fflush(stdout);
}

int main(int argc, char **argv) {
    if (argc != 3) return 2;
    zamc_client *client = zamc_client_new("first", ZAM_ENCODE_JSON);
    const zamc_sub_node interfaces = {.target = "/ietf-interfaces:interfaces/interface",
                                      .type = ZAMC_SUB_CONFIG_CHANGE,
                                      .priority = 100,
                                      .config = on_interface};
    int ready = zamc_load_module(argv[2], NULL) == 0 && zamc_subscribe(client, &interfaces) == 0 &&
                zamc_connect(client, argv[1]) >= 0 && zamc_activate(client, 1, NULL, NULL) == 0;
    while (ready && zamc_run(client, 1000) == 0)
        continue;
    zamc_client_free(client);
    return 1; /* not reached while the server lives */
}
// end
