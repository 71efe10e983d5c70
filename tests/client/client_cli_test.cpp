// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "client/client_ctx_internal.h"
#include "client_fixture.h"

namespace zam::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class CliPrintf : public ConnectedTest {
protected:
    static Frame notification(uint32_t seq, const std::string &text) {
        return request(seq,
                       std::string{"<notify xmlns=\""} + server_xmlns +
                           "\"><streams><stream><name>APPINFO</name></stream></streams><data><appinfo><data>" + text +
                           "</data></appinfo></data></notify>",
                       1);
    }
};

TEST_F(CliPrintf, TheTextTravelsAsANotificationInXml) {
    EXPECT_EQ(zamc_cli_printf(client, "%d of %s", 3, "five"), 0);
    EXPECT_THAT(sent_so_far(), ElementsAre(notification(1, "3 of five")));
}

TEST_F(CliPrintf, SpecialCharactersAreEscaped) {
    EXPECT_EQ(zamc_cli_printf(client, "%s", "a < b & c % d é\n"), 0);
    EXPECT_THAT(sent_so_far(), ElementsAre(notification(1, "a &lt; b &amp; c % d é\n")));
}

TEST_F(CliPrintf, ALongTextTravelsWhole) {
    const std::string text(100000, 'x');
    EXPECT_EQ(zamc_cli_printf(client, "%s", text.c_str()), 0);
    EXPECT_THAT(sent_so_far(), ElementsAre(notification(1, text)));
}

TEST_F(CliPrintf, TheServersRefusalIsTheResult) {
    peer.answer_with([](const Frame &frame) { return std::vector{Peer::reply_to(frame, service_error)}; });
    EXPECT_EQ(zamc_cli_printf(client, "x"), -1);
}

TEST_F(CliPrintf, ANullClientOrFormatIsRefused) {
    int32_t (*const unchecked)(zamc_client *, const char *, ...) = zamc_cli_printf;
    EXPECT_EQ(zamc_cli_printf(nullptr, "x"), -3);
    EXPECT_EQ(unchecked(client, nullptr), -2);
    EXPECT_THAT(sent_so_far(), IsEmpty());
}

TEST_F(CliPrintf, WithoutASchemaContextThereIsNoNotification) {
    ly_ctx *context = std::exchange(client::_clients_ctx()->context, nullptr);
    EXPECT_EQ(zamc_cli_printf(client, "x"), -1);
    client::_clients_ctx()->context = context;
    EXPECT_EQ(log.count(3, "Build appinfo not successful."), 1);
    EXPECT_THAT(sent_so_far(), IsEmpty());
}

TEST_F(CliPrintf, EachAllocationThatFailsHasItsResult) {
    set_attr<uint32_t>(ZAMC_ATTR_SYNC_TIMEOUT, 200);
    for (uint64_t n = 1;; ++n) {
        heap.fail_at(n);
        const int32_t result = zamc_cli_printf(client, "%s", "x");
        const bool failed = heap.failed();
        heap.fail_at(0);
        if (n == 1) {
            EXPECT_EQ(result, -2);
        } // the text itself
        if (!failed) {
            EXPECT_EQ(result, 0);
            break;
        }
        ASSERT_LT(n, 1000u);
    }
}

TEST_F(ClientTest, NothingIsPrintedWithoutAConnection) {
    EXPECT_EQ(zamc_cli_printf(client, "x"), -1);
}

} // namespace
} // namespace zam::test
