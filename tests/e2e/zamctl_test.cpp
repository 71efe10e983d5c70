// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// The operator's command line: data on stdout, diagnostics on stderr, exit codes 0 done, 1 refused, 2 usage,
// 3 unreachable.
#include <gmock/gmock.h>

#include "e2e/app.h"

namespace {

using namespace zam::test;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

constexpr char radio[] = R"({"radio:radio":{"motto":"quiet","volume":3,"genre":["jazz","folk"]}})";

class Zamctl : public testing::Test {
protected:
    ProcessResult zamctl(std::vector<std::string> words, const std::string &input = {}) {
        words.insert(words.begin(), zamctl_path());
        words.insert(words.end(), {"--server", server.url(), "--modules", ZAMC_RADIO_PATH});
        return run_process(words, input);
    }
    void expect_done(const ProcessResult &result, const std::string &out) {
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.out, out);
        EXPECT_EQ(result.err, "");
    }
    void expect_failed(const ProcessResult &result, int status, const std::string &err) {
        EXPECT_EQ(result.status, status);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, err);
    }

    DescriptorCheck descriptors;
    Server server{{.startup = radio, .modules = real_models_and_radio()}};
    Journal journal;
};

TEST_F(Zamctl, PullsInJson) {
    expect_done(zamctl({"pull", "/radio:radio/volume"}), "{\n  \"radio:volume\": 3\n}\n");
    expect_done(zamctl({"pull", "/radio:radio/genre", "--json"}),
                "{\n  \"radio:genre\": [\n    \"jazz\",\n    \"folk\"\n  ]\n}\n");
}

TEST_F(Zamctl, PullsInXml) {
    expect_done(zamctl({"pull", "/radio:radio/volume", "--xml"}), "<volume xmlns=\"urn:zamc:test:radio\">3</volume>\n");
}

TEST_F(Zamctl, PullsNothingWhereThereIsNothing) {
    expect_done(zamctl({"pull", "/radio:radio/name"}), "");
    expect_done(zamctl({"pull", "/radio:radio/name", "--xml"}), "");
}

TEST_F(Zamctl, PushesWithEveryOperation) {
    Operator op{server.url()};
    expect_done(zamctl({"push", "/radio:radio/motto", "loud"}), "");
    EXPECT_EQ(op.pull("/radio:radio/motto"), "loud");
    expect_done(zamctl({"push", "-o", "create", "/radio:radio/name", "kitchen"}), "");
    EXPECT_EQ(op.pull("/radio:radio/name"), "kitchen");
    expect_done(zamctl({"push", "-o", "replace", "/radio:radio", R"({"volume":1,"motto":"x"})"}), "");
    EXPECT_EQ(op.pull("/radio:radio"), R"({"motto":"x","volume":1})");
    expect_done(zamctl({"push", "-o", "delete", "/radio:radio/motto"}), "");
    expect_done(zamctl({"push", "-o", "remove", "/radio:radio/motto"}), "");
    EXPECT_EQ(op.pull("/radio:radio"), R"({"volume":1})");
}

TEST_F(Zamctl, PushesXmlAndReadsStandardInput) {
    Operator op{server.url()};
    expect_done(
        zamctl({"push", "--xml", "/radio:radio/motto", R"(<motto xmlns="urn:zamc:test:radio">a &lt; b</motto>)"}), "");
    EXPECT_EQ(op.pull("/radio:radio/motto"), "a < b");
    expect_done(zamctl({"push", "/radio:radio", "-"}, R"({"motto":"from a pipe"})"), "");
    EXPECT_EQ(op.pull("/radio:radio/motto"), "from a pipe");
}

TEST_F(Zamctl, PushesToAnotherDatastore) {
    expect_done(zamctl({"push", "--datastore", "startup", "/radio:radio/motto", "next"}), "");
    expect_done(zamctl({"pull", "--datastore", "startup", "/radio:radio/motto"}),
                "{\n  \"radio:motto\": \"next\"\n}\n");
    expect_done(zamctl({"pull", "/radio:radio/motto"}), "{\n  \"radio:motto\": \"quiet\"\n}\n");
}

TEST_F(Zamctl, ARefusalIsOneLineOnStderr) {
    expect_failed(zamctl({"push", "/radio:radio/volume", "12"}), 1,
                  "zamctl: Unsatisfied range - value \"12\" is out of the allowed range. (invalid-value, at "
                  "/radio:radio/volume)\n");
    expect_failed(zamctl({"push", "-o", "create", "/radio:radio/motto", "x"}), 1,
                  "zamctl: \"/radio:radio/motto\" exists already. (data-exists, at /radio:radio/motto)\n");
}

