// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <array>

#include <zamc/message.h>
#include <zamc/utils.h>

#include "io/engine.h"
#include "support/frames.h"
#include "support/heap.h"
#include "support/log_capture.h"

namespace {

using namespace zam::test;
using namespace std::string_literals;

zam_message message(std::string &payload, uint32_t encoding = ZAM_ENCODE_JSON) {
    return {encoding, static_cast<uint32_t>(payload.size()), payload.data()};
}

std::string payload_of(const zam_message &found) {
    return {found.data, found.length};
}

// Bytes in a block of exactly their size, so that a tool sees every step beyond it.
class Area {
public:
    explicit Area(std::string_view bytes) : bytes_(bytes.begin(), bytes.end()) {}
    int32_t peek(zam_message &found) { return zam_message_peek(bytes_.data(), size(), &found); }
    char *data() { return bytes_.data(); }
    uint32_t size() const { return static_cast<uint32_t>(bytes_.size()); }
    std::string content() const { return {bytes_.begin(), bytes_.end()}; }

private:
    std::vector<char> bytes_;
};

const std::string magic = "\x00\xFB\xBF\x00"s;

std::string header(unsigned char byte4, unsigned char byte5, uint32_t seq, uint32_t length) {
    std::string bytes = magic;
    bytes += {static_cast<char>(byte4), static_cast<char>(byte5), 0, 0};
    for (const uint32_t value : {seq, length}) {
        for (int shift = 24; shift >= 0; shift -= 8)
            bytes += static_cast<char>(value >> shift & 0xFF);
    }
    return bytes;
}

class MessagePush : public testing::Test {
protected:
    // What the peer receives when all that is queued is sent.
    std::string sent() {
        zam_connector_flush(link.connector);
        return link.peer_reads();
    }
    Link link;
};

TEST_F(MessagePush, QueuesARequestOfFiveBytes) {
    std::string payload = "hello";
    const zam_message msg = message(payload);
    EXPECT_EQ(zam_message_push(link.connector, ZAM_MESSAGE_REQUEST, 7, &msg), 0);
    EXPECT_EQ(sent(), "\x00\xFB\xBF\x00\x12\x00\x00\x00\x00\x00\x00\x07\x00\x00\x00\x05hello"s);
}

TEST_F(MessagePush, QueuesARewakeWithoutPayload) {
    const zam_message msg{ZAM_ENCODE_JSON, 0, nullptr};
    EXPECT_EQ(zam_message_push(link.connector, ZAM_MESSAGE_REWAKE, 0, &msg), 0);
    EXPECT_EQ(sent(), "\x00\xFB\xBF\x00\x02\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00"s);
}

TEST_F(MessagePush, SetsTheBitOfEachType) {
    constexpr std::array<std::array<unsigned char, 3>, 5> bits{
        {{0, 0x10, 0}, {1, 0x20, 0}, {2, 0x40, 0}, {3, 0x80, 0}, {5, 0, 1}}};
    for (const auto &[type, byte4, byte5] : bits) {
        const zam_message msg{0, 0, nullptr};
        EXPECT_EQ(zam_message_push(link.connector, type, 1, &msg), 0);
        EXPECT_EQ(sent(), header(byte4, byte5, 1, 0)) << int{type};
    }
}

TEST_F(MessagePush, SendsTheLowFourBitsOfTheEncoding) {
    const zam_message msg{0xFFFFFFF3, 0, nullptr};
    zam_message_push(link.connector, ZAM_MESSAGE_REPLY, 1, &msg);
    EXPECT_EQ(sent(), header(0x23, 0, 1, 0));
}

TEST_F(MessagePush, WritesNumbersInNetworkByteOrder) {
    std::string payload(0x01020, 'x');
    const zam_message msg = message(payload);
    zam_message_push(link.connector, ZAM_MESSAGE_REQUEST, 0xA1B2C3D4, &msg);
    EXPECT_EQ(sent().substr(8, 8), "\xA1\xB2\xC3\xD4\x00\x00\x10\x20"s);
}

TEST_F(MessagePush, SendsNothingItself) {
    std::string payload = "hello";
    const zam_message msg = message(payload);
    zam_message_push(link.connector, ZAM_MESSAGE_REQUEST, 7, &msg);
    EXPECT_EQ(link.peer_reads(), "");
}

TEST_F(MessagePush, OfAnUnknownTypeFailsSilentlyAndQueuesNothing) {
    std::string payload = "hello";
    const zam_message msg = message(payload);
    LogCapture log;
    for (const uint32_t type : {4u, 6u, 7u, 0xFFFFFFFFu})
        EXPECT_EQ(zam_message_push(link.connector, type, 1, &msg), -1) << type;
    EXPECT_EQ(log.all(), "");
    EXPECT_EQ(sent(), "");
}

TEST_F(MessagePush, RefusesNull) {
    const zam_message empty{0, 0, nullptr};
    const zam_message lost{0, 5, nullptr};
    EXPECT_EQ(zam_message_push(nullptr, ZAM_MESSAGE_REQUEST, 1, &empty), -1);
    EXPECT_EQ(zam_message_push(link.connector, ZAM_MESSAGE_REQUEST, 1, nullptr), -1);
    EXPECT_EQ(zam_message_push(link.connector, ZAM_MESSAGE_REQUEST, 1, &lost), -1);
    EXPECT_EQ(zam_send_reply(link.connector, 1, nullptr), -1);
    EXPECT_EQ(sent(), "") << "a header without its payload stayed behind";
}

TEST_F(MessagePush, AReplyAnswersWithTheRequestsNumber) {
    std::string payload = "{}";
    const zam_message msg = message(payload);
    EXPECT_EQ(zam_send_reply(link.connector, 42, &msg), 0);
    EXPECT_EQ(sent(), encode({Kind::reply, 42, ZAM_ENCODE_JSON, "{}"}));
}

TEST_F(MessagePush, FramesFollowEachOther) {
    std::string expected;
    for (uint32_t seq = 0; seq < 100; ++seq) {
        std::string payload(seq, static_cast<char>('a' + seq % 26));
        const zam_message msg = message(payload);
        ASSERT_EQ(zam_message_push(link.connector, ZAM_MESSAGE_REQUEST, seq, &msg), 0);
        expected += encode({Kind::request, seq, ZAM_ENCODE_JSON, payload});
    }
    EXPECT_EQ(sent(), expected);
}

TEST(MessagePushMemory, AFrameIsQueuedWholeOrNotAtAll) {
    // Fills the output so far that the header (1015) or only the payload (1000) does not fit any more.
    for (const size_t filled : {size_t{1015}, size_t{1000}}) {
        Heap heap;
        Link link;
        link.write(std::string(filled, 'k'));
        std::string payload(100, 'p');
        const zam_message msg = message(payload);
        heap.fail_at(1);
        EXPECT_EQ(zam_message_push(link.connector, ZAM_MESSAGE_REQUEST, 1, &msg), -1);
        EXPECT_TRUE(heap.failed());
        zam_connector_flush(link.connector);
        EXPECT_EQ(link.peer_reads(), std::string(filled, 'k')) << filled;
        EXPECT_EQ(zam_message_push(link.connector, ZAM_MESSAGE_REQUEST, 1, &msg), 0);
        zam_connector_flush(link.connector);
        EXPECT_EQ(link.peer_reads(), encode({Kind::request, 1, ZAM_ENCODE_JSON, payload}));
    }
}

TEST(MessagePeek, FindsAWholeFrame) {
    Area area{encode({Kind::reply, 9, ZAM_ENCODE_XML, "<ok/>"})};
    zam_message found{};
    EXPECT_EQ(area.peek(found), 1);
    EXPECT_EQ(found.data, area.data() + 16);
    EXPECT_EQ(found.encoding, static_cast<uint32_t>(ZAM_ENCODE_XML));
    EXPECT_EQ(payload_of(found), "<ok/>");
    EXPECT_EQ(zam_message_seq(&found), 9u);
}

TEST(MessagePeek, FindsAFrameWithoutPayload) {
    Area area{header(0x02, 1, 0, 0)};
    zam_message found{};
    EXPECT_EQ(area.peek(found), 1);
    EXPECT_EQ(found.length, 0u);
}

TEST(MessagePeek, FindsTheFirstOfSeveralFrames) {
    Area area{encode({Kind::request, 1, 2, "first"}) + encode({Kind::request, 2, 2, "second"})};
    zam_message found{};
    EXPECT_EQ(area.peek(found), 1);
    EXPECT_EQ(payload_of(found), "first");
}

TEST(MessagePeek, OfFifteenBytesIsTooEarly) {
    const std::string frame = header(0x12, 0, 1, 0);
    for (size_t length = 0; length < 16; ++length) {
        Area area{frame.substr(0, length)};
        zam_message found{};
        EXPECT_EQ(area.peek(found), 0) << length;
    }
}

TEST(MessagePeek, WaitsForTheLastByteOfThePayload) {
    Area area{header(0x12, 0, 1, 10) + "123456789"};
    const std::string before = area.content();
    zam_message found{};
    EXPECT_EQ(area.peek(found), 0);
    EXPECT_EQ(area.content(), before);
}

TEST(MessagePeek, OfNullFindsNothing) {
    zam_message found{};
    std::string frame = header(0x12, 0, 1, 0);
    EXPECT_EQ(zam_message_peek(nullptr, 100, &found), 0);
    EXPECT_EQ(zam_message_peek(frame.data(), 16, nullptr), 0);
}

TEST(MessagePeek, AHugeAnnouncedLengthIsOnlyIncomplete) {
    for (const uint32_t length : {0xFFFFFFFFu, 0xFFFFFFF0u, 0xFFFFFFEFu, 0x80000000u, 5u}) {
        Area area{header(0x12, 0, 1, length) + "four"};
        zam_message found{};
        EXPECT_EQ(area.peek(found), 0) << length;
    }
}

TEST(MessagePeek, MovesAFrameBehindThreeStrayBytesToTheFront) {
    const std::string frame = encode({Kind::request, 7, 2, "hello"});
    Area area{"abc" + frame};
    zam_message found{};
    EXPECT_EQ(area.peek(found), 1);
    EXPECT_EQ(found.data, area.data() + 16);
    EXPECT_EQ(payload_of(found), "hello");
    EXPECT_EQ(area.content(), frame + "llo") << "the last three bytes stay as they were";
}

TEST(MessagePeek, MovesAnIncompleteFrameToTheFrontToo) {
    const std::string part = header(0x12, 0, 1, 10) + "12345";
    Area area{"abc" + part};
    zam_message found{};
    EXPECT_EQ(area.peek(found), 0);
    EXPECT_EQ(area.content(), part + "345");
}

TEST(MessagePeek, LeavesStrayBytesInPlaceBeforeAnIncompleteHeader) {
    const std::string bytes = "abc" + header(0x12, 0, 1, 0).substr(0, 15);
    Area area{bytes};
    zam_message found{};
    EXPECT_EQ(area.peek(found), 0);
    EXPECT_EQ(area.content(), bytes);
}

TEST(MessagePeek, LeavesBytesWithoutMagicInPlace) {
    const std::string bytes = "nothing of the kind in here\x00\xFB\xBF"s;
    Area area{bytes};
    zam_message found{};
    EXPECT_EQ(area.peek(found), 0);
    EXPECT_EQ(area.content(), bytes);
}

TEST(MessagePeek, FindsTheMagicRightBehindBytesThatLookLikeItsStart) {
    const std::string frame = encode({Kind::request, 7, 2, "x"});
    for (const std::string &stray : {"\x00"s, "\x00\xFB"s, "\xFB\xBF\x00"s, "\x00\xFB\x00\xFB"s, "\x00\x00\x00"s}) {
        Area area{stray + frame};
        zam_message found{};
        EXPECT_EQ(area.peek(found), 1);
        EXPECT_EQ(area.content().substr(0, frame.size()), frame);
    }
}

// The rules for recognising a frame, one step at a time on a copy.
struct Recognised {
    int32_t result = 0;
    std::string area;
    size_t length = 0;
};
Recognised recognise(std::string area) {
    if (area.size() < 16) return {0, area};
    size_t start = 0;
    while (start + 4 <= area.size() && area.compare(start, 4, magic) != 0)
        ++start;
    if (start + 16 > area.size()) return {0, area};
    const std::string rest = area.substr(start);
    area.replace(0, rest.size(), rest);
    uint64_t length = 0;
    for (size_t i = 12; i < 16; ++i)
        length = length << 8 | static_cast<unsigned char>(area[i]);
    if (start + 16 + length > area.size()) return {0, area};
    return {1, area, static_cast<size_t>(length)};
}

TEST(MessagePeek, FollowsTheRulesOnArbitraryBytes) {
    uint32_t seed = 1;
    const auto random = [&seed](uint32_t below) {
        seed = seed * 1664525 + 1013904223;
        return (seed >> 8) % below;
    };
    int found_frames = 0;
    for (int round = 0; round < 20000; ++round) {
        std::string bytes;
        for (uint32_t parts = 1 + random(5); parts > 0; --parts) {
            switch (random(4)) {
            case 0: bytes += magic.substr(0, random(5)); break;
            case 1: bytes += std::string(random(12), static_cast<char>(random(256))); break;
            default: bytes += header(static_cast<unsigned char>(random(256)), 0, random(9), random(14)); break;
            }
        }
        Area area{bytes};
        zam_message found{};
        const Recognised expected = recognise(bytes);
        ASSERT_EQ(area.peek(found), expected.result) << testing::PrintToString(bytes);
        ASSERT_EQ(area.content(), expected.area) << testing::PrintToString(bytes);
        if (expected.result == 0) continue;
        ++found_frames;
        ASSERT_EQ(found.length, expected.length);
        ASSERT_EQ(found.data, area.data() + 16);
        ASSERT_EQ(found.encoding, static_cast<unsigned char>(expected.area[4]) & 15u);
    }
    EXPECT_GT(found_frames, 1000);
}

uint32_t type_of(unsigned char byte4, unsigned char byte5) {
    Area area{header(byte4, byte5, 0, 0)};
    zam_message found{};
    EXPECT_EQ(area.peek(found), 1);
    return zam_message_type(&found);
}

TEST(MessageType, IsGivenByItsBit) {
    EXPECT_EQ(type_of(0x12, 0), static_cast<uint32_t>(ZAM_MESSAGE_REQUEST));
    EXPECT_EQ(type_of(0x22, 0), static_cast<uint32_t>(ZAM_MESSAGE_REPLY));
    EXPECT_EQ(type_of(0x42, 0), static_cast<uint32_t>(ZAM_MESSAGE_OTHER_2));
    EXPECT_EQ(type_of(0x82, 0), static_cast<uint32_t>(ZAM_MESSAGE_OTHER_3));
    EXPECT_EQ(type_of(0x02, 0), static_cast<uint32_t>(ZAM_MESSAGE_UNTYPED));
    EXPECT_EQ(type_of(0x02, 1), static_cast<uint32_t>(ZAM_MESSAGE_REWAKE));
}

TEST(MessageType, OfSeveralBitsIsTheFirst) {
    EXPECT_EQ(type_of(0x30, 0), static_cast<uint32_t>(ZAM_MESSAGE_REQUEST));
    EXPECT_EQ(type_of(0xF0, 1), static_cast<uint32_t>(ZAM_MESSAGE_REQUEST));
    EXPECT_EQ(type_of(0xE0, 1), static_cast<uint32_t>(ZAM_MESSAGE_REPLY));
    EXPECT_EQ(type_of(0xC0, 1), static_cast<uint32_t>(ZAM_MESSAGE_OTHER_2));
    EXPECT_EQ(type_of(0x80, 1), static_cast<uint32_t>(ZAM_MESSAGE_OTHER_3));
}

TEST(MessageType, IgnoresReservedBits) {
    EXPECT_EQ(type_of(0x0F, 0xFE), static_cast<uint32_t>(ZAM_MESSAGE_UNTYPED));
    EXPECT_EQ(type_of(0x0F, 0xFF), static_cast<uint32_t>(ZAM_MESSAGE_REWAKE));
}

TEST(MessageType, OfNullIsUntyped) {
    const zam_message empty{};
    EXPECT_EQ(zam_message_type(nullptr), static_cast<uint32_t>(ZAM_MESSAGE_UNTYPED));
    EXPECT_EQ(zam_message_type(&empty), static_cast<uint32_t>(ZAM_MESSAGE_UNTYPED));
    EXPECT_EQ(zam_message_seq(nullptr), 0u);
    EXPECT_EQ(zam_message_seq(&empty), 0u);
    EXPECT_EQ(zam_message_is_reply(nullptr, 0), 0);
    EXPECT_EQ(zam_message_is_reply(&empty, 0), 0);
}

int32_t is_reply(unsigned char byte4, uint32_t seq, uint32_t asked) {
    Area area{header(byte4, 0, seq, 0)};
    zam_message found{};
    EXPECT_EQ(area.peek(found), 1);
    return zam_message_is_reply(&found, asked);
}

TEST(MessageIsReply, NeedsTheReplyBitAndTheNumber) {
    EXPECT_EQ(is_reply(0x22, 7, 7), 1);
    EXPECT_EQ(is_reply(0x22, 0xFFFFFFFF, 0xFFFFFFFF), 1);
    EXPECT_EQ(is_reply(0x22, 7, 8), 0);
    EXPECT_EQ(is_reply(0x12, 7, 7), 0) << "a request is no reply, whatever its number";
    EXPECT_EQ(is_reply(0x32, 7, 7), 1) << "the reply bit decides";
}

TEST(MessagePop, ConsumesExactlyTheFrame) {
    Link link;
    link.reenter(encode({Kind::request, 1, 2, "first"}) + "rest");
    uint32_t length = 0;
    char *input = zam_connector_readbuf(link.connector, &length);
    zam_message found{};
    ASSERT_EQ(zam_message_peek(input, length, &found), 1);
    zam_message_pop(link.connector, &found);
    EXPECT_EQ(link.input(), "rest");
}

TEST(MessagePop, IgnoresNullAndTakesNoMoreThanThereIs) {
    Link link;
    link.reenter("some bytes");
    zam_message_pop(link.connector, nullptr);
    EXPECT_EQ(link.input(), "some bytes");
    const zam_message huge{0, 0xFFFFFFFF, nullptr};
    zam_message_pop(nullptr, &huge);
    zam_message_pop(link.connector, &huge);
    EXPECT_EQ(link.input(), "");
}

TEST(MessagePop, StrayBytesComeBackAsInput) {
    Link link;
    link.reenter("abc" + encode({Kind::request, 1, 2, "hello"}));
    uint32_t length = 0;
    char *input = zam_connector_readbuf(link.connector, &length);
    zam_message found{};
    ASSERT_EQ(zam_message_peek(input, length, &found), 1);
    zam_message_pop(link.connector, &found);
    EXPECT_EQ(link.input(), "llo");
}

// Each pop either leaves the rest where it is, so that the input starts right behind the frame, or moves all of it.
// Moving it every time would be hundreds of gigabytes here.
TEST(MessagePop, TakesAHundredThousandBufferedFramesInOrderMovingEachByteAConstantNumberOfTimes) {
    constexpr uint32_t count = 100000;
    Link link;
    std::string bytes;
    for (uint32_t seq = 0; seq < count; ++seq)
        bytes += encode({Kind::request, seq, 2, text("payload number ", seq)});
    ASSERT_EQ(link.reenter(bytes), 0);
    const char *behind_frame = zam_connector_readbuf(link.connector, nullptr);
    uint64_t moved = 0;
    for (uint32_t seq = 0; seq < count; ++seq) {
        uint32_t length = 0;
        char *input = zam_connector_readbuf(link.connector, &length);
        if (input != behind_frame) moved += length;
        zam_message found{};
        ASSERT_EQ(zam_message_peek(input, length, &found), 1) << seq;
        ASSERT_EQ(zam_message_seq(&found), seq);
        ASSERT_EQ(payload_of(found), text("payload number ", seq));
        behind_frame = found.data + found.length;
        zam_message_pop(link.connector, &found);
    }
    EXPECT_EQ(link.input(), "");
    EXPECT_LE(moved, 2 * bytes.size());
}

TEST(MessageExchange, CarriesTenThousandFramesThroughASocketInOrder) {
    LogCapture quiet{3};
    Link link;
    constexpr uint32_t count = 10000;
    uint32_t got = 0;
    for (uint32_t seq = 0; seq < count; ++seq) {
        link.peer_sends(encode({Kind::reply, seq, 2, std::string(seq % 50, 'x')}));
        if (seq % 100 != 99) continue;
        link.wake();
        for (;;) {
            uint32_t length = 0;
            char *input = zam_connector_readbuf(link.connector, &length);
            zam_message found{};
            if (zam_message_peek(input, length, &found) == 0) break;
            ASSERT_TRUE(zam_message_is_reply(&found, got));
            ASSERT_EQ(found.length, got % 50);
            zam_message_pop(link.connector, &found);
            ++got;
        }
    }
    EXPECT_EQ(got, count);
    EXPECT_EQ(link.input(), "");
}

} // namespace
