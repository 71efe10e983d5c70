// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// A configuration of real models, whole and node by node, and libyang's own view of a text.
#pragma once

#include <ostream>
#include <string>

#include <gtest/gtest.h>
#include <zamc/zamc.h>

namespace zam::test {

// A node as an application gives it to zamc_new_node(): booleans and enumerations by number, in JSON a bare scalar or
// the value, in XML the element, whose text stands as it is. A null value makes the node by its path alone.
struct GivenNode {
    const char *name;
    const char *path;
    const char *json;
    const char *xml;
    const char *content;             // what zamc_node_content() says; null for what is no leaf
    const char *canonical = nullptr; // libyang's own text of the value where it is another
};
inline std::ostream &operator<<(std::ostream &out, const GivenNode &node) {
    return out << node.name;
}

#define ZAMC_TEST_TEXT "the \"first\" <one> & 'only'\nn\xc3\xa9 \xe2\x82\xac \xe6\x97\xa5\xe6\x9c\xac \\ end\t."
#define ZAMC_TEST_ETH0 "/ietf-interfaces:interfaces/interface[name='eth0']"
#define ZAMC_TEST_SYSTEM "/ietf-system:system"
#define ZAMC_TEST_STATIC                                                                                               \
    "/ietf-routing:routing/control-plane-protocols/control-plane-protocol[type='ietf-routing:static'][name='up']"
#define ZAMC_TEST_RULE "/ietf-netconf-acm:nacm/rule-list[name='all']/rule[name='read']"

// Together they make `configuration`. Their modules stand in the order in which libyang keeps top-level nodes.
constexpr GivenNode given_nodes[] = {
    {"AnIdentityOfAnotherModule", ZAMC_TEST_ETH0 "/type", "iana-if-type:ethernetCsmacd",
     "<type>iana-if-type:ethernetCsmacd</type>", "iana-if-type:ethernetCsmacd"},
    {"AText", ZAMC_TEST_ETH0 "/description", ZAMC_TEST_TEXT, "<description>" ZAMC_TEST_TEXT "</description>",
     ZAMC_TEST_TEXT},
    {"ABoolean", ZAMC_TEST_ETH0 "/enabled", "0", "0", "false"},
    {"AnEnumByItsNumber", ZAMC_TEST_ETH0 "/link-up-down-trap-enable", "2", "2", "disabled"},
    {"AContainerOfAnotherModule", ZAMC_TEST_ETH0 "/ietf-ip:ipv4", R"({"forwarding":true,"mtu":1500})",
     R"(<ipv4 xmlns="urn:ietf:params:xml:ns:yang:ietf-ip"><forwarding>true</forwarding><mtu>1500</mtu></ipv4>)",
     nullptr},
    {"ALeafOfAnEntryInAnEntry", ZAMC_TEST_ETH0 "/ietf-ip:ipv4/address[ip='192.0.2.1']/prefix-length", "24",
     "<prefix-length>24</prefix-length>", "24"},
    {"AnEntryInAnEntry", ZAMC_TEST_ETH0 "/ietf-ip:ipv6/address[ip='2001:db8::1']",
     R"([{"ip":"2001:db8::1","prefix-length":64}])",
     "<address><ip>2001:db8::1</ip><prefix-length>64</prefix-length></address>", nullptr},
    {"AnEntryWithAQuoteInItsKey", R"(/ietf-interfaces:interfaces/interface[name="it's"]/type)",
     "iana-if-type:softwareLoopback", "<type>iana-if-type:softwareLoopback</type>", "iana-if-type:softwareLoopback"},
    {"AUnionThatHoldsBits", ZAMC_TEST_RULE "/access-operations", "create read",
     "<access-operations>create read</access-operations>", "create read"},
    {"AUnionThatHoldsAStar", ZAMC_TEST_RULE "/module-name", "*", "<module-name>*</module-name>", "*"},
    {"AnEnumThatIsMandatory", ZAMC_TEST_RULE "/action", "0", "0", "permit"},
    {"AUnionInALeafList", "/ietf-netconf-acm:nacm/rule-list[name='all']/group", R"(["*"])", "<group>*</group>", "*"},
    {"ALeafOfAnEntryWithAnIdentityAsKey", ZAMC_TEST_STATIC "/description", "up & away",
     "<description>up & away</description>", "up & away"},
    {"AnIdentityOfItsOwnModule", "/ietf-routing:routing/ribs/rib[name='main']/address-family", "ietf-routing:ipv4",
     "<address-family>ietf-routing:ipv4</address-family>", "ipv4", "ietf-routing:ipv4"},
    {"ANegativeNumber", ZAMC_TEST_SYSTEM "/clock/timezone-utc-offset", "-90",
     "<timezone-utc-offset>-90</timezone-utc-offset>", "-90"},
    {"APresenceContainer", ZAMC_TEST_SYSTEM "/ntp", nullptr, nullptr, nullptr},
    {"AUnionThatHoldsAName", ZAMC_TEST_SYSTEM "/ntp/server[name='pool']/udp/address", "ntp.example",
     "<address>ntp.example</address>", "ntp.example"},
    {"AnEnumOfAnEntry", ZAMC_TEST_SYSTEM "/ntp/server[name='pool']/association-type", "2", "2", "pool"},
    {"AUnionThatHoldsAnAddress", ZAMC_TEST_SYSTEM "/dns-resolver/server[name='one']/udp-and-tcp/address",
     "2001:db8::53", "<address>2001:db8::53</address>", "2001:db8::53"},
    {"ALeafListAsAWhole", ZAMC_TEST_SYSTEM "/dns-resolver/search", R"(["b.example","a.example"])",
     "<search>b.example</search><search>a.example</search>", "b.example"},
    {"AValueOfALeafList", ZAMC_TEST_SYSTEM "/dns-resolver/search[.='c.example']", nullptr, nullptr, "c.example"},
    {"AnIdentityInALeafList", ZAMC_TEST_SYSTEM "/authentication/user-authentication-order",
     R"(["ietf-system:local-users"])",
     R"(<user-authentication-order xmlns:s="urn:ietf:params:xml:ns:yang:ietf-system">s:local-users)"
     "</user-authentication-order>",
     "local-users", "ietf-system:local-users"},
    {"AnEntryOfANestedListWithABinary", ZAMC_TEST_SYSTEM "/authentication/user[name='joe']/authorized-key[name='k 1']",
     R"([{"name":"k 1","algorithm":"ssh-rsa","key-data":"AAEC"}])",
     "<authorized-key><name>k 1</name><algorithm>ssh-rsa</algorithm><key-data>AAEC</key-data></authorized-key>",
     nullptr},
    {"AnEmptyLeaf", "/radio:radio/muted", nullptr, nullptr, ""},
    {"ALongNumber", "/radio:radio/serial", "18446744073709551615", "<serial>18446744073709551615</serial>",
     "18446744073709551615"},
    {"ADecimal", "/radio:radio/gain", "-0.50", "<gain>-0.50</gain>", "-0.5"},
    {"AnEnumWithABlank", "/radio:radio/colour", "1", "1", "pale blue"},
    {"AnEntryOfTwoKeys", "/radio:radio/alarm[day='mon'][hour='6']", nullptr, nullptr, nullptr},
    {"AnEntryOfAnOrderedList", "/radio:radio/preset[name='two']/frequency", "2", "<frequency>2</frequency>", "2"},
    {"ATextThatIsEmpty", "/radio:radio/motto", "", "<motto></motto>", ""},
};

inline constexpr char configuration[] = R"({
 "ietf-interfaces:interfaces":{"interface":[
  {"name":"eth0","description":"the \"first\" <one> & 'only'\nné € 日本 \\ end\t.","type":"iana-if-type:ethernetCsmacd",
   "enabled":false,"link-up-down-trap-enable":"disabled",
   "ietf-ip:ipv4":{"forwarding":true,"mtu":1500,"address":[{"ip":"192.0.2.1","prefix-length":24}]},
   "ietf-ip:ipv6":{"address":[{"ip":"2001:db8::1","prefix-length":64}]}},
  {"name":"it's","type":"iana-if-type:softwareLoopback"}]},
 "ietf-system:system":{"clock":{"timezone-utc-offset":-90},
  "ntp":{"server":[{"name":"pool","udp":{"address":"ntp.example"},"association-type":"pool"}]},
  "dns-resolver":{"search":["b.example","a.example","c.example"],
   "server":[{"name":"one","udp-and-tcp":{"address":"2001:db8::53"}}]},
  "authentication":{"user-authentication-order":["ietf-system:local-users"],
   "user":[{"name":"joe","authorized-key":[{"name":"k 1","algorithm":"ssh-rsa","key-data":"AAEC"}]}]}},
 "ietf-routing:routing":{
  "control-plane-protocols":{"control-plane-protocol":[{"type":"ietf-routing:static","name":"up","description":"up & away"}]},
  "ribs":{"rib":[{"name":"main","address-family":"ietf-routing:ipv4"}]}},
 "ietf-netconf-acm:nacm":{"rule-list":[{"name":"all","group":["*"],
  "rule":[{"name":"read","module-name":"*","access-operations":"create read","action":"permit"}]}]},
 "radio:radio":{"motto":"","serial":"18446744073709551615","gain":"-0.5","colour":"pale blue","muted":[null],
  "alarm":[{"day":"mon","hour":6}],"preset":[{"name":"two","frequency":2}]}})";

// A text as libyang itself reads it: its trees merged into one of each.
class ByLibyang {
public:
    ByLibyang(const std::string &text, uint32_t format);
    ~ByLibyang() { lyd_free_all(tree_); }
    ByLibyang(const ByLibyang &) = delete;
    ByLibyang &operator=(const ByLibyang &) = delete;

    std::string value(const std::string &path) const;     // "(none)" without such a node
    std::string operation(const std::string &path) const; // the one that the node itself states
    void remove(const std::string &path);                 // all nodes of that path
    std::string json() const;                             // without containers that hold nothing

private:
    lyd_node *find(const std::string &path) const;
    lyd_node *tree_ = nullptr;
};

} // namespace zam::test
