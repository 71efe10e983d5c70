// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Pushes that are refused: the exact error, a datastore as it was, and nobody told.
#include <ostream>

#include <gmock/gmock.h>

#include "e2e/app.h"

namespace {

using namespace zam::test;
using testing::Combine;
using testing::IsEmpty;
using testing::Values;
using testing::ValuesIn;

constexpr uint32_t json = ZAM_ENCODE_JSON;
constexpr uint32_t xml = ZAM_ENCODE_XML;
constexpr char radio[] = R"({"radio:radio":{"motto":"quiet","volume":3,
   "preset":[{"name":"one","frequency":1},{"name":"two"}],"genre":["jazz","folk"]}})";

#define NS R"( xmlns="urn:zamc:test:radio")"

struct Refusal {
    const char *name;
    const char *operation;
    const char *entity;
    const char *json; // as zamc_push() takes it
    const char *xml;
    const char *type;
    const char *tag;
    const char *app_tag;
    const char *path;
    const char *message;
};
std::ostream &operator<<(std::ostream &out, const Refusal &refusal) {
    return out << refusal.name;
}

constexpr char one[] = R"(/radio:radio/preset[name="one"])";
constexpr char none[] = R"(/radio:radio/preset[name="none"])";
const Refusal refusals[] = {
    {"CreateOfALeafThatExists", "create", "/radio:radio/motto", "loud", "<motto" NS ">loud</motto>", "application",
     "data-exists", "", "/radio:radio/motto", R"("/radio:radio/motto" exists already.)"},
    {"CreateOfALeafThatHasThatValueAlready", "create", "/radio:radio/motto", "quiet", "<motto" NS ">quiet</motto>",
     "application", "data-exists", "", "/radio:radio/motto", R"("/radio:radio/motto" exists already.)"},
    {"CreateOfAnEntryThatExists", "create", one, R"([{"name":"one"}])", "<preset" NS "><name>one</name></preset>",
     "application", "data-exists", "", one, R"("/radio:radio/preset[name="one"]" exists already.)"},
    {"CreateOfAContainerThatExists", "create", "/radio:radio", R"({"name":"x"})", "<radio" NS "><name>x</name></radio>",
     "application", "data-exists", "", "/radio:radio", R"("/radio:radio" exists already.)"},
    {"CreateOfAListWithAnEntryThatExists", "create", "/radio:radio/preset", R"([{"name":"three"},{"name":"one"}])",
     "<preset" NS "><name>three</name></preset><preset" NS "><name>one</name></preset>", "application", "data-exists",
     "", one, R"("/radio:radio/preset[name="one"]" exists already.)"},
    {"CreateOfAValueOfALeafListThatExists", "create", "/radio:radio/genre", R"(["rock","folk"])",
     "<genre" NS ">rock</genre><genre" NS ">folk</genre>", "application", "data-exists", "",
     R"(/radio:radio/genre[.="folk"])", R"("/radio:radio/genre[.="folk"]" exists already.)"},
    {"DeleteOfALeafThatIsNotThere", "delete", "/radio:radio/name", "", "", "application", "data-missing", "",
     "/radio:radio/name", R"("/radio:radio/name" does not exist.)"},
    {"DeleteOfADefaultThatNobodySet", "delete", "/radio:radio/night", "", "", "application", "data-missing", "",
     "/radio:radio/night", R"("/radio:radio/night" does not exist.)"},
    {"DeleteOfAnEntryThatIsNotThere", "delete", none, "", "", "application", "data-missing", "", none,
     R"("/radio:radio/preset[name="none"]" does not exist.)"},
    {"DeleteBelowAnEntryThatIsNotThere", "delete", R"(/radio:radio/preset[name="none"]/frequency)", "", "",
     "application", "data-missing", "", R"(/radio:radio/preset[name="none"]/frequency)",
     R"("/radio:radio/preset[name="none"]/frequency" does not exist.)"},
    {"DeleteOfAListThatIsEmpty", "delete", "/radio:radio/alarm", "", "", "application", "data-missing", "",
     "/radio:radio/alarm", R"("/radio:radio/alarm" does not exist.)"},
    {"DeleteOfAKey", "delete", R"(/radio:radio/preset[name="one"]/name)", "", "", "protocol", "operation-not-supported",
     "", R"(/radio:radio/preset[name="one"]/name)", "A key goes with its entry and cannot be deleted alone."},
    {"AValueOutsideItsRange", "merge", "/radio:radio/volume", "12", "<volume" NS ">12</volume>", "protocol",
     "invalid-value", "", "/radio:radio/volume", R"(Unsatisfied range - value "12" is out of the allowed range.)"},
    {"AValueOfAnotherType", "merge", "/radio:radio/volume", "loud", "<volume" NS ">loud</volume>", "protocol",
     "invalid-value", "", "/radio:radio/volume", R"(Invalid type uint8 value "loud".)"},
    {"AConstraintWithWordsOfItsOwn", "merge", "/radio:radio", R"({"volume":9,"night":true})",
     "<radio" NS "><volume>9</volume><night>true</night></radio>", "protocol", "invalid-value", "too-loud",
     "/radio:radio", "Be quiet at night."},
    {"AMandatoryLeafThatIsMissing", "merge", "/ietf-interfaces:interfaces", R"({"interface":[{"name":"eth0"}]})",
     R"(<interfaces xmlns="urn:ietf:params:xml:ns:yang:ietf-interfaces"><interface><name>eth0</name></interface></interfaces>)",
     "protocol", "invalid-value", "", "/ietf-interfaces:interfaces/interface/type",
     R"(Mandatory node "type" instance does not exist.)"},
    {"AnUnknownLeaf", "merge", "/radio:radio/wings", "2", "<wings" NS ">2</wings>", "protocol", "unknown-element", "",
     "", R"(The path "/radio:radio/wings" names "wings", which the module "radio" does not have there.)"},
    {"AnUnknownModule", "merge", "/television:tv", "2", "<tv xmlns=\"urn:tv\">2</tv>", "protocol", "unknown-element",
     "", "", R"(The path "/television:tv" names the module "television", which is not loaded.)"},
    {"AnUnknownNodeInTheContent", "merge", "/radio:radio", R"({"wings":2})", "<radio" NS "><wings>2</wings></radio>",
     "protocol", "invalid-value", "", "/radio:radio", R"(Node "wings" not found as a child of "radio" node.)"},
    {"State", "merge", "/radio:radio/state/signal", "3", "<signal" NS ">3</signal>", "protocol", "invalid-value", "",
     "/radio:radio/state/signal", R"("/radio:radio/state/signal" is no configuration and cannot be pushed.)"},
    {"AnEntryWithoutItsKey", "merge", "/radio:radio/preset/frequency", "3", "<frequency" NS ">3</frequency>",
     "protocol", "missing-element", "", "",
     R"(The path "/radio:radio/preset/frequency" has to name the entry of each list above its last step.)"},
    {"ContentAboutAnotherEntry", "merge", one, R"([{"name":"two"}])", "<preset" NS "><name>two</name></preset>",
     "protocol", "invalid-value", "", one,
     R"(The content for "/radio:radio/preset[name="one"]" is about another entry, [name="two"].)"},
    {"NoContentWhereThereHasToBe", "merge", "/radio:radio/motto", "", "", "protocol", "missing-element", "",
     "/radio:radio/motto", R"(There is no value for "/radio:radio/motto".)"},
};

