// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#ifndef ZAMD_SUBSCRIPTION_H
#define ZAMD_SUBSCRIPTION_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "error.h"
#include "store_path.h"

namespace zamd {

enum class SubType { config_change, status_query, operation };

// Scene bits of a filter mask; its low bits are those of `What`.
constexpr uint32_t scene_normal = 0x80;

struct Subscription {
    enum class State { idle, active };

    SubType type = SubType::config_change;
    std::string target; // as the client wrote it
    Place place;
    uint32_t priority = 0;
    uint32_t mask = 0;
    uint64_t priv_data = 0; // the client's own number, given back in each publication
    State state = State::idle;
    bool fresh = true;       // subscribed anew since the last activation
    bool activating = false; // becomes active when its replay starts
    bool consistent = true;  // the client agreed to what stands at the target

    bool active() const { return state == State::active; }
    bool same_as(const Subscription &other) const;
};

using SubscriptionPtr = std::shared_ptr<Subscription>;

// A session's subscriptions, in the order in which they were made.
class Subscriptions {
public:
    // Takes the place of an equal one, which stays active meanwhile.
    void add(Subscription subscription);
    // An equal one goes at once; none is no mistake, as a client that came back unsubscribes what it only remembers.
    bool remove(const Subscription &subscription);
    void deactivate();

    const std::vector<SubscriptionPtr> &all() const { return all_; }
    bool consistent() const;

private:
    std::vector<SubscriptionPtr> all_;
};

std::optional<SubType> sub_type_by_name(std::string_view name);
const char *sub_type_name(SubType type);
// "config-create scene-normal" and so on; a text without any operation bit or any scene bit leaves these bits at what
// a client that names none means: every operation, the normal scene.
Result<uint32_t> mask_by_names(std::string_view names);

} // namespace zamd

#endif
