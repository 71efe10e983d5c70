// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// 64 clients, a process each, do at random what clients do with one server: read, change, subscribe, handle, ask and
// answer, go away and come back, cut their connection. Now and then one of them is killed and another one takes its
// place. The server's memory stays where it was after the warm-up, its threads and descriptors as they were, nobody
// hangs, and a client that ends in order leaves no block behind.
//
// With ZAMC_PLANT one client forgets a block.
#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstring>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <span>
#include <vector>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zamc/zamc.h>

#include "e2e/app.h"
#include "support/heap.h"
#include "torture/cells.h"
#include "torture/proc.h"

namespace zam::torture {
namespace {

using test::Heap;
using test::Server;

constexpr int client_count = 64;
constexpr uint32_t timeout_ms = 5000;
constexpr double stuck_ms = 60000; // of a client that gets nothing done
constexpr double kill_every_ms = 500;
constexpr uint64_t most_growth_kb = 1024;
constexpr uint64_t most_growth_of_share_kb = 16384; // in seconds the heap has not found its size yet
constexpr double share_s = 120;                     // a shorter run is a share
constexpr int exit_leak = 3;
constexpr int exit_hooks = 4;

// Shared with the clients.
struct Count {
    std::atomic<uint64_t> done;
    std::atomic<uint64_t> refused; // said no, or not in time
    std::atomic<uint64_t> handled;
    std::atomic<uint64_t> connections;
};

volatile std::sig_atomic_t stopping = 0;

std::string interface_of(int index) {
    return "/ietf-interfaces:interfaces/interface[name=\"w" + std::to_string(index) + "\"]";
}

class Worker {
public:
    Worker(int index, uint64_t seed, std::string url, Count &count)
        : index_{index}, random_{seed}, url_{std::move(url)}, count_{count} {
        renew();
    }
    ~Worker() { zamc_client_free(client_); }
    Worker(const Worker &) = delete;
    Worker &operator=(const Worker &) = delete;

    void work() {
        static constexpr void (Worker::*actions[])() = {
            &Worker::pull,   &Worker::pull,     &Worker::pull,       &Worker::push,  &Worker::push,
            &Worker::ask,    &Worker::ask,      &Worker::heartbeat,  &Worker::entry, &Worker::operation,
            &Worker::status, &Worker::document, &Worker::attribute,  &Worker::large, &Worker::reconnect,
            &Worker::cut,    &Worker::renew,    &Worker::resubscribe};
        if (below(4) != 0) (this->*actions[below(std::size(actions))])();
        if (zamc_run(client_, static_cast<int32_t>(below(40))) != 0) connect();
        ++count_.done;
    }

private:
    uint32_t below(size_t end) { return static_cast<uint32_t>(random_() % end); }

    void note(int32_t result) { count_.refused += result != 0; }

    void connect() {
        if (zamc_connect(client_, url_.c_str()) < 0) {
            poll_a_little();
            return note(-1);
        }
        ++count_.connections;
        note(zamc_activate(client_, index_ % 3 == 0, nullptr, nullptr));
    }
    static void poll_a_little() { usleep(20000); }

    void subscribe() {
        const std::string own = index_ % 16 == 0 ? "/ietf-interfaces:interfaces/interface" : interface_of(index_);
        const std::string state =
            "/ietf-interfaces:interfaces-state/interface[name=\"w" + std::to_string(index_) + "\"]/if-index";
        zamc_sub_node node{};
        node.user = this;
        node.target = own.c_str();
        node.type = ZAMC_SUB_CONFIG_CHANGE;
        node.filter_mask = ZAMC_SCENE_NORMAL | ZAMC_SCENE_CFGR | 0xF;
        node.config = on_config;
        note(zamc_subscribe(client_, &node));
        node.target = state.c_str();
        node.type = ZAMC_SUB_STATUS_QUERY;
        node.status = on_status;
        note(zamc_subscribe(client_, &node));
        if (index_ != 1) return;
        node.target = "/ietf-system:system-restart";
        node.type = ZAMC_SUB_OPERATION;
        node.operation = on_operation;
        note(zamc_subscribe(client_, &node));
    }