std::string quoted(const std::string &text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + "\"";
}

std::string escaped(const std::string &text) {
    std::string out;
    for (const char c : text)
        out += c == '<' ? "&lt;" : c == '>' ? "&gt;" : c == '&' ? "&amp;" : std::string{c};
    return out;
}

// The reply that says all this and nothing else.
std::string reply(const Refusal &refusal, uint32_t encode) {
    struct Leaf {
        const char *name;
        const char *value;
    };
    std::string text;
    for (const Leaf &leaf :
         {Leaf{"error-type", refusal.type}, Leaf{"error-tag", refusal.tag}, Leaf{"error-app-tag", refusal.app_tag},
          Leaf{"error-path", refusal.path}, Leaf{"error-message", refusal.message}}) {
        const std::string name = leaf.name;
        if (!*leaf.value) continue;
        if (encode == xml)
            text += "<" + name + ">" + escaped(leaf.value) + "</" + name + ">";
        else
            text += (text.empty() ? "\"" : ",\"") + name + "\":" + quoted(leaf.value);
    }
    if (encode == xml) return R"(<rpc-error xmlns="urn:ietf:params:xml:ns:netconf:base:1.0">)" + text + "</rpc-error>";
    return R"({"ietf-netconf:rpc-error":{)" + text + "}}";
}

