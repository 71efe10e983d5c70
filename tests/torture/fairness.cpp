// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// What one client may do to the others through their server: not read, not answer, answer slowly, be a thousand that
// say nothing, and take the last descriptor. Meanwhile another client pulls, and the time that 99 of 100 of its pulls
// stay below is compared with what it was before and after. With nobody asking anything the server sleeps. What goes
// over a limit ends as the log says.
//
// Times are compared by `strict` only, on a machine with nothing else to do; without it they are told.
// With ZAMC_PLANT somebody chatters while all should be quiet.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <future>
#include <list>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include "e2e/app.h"
#include "support/raw_client.h"
#include "torture/cells.h"
#include "torture/proc.h"

namespace zam::torture {
namespace {

using test::Frame;
using test::Kind;
using test::RawClient;
using test::Server;

constexpr uint32_t json = ZAM_ENCODE_JSON;
constexpr double answer_s = 4;        // of --publish-timeout
constexpr double least_base_ms = 0.1; // below that a base says more about the scheduler than about the server
constexpr uint64_t most_wakes_a_second = 10;
constexpr double most_cpu = 0.05;
constexpr int silent_connections = 1000;
constexpr char volume[] = "/radio:radio/volume";
constexpr char eth0_text[] = "/ietf-interfaces:interfaces/interface[name='eth0']/description";

std::string pull_of(const std::string &path) {
    return R"({"orvel-zam-server:pull":{"datastore":"ietf-datastores:running","entity":")" + path + R"("}})";
}

std::string push_request() {
    static uint32_t value = 0;
    return std::string{R"({"orvel-zam-server:push":{"datastore":"ietf-datastores:running","entity":")"} + eth0_text +
           R"(","operation":"merge","content":{"description":"text )" + std::to_string(++value) + R"("}}})";
}

// Its handler is asked for each change that is pushed here.
bool subscribe(RawClient &client, const std::string &name) {
    const std::string filter = R"("filter-mask":"config-create config-update scene-normal","priv-data":"0")";
    return client.enter(name) &&
           client.ask(R"({"orvel-zam-server:subscribe":{"subscriptions":{"subscription":[{"target":")" +
                      std::string{eth0_text} + R"(","sub-type":"config-change","priority":0,)" + filter + "}]}}}") ==
               "" &&
           client.ask(R"({"orvel-zam-server:activate":{}})") == "";
}

class Suite {
public:
    Suite(uint64_t pulls, bool strict)
        : pulls_{pulls}, strict_{strict}, server_{options()}, probe_{server_.url()}, calm_{state_of(server_.pid())} {}

