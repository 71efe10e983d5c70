// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <zamc/utils.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "support/heap.h"
#include "support/log_capture.h"

namespace {

using zam::test::fail_each_allocation;
using zam::test::Heap;
using zam::test::LogCapture;

static_assert(offsetof(zam_string, text) == 0);
static_assert(offsetof(zam_string, length) == sizeof(char *));
static_assert(offsetof(zam_string, capacity) == sizeof(char *) + 4);
static_assert(offsetof(zam_string, inline_text) == sizeof(char *) + 8);
static_assert(sizeof(zam_string::inline_text) == 128);

class StringBuilder : public testing::Test {
protected:
    StringBuilder() { zam_init_string(&string_); }
    ~StringBuilder() override {
        zam_reset_string(&string_);
        EXPECT_EQ(heap_.live(), 0u) << heap_.live_sites();
    }
    const char *_put(std::string_view text) {
        return zam_put_string(&string_, text.data(), static_cast<uint32_t>(text.size()));
    }
    std::string _text() const {
        EXPECT_LT(string_.length, string_.capacity);
        EXPECT_EQ(string_.text[string_.length], '\0');
        return {string_.text, string_.length};
    }
    bool _inline() const { return string_.text == string_.inline_text; }

    Heap heap_;
    LogCapture log_;
    zam_string string_;
};

TEST_F(StringBuilder, BeginsEmptyInItsInlineStorage) {
    EXPECT_TRUE(_inline());
    EXPECT_EQ(string_.length, 0u);
    EXPECT_EQ(string_.capacity, 128u);
    EXPECT_STREQ(string_.text, "");
}

TEST_F(StringBuilder, ShortTextsNeedNoAllocation) {
    EXPECT_EQ(_put("hello"), string_.text);
    EXPECT_STREQ(_put(" world"), "hello world");
    EXPECT_EQ(_text(), "hello world");
    EXPECT_TRUE(_inline());
    EXPECT_EQ(heap_.allocations(), 0u);
}

TEST_F(StringBuilder, TakesOnlyTheCharactersThatItIsTold) {
    EXPECT_STREQ(zam_put_string(&string_, "hello", 3), "hel");
}

TEST_F(StringBuilder, AddingNothingGivesTheTextUnchanged) {
    _put("abc");
    EXPECT_EQ(zam_put_string(&string_, nullptr, 5), string_.text);
    EXPECT_EQ(zam_put_string(&string_, "x", 0), string_.text);
    EXPECT_EQ(_text(), "abc");
}

TEST_F(StringBuilder, AZeroedRecordIsInitialisedByItsFirstUse) {
    zam_string fresh = {};
    EXPECT_STREQ(zam_put_string(&fresh, "abc", 3), "abc");
    EXPECT_EQ(fresh.text, fresh.inline_text);
    EXPECT_EQ(fresh.capacity, 128u);
    zam_string untouched = {};
    EXPECT_STREQ(zam_put_string(&untouched, nullptr, 0), "");
    EXPECT_EQ(untouched.text, untouched.inline_text);
}

TEST_F(StringBuilder, InlineStorageHolds127Characters) {
    _put(std::string(127, 'x'));
    EXPECT_TRUE(_inline());
    EXPECT_EQ(_text(), std::string(127, 'x'));
}

TEST_F(StringBuilder, AFreshBuilderWith200BytesMovesToABlockOf329AndTenMoreFit) {
    EXPECT_NE(_put(std::string(200, 'x')), nullptr);
    EXPECT_FALSE(_inline());
    EXPECT_EQ(string_.capacity, 329u);
    EXPECT_EQ(heap_.live(), 1u);
    const char *text = string_.text;
    EXPECT_EQ(_put("0123456789"), text);
    EXPECT_EQ(string_.capacity, 329u);
    EXPECT_EQ(_text(), std::string(200, 'x') + "0123456789");
}

TEST_F(StringBuilder, AnAdditionBelowTheCapacityDoublesIt) {
    _put(std::string(100, 'x'));
    _put(std::string(28, 'y')); // reaches 128
    EXPECT_EQ(string_.capacity, 256u);
    EXPECT_EQ(_text(), std::string(100, 'x') + std::string(28, 'y'));
    _put(std::string(200, 'z'));
    EXPECT_EQ(string_.capacity, 512u);
    EXPECT_EQ(heap_.live(), 1u) << "the old block is released";
}

TEST_F(StringBuilder, AnAdditionOfTheCapacityAndMoreAddsItsSizeAndOne) {
    _put("a");
    _put(std::string(127, 'x')); // below the capacity
    EXPECT_EQ(string_.capacity, 256u);
    zam_reset_string(&string_);
    _put("a");
    _put(std::string(128, 'x'));
    EXPECT_EQ(string_.capacity, 257u);
}

TEST_F(StringBuilder, WithoutMemoryIsNullAndKeepsTheText) {
    _put("abc");
    heap_.fail_at(1);
    const std::string text(150, 'x');
    EXPECT_EQ(_put(text), nullptr);
    EXPECT_EQ(log_.count(3, "Allocate memory for put string '" + text + "' unsuccessful."), 1) << log_.all();
    EXPECT_EQ(_text(), "abc");
    EXPECT_TRUE(_inline());
}

TEST_F(StringBuilder, WithoutMemoryForASecondBlockKeepsTheFirst) {
    _put(std::string(200, 'x'));
    heap_.fail_at(1);
    EXPECT_EQ(_put(std::string(200, 'y')), nullptr);
    EXPECT_EQ(_text(), std::string(200, 'x'));
    EXPECT_EQ(string_.capacity, 329u);
}

TEST_F(StringBuilder, TheMessageOfAFailureReadsNoFurtherThanTheText) {
    const char unended[] = {'a', 'b'};
    _put(std::string(126, 'x'));
    heap_.fail_at(1);
    EXPECT_EQ(zam_put_string(&string_, unended, 2), nullptr);
    EXPECT_EQ(log_.count(3, "Allocate memory for put string 'ab' unsuccessful."), 1) << log_.all();
}

TEST_F(StringBuilder, ASizeBeyond32BitsIsALackOfMemory) {
    _put("abc");
    EXPECT_EQ(zam_put_string(&string_, "text", UINT32_MAX), nullptr);
    EXPECT_EQ(heap_.allocations(), 0u);
    EXPECT_EQ(_text(), "abc");
}

TEST_F(StringBuilder, ResetReleasesTheBlockAndBeginsAnew) {
    _put(std::string(200, 'x'));
    zam_reset_string(&string_);
    EXPECT_EQ(heap_.live(), 0u);
    EXPECT_TRUE(_inline());
    EXPECT_EQ(string_.length, 0u);
    EXPECT_EQ(string_.capacity, 128u);
    EXPECT_STREQ(string_.text, "");
}

TEST_F(StringBuilder, ResetOfInlineAndZeroedRecordsReleasesNothing) {
    _put("abc");
    zam_reset_string(&string_);
    EXPECT_EQ(_text(), "");
    zam_string fresh = {};
    zam_reset_string(&fresh);
    EXPECT_EQ(fresh.text, fresh.inline_text);
    EXPECT_EQ(fresh.capacity, 128u);
}

TEST_F(StringBuilder, NullBuildersAreIgnored) {
    zam_init_string(nullptr);
    zam_reset_string(nullptr);
    EXPECT_EQ(zam_put_string(nullptr, "x", 1), nullptr);
}

TEST(StringBuilderHeap, LeavesNothingBehindWhenAnyAllocationFails) {
    const uint64_t failed = fail_each_allocation([](bool) {
        zam_string string = {};
        uint32_t length = 0;
        for (int i = 0; i < 3; i++) {
            if (zam_put_string(&string, std::string(200u << i, 'x').c_str(), 200u << i)) length += 200u << i;
        }
        EXPECT_EQ(string.length, length);
        zam_reset_string(&string);
    });
    EXPECT_EQ(failed, 3u);
}

} // namespace
