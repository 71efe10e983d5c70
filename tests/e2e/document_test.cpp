// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Documents built node by node, on real models: printed, read back by the library and by libyang, pushed, and taken out
// of the datastore again.
#include <algorithm>
#include <iterator>
#include <memory>

#include <gmock/gmock.h>

#include "e2e/app.h"
#include "e2e/document_nodes.h"
#include "support/log_capture.h"

namespace {

using namespace zam::test;
using testing::Combine;
using testing::HasSubstr;
using testing::Values;
using testing::ValuesIn;

constexpr uint32_t json = ZAM_ENCODE_JSON;
constexpr uint32_t xml = ZAM_ENCODE_XML;

std::string format_name(uint32_t format) {
    return format == json ? "InJson" : "InXml";
}

struct FreeDoc {
    void operator()(zamc_doc *doc) const { zamc_free_doc(doc); }
};
using Document = std::unique_ptr<zamc_doc, FreeDoc>;

Document new_document(uint32_t format) {
    load_models();
    Document document{zamc_new_doc(format)};
    EXPECT_NE(document, nullptr);
    return document;
}

int32_t add(const Document &document, uint32_t format, const GivenNode &node) {
    const char *value = format == json ? node.json : node.xml;
    return value ? zamc_new_node(document.get(), node.path, "%s", value)
                 : zamc_new_node(document.get(), node.path, nullptr);
}

// Every node of the configuration.
Document build(uint32_t format) {
    Document document = new_document(format);
    for (const GivenNode &node : given_nodes)
        EXPECT_EQ(add(document, format, node), 0) << node.name;
    return document;
}

std::string take(zamc_bytes *bytes, uint32_t format) {
    EXPECT_NE(bytes, nullptr);
    if (!bytes) return "";
    EXPECT_EQ(bytes->format, format);
    std::string text{bytes->data, static_cast<size_t>(bytes->length)};
    zamc_free_bytes(bytes);
    return text;
}

std::string print(const Document &document, uint32_t format) {
    return take(zamc_format_doc(document.get(), format), format);
}

std::string data(const std::string &text, uint32_t format) {
    return ByLibyang(text, format).json();
}

Document parse(const std::string &text, uint32_t format) {
    zamc_bytes *bytes = zamc_new_bytes(text.data(), static_cast<int32_t>(text.size()), format);
    Document document{zamc_parse_bytes(bytes, "/")};
    zamc_free_bytes(bytes);
    EXPECT_NE(document, nullptr) << text;
    return document;
}

std::string or_none(const char *text) {
    return text ? text : "(none)";
}
std::string content(const Document &document, const char *path) {
    return or_none(zamc_node_content(document.get(), path));
}
std::string operation(const Document &document, const char *path) {
    return or_none(zamc_node_attr(document.get(), path, "operation"));
}

int32_t push(Operator &someone, const Document &document, uint32_t format) {
    zamc_bytes *bytes = zamc_format_doc(document.get(), format);
    const int32_t result = zamc_push(someone.client(), "/", ZAMC_PUSH_MERGE, bytes);
    zamc_free_bytes(bytes);
    return result;
}

// One node alone

class DocumentOf : public testing::TestWithParam<std::tuple<GivenNode, uint32_t>> {};
INSTANTIATE_TEST_SUITE_P(, DocumentOf, Combine(ValuesIn(given_nodes), Values(json, xml)), [](const auto &both) {
    return std::get<0>(both.param).name + format_name(std::get<1>(both.param));
});

TEST_P(DocumentOf, ReadsBackTheSameFromEitherPrint) {
    const auto &[node, format] = GetParam();
    const Document document = new_document(format);
    ASSERT_EQ(add(document, format, node), 0);
    const std::string value = or_none(node.content);
    const std::string canonical = node.canonical ? node.canonical : value;
    EXPECT_EQ(content(document, node.path), value);
    EXPECT_EQ(operation(document, node.path), "merge");
    const std::string texts[] = {print(document, xml), print(document, json)};
    for (const uint32_t printed : {xml, json}) {
        const std::string &text = texts[printed - 1];
        SCOPED_TRACE(text);
        const Document again = parse(text, printed);
        EXPECT_EQ(content(again, node.path), value);
        EXPECT_EQ(operation(again, node.path), "merge");
        EXPECT_EQ(print(again, json), texts[1]);
        EXPECT_EQ(data(print(again, xml), xml), data(texts[0], xml)); // the choice of prefixes is free
        const ByLibyang seen{text, printed};
        EXPECT_TRUE(!node.content || seen.value(node.path) == canonical) << seen.value(node.path);
        EXPECT_EQ(seen.operation(node.path), "merge");
    }
}

// All of them

class WholeDocument : public testing::TestWithParam<uint32_t> {
protected:
    static void SetUpTestSuite() { load_models(); }
    const uint32_t format = GetParam();
    DescriptorCheck descriptors;
};
INSTANTIATE_TEST_SUITE_P(, WholeDocument, Values(json, xml),
                         [](const auto &format) { return format_name(format.param); });

TEST_P(WholeDocument, ReadsBackTheSameFromEitherPrint) {
    const Document document = build(format);
    const std::string in_json = print(document, json);
    const std::string in_xml = print(document, xml);
    for (const uint32_t printed : {json, xml}) {
        const Document again = parse(printed == json ? in_json : in_xml, printed);
        EXPECT_EQ(print(again, json), in_json);
        EXPECT_EQ(data(print(again, xml), xml), data(in_xml, xml));
    }
}

TEST_P(WholeDocument, IsTheConfigurationToLibyang) {
    const Document document = build(format);
    for (const uint32_t printed : {json, xml}) {
        const ByLibyang seen{print(document, printed), printed};
        for (const GivenNode &node : given_nodes) {
            const std::string value = or_none(node.canonical ? node.canonical : node.content);
            EXPECT_TRUE(!node.content || seen.value(node.path) == value) << node.name << seen.value(node.path);
        }
    }
}

TEST_P(WholeDocument, MakesTheSameDatastoreFromEitherPrint) {
    const Document document = build(format);
    for (const uint32_t printed : {json, xml}) {
        const Server server{{.modules = real_models_and_radio()}};
        Operator someone{server.url()};
        ASSERT_EQ(push(someone, document, printed), 0) << server.log();
        EXPECT_EQ(data(someone.pull("/"), json), data(configuration, json));
        EXPECT_EQ(data(Operator(server.url(), xml).pull("/"), xml), data(configuration, json));
    }
}

// Deletion

struct Deletion {
    const char *name;
    const char *path;              // as the application names it
    const char *libyang = nullptr; // as libyang does, where it needs more
};
std::ostream &operator<<(std::ostream &out, const Deletion &deletion) {
    return out << deletion.name;
}

constexpr Deletion deletions[] = {
    {"AText", ZAMC_TEST_ETH0 "/description"},
    {"ABoolean", ZAMC_TEST_ETH0 "/enabled"},
    {"AnEnum", ZAMC_TEST_ETH0 "/link-up-down-trap-enable"},
    {"ANumber", ZAMC_TEST_SYSTEM "/clock/timezone-utc-offset"},
    {"AnIdentity", "/ietf-routing:routing/ribs/rib[name='main']/address-family"},
    {"AUnion", ZAMC_TEST_RULE "/access-operations"},
    {"AnEmptyLeaf", "/radio:radio/muted"},
    {"ADecimal", "/radio:radio/gain"},
    {"AValueOfALeafList", ZAMC_TEST_SYSTEM "/dns-resolver/search[.='a.example']"},
    {"AnIdentityInALeafList", ZAMC_TEST_SYSTEM "/authentication/user-authentication-order[.='local-users']",
     ZAMC_TEST_SYSTEM "/authentication/user-authentication-order[.='ietf-system:local-users']"},
    {"ALeafListAsAWhole", ZAMC_TEST_SYSTEM "/dns-resolver/search"},
    {"AnEntry", R"(/ietf-interfaces:interfaces/interface[name="it's"])"},
    {"AnEntryInAnEntry", ZAMC_TEST_ETH0 "/ietf-ip:ipv4/address[ip='192.0.2.1']"},
    {"AnEntryWithAnIdentityAsKey", ZAMC_TEST_STATIC},
    {"AnEntryOfTwoKeys", "/radio:radio/alarm[day='mon'][hour='6']"},
    {"AnEntryOfANestedList", ZAMC_TEST_SYSTEM "/authentication/user[name='joe']/authorized-key[name='k 1']"},
    {"AListAsAWhole", "/radio:radio/preset"},
    {"AContainer", ZAMC_TEST_SYSTEM "/dns-resolver"},
    {"AContainerOfAnotherModule", ZAMC_TEST_ETH0 "/ietf-ip:ipv6"},
    {"APresenceContainer", ZAMC_TEST_SYSTEM "/ntp"},
    {"ATopLevelContainer", "/ietf-netconf-acm:nacm"},
};

class DeletionOf : public testing::TestWithParam<std::tuple<Deletion, uint32_t>> {
protected:
    // One server for all; each test begins with the whole configuration.
    static void SetUpTestSuite() {
        load_models();
        server =
            std::make_unique<Server>(Server::Options{.startup = configuration, .modules = real_models_and_radio()});
    }
    static void TearDownTestSuite() { server.reset(); }
    static inline std::unique_ptr<Server> server;
};
INSTANTIATE_TEST_SUITE_P(, DeletionOf, Combine(ValuesIn(deletions), Values(json, xml)), [](const auto &both) {
    return std::get<0>(both.param).name + format_name(std::get<1>(both.param));
});

TEST_P(DeletionOf, TakesTheNodeAndNothingElse) {
    const auto &[deletion, format] = GetParam();
    Operator someone{server->url()};
    ASSERT_EQ(someone.push("/", ZAMC_PUSH_REPLACE, configuration), 0);
    ByLibyang expected{configuration, json};
    ASSERT_EQ(data(someone.pull("/"), json), expected.json());
    expected.remove(deletion.libyang ? deletion.libyang : deletion.path);

    const Document document = new_document(format);
    ASSERT_EQ(zamc_del_node(document.get(), deletion.path), 0);
    EXPECT_EQ(operation(document, deletion.path), "delete");
    EXPECT_EQ(push(someone, document, format), 0) << print(document, format) << server->log();
    EXPECT_EQ(data(someone.pull("/"), json), expected.json()) << print(document, format);

    EXPECT_EQ(push(someone, document, format), -1) << "what is gone is deleted again";
}

TEST_P(WholeDocument, ChangesAndDeletionsGoTogether) {
    const Server server{{.startup = configuration, .modules = real_models_and_radio()}};
    Operator someone{server.url()};
    const Document document = new_document(format);
    ASSERT_EQ(zamc_change_dir(document.get(), "/ietf-interfaces:interfaces"), 0);
    ASSERT_EQ(zamc_del_node(document.get(), R"(interface[name="it's"])"), 0);
    ASSERT_EQ(zamc_change_dir(document.get(), "interface[name='eth0']"), 0);
    ASSERT_EQ(zamc_new_node(document.get(), "enabled", "%d", 1), 0);
    ASSERT_EQ(zamc_del_node(document.get(), "description"), 0);
    ASSERT_EQ(zamc_change_dir(document.get(), "/radio:radio/muted"), 0);
    ASSERT_EQ(zamc_del_node(document.get(), nullptr), 0);
    ASSERT_EQ(push(someone, document, format), 0) << server.log();

    ByLibyang expected{configuration, json};
    for (const char *path :
         {R"(/ietf-interfaces:interfaces/interface[name="it's"])", ZAMC_TEST_ETH0 "/description", "/radio:radio/muted"})
        expected.remove(path);
    std::string text = expected.json();
    const std::string before = R"("enabled":false)";
    text.replace(text.find(before), before.size(), R"("enabled":true)");
    EXPECT_EQ(data(someone.pull("/"), json), text);
}

} // namespace
