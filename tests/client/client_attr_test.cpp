// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include <array>

#include "client_fixture.h"

namespace zam::test {
namespace {

class Attributes : public ClientTest {
protected:
    int32_t set_text(uint32_t id, std::string_view text) {
        return zamc_set_attr(client, id, text.data(), static_cast<uint32_t>(text.size()));
    }
    // The bytes of an attribute, or its failure.
    std::string get(uint32_t id) {
        std::array<char, 4096> buffer{};
        uint32_t length = buffer.size();
        const int32_t result = zamc_get_attr(client, id, buffer.data(), &length);
        return result == 0 ? std::string{buffer.data(), length} : "failed with " + std::to_string(result);
    }
};

const std::string running{"ietf-datastores:running\0", 24};

TEST_F(Attributes, AFreshClientHasTheDefaults) {
    EXPECT_EQ(attr<int32_t>(ZAMC_ATTR_DEADLINE), 0);
    EXPECT_EQ(attr<uint32_t>(ZAMC_ATTR_ENCODE), 2u);
    EXPECT_EQ(get(ZAMC_ATTR_TARGET_DS), running);
    EXPECT_EQ(attr<uint32_t>(ZAMC_ATTR_SYNC_TIMEOUT), 300000u);
    EXPECT_EQ(attr<uint8_t>(ZAMC_ATTR_RPC_BYPASS), 0);
    EXPECT_EQ(attr<uint32_t>(ZAMC_ATTR_SUB_OPER), 15u);
    EXPECT_EQ(attr<uint32_t>(ZAMC_ATTR_SUB_SCENE), 128u);
    EXPECT_EQ(attr<uint32_t>(ZAMC_ATTR_SESSION_ID), 0u);
    EXPECT_EQ(attr<uint32_t>(ZAMC_ATTR_PEER_SESSION_ID), 0u);
    EXPECT_EQ(attr<uint32_t>(ZAMC_ATTR_API_VERSION), 1u);
}

TEST_F(Attributes, TheDependentClientsOfAFreshClientWereNeverSet) {
    EXPECT_EQ(get(ZAMC_ATTR_DEP_CLIENTS), "failed with -1");
}

TEST_F(Attributes, AGetterAnswersWithTheDefaultOfAValueThatIsAbsent) {
    client::_free_client_attrs(client);
    EXPECT_EQ(client::_get_deadline(client), 0);
    EXPECT_EQ(client::_get_encode(client), 2u);
    EXPECT_STREQ(client::_get_target_ds_name(client), "ietf-datastores:running");
    EXPECT_EQ(client::_get_sync_timeout(client), 300000u);
    EXPECT_EQ(client::_get_rpc_bypass_flag(client), 0);
    EXPECT_STREQ(client::_get_dep_clients(client), "");
    EXPECT_EQ(client::_get_sub_oper(client), 15u);
    EXPECT_EQ(client::_get_sub_scene(client), 128u);
    EXPECT_EQ(client::_get_api_version(client), 1u);
}

TEST_F(Attributes, AGetterAnswersWithTheStoredValue) {
    EXPECT_EQ(set_attr<int32_t>(ZAMC_ATTR_DEADLINE, -7), 0);
    EXPECT_EQ(set_attr<uint32_t>(ZAMC_ATTR_ENCODE, 1), 0);
    EXPECT_EQ(set_text(ZAMC_ATTR_TARGET_DS, {"ietf-datastores:startup\0", 24}), 0);
    EXPECT_EQ(set_attr<uint32_t>(ZAMC_ATTR_SYNC_TIMEOUT, 4000000000), 0);
    EXPECT_EQ(set_attr<uint8_t>(ZAMC_ATTR_RPC_BYPASS, 1), 0);
    EXPECT_EQ(set_text(ZAMC_ATTR_DEP_CLIENTS, {"one two\0", 8}), 0);
    EXPECT_EQ(set_attr<uint32_t>(ZAMC_ATTR_SUB_OPER, 3), 0);
    EXPECT_EQ(set_attr<uint32_t>(ZAMC_ATTR_SUB_SCENE, 0x300), 0);
    EXPECT_EQ(set_attr<uint32_t>(ZAMC_ATTR_API_VERSION, 0), 0);
    EXPECT_EQ(client::_get_deadline(client), -7);
    EXPECT_EQ(client::_get_encode(client), 1u);
    EXPECT_STREQ(client::_get_target_ds_name(client), "ietf-datastores:startup");
    EXPECT_EQ(client::_get_sync_timeout(client), 4000000000u);
    EXPECT_EQ(client::_get_rpc_bypass_flag(client), 1);
    EXPECT_STREQ(client::_get_dep_clients(client), "one two");
    EXPECT_EQ(client::_get_sub_oper(client), 3u);
    EXPECT_EQ(client::_get_sub_scene(client), 0x300u);
    EXPECT_EQ(client::_get_api_version(client), 0u);
}

TEST_F(Attributes, AStoredEncodingOfZeroReadsAsJson) {
    EXPECT_EQ(set_attr<uint32_t>(ZAMC_ATTR_ENCODE, 0), 0);
    EXPECT_EQ(attr<uint32_t>(ZAMC_ATTR_ENCODE), 0u);
    EXPECT_EQ(client::_get_encode(client), 2u);
}

TEST_F(Attributes, TheSessionIdsAreReadOnly) {
    EXPECT_EQ(set_attr<uint32_t>(ZAMC_ATTR_SESSION_ID, 5), -3);
    EXPECT_EQ(set_attr<uint32_t>(ZAMC_ATTR_PEER_SESSION_ID, 5), -3);
    EXPECT_EQ(attr<uint32_t>(ZAMC_ATTR_SESSION_ID), 0u);
    EXPECT_EQ(attr<uint32_t>(ZAMC_ATTR_PEER_SESSION_ID), 0u);
}

TEST_F(Attributes, TheLibraryItselfSetsTheSessionIds) {
    const uint32_t session = 5;
    EXPECT_EQ(client::zamc_set_attr_internal(client, ZAMC_ATTR_SESSION_ID, &session, sizeof session), 0);
    EXPECT_EQ(client::zamc_set_attr_internal(client, ZAMC_ATTR_PEER_SESSION_ID, &session, sizeof session), 0);
    EXPECT_EQ(attr<uint32_t>(ZAMC_ATTR_SESSION_ID), 5u);
    EXPECT_EQ(attr<uint32_t>(ZAMC_ATTR_PEER_SESSION_ID), 5u);
}

TEST_F(Attributes, AValueOfTheWrongLengthIsRefused) {
    const std::array<char, 16> value{};
    for (const uint32_t id : {0u, 1u, 3u, 4u, 6u, 7u, 10u}) {
        const uint32_t expected = id == ZAMC_ATTR_RPC_BYPASS ? 1 : 4;
        const std::string before = get(id);
        for (uint32_t length = 0; length <= 8; ++length) {
            if (length != expected) {
                EXPECT_EQ(zamc_set_attr(client, id, value.data(), length), -3);
            }
        }
        EXPECT_EQ(get(id), before) << id;
    }
}

TEST_F(Attributes, ATextOfAnyLengthIsTaken) {
    for (const size_t length : {0u, 1u, 2u, 24u, 3000u}) {
        const std::string text(length, 'x');
        EXPECT_EQ(set_text(ZAMC_ATTR_TARGET_DS, text), 0);
        EXPECT_EQ(get(ZAMC_ATTR_TARGET_DS), text);
        EXPECT_EQ(set_text(ZAMC_ATTR_DEP_CLIENTS, text), 0);
        EXPECT_EQ(get(ZAMC_ATTR_DEP_CLIENTS), text);
    }
}

TEST_F(Attributes, ATextWithoutItsTerminatorEndsAllTheSame) {
    EXPECT_EQ(set_text(ZAMC_ATTR_DEP_CLIENTS, "abcdef"), 0);
    EXPECT_STREQ(client::_get_dep_clients(client), "abcdef");
    EXPECT_EQ(set_text(ZAMC_ATTR_TARGET_DS, "abc"), 0);
    EXPECT_STREQ(client::_get_target_ds_name(client), "abc");
}

TEST_F(Attributes, SettingNullsAndUnknownIdsIsRefused) {
    const uint32_t value = 1;
    EXPECT_EQ(zamc_set_attr(nullptr, ZAMC_ATTR_SYNC_TIMEOUT, &value, sizeof value), -3);
    EXPECT_EQ(zamc_set_attr(client, ZAMC_ATTR_SYNC_TIMEOUT, nullptr, sizeof value), -3);
    EXPECT_EQ(zamc_set_attr(client, ZAMC_ATTR_TARGET_DS, nullptr, 0), -3);
    for (const uint32_t id : {11u, 12u, 4294967295u}) {
        EXPECT_EQ(zamc_set_attr(client, id, &value, sizeof value), -3);
        EXPECT_EQ(client::zamc_set_attr_internal(client, id, &value, sizeof value), -3);
    }
}

TEST_F(Attributes, GettingNullsAndUnknownIdsIsRefused) {
    uint32_t value = 77;
    uint32_t length = sizeof value;
    EXPECT_EQ(zamc_get_attr(nullptr, ZAMC_ATTR_SYNC_TIMEOUT, &value, &length), -3);
    EXPECT_EQ(zamc_get_attr(client, ZAMC_ATTR_SYNC_TIMEOUT, nullptr, &length), -3);
    EXPECT_EQ(zamc_get_attr(client, ZAMC_ATTR_SYNC_TIMEOUT, &value, nullptr), -3);
    EXPECT_EQ(zamc_get_attr(client, 11, &value, &length), -3);
    EXPECT_EQ(zamc_get_attr(client, 4294967295u, &value, &length), -3);
    EXPECT_EQ(value, 77u);
    EXPECT_EQ(length, sizeof value);
}

TEST_F(Attributes, ABufferOneByteTooShortIsRefusedWithItsLengthUnchanged) {
    std::array<char, 23> buffer{};
    uint32_t length = buffer.size();
    EXPECT_EQ(zamc_get_attr(client, ZAMC_ATTR_TARGET_DS, buffer.data(), &length), -3);
    EXPECT_EQ(length, 23u);
    EXPECT_EQ(buffer, (std::array<char, 23>{}));
}

TEST_F(Attributes, ABufferOfTheExactLengthIsFilledAndALongerOneIsToldTheLength) {
    std::array<char, 30> buffer{};
    for (const uint32_t room : {24u, 30u}) {
        uint32_t length = room;
        EXPECT_EQ(zamc_get_attr(client, ZAMC_ATTR_TARGET_DS, buffer.data(), &length), 0);
        EXPECT_EQ(length, 24u);
        EXPECT_STREQ(buffer.data(), "ietf-datastores:running");
    }
}

TEST_F(Attributes, WithoutMemoryTheOldValueStays) {
    heap.fail_at(1);
    EXPECT_EQ(set_attr<uint32_t>(ZAMC_ATTR_SYNC_TIMEOUT, 5), -2);
    EXPECT_EQ(attr<uint32_t>(ZAMC_ATTR_SYNC_TIMEOUT), 300000u);
    heap.fail_at(1);
    EXPECT_EQ(set_text(ZAMC_ATTR_TARGET_DS, "x"), -2);
    EXPECT_EQ(get(ZAMC_ATTR_TARGET_DS), running);
}

TEST_F(Attributes, ALengthThatLeavesNoRoomForATerminatorIsRefused) {
    EXPECT_EQ(zamc_set_attr(client, ZAMC_ATTR_TARGET_DS, "x", UINT32_MAX), -2);
    EXPECT_EQ(get(ZAMC_ATTR_TARGET_DS), running);
}

// Announcing

class AnnouncedAttributes : public ConnectedTest, public testing::WithParamInterface<uint32_t> {
protected:
    // Sets the attribute of the parameter to something new.
    int32_t change() {
        switch (GetParam()) {
        case ZAMC_ATTR_DEADLINE: return set_attr<int32_t>(GetParam(), 30);
        case ZAMC_ATTR_ENCODE: return set_attr<uint32_t>(GetParam(), 1);
        case ZAMC_ATTR_DEP_CLIENTS: return zamc_set_attr(client, GetParam(), "one two", 8);
        default: return set_attr<uint32_t>(GetParam(), 0);
        }
    }
    std::vector<Frame> registrations() {
        sent_so_far();
        std::vector<Frame> frames;
        for (const Frame &frame : peer.received()) {
            if (frame.payload.find("register") != std::string::npos) frames.push_back(frame);
        }
        return frames;
    }
    std::string value() {
        std::array<char, 64> buffer{};
        uint32_t length = buffer.size();
        const int32_t result = zamc_get_attr(client, GetParam(), buffer.data(), &length);
        return std::to_string(result) + " " + (result == 0 ? std::string{buffer.data(), length} : std::string{});
    }
    // Only the changed text of the request differs from the first registration.
    static Frame expected() {
        const auto json = [](const std::string &version, const std::string &deadline, const std::string &more) {
            return request(1, R"({"orvel-zam-server:register":{"name":"tester","attribute":{"api-version":")" +
                                  version + R"(","deadline":)" + deadline + R"(,"encode":"json")" + more + "}}}");
        };
        switch (GetParam()) {
        case ZAMC_ATTR_DEADLINE: return json("v2", "30", "");
        case ZAMC_ATTR_DEP_CLIENTS: return json("v2", "0", R"(,"dependent-clients":"one two")");
        case ZAMC_ATTR_API_VERSION: return json("v1", "0", "");
        default:
            return request(1,
                           std::string{"<register xmlns=\""} + server_xmlns +
                               "\"><name>tester</name><attribute><api-version>v2</api-version><deadline>0</deadline>"
                               "<encode>xml</encode></attribute></register>",
                           1);
        }
    }
};
INSTANTIATE_TEST_SUITE_P(Ids, AnnouncedAttributes,
                         testing::Values(ZAMC_ATTR_DEADLINE, ZAMC_ATTR_ENCODE, ZAMC_ATTR_DEP_CLIENTS,
                                         ZAMC_ATTR_API_VERSION));