    void renew() {
        zamc_client_free(client_);
        client_ = zamc_client_new(("w" + std::to_string(index_)).c_str(), below(2) ? ZAM_ENCODE_JSON : ZAM_ENCODE_XML);
        zamc_set_attr(client_, ZAMC_ATTR_SYNC_TIMEOUT, &timeout_ms, sizeof timeout_ms);
        subscribe();
        connect();
    }
    void reconnect() {
        zamc_disconnect(client_);
        connect();
    }
    // The connection ends without the library's doing.
    void cut() {
        const int fd = zamc_connect(client_, url_.c_str());
        if (fd < 0) return note(-1);
        ask();
        shutdown(fd, SHUT_RDWR);
        pull();
    }
    void resubscribe() {
        zamc_sub_node node{};
        const std::string target = interface_of(static_cast<int>(below(client_count)));
        node.target = target.c_str();
        node.type = ZAMC_SUB_CONFIG_CHANGE_BRIEF;
        node.config_brief = on_brief;
        node.user = this;
        note(zamc_subscribe(client_, &node));
        note(zamc_activate(client_, 0, nullptr, nullptr));
        zamc_run(client_, 10);
        note(zamc_unsubscribe(client_, &node));
        note(zamc_activate(client_, 0, nullptr, nullptr));
    }

    void pull() {
        const std::string own = interface_of(static_cast<int>(below(client_count)));
        const std::string paths[] = {own, own, "/ietf-interfaces:interfaces", "/radio:radio", "/"};
        pull(paths[below(std::size(paths))]);
    }
    void pull(const std::string &path) {
        zamc_bytes *text = nullptr;
        note(zamc_pull(client_, 0, path.c_str(), -1, &text));
        zamc_free_bytes(text);
    }
    void status() {
        static constexpr char operational[] = "ietf-datastores:operational";
        static constexpr char running[] = "ietf-datastores:running";
        zamc_set_attr(client_, ZAMC_ATTR_TARGET_DS, operational, sizeof operational);
        pull("/ietf-interfaces:interfaces-state/interface[name=\"w" + std::to_string(below(client_count)) + "\"]");
        zamc_set_attr(client_, ZAMC_ATTR_TARGET_DS, running, sizeof running);
    }
    void push(const std::string &path, int32_t operation, const std::string &text) {
        zamc_bytes *bytes = zamc_new_bytes(text.data(), static_cast<int32_t>(text.size()), ZAM_ENCODE_JSON);
        note(zamc_push(client_, path.c_str(), operation, bytes));
        zamc_free_bytes(bytes);
    }
    void push() {
        push(interface_of(static_cast<int>(below(client_count))) + "/description", ZAMC_PUSH_MERGE,
             std::string(below(100), 'x') + std::to_string(random_()));
    }
    void large() { push("/radio:radio/motto", ZAMC_PUSH_MERGE, std::string(below(100000), 'y')); }
    void entry() {
        const std::string path = "/radio:radio/preset[name=\"p" + std::to_string(below(20)) + "\"]";
        below(2) ? push(path, ZAMC_PUSH_MERGE, R"({"frequency":)" + std::to_string(below(1000)) + "}")
                 : push(path, ZAMC_PUSH_REMOVE, "");
    }
    void ask() {
        for (uint32_t left = 1 + below(5); left > 0; --left)
            send(R"({"orvel-zam-server:pull":{"entity":"/radio:radio"}})");
    }
    void send(const char *text) {
        zamc_bytes *bytes = zamc_new_bytes(text, static_cast<int32_t>(std::strlen(text)), ZAM_ENCODE_JSON);
        note(zamc_send_rpc_asyn(client_, bytes, on_reply, this));
        zamc_free_bytes(bytes);
    }
    void operation() { send(R"({"ietf-system:system-restart":{}})"); }
    void heartbeat() { note(zamc_send_heartbeat(client_)); }
    void attribute() {
        const auto deadline = static_cast<int32_t>(below(5));
        note(zamc_set_attr(client_, ZAMC_ATTR_DEADLINE, &deadline, sizeof deadline));
    }
    void document() {
        zamc_doc *doc = zamc_new_doc(ZAM_ENCODE_JSON);
        for (uint32_t i = 0; i < 5; ++i)
            zamc_new_node(doc, (interface_of(static_cast<int>(i)) + "/description").c_str(), "%u", below(1000));
        zamc_bytes *text = zamc_format_doc(doc, below(2) ? ZAM_ENCODE_JSON : ZAM_ENCODE_XML);
        zamc_free_doc(doc);
        zamc_doc *again = zamc_parse_bytes(text, "/");
        note(again ? 0 : -1);
        zamc_free_doc(again);
        zamc_free_bytes(text);
    }