class RefusalOf : public testing::TestWithParam<std::tuple<Refusal, uint32_t>> {
protected:
    DescriptorCheck descriptors;
    Server server{{.startup = radio, .modules = real_models_and_radio()}};
    Journal journal;
};
INSTANTIATE_TEST_SUITE_P(, RefusalOf, Combine(ValuesIn(refusals), Values(json, xml)), [](const auto &both) {
    return std::string{std::get<0>(both.param).name} + (std::get<1>(both.param) == json ? "InJson" : "InXml");
});

TEST_P(RefusalOf, SaysWhyAndChangesNothing) {
    const auto &[refusal, encode] = GetParam();
    App app{server.url(), journal, {{.target = "/radio:radio"}, {.target = "/ietf-interfaces:interfaces"}}};
    Operator op{server.url()};
    const std::string before = op.pull("/");
    EXPECT_EQ(op.push_reply(refusal.entity, refusal.operation, encode == json ? refusal.json : refusal.xml, encode),
              reply(refusal, encode));
    EXPECT_EQ(op.pull("/"), before);
    // What was refused left nothing behind that would show in the next change.
    journal.clear();
    EXPECT_EQ(op.push("/radio:radio/motto", ZAMC_PUSH_MERGE, "after"), 0);
    const auto calls = journal.calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].target, "/radio:radio");
    EXPECT_EQ(calls[0].mask, uint32_t{ZAMC_CONFIG_UPDATE | ZAMC_SCENE_NORMAL});
}

class Refusals : public testing::Test {
protected:
    std::string push_of(const std::string &rest) { return op.exchange(R"({"orvel-zam-server:push":{)" + rest + "}}"); }
    void expect_error(const std::string &found, const char *type, const char *tag, const char *message) {
        EXPECT_EQ(found, reply({"", "", "", "", "", type, tag, "", "", message}, json));
    }
    DescriptorCheck descriptors;
    Server server{{.startup = radio, .modules = real_models_and_radio()}};
    Journal journal;
    Operator op{server.url()};
};

TEST_F(Refusals, OfThePushingClientArriveAsANumberOnly) {
    App app{server.url(), journal, {{.target = "/radio:radio"}}};
    journal.clear();
    EXPECT_EQ(op.push("/radio:radio/motto", ZAMC_PUSH_CREATE, "loud"), -1);
    EXPECT_EQ(op.push("/radio:radio/name", ZAMC_PUSH_DELETE, ""), -1);
    EXPECT_EQ(op.push("/radio:radio/volume", ZAMC_PUSH_MERGE, "12"), -1);
    EXPECT_EQ(op.push("/radio:radio/motto[", ZAMC_PUSH_MERGE, "x"), -3);
    EXPECT_EQ(op.push("radio/motto", ZAMC_PUSH_MERGE, "x"), -1);
    EXPECT_EQ(op.push("/radio:radio/motto", 5, "x"), -1);
    EXPECT_EQ(zamc_push(nullptr, "/", ZAMC_PUSH_MERGE, nullptr), -3);
    EXPECT_EQ(zamc_push(op.client(), nullptr, ZAMC_PUSH_MERGE, nullptr), -3);
    EXPECT_THAT(journal.calls(), IsEmpty());
    EXPECT_EQ(op.pull("/radio:radio/motto"), "quiet");
}

