// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <algorithm>
#include <deque>
#include <random>

#include "client_fixture.h"

namespace zam::test {
namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;

// Fills the input directly, as if it had just been read.
class Input : public ConnectedTest {
protected:
    void arrive(const std::string &bytes) {
        ASSERT_EQ(zam_connector_reentry(client->connector, bytes.data(), static_cast<uint32_t>(bytes.size())), 0);
    }
    std::string next() { return take(client::next_frame); }
    std::string next_reply() { return take(client::next_reply); }
    std::vector<std::string> all() {
        std::vector<std::string> payloads;
        for (std::string payload = next(); payload != "(none)"; payload = next())
            payloads.push_back(payload);
        return payloads;
    }
    std::string unread() {
        uint32_t length = 0;
        const char *data = zam_connector_readbuf(client->connector, &length);
        return data ? std::string{data, length} : std::string{};
    }
    static Frame other(std::string payload) { return {Kind::other2, 0, 2, std::move(payload)}; }

private:
    std::string take(bool (*find)(zamc_client *, zam_message *)) {
        zam_message message;
        if (!find(client, &message)) return "(none)";
        std::string payload{message.data, message.length};
        client::pop_frame(client, &message);
        return payload;
    }
};

TEST_F(Input, EmptyItHoldsNoFrame) {
    EXPECT_EQ(next(), "(none)");
    EXPECT_EQ(next_reply(), "(none)");
}

TEST_F(Input, HalfAFrameIsNone) {
    const std::string bytes = encode(reply(1, "payload"));
    for (size_t i = 0; i + 1 < bytes.size(); ++i) {
        arrive(bytes.substr(i, 1));
        EXPECT_EQ(next(), "(none)");
        EXPECT_EQ(next_reply(), "(none)");
    }
    arrive(bytes.substr(bytes.size() - 1));
    EXPECT_EQ(next(), "payload");
}

TEST_F(Input, FramesComeInTheirOrder) {
    arrive(encode_all({other("a"), reply(1, "b"), request(2, "c"), rewake()}));
    EXPECT_THAT(all(), ElementsAre("a", "b", "c", ""));
    EXPECT_EQ(unread(), "");
}

TEST_F(Input, AFrameIsFoundAgainUntilItIsPopped) {
    arrive(encode_all({other("a"), other("b")}));
    zam_message first, again;
    ASSERT_TRUE(client::next_frame(client, &first));
    ASSERT_TRUE(client::next_frame(client, &again));
    EXPECT_EQ(first.data, again.data);
    EXPECT_THAT(all(), ElementsAre("a", "b"));
}

TEST_F(Input, AReplyOvertakesWhatArrivedBeforeIt) {
    arrive(encode_all({request(1, "a"), request(2, "b"), reply(3, "r"), other("c")}));
    EXPECT_EQ(next_reply(), "r");
    EXPECT_THAT(all(), ElementsAre("a", "b", "c"));
}

TEST_F(Input, SeveralRepliesOvertakeInTheirOrder) {
    arrive(encode_all({request(1, "a"), reply(1, "r"), request(2, "b"), reply(2, "s"), reply(3, "t"), other("c")}));
    EXPECT_EQ(next_reply(), "r");
    EXPECT_EQ(next_reply(), "s");
    EXPECT_EQ(next_reply(), "t");
    EXPECT_EQ(next_reply(), "(none)");
    EXPECT_THAT(all(), ElementsAre("a", "b", "c"));
}

TEST_F(Input, WithoutAReplyNothingChanges) {
    const std::string bytes = encode_all({request(1, "a"), other("b")}) + encode(reply(1, "cut")).substr(0, 18);
    arrive(bytes);
    EXPECT_EQ(next_reply(), "(none)");
    EXPECT_EQ(unread(), bytes);
    EXPECT_THAT(all(), ElementsAre("a", "b"));
}

TEST_F(Input, AReplyThatArrivesInPiecesOvertakesWhenItIsWhole) {
    const std::string bytes = encode(reply(1, "late"));
    arrive(encode(request(1, "a")) + bytes.substr(0, 10));
    EXPECT_EQ(next_reply(), "(none)");
    arrive(bytes.substr(10) + encode(request(2, "b")));
    EXPECT_EQ(next_reply(), "late");
    EXPECT_THAT(all(), ElementsAre("a", "b"));
}

TEST_F(Input, JoiningBringsItBackIntoOnePieceInItsOrder) {
    arrive(encode_all({request(1, "a"), reply(1, "r"), request(2, "b"), other("c")}));
    EXPECT_EQ(next_reply(), "r");
    client::join_input(client);
    EXPECT_EQ(unread(), encode_all({request(1, "a"), request(2, "b"), other("c")}));
    EXPECT_THAT(all(), ElementsAre("a", "b", "c"));
}

TEST_F(Input, JoiningWhatIsInOnePieceChangesNothing) {
    client::join_input(client);
    const std::string bytes = encode_all({request(1, "a"), other("b")});
    arrive(bytes);
    client::join_input(client);
    EXPECT_EQ(unread(), bytes);
}

// Any sequence of arrivals, looking for replies, taking and joining keeps every frame and every order.
TEST_F(Input, AnySequenceOfStepsBehavesAsAPlainListWould) {
    std::mt19937 random{20240229};
    std::deque<Frame> list;
    const auto is_reply = [](const Frame &frame) { return frame.kind == Kind::reply; };
    for (uint32_t step = 0; step < 20000; ++step) {
        const std::string where = "step " + std::to_string(step);
        switch (random() % 6) {
        case 0:
        case 1: {
            Frame frame{random() % 3 == 0 ? Kind::reply : Kind::request, step, 2, std::string(random() % 40, 'x')};
            frame.payload += std::to_string(step);
            arrive(encode(frame));
            list.push_back(frame);
            break;
        }
        case 2:
        case 3: {
            const auto found = std::find_if(list.begin(), list.end(), is_reply);
            ASSERT_EQ(next_reply(), found == list.end() ? "(none)" : found->payload) << where;
            if (found != list.end()) list.erase(found);
            break;
        }
        case 4:
            ASSERT_EQ(next(), list.empty() ? "(none)" : list.front().payload) << where;
            if (!list.empty()) list.pop_front();
            break;
        default: client::join_input(client);
        }
    }
    while (!list.empty()) {
        ASSERT_EQ(next(), list.front().payload);
        list.pop_front();
    }
    EXPECT_EQ(next(), "(none)");
}

TEST_F(Input, AFrameTakenOutIsACopyThatEndsInANul) {
    arrive(encode_all({{Kind::request, 77, 1, "pay\0load"s}, other("b")}));
    zam_message message;
    ASSERT_TRUE(client::next_frame(client, &message));
    const client::frame taken = client::take_frame(client, &message);
    ASSERT_TRUE(taken.block);
    EXPECT_THAT(all(), ElementsAre("b"));
    EXPECT_EQ((std::string{taken.message.data, taken.message.length}), "pay\0load"s);
    EXPECT_EQ(taken.message.data[8], '\0');
    EXPECT_EQ(taken.message.encoding, 1u);
    EXPECT_EQ(zam_message_seq(&taken.message), 77u);
    EXPECT_EQ(zam_message_type(&taken.message), uint32_t{ZAM_MESSAGE_REQUEST});
}

TEST_F(Input, AFrameThatCannotBeCopiedIsRemovedAllTheSame) {
    arrive(encode_all({other("a"), other("b")}));
    zam_message message;
    ASSERT_TRUE(client::next_frame(client, &message));
    heap.fail_at(1);
    const client::frame taken = client::take_frame(client, &message);
    EXPECT_FALSE(taken.block);
    EXPECT_THAT(all(), ElementsAre("b"));
}

TEST_F(Input, StrayBytesAreNoFrameStart) {
    for (const std::string &bytes : {""s, "x"s, "stray"s, "\0x"s,
                                     "\0\xFB"s
                                     "x"s,
                                     "\0\xFB\xBF\1"s, "\xFB\xBF\0x"s}) {
        arrive(bytes);
        EXPECT_FALSE(client::frame_start_remains(client)) << testing::PrintToString(bytes);
        zam_connector_consume(client->connector, static_cast<uint32_t>(bytes.size()));
    }
}

// What follows wakes the client by itself, while the end of an echo, left behind by a resynchronisation, never does.
TEST_F(Input, APartOfTheMagicIsNoFrameStart) {
    for (const std::string &bytes : {"\0"s, "stray\0"s, "\0\xFB"s, "\0\xFB\xBF"s, "\0\0\xFB"s}) {
        arrive(bytes);
        EXPECT_FALSE(client::frame_start_remains(client)) << testing::PrintToString(bytes);
        zam_connector_consume(client->connector, static_cast<uint32_t>(bytes.size()));
    }
}

TEST_F(Input, TheMagicIsAFrameStart) {
    for (const std::string &bytes :
         {"\0\xFB\xBF\0"s, "xx\0\xFB\xBF\0yy"s, encode(other("whole")), encode(other("cut")).substr(0, 17)}) {
        arrive(bytes);
        EXPECT_TRUE(client::frame_start_remains(client)) << testing::PrintToString(bytes);
        zam_connector_consume(client->connector, static_cast<uint32_t>(bytes.size()));
    }
}

TEST_F(Input, FramesSetAsideComeBackAheadOfWhatIsUnread) {
    zam_rw_bytes *aside = nullptr;
    arrive(encode_all({other("a"), other("b"), other("c")}) + encode(other("cut")).substr(0, 17));
    for (int i = 0; i < 2; ++i) {
        zam_message message;
        ASSERT_TRUE(client::next_frame(client, &message));
        client::_cache_other_msg(&aside, &message);
        client::pop_frame(client, &message);
    }
    EXPECT_EQ(unread(), encode(other("c")) + encode(other("cut")).substr(0, 17));
    client::put_back(client, aside);
    zam_rw_bytes_free(aside);
    EXPECT_EQ(unread(), encode_all({other("a"), other("b"), other("c")}) + encode(other("cut")).substr(0, 17));
}

TEST_F(Input, NothingIsPutBackWithoutFramesOrWithoutAConnection) {
    client::put_back(client, nullptr);
    EXPECT_EQ(unread(), "");
    arrive(encode(other("a")));
    zam_rw_bytes *aside = nullptr;
    zam_message message;
    ASSERT_TRUE(client::next_frame(client, &message));
    client::_cache_other_msg(&aside, &message);
    zamc_disconnect(client);
    client::put_back(client, aside);
    zam_rw_bytes_free(aside);
}

TEST_F(Input, WithoutMemoryForTheSetAsideBufferTheFrameIsLost) {
    arrive(encode(other("a")));
    zam_message message;
    ASSERT_TRUE(client::next_frame(client, &message));
    zam_rw_bytes *aside = nullptr;
    heap.fail_at(1);
    client::_cache_other_msg(&aside, &message);
    EXPECT_EQ(aside, nullptr);
    EXPECT_EQ(log.count(0, "New buf for rpc-reply (not the waiting one) not successful."), 1);
}

} // namespace
} // namespace zam::test
