// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// The file that a server starts with and writes back.
#include <algorithm>
#include <filesystem>
#include <ostream>
#include <sys/stat.h>

#include <gmock/gmock.h>

#include "e2e/app.h"

namespace {

using namespace zam::test;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
namespace fs = std::filesystem;

constexpr char radio_json[] =
    R"({"radio:radio":{"motto":"q\"u\\i\u00e9t","volume":3,"preset":[{"name":"b"},{"name":"a"}]}})";
constexpr char radio_xml[] = R"(<radio xmlns="urn:zamc:test:radio"><motto>q"u\iét</motto><volume>3</volume>
  <preset><name>b</name></preset><preset><name>a</name></preset></radio>)";
constexpr char motto[] = "/radio:radio/motto";

Server::Options options(const std::string &startup, bool save = false, const std::string &name = "startup.json") {
    Server::Options options{.startup = startup, .startup_name = name, .modules = real_models_and_radio()};
    if (save) options.arguments.push_back("--save");
    return options;
}

struct Format {
    const char *name;
    const char *text;
};
std::ostream &operator<<(std::ostream &out, const Format &format) {
    return out << format.name;
}
class StartupFile : public testing::TestWithParam<Format> {
protected:
    DescriptorCheck descriptors;
};
INSTANTIATE_TEST_SUITE_P(, StartupFile,
                         testing::Values(Format{"f.json", radio_json}, Format{"f.xml", radio_xml},
                                         Format{"json", radio_json}, Format{"xml", radio_xml}),
                         [](const auto &format) {
                             const std::string name = format.param.name;
                             return (name.starts_with("f.") ? "ByItsName_" : "ByItsContent_") +
                                    name.substr(name.find('.') + 1);
                         });

TEST_P(StartupFile, FillsRunningAndStartup) {
    Server server{options(GetParam().text, false, GetParam().name)};
    Operator op{server.url()};
    for (const char *datastore : {"ietf-datastores:running", "ietf-datastores:startup"}) {
        op.datastore(datastore);
        EXPECT_EQ(op.pull(motto), "q\"u\\iét") << datastore;
        EXPECT_EQ(op.pull("/radio:radio/preset"), R"([{"name":"b"},{"name":"a"}])") << datastore;
    }
    EXPECT_EQ(op.push(motto, ZAMC_PUSH_MERGE, "new"), 0);
    EXPECT_EQ(server.stop(), 0);
    EXPECT_EQ(read_file(server.dir().path(GetParam().name)), GetParam().text) << "nobody asked for it to be saved";
}

TEST_P(StartupFile, IsWrittenAfterEachChangeAndStartedWithAgain) {
    Server server{options(GetParam().text, true, GetParam().name)};
    const std::string file = server.dir().path(GetParam().name);
    {
        Operator op{server.url()};
        EXPECT_EQ(op.push(motto, ZAMC_PUSH_MERGE, "first"), 0);
        EXPECT_THAT(read_file(file), AllOf(HasSubstr("first"), StartsWith(std::string{GetParam().text[0]})));
        EXPECT_EQ(op.push(motto, ZAMC_PUSH_MERGE, R"(s\"e\\cond <&>)"), 0);
        EXPECT_EQ(op.push("/radio:radio/preset[name='b']", ZAMC_PUSH_CREATE, R"([{"name":"b"}])"), -1);
        EXPECT_EQ(op.push("/radio:radio/preset[name='c']", ZAMC_PUSH_CREATE, R"([{"name":"c"}])"), 0);
    }
    server.kill(); // what was acknowledged is there however the server ends
    server.start();
    Operator op{server.url()};
    EXPECT_EQ(op.pull(motto), R"(s"e\cond <&>)");
    EXPECT_EQ(op.pull("/radio:radio/preset"), R"([{"name":"b"},{"name":"a"},{"name":"c"}])");
    EXPECT_EQ(op.pull("/radio:radio/volume"), "3");
    op.datastore("ietf-datastores:startup");
    EXPECT_EQ(op.pull(motto), R"(s"e\cond <&>)");
}

class Save : public testing::Test {
protected:
    DescriptorCheck descriptors;
};

TEST_F(Save, ReplacesTheFileAndLeavesNoOtherBehind) {
    Server server{options(radio_json, true)};
    const std::string file = server.dir().path("startup.json");
    ASSERT_EQ(chmod(file.c_str(), 0640), 0);
    struct stat before {};
    ASSERT_EQ(stat(file.c_str(), &before), 0);
    const auto count = [&] {
        return std::distance(fs::directory_iterator{server.dir().path()}, fs::directory_iterator{});
    };
    const auto files = count();
    Operator op{server.url()};
    EXPECT_EQ(op.push(motto, ZAMC_PUSH_MERGE, "new"), 0);
    struct stat after {};
    ASSERT_EQ(stat(file.c_str(), &after), 0);
    EXPECT_NE(after.st_ino, before.st_ino) << "a reader of the old file sees all of it, never half of the new one";
    EXPECT_EQ(after.st_mode & 07777, mode_t{0640});
    EXPECT_EQ(count(), files);
}

TEST_F(Save, WritesNothingForARefusedOrEmptyChange) {
    Server server{options(radio_json, true)};
    Journal journal;
    App app{server.url(),
            journal,
            {{.target = motto, .behaviour = [](zamc_client *, const Call &, zamc_bytes **) { return int32_t{-1}; }}}};
    Operator op{server.url()};
    EXPECT_EQ(op.push(motto, ZAMC_PUSH_MERGE, "vetoed"), -1);
    EXPECT_EQ(op.push("/radio:radio/volume", ZAMC_PUSH_MERGE, "99"), -1);
    EXPECT_EQ(op.push("/radio:radio/volume", ZAMC_PUSH_MERGE, "3"), 0);
    EXPECT_EQ(read_file(server.dir().path("startup.json")), radio_json);
}