TEST_P(AnnouncedAttributes, AChangeRegistersAgain) {
    EXPECT_EQ(change(), 0);
    ASSERT_EQ(registrations().size(), 2u);
    EXPECT_EQ(registrations()[1], expected());
}

TEST_P(AnnouncedAttributes, ARefusedChangeLeavesTheOldValueInForce) {
    const std::string before = value();
    peer.answer_with([](const Frame &frame) { return std::vector{Peer::reply_to(frame, error_json("5", "no"))}; });
    EXPECT_EQ(change(), -1);
    EXPECT_EQ(value(), before);
    EXPECT_EQ(client::_get_encode(client), 2u);
    EXPECT_EQ(registrations().size(), 2u);
    EXPECT_FALSE(log.has(3, "[client]exec_register not successful.")); // only connecting says so
}

TEST_P(AnnouncedAttributes, AServerThatClosesMeanwhileLeavesTheOldValueInForce) {
    const std::string before = value();
    peer.answer_with([this](const Frame &) {
        peer.drop_connection();
        return std::vector<Frame>{};
    });
    EXPECT_EQ(change(), -1);
    EXPECT_EQ(value(), before);
    EXPECT_EQ(zamc_run(client, 1000), -1);
}

TEST_P(AnnouncedAttributes, AChangeWhileUnconnectedIsKeptForTheNextConnection) {
    zamc_disconnect(client);
    EXPECT_EQ(change(), 0);
    connect();
    ASSERT_EQ(registrations().size(), 2u);
    EXPECT_EQ(registrations()[1], expected());
}

