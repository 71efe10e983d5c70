// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Clients that mean harm, or are badly broken, against the server: it answers with an error or drops what it got with a
// log line, and everybody else is served as before.
#include <filesystem>
#include <fstream>
#include <functional>
#include <list>
#include <sys/resource.h>

#include <gmock/gmock.h>

#include "e2e/app.h"
#include "support/raw_client.h"

namespace {

using namespace zam::test;
using testing::HasSubstr;
using testing::Not;

constexpr uint32_t json = 2;
constexpr uint32_t xml = 1;

std::string pull_of(const std::string &entity) {
    std::string escaped;
    for (const char c : entity) {
        if (c == '"' || c == '\\') escaped += '\\';
        escaped += c;
    }
    return R"({"orvel-zam-server:pull":{"entity":")" + escaped + R"("}})";
}

// Pushes `radio` as it stands, which no builder of the library would send.
std::string push_of(const std::string &content) {
    return R"({"orvel-zam-server:push":{"datastore":"ietf-datastores:running","entity":"/radio:radio",)"
           R"("operation":"merge","content":)" +
           content + "}}";
}

std::string repeated(std::string_view text, size_t count) {
    std::string all;
    all.reserve(text.size() * count);
    for (size_t i = 0; i < count; ++i)
        all += text;
    return all;
}

// The header of a frame, whatever follows it.
std::string header_of(const Frame &frame, uint32_t length) {
    std::string header = encode({frame.kind, frame.seq, frame.encoding, {}});
    for (size_t i = 0; i < 4; ++i)
        header[12 + i] = static_cast<char>(length >> (24 - 8 * i) & 0xFF);
    return header;
}

// In KiB, as the kernel counts them; "VmRSS" what is in use, "VmData" what is set aside.
long memory_of(pid_t process, const std::string &field) {
    std::ifstream status{"/proc/" + std::to_string(process) + "/status"};
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(field + ":")) return std::stol(line.substr(field.size() + 1));
    ADD_FAILURE() << "no " << field << " of process " << process;
    return 0;
}

bool measures_memory() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return false; // the sanitizer's own allocations are no measure
#elif defined(__has_feature)
    return !__has_feature(address_sanitizer) && !__has_feature(thread_sanitizer);
#else
    return true;
#endif
}

Server::Options with(std::vector<std::string> arguments) {
    return {.modules = real_models_and_radio(), .arguments = std::move(arguments)};
}

class Hostile : public testing::Test {
protected:
    // The client's connection is as good as ever, and so is everyone's.
    void expect_service(RawClient &client) {
        EXPECT_EQ(client.ask(pull_of("/radio:radio/motto")),
                  R"({"orvel-zam-server:pull":{"entity":"/radio:radio/motto","data":{}}})");
        expect_service();
    }
    void expect_service() {
        RawClient bystander{server.url()};
        EXPECT_TRUE(bystander.enter("bystander"));
    }
    void expect_logged(const std::string &text) {
        for (int i = 0; i < 1000; ++i) {
            if (server.log().find(text) != std::string::npos) return;
            std::this_thread::sleep_for(1ms);
        }
        FAIL() << "not in the log: " << text << "\n" << server.log();
    }

    DescriptorCheck descriptors;
    Server server{with({"--frame-limit", "4MiB"})};
};

TEST_F(Hostile, BytesThatAreNoFrameAreDroppedAndLogged) {
    RawClient client{server.url()};
    ASSERT_TRUE(client.enter("client"));
    ASSERT_TRUE(client.send("GET / HTTP/1.1\r\n\r\n"));
    expect_service(client);
    expect_logged("bytes of session 1 (client) that are no frame");
}

TEST_F(Hostile, AFrameMayArriveByteByByte) {
    RawClient client{server.url()};
    ASSERT_TRUE(client.enter("client"));
    const std::string frame = encode({Kind::request, 9, json, pull_of("/radio:radio/motto")});
    for (const char c : frame)
        ASSERT_TRUE(client.send(std::string_view{&c, 1}));
    const auto reply = client.receive();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->seq, 9u);
}

