// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <zamc/utils.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include <gtest/gtest.h>
#include <zamc/mem.h>

#include "support/heap.h"
#include "support/log_capture.h"

namespace {

using zam::test::fail_each_allocation;
using zam::test::Heap;
using zam::test::LogCapture;

static_assert(offsetof(zam_rw_bytes, capacity) == 0);
static_assert(offsetof(zam_rw_bytes, length) == 4);
static_assert(offsetof(zam_rw_bytes, data) == 8);

int32_t (*const plain_pushf)(zam_rw_bytes *, const char *, ...) = zam_rw_bytes_pushf; // takes a null format unseen

ZAM_PRINTF(2, 3) int32_t _push_through_list(zam_rw_bytes *buffer, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int32_t result = zam_rw_bytes_vpushf(buffer, format, args);
    va_end(args);
    return result;
}

class RwBytes : public testing::Test {
protected:
    ~RwBytes() override {
        zam_rw_bytes_free(buffer_);
        EXPECT_EQ(heap_.live(), 0u) << heap_.live_sites();
    }
    void _create(uint32_t capacity, std::string_view content = {}) {
        buffer_ = zam_rw_bytes_new(capacity);
        ASSERT_NE(buffer_, nullptr);
        ASSERT_EQ(_push(content), 0);
        ASSERT_EQ(buffer_->capacity, capacity) << "the content is meant to fit";
    }
    int32_t _push(std::string_view text) {
        return zam_rw_bytes_push(buffer_, text.data(), static_cast<uint32_t>(text.size()));
    }
    int32_t _push_front(std::string_view text) {
        return zam_rw_bytes_push_front(buffer_, text.data(), static_cast<uint32_t>(text.size()));
    }
    // The content, once the byte behind it was seen to be 0.
    std::string _content() const {
        EXPECT_LT(buffer_->length, buffer_->capacity);
        EXPECT_EQ(buffer_->data[buffer_->length], '\0');
        return {buffer_->data, buffer_->length};
    }