    static Worker &of(void *user) { return *static_cast<Worker *>(user); }
    static int32_t on_config(zamc_client *client, uint32_t, uint32_t, int32_t, const char *target, void *user) {
        Worker &worker = of(user);
        ++worker.count_.handled;
        zamc_bytes *text = nullptr;
        if (worker.below(4) == 0) worker.note(zamc_diff(client, target, -1, &text));
        zamc_free_bytes(text);
        if (worker.below(20) != 0) return 0;
        zamc_error_set(client, 1, "not %s", target);
        return -1;
    }
    static int32_t on_brief(zamc_client *, uint32_t, uint32_t, const char *, void *user) {
        ++of(user).count_.handled;
        return 0;
    }
    static int32_t on_status(zamc_client *, const char *, void *, zamc_bytes **output, void *user) {
        ++of(user).count_.handled;
        *output = zamc_new_bytes("7", 1, ZAM_ENCODE_JSON);
        return 0;
    }
    static int32_t on_operation(zamc_client *, const zamc_bytes *, zamc_bytes **, void *user) {
        ++of(user).count_.handled;
        return 0;
    }
    static int32_t on_reply(zamc_client *, const zam_message *, void *user) {
        ++of(user).count_.handled;
        return 0;
    }

    int index_;
    std::mt19937_64 random_;
    std::string url_;
    Count &count_;
    zamc_client *client_ = nullptr;
};

[[noreturn]] void run_worker(int index, uint64_t seed, const std::string &url, Count &count) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    std::signal(SIGTERM, [](int) { stopping = 1; });
    int status = 0;
    {
        const Heap heap;
        {
            Worker worker{index, seed, url, count};
            while (!stopping)
                worker.work();
        }
        if (planted() && index == 3) static_cast<void>(zam_malloc(32));
        if (heap.allocations() == 0) status = exit_hooks;
        if (heap.live() != 0) {
            std::printf("client %d leaves:\n%s", index, heap.live_sites().c_str());
            std::fflush(stdout);
            status = exit_leak;
        }
        _exit(status); // the hooks stay: what the library keeps until the process ends is released with them
    }
}

// Its allocator keeps what was released for a while.
bool is_under_address_sanitizer() {
#if defined(__SANITIZE_ADDRESS__)
    return true;
#elif defined(__has_feature)
    return __has_feature(address_sanitizer);
#else
    return false;
#endif
}

uint64_t median(std::vector<uint64_t> values) {
    if (values.empty()) return 0;
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

class Soak {
public:
    explicit Soak(double seconds) : length_ms_{seconds * 1000}, server_{options()} {
        test::load_models();
        zam_log_config(ZAM_LOG_EMERG, zam_log_printf);
        void *shared =
            mmap(nullptr, sizeof(Count) * client_count, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        counts_ = {new (shared) Count[client_count]{}, client_count};
        const test::Operator first{server_.url()}; // a server that serves one has opened all that is its own
        calm_ = state_of(server_.pid());
        --calm_.descriptors;
    }

    bool run() {
        const auto start = Clock::now();
        for (int index = 0; index < client_count; ++index)
            begin(index);
        // The first sixth, at most five minutes, is for the heaps to find their size.
        const double warm_ms = std::min(length_ms_ / 6, 300000.0);
        double next_kill = kill_every_ms;
        for (double now = 0; now < length_ms_; now = ms_since(start)) {
            usleep(100000);
            look(now > warm_ms);
            if (now < next_kill) continue;
            next_kill += kill_every_ms;
            kill_one();
        }
        end();
        return report(ms_since(start) / 1000);
    }

private:
    struct Child {
        int index;
        Clock::time_point born;
        uint64_t done;
        Clock::time_point progress;
    };

    static Server::Options options() {
        Server::Options options;
        std::string entries;
        for (int index = 0; index < client_count; ++index)
            entries += std::string{index ? "," : ""} + R"({"name":"w)" + std::to_string(index) +
                       R"(","type":"iana-if-type:ethernetCsmacd"})";
        options.startup = R"({"ietf-interfaces:interfaces":{"interface":[)" + entries + "]}}";
        options.modules = test::real_models_and_radio();
        options.arguments = {"--publish-timeout", "2"};
        options.log_level = "3"; // or hours of it fill the disk
        return options;
    }

    void begin(int index) {
        std::fflush(stdout);
        const uint64_t seed = random_();
        const pid_t pid = fork();
        if (pid == 0) run_worker(index, seed, server_.url(), counts_[static_cast<size_t>(index)]);
        children_[pid] = {index, Clock::now(), counts_[static_cast<size_t>(index)].done, Clock::now()};
    }

    void look(bool warm) {
        const ProcessState state = state_of(server_.pid());
        most_descriptors_ = std::max(most_descriptors_, state.descriptors);
        tally_.expect(state.threads == calm_.threads, "server", "has " + std::to_string(state.threads) + " threads");
        if (warm) resident_.push_back(state.resident_kb);
        if (warm) client_resident_.push_back(state_of(child_of(0)).resident_kb);
        for (auto &[pid, child] : children_) {
            const uint64_t done = counts_[static_cast<size_t>(child.index)].done;
            if (done != child.done) child.progress = Clock::now();
            child.done = done;
            if (ms_since(child.progress) < stuck_ms) continue;
            tally_.expect(false, "client " + std::to_string(child.index), "gets nothing done");
            child.progress = Clock::now();
        }
        int raw = 0;
        for (pid_t pid; (pid = waitpid(-1, &raw, WNOHANG)) > 0;)
            ended(pid, raw);
    }

