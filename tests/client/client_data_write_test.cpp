// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "client_fixture.h"

namespace zam::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Write : public ConnectedTest {
protected:
    int32_t push(const char *path, int32_t operation, const std::string &content, uint32_t format = 2) {
        return zamc_push(client, path, operation, Payload{content, format});
    }
    std::string sent() {
        const std::vector<Frame> frames = sent_so_far();
        return frames.empty() ? "(nothing)" : frames.back().payload;
    }
    static std::string pushed(const std::string &entity, const std::string &operation, const std::string &content) {
        return R"({"orvel-zam-server:push":{"datastore":"ietf-datastores:running","entity":")" + entity +
               R"(","operation":")" + operation + R"(","content":)" + content + "}}";
    }
    void refuse() {
        peer.answer_with([](const Frame &frame) { return std::vector{Peer::reply_to(frame, service_error)}; });
    }
};

// push

TEST_F(Write, APushNamesDatastoreEntityAndOperationAndWrapsItsContent) {
    EXPECT_EQ(push("/test-main:top/text", ZAMC_PUSH_MERGE, "x"), 0);
    EXPECT_THAT(sent_so_far(), ElementsAre(request(1, pushed("/test-main:top/text", "merge", R"({"text":"x"})"))));
}

TEST_F(Write, EveryOperationHasItsName) {
    const char *names[] = {"merge", "replace", "create", "remove", "delete"};
    for (int32_t operation = 0; operation < 5; ++operation) {
        EXPECT_EQ(push("/test-main:top", operation, R"({"text":"x"})"), 0);
        EXPECT_EQ(sent(), pushed("/test-main:top", names[operation], R"({"test-main:top":{"text":"x"}})"));
    }
}

TEST_F(Write, AnUnknownOperationIsRefusedWithoutSending) {
    for (const int32_t operation : {5, 7, -1}) {
        log.clear();
        EXPECT_EQ(push("/test-main:top/text", operation, "x"), -1);
        EXPECT_EQ(log.count(3, "Create node '/orvel-zam-server:push/operation' unsuccessful."), 1);
    }
    EXPECT_THAT(sent_so_far(), IsEmpty());
}

TEST_F(Write, JsonContentGoesOutByteForByte) {
    const std::string content = "{ \"text\" : \"q\\\"\\\\ \\u00e9 é\",\n\t\"n\":1e3, \"e\":[], \"o\":{} }";
    EXPECT_EQ(push("/test-main:top", 0, content), 0);
    EXPECT_EQ(sent(), pushed("/test-main:top", "merge", "{\"test-main:top\":" + content + "}"));
    EXPECT_EQ(push("/test-main:top/item[name='a']", 0, R"([{"name":"a", "value":1}])"), 0);
    EXPECT_EQ(sent(), pushed(R"(/test-main:top/item[name=\"a\"])", "merge", R"({"item":[{"name":"a", "value":1}]})"));
}

TEST_F(Write, AScalarGoesOutAsAStringAsItStands) {
    EXPECT_EQ(push("/test-main:top/number", 0, "5"), 0);
    EXPECT_EQ(sent(), pushed("/test-main:top/number", "merge", R"({"number":"5"})"));
}

TEST_F(Write, APushToTheRootIsNotWrapped) {
    EXPECT_EQ(push("/", 0, R"({"test-main:top":{"text":"x"}})"), 0);
    EXPECT_EQ(sent(), pushed("/", "merge", R"({"test-main:top":{"text":"x"}})"));
}

TEST_F(Write, APushWithoutTextCarriesAnEmptyString) {
    EXPECT_EQ(push("/test-main:top/text", ZAMC_PUSH_DELETE, ""), 0);
    EXPECT_EQ(sent(), pushed("/test-main:top/text", "delete", R"("")"));
}

TEST_F(Write, XmlContentGoesOutInXmlWhateverTheClientsEncoding) {
    EXPECT_EQ(push("/test-main:top", 1, R"(<top xmlns="urn:test:main"><text>a &lt; b</text></top>)", 1), 0);
    EXPECT_THAT(sent_so_far(),
                ElementsAre(request(
                    1,
                    std::string{"<push xmlns=\""} + server_xmlns +
                        "\"><datastore xmlns:ds=\"urn:ietf:params:xml:ns:yang:ietf-datastores\">ds:running</datastore>"
                        "<entity>/test-main:top</entity><operation>replace</operation><content>"
                        "<top xmlns=\"urn:test:main\"><text>a &lt; b</text></top></content></push>",
                    1)));
}

TEST_F(Write, ContentOfAnotherFormatIsRefused) {
    for (const uint32_t format : {0u, 3u, 4u}) {
        log.clear();
        EXPECT_EQ(push("/test-main:top/text", 0, "x", format), -1);
        EXPECT_EQ(log.count(3, "The encode type of '/orvel-zam-server:push/content' invalid."), 1);
    }
    EXPECT_THAT(sent_so_far(), IsEmpty());
}

