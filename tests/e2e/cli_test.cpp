// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// What a handler tells the operator, as the operator's zamctl shows it.
#include <gmock/gmock.h>

#include "e2e/app.h"

namespace {

using namespace zam::test;
using testing::Combine;
using testing::HasSubstr;
using testing::Values;

constexpr uint32_t json = ZAM_ENCODE_JSON;
constexpr uint32_t xml = ZAM_ENCODE_XML;
constexpr char interface_list[] = "/ietf-interfaces:interfaces/interface";
constexpr char description[] = "/ietf-interfaces:interfaces/interface[name='eth1']/description";

// The encodings of the application and of the operator.
class CliPrintf : public testing::TestWithParam<std::tuple<uint32_t, uint32_t>> {
protected:
    ProcessResult push(const std::string &text) const {
        const bool in_json = std::get<1>(GetParam()) == json;
        return run_process({zamctl_path(), "push", "--server", server.url(), in_json ? "--json" : "--xml", description,
                            in_json ? text : "<description>" + text + "</description>"});
    }
    App application(Behaviour behaviour) {
        return {server.url(),
                journal,
                {{.target = interface_list, .behaviour = std::move(behaviour)}},
                {.encode = std::get<0>(GetParam())}};
    }

    DescriptorCheck descriptors;
    Server server{{.startup = two_interfaces}};
    Journal journal;
};
INSTANTIATE_TEST_SUITE_P(, CliPrintf, Combine(Values(json, xml), Values(json, xml)), [](const auto &both) {
    const auto name = [](uint32_t format) { return std::string{format == json ? "Json" : "Xml"}; };
    return "From" + name(std::get<0>(both.param)) + "To" + name(std::get<1>(both.param));
});

TEST_P(CliPrintf, IsSeenByTheOperatorWhoPushes) {
    const App app = application([](zamc_client *client, const Call &call, zamc_bytes **) {
        return zamc_cli_printf(client, "%s: %d of %d\n", call.target.c_str(), 1, 2);
    });
    const ProcessResult result = push("new");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "/ietf-interfaces:interfaces/interface[name=\"eth1\"]: 1 of 2\n");
}

TEST_P(CliPrintf, ArrivesAsItWasWritten) {
    const App app = application([](zamc_client *client, const Call &, zamc_bytes **) {
        return zamc_cli_printf(client, "%s", "<a href=\"x\">1 & 2</a> {\"b\":[null]} \\n 100% n\xc3\xa9\n\ttwo\nthree");
    });
    const ProcessResult result = push("new");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "<a href=\"x\">1 & 2</a> {\"b\":[null]} \\n 100% n\xc3\xa9\n\ttwo\nthree\n");
}

TEST_P(CliPrintf, ComesInOrderAndBeforeARefusal) {
    const App app = application([](zamc_client *client, const Call &, zamc_bytes **) {
        for (int i = 1; i <= 20; ++i)
            EXPECT_EQ(zamc_cli_printf(client, "step %d\n", i), 0);
        zamc_error_set(client, 17, "no more");
        return -1;
    });
    const ProcessResult result = push("new");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    std::string steps;
    for (int i = 1; i <= 20; ++i)
        steps += "step " + std::to_string(i) + "\n";
    EXPECT_TRUE(result.err.starts_with(steps)) << result.err;
    EXPECT_THAT(result.err.substr(steps.size()), HasSubstr("no more"));
}

} // namespace
