// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// What a client asks the server: the real server with an empty store, and a session whose peer is the input. Whatever
// it says, a second session is served afterwards.
#include <sys/socket.h>
#include <unistd.h>

#include <zamc/client.h>
#include <zamc/message.h>
#include <zamc/sock_wrap.h>
#include <zamc/utils.h>

#include "fuzz.h"
#include "link.h"
#include "server.h"
#include "support/frames.h"
#include "support/test_schema.h"

namespace zam::fuzz {
namespace {

constexpr char hello[] = R"({"orvel-zam-server:register":{"name":"fuzz","attribute":{"encode":"json"}}})";

constexpr int rounds_a_frame = 8; // accepting, reading, a transaction, and what it asks others

class Peer {
public:
    explicit Peer(zamd::Server &server) : server_{server} {
        int ends[2];
        FUZZ_EXPECT(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) == 0);
        fd_ = ends[0];
        server.welcome(zamd::Descriptor{ends[1]});
    }
    ~Peer() { close(fd_); }
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    void send(uint32_t type, uint32_t seq, uint32_t encoding, const std::string &payload) {
        const std::string bytes = test::encode({static_cast<test::Kind>(type), seq, encoding, payload});
        (void)!::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        for (int i = 0; i < rounds_a_frame; ++i)
            server_.round(0);
        take();
    }
    const std::string &received() const { return received_; }

private:
    void take() {
        char bytes[65536];
        for (ssize_t count; (count = recv(fd_, bytes, sizeof bytes, MSG_DONTWAIT)) > 0;)
            received_.append(bytes, static_cast<size_t>(count));
    }

    zamd::Server &server_;
    int fd_;
    std::string received_;
};

} // namespace

void start() {
    test::test_context();
}

void run(std::string_view input) {
    zamd::Store store{zam_clients_schema_ctx()};
    zamd::Server server{zam_clients_schema_ctx(), store, zamd::Limits{}};
    {
        Peer hostile{server};
        Input in{input};
        if (in.byte() != 'u') hostile.send(ZAM_MESSAGE_REQUEST, 1, ZAM_ENCODE_JSON, hello);
        while (!in.empty()) {
            const Record record{in.until(record_separator)};
            hostile.send(record.type, record.seq, record.encoding, record.payload);
        }
        if (planted() && hostile.received().find("data-exists") != std::string::npos) planted_fault();
    }
    Peer other{server};
    other.send(ZAM_MESSAGE_REQUEST, 1, ZAM_ENCODE_JSON, hello);
    FUZZ_EXPECT(other.received().find("session-id") != std::string::npos);
}

} // namespace zam::fuzz
