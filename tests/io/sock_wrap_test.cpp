// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Listening, connecting and the descriptor calls; from URL to address is in sock_wrap_resolve_test.cpp.
#include <atomic>
#include <csignal>
#include <thread>

#include <netinet/in.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <zamc/sock_wrap.h>

#include "io/engine.h"
#include "io/signal_storm.h"
#include "support/files.h"
#include "support/heap.h"
#include "support/log_capture.h"

namespace {

using namespace zam::test;

uint16_t port_of(int fd) {
    sockaddr_in6 address{};
    socklen_t length = sizeof(address);
    getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length);
    return ntohs(address.sin6_port); // where it is for both families
}

mode_t mode_of(const std::string &path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : static_cast<mode_t>(-1);
}

bool is_socket_file(const std::string &path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode);
}

bool is_connected(int client, int listening) {
    if (client < 0) return false;
    const int server = zam_socket_accept(listening);
    if (server < 0) return false;
    char byte = 0;
    const bool ok = write(client, "x", 1) == 1 && read(server, &byte, 1) == 1 && byte == 'x';
    close(server);
    return ok;
}

class UnixSocket : public testing::Test {
protected:
    std::string url(const char *mode = "") const { return "unix://" + path + mode; }

    DescriptorCheck descriptors;
    TempDir dir;
    std::string path = dir.path("x.sock");
};

TEST_F(UnixSocket, ListensAndLeavesTheFileWithTheModeOfTheUrl) {
    LogCapture log;
    const int fd = zam_socket_listen(url(":660").c_str());
    ASSERT_GE(fd, 0);
    EXPECT_TRUE(is_socket_file(path));
    EXPECT_EQ(mode_of(path), 0660u);
    EXPECT_EQ(log.all(), "");
    close(fd);
}

TEST_F(UnixSocket, ReadsTheModeAsOctal) {
    for (const auto &[text, mode] : {std::pair{":600", 0600u}, {":777", 0777u}, {":0", 0u}, {":", 0u}, {":rw", 0u}}) {
        const int fd = zam_socket_listen(url(text).c_str());
        ASSERT_GE(fd, 0) << text;
        EXPECT_EQ(mode_of(path), mode) << text;
        close(fd);
    }
}

TEST_F(UnixSocket, WithoutModeCannotListen) {
    LogCapture log;
    EXPECT_EQ(zam_socket_listen(url().c_str()), -1);
    EXPECT_EQ(log.all(), "[WRONG] Parse url " + url() + " unsuccessful.\n");
}

TEST_F(UnixSocket, WithoutModeConnects) {
    const int listening = zam_socket_listen(url(":600").c_str());
    LogCapture log;
    const int client = zam_socket_connect(url().c_str());
    ASSERT_GE(client, 0);
    EXPECT_TRUE(is_connected(client, listening));
    EXPECT_EQ(log.all(), "");
    close(client);
    close(listening);
}

TEST_F(UnixSocket, WithModeConnectsToo) {
    const int listening = zam_socket_listen(url(":600").c_str());
    const int client = zam_socket_connect(url(":600").c_str());
    EXPECT_TRUE(is_connected(client, listening));
    close(client);
    close(listening);
}

TEST_F(UnixSocket, ReplacesAStaleFile) {
    dir.write("x.sock", "left behind");
    const int fd = zam_socket_listen(url(":600").c_str());
    ASSERT_GE(fd, 0);
    EXPECT_TRUE(is_socket_file(path));
    close(fd);
    const int again = zam_socket_listen(url(":600").c_str());
    EXPECT_GE(again, 0);
    close(again);
}

TEST_F(UnixSocket, ListensBlockingAndInherited) {
    const int fd = zam_socket_listen(url(":600").c_str());
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
    close(fd);
}

TEST_F(UnixSocket, ConnectsBlocking) {
    const int listening = zam_socket_listen(url(":600").c_str());
    const int client = zam_socket_connect(url().c_str());
    EXPECT_EQ(fcntl(client, F_GETFL) & O_NONBLOCK, 0);
    close(client);
    close(listening);
}

TEST_F(UnixSocket, InAFolderThatIsNotThereCannotListen) {
    const std::string missing = "unix://" + dir.path("missing/x.sock:600");
    LogCapture log;
    EXPECT_EQ(zam_socket_listen(missing.c_str()), -1);
    EXPECT_EQ(log.all(), "[WRONG] Listen for " + missing + " unsuccessful(No such file or directory).\n");
}

// Without a path the system picks a name of its own for the socket and there is no file whose mode could be changed.
TEST_F(UnixSocket, WithoutPathFailsAtTheMode) {
    LogCapture log;
    EXPECT_EQ(zam_socket_listen("unix://:660"), -1);
    EXPECT_EQ(log.all(), "[WRONG] Change the permiss of file unix://:660 unsuccess(No such file or directory).\n");
}