TEST_F(Save, OfEverythingDeletedIsAnEmptyDatastore) {
    Server server{options(radio_json, true)};
    EXPECT_EQ(Operator{server.url()}.push("/", ZAMC_PUSH_DELETE, ""), 0);
    EXPECT_EQ(server.stop(), 0);
    EXPECT_EQ(read_file(server.dir().path("startup.json")), "{}\n");
    server.start();
    EXPECT_EQ(Operator{server.url()}.pull("/"), "");
}

TEST_F(Save, BeginsAFileThatIsNotThereYet) {
    const TempDir dir;
    Server fresh{{.modules = real_models_and_radio(), .arguments = {"--startup", dir.path("f.json"), "--save"}}};
    EXPECT_FALSE(fs::exists(dir.path("f.json")));
    EXPECT_EQ(Operator{fresh.url()}.push(motto, ZAMC_PUSH_CREATE, "new"), 0);
    EXPECT_THAT(read_file(dir.path("f.json")), HasSubstr("new"));
    struct stat status {};
    ASSERT_EQ(stat(dir.path("f.json").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, mode_t{0600});
}

TEST_F(Save, ThatFailsRefusesTheChangeAndSaysWhy) {
    const TempDir dir;
    fs::create_directory(dir.path("gone"));
    Server server{{.modules = real_models_and_radio(), .arguments = {"--startup", dir.path("gone/f.json"), "--save"}}};
    fs::remove(dir.path("gone"));
    Operator op{server.url()};
    const std::string reply = op.push_reply(motto, "create", "new");
    EXPECT_THAT(reply, AllOf(HasSubstr(R"("error-tag":"operation-failed")"), HasSubstr("No such file or directory"),
                             HasSubstr("f.json")));
    EXPECT_EQ(op.pull(motto), "");
    fs::create_directory(dir.path("gone"));
    EXPECT_EQ(op.push(motto, ZAMC_PUSH_CREATE, "new"), 0);
}

struct Bad {
    const char *name;
    const char *file;
    const char *text;
    std::vector<const char *> words; // of the one line on stderr, besides the file's name
};
std::ostream &operator<<(std::ostream &out, const Bad &bad) {
    return out << bad.name;
}

const Bad bad_files[] = {
    {"TruncatedJson", "s.json", "{\"radio:radio\":\n{\"motto\":", {"line 2"}},
    {"TextAfterTheObject", "s.json", "{}\n\n{}", {"line 3"}},
    {"TruncatedXml", "s.xml", "<radio xmlns=\"urn:zamc:test:radio\">\n<motto>", {}},
    {"AnUnknownModule", "s.json", R"({"television:tv":{}})", {"television"}},
    {"AnUnknownNode", "s.json", "{\"radio:radio\":{\n\"wings\":2}}", {"wings", "/radio:radio"}},
    {"AWrongValue", "s.json", "{\"radio:radio\":{\n\"volume\":99}}", {"99", "/radio:radio/volume", "line number 2"}},
    {"AWrongValueInXml",
     "s.xml",
     "<radio xmlns=\"urn:zamc:test:radio\">\n<volume>99</volume></radio>",
     {"99", "/radio:radio/volume", "line number 2"}},
    {"ABrokenConstraint",
     "s.json",
     R"({"radio:radio":{"volume":9,"night":true}})",
     {"Be quiet at night.", "/radio:radio"}},
    {"AMissingLeaf",
     "s.json",
     R"({"ietf-interfaces:interfaces":{"interface":[{"name":"eth0"}]}})",
     {"type", "/ietf-interfaces:interfaces/interface"}},
    {"State", "s.json", R"({"radio:radio":{"state":{"signal":1}}})", {"state"}},
};

class BadStartupFile : public testing::TestWithParam<Bad> {};
INSTANTIATE_TEST_SUITE_P(, BadStartupFile, testing::ValuesIn(bad_files),
                         [](const auto &bad) { return std::string{bad.param.name}; });

TEST_P(BadStartupFile, IsNamedInOneLineAndEndsTheStart) {
    const DescriptorCheck descriptors;
    const TempDir dir;
    dir.write(GetParam().file, GetParam().text);
    const std::string file = dir.path(GetParam().file);
    std::vector<std::string> command{zamd_path(), "--listen", "unix://" + dir.path("s") + ":600", "--startup", file};
    for (const auto &modules : real_models_and_radio())
        command.insert(command.end(), {"--modules", modules});
    const ProcessResult result = run_process(command);
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.out, Not(HasSubstr("ready on")));
    EXPECT_THAT(result.err, StartsWith("zamd: " + file + ": "));
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    for (const char *word : GetParam().words)
        EXPECT_THAT(result.err, HasSubstr(word));
    EXPECT_FALSE(fs::exists(dir.path("s")));
    EXPECT_EQ(read_file(file), GetParam().text);
}

TEST(StartupPath, ThatCannotBeReadIsNamed) {
    const TempDir dir;
    for (const std::string &file : {dir.path("missing.json"), dir.path()}) {
        const ProcessResult result = run_process({zamd_path(), "--listen", "unix://" + dir.path("s") + ":600",
                                                  "--modules", models_path(), "--startup", file});
        EXPECT_EQ(result.status, 2);
        EXPECT_THAT(result.err, StartsWith("zamd: " + file + ": "));
    }
}

} // namespace