    pid_t child_of(int index) const {
        const auto found = std::find_if(children_.begin(), children_.end(),
                                        [&](const auto &each) { return each.second.index == index; });
        return found == children_.end() ? -1 : found->first;
    }

    // A client ended by itself, or the server did.
    void ended(pid_t pid, int raw) {
        const auto found = children_.find(pid);
        const std::string who = found == children_.end() ? "server" : "client " + std::to_string(found->second.index);
        tally_.expect(WIFEXITED(raw) && WEXITSTATUS(raw) == 0, who, "ends with wait status " + std::to_string(raw));
        if (found != children_.end()) children_.erase(found);
    }

    // Not the first one, whose memory is watched.
    void kill_one() {
        const int index = 1 + static_cast<int>(random_() % (client_count - 1));
        const pid_t pid = child_of(index);
        if (pid > 0) {
            ::kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
            children_.erase(pid);
            ++kills_;
        }
        begin(index);
    }

    void end() {
        for (const auto &child : children_)
            ::kill(child.first, SIGTERM);
        const bool all = eventually(
            [&] {
                int raw = 0;
                for (pid_t pid; (pid = waitpid(-1, &raw, WNOHANG)) > 0;)
                    ended(pid, raw);
                return children_.empty();
            },
            milliseconds{60000});
        tally_.expect(all, "end", std::to_string(children_.size()) + " clients do not end");
        for (const auto &child : children_)
            ::kill(child.first, SIGKILL);
        const bool calm =
            eventually([&] { return state_of(server_.pid()).descriptors == calm_.descriptors; }, milliseconds{5000});
        tally_.expect(calm, "server", "keeps descriptors of clients that are gone");
        tally_.expect(most_descriptors_ <= calm_.descriptors + 4 * client_count, "server", "had too many descriptors");
    }

    bool report(double seconds) {
        const size_t part = std::max<size_t>(1, resident_.size() / 6);
        const auto growth = [&](const char *who, const std::vector<uint64_t> &sizes) {
            if (sizes.size() < 2 * part) return;
            const uint64_t first = median({sizes.begin(), sizes.begin() + static_cast<std::ptrdiff_t>(part)});
            const uint64_t last = median({sizes.end() - static_cast<std::ptrdiff_t>(part), sizes.end()});
            std::printf("soak: the %s's resident memory %" PRIu64 " KiB after the warm-up, %" PRIu64
                        " KiB at the end\n",
                        who, first, last);
            const uint64_t most = seconds < share_s ? most_growth_of_share_kb : most_growth_kb;
            tally_.expect(last <= first + most || is_under_address_sanitizer(), who, "grows");
        };
        growth("server", resident_);
        growth("client", client_resident_);
        uint64_t done = 0, refused = 0, handled = 0, connections = 0;
        for (const Count &count : counts_) {
            done += count.done;
            refused += count.refused;
            handled += count.handled;
            connections += count.connections;
        }
        std::printf("soak: %" PRIu64 " connections, %" PRIu64 " kills, %" PRIu64 " handlers and callbacks, %" PRIu64
                    " calls refused; descriptors %" PRIu64 ", then %" PRIu64 " at most; threads %" PRIu64 "\n",
                    connections, kills_, handled, refused, calm_.descriptors, most_descriptors_, calm_.threads);
        tally_.cells = done;
        std::printf("soak: %.0f seconds, %" PRIu64 " cells, %" PRIu64 " failures\n", seconds, tally_.cells,
                    tally_.failures);
        return tally_.failures == 0;
    }

    Tally tally_;
    double length_ms_;
    std::mt19937_64 random_{20240607};
    Server server_;
    std::span<Count> counts_;
    ProcessState calm_;
    std::map<pid_t, Child> children_;
    std::vector<uint64_t> resident_;
    std::vector<uint64_t> client_resident_;
    uint64_t most_descriptors_ = 0;
    uint64_t kills_ = 0;
};

} // namespace
} // namespace zam::torture

// The one argument is the length in seconds.
int main(int argc, char **argv) {
    const double seconds = argc > 1 ? std::strtod(argv[1], nullptr) : 1800;
    bool good = false;
    {
        zam::torture::Soak soak{seconds};
        good = soak.run();
    }
    return good && !testing::UnitTest::GetInstance()->Failed() ? 0 : 1;
}
