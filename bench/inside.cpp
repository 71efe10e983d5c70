// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// What happens inside one process, with Google Benchmark. All of it goes through the public headers.
#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include <zamc/zamc.h>

#include "floor.h"
#include "measure.h"
#include "processes.h"

namespace zam::bench {
namespace {

constexpr char request_json = 0x12;
constexpr char reply_json = 0x22;
constexpr char other_json = '\x82'; // a frame of type 3, which goes to the application's callback
constexpr std::string_view small_payload = R"({"event":"door opened","door":7})";

std::string _frames(int64_t count, char type) {
    std::array<char, ZAM_MESSAGE_HEADER_SIZE> header{0, '\xFB', '\xBF', 0, type};
    header.back() = static_cast<char>(small_payload.size());
    std::string frames;
    for (int64_t i = 0; i < count; i++)
        frames.append(header.data(), header.size()).append(small_payload);
    return frames;
}

// A server for one client: answers its registration, and each later request, whose payload is a number, with so many
// small frames before the reply. So the frames wait in the client's read buffer when its call returns. The client asks
// then for an echo, to wake up for them; it gets a reply that nobody waits for, which does the same.
class Burster {
public:
    Burster() {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, folder_.path("s").c_str(), sizeof address.sun_path - 1);
        listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        require(listener_ >= 0 && bind(listener_, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 &&
                    listen(listener_, 1) == 0,
                "cannot listen");
        thread_ = std::thread{[this] { serve(); }};
    }
    ~Burster() {
        thread_.join(); // the client has disconnected
        close(listener_);
    }
    Burster(const Burster &) = delete;
    Burster &operator=(const Burster &) = delete;
    std::string url() const { return "unix://" + folder_.path("s"); }

private:
    void serve() const {
        const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        FloorChannel channel{fd};
        FloorFrame frame{};
        require(channel.receive(frame), "no registration");
        channel.send(reply_json, frame.seq, {R"({"orvel-zam-server:register":{"session-id":1}})"});
        while (channel.receive(frame)) {
            const uint32_t seq = frame.seq;
            const std::string burst = _frames(std::atoi(frame.payload.data()), other_json);
            for (size_t sent = 0; sent < burst.size();) {
                const ssize_t part = ::send(fd, burst.data() + sent, burst.size() - sent, MSG_NOSIGNAL);
                require(part > 0, "the client is gone");
                sent += static_cast<size_t>(part);
            }
            channel.send(reply_json, seq, {});
        }
        close(fd);
    }

