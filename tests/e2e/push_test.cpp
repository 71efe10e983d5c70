// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Pushes of every kind, seen in what is pulled afterwards.
#include <gmock/gmock.h>

#include "e2e/app.h"

namespace {

using namespace zam::test;
using testing::HasSubstr;

TEST(Push, AnAgreeingApplicationIsToldAndTheChangeStands) {
    Server server{{.startup = two_interfaces}};
    Journal journal;
    App app{server.url(), journal, {{.target = "/ietf-interfaces:interfaces/interface"}}};
    Operator op{server.url()};

    EXPECT_EQ(op.push("/ietf-interfaces:interfaces/interface[name='eth1']/description", ZAMC_PUSH_MERGE, "uplink"), 0);

    const auto found = journal.wait_for([](const Call &call) { return call.kind == Call::config; });
    ASSERT_TRUE(found);
    const Call call = journal.calls()[*found];
    EXPECT_EQ(call.target, R"(/ietf-interfaces:interfaces/interface[name="eth1"])");
    EXPECT_EQ(call.mask, uint32_t{ZAMC_CONFIG_UPDATE | ZAMC_SCENE_NORMAL});
    EXPECT_EQ(op.pull("/ietf-interfaces:interfaces/interface[name='eth1']/description"), "uplink");
}

} // namespace