TEST_F(Refusals, OfAPushWithoutADatastoreNameTheOperationalOne) {
    expect_error(push_of(R"("entity":"/radio:radio/motto","content":{"motto":"x"})"), "protocol",
                 "operation-not-supported", "The operational datastore cannot be pushed to.");
}

TEST_F(Refusals, OfAnotherDatastore) {
    expect_error(
        push_of(R"("datastore":"ietf-datastores:candidate","entity":"/radio:radio/motto")"), "protocol",
        "invalid-value",
        R"(The datastore "ietf-datastores:candidate" is not supported; running, startup and operational are.)");
}

TEST_F(Refusals, OfAPushThatSaysNotWhat) {
    expect_error(push_of(R"("datastore":"ietf-datastores:running","content":{"motto":"x"})"), "protocol",
                 "missing-element", "A push needs the entity that it changes.");
}

TEST_F(Refusals, OfContentThatIsNoObjectOfItsEntity) {
    EXPECT_EQ(push_of(R"("datastore":"ietf-datastores:running","entity":"/radio:radio/motto","content":{"name":"x"})"),
              reply({"", "", "", "", "", "protocol", "invalid-value", "", "/radio:radio/motto",
                     R"(The content for "/radio:radio/motto" has to be an object whose only member is "motto".)"},
                    json));
}

TEST_F(Refusals, OfADeletionOfEverythingWhereThereIsNothing) {
    const auto deletion = R"("datastore":"ietf-datastores:running","entity":"/","operation":"delete")";
    EXPECT_EQ(push_of(deletion), "");
    EXPECT_EQ(push_of(deletion),
              reply({"", "", "", "", "", "application", "data-missing", "", "/", R"("/" does not exist.)"}, json));
}

TEST_F(Refusals, OfContentThatLibyangMustNotGet) {
    const auto push_notes = [&](const std::string &notes) {
        return push_of(R"("datastore":"ietf-datastores:running","entity":"/radio:radio","operation":"merge",)"
                       R"("content":{"radio":{"motto":"new",)" +
                       notes + "}}");
    };
    const std::string before = op.pull("/radio:radio");
    expect_error(push_notes(R"("notes":{"a":1,"b":[]})"), "protocol", "syntax", "Unexpected input data empty array.");
    expect_error(push_notes(R"("notes":{"@radio:radio":{"a":1}})"), "protocol", "operation-failed",
                 "The content is not read: metadata that does not fit its member.");
    std::string deep = "{}";
    for (int i = 0; i < 9; i++)
        deep = R"({"radio:radio":{"notes":)" + deep + "}}";
    expect_error(push_notes(R"("notes":)" + deep), "protocol", "operation-failed",
                 "The content is not read: too many levels.");
    expect_error(push_notes(R"("n\u006ftes":{"a":1})"), "protocol", "operation-failed",
                 "The content is not read: a name that hides a character in an escape.");
    std::string again;
    for (int i = 0; i < 40'000; i++)
        again += R"("name":"x",)";
    expect_error(push_notes(again + R"("volume":1)"), "protocol", "operation-failed",
                 "The content is not read: a name that stands too often in one object.");
    EXPECT_EQ(op.pull("/radio:radio"), before);
}

TEST_F(Refusals, InsideADocumentUndoTheRestOfIt) {
    const std::string before = op.pull("/radio:radio");
    EXPECT_EQ(
        op.push("/radio:radio", ZAMC_PUSH_MERGE,
                R"({"motto":"new","preset":[{"name":"three"},{"@":{"ietf-netconf:operation":"create"},"name":"one"}],
                          "genre":["rock"],"name":"n","@name":{"ietf-netconf:operation":"delete"}})"),
        -1);
    EXPECT_EQ(op.pull("/radio:radio"), before);
}

} // namespace
