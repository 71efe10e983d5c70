// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "link.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include <sys/socket.h>
#include <unistd.h>
#include <zamc/message.h>
#include <zamc/sock_wrap.h>
#include <zamc/utils.h>

#include "fuzz.h"
#include "support/files.h"
#include "support/frames.h"

namespace zam::fuzz {
namespace {

// Accepts connections and answers what each sends first, the registration; lives as long as the process.
class Acceptor {
public:
    Acceptor() : url_{"unix://" + dir_.path("s")}, listening_{zam_socket_listen((url_ + ":600").c_str())} {
        FUZZ_EXPECT(listening_ >= 0);
        std::thread{[this] { serve(); }}.detach();
    }
    const std::string &url() const { return url_; }
    // How many requests of the next connection are answered before it is handed out.
    void expect(int requests) { requests_ = requests; }
    int take() {
        std::unique_lock lock{mutex_};
        ready_.wait(lock, [this] { return accepted_ >= 0; });
        return std::exchange(accepted_, -1);
    }

private:
    void serve() {
        for (;;) {
            const int fd = accept4(listening_, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0) continue;
            answer(fd);
            std::lock_guard lock{mutex_};
            accepted_ = fd;
            ready_.notify_one();
        }
    }
    void answer(int fd) {
        test::Decoder decoder;
        char bytes[4096];
        for (int answered = 0; answered < requests_;) {
            const ssize_t count = read(fd, bytes, sizeof bytes);
            if (count <= 0) return;
            decoder.feed({bytes, static_cast<size_t>(count)});
            for (; const auto request = decoder.next(); ++answered) {
                const std::string reply = test::encode({test::Kind::reply, request->seq, 2, {}});
                FUZZ_EXPECT(write(fd, reply.data(), reply.size()) == static_cast<ssize_t>(reply.size()));
            }
        }
    }

    test::TempDir dir_;
    std::string url_;
    int listening_;
    std::atomic<int> requests_ = 1;
    std::mutex mutex_;
    std::condition_variable ready_;
    int accepted_ = -1;
};

Acceptor &acceptor() {
    static auto *const only = new Acceptor; // its thread never ends
    return *only;
}

} // namespace

Link::Link(std::span<const zamc_sub_node> subscriptions) : client_{zamc_client_new("fuzz", ZAM_ENCODE_JSON)} {
    acceptor().expect(subscriptions.empty() ? 1 : 3); // register, subscribe, activate
    FUZZ_EXPECT(client_ && zamc_connect(client_, acceptor().url().c_str()) >= 0);
    for (const zamc_sub_node &node : subscriptions)
        FUZZ_EXPECT(zamc_subscribe(client_, &node) == 0);
    if (!subscriptions.empty()) FUZZ_EXPECT(zamc_activate(client_, 0, nullptr, nullptr) == 0);
    peer_ = acceptor().take();
    FUZZ_EXPECT(zam_socket_block(peer_, 0) == 0);
}

Link::~Link() {
    zamc_client_free(client_);
    close(peer_);
}

void Link::send(uint32_t type, uint32_t seq, uint32_t encoding, std::string_view payload) {
    test::Frame frame{static_cast<test::Kind>(type), seq, encoding, std::string{payload}};
    write(test::encode(frame));
}

size_t Link::write(std::string_view bytes) {
    const ssize_t sent = ::send(peer_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    return sent < 0 ? 0 : static_cast<size_t>(sent);
}

std::string Link::received() {
    std::string all;
    char bytes[65536];
    for (ssize_t count; (count = recv(peer_, bytes, sizeof bytes, MSG_DONTWAIT)) > 0;)
        all.append(bytes, static_cast<size_t>(count));
    return all;
}

void Link::settle() {
    for (int round = 0; round < 20 && zamc_run(client_, 0) > 0; ++round) {
    }
    received();
}

Record::Record(const std::string &text) {
    Input in{text};
    const uint8_t kind = in.byte();
    type = (kind >> 1) % 6;
    encoding = kind % 2 == 0 ? ZAM_ENCODE_JSON : ZAM_ENCODE_XML;
    seq = in.byte();
    payload = in.rest();
}

} // namespace zam::fuzz
