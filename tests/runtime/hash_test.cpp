// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <zamc/hash.h>

#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "support/heap.h"
#include "support/log_capture.h"

namespace {

using zam::test::fail_each_allocation;
using zam::test::Heap;
using zam::test::LogCapture;

// Keys are small numbers; buckets 0 to 3 by their last digit in base 4, and 90 and more belong nowhere.
struct Element {
    zam_dlist_node node;
    uint32_t key;
    char name;
};

uint32_t _index(const void *key, uint32_t bucket_count) {
    const uint32_t number = *static_cast<const uint32_t *>(key);
    return number >= 90 ? bucket_count : number % bucket_count;
}

int32_t _compare(const zam_dlist_node *node, const void *key) {
    return reinterpret_cast<const Element *>(node)->key == *static_cast<const uint32_t *>(key) ? 0 : 1;
}

std::string visited;

void _note(zam_dlist_node *node) {
    visited += reinterpret_cast<Element *>(node)->name;
}

class Hash : public testing::Test {
protected:
    Hash() : hash_{zam_hash_create(4, _index, _compare)} { visited.clear(); }
    ~Hash() override {
        zam_hash_free(hash_, nullptr);
        EXPECT_EQ(heap_.live(), 0u) << heap_.live_sites();
    }
    int32_t _append(Element &element) { return zam_hash_append(hash_, &element.node, &element.key); }
    void _append_all() {
        for (Element *element : {&a_, &b_, &c_, &d_})
            ASSERT_EQ(_append(*element), 0);
    }
    char _found(uint32_t key) {
        const zam_dlist_node *node = zam_hash_find(hash_, &key);
        return node ? reinterpret_cast<const Element *>(node)->name : '-';
    }
    void _expect_one_line(int level, const char *message) {
        EXPECT_EQ(log_.lines().size(), 1u) << log_.all();
        EXPECT_EQ(log_.count(level, message), 1) << log_.all();
        log_.clear();
    }

