// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// exchange PART [ROUNDS]: exchanges of this process with a real zamd and with the floor, turn by turn in one run, so
// that whatever else the machine does falls on both alike. Prints "FIGURE VALUE" lines for `run`.
//
//     rpc     small synchronous requests, on one core and on all
//     pull    10,000 and 100,000 entries of a list, as text and parsed
//     push    a leaf that changes, one subscriber asked
//     count   ROUNDS small requests to zamd and nothing else, for strace; count-floor the same with the floor
//     profile-rpc, profile-leaf, profile-pull, profile-pull-large, profile-push   without the floor, for a profiler
#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <optional>
#include <string_view>

#include <sys/prctl.h>
#include <unistd.h>

#include <zamc/zamc.h>

#include "floor.h"
#include "measure.h"
#include "processes.h"

namespace zam::bench {
namespace {

const std::string level = "/warehouse:settings/level";
const std::string all_shelves = "/warehouse:shelves/shelf";
const std::string shelves_above = "/warehouse:shelves"; // a floor can parse this one's value as it is

void _load_schema() {
    zam_log_config(ZAM_LOG_WRONG, zam_log_printf);
    require(zamc_initialize() == 0 && zamc_load_module(modules_path().c_str(), "warehouse") == 0,
            "cannot load the schema");
}

class Client {
public:
    explicit Client(const Zamd &zamd) : client_{zamc_client_new("bench", ZAM_ENCODE_JSON)} {
        require(client_ && zamc_connect(client_, zamd.url().c_str()) >= 0, "cannot connect");
    }
    ~Client() { zamc_client_free(client_); }
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;
    zamc_client *get() const { return client_; }

    void verify() const {
        bool consistent = false;
        require(zamc_consistency_check(client_, &consistent) == 0 && consistent, "the check failed");
    }
    int32_t pull(const std::string &path) const {
        zamc_bytes *value = pulled(path);
        const int32_t length = value->length;
        zamc_free_bytes(value);
        return length;
    }
    void pull_document(const std::string &path) const {
        zamc_bytes *value = pulled(path);
        zamc_doc *document = zamc_parse_bytes(value, path.c_str());
        require(document, "the value does not parse");
        zamc_free_doc(document);
        zamc_free_bytes(value);
    }
    void push(const std::string &path, const std::string &value) const {
        zamc_bytes *content = zamc_new_bytes(value.data(), static_cast<int32_t>(value.size()), ZAM_ENCODE_JSON);
        require(zamc_push(client_, path.c_str(), ZAMC_PUSH_MERGE, content) == 0, "the push failed");
        zamc_free_bytes(content);
    }

private:
    zamc_bytes *pulled(const std::string &path) const {
        zamc_bytes *value = nullptr;
        require(zamc_pull(client_, 0, path.c_str(), -1, &value) == 0 && value, "the pull failed");
        return value;
    }