    TemporaryFolder folder_;
    int listener_ = -1;
    std::thread thread_;
};

int32_t _count_frame(zamc_client *, uint32_t, const zam_message *, void *count) {
    ++*static_cast<int64_t *>(count);
    return 0;
}

void dispatch_waiting_frames(benchmark::State &state) {
    const Burster burster;
    zamc_client *client = zamc_client_new("bench", ZAM_ENCODE_JSON);
    int64_t count = 0;
    require(client && zamc_connect(client, burster.url().c_str()) >= 0 &&
                zamc_set_message_recv_cb(client, _count_frame, &count) == 0,
            "cannot connect");
    const std::string request = std::to_string(state.range(0));
    zamc_bytes *payload = zamc_new_bytes(request.data(), static_cast<int32_t>(request.size()), ZAM_ENCODE_JSON);
    for (auto _ : state) {
        state.PauseTiming();
        count = 0;
        zamc_bytes *reply = nullptr;
        require(zamc_send_rpc_sync(client, payload, &reply, 60000) == 0, "no reply");
        state.ResumeTiming();
        while (count < state.range(0))
            require(zamc_run(client, 0) == 0, "the connection is lost");
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    zamc_free_bytes(payload);
    zamc_client_free(client);
}
BENCHMARK(dispatch_waiting_frames)
    ->Arg(10000)
    ->Arg(30000)
    ->Arg(100000)
    ->Arg(300000)
    ->Iterations(50)
    ->Unit(benchmark::kMicrosecond);

// A connector on one end of a socket pair.
struct Connection {
    Connection() : proactor{zam_proactor_new()} {
        require(proactor && socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()) == 0, "no socket");
        connector = zam_connector_new(proactor, ends[0], nullptr);
        require(connector, "no connector");
    }
    ~Connection() {
        zam_connector_free(connector);
        zam_proactor_free(proactor);
        close(ends[1]);
    }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    std::array<int, 2> ends{};
    zam_proactor *proactor;
    zam_connector *connector = nullptr;
};

void peek_and_pop(benchmark::State &state) {
    const Connection connection;
    const std::string frames = _frames(state.range(0), request_json);
    for (auto _ : state) {
        state.PauseTiming();
        zam_connector_reentry(connection.connector, frames.data(), static_cast<uint32_t>(frames.size()));
        state.ResumeTiming();
        int64_t count = 0;
        for (;; count++) {
            uint32_t length = 0;
            char *input = zam_connector_readbuf(connection.connector, &length);
            zam_message message;
            if (!input || zam_message_peek(input, length, &message) == 0) break;
            zam_message_pop(connection.connector, &message);
        }
        require(count == state.range(0), "frames are missing");
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(peek_and_pop)->Arg(10000)->Arg(100000)->Iterations(50)->Unit(benchmark::kMicrosecond);

void normal_form_of_a_path(benchmark::State &state) {
    constexpr std::array<const char *, 3> paths{
        "/warehouse:settings/level", "/warehouse:shelves/shelf[name='shelf-000017']/label",
        R"(/m:a/list[first='it is "quoted"'][m:second=unquoted]/b/c/list[.="\\ and \""]/d/e/f/g/h/i/j/k)"};
    const char *path = paths[static_cast<size_t>(state.range(0))];
    for (auto _ : state) {
        char *text = zam_format_data_path(path, 1);
        require(text, "the path does not parse");
        zam_free(text);
    }
    state.SetLabel(path);
}
BENCHMARK(normal_form_of_a_path)->DenseRange(0, 2);

const ly_ctx *_ctx() {
    return zam_clients_schema_ctx();
}

// A builder's tree is made, printed as the client prints it, and destroyed.
template <typename Build>
void _build(benchmark::State &state, Build &&build) {
    for (auto _ : state) {
        lyd_node *tree = build();
        char *text = zam_lyd_tree_dump(tree, LYD_JSON, nullptr);
        require(text, "the request cannot be built");
        std::free(text);
        zam_lyd_tree_destroy(tree);
    }
}

void build_register(benchmark::State &state) {
    const zam_register_attrs attributes{ZAM_ENCODE_JSON, 30, "first second", 1};
    _build(state, [&] { return zam_message_build_register("bench", &attributes, _ctx()); });
}
BENCHMARK(build_register);

void build_subscribe(benchmark::State &state) {
    std::string target = "/warehouse:settings";
    zam_suber suber{};
    suber.target = target.data();
    suber.type = ZAMC_SUB_CONFIG_CHANGE;
    suber.priority = 100;
    suber.filter_mask = ZAMC_CONFIG_UPDATE | ZAMC_SCENE_NORMAL;
    suber.status = 0x101;
    zam_vector *subers = zam_vector_init(1);
    require(subers && zam_vector_add(&subers, &suber, nullptr) == 0, "no vector");
    _build(state, [&] { return zam_message_build_subscribe(subers, _ctx()); });
    zam_vector_free(subers, nullptr);
}
BENCHMARK(build_subscribe);

void build_pull(benchmark::State &state) {
    _build(state, [] { return zam_message_build_pull(nullptr, 0, "/warehouse:settings/level", -1, _ctx()); });
}
BENCHMARK(build_pull);

void build_push(benchmark::State &state) {
    std::string text = "7";
    const zamc_bytes content{ZAM_ENCODE_JSON, 1, text.data()};
    _build(state,
           [&] { return zam_message_build_push(nullptr, "/warehouse:settings/level", "merge", &content, _ctx()); });
}
BENCHMARK(build_push);

void build_verify_configuration(benchmark::State &state) {
    _build(state, [] { return zam_message_build_verify_cfg("bench", _ctx()); });
}
BENCHMARK(build_verify_configuration);

void build_publish_output(benchmark::State &state) {
    _build(state, [] { return zam_message_build_publish_output(nullptr, _ctx()); });
}
BENCHMARK(build_publish_output);

} // namespace
} // namespace zam::bench

int main(int argc, char **argv) {
    zam_log_config(ZAM_LOG_WRONG, zam_log_printf);
    zam::bench::require(zamc_initialize() == 0, "no schema context");
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