TEST_F(Hostile, EveryFrameOfUnknownTypeIsDroppedAndLogged) {
    RawClient client{server.url()};
    ASSERT_TRUE(client.enter("client"));
    for (int bits = 0; bits < 16; ++bits) {
        std::string frame = encode({Kind::untyped, 3, json, "whatever"});
        frame[4] = static_cast<char>(bits << 4 | 2);
        ASSERT_TRUE(client.send(frame));
    }
    bool served = false;
    ASSERT_TRUE(client.send({Kind::request, 1000, json, pull_of("/radio:radio/motto")}));
    while (auto frame = client.receive()) {
        served = frame->kind == Kind::reply && frame->seq == 1000;
        if (served) break;
    }
    EXPECT_TRUE(served);
    expect_logged("Dropped a frame of session 1 (client) with unknown type");
}

TEST_F(Hostile, ARewakeIsAnsweredWithARewakeHoweverMuchItCarries) {
    RawClient client{server.url()};
    ASSERT_TRUE(client.send({Kind::rewake, 0, 0, "some payload"}));
    const auto frame = client.receive();
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->kind, Kind::rewake);
    EXPECT_EQ(frame->payload, "");
}

TEST_F(Hostile, ALengthBeyondTheLimitEndsTheConnection) {
    for (const uint32_t length : {(4u << 20) + 1, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFF0u, 0xFFFFFFFFu}) {
        RawClient client{server.url()};
        ASSERT_TRUE(client.enter("client"));
        ASSERT_TRUE(client.send(header_of({}, length)));
        EXPECT_TRUE(client.closed_by_server()) << length;
        expect_logged("announces " + std::to_string(length) + " bytes, more than the limit of 4194304.");
    }
    expect_service();
}

TEST_F(Hostile, AnAnnouncedLengthTakesNoMemoryBeforeItsBytes) {
    if (!measures_memory()) GTEST_SKIP() << "under a sanitizer";
    std::list<RawClient> clients;
    expect_service(); // what is allocated once is allocated
    const long before = memory_of(server.pid(), "VmData");
    for (int i = 0; i < 16; ++i)
        ASSERT_TRUE(clients.emplace_back(server.url()).send(header_of({}, 4u << 20) + "{"));
    expect_service();
    EXPECT_LE(memory_of(server.pid(), "VmData") - before, 1024) << "KiB for 16 connections that sent next to nothing";
}

TEST_F(Hostile, WhatArrivesTakesLittleMoreThanItself) {
    if (!measures_memory()) GTEST_SKIP() << "under a sanitizer";
    RawClient client{server.url()};
    ASSERT_TRUE(client.enter("client"));
    const long before = memory_of(server.pid(), "VmData");
    ASSERT_TRUE(client.send(header_of({}, 4u << 20)));
    ASSERT_TRUE(client.send(std::string(3u << 20, 'x')));
    expect_service();
    EXPECT_LE(memory_of(server.pid(), "VmData") - before, (3 + 1) * 1024L);
}

TEST_F(Hostile, AConnectionCutInsideAFrameLeavesNothingBehind) {
    const std::string frame = encode({Kind::request, 1, json, pull_of("/")});
    for (size_t cut = 0; cut < frame.size(); ++cut) {
        RawClient client{server.url()};
        ASSERT_TRUE(client.send(std::string_view{frame}.substr(0, cut)));
    }
    expect_service();
}

TEST_F(Hostile, RepliesThatNobodyWaitsForAreLogged) {
    RawClient client{server.url()};
    ASSERT_TRUE(client.enter("client"));
    ASSERT_TRUE(client.send({Kind::reply, 0xFFFFFFFF, json, "{}"}));
    ASSERT_TRUE(client.send({Kind::reply, 1, xml, "<ok/>"}));
    expect_service(client);
}

