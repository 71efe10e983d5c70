// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "support/heap.h"

#include <cstdlib>
#include <map>
#include <mutex>

#include <gtest/gtest.h>
#include <zamc/mem.h>

namespace zam::test {
namespace {

struct Block {
    std::string site;
    uint64_t size;
};

struct State {
    std::mutex mutex;
    std::map<void *, Block> blocks;
    uint64_t allocations = 0;
    uint64_t fail_at = 0; // counts down to the failure
    bool from_then_on = false;
    bool failed = false;
    std::set<std::string> failed_sites;
};

State state;

bool _must_fail() {
    if (state.failed && state.from_then_on) return true;
    if (state.fail_at == 0 || --state.fail_at != 0) return false;
    state.failed = true;
    return true;
}

void *_allocate(uint64_t size, bool zeroed, const char *file, uint32_t line) {
    std::lock_guard guard{state.mutex};
    ++state.allocations;
    const std::string site = std::string{file ? file : "?"} + ":" + std::to_string(line);
    if (_must_fail()) {
        state.failed_sites.insert(site);
        return nullptr;
    }
    void *block = zeroed ? std::calloc(1, size ? size : 1) : std::malloc(size ? size : 1);
    if (block) state.blocks[block] = {site, size};
    return block;
}

void *_malloc(uint32_t size, const char *file, uint32_t line) {
    return _allocate(size, false, file, line);
}

void *_calloc(uint32_t count, uint32_t size, const char *file, uint32_t line) {
    return _allocate(uint64_t{count} * size, true, file, line);
}

void _free(void *block) {
    std::lock_guard guard{state.mutex};
    if (state.blocks.erase(block) == 0) {
        ADD_FAILURE() << "released a block that the hooks did not allocate";
        return;
    }
    std::free(block);
}

constexpr zam_mem_funs hooks{_malloc, _calloc, _free};
constexpr zam_mem_funs system_heap{nullptr, nullptr, nullptr};

} // namespace

Heap::Heap() {
    {
        std::lock_guard guard{state.mutex};
        state.blocks.clear();
        state.allocations = 0;
        state.fail_at = 0;
        state.failed = false;
    }
    zam_mem_init(&hooks);
}

Heap::~Heap() {
    zam_mem_init(&system_heap);
}

uint64_t Heap::live() const {
    std::lock_guard guard{state.mutex};
    return state.blocks.size();
}

uint64_t Heap::allocations() const {
    std::lock_guard guard{state.mutex};
    return state.allocations;
}

void Heap::reset_count() {
    std::lock_guard guard{state.mutex};
    state.allocations = 0;
}

std::string Heap::live_sites() const {
    std::lock_guard guard{state.mutex};
    std::string text;
    for (const auto &[address, block] : state.blocks)
        text += block.site + " " + std::to_string(block.size) + "\n";
    return text;
}

void Heap::fail_at(uint64_t n, bool from_then_on) {
    std::lock_guard guard{state.mutex};
    state.fail_at = n;
    state.from_then_on = from_then_on;
    state.failed = false;
}

bool Heap::failed() const {
    std::lock_guard guard{state.mutex};
    return state.failed;
}

std::set<std::string> Heap::failed_sites() {
    std::lock_guard guard{state.mutex};
    return state.failed_sites;
}

uint64_t fail_each_allocation(const std::function<void(bool)> &body, bool from_then_on) {
    constexpr uint64_t limit = 100000; // a body that never gets through is a loop
    for (uint64_t n = 1; n < limit; ++n) {
        Heap heap;
        heap.fail_at(n, from_then_on);
        body(true);
        const bool failed = heap.failed();
        heap.fail_at(0);
        EXPECT_EQ(heap.live(), 0u) << "failing allocation " << n << " leaks:\n" << heap.live_sites();
        if (!failed) {
            body(false);
            EXPECT_EQ(heap.live(), 0u) << heap.live_sites();
            return n - 1;
        }
        if (testing::Test::HasFailure()) return n;
    }
    ADD_FAILURE() << "still failing after " << limit << " allocations";
    return limit;
}

} // namespace zam::test
