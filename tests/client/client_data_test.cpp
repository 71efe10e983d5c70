// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "client/client_ctx_internal.h"
#include "client_fixture.h"

namespace zam::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Data : public ConnectedTest {
protected:
    void answer(const std::string &payload, uint32_t encoding = 2) {
        peer.answer_with([payload, encoding](const Frame &frame) {
            return std::vector{Frame{Kind::reply, frame.seq, encoding, payload}};
        });
    }
    // Each call leaves its output, "(null)" for none, in `out`, and the format in `format`.
    int32_t pull(const char *path, int32_t version = 0, int32_t depth = -1) {
        return keep([&](zamc_bytes **bytes) { return zamc_pull(client, version, path, depth, bytes); });
    }
    int32_t diff(const char *path, int32_t depth = -1) {
        return keep([&](zamc_bytes **bytes) { return zamc_diff(client, path, depth, bytes); });
    }
    int32_t locate(const char *path, int32_t version = 0) {
        return keep([&](zamc_bytes **bytes) { return zamc_locate(client, version, path, bytes); });
    }
    void set_datastore(const std::string &name) {
        ASSERT_EQ(zamc_set_attr(client, ZAMC_ATTR_TARGET_DS, name.c_str(), static_cast<uint32_t>(name.size() + 1)), 0);
    }
    void use_xml() { ASSERT_EQ(set_attr<uint32_t>(ZAMC_ATTR_ENCODE, 1), 0); }
    // The payload of the last request.
    std::string sent() {
        const std::vector<Frame> frames = sent_so_far();
        return frames.empty() ? "(nothing)" : frames.back().payload;
    }
    static std::string pulled(const std::string &data) {
        return R"({"orvel-zam-server:pull":{"entity":"/test-main:top","data":)" + data + "}}";
    }
    static std::string changed(const std::string &edits) {
        return R"({"orvel-zam-server:diff":{"entity":"/","yang-patch":{"patch-id":"1","edit":[)" + edits + "]}}}";
    }
    static std::string edit(const std::string &id, const std::string &value) {
        return R"({"edit-id":")" + id + R"(","operation":"merge","target":"/","value":)" + value + "}";
    }
    static std::string located(const std::string &before, const std::string &after) {
        return R"({"orvel-zam-server:locate":{"prev-entity":")" + before + R"(","post-entity":")" + after + R"("}})";
    }
    static std::string xml(const std::string &name, const std::string &inside) {
        return "<" + name + " xmlns=\"" + server_xmlns + "\">" + inside + "</" + name + ">";
    }

    std::string out;
    uint32_t format = 0;

private:
    int32_t keep(const std::function<int32_t(zamc_bytes **)> &call) {
        zamc_bytes old{};
        zamc_bytes *bytes = &old;
        const int32_t result = call(&bytes);
        EXPECT_NE(bytes, &old);
        format = bytes ? bytes->format : 0;
        out = take_bytes(bytes);
        return result;
    }
};

// pull

TEST_F(Data, APullNamesDatastoreEntityDepthAndVersion) {
    EXPECT_EQ(pull("/test-main:top"), 0);
    EXPECT_THAT(
        sent_so_far(),
        ElementsAre(request(
            1,
            R"({"orvel-zam-server:pull":{"datastore":"ietf-datastores:running","entity":"/test-main:top","depth":-1,"version":"current"}})")));
}

TEST_F(Data, OnlyVersionOneOfAPullIsTheLastOne) {
    EXPECT_EQ(pull("/", 1), 0);
    EXPECT_THAT(sent(), testing::HasSubstr(R"("version":"last")"));
    for (const int32_t version : {0, 2, -1}) {
        EXPECT_EQ(pull("/", version), 0);
        EXPECT_THAT(sent(), testing::HasSubstr(R"("version":"current")"));
    }
}

TEST_F(Data, ADepthOfZeroIsSentAsItIs) {
    EXPECT_EQ(pull("/", 0, 0), 0);
    EXPECT_THAT(sent(), testing::HasSubstr(R"("depth":0)"));
    EXPECT_EQ(pull("/", 0, 65535), 0);
    EXPECT_THAT(sent(), testing::HasSubstr(R"("depth":65535)"));
}