    void run() {
        scenario("a subscriber that never reads", [this] { never_reads(); });
        if (!planted()) run_others(); // one has found it
        std::printf("fairness: %" PRIu64 " cells, %" PRIu64 " failures\n", tally_.cells, tally_.failures);
    }
    bool failed() const { return tally_.failures > 0; }

private:
    static Server::Options options() {
        Server::Options options;
        options.startup = R"({"ietf-interfaces:interfaces":{"interface":[{"name":"eth0",
            "type":"iana-if-type:ethernetCsmacd"}]},"radio:radio":{"volume":5,"motto":")" +
                          std::string(50000, 'x') + R"("}})";
        options.modules = test::real_models_and_radio();
        options.arguments = {"--output-limit", "1MiB", "--publish-timeout", std::to_string(answer_s)};
        return options;
    }

    void expect(bool holds, const std::string &what) {
        ++tally_.cells;
        tally_.expect(holds, name_, what);
    }
    bool is_logged(const std::string &line) const {
        return eventually([&] { return server_.log().find(line) != std::string::npos; }, milliseconds{10000});
    }

    void run_others() {
        scenario("a subscriber that never answers", [this] { never_answers(); });
        scenario("a subscriber that answers slowly", [this] { answers_slowly(); });
        scenario("a thousand connections that say nothing", [this] { says_nothing(); });
        scenario("no descriptors left", [this] { takes_all_descriptors(); });
    }

    void scenario(const std::string &name, const std::function<void()> &run) {
        name_ = name;
        before_ = p99(pulls_);
        run();
        // Everything that it held is given back.
        expect(eventually([&] { return state_of(server_.pid()).descriptors <= calm_.descriptors; }, milliseconds{5000}),
               "descriptors are left over");
    }

    double p99(uint64_t pulls) {
        std::vector<double> times;
        for (uint64_t i = 0; i < pulls; ++i) {
            const auto start = Clock::now();
            zamc_bytes *text = nullptr;
            const int32_t result = zamc_pull(probe_.client(), 0, volume, -1, &text);
            times.push_back(ms_since(start));
            zamc_free_bytes(text);
            if (result != 0) tally_.expect(false, name_, "a pull fails");
        }
        const auto at = times.begin() + static_cast<std::ptrdiff_t>(times.size() * 99 / 100);
        std::nth_element(times.begin(), at, times.end());
        return *at;
    }

    // The best of three, against the worse of what it is without the others just before and long before.
    void others_are_served() {
        double during = p99(pulls_);
        for (int again = 0; again < 2 && during > 2 * base(); ++again)
            during = std::min(during, p99(pulls_));
        std::printf("fairness: %s: p99 %.3f ms, before it %.3f ms\n", name_.c_str(), during, before_);
        std::fflush(stdout);
        expect(!strict_ || during <= 2 * base(), "the others wait");
    }
    double base() const { return std::max(before_, least_base_ms); }

    void sleeps(const std::string &when) {
        std::atomic<bool> quiet = true;
        std::thread chatter;
        if (planted()) {
            quiet = false;
            chatter = std::thread{[&] {
                RawClient client{server_.url()};
                while (!quiet) {
                    client.send({Kind::rewake, 0, json, {}});
                    client.receive();
                    poll(nullptr, 0, 5);
                }
            }};
        }
        poll(nullptr, 0, 50); // what was asked before is over
        const ProcessState first = state_of(server_.pid());
        const auto start = Clock::now();
        poll(nullptr, 0, strict_ ? 2000 : 1000);
        const ProcessState last = state_of(server_.pid());
        const double seconds = ms_since(start) / 1000;
        const double wakes = static_cast<double>(last.switches - first.switches) / seconds;
        const double cpu = (last.cpu_s - first.cpu_s) / seconds;
        std::printf("fairness: %s: %.1f wake-ups a second %s\n", name_.c_str(), wakes, when.c_str());
        expect(wakes <= most_wakes_a_second, std::to_string(wakes) + " wake-ups a second " + when);
        expect(cpu <= most_cpu, std::to_string(cpu * 100) + " % of a processor " + when);
        quiet = true;
        if (chatter.joinable()) chatter.join();
    }

    void never_reads() {
        sleeps("idle");
        RawClient blocked{server_.url()};
        expect(subscribe(blocked, "blocked"), "cannot subscribe");
        // More than its socket takes, less than the limit.
        for (int i = 0; i < 15; ++i)
            blocked.send({Kind::request, 100, json, pull_of("/radio:radio")});
        RawClient pusher{server_.url()};
        pusher.enter("pusher");
        pusher.send({Kind::request, 100, json, push_request()});
        others_are_served();
        const auto answer = pusher.receive();
        expect(answer && answer->payload.find("rpc-error") != std::string::npos, "the push is not refused in time");
        sleeps("with a blocked peer");
        bool cut = false;
        for (int i = 0; i < 10000 && !cut; ++i)
            cut = !blocked.send({Kind::request, 100, json, pull_of("/radio:radio")});
        expect(cut, "it is not given up");
        expect(is_logged("more than the limit of 1048576.\n"), "its limit is not logged");
        expect(is_logged("(blocked): it does not read.\n"), "its end is not logged");
    }

    void never_answers() {
        RawClient mute{server_.url()};
        expect(subscribe(mute, "mute"), "cannot subscribe");
        RawClient pusher{server_.url()};
        pusher.enter("pusher");
        const auto start = Clock::now();
        pusher.send({Kind::request, 100, json, push_request()});
        double took = 0;
        auto waits = std::async(std::launch::async, [&] {
            const auto answer = pusher.receive();
            took = ms_since(start) / 1000;
            return answer;
        });
        others_are_served();
        sleeps("with a peer that owes an answer");
        const auto answer = waits.get();
        expect(answer && answer->payload.find("'mute' did not answer") != std::string::npos,
               "the push is not refused for it");
        std::printf("fairness: %s: a push waits %.1f s of %.1f s for it\n", name_.c_str(), took, answer_s);
        expect(took <= answer_s + 0.5 || !strict_, "the push waits too long");
        expect(is_logged("'mute' did not answer"), "it is not logged");
    }

    void answers_slowly() {
        std::atomic<bool> stopping = false;
        RawClient slow{server_.url()};
        expect(subscribe(slow, "slow"), "cannot subscribe");
        std::thread answers{[&] {
            while (!stopping)
                if (const auto frame = slow.receive(milliseconds{20}); frame && frame->kind == Kind::request) {
                    poll(nullptr, 0, 20);
                    slow.send({Kind::reply, frame->seq, json, {}});
                }
        }};
        std::atomic<uint64_t> pushes = 0;
        std::thread pushing{[&] {
            RawClient pusher{server_.url()};
            pusher.enter("pusher");
            while (!stopping)
                pushes += pusher.ask(push_request()) == "";
        }};
        expect(eventually([&] { return pushes > 0; }, milliseconds{5000}), "nothing is pushed");
        others_are_served();
        stopping = true;
        pushing.join();
        answers.join();
    }

    void says_nothing() {
        std::list<RawClient> silent;
        for (int i = 0; i < silent_connections; ++i)
            silent.emplace_back(server_.url());
        const uint64_t all = calm_.descriptors + silent_connections;
        expect(eventually([&] { return state_of(server_.pid()).descriptors >= all; }, milliseconds{10000}),
               "not all are let in");
        others_are_served();
        sleeps("with them");
    }

    void takes_all_descriptors() {
        const std::string line = "pauses: Too many open files.\n";
        rlimit usual{};
        const rlim_t used = state_of(server_.pid()).descriptors;
        prlimit(server_.pid(), RLIMIT_NOFILE, nullptr, &usual);
        const rlimit few{used + 2, usual.rlim_max};
        prlimit(server_.pid(), RLIMIT_NOFILE, &few, nullptr);
        {
            std::list<RawClient> silent;
            for (int i = 0; i < 10; ++i)
                silent.emplace_back(server_.url());
            expect(is_logged(line), "it is not logged");
            others_are_served();
            sleeps("at the limit");
        }
        RawClient late{server_.url()};
        expect(late.enter("late"), "nobody is let in once there is room");
        prlimit(server_.pid(), RLIMIT_NOFILE, &usual, nullptr);
    }

    Tally tally_;
    uint64_t pulls_;
    bool strict_;
    Server server_;
    test::Operator probe_;
    ProcessState calm_;
    std::string name_;
    double before_ = 0;
};

bool raise_descriptor_limit() {
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = std::max<rlim_t>(files.rlim_cur, 2 * silent_connections);
    return setrlimit(RLIMIT_NOFILE, &files) == 0;
}

} // namespace
} // namespace zam::torture

// The arguments: how many pulls each measurement takes, and `strict`.
int main(int argc, char **argv) {
    using namespace zam::torture;
    if (!raise_descriptor_limit()) {
        std::printf("fairness: skipped, it needs %d descriptors\n", 2 * silent_connections);
        return 77;
    }
    const uint64_t pulls = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 20000;
    bool failed = false;
    {
        Suite suite{std::max<uint64_t>(pulls, 100), argc > 2 && std::strcmp(argv[2], "strict") == 0};
        suite.run();
        failed = suite.failed();
    }
    return failed || testing::UnitTest::GetInstance()->Failed() ? 1 : 0;
}