TEST_F(Zamctl, AVetoShowsTheApplicationsWordsAndCode) {
    App app{
        server.url(), journal, {{.target = "/radio:radio", .behaviour = [](zamc_client *client, const Call &, auto) {
                                     zamc_error_set(client, 17, "%s", "It is late.");
                                     return int32_t{-1};
                                 }}}};
    const ProcessResult result = zamctl({"push", "/radio:radio/motto", "loud"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err,
                AllOf(StartsWith("zamctl: Client 'app' refused "), HasSubstr("It is late."), HasSubstr("code 17")));
}

TEST_F(Zamctl, ShowsWhatAnApplicationPrintsDuringThePush) {
    App app{
        server.url(), journal, {{.target = "/radio:radio", .behaviour = [](zamc_client *client, const Call &, auto) {
                                     EXPECT_EQ(zamc_cli_printf(client, "retuning to %d\n", 42), 0);
                                     return int32_t{0};
                                 }}}};
    for (const char *encode : {"--json", "--xml"}) {
        const bool is_xml = std::string{encode} == "--xml";
        const ProcessResult result = zamctl(
            {"push", encode, "/radio:radio/motto", is_xml ? R"(<motto xmlns="urn:zamc:test:radio">b</motto>)" : "a"});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "retuning to 42\n") << encode;
    }
}

TEST_F(Zamctl, CallsAnOperation) {
    App app{server.url(),
            journal,
            {{.target = "/radio:tune",
              .type = ZAMC_SUB_OPERATION,
              .behaviour = [](zamc_client *, const Call &, zamc_bytes **output) {
                  *output = json_bytes(R"({"signal":-40,"song":"La Mer"})");
                  return int32_t{0};
              }}}};
    const ProcessResult result = zamctl({"rpc", R"({"radio:tune":{"frequency":98}})"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "{\n  \"radio:tune\": {\n    \"signal\": -40,\n    \"song\": \"La Mer\"\n  }\n}\n");
    const ProcessResult from_pipe =
        zamctl({"rpc", "-"}, R"(<tune xmlns="urn:zamc:test:radio"><frequency>98</frequency></tune>)");
    EXPECT_EQ(from_pipe.status, 0) << from_pipe.err;
    EXPECT_THAT(from_pipe.out, AllOf(StartsWith("<tune "), HasSubstr("<song>La Mer</song>")));
}

TEST_F(Zamctl, AnOperationOfNobodyIsRefused) {
    const ProcessResult result = zamctl({"rpc", R"({"radio:tune":{"frequency":98}})"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr("operation-not-supported"));
}

TEST_F(Zamctl, WatchesWithReplayAndShowsTheData) {
    const ProcessResult result = zamctl({"watch", "/radio:radio/motto", "--replay", "--count", "1"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, AllOf(StartsWith("create /radio:radio/motto (scene replay, priority 100)\n"),
                                  HasSubstr("\"motto\": \"quiet\"")));
}

TEST_F(Zamctl, ANobodyAtTheAddressIsUnreachable) {
    const std::string address = "unix://" + server.dir().path("nobody");
    for (const std::vector<std::string> &words : {std::vector<std::string>{"pull", "/"},
                                                  {"push", "/radio:radio", "{}"},
                                                  {"rpc", "{}"},
                                                  {"watch", "/radio:radio"}}) {
        std::vector<std::string> command{zamctl_path()};
        command.insert(command.end(), words.begin(), words.end());
        command.insert(command.end(), {"--server", address});
        const ProcessResult result = run_process(command);
        EXPECT_EQ(result.status, 3) << words[0];
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, StartsWith("zamctl: cannot reach " + address)) << words[0];
    }
}

TEST(ZamctlUsage, HelpOfEachCommandIsOnStdout) {
    for (const std::vector<std::string> &words : {std::vector<std::string>{"--help"},
                                                  {"pull", "--help"},
                                                  {"push", "--help"},
                                                  {"rpc", "--help"},
                                                  {"watch", "--help"}}) {
        std::vector<std::string> command{zamctl_path()};
        command.insert(command.end(), words.begin(), words.end());
        const ProcessResult result = run_process(command);
        EXPECT_EQ(result.status, 0);
        EXPECT_THAT(result.out, HasSubstr("Exit codes: 0 done, 1 refused, 2 usage, 3 server unreachable."));
        if (words.size() > 1) {
            EXPECT_THAT(result.out, AllOf(HasSubstr("--server"), HasSubstr("--json"), HasSubstr("--xml")));
        }
        EXPECT_EQ(result.err, "");
    }
}

TEST(ZamctlUsage, MistakesEndWithCodeTwoAndNothingOnStdout) {
    for (const std::vector<std::string> &words : {std::vector<std::string>{},
                                                  {"pul", "/"},
                                                  {"pull"},
                                                  {"pull", "/", "extra"},
                                                  {"pull", "/", "--json", "--xml"},
                                                  {"pull", "/", "--depth", "much"},
                                                  {"pull", "no-path"},
                                                  {"push", "/a:b", "-o", "merg"},
                                                  {"rpc"},
                                                  {"watch"},
                                                  {"watch", "/a:b", "--changes", "nothing"}}) {
        std::vector<std::string> command{zamctl_path()};
        command.insert(command.end(), words.begin(), words.end());
        const ProcessResult result = run_process(command);
        EXPECT_EQ(result.status, 2) << testing::PrintToString(words);
        EXPECT_EQ(result.out, "") << testing::PrintToString(words);
        EXPECT_NE(result.err, "") << testing::PrintToString(words);
    }
}

} // namespace
