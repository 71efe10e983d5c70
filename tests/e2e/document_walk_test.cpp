// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// The diff that a handler fetches, walked node by node with the document's directory alone.
#include <memory>

#include <gmock/gmock.h>

#include "e2e/app.h"
#include "e2e/document_nodes.h"

namespace {

using namespace zam::test;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::Values;

constexpr uint32_t json = ZAM_ENCODE_JSON;
constexpr uint32_t xml = ZAM_ENCODE_XML;

constexpr char before[] = R"({
 "ietf-interfaces:interfaces":{"interface":[
  {"name":"eth0","description":"old <one>","type":"iana-if-type:ethernetCsmacd",
   "ietf-ip:ipv4":{"mtu":1500,"address":[{"ip":"192.0.2.1","prefix-length":24},{"ip":"192.0.2.2","prefix-length":24}]}},
  {"name":"eth1","type":"iana-if-type:ethernetCsmacd","enabled":false}]},
 "ietf-system:system":{"dns-resolver":{"search":["a.example","b.example"]}}})";

struct FreeDoc {
    void operator()(zamc_doc *doc) const { zamc_free_doc(doc); }
};
using Document = std::unique_ptr<zamc_doc, FreeDoc>;

std::string or_none(const char *text) {
    return text ? text : "(none)";
}

// Adds "PATH: OPERATION" for the node at the directory and all below it, with its value, if it has one, and the value
// that it had. Leaves the directory at the node.
void walk(zamc_doc *doc, std::vector<std::string> &lines) {
    std::string line = zamc_current_dir(doc) + std::string{": "} + or_none(zamc_node_attr(doc, nullptr, "operation"));
    if (const char *origin = zamc_node_attr(doc, nullptr, "origin-value")) line += std::string{", was "} + origin;
    const std::string here = zamc_current_dir(doc);
    if (!zamc_iter_doc(doc, ZAMC_DIRECTION_CHILD)) {
        if (const char *value = zamc_node_content(doc, nullptr)) line += std::string{" = "} + value;
        lines.push_back(line);
        return;
    }
    lines.push_back(line);
    do {
        walk(doc, lines);
    } while (zamc_iter_doc(doc, ZAMC_DIRECTION_NEXT));
    EXPECT_NE(zamc_iter_doc(doc, ZAMC_DIRECTION_PARENT), nullptr);
    EXPECT_EQ(zamc_current_dir(doc), here);
}

// All top-level nodes and what is below them.
std::vector<std::string> walk_all(const Document &document) {
    std::vector<std::string> lines;
    do {
        walk(document.get(), lines);
    } while (zamc_iter_doc(document.get(), ZAMC_DIRECTION_NEXT));
    return lines;
}

class DiffWalk : public testing::TestWithParam<uint32_t> {
protected:
    // What the application that is asked about a push of `edits` makes of its diff.
    template <typename Reader>
    auto read_diff(const Document &edits, Reader reader) {
        decltype(reader(Document{})) result{};
        App app{server.url(),
                journal,
                {{.target = "/ietf-interfaces:interfaces",
                  .behaviour =
                      [&](zamc_client *client, const Call &, zamc_bytes **) {
                          zamc_bytes *diff = nullptr;
                          EXPECT_EQ(zamc_diff(client, "/", -1, &diff), 0);
                          result = reader(Document{zamc_parse_bytes(diff, "/")});
                          zamc_free_bytes(diff);
                          return 0;
                      }}},
                {.encode = GetParam()}};
        Operator someone{server.url()};
        zamc_bytes *bytes = zamc_format_doc(edits.get(), GetParam());
        EXPECT_EQ(zamc_push(someone.client(), "/", ZAMC_PUSH_MERGE, bytes), 0) << server.log();
        zamc_free_bytes(bytes);
        return result;
    }
    // Deletes two nodes, changes one, adds one entry.
    Document some_edits() const {
        Document edits{zamc_new_doc(json)};
        EXPECT_EQ(zamc_change_dir(edits.get(), "/ietf-interfaces:interfaces"), 0);
        EXPECT_EQ(zamc_del_node(edits.get(), "interface[name='eth1']"), 0);
        EXPECT_EQ(zamc_change_dir(edits.get(), "interface[name='eth0']"), 0);
        EXPECT_EQ(zamc_new_node(edits.get(), "description", "%s", "new & \"two\""), 0);
        EXPECT_EQ(zamc_del_node(edits.get(), "ietf-ip:ipv4/address[ip='192.0.2.1']"), 0);
        EXPECT_EQ(zamc_new_node(edits.get(), "ietf-ip:ipv6/address[ip='2001:db8::1']/prefix-length", "%d", 64), 0);
        EXPECT_EQ(zamc_del_node(edits.get(), "/ietf-system:system/dns-resolver/search[.='b.example']"), 0);
        return edits;
    }