TEST_F(Data, ThePathGoesOutInItsNormalForm) {
    EXPECT_EQ(pull("/test-main:top/item[name='a\"b']/value"), 0);
    EXPECT_THAT(sent(), testing::HasSubstr(R"("entity":"/test-main:top/item[name=\"a\\\"b\"]/value")"));
}

TEST_F(Data, TheDatastoreIsTheClientsAttribute) {
    set_datastore("ietf-datastores:operational");
    EXPECT_EQ(pull("/"), 0);
    EXPECT_EQ(diff("/"), 0);
    EXPECT_EQ(locate("/"), 0);
    EXPECT_EQ(zamc_push(client, "/test-main:top/text", 0, Payload{"x"}), 0);
    for (const Frame &frame : sent_so_far())
        EXPECT_THAT(frame.payload, testing::HasSubstr(R"("datastore":"ietf-datastores:operational")"));
}

TEST_F(Data, APullOfEverythingReturnsTheDataObjectAsAWhole) {
    const std::string data = R"({"test-main:top":{"text":"x"},"test-main:single":"y"})";
    answer(pulled(data));
    EXPECT_EQ(pull("/"), 0);
    EXPECT_EQ(out, data);
    EXPECT_EQ(format, 2u);
    EXPECT_TRUE(log.has(7, "[Client] pull data:" + data + "."));
}

TEST_F(Data, APullOfALeafReturnsItsUnescapedString) {
    answer(pulled(R"({"text":"\u00e9 \"q\" \\ \/ a\nb"})"));
    EXPECT_EQ(pull("/test-main:top/text"), 0);
    EXPECT_EQ(out, "\xC3\xA9 \"q\" \\ / a\nb");
}

TEST_F(Data, APullOfAnythingElseReturnsItsValueAsPrinted) {
    for (const char *value : {R"({"text":"x","sub":{"a":"1"}})", R"([{"name":"a"},{"name":"b"}])", "42", "-1.50",
                              "true", "[null]", R"(["x","y"])"}) {
        answer(pulled(std::string{R"({"name":)"} + value + "}"));
        EXPECT_EQ(pull("/test-main:top"), 0);
        EXPECT_EQ(out, value);
    }
}

TEST_F(Data, APullOfNothingHasNoOutput) {
    for (const std::string &payload : {pulled("{}"), pulled(R"({"text":""})"), std::string{}, std::string{"<ok/>"},
                                       std::string{R"({"orvel-zam-server:pull":{"entity":"/"}})"}}) {
        answer(payload);
        EXPECT_EQ(pull("/test-main:top/text"), 0) << payload;
        EXPECT_EQ(out, "(null)") << payload;
    }
}

TEST_F(Data, APullOfManyEntriesIsComplete) {
    std::string list = "[";
    for (int i = 0; i < 10000; ++i)
        list += (i ? "," : "") + std::string{R"({"name":"entry-)"} + std::to_string(i) + R"(","value":7})";
    list += "]";
    answer(pulled(R"({"item":)" + list + "}"));
    EXPECT_EQ(pull("/test-main:top/item"), 0);
    EXPECT_EQ(out, list);
}

TEST_F(Data, APullWhoseDataIsNotWellFormedOrNotAloneIsAFailure) {
    for (const char *data : {R"({"text":})", R"({"text":"x"},"more":{"text":"y"})", R"({"text":[[1]]})", "7", "[{}]"}) {
        answer(pulled(data));
        EXPECT_EQ(pull("/test-main:top/text"), -1) << data;
        EXPECT_EQ(out, "(null)") << data;
    }
}

TEST_F(Data, APullInXmlReturnsTheElements) {
    use_xml();
    answer(xml("pull", R"(<entity>/</entity><data><top xmlns="urn:test:main"><text>a &lt; é</text></top></data>)"), 1);
    EXPECT_EQ(pull("/test-main:top"), 0);
    EXPECT_EQ(out, R"(<top xmlns="urn:test:main"><text>a &lt; é</text></top>)");
    EXPECT_EQ(format, 1u);
    EXPECT_THAT(sent_so_far().back(),
                request(2,
                        xml("pull", "<datastore xmlns:ds=\"urn:ietf:params:xml:ns:yang:ietf-datastores\">ds:running"
                                    "</datastore><entity>/test-main:top</entity><depth>-1</depth>"
                                    "<version>current</version>"),
                        1));
}

TEST_F(Data, APullInXmlOfNothingHasNoOutput) {
    answer(xml("pull", "<entity>/</entity><data/>"), 1);
    EXPECT_EQ(pull("/"), 0);
    EXPECT_EQ(out, "(null)");
}

TEST_F(Data, APullInXmlWithoutDataIsAFailure) {
    answer(xml("pull", "<entity>/</entity>"), 1);
    EXPECT_EQ(pull("/"), -1);
    EXPECT_EQ(out, "(null)");
}

TEST_F(Data, AnErrorOrAnAnswerThatDoesNotParseIsAFailureWithoutOutput) {
    for (const char *payload : {"{", "nonsense", "{}", R"({"test-main:run":{}})"}) {
        answer(payload);
        EXPECT_EQ(diff("/"), -1) << payload;
        EXPECT_EQ(locate("/"), -1) << payload;
    }
    answer(service_error);
    EXPECT_EQ(pull("/"), -1);
    EXPECT_EQ(diff("/"), -1);
    EXPECT_EQ(locate("/"), -1);
    EXPECT_EQ(out, "(null)");
}

TEST_F(Data, ReadingWithANullArgumentIsRefused) {
    zamc_bytes *bytes = nullptr;
    EXPECT_EQ(zamc_pull(nullptr, 0, "/", -1, &bytes), -3);
    EXPECT_EQ(zamc_pull(client, 0, nullptr, -1, &bytes), -3);
    EXPECT_EQ(zamc_pull(client, 0, "/", -1, nullptr), -3);
    EXPECT_EQ(zamc_diff(nullptr, "/", -1, &bytes), -3);
    EXPECT_EQ(zamc_diff(client, nullptr, -1, &bytes), -3);
    EXPECT_EQ(zamc_diff(client, "/", -1, nullptr), -3);
    EXPECT_EQ(zamc_locate(nullptr, 0, "/", &bytes), -3);
    EXPECT_EQ(zamc_locate(client, 0, nullptr, &bytes), -3);
    EXPECT_EQ(zamc_locate(client, 0, "/", nullptr), -3);
    EXPECT_THAT(sent_so_far(), IsEmpty());
}

TEST_F(Data, APathThatDoesNotParseIsRefusedWithALine) {
    EXPECT_EQ(pull("/a:b[c"), -3);
    EXPECT_EQ(diff("/a:b[d"), -3);
    EXPECT_EQ(locate("/a:b[e"), -3);
    EXPECT_EQ(zamc_push(client, "/a:b[f", 0, Payload{"x"}), -3);
    EXPECT_EQ(log.count(3, "Format pull path not successful, path : /a:b[c."), 1);
    EXPECT_EQ(log.count(3, "Format diff path not successful, path : /a:b[d."), 1);
    EXPECT_EQ(log.count(3, "Format locate path not successful, path : /a:b[e."), 1);
    EXPECT_EQ(log.count(3, "Format push path not successful, path : /a:b[f."), 1);
    EXPECT_THAT(sent_so_far(), IsEmpty());
}

TEST_F(Data, WithoutASchemaContextNothingWorks) {
    ly_ctx *context = std::exchange(client::_clients_ctx()->context, nullptr);
    EXPECT_EQ(pull("/"), -1);
    EXPECT_EQ(diff("/"), -1);
    EXPECT_EQ(locate("/"), -1);
    EXPECT_EQ(zamc_push(client, "/", 0, Payload{"x"}), -1);
    EXPECT_EQ(zamc_notify(client, "stream", Payload{"{}"}), -1);
    client::_clients_ctx()->context = context;
    EXPECT_THAT(sent_so_far(), IsEmpty());
}

TEST_F(Data, ARequestThatCannotBeBuiltIsNotSent) {
    set_datastore("nowhere:running");
    log.clear();
    EXPECT_EQ(pull("/"), -1);
    EXPECT_EQ(diff("/"), -1);
    EXPECT_EQ(locate("/"), -1);
    EXPECT_EQ(zamc_push(client, "/test-main:top/text", 0, Payload{"x"}), -1);
    EXPECT_EQ(log.count(3, "Build diff rpc not successful."), 1);
    EXPECT_EQ(log.count(3, "Build locate rpc not successful."), 1);
    EXPECT_FALSE(log.mentions("Build pull"));
    EXPECT_THAT(sent_so_far(), IsEmpty());
}

TEST_F(Data, EachAllocationThatFailsEndsAPullWithItsOutputOrWithMinusOne) {
    set_attr<uint32_t>(ZAMC_ATTR_SYNC_TIMEOUT, 200);
    answer(pulled(R"({"text":"value"})"));
    for (uint64_t n = 1;; ++n) {
        zamc_bytes *bytes = nullptr;
        heap.fail_at(n);
        const int32_t result = zamc_pull(client, 0, "/test-main:top/text", -1, &bytes);
        const bool failed = heap.failed();
        heap.fail_at(0);
        EXPECT_EQ(take_bytes(bytes), result == 0 ? "value" : "(null)") << n;
        if (!failed) {
            EXPECT_EQ(result, 0);
            break;
        }
        EXPECT_TRUE(result == 0 || result == -1 || (result == -3 && n < 3)) << result; // the path comes first
        ASSERT_LT(n, 1000u);
    }
}

// diff

TEST_F(Data, ADiffNamesDatastoreEntityAndDepthAndZeroMeansAll) {
    EXPECT_EQ(diff("/test-main:top", 0), 0);
    EXPECT_EQ(diff("/", 3), 0);
    EXPECT_THAT(
        sent_so_far(),
        ElementsAre(
            request(
                1,
                R"({"orvel-zam-server:diff":{"datastore":"ietf-datastores:running","entity":"/test-main:top","depth":-1}})"),
            request(2, R"({"orvel-zam-server:diff":{"datastore":"ietf-datastores:running","entity":"/","depth":3}})")));
}

TEST_F(Data, ADiffReturnsTheEditsValue) {
    const std::string value = R"({"test-main:top":{"@":{"ietf-netconf:operation":"create"},"text":"\u00e9"}})";
    answer(changed(edit("1", value)));
    EXPECT_EQ(diff("/"), 0);
    EXPECT_EQ(out, value);
    EXPECT_EQ(format, 2u);
}

TEST_F(Data, ADiffOfSeveralEditsReturnsTheTextFromTheFirstValueOn) {
    answer(changed(edit("1", R"({"a":1})") + "," + edit("2", R"({"b":2})")));
    EXPECT_EQ(diff("/"), 0);
    EXPECT_EQ(out, R"({"a":1}},{"edit-id":"2","operation":"merge","target":"/","value":{"b":2})");
}

TEST_F(Data, ADiffOfNothingHasNoOutput) {
    for (const std::string &payload : {changed(edit("1", "{}")), std::string{}, std::string{"<ok/>"}}) {
        answer(payload);
        EXPECT_EQ(diff("/"), 0) << payload;
        EXPECT_EQ(out, "(null)") << payload;
    }
}

TEST_F(Data, ADiffWithoutAValueIsAFailure) {
    answer(R"({"orvel-zam-server:diff":{"entity":"\"value\":"}})");
    EXPECT_EQ(diff("/"), -1);
    answer(xml("diff", "<entity>/</entity>"), 1);
    EXPECT_EQ(diff("/"), -1);
    EXPECT_EQ(out, "(null)");
}

TEST_F(Data, ADiffInXmlReturnsTheFirstEditsValue) {
    const auto xml_edit = [](const std::string &id, const std::string &value) {
        return "<edit><edit-id>" + id + "</edit-id><operation>merge</operation><target>/</target><value>" + value +
               "</value></edit>";
    };
    answer(xml("diff", "<yang-patch><patch-id>1</patch-id>" +
                           xml_edit("1", R"(<top xmlns="urn:test:main"><text>x</text></top>)") +
                           xml_edit("2", R"(<single xmlns="urn:test:main">y</single>)") + "</yang-patch>"),
           1);
    EXPECT_EQ(diff("/"), 0);
    EXPECT_EQ(out, R"(<top xmlns="urn:test:main"><text>x</text></top>)");
    EXPECT_EQ(format, 1u);
    answer(xml("diff", "<yang-patch><patch-id>1</patch-id>" + xml_edit("1", "") + "</yang-patch>"), 1);
    EXPECT_EQ(diff("/"), 0);
    EXPECT_EQ(out, "(null)");
}

TEST_F(Data, ADepthOutsideItsRangeMakesNoDiff) {
    EXPECT_EQ(diff("/", -5), -1);
    EXPECT_EQ(log.count(3, "Build diff rpc not successful."), 1);
    EXPECT_THAT(sent_so_far(), IsEmpty());
}

// locate

TEST_F(Data, ALocateNamesDatastoreEntityAndAnyVersionButZeroIsTheLast) {
    EXPECT_EQ(locate("/test-main:top/ordered[name='a']"), 0);
    EXPECT_EQ(
        sent(),
        R"({"orvel-zam-server:locate":{"datastore":"ietf-datastores:running","entity":"/test-main:top/ordered[name=\"a\"]","version":"current"}})");
    for (const int32_t version : {1, 2, -1}) {
        EXPECT_EQ(locate("/", version), 0);
        EXPECT_THAT(sent(), testing::HasSubstr(R"("version":"last")"));
    }
}

