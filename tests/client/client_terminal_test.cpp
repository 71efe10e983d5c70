// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Borrowed terminals. Their sockets lie below /run, where a test has nothing to write: each test runs in a child
// process whose /run is a folder of its own, which nobody else sees and which goes with it.
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <zamc/client.h>

#include "support/files.h"

namespace zam::test {
namespace {

constexpr int not_permitted = 77;
constexpr int deadline_ms = 10000;
constexpr char folder[] = "/run/palmet";

bool is_open(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

// In the child, where no assertion is heard: says what failed, and ends.
void must(bool holds, const char *what) {
    if (holds) return;
    fprintf(stderr, "%s: %s\n", what, strerror(errno));
    _exit(1);
}

bool write_text(const char *path, const std::string &text) {
    return static_cast<bool>(std::ofstream{path} << text << std::flush);
}

// Root of a namespace of its own, for those who may not mount otherwise.
bool become_root() {
    const std::string uid = "0 " + std::to_string(getuid()) + " 1";
    const std::string gid = "0 " + std::to_string(getgid()) + " 1";
    return unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && write_text("/proc/self/setgroups", "deny") &&
           write_text("/proc/self/uid_map", uid) && write_text("/proc/self/gid_map", gid);
}

bool have_own_run() {
    if (unshare(CLONE_NEWNS) != 0 && !become_root()) return false;
    return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("zamc-test", "/run", "tmpfs", 0, "mode=0755") == 0 && mkdir(folder, 0755) == 0;
}

// The exit status of a child that runs `body` with a /run of its own.
int with_own_run(const std::function<void()> &body) {
    const pid_t child = fork();
    if (child == 0) {
        if (!have_own_run()) _exit(not_permitted);
        body();
        _exit(0);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

#define SKIP_IF_NOT_PERMITTED(status)                                                                                  \
    if ((status) == not_permitted) GTEST_SKIP() << "this process may not make a mount namespace of its own"

// Listens where the terminal service of an instance does.
int listen_as(const std::string &instance) {
    const std::string path = std::string{folder} + "/termd" + instance + ".sock";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    must(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0, "bind");
    must(listen(fd, 1) == 0, "listen");
    return fd;
}

int accept_from(int listener) {
    pollfd wait{listener, POLLIN, 0};
    must(poll(&wait, 1, deadline_ms) == 1, "the terminal's peer");
    const int fd = accept(listener, nullptr, nullptr);
    must(fd >= 0, "accept");
    return fd;
}

std::string read_from(int fd) {
    pollfd wait{fd, POLLIN, 0};
    must(poll(&wait, 1, deadline_ms) == 1, "the other end's words");
    char text[64];
    const ssize_t got = read(fd, text, sizeof text);
    return got > 0 ? std::string(text, static_cast<size_t>(got)) : "";
}

void say(int fd, const std::string &text) {
    must(write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()), "write");
}

TEST(Terminals, ABorrowedOneIsAConnectionInBothDirectionsUntilItIsReturned) {
    const DescriptorCheck descriptors;
    const int status = with_own_run([] {
        const int listener = listen_as("3");
        const int32_t borrowed = zamc_borrow_tty(3);
        must(borrowed >= 1 && is_open(borrowed), "borrow");
        const int service = accept_from(listener);
        say(borrowed, "to the terminal");
        must(read_from(service) == "to the terminal", "to the terminal");
        say(service, "to the application");
        must(read_from(borrowed) == "to the application", "to the application");
        zamc_return_tty(borrowed);
        must(!is_open(borrowed), "return");
        must(read_from(service).empty(), "the end, at the service");
    });
    SKIP_IF_NOT_PERMITTED(status);
    EXPECT_EQ(status, 0);
}

TEST(Terminals, EachInstanceHasAServiceOfItsOwn) {
    const int status = with_own_run([] {
        const int first = listen_as("0");
        const int last = listen_as("4294967295");
        const int32_t to_last = zamc_borrow_tty(4294967295u);
        const int32_t to_first = zamc_borrow_tty(0);
        must(to_first >= 1 && to_last >= 1, "borrow");
        say(to_first, "first");
        say(to_last, "last");
        must(read_from(accept_from(first)) == "first", "the first instance");
        must(read_from(accept_from(last)) == "last", "the last instance");
    });
    SKIP_IF_NOT_PERMITTED(status);
    EXPECT_EQ(status, 0);
}

TEST(Terminals, AServiceThatDoesNotListenCannotBeBorrowed) {
    const int status = with_own_run([] {
        const int before = open_descriptors();
        const int listener = listen_as("5");
        close(listener); // the socket's file stays
        must(zamc_borrow_tty(5) == -1, "a service that is gone");
        must(write_text("/run/palmet/termd6.sock", "no socket"), "the file");
        must(zamc_borrow_tty(6) == -1, "a file that is no socket");
        must(zamc_borrow_tty(7) == -1, "an instance without a file");
        must(open_descriptors() == before, "the descriptors");
    });
    SKIP_IF_NOT_PERMITTED(status);
    EXPECT_EQ(status, 0);
}

TEST(Terminals, AnInstanceThatIsNotThereCannotBeBorrowed) {
    const DescriptorCheck descriptors;
    EXPECT_EQ(zamc_borrow_tty(4294967294u), -1);
}

TEST(Terminals, ReturningZeroLeavesStandardInputOpen) {
    const bool was_open = is_open(0);
    zamc_return_tty(0);
    EXPECT_EQ(is_open(0), was_open);
    zamc_return_tty(-1);
}

} // namespace
} // namespace zam::test
