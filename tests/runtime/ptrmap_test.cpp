// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <zamc/ptrmap.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/heap.h"
#include "support/log_capture.h"

namespace {

using zam::test::fail_each_allocation;
using zam::test::Heap;
using zam::test::LogCapture;

std::string freed;

void _note_freed(void *value) {
    freed += value ? *static_cast<const char *>(value) : '0';
}

class Ptrmap : public testing::Test {
protected:
    Ptrmap() { freed.clear(); }
    ~Ptrmap() override {
        zam_ptrmap_destroy(map_);
        EXPECT_EQ(heap_.live(), 0u) << heap_.live_sites();
    }
    void _create(uint32_t buckets, zam_ptrmap_key_type type) {
        map_ = zam_ptrmap_create(buckets, type, _note_freed);
        ASSERT_NE(map_, nullptr);
    }
    // Four buckets with the numbers 1, 5 and 9 in bucket 1, 3 in bucket 3, added in another order.
    void _create_numbers() {
        _create(4, ZAM_PTRMAP_KEY_INTEGER);
        for (uint32_t key : {3u, 5u, 1u, 9u})
            ASSERT_EQ(_add(key, static_cast<char>('0' + key)), 0);
    }
    // Values are characters that outlive the map.
    void *_value(char name) {
        values_[static_cast<unsigned char>(name)] = name;
        return &values_[static_cast<unsigned char>(name)];
    }
    int32_t _add(uint32_t key, char value) { return zam_ptrmap_add(map_, &key, _value(value)); }
    static char _name(const void *value) { return value ? *static_cast<const char *>(value) : '-'; }
    char _find(uint32_t key) { return _name(zam_ptrmap_find(map_, &key)); }
    char _next(uint32_t key) { return _name(zam_ptrmap_getnext(map_, &key)); }