TEST_F(Hostile, BeforeRegisteringNothingElseIsServed) {
    for (const char *request :
         {R"({"orvel-zam-server:pull":{}})", R"({"orvel-zam-server:push":{"entity":"/radio:radio"}})",
          R"({"orvel-zam-server:activate":{}})", R"({"orvel-zam-server:deactivate":{}})",
          R"({"orvel-zam-server:verify-configuration":{}})", R"({"radio:tune":{"frequency":98}})"}) {
        RawClient client{server.url()};
        const auto reply = client.ask(request);
        ASSERT_TRUE(reply) << request;
        EXPECT_THAT(*reply, AllOf(HasSubstr("access-denied"), HasSubstr("Register first"))) << request;
    }
}

// A payload that is refused in words; the connection goes on. Large ones are made when their turn comes: the list is
// made whenever the program starts.
struct Bad {
    Bad(const char *title, std::string text, uint32_t format = json) : Bad{title, [text] { return text; }, format} {}
    Bad(const char *title, std::function<std::string()> maker, uint32_t format = json)
        : name{title}, payload{std::move(maker)}, encoding{format} {}

    const char *name;
    std::function<std::string()> payload;
    uint32_t encoding;
};

void PrintTo(const Bad &bad, std::ostream *out) {
    *out << bad.name;
}

std::string name_of(const testing::TestParamInfo<Bad> &bad) {
    return bad.param.name;
}

class HostilePayload : public Hostile, public testing::WithParamInterface<Bad> {};

TEST_P(HostilePayload, IsRefusedAndTheConnectionGoesOn) {
    RawClient client{server.url()};
    ASSERT_TRUE(client.enter("client"));
    const auto start = std::chrono::steady_clock::now();
    const auto reply = client.ask(GetParam().payload(), GetParam().encoding);
    ASSERT_TRUE(reply);
    EXPECT_THAT(*reply, HasSubstr("rpc-error"));
    EXPECT_THAT(*reply, HasSubstr("error-message"));
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
    expect_service(client);
}

INSTANTIATE_TEST_SUITE_P(
    Json, HostilePayload,
    testing::Values(
        Bad{"Nothing", ""}, Bad{"Blanks", " \t\r\n"}, Bad{"EmptyObject", "{}"}, Bad{"Null", "null"}, Bad{"Array", "[]"},
        Bad{"Number", "7"}, Bad{"Nul", std::string(1, '\0')}, Bad{"NulInside", pull_of(std::string("/\0/", 3))},
        Bad{"Truncated", R"({"orvel-zam-server:pull":{"entity":"/)"},
        Bad{"TextBehind", R"({"orvel-zam-server:pull":{}} {"orvel-zam-server:pull":{}})"},
        Bad{"TwoOperations", R"({"orvel-zam-server:pull":{},"orvel-zam-server:push":{}})"},
        Bad{"MetadataAlone", R"({"@orvel-zam-server:pull":{"entity":"/"}})"},
        Bad{"UnknownModule", R"({"nowhere:pull":{}})"}, Bad{"UnknownOperation", R"({"orvel-zam-server:pullover":{}})"},
        Bad{"NoOperation", R"({"ietf-interfaces:interfaces":{}})"},
        Bad{"ClientsOperation", R"({"orvel-zam-client:publish":{}})"},
        Bad{"Notification", R"({"orvel-zam-server:appinfo":{"data":"x"}})"},
        Bad{"UnknownMember", R"({"orvel-zam-server:pull":{"colour":"red"}})"},
        Bad{"WrongType", R"({"orvel-zam-server:pull":{"depth":"deep"}})"},
        Bad{"HugeNumber", R"({"orvel-zam-server:pull":{"depth":1e999999999}})"},
        Bad{"LongNumber", [] { return R"({"orvel-zam-server:pull":{"depth":)" + std::string(100000, '9') + "}}"; }},
        Bad{"InvalidUtf8", pull_of("/\xFF\xFE")}, Bad{"Surrogate", R"({"orvel-zam-server:pull":{"entity":"\ud800"}})"},
        Bad{"ControlCharacter", pull_of("/\x01")}, Bad{"NestedArrays", push_of("[[[]]]")},
        Bad{"NestedArraysOfObjects", push_of(R"({"motto":[[{}]]})")},
        Bad{"DeepArrays", [] { return repeated("[", 100000); }},
        Bad{"DeepObjects", [] { return push_of(repeated(R"({"a":)", 100000) + "1" + repeated("}", 100000)); }},
        Bad{"DeepInside", [] { return R"({"orvel-zam-server:pull":)" + repeated(R"({"a":)", 100000); }},
        Bad{"EqualValues", [] { return push_of(R"({"genre":[)" + repeated(R"("jazz",)", 40000) + R"("jazz"]})"); }},
        Bad{"EqualNames",
            [] { return push_of(R"({"radio":{)" + repeated(R"("motto":"a",)", 40000) + R"("motto":"a"}})"); }},
        Bad{"XPath", pull_of("//*[1 mod 0]")}, Bad{"Functions", pull_of("/radio:room[count(//*)=1]")},
        Bad{"Union", pull_of("/radio:radio | /radio:room")}, Bad{"Axis", pull_of("/radio:radio/../radio:room")},
        Bad{"RelativePath", pull_of("radio")}, Bad{"UnendedKey", pull_of("/radio:room[name='a")},
        Bad{"FormatDirectives", pull_of("/radio:%s%n%s%n")},
        Bad{"LongPath", [] { return pull_of("/radio:" + std::string(1u << 20, 'a')); }},
        Bad{"ManySteps", [] { return pull_of(repeated("/radio:radio", 80000)); }},
        Bad{"ManyPredicates", [] { return pull_of("/radio:room" + repeated("[name='a']", 100000)); }}),
    name_of);

