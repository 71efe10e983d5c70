// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Replies to asynchronous requests, right and wrong ones, in any order: each callback runs at most once, with a
// message or with null when the client ends.
#include <zamc/message.h>
#include <zamc/utils.h>

#include "fuzz.h"
#include "link.h"
#include "support/test_schema.h"

namespace zam::fuzz {
namespace {

constexpr int requests = 3;

int refusals; // callbacks of this input that were handed an error in JSON

int32_t count(zamc_client *, const zam_message *reply, void *arg) {
    ++*static_cast<int *>(arg);
    constexpr std::string_view error = R"({"ietf-netconf:rpc-error")";
    if (reply && std::string_view{reply->data, reply->length}.starts_with(error)) ++refusals;
    if (planted() && refusals == 2) planted_fault();
    return 0;
}

} // namespace

void start() {
    test::test_context();
}

void run(std::string_view input) {
    int calls[requests] = {};
    refusals = 0;
    {
        Link link;
        static constexpr char text[] = R"({"orvel-zam-server:deactivate":{}})";
        for (int &call : calls) {
            zamc_bytes *request = zamc_new_bytes(text, sizeof text - 1, ZAM_ENCODE_JSON);
            FUZZ_EXPECT(zamc_send_rpc_asyn(link.client(), request, count, &call) == 0);
            zamc_free_bytes(request);
        }
        Input in{input};
        while (!in.empty()) {
            const Record record{in.until(record_separator)};
            link.send(record.type, record.seq, record.encoding, record.payload);
        }
        link.settle();
    }
    for (const int call : calls)
        FUZZ_EXPECT(call <= 1);
}

} // namespace zam::fuzz
