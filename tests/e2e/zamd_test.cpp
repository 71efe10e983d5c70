// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// The server as a program: its command line, its sockets, its start and its end.
#include <arpa/inet.h>
#include <csignal>
#include <filesystem>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "e2e/app.h"

namespace {

using namespace zam::test;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;
namespace fs = std::filesystem;

bool is_one_line(const std::string &text) {
    return text.ends_with('\n') && text.find('\n') == text.size() - 1;
}

// A TCP port that nobody listens on at the moment.
uint16_t free_port() {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto *plain = reinterpret_cast<sockaddr *>(&address);
    socklen_t length = sizeof address;
    EXPECT_EQ(bind(fd, plain, length), 0);
    EXPECT_EQ(getsockname(fd, plain, &length), 0);
    close(fd);
    return ntohs(address.sin_port);
}

class Zamd : public testing::Test {
protected:
    // Runs a server that is to refuse its start: exit code 2, never ready, one line on stderr, no socket left.
    std::string refusal(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), zamd_path());
        const ProcessResult result = run_process(arguments);
        EXPECT_EQ(result.status, 2) << result.err;
        EXPECT_THAT(result.out, Not(HasSubstr("ready on"))); // the log is there
        EXPECT_TRUE(is_one_line(result.err)) << result.err;
        EXPECT_THAT(result.err, StartsWith("zamd: "));
        EXPECT_FALSE(fs::exists(socket())) << "half a server";
        return result.err;
    }
    std::vector<std::string> good() const { return {"--listen", url(), "--modules", models_path()}; }
    std::string refusal_with(const std::vector<std::string> &more) {
        auto arguments = good();
        arguments.insert(arguments.end(), more.begin(), more.end());
        return refusal(arguments);
    }
    std::string socket() const { return dir.path("s"); }
    std::string url() const { return "unix://" + socket() + ":600"; }

    DescriptorCheck descriptors;
    TempDir dir;
};

TEST_F(Zamd, HelpNamesEveryFlagAndSucceeds) {
    const ProcessResult result = run_process({zamd_path(), "--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    for (const char *flag : {"--listen", "--modules", "--startup", "--save", "--log", "--log-level", "--frame-limit",
                             "--output-limit", "--publish-timeout", "--help", "--version"}) {
        EXPECT_THAT(result.out, HasSubstr(flag));
    }
}