TEST_F(Data, ALocateReturnsTheNeighboursThatExist) {
    const std::pair<std::string, std::string> cases[] = {
        {located("/a", "/b"), R"({"orvel-zam-server:prev-entity":"/a","orvel-zam-server:post-entity":"/b"})"},
        {located("", "/b"), R"({"orvel-zam-server:post-entity":"/b"})"}, // the first entry
        {located("/a", ""), R"({"orvel-zam-server:prev-entity":"/a"})"}, // the last one
        {located("", ""), "(null)"},                                     // the only one
        {"", "(null)"},
        {"<ok/>", "(null)"},
    };
    for (const auto &[payload, expected] : cases) {
        answer(payload);
        EXPECT_EQ(locate("/"), 0);
        EXPECT_EQ(out, expected);
        if (expected != "(null)") {
            EXPECT_TRUE(log.has(7, "[Client] locate data:" + expected + "."));
        }
    }
}

TEST_F(Data, ALocateInXmlReturnsElements) {
    answer(xml("locate", "<prev-entity>/a</prev-entity><post-entity>/b</post-entity>"), 1);
    EXPECT_EQ(locate("/"), 0);
    EXPECT_EQ(out, xml("prev-entity", "/a") + xml("post-entity", "/b"));
    EXPECT_EQ(format, 1u);
    answer(xml("locate", "<prev-entity/><post-entity>/b</post-entity>"), 1);
    EXPECT_EQ(locate("/"), 0);
    EXPECT_EQ(out, xml("post-entity", "/b"));
}

TEST_F(Data, ALocateWithoutOneOfTheLeavesIsAFailure) {
    for (const char *payload :
         {R"({"orvel-zam-server:locate":{}})", R"({"orvel-zam-server:locate":{"prev-entity":"/a"}})",
          R"({"orvel-zam-server:locate":{"post-entity":"/a"}})"}) {
        answer(payload);
        EXPECT_EQ(locate("/"), -1) << payload;
        EXPECT_EQ(out, "(null)");
    }
}

} // namespace
} // namespace zam::test