INSTANTIATE_TEST_SUITE_P(
    Xml, HostilePayload,
    testing::Values(
        Bad{"Nothing", "", xml}, Bad{"NoMarkup", "pull", xml}, Bad{"Truncated", "<pull xmlns=\"urn:", xml},
        Bad{"NoNamespace", "<pull/>", xml}, Bad{"UnknownNamespace", "<pull xmlns=\"urn:nowhere\"/>", xml},
        Bad{"Entities",
            "<!DOCTYPE lolz [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;\">]>"
            "<pull xmlns=\"urn:orvel:params:xml:ns:yang:orvel-zam-server\"><entity>&b;</entity></pull>",
            xml},
        Bad{"DeepElements", [] { return repeated("<a>", 100000); }, xml},
        Bad{"DeepInside",
            [] {
                return "<pull xmlns=\"urn:orvel:params:xml:ns:yang:orvel-zam-server\">" + repeated("<a>", 100000) +
                       repeated("</a>", 100000) + "</pull>";
            },
            xml},
        Bad{"EndTagTooMany", "<pull xmlns=\"urn:orvel:params:xml:ns:yang:orvel-zam-server\"></pull></pull>", xml},
        Bad{"InvalidUtf8",
            "<pull xmlns=\"urn:orvel:params:xml:ns:yang:orvel-zam-server\"><entity>\xC0\x80</entity></pull>", xml},
        Bad{"OtherEncoding", R"({"orvel-zam-server:pull":{}})", xml},
        Bad{"UnknownEncoding", R"({"orvel-zam-server:pull":{}})", 3},
        Bad{"NoEncodingAtAll", R"({"orvel-zam-server:pull":{}})", 15}),
    name_of);