TEST_F(UnixSocket, WithoutDescriptorsCannotListenNorConnect) {
    const std::string listen_url = url(":600");
    const std::string connect_url = url();
    LogCapture log;
    {
        NoMoreDescriptors none;
        EXPECT_EQ(zam_socket_listen(listen_url.c_str()), -1);
        EXPECT_EQ(log.all(), "[WRONG] Create listen_sock fd unsuccessful(Too many open files).\n");
        log.clear();
        EXPECT_EQ(zam_socket_connect(connect_url.c_str()), -1);
    }
    EXPECT_EQ(log.all(), "[WRONG] Create conn_sock fd unsuccessful(Too many open files).\n");
}

TEST_F(UnixSocket, WithAPathOf107CharactersListensAndConnects) {
    path += std::string(107 - path.size(), 'a');
    const int listening = zam_socket_listen(url(":600").c_str());
    ASSERT_GE(listening, 0);
    const int client = zam_socket_connect(url().c_str());
    EXPECT_TRUE(is_connected(client, listening));
    close(client);
    close(listening);
}

TEST_F(UnixSocket, WithAPathOf108CharactersFailsWithoutMessage) {
    path += std::string(108 - path.size(), 'a');
    LogCapture log;
    EXPECT_EQ(zam_socket_listen(url(":600").c_str()), -1);
    EXPECT_EQ(zam_socket_connect(url().c_str()), -1);
    zam_socket_listen_release(url().c_str());
    EXPECT_EQ(log.all(), "");
    EXPECT_FALSE(std::filesystem::exists(path.substr(0, path.size() - 1)));
}

TEST_F(UnixSocket, ConnectingToNobodyFailsWithoutMessage) {
    LogCapture log;
    EXPECT_EQ(zam_socket_connect(url().c_str()), -1);
    close(zam_socket_listen(url(":600").c_str()));
    EXPECT_EQ(zam_socket_connect(url().c_str()), -1) << "nobody listens on the file any more";
    EXPECT_EQ(log.all(), "");
}

TEST_F(UnixSocket, ReleasingRemovesTheFile) {
    const int fd = zam_socket_listen(url(":600").c_str());
    LogCapture log;
    zam_socket_listen_release(url(":600").c_str());
    EXPECT_EQ(log.all(), "[INFO] Release " + url(":600") + " .\n");
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_TRUE(is_open(fd));
    close(fd);
}

