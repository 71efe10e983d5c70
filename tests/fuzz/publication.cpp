// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// What a server asks an application: handlers of every kind are there, and each uses what it is given.
#include <array>
#include <cstring>

#include <zamc/format.h>
#include <zamc/suber.h>
#include <zamc/utils.h>

#include "fuzz.h"
#include "link.h"
#include "support/test_schema.h"

namespace zam::fuzz {
namespace {

int32_t on_config(zamc_client *client, uint32_t mask, uint32_t, int32_t, const char *target, void *) {
    FUZZ_EXPECT(target != nullptr);
    if (std::strlen(target) % 5 == 1) {
        zamc_error_set(client, 50, "%s", target);
        return -1;
    }
    constexpr uint32_t replacement_taken_back = ZAMC_SCENE_ROLLBACK | ZAMC_CONFIG_DELETE | ZAMC_CONFIG_CREATE;
    if (planted() && mask == replacement_taken_back) planted_fault();
    return std::strlen(target) % 7 == 1 ? ZAMC_REPLY_LATER : 0;
}

int32_t on_status(zamc_client *, const char *target, void *, zamc_bytes **output, void *) {
    *output = zamc_new_bytes(target, static_cast<int32_t>(std::strlen(target)), ZAM_ENCODE_JSON);
    return 0;
}

int32_t on_operation(zamc_client *, const zamc_bytes *input, zamc_bytes **output, void *) {
    FUZZ_EXPECT(input != nullptr);
    zamc_doc *doc = zamc_parse_bytes(input, "/test-main:run");
    *output = doc ? zamc_format_doc(doc, input->format) : nullptr;
    zamc_free_doc(doc);
    return 0;
}

constexpr const char *data_target = "/test-main:top";

std::array<zamc_sub_node, 3> subscriptions() {
    std::array<zamc_sub_node, 3> nodes{};
    nodes[0].target = data_target;
    nodes[0].type = ZAMC_SUB_CONFIG_CHANGE;
    nodes[0].config = on_config;
    nodes[1].target = data_target;
    nodes[1].type = ZAMC_SUB_STATUS_QUERY;
    nodes[1].status = on_status;
    nodes[2].target = "/test-main:run";
    nodes[2].type = ZAMC_SUB_OPERATION;
    nodes[2].operation = on_operation;
    return nodes;
}

} // namespace

void start() {
    test::test_context();
}

void run(std::string_view input) {
    static const auto nodes = subscriptions();
    Link link{nodes};
    Input in{input};
    while (!in.empty()) {
        const Record record{in.until(record_separator)};
        link.send(record.type, record.seq, record.encoding, record.payload);
    }
    link.settle();
    zamc_reply_asyn(link.client(), 0, nullptr);
}

} // namespace zam::fuzz