    Heap heap_;
    LogCapture log_;
    std::array<char, 256> values_{};
    zam_ptrmap *map_ = nullptr;
};

TEST_F(Ptrmap, CreateWithoutMemoryForTheMapIsLogged) {
    heap_.fail_at(1);
    EXPECT_EQ(zam_ptrmap_create(4, ZAM_PTRMAP_KEY_STRING, nullptr), nullptr);
    EXPECT_EQ(log_.count(3, "Alloc ptrmap unsuccessful."), 1);
}

TEST_F(Ptrmap, CreateWithoutMemoryForTheHashIsLogged) {
    heap_.fail_at(2);
    EXPECT_EQ(zam_ptrmap_create(4, ZAM_PTRMAP_KEY_STRING, nullptr), nullptr);
    EXPECT_EQ(log_.count(0, "[Hash] Allocate memory for hash_table failed."), 1);
    EXPECT_EQ(log_.count(3, "Create hash unsuccessful."), 1);
}

TEST_F(Ptrmap, CreateWithoutBucketsIsLogged) {
    EXPECT_EQ(zam_ptrmap_create(0, ZAM_PTRMAP_KEY_STRING, nullptr), nullptr);
    EXPECT_EQ(log_.lines().size(), 1u);
    EXPECT_EQ(log_.count(3, "Create hash unsuccessful."), 1);
}

TEST_F(Ptrmap, CreateWithAnUnknownKeyTypeIsNull) {
    EXPECT_EQ(zam_ptrmap_create(4, 2, nullptr), nullptr);
    EXPECT_EQ(log_.count(3, "Create hash unsuccessful."), 1);
}

TEST_F(Ptrmap, FindsWhatWasAddedByString) {
    _create(4, ZAM_PTRMAP_KEY_STRING);
    EXPECT_EQ(zam_ptrmap_add(map_, "one", _value('1')), 0);
    EXPECT_EQ(zam_ptrmap_add(map_, "two", _value('2')), 0);
    EXPECT_EQ(zam_ptrmap_add(map_, "", _value('e')), 0);
    EXPECT_EQ(_name(zam_ptrmap_find(map_, "one")), '1');
    EXPECT_EQ(_name(zam_ptrmap_find(map_, "two")), '2');
    EXPECT_EQ(_name(zam_ptrmap_find(map_, "")), 'e');
    EXPECT_EQ(zam_ptrmap_find(map_, "on"), nullptr);
    EXPECT_EQ(zam_ptrmap_size(map_), 3u);
}

TEST_F(Ptrmap, FindsWhatWasAddedByNumber) {
    _create_numbers();
    EXPECT_EQ(_add(0, 'z'), 0);
    EXPECT_EQ(_add(UINT32_MAX, 'm'), 0);
    EXPECT_EQ(_add(0x80000000u, 'h'), 0);
    EXPECT_EQ(_find(5), '5');
    EXPECT_EQ(_find(9), '9');
    EXPECT_EQ(_find(0), 'z');
    EXPECT_EQ(_find(UINT32_MAX), 'm');
    EXPECT_EQ(_find(0x80000000u), 'h');
    EXPECT_EQ(_find(13), '-');
    EXPECT_EQ(zam_ptrmap_size(map_), 7u);
}

TEST_F(Ptrmap, StringKeysAreCopied) {
    _create(4, ZAM_PTRMAP_KEY_STRING);
    std::array<char, 8> key{"first"};
    EXPECT_EQ(zam_ptrmap_add(map_, key.data(), _value('1')), 0);
    std::strcpy(key.data(), "other");
    EXPECT_EQ(_name(zam_ptrmap_find(map_, "first")), '1');
    EXPECT_EQ(zam_ptrmap_find(map_, "other"), nullptr);
}

TEST_F(Ptrmap, ANumberMayStandAtAnyAddress) {
    _create_numbers();
    std::array<char, 8> bytes{};
    const uint32_t key = 9;
    std::memcpy(bytes.data() + 1, &key, sizeof key);
    EXPECT_EQ(_name(zam_ptrmap_find(map_, bytes.data() + 1)), '9');
}

TEST_F(Ptrmap, AnEntryIsOneBlock) {
    _create(4, ZAM_PTRMAP_KEY_STRING);
    const uint64_t before = heap_.live();
    EXPECT_EQ(zam_ptrmap_add(map_, "key", _value('1')), 0);
    EXPECT_EQ(heap_.live(), before + 1);
}

TEST_F(Ptrmap, AddingAnExistingKeyFailsAndKeepsTheOldValue) {
    _create(4, ZAM_PTRMAP_KEY_STRING);
    EXPECT_EQ(zam_ptrmap_add(map_, "key", _value('1')), 0);
    EXPECT_EQ(zam_ptrmap_add(map_, "key", _value('2')), -1);
    EXPECT_EQ(log_.lines().size(), 1u);
    EXPECT_EQ(log_.count(3, "ptrmap: exist key-value map in the hash table"), 1);
    EXPECT_EQ(_name(zam_ptrmap_find(map_, "key")), '1');
    EXPECT_EQ(zam_ptrmap_size(map_), 1u);
    EXPECT_EQ(freed, "");
}

TEST_F(Ptrmap, AddingAnExistingNumberFailsAndKeepsTheOldValue) {
    _create_numbers();
    EXPECT_EQ(_add(5, 'x'), -1);
    EXPECT_EQ(log_.count(3, "ptrmap: exist key-value map in the hash table"), 1);
    EXPECT_EQ(_find(5), '5');
}

TEST_F(Ptrmap, AddRefusesNullMapAndKey) {
    _create(4, ZAM_PTRMAP_KEY_STRING);
    EXPECT_EQ(zam_ptrmap_add(nullptr, "key", _value('1')), -1);
    EXPECT_EQ(zam_ptrmap_add(map_, nullptr, _value('1')), -1);
    EXPECT_EQ(zam_ptrmap_size(map_), 0u);
    EXPECT_EQ(freed, "");
}

TEST_F(Ptrmap, AddWithoutMemoryLeavesTheValueToTheCaller) {
    _create(4, ZAM_PTRMAP_KEY_STRING);
    heap_.fail_at(1);
    EXPECT_EQ(zam_ptrmap_add(map_, "key", _value('1')), -1);
    EXPECT_EQ(zam_ptrmap_size(map_), 0u);
    EXPECT_EQ(freed, "");
}

TEST_F(Ptrmap, AValueMayBeNull) {
    _create(4, ZAM_PTRMAP_KEY_STRING);
    EXPECT_EQ(zam_ptrmap_add(map_, "key", nullptr), 0);
    EXPECT_EQ(zam_ptrmap_find(map_, "key"), nullptr);
    EXPECT_EQ(zam_ptrmap_size(map_), 1u);
}

TEST_F(Ptrmap, DelFreesTheValueWhenTheLowestBitSaysSo) {
    _create_numbers();
    const uint32_t keys[] = {1, 3, 5};
    zam_ptrmap_del(map_, &keys[0], 1);
    EXPECT_EQ(freed, "1");
    zam_ptrmap_del(map_, &keys[1], 2);
    EXPECT_EQ(freed, "1");
    zam_ptrmap_del(map_, &keys[2], 3);
    EXPECT_EQ(freed, "15");
    EXPECT_EQ(zam_ptrmap_size(map_), 1u);
    EXPECT_EQ(_find(1), '-');
    EXPECT_EQ(_find(9), '9');
}

TEST_F(Ptrmap, DelWithoutAFreeFunctionLeavesTheValue) {
    map_ = zam_ptrmap_create(4, ZAM_PTRMAP_KEY_STRING, nullptr);
    EXPECT_EQ(zam_ptrmap_add(map_, "key", _value('1')), 0);
    zam_ptrmap_del(map_, "key", 1);
    EXPECT_EQ(zam_ptrmap_size(map_), 0u);
}

TEST_F(Ptrmap, DelOfAnAbsentKeyOrOfNullChangesNothing) {
    _create_numbers();
    const uint32_t absent = 13;
    zam_ptrmap_del(map_, &absent, 1);
    zam_ptrmap_del(map_, nullptr, 1);
    zam_ptrmap_del(nullptr, &absent, 1);
    EXPECT_EQ(zam_ptrmap_size(map_), 4u);
    EXPECT_EQ(freed, "");
}

TEST_F(Ptrmap, GetnextOfNullIsTheFirstNodeOfTheLowestBucketInUse) {
    _create_numbers();
    EXPECT_EQ(_name(zam_ptrmap_getnext(map_, nullptr)), '5');
}

TEST_F(Ptrmap, GetnextGoesThroughABucketInTheOrderOfAddingThenToTheNextInUse) {
    _create_numbers();
    EXPECT_EQ(_next(5), '1');
    EXPECT_EQ(_next(1), '9');
    EXPECT_EQ(_next(9), '3');
    EXPECT_EQ(_next(3), '-');
}

TEST_F(Ptrmap, GetnextOfAnAbsentKeyGoesOnBehindItsBucket) {
    _create_numbers();
    EXPECT_EQ(_next(0), '5');
    EXPECT_EQ(_next(13), '3');
    EXPECT_EQ(_next(2), '3');
    EXPECT_EQ(_next(7), '-');
}

TEST_F(Ptrmap, GetnextVisitsStringsOnceEach) {
    _create(8, ZAM_PTRMAP_KEY_STRING);
    const std::string keys = "abcdefghijkl";
    for (char key : keys)
        ASSERT_EQ(zam_ptrmap_add(map_, std::string{key}.c_str(), _value(key)), 0);
    std::string seen;
    const void *value = zam_ptrmap_getnext(map_, nullptr);
    while (value && seen.size() <= keys.size()) {
        seen += _name(value);
        value = zam_ptrmap_getnext(map_, seen.substr(seen.size() - 1).c_str());
    }
    EXPECT_EQ(seen, "haibjckdlefg"); // 'a' hashes to 97, bucket 1; 'h' to 104, bucket 0
}

TEST_F(Ptrmap, GetnextOfAnEmptyOrNullMapIsNull) {
    _create(4, ZAM_PTRMAP_KEY_INTEGER);
    EXPECT_EQ(zam_ptrmap_getnext(map_, nullptr), nullptr);
    EXPECT_EQ(_next(1), '-');
    EXPECT_EQ(zam_ptrmap_getnext(nullptr, nullptr), nullptr);
}

TEST_F(Ptrmap, ForeachVisitsAllInOrderAndReturnsTheFirstResultThatIsNotZero) {
    _create_numbers();
    struct State {
        std::string seen;
        int32_t (*result)(char);
    } state = {"", [](char name) { return name == '1' ? 11 : name == '9' ? 99 : 0; }};
    const auto visit = [](void *value, void *arg) {
        auto *at = static_cast<State *>(arg);
        at->seen += _name(value);
        return at->result(_name(value));
    };
    EXPECT_EQ(zam_ptrmap_foreach(map_, visit, &state), 11);
    EXPECT_EQ(state.seen, "5193");
    state = {"", [](char) { return 0; }};
    EXPECT_EQ(zam_ptrmap_foreach(map_, visit, &state), 0);
    EXPECT_EQ(state.seen, "5193");
}

TEST_F(Ptrmap, ForeachMayDeleteTheEntryThatItVisits) {
    _create_numbers();
    const auto visit = [](void *value, void *arg) -> int32_t {
        const uint32_t key = static_cast<uint32_t>(_name(value) - '0');
        zam_ptrmap_del(static_cast<zam_ptrmap *>(arg), &key, 1);
        return 0;
    };
    EXPECT_EQ(zam_ptrmap_foreach(map_, visit, map_), 0);
    EXPECT_EQ(freed, "5193");
    EXPECT_EQ(zam_ptrmap_size(map_), 0u);
}

TEST_F(Ptrmap, ForeachOfNullIsZero) {
    _create_numbers();
    EXPECT_EQ(zam_ptrmap_foreach(
                  nullptr, [](void *, void *) { return 1; }, nullptr),
              0);
    EXPECT_EQ(zam_ptrmap_foreach(map_, nullptr, nullptr), 0);
}

TEST_F(Ptrmap, ClearFreesEveryEntryWithItsValue) {
    _create_numbers();
    zam_ptrmap_clear(map_);
    EXPECT_EQ(freed, "5193");
    EXPECT_EQ(zam_ptrmap_size(map_), 0u);
    EXPECT_EQ(heap_.live(), 2u); // map and table
    EXPECT_EQ(_add(5, '5'), 0);
}

TEST_F(Ptrmap, DestroyFreesEverything) {
    _create_numbers();
    zam_ptrmap_destroy(map_);
    map_ = nullptr;
    EXPECT_EQ(freed, "5193");
    EXPECT_EQ(heap_.live(), 0u);
}

TEST_F(Ptrmap, ANullMapIsEmptyAndIgnored) {
    zam_ptrmap_clear(nullptr);
    zam_ptrmap_destroy(nullptr);
    EXPECT_EQ(zam_ptrmap_size(nullptr), 0u);
    EXPECT_EQ(zam_ptrmap_find(nullptr, "key"), nullptr);
    _create(4, ZAM_PTRMAP_KEY_STRING);
    EXPECT_EQ(zam_ptrmap_find(map_, nullptr), nullptr);
}

TEST(PtrmapHeap, LeavesNothingBehindWhenAnyAllocationFails) {
    const uint64_t failed = fail_each_allocation([](bool) {
        zam_ptrmap *map = zam_ptrmap_create(4, ZAM_PTRMAP_KEY_STRING, nullptr);
        uint32_t added = 0;
        for (const char *key : {"one", "two", "three"})
            added += zam_ptrmap_add(map, key, nullptr) == 0;
        EXPECT_EQ(zam_ptrmap_size(map), added);
        zam_ptrmap_destroy(map);
    });
    EXPECT_EQ(failed, 5u); // map, table, three entries
}

} // namespace