TEST_F(Zamd, VersionIsOneLine) {
    const ProcessResult result = run_process({zamd_path(), "--version"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, MatchesRegex("zamd [0-9]+\\.[0-9]+\\.[0-9]+\n"));
    EXPECT_EQ(result.err, "");
}

TEST_F(Zamd, AMistypedFlagIsRefused) {
    EXPECT_THAT(refusal_with({"--sav"}), HasSubstr("--sav"));
}
TEST_F(Zamd, AWordTooManyIsRefused) {
    EXPECT_THAT(refusal_with({"quickly"}), HasSubstr("quickly"));
}
TEST_F(Zamd, ListenIsNeeded) {
    EXPECT_THAT(refusal({"--modules", models_path()}), HasSubstr("--listen"));
}
TEST_F(Zamd, ModulesAreNeeded) {
    EXPECT_THAT(refusal({"--listen", url()}), HasSubstr("--modules"));
}
TEST_F(Zamd, AFlagWithoutItsValueIsRefused) {
    EXPECT_THAT(refusal_with({"--startup"}), HasSubstr("--startup"));
}
TEST_F(Zamd, SaveNeedsAFileToWriteTo) {
    EXPECT_THAT(refusal_with({"--save"}), HasSubstr("--startup"));
}
// Its address space has nothing at the beginning: a regular file that opens and cannot be read.
TEST_F(Zamd, AStartupFileThatCannotBeReadIsRefused) {
    EXPECT_EQ(refusal_with({"--startup", "/proc/self/mem"}),
              "zamd: /proc/self/mem: cannot be read: Input/output error\n");
}
TEST_F(Zamd, ALogLevelOutsideItsRangeIsRefused) {
    for (const char *level : {"8", "-1", "loud", ""}) {
        EXPECT_THAT(refusal_with({"--log-level", level}), HasSubstr("--log-level")) << level;
    }
}
TEST_F(Zamd, LimitsThatAreNoNumbersAreRefused) {
    EXPECT_THAT(refusal_with({"--frame-limit", "much"}), HasSubstr("--frame-limit"));
    EXPECT_THAT(refusal_with({"--frame-limit", "1"}), HasSubstr("--frame-limit"));
    EXPECT_THAT(refusal_with({"--publish-timeout", "0"}), HasSubstr("--publish-timeout"));
    EXPECT_THAT(refusal_with({"--publish-timeout", "nan"}), HasSubstr("--publish-timeout"));
}

TEST_F(Zamd, AModuleDirectoryThatIsNotThereIsRefused) {
    const std::string missing = dir.path("missing");
    EXPECT_EQ(refusal({"--listen", url(), "--modules", missing}),
              "zamd: cannot read the module directory " + missing + ": No such file or directory\n");
}
TEST_F(Zamd, AModuleDirectoryThatIsAFileIsRefused) {
    dir.write("file", "x");
    EXPECT_EQ(refusal({"--listen", url(), "--modules", dir.path("file")}),
              "zamd: the module directory " + dir.path("file") + " is no directory\n");
}
TEST_F(Zamd, AModuleDirectoryWithoutModulesIsRefused) {
    EXPECT_EQ(refusal({"--listen", url(), "--modules", dir.path()}),
              "zamd: the module directory " + dir.path() + " holds no module\n");
}
TEST_F(Zamd, AModuleThatDoesNotParseIsNamedWithTheReason) {
    dir.write("broken.yang", "module broken { namespace \"urn:b\"; prefix b; leaf x { type nonsense; } }");
    EXPECT_THAT(refusal({"--listen", url(), "--modules", dir.path()}),
                AllOf(HasSubstr(dir.path("broken.yang")), HasSubstr("nonsense")));
}
TEST_F(Zamd, ALogFileThatCannotBeWrittenIsRefused) {
    const std::string file = dir.path("missing/log");
    EXPECT_EQ(refusal_with({"--log", file}),
              "zamd: cannot write the log file " + file + ": No such file or directory\n");
}

TEST_F(Zamd, AnAddressThatIsNoneIsRefused) {
    for (const char *url : {"nonsense", "unix://", "127.0.0.1", "unix:///no/such/folder/s:600"}) {
        EXPECT_THAT(refusal({"--listen", url, "--modules", models_path()}),
                    StartsWith(std::string{"zamd: cannot listen on "} + url + ": "))
            << url;
    }
}
TEST_F(Zamd, OneBadAddressAmongGoodOnesLeavesNoSocketBehind) {
    EXPECT_THAT(refusal_with({"--listen", "nonsense"}), HasSubstr("nonsense"));
}

TEST_F(Zamd, AnnouncesItsAddressesInOneLineOnceItIsReady) {
    const std::string second = "127.0.0.1:" + std::to_string(free_port());
    Server server{{.arguments = {"--listen", second}}};
    EXPECT_EQ(server.announcement(), "zamd: ready on " + server.listen_url() + " " + second);
    EXPECT_EQ(Operator{server.url()}.pull("/ietf-interfaces:interfaces"), "");
    EXPECT_EQ(Operator{"tcp://" + second}.pull("/ietf-interfaces:interfaces"), "");
}

TEST_F(Zamd, TheSocketHasTheModeOfItsAddress) {
    Server server{{.arguments = {"--listen", "unix://" + dir.path("wide") + ":666"}}};
    const auto mode = [](const std::string &path) {
        struct stat status {};
        EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
        EXPECT_TRUE(S_ISSOCK(status.st_mode)) << path;
        return status.st_mode & 07777;
    };
    EXPECT_EQ(mode(server.dir().path("zamd.sock")), mode_t{0600});
    EXPECT_EQ(mode(dir.path("wide")), mode_t{0666});
}

TEST_F(Zamd, WarnsOfAModuleDirectoryThatEverybodyMayWriteTo) {
    for (const mode_t mode : {0755, 0777, 01777}) {
        TempDir modules;
        modules.write("m.yang", "module m { namespace urn:m; prefix m; }");
        ASSERT_EQ(chmod(modules.path().c_str(), mode), 0);
        Server server{{.modules = {modules.path()}}};
        const auto warning = HasSubstr("Everybody may write to the module directory " + modules.path());
        if (mode == 0755)
            EXPECT_THAT(server.log(), Not(warning));
        else
            EXPECT_THAT(server.log(), warning) << std::oct << mode;
    }
}

TEST_F(Zamd, SaysWhoRegisters) {
    Server server;
    Operator op{server.url()};
    EXPECT_THAT(server.log(),
                HasSubstr("process " + std::to_string(getpid()) + " of user " + std::to_string(getuid())));
}

class ListenOn : public Zamd, public testing::WithParamInterface<const char *> {};
INSTANTIATE_TEST_SUITE_P(, ListenOn, testing::Values("127.0.0.1:", "[::1]:", "localhost:"));

TEST_P(ListenOn, AnInternetAddressServes) {
    const std::string address = GetParam() + std::to_string(free_port());
    addrinfo *found = nullptr;
    if (address.starts_with("localhost") && getaddrinfo("localhost", nullptr, nullptr, &found) != 0)
        GTEST_SKIP() << "this machine does not know its own name";
    if (found) freeaddrinfo(found);
    Server server{{.startup = two_interfaces, .arguments = {"--listen", address}}};
    EXPECT_EQ(Operator{"tcp://" + address}.pull("/ietf-interfaces:interfaces/interface[name='eth0']/enabled"), "true");
}

class Stop : public Zamd, public testing::WithParamInterface<int> {};
INSTANTIATE_TEST_SUITE_P(, Stop, testing::Values(SIGTERM, SIGINT));

TEST_P(Stop, BySignalIsCleanAndUnlinksEverySocket) {
    Server server{{.arguments = {"--listen", url()}}};
    Operator connected{server.url()};
    EXPECT_TRUE(fs::exists(socket()));
    ::kill(server.pid(), GetParam());
    EXPECT_EQ(zamc_run(connected.client(), 10000), -1); // the connection ends with the server
    EXPECT_EQ(server.stop(), 0);
    EXPECT_FALSE(fs::exists(socket()));
    EXPECT_FALSE(fs::exists(server.dir().path("zamd.sock")));
}

TEST_F(Zamd, ASocketFileThatAKilledServerLeftIsTakenOver) {
    Server server{{.startup = two_interfaces}};
    server.kill();
    EXPECT_TRUE(fs::exists(server.dir().path("zamd.sock")));
    server.start();
    EXPECT_NE(Operator{server.url()}.pull("/ietf-interfaces:interfaces"), "");
}

TEST_F(Zamd, ASocketThatAnotherServerListensOnIsLeftToIt) {
    Server server{{.startup = two_interfaces}};
    EXPECT_THAT(refusal({"--listen", server.listen_url(), "--modules", models_path()}),
                HasSubstr("Address already in use"));
    EXPECT_NE(Operator{server.url()}.pull("/ietf-interfaces:interfaces"), "");
}

TEST_F(Zamd, APortThatAnotherServerListensOnIsLeftToIt) {
    const std::string address = "127.0.0.1:" + std::to_string(free_port());
    Server server{{.arguments = {"--listen", address}}};
    EXPECT_THAT(refusal({"--listen", address, "--modules", models_path()}), HasSubstr("Address already in use"));
    EXPECT_EQ(Operator{"tcp://" + address}.pull("/ietf-interfaces:interfaces"), "");
}

TEST_F(Zamd, AFileThatIsNoSocketIsNotTakenAway) {
    dir.write("precious", "mine");
    EXPECT_THAT(refusal({"--listen", "unix://" + dir.path("precious") + ":600", "--modules", models_path()}),
                HasSubstr("precious"));
    EXPECT_EQ(read_file(dir.path("precious")), "mine");
}

TEST_F(Zamd, LogsToAFileWhatItsLevelAllows) {
    Server server;
    Operator{server.url()}.pull("/");
    EXPECT_EQ(server.stop(), 0);
    EXPECT_THAT(server.log(), HasSubstr("Stopping, "));
    EXPECT_THAT(server.log(), Not(HasSubstr("[DEBUG]")));

    // The same with the log on stdout, at the quietest level, and ended by its own signal.
    const ProcessResult quiet = run_process({"timeout", "--preserve-status", "2", zamd_path(), "--listen", url(),
                                             "--modules", models_path(), "--log-level", "0"});
    EXPECT_EQ(quiet.status, 0);
    EXPECT_EQ(quiet.out, "zamd: ready on " + url() + "\n");
    EXPECT_EQ(quiet.err, "");
}

} // namespace
