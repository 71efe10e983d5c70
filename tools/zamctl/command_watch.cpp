// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// watch: subscribes to changes, agrees to each, and prints it
#include <array>
#include <csignal>
#include <iostream>
#include <string_view>

#include "connection.h"
#include "output.h"

namespace zamctl {
namespace {

struct MaskName {
    uint32_t bits;
    std::string_view name;
};
constexpr std::array<MaskName, 4> changes{{{ZAMC_CONFIG_CREATE, "create"},
                                           {ZAMC_CONFIG_DELETE, "delete"},
                                           {ZAMC_CONFIG_UPDATE, "update"},
                                           {ZAMC_CONFIG_MOVE, "move"}}};
constexpr std::array<MaskName, 3> scenes{
    {{ZAMC_SCENE_NORMAL, "normal"}, {ZAMC_SCENE_CFGR, "replay"}, {ZAMC_SCENE_ROLLBACK, "rollback"}}};

volatile std::sig_atomic_t stop_requested = 0;

void request_stop(int) {
    stop_requested = 1;
}

void stop_on_signals() {
    struct sigaction action {};
    action.sa_handler = request_stop;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

template <size_t N>
std::string_view name_of(const std::array<MaskName, N> &names, uint32_t mask) {
    for (const auto &entry : names) {
        if (mask & entry.bits) return entry.name;
    }
    return "unknown";
}

struct Watch {
    const Options &options;
    uint64_t seen = 0;
};

int32_t on_change(zamc_client *client, uint32_t mask, uint32_t priority, int32_t list_more, const char *target,
                  void *user) {
    auto *watch = static_cast<Watch *>(user);
    std::cout << name_of(changes, mask) << ' ' << target << " (scene " << name_of(scenes, mask) << ", priority "
              << priority << (list_more ? ", more to come" : "") << ")\n";
    zamc_bytes *difference = nullptr;
    if (zamc_diff(client, target, -1, &difference) == 0 && difference) {
        print_data({difference->data, static_cast<size_t>(difference->length)}, difference->format);
    }
    zamc_free_bytes(difference);
    std::cout << std::flush;
    ++watch->seen;
    return 0;
}

int32_t on_active(zamc_client *, int32_t, void *, int32_t) {
    complain("watching");
    return 0;
}

uint32_t filter_mask(const std::string &words) {
    uint32_t mask = ZAMC_SCENE_NORMAL | ZAMC_SCENE_CFGR | ZAMC_SCENE_ROLLBACK;
    if (words == "all") return mask | 0xF;
    for (const auto &entry : changes) {
        if (words.find(entry.name) != std::string::npos) mask |= entry.bits;
    }
    if ((mask & 0xF) == 0)
        throw Failure{exit_usage, "no such changes: " + words + " (create, delete, update, move or all)"};
    return mask;
}

} // namespace

int watch(const Options &options) {
    const std::string path = checked_path(options.path);
    const uint32_t mask = filter_mask(options.mask);
    Connection connection{options, "zamctl-watch"};
    Watch state{options};
    zamc_sub_node node{};
    node.target = path.c_str();
    node.type = ZAMC_SUB_CONFIG_CHANGE;
    node.priority = options.priority;
    node.filter_mask = mask;
    node.config = on_change;
    node.user = &state;
    if (zamc_subscribe(connection.client(), &node) != 0) throw Failure{exit_usage, last_log_line()};
    if (zamc_activate(connection.client(), options.replay, on_active, nullptr) != 0) {
        throw Failure{exit_refused, "the server refused the subscription: " + last_log_line()};
    }
    stop_on_signals();
    while (!stop_requested && (options.count == 0 || state.seen < options.count)) {
        if (!connection.turn(1000))
            throw Failure{exit_unreachable, "the connection to " + options.server + " was lost"};
    }
    return exit_done;
}

} // namespace zamctl
