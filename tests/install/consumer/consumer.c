/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */
/* A stranger's program: builds a document with the installed library, and says what is in it. */
#include <zamc/zamc.h>

#include <stdio.h>
#include <string.h>

int main(int argc, char **argv)
{
    if (argc != 2) return 2;
    zamc_client *client = zamc_client_new("consumer", ZAM_ENCODE_JSON);
    if (!client || zamc_load_module(argv[1], "ietf-interfaces") != 0) return 1;

    zamc_doc *doc = zamc_new_doc(ZAM_ENCODE_JSON);
    const int32_t made = zamc_new_node(doc, "/ietf-interfaces:interfaces/interface[name=\"eth0\"]/description", "uplink");
    zamc_bytes *text = zamc_format_doc(doc, ZAM_ENCODE_JSON);
    const int said = made == 0 && text && strstr(text->data, "uplink") != NULL;
    if (said) printf("%s\n", text->data);
    zamc_free_bytes(text);
    zamc_free_doc(doc);
    zamc_client_free(client);
    return said ? 0 : 1;
}
