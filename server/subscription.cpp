// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "subscription.h"

#include <algorithm>
#include <array>
#include <utility>

#include "text.h"

namespace zamd {
namespace {

struct Named {
    const char *name;
    uint32_t bit;
};

constexpr std::array<Named, 10> mask_bits{{
    {"config-create", 0x1},
    {"config-delete", 0x2},
    {"config-update", 0x4},
    {"config-move", 0x8},
    {"curb-delete", 0x10},
    {"curb-create", 0x20},
    {"scene-normal", scene_normal},
    {"scene-cfgr", 0x100},
    {"scene-rollback", 0x200},
    {"scene-smooth", 0x400},
}};
constexpr uint32_t every_operation = 0xF;
constexpr uint32_t every_scene = 0x780;

constexpr std::array<const char *, 3> type_names{"config-change", "status-query", "operation"};

} // namespace

bool Subscription::same_as(const Subscription &other) const {
    if (type != other.type || target != other.target) return false;
    return type != SubType::config_change || (priority == other.priority && mask == other.mask);
}

void Subscriptions::add(Subscription subscription) {
    for (SubscriptionPtr &known : all_) {
        if (!known->same_as(subscription)) continue;
        known->priv_data = subscription.priv_data;
        known->fresh = true;
        return;
    }
    all_.push_back(std::make_shared<Subscription>(std::move(subscription)));
}

bool Subscriptions::remove(const Subscription &subscription) {
    const auto found =
        std::find_if(all_.begin(), all_.end(), [&](const auto &known) { return known->same_as(subscription); });
    if (found == all_.end()) return false;
    (*found)->state = Subscription::State::idle; // a transaction may still hold it
    (*found)->activating = false;
    all_.erase(found);
    return true;
}

void Subscriptions::deactivate() {
    for (const SubscriptionPtr &subscription : all_) {
        subscription->state = Subscription::State::idle;
        subscription->activating = false;
        subscription->fresh = true;
    }
}

bool Subscriptions::consistent() const {
    return std::all_of(all_.begin(), all_.end(), [](const auto &known) { return known->consistent; });
}

std::optional<SubType> sub_type_by_name(std::string_view name) {
    for (size_t i = 0; i < type_names.size(); i++)
        if (name == type_names[i]) return static_cast<SubType>(i);
    return std::nullopt;
}

const char *sub_type_name(SubType type) {
    return type_names[static_cast<size_t>(type)];
}

Result<uint32_t> mask_by_names(std::string_view names) {
    uint32_t mask = 0;
    while (!(names = trim(names)).empty()) {
        const std::string_view word = names.substr(0, names.find_first_of(" \t\r\n"));
        const auto found = std::find_if(mask_bits.begin(), mask_bits.end(), [&](auto bit) { return word == bit.name; });
        if (found == mask_bits.end())
            return bad_request("invalid-value", "There is no filter-mask bit \"" + std::string{word} + "\".");
        mask |= found->bit;
        names.remove_prefix(word.size());
    }
    if ((mask & every_operation) == 0) mask |= every_operation;
    if ((mask & every_scene) == 0) mask |= scene_normal;
    return mask;
}

} // namespace zamd