    Heap heap_;
    LogCapture log_;
    zam_rw_bytes *buffer_ = nullptr;
};

TEST_F(RwBytes, OfCapacityZeroIsNullAndSilent) {
    EXPECT_EQ(zam_rw_bytes_new(0), nullptr);
    EXPECT_TRUE(log_.lines().empty());
    EXPECT_EQ(heap_.allocations(), 0u);
}

TEST_F(RwBytes, BeginsEmptyWithExactlyTheCapacity) {
    _create(16);
    EXPECT_EQ(buffer_->length, 0u);
    EXPECT_EQ(std::string(buffer_->data, 16), std::string(16, '\0'));
    EXPECT_EQ(heap_.live(), 2u);
}

TEST_F(RwBytes, WithoutMemoryForTheHeadIsLogged) {
    heap_.fail_at(1);
    EXPECT_EQ(zam_rw_bytes_new(16), nullptr);
    EXPECT_EQ(log_.count(0, "Allocate memory for rw-bytes head unsuccessful."), 1);
}

TEST_F(RwBytes, WithoutMemoryForTheBufferIsLoggedAndTheHeadReleased) {
    heap_.fail_at(2);
    EXPECT_EQ(zam_rw_bytes_new(16), nullptr);
    EXPECT_EQ(log_.count(0, "Allocate memory for rw-bytes buffer unsuccessful."), 1);
    EXPECT_EQ(heap_.live(), 0u);
}

TEST_F(RwBytes, FreeOfNullIsIgnored) {
    zam_rw_bytes_free(nullptr);
}

TEST_F(RwBytes, PushingToTheCapacityGrowsAndOneByteLessDoesNot) {
    _create(16, "0123456789");
    EXPECT_EQ(_push("abcde"), 0);
    EXPECT_EQ(buffer_->capacity, 16u);
    EXPECT_EQ(_content(), "0123456789abcde");
    zam_rw_bytes_pop_back(buffer_, 5);
    EXPECT_EQ(_push("abcdef"), 0);
    EXPECT_EQ(buffer_->capacity, 8192u);
    EXPECT_EQ(_content(), "0123456789abcdef");
}

TEST_F(RwBytes, ABufferOf64KiBGrowsInStepsOf2MiB) {
    _create(65536, std::string(60000, 'x'));
    EXPECT_EQ(_push(std::string(10000, 'y')), 0);
    EXPECT_EQ(buffer_->capacity, 2097152u);
    EXPECT_EQ(_content(), std::string(60000, 'x') + std::string(10000, 'y'));
}

TEST_F(RwBytes, ABufferJustBelow64KiBGrowsInStepsOf8KiB) {
    _create(65535, std::string(60000, 'x'));
    EXPECT_EQ(_push(std::string(10000, 'y')), 0);
    EXPECT_EQ(buffer_->capacity, 73728u); // 78192 rounded down
}

TEST_F(RwBytes, GrowthIsCountedFromTheBytesInUse) {
    _create(16, "0123456789");
    EXPECT_EQ(_push(std::string(8181, 'x')), 0); // 8191 in use
    EXPECT_EQ(buffer_->capacity, 8192u);
    zam_rw_bytes_free(buffer_);
    _create(16, "0123456789");
    EXPECT_EQ(_push(std::string(8182, 'x')), 0); // 8192 in use need a second step for the terminator
    EXPECT_EQ(buffer_->capacity, 16384u);
}

TEST_F(RwBytes, TheGrownPartIsZero) {
    _create(4, "abc");
    EXPECT_EQ(_push("d"), 0);
    EXPECT_EQ(std::string(buffer_->data + 4, 8188), std::string(8188, '\0'));
}

TEST_F(RwBytes, PushOfNullReservesWhatTheBlockHolds) {
    _create(16, "abc");
    std::memcpy(buffer_->data + 3, "xyz", 3);
    EXPECT_EQ(zam_rw_bytes_push(buffer_, nullptr, 3), 0);
    EXPECT_EQ(_content(), "abcxyz");
}

TEST_F(RwBytes, PushOfNothingKeepsTheContent) {
    _create(16, "abc");
    EXPECT_EQ(zam_rw_bytes_push(buffer_, "x", 0), 0);
    EXPECT_EQ(zam_rw_bytes_push(buffer_, nullptr, 0), 0);
    EXPECT_EQ(_content(), "abc");
}

TEST_F(RwBytes, PushedBytesMayBeZero) {
    _create(16);
    const std::string_view bytes{"a\0b\0", 4};
    EXPECT_EQ(_push(bytes), 0);
    EXPECT_EQ(_content(), bytes);
}

TEST_F(RwBytes, PushWithoutMemoryKeepsTheContent) {
    _create(16, "0123456789");
    heap_.fail_at(1);
    EXPECT_EQ(_push("abcdef"), -1);
    EXPECT_EQ(log_.count(0, "Allocate memory for expand rw-bytes buffer unsuccessful."), 1);
    EXPECT_EQ(_content(), "0123456789");
    EXPECT_EQ(buffer_->capacity, 16u);
}

TEST_F(RwBytes, ASizeBeyond32BitsIsALackOfMemory) {
    _create(16, "0123456789");
    const uint64_t before = heap_.allocations();
    EXPECT_EQ(zam_rw_bytes_push(buffer_, nullptr, UINT32_MAX), -1);
    EXPECT_EQ(zam_rw_bytes_push_front(buffer_, nullptr, UINT32_MAX - 9), -1);
    EXPECT_EQ(log_.count(0, "Allocate memory for expand rw-bytes buffer unsuccessful."), 2);
    EXPECT_EQ(heap_.allocations(), before);
    EXPECT_EQ(_content(), "0123456789");
}

TEST_F(RwBytes, PushFrontMovesTheContentUp) {
    _create(16, "world");
    EXPECT_EQ(_push_front("hello "), 0);
    EXPECT_EQ(_content(), "hello world");
    EXPECT_EQ(buffer_->capacity, 16u);
}

TEST_F(RwBytes, PushFrontWorksUpToTheLastFreeByteAndGrowsBeyond) {
    _create(16, "0123456789");
    EXPECT_EQ(_push_front("abcde"), 0);
    EXPECT_EQ(buffer_->capacity, 16u);
    EXPECT_EQ(_content(), "abcde0123456789");
    EXPECT_EQ(_push_front("f"), 0);
    EXPECT_EQ(buffer_->capacity, 8192u);
    EXPECT_EQ(_content(), "fabcde0123456789");
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(RwBytes, PushFrontOfNullReservesAtTheEndWithoutMoving) {
    _create(16, "abc");
    std::memcpy(buffer_->data + 3, "xy", 2);
    EXPECT_EQ(zam_rw_bytes_push_front(buffer_, nullptr, 2), 0);
    EXPECT_EQ(_content(), "abcxy");
}

TEST_F(RwBytes, PushFrontWithoutMemoryKeepsTheContent) {
    _create(16, "0123456789");
    heap_.fail_at(1);
    EXPECT_EQ(_push_front("abcdef"), -1);
    EXPECT_EQ(log_.count(0, "Allocate memory for expand rw-bytes buffer unsuccessful."), 1);
    EXPECT_EQ(_content(), "0123456789");
}

TEST_F(RwBytes, ResizeToZeroReleasesTheBlockAndZeroesTheRecord) {
    _create(16, "abc");
    zam_rw_bytes_resize(buffer_, 0);
    EXPECT_EQ(buffer_->capacity, 0u);
    EXPECT_EQ(buffer_->length, 0u);
    EXPECT_EQ(buffer_->data, nullptr);
    EXPECT_EQ(heap_.live(), 1u);
}

TEST_F(RwBytes, AnEmptyRecordGrowsAgainByPush) {
    _create(16, "abc");
    zam_rw_bytes_resize(buffer_, 0);
    EXPECT_EQ(_push("new"), 0);
    EXPECT_EQ(buffer_->capacity, 8192u);
    EXPECT_EQ(_content(), "new");
}

TEST_F(RwBytes, ResizeInstallsABlockOfExactlyThatSize) {
    _create(16, "abc");
    zam_rw_bytes_resize(buffer_, 100);
    EXPECT_EQ(buffer_->capacity, 100u);
    EXPECT_EQ(_content(), "abc");
    EXPECT_EQ(std::string(buffer_->data + 3, 97), std::string(97, '\0'));
    zam_rw_bytes_resize(buffer_, 4);
    EXPECT_EQ(buffer_->capacity, 4u);
    EXPECT_EQ(_content(), "abc");
}

TEST_F(RwBytes, ResizeBelowTheLengthKeepsTheLengthAndWhatFits) {
    _create(16, "0123456789");
    zam_rw_bytes_resize(buffer_, 5);
    EXPECT_EQ(buffer_->capacity, 5u);
    EXPECT_EQ(buffer_->length, 10u);
    EXPECT_STREQ(buffer_->data, "0123");
}

TEST_F(RwBytes, OperationsAfterAResizeBelowTheLengthStayInTheBlock) {
    _create(16, "0123456789");
    zam_rw_bytes_resize(buffer_, 5);
    EXPECT_EQ(_push("ab"), 0);
    EXPECT_EQ(_content().substr(0, 4), "0123");
    EXPECT_EQ(_content().substr(5), "ab");
    zam_rw_bytes_resize(buffer_, 3);
    zam_rw_bytes_pop_front(buffer_, 1);
    EXPECT_EQ(_content().substr(0, 1), "1");
    zam_rw_bytes_resize(buffer_, 1);
    zam_rw_bytes_pop_back(buffer_, 1);
    EXPECT_EQ(_content(), "");
}

TEST_F(RwBytes, ResizeWithoutMemoryChangesNothing) {
    _create(16, "abc");
    heap_.fail_at(1);
    zam_rw_bytes_resize(buffer_, 100);
    EXPECT_EQ(log_.count(0, "Allocate memory for resize rw-bytes buffer unsuccessful."), 1);
    EXPECT_EQ(buffer_->capacity, 16u);
    EXPECT_EQ(_content(), "abc");
}

TEST_F(RwBytes, PushfAppendsAFormattedText) {
    _create(32, "a:");
    EXPECT_EQ(zam_rw_bytes_pushf(buffer_, "%d-%s", 42, "x"), 0);
    EXPECT_EQ(_content(), "a:42-x");
    EXPECT_EQ(buffer_->capacity, 32u);
    EXPECT_EQ(_push_through_list(buffer_, "%c", '!'), 0);
    EXPECT_EQ(_content(), "a:42-x!");
}

TEST_F(RwBytes, PushfGrowsToExactlyWhatItNeeds) {
    _create(8, "0123");
    EXPECT_EQ(zam_rw_bytes_pushf(buffer_, "%s", "abc"), 0);
    EXPECT_EQ(buffer_->capacity, 8u);
    EXPECT_EQ(zam_rw_bytes_pushf(buffer_, "%s", "d"), 0); // 7 + 1 reaches the capacity
    EXPECT_EQ(buffer_->capacity, 9u);
    EXPECT_EQ(_content(), "0123abcd");
}

TEST_F(RwBytes, PushfOfAnEmptyTextSucceeds) {
    _create(8, "0123");
    EXPECT_EQ(zam_rw_bytes_pushf(buffer_, "%s", ""), 0);
    EXPECT_EQ(_content(), "0123");
}

TEST_F(RwBytes, PushfWithoutMemoryKeepsTheContent) {
    _create(8, "0123");
    heap_.fail_at(1);
    EXPECT_EQ(zam_rw_bytes_pushf(buffer_, "%s", "abcdefgh"), -1);
    EXPECT_EQ(log_.count(0, "Allocate memory for resize rw-bytes buffer unsuccessful."), 1);
    EXPECT_EQ(_content(), "0123");
    EXPECT_EQ(buffer_->capacity, 8u);
}

TEST_F(RwBytes, PushfOfATextThatCannotBePrintedIsLogged) {
    _create(8, "0123");
    const wchar_t unprintable[] = {static_cast<wchar_t>(0x7fffffff), 0};
    EXPECT_EQ(zam_rw_bytes_pushf(buffer_, "%ls", unprintable), -1);
    EXPECT_EQ(log_.count(3, "Push data unsuccessful."), 1);
    EXPECT_EQ(_content(), "0123");
}

TEST_F(RwBytes, PopFrontDropsTheFirstBytes) {
    _create(16, "hello world");
    zam_rw_bytes_pop_front(buffer_, 6);
    EXPECT_EQ(_content(), "world");
    EXPECT_EQ(buffer_->capacity, 16u);
}

TEST_F(RwBytes, PopBackDropsTheLastBytes) {
    _create(16, "hello world");
    zam_rw_bytes_pop_back(buffer_, 6);
    EXPECT_EQ(_content(), "hello");
}

TEST_F(RwBytes, PoppingMoreThanThereIsMakesItEmpty) {
    _create(64, std::string(40, 'x'));
    zam_rw_bytes_pop_front(buffer_, 100);
    EXPECT_EQ(_content(), "");
    EXPECT_STREQ(buffer_->data, "");
    _push(std::string(40, 'x'));
    zam_rw_bytes_pop_back(buffer_, 100);
    EXPECT_STREQ(buffer_->data, "");
    EXPECT_EQ(buffer_->length, 0u);
}

TEST_F(RwBytes, PoppingEverythingMakesItEmpty) {
    _create(16, "abc");
    zam_rw_bytes_pop_front(buffer_, 3);
    EXPECT_EQ(_content(), "");
    _push("abc");
    zam_rw_bytes_pop_back(buffer_, 3);
    EXPECT_EQ(_content(), "");
}

TEST_F(RwBytes, PoppingNothingDoesNothing) {
    _create(16384, "abc");
    zam_rw_bytes_pop_front(buffer_, 0);
    zam_rw_bytes_pop_back(buffer_, 0);
    EXPECT_EQ(_content(), "abc");
    EXPECT_EQ(buffer_->capacity, 16384u);
}

TEST_F(RwBytes, APopThatLeavesLessThanHalfShrinks) {
    _create(16384, std::string(2000, 'x') + std::string(7000, 'y'));
    zam_rw_bytes_pop_front(buffer_, 2000);
    EXPECT_EQ(buffer_->capacity, 8192u); // 7000 + 8192 rounded down to a multiple of 8192
    EXPECT_EQ(_content(), std::string(7000, 'y'));
}

TEST_F(RwBytes, APopFromTheBackShrinksToo) {
    _create(16384, std::string(7000, 'y') + std::string(2000, 'x'));
    zam_rw_bytes_pop_back(buffer_, 2000);
    EXPECT_EQ(buffer_->capacity, 8192u);
    EXPECT_EQ(_content(), std::string(7000, 'y'));
}

TEST_F(RwBytes, APopThatLeavesHalfKeepsTheBlock) {
    _create(20000, std::string(10008, 'x'));
    zam_rw_bytes_pop_front(buffer_, 8); // the capacity is just twice what is left
    EXPECT_EQ(buffer_->capacity, 20000u);
    zam_rw_bytes_pop_front(buffer_, 1);
    EXPECT_EQ(buffer_->capacity, 16384u);
    EXPECT_EQ(_content(), std::string(9999, 'x'));
}

TEST_F(RwBytes, ABlockOf8192BytesIsNeverShrunkAndOneByteMoreIs) {
    _create(8192, "abcd");
    zam_rw_bytes_pop_front(buffer_, 3);
    EXPECT_EQ(buffer_->capacity, 8192u);
    zam_rw_bytes_free(buffer_);
    _create(8193, "abcd");
    zam_rw_bytes_pop_front(buffer_, 3);
    EXPECT_EQ(buffer_->capacity, 8192u);
    EXPECT_EQ(_content(), "d");
}

TEST_F(RwBytes, AShrinkWithoutMemoryKeepsBlockAndContent) {
    _create(16384, "0123456789");
    heap_.fail_at(1);
    zam_rw_bytes_pop_front(buffer_, 4);
    EXPECT_EQ(log_.count(0, "Allocate memory for resize rw-bytes buffer unsuccessful."), 1);
    EXPECT_EQ(buffer_->capacity, 16384u);
    EXPECT_EQ(_content(), "456789");
}

TEST_F(RwBytes, NullArgumentsAndMissingBlocksAreHarmless) {
    EXPECT_EQ(zam_rw_bytes_push(nullptr, "x", 1), -1);
    EXPECT_EQ(zam_rw_bytes_push_front(nullptr, "x", 1), -1);
    EXPECT_EQ(zam_rw_bytes_pushf(nullptr, "x"), -1);
    zam_rw_bytes_pop_front(nullptr, 1);
    zam_rw_bytes_pop_back(nullptr, 1);
    zam_rw_bytes_resize(nullptr, 8);
    zam_rw_bytes empty = {0, 0, nullptr};
    zam_rw_bytes_pop_front(&empty, 1);
    zam_rw_bytes_pop_back(&empty, 1);
    zam_rw_bytes_resize(&empty, 0);
    EXPECT_EQ(empty.length, 0u);
    EXPECT_EQ(empty.data, nullptr);
    _create(8, "abc");
    EXPECT_EQ(plain_pushf(buffer_, nullptr), -1);
    EXPECT_EQ(_content(), "abc");
}

TEST(RwBytesRecord, OfACallersOwnIsTakenAsItSays) {
    char outside[] = "x";
    zam_rw_bytes none{0, 1, outside};
    zam_rw_bytes_pop_front(&none, 1);
    zam_rw_bytes_pop_back(&none, 1);
    EXPECT_STREQ(outside, "x") << "of which it says that there is nothing";

    zam_rw_bytes absent{8, 3, nullptr};
    zam_rw_bytes_resize(&absent, 10);
    EXPECT_EQ(absent.capacity, 10u);
    ASSERT_NE(absent.data, nullptr);
    EXPECT_STREQ(absent.data, "");
    zam_free(absent.data);
}

TEST(RwBytesHeap, LeavesNothingBehindWhenAnyAllocationFails) {
    const uint64_t failed = fail_each_allocation([](bool expect_failure) {
        zam_rw_bytes *buffer = zam_rw_bytes_new(4);
        const std::string text(20000, 'x');
        const bool pushed = zam_rw_bytes_push(buffer, text.data(), 20000) == 0;
        const bool fronted = zam_rw_bytes_push_front(buffer, text.data(), 20000) == 0;
        const bool printed = zam_rw_bytes_pushf(buffer, "%s", text.c_str()) == 0;
        EXPECT_TRUE(expect_failure || (pushed && fronted && printed));
        const uint32_t held = buffer ? buffer->length : 0;
        EXPECT_EQ(held, 20000u * (pushed + fronted + printed));
        zam_rw_bytes_pop_front(buffer, 55000);
        zam_rw_bytes_free(buffer);
    });
    EXPECT_EQ(failed, 6u); // head, block, three growths, one shrink
}

} // namespace
