// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "io/stream_buffer.h"

#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "support/heap.h"

namespace {

using zam::io::stream_buffer;
using namespace zam::test;

class StreamBuffer : public testing::Test {
protected:
    StreamBuffer() { EXPECT_TRUE(buffer.init(16)); }
    ~StreamBuffer() override { buffer.reset(); }

    int32_t append(std::string_view bytes) { return buffer.append(bytes.data(), static_cast<uint32_t>(bytes.size())); }
    std::string content() const { return {buffer.front(), buffer.size()}; }

    stream_buffer buffer{};
};

TEST_F(StreamBuffer, IsFilledAtTheEndAndEmptiedAtTheFront) {
    EXPECT_TRUE(buffer.empty());
    append("abc");
    append("defg");
    EXPECT_EQ(content(), "abcdefg");
    buffer.drop_front(2);
    EXPECT_EQ(content(), "cdefg");
    append("hi");
    EXPECT_EQ(content(), "cdefghi");
}

TEST_F(StreamBuffer, TakesBytesBackFromTheEndButNeverDroppedOnes) {
    append("abcdef");
    buffer.drop_front(2);
    buffer.drop_back(1);
    EXPECT_EQ(content(), "cde");
    buffer.drop_back(100);
    EXPECT_TRUE(buffer.empty());
    append("x");
    EXPECT_EQ(content(), "x");
}

TEST_F(StreamBuffer, DropsNoMoreThanThereIs) {
    append("abc");
    buffer.drop_front(0xFFFFFFFF);
    EXPECT_TRUE(buffer.empty());
    buffer.drop_front(1);
    buffer.drop_back(1);
    EXPECT_TRUE(buffer.empty());
}

TEST_F(StreamBuffer, KeepsItsContentOverManyDropsAndAppends) {
    std::string model;
    uint32_t seed = 1;
    for (int i = 0; i < 20000; ++i) {
        seed = seed * 1103515245 + 12345;
        const uint32_t amount = (seed >> 16) % 700;
        switch (seed >> 28 & 3) {
        case 0:
            buffer.drop_front(amount);
            model.erase(0, amount);
            break;
        case 1:
            buffer.drop_back(amount / 4);
            model.resize(model.size() - std::min<size_t>(model.size(), amount / 4));
            break;
        default:
            const std::string bytes(amount / 2, static_cast<char>('a' + i % 26));
            ASSERT_EQ(append(bytes), 0);
            model += bytes;
        }
        ASSERT_EQ(content(), model) << i;
        ASSERT_EQ(buffer.front()[buffer.size()], '\0') << i;
    }
}

TEST_F(StreamBuffer, CompactingMovesTheContentToTheStartOfTheBlock) {
    append("abcdefghij");
    buffer.drop_front(3);
    const zam_rw_bytes *bytes = buffer.compact();
    EXPECT_STREQ(bytes->data, "defghij");
    EXPECT_EQ(bytes->length, 7u);
    EXPECT_EQ(buffer.front(), bytes->data);
    EXPECT_EQ(content(), "defghij");
}

TEST_F(StreamBuffer, IsNeverLeftMoreThanHalfUnusedAboveTheSmallestBlock) {
    append(std::string(1000000, 'x'));
    while (!buffer.empty()) {
        buffer.drop_front(997);
        ASSERT_FALSE(buffer.is_oversized()) << buffer.size();
    }
}

TEST_F(StreamBuffer, DroppedRoomIsUsedAgainBeforeTheBlockGrows) {
    append("0123456789");
    buffer.drop_front(4);
    const char *block = buffer.compact()->data;
    append("abcdef");
    buffer.drop_front(5);
    append("ghijk");
    EXPECT_EQ(content(), "9abcdefghijk");
    EXPECT_EQ(buffer.compact()->data, block);
}

TEST(StreamBufferMemory, SurvivesEachFailingAllocation) {
    EXPECT_EQ(fail_each_allocation([](bool) {
                  stream_buffer buffer{};
                  if (buffer.init(16) && buffer.append("abc", 3) == 0) {
                      const std::string large(40000, 'x');
                      const bool grown = buffer.append(large.data(), 40000) == 0;
                      EXPECT_EQ(buffer.size(), grown ? 40003u : 3u);
                      buffer.drop_front(2);
                      EXPECT_EQ(*buffer.front(), 'c');
                      buffer.drop_front(39000);
                      EXPECT_EQ(buffer.size(), grown ? 1001u : 0u);
                  }
                  buffer.reset();
              }),
              4u); // the record, its block, the growth, the shrinking
}

} // namespace
