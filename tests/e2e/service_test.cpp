// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// What a service manager hears of zamd.
#include <array>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/files.h"
#include "support/server.h"

namespace {

using zam::test::Server;
using zam::test::TempDir;

constexpr int deadline_ms = 30000;

// The socket that a service manager listens on, named in the environment of what it starts.
class Manager {
public:
    Manager() : fd_{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)} {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = dir_.path("notify");
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0) << strerror(errno);
        setenv("NOTIFY_SOCKET", path.c_str(), 1);
    }
    ~Manager() {
        unsetenv("NOTIFY_SOCKET");
        close(fd_);
    }
    Manager(const Manager &) = delete;
    Manager &operator=(const Manager &) = delete;

    std::string heard(int wait_ms = deadline_ms) {
        pollfd wait{fd_, POLLIN, 0};
        if (poll(&wait, 1, wait_ms) <= 0) return "nothing";
        std::array<char, 256> text{};
        const ssize_t length = recv(fd_, text.data(), text.size(), 0);
        return {text.data(), length > 0 ? static_cast<size_t>(length) : 0};
    }

private:
    TempDir dir_;
    int fd_;
};

TEST(Service, TheManagerHearsThatTheServerIsReadyAndThatItStops) {
    if (!ZAMC_ZAMD_TELLS_SYSTEMD) GTEST_SKIP() << "zamd is built without libsystemd";
    Manager manager;
    Server server;
    EXPECT_EQ(manager.heard(), "READY=1");
    EXPECT_EQ(manager.heard(0), "nothing");

    EXPECT_EQ(server.stop(), 0);
    EXPECT_EQ(manager.heard(), "STOPPING=1");
}

TEST(Service, AServerThatCannotStartNeverSaysThatItIsReady) {
    Manager manager;
    const auto result = zam::test::run_process(
        {zam::test::zamd_path(), "--listen", "unix:///nowhere/zamd.sock:600", "--modules", zam::test::models_path()});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(manager.heard(0), "nothing");
}

TEST(Service, AManagerThatIsGoneStopsNobody) {
    setenv("NOTIFY_SOCKET", "/nowhere/notify", 1);
    Server server;
    unsetenv("NOTIFY_SOCKET");
    EXPECT_EQ(zam::test::run_process({zam::test::zamctl_path(), "pull", "--server", server.url(), "/"}).status, 0);
    EXPECT_EQ(server.stop(), 0);
    if (ZAMC_ZAMD_TELLS_SYSTEMD) {
        EXPECT_NE(server.log().find("does not hear \"READY=1\""), std::string::npos) << server.log();
    }
}

} // namespace