TEST_P(AnnouncedAttributes, AChangeAfterTheServerWentIsKeptForTheNextConnection) {
    peer.drop_connection();
    EXPECT_EQ(zamc_run(client, 10000), -1);
    EXPECT_EQ(change(), 0);
    connect();
    ASSERT_EQ(registrations().size(), 2u);
    EXPECT_EQ(registrations()[1], expected());
}

class LocalAttributes : public ConnectedTest {};

TEST_F(LocalAttributes, AChangeThatTheServerNeedNotKnowSendsNothing) {
    EXPECT_EQ(set_attr<uint32_t>(ZAMC_ATTR_SYNC_TIMEOUT, 1000), 0);
    EXPECT_EQ(set_attr<uint8_t>(ZAMC_ATTR_RPC_BYPASS, 1), 0);
    EXPECT_EQ(set_attr<uint32_t>(ZAMC_ATTR_SUB_OPER, 1), 0);
    EXPECT_EQ(set_attr<uint32_t>(ZAMC_ATTR_SUB_SCENE, 0x100), 0);
    EXPECT_EQ(zamc_set_attr(client, ZAMC_ATTR_TARGET_DS, "ietf-datastores:startup", 24), 0);
    sent_so_far();
    EXPECT_EQ(peer.received().size(), 2u); // the registration and the marker
}