    zamc_client *client_;
};

int32_t _agree(zamc_client *, uint32_t, uint32_t, int32_t, const char *, void *) {
    return 0;
}

int32_t _on_active(zamc_client *, int32_t, void *active, int32_t) {
    *static_cast<bool *>(active) = true;
    return 0;
}

// Serves until it is killed; tells by a byte on `ready` that it is active.
[[noreturn]] void _subscribe(const Zamd &zamd, int ready) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    _load_schema();
    const Client client{zamd};
    zamc_sub_node node{};
    node.target = "/warehouse:settings";
    node.type = ZAMC_SUB_CONFIG_CHANGE;
    node.priority = 100;
    node.filter_mask = ZAMC_CONFIG_CREATE | ZAMC_CONFIG_UPDATE | ZAMC_CONFIG_DELETE | ZAMC_SCENE_NORMAL;
    node.config = _agree;
    bool active = false;
    require(zamc_subscribe(client.get(), &node) == 0 && zamc_activate(client.get(), 0, _on_active, &active) == 0,
            "cannot subscribe");
    while (!active && zamc_run(client.get(), 10) == 0) {
    }
    require(active && write(ready, "r", 1) == 1, "the activation does not finish");
    while (zamc_run(client.get(), -1) == 0) {
    }
    _exit(0);
}

// A process with the library and one subscription.
class Subscriber {
public:
    explicit Subscriber(const Zamd &zamd) {
        std::array<int, 2> ready{};
        require(pipe(ready.data()) == 0, "pipe failed");
        pid_ = fork();
        require(pid_ >= 0, "fork failed");
        if (pid_ == 0) _subscribe(zamd, ready[1]);
        close(ready[1]);
        char byte = 0;
        require(read(ready[0], &byte, 1) == 1, "the subscriber did not start");
        close(ready[0]);
    }
    ~Subscriber() { reap(pid_, "the subscriber"); } // the server's end has ended it
    Subscriber(const Subscriber &) = delete;
    Subscriber &operator=(const Subscriber &) = delete;
    pid_t pid() const { return pid_; }

private:
    pid_t pid_;
};

// Turn by turn, `batch` times each, the first round unmeasured. Prints figure.one-core and figure.all-cores.
void _compare(const std::string &figure, const Cores &cores, int rounds, int batch, const std::function<void()> &ours,
              const std::function<void()> &floor) {
    for (const bool pinned : {true, false}) {
        if (pinned)
            cores.pin();
        else
            cores.spread();
        Samples of_ours;
        Samples of_floor;
        ours();
        floor();
        for (int round = 0; round < rounds; round++) {
            for (int i = 0; i < batch; i++)
                of_ours.time(ours);
            for (int i = 0; i < batch; i++)
                of_floor.time(floor);
        }
        report(figure + (pinned ? ".one-core" : ".all-cores"), of_ours, of_floor);
    }
}

void _add(Cores &cores, const Floor &floor) {
    for (const pid_t pid : floor.pids())
        cores.add(pid);
}

void _rpc(int rounds) {
    const std::string data = warehouse(0);
    Floor floor{data, false};
    const Zamd zamd{data};
    _load_schema();
    const Client client{zamd};
    Cores cores;
    cores.add(zamd.pid());
    _add(cores, floor);
    _compare(
        "rpc", cores, rounds, 20, [&] { client.verify(); }, [&] { floor.verify(); });
    _compare(
        "rpc-leaf", cores, rounds, 20, [&] { client.pull(level); }, [&] { floor.pull(level); });
}

// A list of some length in a zamd and in a floor of its own.
class List {
public:
    List(std::string name, int shelves)
        : name_{std::move(name)}, least_{static_cast<size_t>(shelves) * 100}, floor_{warehouse(shelves), false},
          zamd_{warehouse(shelves)} {}

    // Once the schema is there. Floors have to be started before.
    void connect(Cores &cores) {
        client_.emplace(zamd_);
        cores.add(zamd_.pid());
        _add(cores, floor_);
    }
    void pull() {
        ours.time([&] { require(client_->pull(all_shelves) > static_cast<int>(least_), "a short pull"); });
        floors.time([&] { require(floor_.pull(all_shelves).size() > least_, "a short pull"); });
    }
    void pull_parsed() {
        ours_parsed.time([&] { client_->pull_document(shelves_above); });
        floors_parsed.time([&] { floor_.pull_tree(shelves_above); });
    }
    void forget() { ours = floors = ours_parsed = floors_parsed = {}; }
    void report_all(const std::string &suffix) const {
        report(name_ + suffix, ours, floors);
        report(name_ + "-parsed" + suffix, ours_parsed, floors_parsed);
    }