    Heap heap_;
    LogCapture log_;
    zam_hash *hash_;
    Element a_ = {{}, 1, 'a'};
    Element b_ = {{}, 5, 'b'}; // in the bucket of a
    Element c_ = {{}, 2, 'c'};
    Element d_ = {{}, 5, 'd'}; // with the key of b
    uint32_t nowhere_ = 90;
};

TEST_F(Hash, IsOneBlock) {
    ASSERT_NE(hash_, nullptr);
    EXPECT_EQ(heap_.live(), 1u);
    EXPECT_EQ(zam_hash_num(hash_), 0u);
}

TEST_F(Hash, NeedsBucketsAndBothFunctions) {
    EXPECT_EQ(zam_hash_create(0, _index, _compare), nullptr);
    EXPECT_EQ(zam_hash_create(4, nullptr, _compare), nullptr);
    EXPECT_EQ(zam_hash_create(4, _index, nullptr), nullptr);
    EXPECT_TRUE(log_.lines().empty());
    EXPECT_EQ(heap_.live(), 1u);
}

TEST_F(Hash, WithoutMemoryIsNullAndLoggedAtLevelZero) {
    heap_.fail_at(1);
    EXPECT_EQ(zam_hash_create(4, _index, _compare), nullptr);
    EXPECT_EQ(log_.count(0, "[Hash] Allocate memory for hash_table failed."), 1);
}

TEST_F(Hash, ATableBeyondTheHooksSizesIsALackOfMemory) {
    EXPECT_EQ(zam_hash_create(UINT32_MAX, _index, _compare), nullptr);
    EXPECT_EQ(log_.count(0, "[Hash] Allocate memory for hash_table failed."), 1);
    EXPECT_EQ(heap_.live(), 1u);
}

TEST_F(Hash, AppendPutsANodeAtTheTailOfItsBucket) {
    _append_all();
    const zam_dlist *bucket = zam_hash_get_list(hash_, &a_.key);
    ASSERT_NE(bucket, nullptr);
    EXPECT_EQ(bucket->count, 3u);
    EXPECT_EQ(bucket->head, &a_.node);
    EXPECT_EQ(bucket->head->next, &b_.node);
    EXPECT_EQ(bucket->tail, &d_.node);
    EXPECT_EQ(zam_hash_num(hash_), 4u);
}

TEST_F(Hash, AppendRefusesNullArguments) {
    EXPECT_EQ(zam_hash_append(nullptr, &a_.node, &a_.key), -1);
    _expect_one_line(3, "[Hash] Add hash node input invalid.");
    EXPECT_EQ(zam_hash_append(hash_, nullptr, &a_.key), -1);
    _expect_one_line(3, "[Hash] Add hash node input invalid.");
    EXPECT_EQ(zam_hash_append(hash_, &a_.node, nullptr), -1);
    _expect_one_line(3, "[Hash] Add hash node input invalid.");
    EXPECT_EQ(zam_hash_num(hash_), 0u);
}

TEST_F(Hash, AppendRefusesAnIndexOutOfRange) {
    EXPECT_EQ(zam_hash_append(hash_, &a_.node, &nowhere_), -1);
    _expect_one_line(3, "[Hash] Append hash list index invalid.");
    EXPECT_EQ(a_.node.list, nullptr);
}

TEST_F(Hash, RemoveUnlinksANodeFromItsBucket) {
    _append_all();
    EXPECT_EQ(zam_hash_remove(hash_, &b_.node, &b_.key), 0);
    EXPECT_EQ(zam_hash_num(hash_), 3u);
    EXPECT_EQ(_found(5), 'd');
    EXPECT_EQ(b_.node.list, nullptr);
}

TEST_F(Hash, RemoveOfANodeThatIsNotInTheKeysBucketChangesNothing) {
    _append_all();
    EXPECT_EQ(zam_hash_remove(hash_, &c_.node, &a_.key), 0);
    Element lone = {{}, 1, 'x'};
    EXPECT_EQ(zam_hash_remove(hash_, &lone.node, &lone.key), 0);
    EXPECT_EQ(zam_hash_num(hash_), 4u);
    EXPECT_EQ(_found(2), 'c');
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(Hash, RemoveRefusesNullArguments) {
    _append_all();
    EXPECT_EQ(zam_hash_remove(nullptr, &a_.node, &a_.key), -1);
    _expect_one_line(3, "[Hash] Remove hash node input invalid.");
    EXPECT_EQ(zam_hash_remove(hash_, nullptr, &a_.key), -1);
    _expect_one_line(3, "[Hash] Remove hash node input invalid.");
    EXPECT_EQ(zam_hash_remove(hash_, &a_.node, nullptr), -1);
    _expect_one_line(3, "[Hash] Remove hash node input invalid.");
    EXPECT_EQ(zam_hash_num(hash_), 4u);
}

TEST_F(Hash, RemoveRefusesAnIndexOutOfRange) {
    _append_all();
    EXPECT_EQ(zam_hash_remove(hash_, &a_.node, &nowhere_), -1);
    _expect_one_line(3, "[Hash] Remove hash index invalid.");
    EXPECT_EQ(zam_hash_num(hash_), 4u);
}

TEST_F(Hash, FindGivesTheFirstNodeWithTheKey) {
    _append_all();
    EXPECT_EQ(_found(1), 'a');
    EXPECT_EQ(_found(5), 'b');
    EXPECT_EQ(_found(2), 'c');
}

TEST_F(Hash, FindOfAnAbsentKeyIsNullAndSilent) {
    _append_all();
    EXPECT_EQ(_found(9), '-'); // its bucket has nodes
    EXPECT_EQ(_found(3), '-'); // its bucket is empty
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(Hash, FindRefusesNullArgumentsAsATrace) {
    EXPECT_EQ(zam_hash_find(nullptr, &a_.key), nullptr);
    _expect_one_line(7, "[Hash] Find hash node input invalid.");
    EXPECT_EQ(zam_hash_find(hash_, nullptr), nullptr);
    _expect_one_line(7, "[Hash] Find hash node input invalid.");
}

TEST_F(Hash, FindRefusesAnIndexOutOfRange) {
    EXPECT_EQ(zam_hash_find(hash_, &nowhere_), nullptr);
    _expect_one_line(3, "[Hash] Find hash index invalid.");
}

TEST_F(Hash, GetListGivesAnEmptyBucketToo) {
    const uint32_t key = 3;
    const zam_dlist *bucket = zam_hash_get_list(hash_, &key);
    ASSERT_NE(bucket, nullptr);
    EXPECT_EQ(bucket->count, 0u);
}

TEST_F(Hash, GetListRefusesNullArguments) {
    EXPECT_EQ(zam_hash_get_list(nullptr, &a_.key), nullptr);
    _expect_one_line(3, "[Hash] Get hash list input invalid.");
    EXPECT_EQ(zam_hash_get_list(hash_, nullptr), nullptr);
    _expect_one_line(3, "[Hash] Get hash list input invalid.");
}

TEST_F(Hash, GetListRefusesAnIndexOutOfRange) {
    EXPECT_EQ(zam_hash_get_list(hash_, &nowhere_), nullptr);
    _expect_one_line(3, "[Hash] Get hash list index invalid.");
}

TEST_F(Hash, NumOfNullIsZero) {
    EXPECT_EQ(zam_hash_num(nullptr), 0u);
}

TEST_F(Hash, FreeCallsTheFunctionBucketByBucket) {
    _append(c_);
    _append(a_);
    _append(b_);
    zam_hash_free(hash_, _note);
    hash_ = nullptr;
    EXPECT_EQ(visited, "abc");
    EXPECT_EQ(heap_.live(), 0u);
}

TEST_F(Hash, FreeOfNullIsIgnored) {
    zam_hash_free(nullptr, _note);
    EXPECT_EQ(visited, "");
    EXPECT_TRUE(log_.lines().empty());
}

TEST(HashHeap, LeavesNothingBehindWhenAnyAllocationFails) {
    const uint64_t failed = fail_each_allocation([](bool expect_failure) {
        zam_hash *hash = zam_hash_create(4, _index, _compare);
        EXPECT_TRUE(hash || expect_failure);
        zam_hash_free(hash, nullptr);
    });
    EXPECT_EQ(failed, 1u);
}

TEST(StrHash, OfTheEmptyStringIsZero) {
    EXPECT_EQ(zam_str_hash(""), 0u);
}

TEST(StrHash, OfNullIsZero) {
    EXPECT_EQ(zam_str_hash(nullptr), 0u);
}

TEST(StrHash, MultipliesBy131AndAddsAndWraps) {
    EXPECT_EQ(zam_str_hash("a"), 97u);
    EXPECT_EQ(zam_str_hash("ab"), 12805u);
    EXPECT_EQ(zam_str_hash("orvel-zam-server"), 2871345317u);
    EXPECT_EQ(zam_str_hash("the quick brown fox jumps over the lazy dog"), 619256711u);
}

TEST(StrHash, BytesFrom0x80OnSubtract) {
    EXPECT_EQ(zam_str_hash("\x80"), 4294967168u); // not 128
    EXPECT_EQ(zam_str_hash("\xff"), 4294967295u); // not 255
    EXPECT_EQ(zam_str_hash("a\xe9"
                           "b"),
              1661702u); // not 1695238
    EXPECT_EQ(zam_str_hash("gr\xc3\xb6\xc3\x9f"
                           "e"),
              2080850695u); // not 743357191
}

} // namespace
