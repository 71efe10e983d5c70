// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <zamc/vector.h>

#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include "support/heap.h"
#include "support/log_capture.h"

namespace {

using zam::test::fail_each_allocation;
using zam::test::Heap;
using zam::test::LogCapture;

int items[16]; // whose addresses serve as items
std::vector<void *> freed;

void _note(void *item) {
    freed.push_back(item);
}

class Vector : public testing::Test {
protected:
    Vector() { freed.clear(); }
    ~Vector() override {
        zam_vector_free(vector_, nullptr);
        EXPECT_EQ(heap_.live(), 0u) << heap_.live_sites();
    }
    // A vector of that capacity, with so many items in its first slots.
    void _fill(uint32_t capacity, uint32_t count) {
        vector_ = zam_vector_init(capacity);
        for (uint32_t i = 0; i < count; i++)
            ASSERT_EQ(zam_vector_add(&vector_, &items[i], nullptr), 0);
    }

    Heap heap_;
    LogCapture log_;
    zam_vector *vector_ = nullptr;
};

TEST_F(Vector, OfCapacityZeroIsNull) {
    EXPECT_EQ(zam_vector_init(0), nullptr);
    EXPECT_EQ(heap_.allocations(), 0u);
}

TEST_F(Vector, BeginsEmptyInOneBlockWithAllSlotsNull) {
    vector_ = zam_vector_init(5);
    ASSERT_NE(vector_, nullptr);
    EXPECT_EQ(heap_.live(), 1u);
    EXPECT_EQ(zam_vector_size(vector_), 5u);
    EXPECT_EQ(zam_vector_used(vector_), 0u);
    for (uint32_t i = 0; i < 5; i++)
        EXPECT_EQ(zam_vector_get(vector_, i), nullptr);
}

TEST_F(Vector, OfCapacityOneDoublesAndEachNewItemLandsAtTheOldCapacity) {
    _fill(1, 0);
    const struct {
        uint32_t index;
        uint32_t capacity;
    } after[] = {{0, 1}, {1, 2}, {2, 4}, {3, 4}, {4, 8}, {5, 8}};
    for (const auto &step : after) {
        uint32_t index = 99;
        ASSERT_EQ(zam_vector_add(&vector_, &items[step.index], &index), 0);
        EXPECT_EQ(index, step.index);
        EXPECT_EQ(zam_vector_size(vector_), step.capacity);
        EXPECT_EQ(zam_vector_used(vector_), step.index + 1);
    }
    for (uint32_t i = 0; i < 6; i++)
        EXPECT_EQ(zam_vector_get(vector_, i), &items[i]);
    EXPECT_EQ(heap_.live(), 1u);
}

TEST_F(Vector, ASlotFreedInAFullVectorIsUsedAgainWithoutGrowth) {
    _fill(4, 4);
    zam_vector_remove(vector_, 0, nullptr);
    uint32_t index = 99;
    EXPECT_EQ(zam_vector_add(&vector_, &items[9], &index), 0);
    EXPECT_EQ(index, 0u);
    EXPECT_EQ(zam_vector_size(vector_), 4u);
    EXPECT_EQ(zam_vector_get(vector_, 0), &items[9]);
}

TEST_F(Vector, AddTakesTheLowestFreeSlot) {
    _fill(4, 4);
    zam_vector_remove(vector_, 3, nullptr);
    zam_vector_remove(vector_, 1, nullptr);
    uint32_t index = 99;
    zam_vector_add(&vector_, &items[8], &index);
    EXPECT_EQ(index, 1u);
    zam_vector_add(&vector_, &items[9], &index);
    EXPECT_EQ(index, 3u);
    EXPECT_EQ(zam_vector_used(vector_), 4u);
}

TEST_F(Vector, AddRefusesNullArguments) {
    _fill(1, 0);
    uint32_t index = 99;
    zam_vector *none = nullptr;
    EXPECT_EQ(zam_vector_add(nullptr, &items[0], &index), -1);
    EXPECT_EQ(zam_vector_add(&none, &items[0], &index), -1);
    EXPECT_EQ(zam_vector_add(&vector_, nullptr, &index), -1);
    EXPECT_EQ(index, 99u);
    EXPECT_EQ(zam_vector_used(vector_), 0u);
}

TEST_F(Vector, AddWithoutMemoryChangesNothing) {
    _fill(2, 2);
    zam_vector *before = vector_;
    heap_.fail_at(1);
    uint32_t index = 99;
    EXPECT_EQ(zam_vector_add(&vector_, &items[2], &index), -1);
    EXPECT_EQ(log_.count(0, "[Vector] Alloc memory for expand vector failed"), 1);
    EXPECT_EQ(vector_, before);
    EXPECT_EQ(index, 99u);
    EXPECT_EQ(zam_vector_size(vector_), 2u);
    EXPECT_EQ(zam_vector_used(vector_), 2u);
    EXPECT_EQ(zam_vector_get(vector_, 1), &items[1]);
}

TEST_F(Vector, GetAtTheCapacityIsLoggedAndNull) {
    _fill(2, 2);
    EXPECT_EQ(zam_vector_get(vector_, 2), nullptr);
    EXPECT_EQ(log_.lines().size(), 1u);
    EXPECT_EQ(log_.count(3, "[Vector] Index to get is illegal."), 1);
    EXPECT_EQ(zam_vector_get(vector_, UINT32_MAX), nullptr);
}

TEST_F(Vector, RemoveGivesTheItemToTheFunctionAndClearsTheSlot) {
    _fill(2, 2);
    zam_vector_remove(vector_, 1, _note);
    EXPECT_EQ(freed, std::vector<void *>{&items[1]});
    EXPECT_EQ(zam_vector_get(vector_, 1), nullptr);
    EXPECT_EQ(zam_vector_used(vector_), 1u);
    EXPECT_EQ(zam_vector_size(vector_), 2u);
}

TEST_F(Vector, RemoveOfAFreeSlotCallsTheFunctionWithNullAndStillCountsDown) {
    _fill(4, 2);
    zam_vector_remove(vector_, 3, _note);
    EXPECT_EQ(freed, std::vector<void *>{nullptr});
    EXPECT_EQ(zam_vector_used(vector_), 1u);
}

TEST_F(Vector, RemoveAtTheCapacityIsLoggedAndChangesNothing) {
    _fill(2, 2);
    zam_vector_remove(vector_, 2, _note);
    EXPECT_EQ(log_.lines().size(), 1u);
    EXPECT_EQ(log_.count(3, "[Vector] Index to be deleted is illegal."), 1);
    EXPECT_TRUE(freed.empty());
    EXPECT_EQ(zam_vector_used(vector_), 2u);
}

TEST_F(Vector, FreeCallsTheFunctionForItemsOnly) {
    _fill(4, 3);
    zam_vector_remove(vector_, 1, nullptr);
    zam_vector_free(vector_, _note);
    vector_ = nullptr;
    EXPECT_EQ(freed, (std::vector<void *>{&items[0], &items[2]}));
}

TEST_F(Vector, ANullVectorIsEmptyAndIgnored) {
    zam_vector_free(nullptr, _note);
    zam_vector_remove(nullptr, 0, _note);
    EXPECT_EQ(zam_vector_get(nullptr, 0), nullptr);
    EXPECT_EQ(zam_vector_size(nullptr), 0u);
    EXPECT_EQ(zam_vector_used(nullptr), 0u);
    EXPECT_TRUE(freed.empty());
}

TEST_F(Vector, ACapacityBeyondTheHooksSizesIsALackOfMemory) {
    EXPECT_EQ(zam_vector_init(UINT32_MAX), nullptr);
    EXPECT_EQ(zam_vector_init(UINT32_MAX / sizeof(void *)), nullptr); // the header makes it too much
    EXPECT_EQ(heap_.allocations(), 0u);
}

TEST(VectorHeap, LeavesNothingBehindWhenAnyAllocationFails) {
    const uint64_t failed = fail_each_allocation([](bool) {
        zam_vector *vector = zam_vector_init(1);
        uint32_t added = 0;
        for (int &item : items)
            added += zam_vector_add(&vector, &item, nullptr) == 0;
        EXPECT_EQ(zam_vector_used(vector), added);
        zam_vector_free(vector, nullptr);
    });
    EXPECT_EQ(failed, 5u); // 1, 2, 4, 8 and 16 slots
}

} // namespace