TEST_F(LocalAttributes, ANewSessionIdOfAFurtherRegistrationIsStored) {
    peer.answer_with([](const Frame &frame) {
        return std::vector{Peer::reply_to(frame, R"({"orvel-zam-server:register":{"session-id":8}})")};
    });
    EXPECT_EQ(set_attr<int32_t>(ZAMC_ATTR_DEADLINE, 1), 0);
    EXPECT_EQ(attr<uint32_t>(ZAMC_ATTR_SESSION_ID), 8u);
}

TEST_F(LocalAttributes, EachAllocationThatFailsLeavesTheOldValueOrSetsTheNew) {
    set_attr<uint32_t>(ZAMC_ATTR_SYNC_TIMEOUT, 300);
    for (uint64_t n = 1;; ++n) {
        const int32_t before = attr<int32_t>(ZAMC_ATTR_DEADLINE);
        const auto wanted = static_cast<int32_t>(n);
        heap.fail_at(n);
        const int32_t result = set_attr<int32_t>(ZAMC_ATTR_DEADLINE, wanted);
        const bool failed = heap.failed();
        heap.fail_at(0);
        EXPECT_EQ(attr<int32_t>(ZAMC_ATTR_DEADLINE), result == 0 ? wanted : before);
        if (!failed) {
            EXPECT_EQ(result, 0);
            break;
        }
        ASSERT_LT(n, 1000u);
    }
}

} // namespace
} // namespace zam::test
