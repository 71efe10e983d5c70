// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "acceptor.h"

#include <cerrno>
#include <cstring>
#include <string_view>

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <zamc/logger.h>
#include <zamc/sock_wrap.h>

#include "server.h"

namespace zamd {
namespace {

constexpr int accepted_per_turn = 32;
constexpr std::chrono::milliseconds next_turn{0};
// Without a free descriptor the listening socket stays readable for ever: asking again at once would spin.
constexpr std::chrono::milliseconds exhausted_pause{500};

bool _connection_is_at_fault(int error) {
    return error == ECONNABORTED || error == EINTR || error == EPROTO || error == EPERM;
}

// The socket's file never shows itself wider than its URL says, not even between bind and chmod.
int _listen(const std::string &url) {
    const mode_t before = umask(0777);
    const int fd = zam_socket_listen(url.c_str());
    umask(before);
    return fd;
}

// Somebody listens there, be it one who is too busy to accept.
bool _is_served(const std::string &path) {
    sockaddr_un address{};
    if (path.size() >= sizeof address.sun_path) return false;
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, path.size());
    const Descriptor fd{socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)};
    return connect(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 || errno == EAGAIN;
}

// Listening on a unix path takes away whatever is there. Only what a dead server left behind may go that way; the
// reason why it must stay, or nothing.
std::string _in_the_way(const std::string &url) {
    constexpr std::string_view scheme = "unix://";
    const size_t mode = url.rfind(':');
    if (!url.starts_with(scheme) || mode < scheme.size()) return {};
    const std::string path = url.substr(scheme.size(), mode - scheme.size());
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) return {};
    if (!S_ISSOCK(status.st_mode)) return "there is a file that is no socket";
    return _is_served(path) ? std::strerror(EADDRINUSE) : std::string{};
}

} // namespace

Acceptor::Acceptor(Server &server, std::string url, Descriptor fd)
    : server_(server), url_(std::move(url)), fd_(std::move(fd)) {}

Acceptor::~Acceptor() {
    server_.timers().cancel(pause_);
    if (trigger_) zam_trigger_unarm(server_.proactor(), trigger_.get());
    zam_socket_listen_release(url_.c_str());
}

Result<std::unique_ptr<Acceptor>> Acceptor::open(Server &server, const std::string &url) {
    if (const std::string obstacle = _in_the_way(url); !obstacle.empty())
        return refusal("operation-failed", "cannot listen on " + url + ": " + obstacle);
    errno = 0;
    Descriptor fd{_listen(url)};
    if (fd.get() < 0) {
        const std::string why = errno == 0 ? "it is no address to listen on" : std::strerror(errno);
        return refusal("operation-failed", "cannot listen on " + url + ": " + why);
    }
    zam_socket_block(fd.get(), 0);
    fcntl(fd.get(), F_SETFD, FD_CLOEXEC);
    std::unique_ptr<Acceptor> acceptor{new Acceptor{server, url, std::move(fd)}};
    acceptor->trigger_.reset(zam_trigger_new(acceptor->fd_.get(), acceptor.get(), on_wake, nullptr));
    if (!acceptor->trigger_ || zam_trigger_arm(server.proactor(), acceptor->trigger_.get(), EPOLLIN) != 0)
        return refusal("operation-failed", "cannot watch " + url);
    return acceptor;
}

void Acceptor::on_wake(zam_proactor *, void *arg, uint32_t) {
    auto &acceptor = *static_cast<Acceptor *>(arg);
    if (acceptor.pause_ == 0) acceptor.accept_some();
}

void Acceptor::accept_some() {
    for (int i = 0; i < accepted_per_turn; i++) {
        Descriptor fd{zam_socket_accept(fd_.get())};
        if (fd.get() >= 0) {
            server_.welcome(std::move(fd));
            continue;
        }
        if (errno == EAGAIN || errno == EWOULDBLOCK) return;
        if (!_connection_is_at_fault(errno)) return pause();
    }
    pause_ = server_.timers().after(next_turn, [this] {
        pause_ = 0;
        accept_some();
    });
}

void Acceptor::pause() {
    zam_log_printf(ZAM_LOG_WARN, "Accepting on %s pauses: %s.\n", url_.c_str(), std::strerror(errno));
    pause_ = server_.timers().after(exhausted_pause, [this] {
        pause_ = 0;
        accept_some();
    });
}

} // namespace zamd