TEST_F(Hostile, AKeyMayHoldWhatLooksLikeSyntax) {
    Operator op{server.url()};
    for (const std::string key : {"a]b", "a'b", "a\"b", "%s%n%d", "a\\b", "[name='x']", "/radio:radio", "{}", "&lt;"}) {
        const std::string name = R"([{"name":)" + [&] {
            std::string quoted = "\"";
            for (const char c : key) {
                if (c == '"' || c == '\\') quoted += '\\';
                quoted += c;
            }
            return quoted + "\"";
        }() + "}]";
        EXPECT_EQ(op.push("/", ZAMC_PUSH_MERGE, R"({"radio:room":)" + name + "}"), 0) << key;
        const char quote = key.find('\'') == std::string::npos ? '\'' : '"';
        const std::string path = std::string{"/radio:room[name="} + quote + key + quote + "]";
        EXPECT_EQ(op.pull(path), name) << path;
    }
}

TEST_F(Hostile, MoreSubscriptionsThanAreAllowedAreRefused) {
    RawClient client{server.url()};
    ASSERT_TRUE(client.enter("client"));
    std::optional<std::string> reply;
    int accepted = 0;
    for (; accepted < 100000; ++accepted) {
        reply = client.ask(
            R"({"orvel-zam-server:subscribe":{"subscriptions":{"subscription":[{"target":"/radio:room[name=')" +
            std::to_string(accepted) + R"(']","type":0}]}}})");
        if (!reply || !reply->empty()) break;
    }
    ASSERT_TRUE(reply);
    EXPECT_THAT(*reply, AllOf(HasSubstr("rpc-error"))) << accepted;
    expect_service(client);
}

TEST(HostileReader, WhoDoesNotReadLosesItsConnectionAndNobodyElseWaits) {
    Server server{{.startup = R"({"radio:radio":{"motto":")" + std::string(20000, 'x') + R"("}})",
                   .modules = real_models_and_radio(),
                   .arguments = {"--output-limit", "1MiB"}}};
    RawClient silent{server.url()};
    ASSERT_TRUE(silent.enter("silent"));
    bool cut = false;
    for (int i = 0; i < 10000 && !cut; ++i)
        cut = !silent.send({Kind::request, 1, json, pull_of("/radio:radio")});
    EXPECT_TRUE(cut) << "200 MB were asked for";
    EXPECT_THAT(server.log(), AllOf(HasSubstr("wait for session 1 (silent), more than the limit of 1048576."),
                                    HasSubstr("Closed session 1 (silent): it does not read.")));
    EXPECT_EQ(Operator{server.url()}.pull("/radio:radio/motto").size(), 20000u);
}

TEST(HostileReader, AThousandConnectionsThatSayNothingHarmNobody) {
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = std::max<rlim_t>(files.rlim_cur, 2000);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &files), 0) << "needs 2,000 descriptors";
    Server server{{.modules = real_models_and_radio()}};
    std::list<RawClient> silent;
    for (int i = 0; i < 1000; ++i)
        silent.emplace_back(server.url());
    EXPECT_EQ(Operator{server.url()}.pull("/radio:radio"), "");
}

TEST(HostileReader, WithoutDescriptorsTheServerPausesAndGoesOnOnceThereAreSome) {
    Server server{{.modules = real_models_and_radio()}};
    RawClient early{server.url()};
    ASSERT_TRUE(early.enter("early"));
    const std::filesystem::directory_iterator open{"/proc/" + std::to_string(server.pid()) + "/fd"};
    const auto used = static_cast<rlim_t>(std::distance(begin(open), end(open)));
    const rlimit few{used + 2, used + 2};
    ASSERT_EQ(prlimit(server.pid(), RLIMIT_NOFILE, &few, nullptr), 0);
    {
        std::list<RawClient> silent;
        for (int i = 0; i < 4; ++i)
            silent.emplace_back(server.url());
        EXPECT_TRUE(early.ask(pull_of("/radio:radio"))) << "who has one is served";
        for (int i = 0; i < 2000 && server.log().find("pauses: Too many open files") == std::string::npos; ++i)
            std::this_thread::sleep_for(1ms);
        EXPECT_THAT(server.log(), HasSubstr("pauses: Too many open files"));
    }
    RawClient late{server.url()};
    EXPECT_TRUE(late.enter("late"));
}

} // namespace