TEST_F(Write, ContentThatIsNoXmlIsRefused) {
    EXPECT_EQ(push("/test-main:top", 0, "<top><unclosed></top>", 1), -1);
    EXPECT_EQ(log.count(3, "Create node '/orvel-zam-server:push/content' unsuccessful."), 1);
    EXPECT_THAT(sent_so_far(), IsEmpty());
}

TEST_F(Write, ARefusedPushIsAFailure) {
    refuse();
    EXPECT_EQ(push("/test-main:top/text", 0, "x"), -1);
}

TEST_F(Write, APushWithANullArgumentIsRefused) {
    EXPECT_EQ(zamc_push(nullptr, "/", 0, Payload{"x"}), -3);
    EXPECT_EQ(zamc_push(client, nullptr, 0, Payload{"x"}), -3);
    EXPECT_EQ(zamc_push(client, "/", 0, nullptr), -3);
    EXPECT_THAT(sent_so_far(), IsEmpty());
}

TEST_F(Write, APushEndsAtOnceWhenTheServerCloses) {
    peer.answer_with([this](const Frame &) {
        peer.drop_connection();
        return std::vector<Frame>{};
    });
    EXPECT_EQ(push("/test-main:top/text", 0, "x"), -1);
    EXPECT_FALSE(log.mentions("timeout"));
}

TEST_F(Write, EachAllocationThatFailsEndsAPushWithOrWithoutSuccess) {
    set_attr<uint32_t>(ZAMC_ATTR_SYNC_TIMEOUT, 200);
    for (const auto &[content, format] : {std::pair{"{\"text\":\"x\"}", 2u}, {"<top xmlns=\"urn:test:main\"/>", 1u}}) {
        const Payload payload{content, format};
        for (uint64_t n = 1;; ++n) {
            heap.fail_at(n);
            const int32_t result = zamc_push(client, "/test-main:top", 0, payload);
            const bool failed = heap.failed();
            heap.fail_at(0);
            if (!failed) {
                EXPECT_EQ(result, 0);
                break;
            }
            ASSERT_LT(n, 1000u);
        }
    }
}

// notify

TEST_F(Write, ANotificationStandsBesideItsStream) {
    EXPECT_EQ(zamc_notify(client, "S1", Payload{R"({"test-main:alarm": {"message":"é"}})"}), 0);
    EXPECT_THAT(
        sent_so_far(),
        ElementsAre(request(
            1,
            R"({"orvel-zam-server:notify":{"streams":{"stream":[{"name":"S1"}]},"data":{"test-main:alarm": {"message":"é"}}}})")));
}

TEST_F(Write, ANotificationInXmlGoesOutInXml) {
    EXPECT_EQ(zamc_notify(client, "S1", Payload{R"(<alarm xmlns="urn:test:main"><message>x</message></alarm>)", 1}), 0);
    EXPECT_THAT(sent_so_far(),
                ElementsAre(request(1,
                                    std::string{"<notify xmlns=\""} + server_xmlns +
                                        "\"><streams><stream><name>S1</name></stream></streams><data>"
                                        "<alarm xmlns=\"urn:test:main\"><message>x</message></alarm></data></notify>",
                                    1)));
}

TEST_F(Write, TheNameOfAStreamIsNoPath) {
    EXPECT_EQ(zamc_notify(client, "/not [a path", Payload{"{}"}), 0);
    EXPECT_THAT(sent(), testing::HasSubstr(R"("name":"/not [a path")"));
}

TEST_F(Write, ANotificationOfAnotherFormatIsRefusedAlsoWhenTheClientHasAnEncoding) {
    EXPECT_EQ(zamc_notify(client, "S1", Payload{"{}", 0}), -1);
    EXPECT_EQ(log.count(3, "The encode type of  '/orvel-zam-server:notify/data' invalid."), 1);
    EXPECT_THAT(sent_so_far(), IsEmpty());
}

TEST_F(Write, ANotificationWithANullArgumentIsRefused) {
    EXPECT_EQ(zamc_notify(nullptr, "S1", Payload{"{}"}), -3);
    EXPECT_EQ(zamc_notify(client, nullptr, Payload{"{}"}), -3);
    EXPECT_EQ(zamc_notify(client, "S1", nullptr), -3);
    EXPECT_THAT(sent_so_far(), IsEmpty());
}

TEST_F(Write, ARefusedNotificationIsAFailure) {
    refuse();
    EXPECT_EQ(zamc_notify(client, "S1", Payload{"{}"}), -1);
}

} // namespace
} // namespace zam::test