TEST_F(UnixSocket, ReleasingNeedsNoMode) {
    dir.write("x.sock", "");
    zam_socket_listen_release(url().c_str());
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(UnixSocket, SurvivesEachFailingAllocation) {
    const uint64_t failed = fail_each_allocation([&](bool) {
        const int listening = zam_socket_listen(url(":600").c_str());
        const int client = zam_socket_connect(url().c_str());
        if (listening >= 0) close(listening);
        if (client >= 0) close(client);
        zam_socket_listen_release(url().c_str());
    });
    EXPECT_EQ(failed, 6u); // parsed URL and address of each call
}

TEST_F(UnixSocket, ASignalDoesNotEndAConnect) {
    const int listening = zam_socket_listen(url(":600").c_str());
    std::vector<int> waiting; // fill the queue, so that one more has to wait
    for (;;) {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        const bool queued = connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0;
        waiting.push_back(fd);
        if (!queued) break;
    }
    int client = -1;
    int accepted = -1;
    std::atomic<bool> finished = false;
    std::thread server;
    {
        const SignalStorm storm;
        sigset_t alarm;
        sigemptyset(&alarm);
        sigaddset(&alarm, SIGALRM);
        pthread_sigmask(SIG_BLOCK, &alarm, nullptr); // the signals are for this thread, not for the new one
        server = std::thread{[&] {
            while (!finished && SignalStorm::signals() < 3)
                std::this_thread::yield();
            accepted = zam_socket_accept(listening); // makes room in the queue
        }};
        pthread_sigmask(SIG_UNBLOCK, &alarm, nullptr);
        client = zam_socket_connect(url().c_str());
        finished = true;
    }
    EXPECT_GE(client, 0);
    server.join();
    for (const int fd : waiting)
        close(fd);
    if (client >= 0) close(client);
    close(accepted);
    close(listening);
}

class InternetSocket : public testing::Test {
protected:
    DescriptorCheck descriptors;
};

TEST_F(InternetSocket, ListensOnAnIpv4AddressWithOrWithoutScheme) {
    for (const char *url : {"127.0.0.1:0", "tcp://127.0.0.1:0", "anything://127.0.0.1:0"}) {
        const int listening = zam_socket_listen(url);
        ASSERT_GE(listening, 0) << url;
        const int client = zam_socket_connect(text("tcp://127.0.0.1:", port_of(listening)).c_str());
        EXPECT_TRUE(is_connected(client, listening)) << url;
        close(client);
        close(listening);
    }
}

TEST_F(InternetSocket, ListensOnAnIpv6Address) {
    const int listening = zam_socket_listen("[::1]:0");
    if (listening < 0) GTEST_SKIP() << "no IPv6 here";
    const int client = zam_socket_connect(text("tcp://[::1]:", port_of(listening)).c_str());
    EXPECT_TRUE(is_connected(client, listening));
    close(client);
    close(listening);
}

TEST_F(InternetSocket, OnATakenPortCannotListen) {
    const int first = zam_socket_listen("127.0.0.1:0");
    const std::string url = text("127.0.0.1:", port_of(first));
    LogCapture log;
    EXPECT_EQ(zam_socket_listen(url.c_str()), -1);
    EXPECT_EQ(log.all(), "[WRONG] Listen for " + url + " unsuccessful(Address already in use).\n");
    close(first);
}

TEST_F(InternetSocket, ARefusedConnectionIsNotLogged) {
    const int listening = zam_socket_listen("127.0.0.1:0");
    const std::string url = text("127.0.0.1:", port_of(listening));
    close(listening);
    LogCapture log;
    EXPECT_EQ(zam_socket_connect(url.c_str()), -1);
    EXPECT_EQ(log.all(), "");
}

TEST_F(InternetSocket, WithoutPortFails) {
    LogCapture log;
    EXPECT_EQ(zam_socket_connect("127.0.0.1"), -1);
    zam_socket_listen_release("127.0.0.1");
    EXPECT_EQ(log.all(), "");
    EXPECT_EQ(zam_socket_listen("127.0.0.1"), -1);
    EXPECT_EQ(log.all(), "[WRONG] Parse url 127.0.0.1 unsuccessful.\n");
}

TEST_F(InternetSocket, ReleasingRemovesNothing) {
    LogCapture log;
    zam_socket_listen_release("tcp://127.0.0.1:830");
    EXPECT_EQ(log.all(), "");
}

TEST(SocketUrl, ANullUrlIsInvalid) {
    LogCapture log;
    EXPECT_EQ(zam_socket_listen(nullptr), -1);
    EXPECT_EQ(zam_socket_connect(nullptr), -1);
    zam_socket_listen_release(nullptr);
    EXPECT_EQ(log.count(3, "Input url invalid."), 3);
    EXPECT_EQ(log.lines().size(), 3u);
}

TEST(SocketUrl, AnOpenBracketCannotBeParsed) {
    LogCapture log;
    EXPECT_EQ(zam_socket_listen("[::1:830"), -1);
    EXPECT_EQ(zam_socket_connect("[::1:830"), -1);
    zam_socket_listen_release("[::1:830");
    EXPECT_EQ(log.count(3, "Parse url [::1:830 unsuccessful."), 3);
    EXPECT_EQ(log.lines().size(), 3u);
}

TEST(SocketAccept, PassesTheSystemsAnswerOn) {
    LogCapture log;
    errno = 0;
    EXPECT_EQ(zam_socket_accept(-1), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(log.all(), "");
}

TEST(SocketBlock, SwitchesBothWays) {
    SocketPair sockets;
    LogCapture log;
    EXPECT_EQ(zam_socket_block(sockets.fd, 1), 0);
    EXPECT_EQ(fcntl(sockets.fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(zam_socket_block(sockets.fd, 0), 0);
    EXPECT_NE(fcntl(sockets.fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(zam_socket_block(sockets.fd, -5), 0);
    EXPECT_EQ(fcntl(sockets.fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(log.all(), "");
}

TEST(SocketBlock, LogsWhyNot) {
    DescriptorCheck descriptors;
    LogCapture log;
    zam_socket_block(-1, 0);
    EXPECT_EQ(log.all(), "[WRONG] Get the flags of fd -1 unsuccessful(Bad file descriptor).\n");
    log.clear();
    const int fd = open("/", O_PATH | O_CLOEXEC); // its flags can be read but not set
    zam_socket_block(fd, 0);
    EXPECT_EQ(log.all(), text("[WRONG] Set the flags of fd ", fd, " unsuccessful(Bad file descriptor).\n"));
    close(fd);
}

TEST(SocketCloexec, LeavesTheStateAsItIs) {
    SocketPair sockets;
    LogCapture log;
    for (const int flag : {FD_CLOEXEC, 0}) {
        fcntl(sockets.fd, F_SETFD, flag);
        const int status = fcntl(sockets.fd, F_GETFL);
        EXPECT_EQ(zam_socket_cloexec(sockets.fd), 0);
        EXPECT_EQ(fcntl(sockets.fd, F_GETFD), flag);
        EXPECT_EQ(fcntl(sockets.fd, F_GETFL), status);
    }
    EXPECT_EQ(log.all(), "");
}

TEST(SocketCloexec, LogsWhyNot) {
    DescriptorCheck descriptors;
    LogCapture log;
    zam_socket_cloexec(-1);
    EXPECT_EQ(log.all(), "[WRONG] Get the flags of fd -1 unsuccessful(Bad file descriptor) when add FD_CLOEXEC.\n");
    log.clear();
    const int fd = open("/", O_PATH | O_CLOEXEC);
    zam_socket_cloexec(fd);
    EXPECT_EQ(log.all(), text("[WRONG] Add FD_CLOEXEC flag of fd ", fd, " unsuccessful(Bad file descriptor).\n"));
    close(fd);
}

} // namespace