    DescriptorCheck descriptors;
    Server server{{.startup = before, .modules = real_models_and_radio()}};
    Journal journal;
};
INSTANTIATE_TEST_SUITE_P(, DiffWalk, Values(json, xml),
                         [](const auto &encode) { return encode.param == json ? "InJson" : "InXml"; });

TEST_P(DiffWalk, MeetsEveryNodeWithItsOperation) {
    load_models();
    const auto lines = read_diff(some_edits(), [](const Document &diff) {
        EXPECT_EQ(zamc_change_dir(diff.get(), "/ietf-interfaces:interfaces"), 0);
        return walk_all(diff);
    });
    const char *const expected[] = {
        "/ietf-interfaces:interfaces: merge",
        R"(/ietf-interfaces:interfaces/interface[name="eth0"]: merge)",
        R"(/ietf-interfaces:interfaces/interface[name="eth0"]/name: merge = eth0)",
        R"(/ietf-interfaces:interfaces/interface[name="eth0"]/description: replace, was old <one> = new & "two")",
        R"(/ietf-interfaces:interfaces/interface[name="eth0"]/ietf-ip:ipv4: merge)",
        R"(/ietf-interfaces:interfaces/interface[name="eth0"]/ietf-ip:ipv4/address[ip="192.0.2.1"]: delete)",
        R"(/ietf-interfaces:interfaces/interface[name="eth0"]/ietf-ip:ipv4/address[ip="192.0.2.1"]/ip: delete = )"
        "192.0.2.1",
        R"(/ietf-interfaces:interfaces/interface[name="eth0"]/ietf-ip:ipv4/address[ip="192.0.2.1"]/prefix-length: )"
        "delete = 24",
        R"(/ietf-interfaces:interfaces/interface[name="eth0"]/ietf-ip:ipv6: create)",
        R"(/ietf-interfaces:interfaces/interface[name="eth0"]/ietf-ip:ipv6/address[ip="2001:db8::1"]: create)",
        R"(/ietf-interfaces:interfaces/interface[name="eth0"]/ietf-ip:ipv6/address[ip="2001:db8::1"]/ip: create = )"
        "2001:db8::1",
        R"(/ietf-interfaces:interfaces/interface[name="eth0"]/ietf-ip:ipv6/address[ip="2001:db8::1"]/prefix-length: )"
        "create = 64",
        R"(/ietf-interfaces:interfaces/interface[name="eth1"]: delete)",
        R"(/ietf-interfaces:interfaces/interface[name="eth1"]/name: delete = eth1)",
        R"(/ietf-interfaces:interfaces/interface[name="eth1"]/type: delete = iana-if-type:ethernetCsmacd)",
        R"(/ietf-interfaces:interfaces/interface[name="eth1"]/enabled: delete = false)",
        "/ietf-system:system: merge",
        "/ietf-system:system/dns-resolver: merge",
        R"(/ietf-system:system/dns-resolver/search[.="b.example"]: delete = b.example)",
    };
    EXPECT_THAT(lines, ElementsAreArray(expected));
}

// A key states no operation of its own: it goes with its entry, whatever happens further up.
TEST_P(DiffWalk, AKeyHasTheOperationOfItsEntry) {
    load_models();
    const auto operations = read_diff(some_edits(), [](const Document &diff) {
        std::vector<std::string> found;
        EXPECT_EQ(zamc_change_dir(diff.get(), R"(/ietf-interfaces:interfaces/interface[name="eth0"])"), 0);
        for (const char *key : {"name", "ietf-ip:ipv4/address[ip='192.0.2.1']/ip",
                                "ietf-ip:ipv6/address[ip='2001:db8::1']/ip", "nothing"})
            found.push_back(or_none(zamc_node_attr(diff.get(), key, "operation")));
        found.push_back(zamc_current_dir(diff.get()));
        return found;
    });
    EXPECT_THAT(operations, ElementsAre("merge", "delete", "create", "(none)",
                                        R"(/ietf-interfaces:interfaces/interface[name="eth0"])"));
}

TEST_P(DiffWalk, GoesBackwardsInARing) {
    load_models();
    const auto names = read_diff(some_edits(), [](const Document &diff) {
        std::vector<std::string> found;
        EXPECT_EQ(zamc_change_dir(diff.get(), R"(/ietf-interfaces:interfaces/interface[name="eth0"]/name)"), 0);
        for (int i = 0; i < 4; ++i) {
            zamc_iter_doc(diff.get(), ZAMC_DIRECTION_PREVIOUS);
            found.push_back(zamc_current_dir(diff.get()));
        }
        return found;
    });
    const std::string entry = R"(/ietf-interfaces:interfaces/interface[name="eth0"])";
    EXPECT_THAT(names,
                ElementsAre(entry + "/ietf-ip:ipv6", entry + "/ietf-ip:ipv4", entry + "/description", entry + "/name"));
}

} // namespace