    Samples ours, floors, ours_parsed, floors_parsed;

private:
    std::string name_;
    size_t least_; // bytes, so that no short reply counts as a fast one
    Floor floor_;
    Zamd zamd_;
    std::optional<Client> client_;
};

void _pull(int rounds) {
    List small{"pull-10k", 10000};
    List large{"pull-100k", 100000};
    _load_schema();
    Cores cores;
    small.connect(cores);
    large.connect(cores);
    for (const bool pinned : {true, false}) {
        pinned ? cores.pin() : cores.spread();
        for (int round = -1; round < rounds; round++) {
            for (int i = 0; i < 3; i++) {
                small.pull();
                small.pull_parsed();
            }
            large.pull();
            large.pull_parsed();
            if (round < 0) {
                small.forget();
                large.forget();
            }
        }
        const std::string suffix = pinned ? ".one-core" : ".all-cores";
        small.report_all(suffix);
        large.report_all(suffix);
        report("pull-growth" + suffix, large.ours.median() / small.ours.median());
        report("pull-growth-floor" + suffix, large.floors.median() / small.floors.median());
        small.forget();
        large.forget();
    }
}

void _push(int rounds) {
    const std::string data = warehouse(0);
    Floor floor{data, true};
    // The subscriber ends with its server, so it has to be destroyed after it.
    auto zamd = std::make_unique<Zamd>(data);
    const Subscriber subscriber{*zamd};
    _load_schema();
    {
        const Client client{*zamd};
        Cores cores;
        cores.add(zamd->pid());
        cores.add(subscriber.pid());
        _add(cores, floor);
        int ours = 0;
        int floors = 0;
        _compare(
            "push", cores, rounds, 10, [&] { client.push(level, std::to_string(100 + ours++ % 800)); },
            [&] { floor.push(level, "level", std::to_string(100 + floors++ % 800)); });
    }
    zamd.reset();
}

void _count(int rounds) {
    const Zamd zamd{warehouse(0)};
    _load_schema();
    const Client client{zamd};
    for (int i = 0; i < rounds; i++)
        client.verify();
}

void _count_floor(int rounds) {
    Floor floor{warehouse(0), false};
    _load_schema();
    for (int i = 0; i < rounds; i++)
        floor.verify();
}

void _profile(int shelves, int rounds, const std::function<void(const Client &)> &work) {
    const Zamd zamd{warehouse(shelves)};
    _load_schema();
    const Client client{zamd};
    for (int i = 0; i < rounds; i++)
        work(client);
}

void _profile_push(int rounds) {
    auto zamd = std::make_unique<Zamd>(warehouse(0));
    const Subscriber subscriber{*zamd};
    _load_schema();
    {
        const Client client{*zamd};
        for (int i = 0; i < rounds; i++)
            client.push(level, std::to_string(100 + i % 800));
    }
    zamd.reset();
}

struct Part {
    std::string_view name;
    int rounds;
    void (*run)(int rounds);
};

constexpr std::array<Part, 10> parts{{
    {"rpc", 100, _rpc},
    {"pull", 12, _pull},
    {"push", 100, _push},
    {"count", 100, _count},
    {"count-floor", 100, _count_floor},
    {"profile-rpc", 20000, [](int rounds) { _profile(0, rounds, [](const Client &client) { client.verify(); }); }},
    {"profile-leaf", 20000, [](int rounds) { _profile(0, rounds, [](const Client &client) { client.pull(level); }); }},
    {"profile-pull", 50,
     [](int rounds) { _profile(10000, rounds, [](const Client &client) { client.pull(all_shelves); }); }},
    {"profile-pull-large", 10,
     [](int rounds) { _profile(100000, rounds, [](const Client &client) { client.pull(all_shelves); }); }},
    {"profile-push", 5000, _profile_push},
}};

} // namespace
} // namespace zam::bench

int main(int argc, char **argv) {
    using namespace zam::bench;
    for (const Part &part : parts) {
        if (argc < 2 || part.name != argv[1]) continue;
        part.run(argc > 2 ? std::atoi(argv[2]) : part.rounds);
        return 0;
    }
    std::fprintf(stderr, "usage: %s PART [ROUNDS]\nparts:", argv[0]);
    for (const Part &part : parts)
        std::fprintf(stderr, " %s", std::string{part.name}.c_str());
    std::fprintf(stderr, "\n");
    return 2;
}
