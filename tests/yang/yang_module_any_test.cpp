// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// What anydata and anyxml of a JSON text may hold, and the look at it before libyang gets the text.
#include <algorithm>
#include <map>

#include <malloc.h>

#include "support/test_schema.h"
#include "yang/yang_module_fixture.h"
#include "yang/yang_module_scan_internal.h"
#include "yang/yang_module_scan_texts.h"

namespace zam::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

constexpr uint32_t unvalidated = LYD_PARSE_ONLY | LYD_PARSE_STRICT;

lyd_node *read_data(const std::string &text) {
    return zam_lyd_parse_data_mem(test_context(), text.c_str(), LYD_JSON, unvalidated, 0);
}
lyd_node *read_valid_data(const std::string &text) {
    return zam_lyd_parse_data_mem(test_context(), text.c_str(), LYD_JSON, LYD_PARSE_STRICT, LYD_VALIDATE_PRESENT);
}
lyd_node *read_request(const std::string &text) {
    return zam_lyd_parse_op(test_context(), text.c_str(), LYD_JSON, LYD_TYPE_RPC_YANG);
}
lyd_node *read_reply(const std::string &text) {
    return zam_lyd_parse_op(test_context(), text.c_str(), LYD_JSON, LYD_TYPE_REPLY_YANG);
}
lyd_node *read_patch(const std::string &text) {
    const layer::Input in{zam_ly_in_new_memory(text.c_str())};
    return zam_lyd_parse_ext_data(test_context(), "ietf-yang-patch", in.get(), LYD_JSON, unvalidated, 0, "yang-patch");
}

// libyang's last error, which is forgotten then.
std::string last_error() {
    const char *const message = zam_ly_errmsg(test_context());
    const std::string copy = message ? message : "";
    zam_ly_err_clean(test_context());
    return copy;
}

// By how much the system's heap grows while `body` runs a hundred times: what is kept each time shows, and shows again;
// a buffer that somebody makes once does not. Sanitizers replace that heap, and find a leak themselves.
template <typename F>
size_t growth(F body) {
    size_t least = SIZE_MAX;
    for (int round = 0; round < 3; ++round) {
        const size_t before = mallinfo2().uordblks;
        for (int i = 0; i < 100; ++i)
            body();
        const size_t after = mallinfo2().uordblks;
        least = std::min(least, after > before ? after - before : 0);
    }
    return least;
}
constexpr size_t less_than_a_leak = 100 * sizeof(void *);

std::string data_line(size_t offset) {
    return "The JSON text is not parsed: content of an anydata that does not parse, offset : " +
           std::to_string(offset) + ".";
}

// Contents that are refused, with what libyang says of them.
struct Refused {
    const char *content;
    const char *error;
};
constexpr const char *bad_operation = R"(Invalid enumeration value "nope")";
constexpr Refused refused_everywhere[] = {
    {R"({"a":1,"b":[]})", "empty array"},
    {R"({"b":[],"a":1})", "empty array"},
    {R"({"a":1,"b":[],"c":{"d":1}})", "empty array"},
    {R"({"a":1,"b":{"c":[]}})", "empty array"},
    {R"({"a":{"b":1},"c":[{"d":1},{"d":[]}]})", "empty array"},
    {R"({"a":1,"":2})", "zero-length"},
    {R"({"":1,"a":2})", "zero-length"},
    {R"({"a":1,"m:":2})", "zero-length"},
    {R"({"a":1,"test-main:":2})", "zero-length"},
    {R"({"a":1,"b":{"":2}})", "zero-length"},
    {R"({"a":1,"@":{}})", "zero-length"},
    {R"({"@":{"ietf-netconf:operation":"merge"},"a":1})", "zero-length"},
    {R"({"a":1,"b":"x\u0000y"})", R"(Invalid character reference "\u0000")"},
    {R"({"a":["x","\u0000"],"b":2})", R"(Invalid character reference "\u0000")"},
    {R"({"a":1,"test-main:top":{"text":"x","nothere":[]}})", "empty array"},
    // one member that makes several nodes
    {R"({"x":["a",{"y":[]}]})", "empty array"},
    {R"({"x":["a","\u0000"]})", R"(Invalid character reference "\u0000")"},
    {R"({"x":[{"a":1},{"b":{"":1}},"c"]})", "zero-length"},
    {R"({"test-main:entry":[{"id":"a"},{"id":[]}]})", "empty array"},
    {R"({"test-main:word":["a","\u0000"]})", R"(Invalid character reference "\u0000")"},
};
// Those that have names of the schema; in a template these have no meaning.
constexpr Refused refused_by_the_schema[] = {
    {R"({"a":1,"test-main:top":5})", R"(The container "top" is expected)"},
    {R"({"test-main:top":"x","a":1})", R"(The container "top" is expected)"},
    {R"({"a":1,"test-main:top":{"text":"x","sub":5}})", R"(The container "sub" is expected)"},
    {R"({"a":1,"test-main:top":{"text":"x","any":5}})", R"(The anydata "any" is expected)"},
    {R"({"a":1,"test-main:single":{"b":1}})", "Unexpected input data object"},
    {R"({"a":1,"test-main:entry":{"id":"a"}})", R"(The list "entry" is expected)"},
    {R"({"a":1,"test-main:word":"x"})", R"(The leaf-list "word" is expected)"},
    {R"({"a":1,"test-main:word":["x",{}]})", "Unexpected input data empty object"},
    {R"({"test-main:single":"x","@test-main:single":{"ietf-netconf:operation":"nope"}})", bad_operation},
    {R"({"test-main:single":"x","@test-main:single":{}})", "attribute"},
    {R"({"test-main:word":["x","y"],"@test-main:word":[{"ietf-netconf:operation":"nope"}]})", bad_operation},
    {R"({"a":1,"test-main:entry":[{"id":"a","@":{"ietf-netconf:operation":"nope"}}]})", bad_operation},
    {R"({"a":1,"test-main:run":{"speed":5}})", R"(Unexpected RPC element "run")"},
    {R"({"test-main:run":{},"a":1})", R"(Unexpected RPC element "run")"},
    {R"({"a":1,"test-main:alarm":{}})", R"(Unexpected notification element "alarm")"},
    {R"({"a":1,"test-main:top":{"item":[{"name":"n","reset":{}}]}})", R"(Unexpected action element "reset")"},
    // one member that makes several nodes
    {R"({"test-main:word":["a",{}]})", "Unexpected input data empty object"},
    {R"({"test-main:word":["a",null]})", "Invalid non-string-encoded string value"},
    {R"({"test-main:entry":[{"id":"a"},{"id":"b","value":{"c":1}},{"id":"c"}]})", "Unexpected input data object"},
};
// Contents that are refused before libyang reads them; each with the place of the fault.
struct Misplaced {
    const char *content;
    size_t offset;
};
constexpr Misplaced misplaced_metadata[] = {
    {R"({"@@a":{"x:y":"1"}})", 1},
    {R"({"a":1,"@@a":{"x:y":"1"}})", 7},
    {R"({"@test-main:single":{"x:y":"1"}})", 1},
    {R"({"@test-main:single":{"x:y":"1"},"test-main:single":"x"})", 1},
    {R"({"a":1,"@test-main:single":{"x:y":"1"}})", 7},
    {R"({"test-main:single":"x","a":1,"@test-main:single":{"x:y":"1"}})", 30},
    {R"({"test-main:top":{},"@test-main:single":{"x:y":"1"}})", 20},
    {R"({"a":1,"@test-main:top":{"x:y":"1"},"b":2})", 7},
    {R"({"a":1,"@test-main:run":{}})", 7},
};

// Contents that are read wherever an anydata may stand.
constexpr const char *read_contents[] = {
    "{}",
    R"({"a":1})",
    R"({"a":1,"b":2})",
    R"({"a":"x","b":{"c":1,"d":[1,"x"]},"nowhere:e":true,"f":[null]})",
    R"({"a":1,"a":2,"@a":{"x:y":"1"}})",
    R"({"test-main:single":"x","@test-main:single":{"ietf-netconf:operation":"merge"},"a":1})",
    R"({"test-main:run":{"speed":5}})",
    R"({"a":1,"test-main:top":{"any":{"b":1,"c":2},"xml":[1,{"d":1,"e":2}]}})",
};

// A place of an anydata, and who reads the text.
struct Place {
    const char *name;
    std::string before, after;
    lyd_node *(*read)(const std::string &text);
    std::string refusal; // of the last line at level 3, "" for none
};

std::string patch_edit(const std::string &root) {
    return root + R"({"patch-id":"p","edit":[{"edit-id":"1","operation":"merge","target":"/","value":)";
}

// Made on demand: what stands at file level would be made whenever the program starts.
std::map<std::string, Place> make_places() {
    const std::string top = R"({"test-main:top":{)";
    const std::string no_data = "[libyang]Parse data mem unsuccessful, ret :7.";
    std::map<std::string, Place> places;
    const auto add = [&](const char *name, const std::string &before, const std::string &after,
                         lyd_node *(*read)(const std::string &), const std::string &refusal) {
        places[name] = {name, before, after, read, refusal};
    };
    add("Anydata", top + R"("any":)", "}}", read_data, no_data);
    add("AnydataWithValidation", top + R"("any":)", "}}", read_valid_data, no_data);
    add("Anyxml", top + R"("xml":)", "}}", read_data, no_data);
    add("BehindOthers", R"({"test-main:single":"}\"{","test-main:top":{"text":"[","any":{"a":1,"b":2},"xml":)", "}}",
        read_data, no_data);
    add("InFrontOfOthers", top + R"("any":)", R"(,"xml":{"a":1},"text":"x"},"test-main:single":"x"})", read_data,
        no_data);
    add("WithBlanks", " {\n\"test-main:top\" : {\t\"any\" : ", " }\r}\n", read_data, no_data);
    add("WithTheModulesName", top + R"("test-main:any":)", "}}", read_data, no_data);
    add("InAListEntry", R"({"test-kinds:kinds":{"keyed":[{"b":"1","a":"2"},{"b":"3","a":"4","extra":)", "}]}}",
        read_data, no_data);
    add("InAnAnydata", top + R"("any":{"test-main:top":{"any":)", "}}}}", read_data, no_data);
    add("InAnAnydataOfSeveral", top + R"("any":{"z":{"y":1},"test-main:top":{"any":)", R"(},"x":1}}})", read_data,
        no_data);
    add("InAnEntryInAnAnyxml", top + R"("xml":{"test-kinds:kinds":{"keyed":[{"b":"1","a":"2","extra":)", "}]}}}}",
        read_data, no_data);
    add("InARequest", R"({"test-main:run":{"speed":5,"content":)", "}}", read_request, "");
    add("BesideAnAction", R"({"test-main:top":{"item":[{"name":"n","reset":{"delay":1}}],"any":)", "}}", read_request,
        "");
    add("InAReply", R"({"orvel-zam-server:pull":{"entity":"/","data":)", "}}", read_reply, "");
    add("InAReplyOfAnother", R"({"test-kinds:compute":{"result":5,"rest":)", "}}", read_reply, "");
    add("InACaseOfAReply", R"({"orvel-zam-client:publish":{"data":)", "}}", read_reply, "");
    add("InAListOfAReply", patch_edit(R"({"orvel-zam-server:diff":{"yang-patch":)"), "}]}}}", read_reply, "");
    add("InATemplate", patch_edit(R"({"ietf-yang-patch:yang-patch":)"), "}]}}", read_patch,
        "[libyang]Parse ext data unsuccessful.");
    return places;
}

class AnyContent : public testing::TestWithParam<const char *> {
protected:
    void SetUp() override { test_context(); }

    static const Place &place() {
        static const std::map<std::string, Place> places = make_places();
        return places.at(GetParam());
    }
    static std::string text_of(const char *content) { return place().before + content + place().after; }
    static bool is_operation() { return place().refusal.empty(); }
    static bool is_template() { return place().read == read_patch; }

    static void expect_refusal(const Refused &refused) {
        SCOPED_TRACE(refused.content);
        const LogCapture log{3};
        EXPECT_EQ(place().read(text_of(refused.content)), nullptr);
        EXPECT_THAT(last_error(), HasSubstr(refused.error));
        const std::string lines = "[WRONG] " + data_line(place().before.size()) + "\n[WRONG] " + place().refusal + "\n";
        EXPECT_EQ(log.all(), is_operation() ? "" : lines);
    }
    static void expect_that_it_is_read(const char *content) {
        SCOPED_TRACE(content);
        const LogCapture log{3};
        EXPECT_TRUE(Tree{place().read(text_of(content))}) << last_error();
        EXPECT_THAT(log.lines(), IsEmpty());
    }
    static void expect_no_leak(const char *content, bool is_read) {
        const std::string text = text_of(content);
        EXPECT_EQ(Tree{place().read(text)} != nullptr, is_read) << text;
        const size_t kept = growth([&text] { Tree{place().read(text)}; });
        EXPECT_LT(kept, less_than_a_leak) << text;
    }
};

TEST_P(AnyContent, OfSeveralNodesIsRefusedWhenOneOfThemDoesNotParse) {
    for (const Refused &refused : refused_everywhere)
        expect_refusal(refused);
}

TEST_P(AnyContent, OfSeveralNodesIsRefusedWhenOneOfThemDoesNotFitTheSchemaThatItNames) {
    for (const Refused &refused : refused_by_the_schema) {
        if (is_template()) {
            expect_that_it_is_read(refused.content);
        } else {
            expect_refusal(refused);
        }
    }
}

TEST_P(AnyContent, WithMetadataOfNoMemberIsRefusedBeforeLibyangReadsIt) {
    for (const auto &[content, offset] : misplaced_metadata) {
        SCOPED_TRACE(content);
        const LogCapture log{3};
        EXPECT_EQ(place().read(text_of(content)), nullptr);
        EXPECT_EQ(last_error(), "");
        const std::string line = "The JSON text is not parsed: metadata that does not fit its member, offset : " +
                                 std::to_string(place().before.size() + offset) + ".";
        EXPECT_EQ(log.count(3, line), is_operation() ? 0 : 1) << log.all();
    }
}

TEST_P(AnyContent, IsReadWhenAllOfItParses) {
    for (const char *content : read_contents)
        expect_that_it_is_read(content);
}

TEST_P(AnyContent, LeavesNothingBehindWhenItIsRefused) {
    const LogCapture log{0};
    for (const Refused &refused : refused_everywhere)
        expect_no_leak(refused.content, false);
    for (const Refused &refused : refused_by_the_schema)
        expect_no_leak(refused.content, is_template());
    for (const Misplaced &misplaced : misplaced_metadata)
        expect_no_leak(misplaced.content, false);
}

INSTANTIATE_TEST_SUITE_P(Places, AnyContent,
                         testing::Values("Anydata", "AnydataWithValidation", "Anyxml", "BehindOthers",
                                         "InFrontOfOthers", "WithBlanks", "WithTheModulesName", "InAListEntry",
                                         "InAnAnydata", "InAnAnydataOfSeveral", "InAnEntryInAnAnyxml", "InARequest",
                                         "BesideAnAction", "InAReply", "InAReplyOfAnother", "InACaseOfAReply",
                                         "InAListOfAReply", "InATemplate"),
                         [](const auto &place) { return std::string{place.param}; });

// What is read, and what becomes of it

std::string any(const std::string &content) {
    return R"({"test-main:top":{"any":)" + content + "}}";
}

struct Taken {
    const char *name;
    const char *content;
    const char *printed; // null: as it is
};

class TakenContent : public testing::TestWithParam<Taken> {};

TEST_P(TakenContent, BecomesNodes) {
    const auto &[name, content, printed] = GetParam();
    test_context();
    const LogCapture log{3};
    const Tree tree{read_data(any(content))};
    EXPECT_EQ(to_json(tree), any(printed ? printed : content));
    const Tree valid{read_valid_data(any(content))};
    ASSERT_TRUE(valid) << last_error();
    const lyd_node *node = zam_lyd_find_path(valid.get(), "any");
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(to_json(node), to_json(lyd_child(tree.get())));
    EXPECT_THAT(log.lines(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Contents, TakenContent,
    testing::Values(
        Taken{"NoMember", "{}", nullptr}, Taken{"OneMember", R"({"a":1})", nullptr},
        Taken{"OneSchemaNode", R"({"test-main:single":"x"})", R"({"single":"x"})"},
        Taken{"Scalars", R"({"a":1,"b":1.50,"c":"x","d":true,"e":[null]})", nullptr},
        Taken{"Null", R"({"a":null,"b":1})", R"({"a":"","b":1})"},
        Taken{"Arrays", R"({"a":[1,"x",true],"b":[{"c":1},{"c":[2,3]}],"d":["y"]})", nullptr},
        Taken{"Objects", R"({"a":{"b":{"c":1},"d":2},"e":{"a":{"b":3}}})", nullptr},
        Taken{"EmptyObjects", R"({"a":{},"b":{"c":{}}})", R"({"a":"","b":{"c":""}})"},
        Taken{"UnknownModules", R"({"nowhere:a":1,"test-main:nothere":2})", R"({"nowhere:a":1,"nothere":2})"},
        Taken{"SchemaNodes", R"({"test-main:single":"x","test-main:top":{"number":5,"sub":{"a":"y"}}})",
              R"({"top":{"number":5,"sub":{"a":"y"}},"single":"x"})"},
        Taken{"ListsAndLeafLists",
              R"({"test-main:entry":[{"id":"a","value":1},{"id":"b"}],"test-main:word":["x","y"],"z":5})",
              R"({"entry":[{"id":"a","value":1},{"id":"b"}],"word":["x","y"],"z":5})"},
        Taken{"OneArray", R"({"x":["a",1,{"y":2}]})", nullptr},
        Taken{"OneLeafList", R"({"test-main:word":["x","y"]})", R"({"word":["x","y"]})"},
        Taken{"OneList", R"({"test-main:entry":[{"id":"a","value":1},{"id":"b"}]})",
              R"({"entry":[{"id":"a","value":1},{"id":"b"}]})"},
        Taken{"EmptyLists", R"({"test-main:entry":[],"test-main:word":[],"z":5})", R"({"z":5})"},
        Taken{"SchemaNodesOfSeveralModules",
              R"({"test-extra:pair":["a"],"test-main:top":{"test-extra:extra":"x"},"test-kinds:kinds":{"number":1}})",
              R"({"test-extra:pair":["a"],"test-kinds:kinds":{"number":1},"top":{"test-extra:extra":"x"}})"},
        Taken{"ValuesThatDoNotFitTheirType", R"({"test-main:top":{"number":"300","text":"t"},"z":5})",
              R"({"top":{"text":"t","number":"300"},"z":5})"},
        Taken{"AllKinds",
              R"({"a":1,"b":"x","c":[1,2],"d":{"e":"y"},"test-main:single":"z","nowhere:f":true,"g":[null]})",
              R"({"single":"z","a":1,"b":"x","c":[1,2],"d":{"e":"y"},"nowhere:f":true,"g":[null]})"},
        Taken{"AnAnydataOfSeveral", R"({"a":1,"test-main:top":{"any":{"b":1,"c":2},"xml":{"d":3,"e":4}}})",
              R"({"top":{"any":{"b":1,"c":2},"xml":{"d":3,"e":4}},"a":1})"},
        Taken{"MetadataOfAnUnknownMember", R"({"a":1,"@a":{"x:y":1},"b":2})", R"({"a":1,"a":{"x:y":1},"b":2})"},
        Taken{"MetadataOfAnUnknownMemberInFront", R"({"@a":{"x:y":1},"a":1})", R"({"a":{"x:y":1},"a":1})"},
        Taken{"MetadataOfAMemberOfAnUnknownModule", R"({"nowhere:a":1,"@nowhere:a":{"x:y":1}})",
              R"({"nowhere:a":1,"nowhere:a":{"x:y":1}})"},
        Taken{"MetadataRightBehindItsLeaf",
              R"({"test-main:single":"x","@test-main:single":{"ietf-netconf:operation":"merge"},"a":1})",
              R"({"single":"x","@single":{"ietf-netconf:operation":"merge"},"a":1})"},
        Taken{"MetadataRightBehindItsLeafList",
              R"({"test-main:word":["a","b"],"@test-main:word":[null,{"ietf-netconf:operation":"merge"}]})",
              R"({"word":["a","b"],"@word":[null,{"ietf-netconf:operation":"merge"}]})"},
        Taken{"MetadataInAContainer", R"({"a":1,"test-main:top":{"@":{"ietf-netconf:operation":"merge"},"text":"t"}})",
              R"({"top":{"@":{"ietf-netconf:operation":"merge"},"text":"t"},"a":1})"},
        Taken{"UnknownMembersTwice", R"({"a":1,"b":2,"a":{"c":3}})", R"({"a":1,"b":2,"a":{"c":3}})"},
        Taken{"LeavesTwice", R"({"test-main:single":"a","test-main:single":"b"})", R"({"single":"a","single":"b"})"},
        Taken{"ALeafTwiceInAContainer", R"({"a":1,"test-main:top":{"text":"x","text":"y"}})",
              R"({"top":{"text":"x","text":"y"},"a":1})"},
        Taken{"TwoCasesOfAChoice", R"({"a":1,"test-main:top":{"left":"x","right":{}}})",
              R"({"top":{"left":"x","right":{}},"a":1})"},
        Taken{"EscapesThatNoNameOfASchemaHas", R"({"a\"b":1,"\u00e9":2,"x\ny":3,"\\u0041":4,"\u0022":5})",
              "{\"a\\\"b\":1,\"\xC3\xA9\":2,\"x\\ny\":3,\"\\\\u0041\":4,\"\\\"\":5}"},
        Taken{"BracketsAndQuotesInStrings", R"({"a{\"":"{\"b\":[]","c}":"}],"})", nullptr},
        Taken{"SchemaNamesBelowAnUnknownMember",
              R"({"x":{"test-main:top":{"any":{"a":1,"b":2}},"test-main:run":{"c":1}}})", nullptr},
        Taken{"SchemaNamesBelowOneOfSeveral",
              R"({"x":{"test-main:top":{"any":{"a":1,"b":2}}},"y":[{"test-main:single":{"c":1}}]})", nullptr},
        Taken{"NamesWithoutTheirModule", R"({"top":{"any":{"a":1,"b":2}},"single":{"c":1},"run":{"d":1}})", nullptr},
        Taken{"OneRpc", R"({"test-main:run":{"speed":5}})", R"({"run":{"speed":5}})"},
        Taken{"OneNotification", R"({"test-main:alarm":{"message":"m"}})", R"({"alarm":{"message":"m"}})"}),
    [](const auto &taken) { return taken.param.name; });

TEST(TakenText, HasSeveralAnydataOfSeveralMembers) {
    test_context();
    const std::string text = R"({"test-kinds:kinds":{"keyed":[{"b":"1","a":"2","extra":{"c":1,"d":2}},)"
                             R"({"b":"3","a":"4","extra":{"e":3,"f":4}}],)"
                             R"("blob":{"g":5,"h":6},"markup":{"i":7,"j":8}}})";
    EXPECT_EQ(to_json(Tree{read_data(text)}), text);
}

TEST(TakenText, HasAnyxmlOfEveryKind) {
    test_context();
    for (const char *value : {"5", R"("x")", "true", "[1,2]", R"([{"a":1,"b":2}])", R"({"a":1,"b":[2,3]})", "[]"}) {
        const std::string text = R"({"test-main:top":{"xml":)" + std::string{value} + "}}";
        EXPECT_EQ(to_json(Tree{read_data(text)}), text);
    }
}

// libyang keeps such an array as it is.
TEST(TakenText, HasAnyNamesInAnArrayInAnAnyxml) {
    test_context();
    for (const char *value :
         {R"([{"test-main:top":{"any":{"a":1,"b":[]}}}])", R"([{"a":1},{"test-main:top":{"any":{"@@a":{}}}}])",
          R"([{"a":{"b":1}},{"test-main:run":{"content":{"a":1,"c":[]}}}])"}) {
        const std::string text = R"({"test-main:top":{"xml":)" + std::string{value} + "}}";
        EXPECT_EQ(to_json(Tree{read_data(text)}), text);
    }
}

TEST(TakenText, HasMetadataAtAnAnydataOfSeveralMembers) {
    test_context();
    const std::string text = R"({"test-main:top":{"any":{"a":1,"b":2},"@any":{"ietf-netconf:operation":"merge"}}})";
    EXPECT_EQ(to_json(Tree{read_data(text)}), text);
}

// The names of anydata, where there are none.
TEST(TakenText, IsNoAnydataByItsName) {
    test_context();
    const LogCapture log{3};
    for (const char *text : {R"({"any":{"a":1,"@@b":{}}})", R"({"nowhere:top":{"any":{"a":1,"@@b":{}}}})",
                             R"({"test-main:top":{"nowhere:any":{"a":1,"@@b":{}}}})",
                             R"({"test-main:top":{"sub":{"any":{"a":1,"@@b":{}}}}})",
                             R"({"test-main:top":{"any":{"x":{"test-main:top":{"any":{"a":1,"@@b":{}}}}}}})"}) {
        EXPECT_EQ(read_data(text), nullptr) << text;
        EXPECT_NE(last_error(), "") << text;
    }
    EXPECT_FALSE(log.mentions("is not parsed")) << log.all();
}

TEST(TakenText, OfAnRpcOrAReplyHasTheAnydataOfThatDirectionOnly) {
    test_context();
    const LogCapture log{3};
    EXPECT_EQ(read_request(R"({"test-kinds:compute":{"rest":{"a":1,"b":[]}}})"), nullptr);
    EXPECT_THAT(last_error(), HasSubstr(R"(Node "rest" not found)"));
    EXPECT_EQ(read_reply(R"({"test-main:run":{"content":{"a":1,"b":[]}}})"), nullptr);
    EXPECT_THAT(last_error(), HasSubstr(R"(Node "content" not found)"));
}

// Levels

std::string nested_any(size_t levels, const std::string &innermost) {
    return repeated(R"({"test-main:top":{"any":)", levels) + innermost + repeated("}}", levels);
}

TEST(AnyLevels, GoUpToEight) {
    test_context();
    for (const char *innermost : {R"({"a":1,"b":2})", R"({"a":1})", "{}"}) {
        const Tree tree{read_data(nested_any(8, innermost))};
        const std::string printed =
            R"({"test-main:top":{"any":)" + repeated(R"({"top":{"any":)", 7) + innermost + repeated("}}", 8);
        EXPECT_EQ(to_json(tree), printed);
    }
}

TEST(AnyLevels, AreNotMoreThanEight) {
    test_context();
    for (const char *innermost : {R"({"a":1,"b":2})", R"({"a":1})", "{}", R"({"a":1,"b":[]})"}) {
        const LogCapture log{3};
        EXPECT_EQ(read_data(nested_any(9, innermost)), nullptr);
        EXPECT_EQ(log.count(3, "The JSON text is not parsed: too many levels, offset : 216."), 1) << log.all();
        EXPECT_EQ(last_error(), "");
    }
}

TEST(AnyLevels, CountTheContentOfAnOperation) {
    test_context();
    const LogCapture log{3};
    const std::string before = R"({"test-main:run":{"content":)";
    EXPECT_TRUE(Tree{read_request(before + nested_any(7, "{}") + "}}")});
    EXPECT_EQ(read_request(before + nested_any(8, "{}") + "}}"), nullptr);
    EXPECT_EQ(last_error(), "");
}

TEST(AnyLevels, CountThoseInsideOneAnotherOnly) {
    test_context();
    std::string text = R"({"test-kinds:kinds":{"keyed":[)";
    for (int i = 0; i < 20; ++i)
        text += std::string{i ? "," : ""} + R"({"b":")" + std::to_string(i) + R"(","a":"x","extra":{"c":1,"d":2}})";
    text += "]}}";
    EXPECT_EQ(to_json(Tree{read_data(text)}), text);
}

TEST(AnyLevels, DoNotCountWhatOnlyHasTheNames) {
    test_context();
    const std::string text = any(R"({"x":)" + nested_any(20, R"({"a":1,"b":2})") + "}");
    EXPECT_EQ(to_json(Tree{read_data(text)}), text);
}

// All members with all others

constexpr const char *member_names[] = {"b",
                                        "a",
                                        "@a",
                                        "@",
                                        "",
                                        "@@a",
                                        "test-main:top",
                                        "@test-main:top",
                                        "test-main:single",
                                        "@test-main:single",
                                        "test-main:",
                                        "ietf-netconf:operation",
                                        "nowhere:x"};
constexpr const char *member_values[] = {"{}",   R"("x")", "[]",    R"({"z:y":1})", "5",         "null",
                                         "true", "[null]", "[1,2]", "[{}]",         R"({"":1})", R"({"z":[]})"};

struct Member {
    std::string name, value;
    bool is_read; // where it stands alone

    std::string text() const { return "\"" + name + "\":" + value; }
};

std::string text_of(const Member &first, const Member &second) {
    return any("{" + first.text() + "," + second.text() + "}");
}

// One name with all values, the others with the first four.
std::vector<Member> make_members() {
    std::vector<Member> members;
    for (const char *name : member_names) {
        for (const char *value : member_values) {
            Member member{name, value, false};
            member.is_read = Tree{read_data(any("{" + member.text() + "}"))} != nullptr;
            members.push_back(member);
            if (member.name != "b" && value == member_values[3]) break;
        }
    }
    return members;
}

// Metadata of a schema node cannot stand alone. Its value names a module, and one that is not there is passed over.
bool annotates(const Member &metadata, const Member &member) {
    return metadata.name == "@" + member.name && member.name.starts_with("test-main:") &&
           metadata.value == member_values[3];
}

// Without what validation adds.
std::string print_explicit(const lyd_node *tree) {
    return tree ? layer::print_json(tree, LYD_PRINT_WITHSIBLINGS | LYD_PRINT_WD_EXPLICIT) : "";
}

TEST(AnyMembers, AreRefusedTogetherOnlyWhereOneIsRefusedAlone) {
    test_context();
    const LogCapture log{0};
    const std::vector<Member> members = make_members();
    ASSERT_EQ(members.size(), 60u);
    int read = 0;
    for (const Member &first : members) {
        for (const Member &second : members) {
            const std::string text = text_of(first, second);
            const bool is_read = Tree{read_data(text)} != nullptr;
            EXPECT_EQ(is_read, first.is_read && (second.is_read || annotates(second, first))) << text;
            read += is_read;
        }
    }
    EXPECT_EQ(std::count_if(members.begin(), members.end(), [](const Member &member) { return member.is_read; }), 23);
    EXPECT_EQ(read, 23 * 23 + 3); // and three with metadata
}

TEST(AnyMembers, BecomeWhatLibyangMakesOfThem) {
    test_context();
    const LogCapture log{0};
    const std::vector<Member> members = make_members();
    for (const Member &first : members) {
        for (const Member &second : members) {
            const std::string text = text_of(first, second);
            const Tree tree{read_valid_data(text)};
            EXPECT_EQ(tree != nullptr, Tree{read_data(text)} != nullptr) << text;
            if (!tree) continue;
            lyd_node *direct = nullptr;
            lyd_parse_data_mem(test_context(), text.c_str(), LYD_JSON, LYD_PARSE_STRICT, LYD_VALIDATE_PRESENT, &direct);
            EXPECT_EQ(print_explicit(tree.get()), print_explicit(Tree{direct}.get()));
        }
    }
}

TEST(AnyMembers, LeaveNothingBehind) {
    test_context();
    const LogCapture log{0};
    const std::vector<Member> members = make_members();
    const auto read_all = [&members] {
        for (const Member &first : members)
            for (const Member &second : members)
                Tree{read_data(text_of(first, second))};
    };
    read_all();
    const size_t before = mallinfo2().uordblks;
    read_all();
    EXPECT_LT(mallinfo2().uordblks,
              before + 4096); // a node takes 100 bytes, and more than half of the texts are refused
}

// Validation of what has an anydata of several members

constexpr const char *held_module = R"(
module held {
    yang-version 1.1;
    namespace "urn:held";
    prefix h;
    container box {
        presence "it is there";
        leaf need { type string; mandatory true; }
        leaf size { type uint8; default "3"; }
        leaf checked { type string; must ". != 'wrong'" { error-message "Not that."; } }
        leaf seen { config false; type string; }
        choice way { leaf left { type string; } leaf right { type string; } }
        anydata data;
        anyxml markup;
    }
}
)";

class HeldContent : public layer::YangTest {
protected:
    void SetUp() override { ASSERT_TRUE(zam_lys_parse_mem(ctx(), held_module, LYS_IN_YANG)); }

    ly_ctx *ctx() const { return ctx_.get(); }
    layer::Tree read(const std::string &box, uint32_t options = LYD_PARSE_STRICT,
                     uint32_t validate = LYD_VALIDATE_PRESENT) const {
        const std::string text = R"({"held:box":{)" + box + "}}";
        return layer::Tree{zam_lyd_parse_data_mem(ctx(), text.c_str(), LYD_JSON, options, validate)};
    }
    std::string error() const {
        const char *const message = zam_ly_errmsg(ctx());
        return message ? message : "";
    }

private:
    layer::Context ctx_{zam_ly_ctx_new(nullptr, LY_CTX_NO_YANGLIBRARY)};
};

constexpr const char *two_members = R"("data":{"a":1,"b":2})";

TEST_F(HeldContent, ValidatesWithWhatIsAroundIt) {
    const LogCapture log{3};
    const layer::Tree tree = read(R"("need":"x",)" + std::string{two_members});
    ASSERT_TRUE(tree);
    EXPECT_EQ(layer::print_json(tree.get(), LYD_PRINT_WD_ALL),
              R"({"held:box":{"need":"x","size":3,"data":{"a":1,"b":2}}})");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(HeldContent, DoesNotHideThatAMandatoryNodeIsMissing) {
    const LogCapture log{3};
    EXPECT_FALSE(read(two_members));
    EXPECT_THAT(error(), HasSubstr(R"(Mandatory node "need" instance does not exist)"));
    EXPECT_EQ(log.count(3, "[libyang]Parse data mem unsuccessful, ret :7."), 1);
    EXPECT_TRUE(read(two_members, unvalidated, 0)) << "nothing is mandatory without validation";
}

TEST_F(HeldContent, DoesNotHideWhatIsNotValidAroundIt) {
    const LogCapture log{3};
    const std::string begin = std::string{two_members} + R"(,"need":"x",)";
    EXPECT_FALSE(read(begin + R"("checked":"wrong")"));
    EXPECT_EQ(error(), "Not that.");
    EXPECT_FALSE(read(begin + R"("need":"y")"));
    EXPECT_THAT(error(), HasSubstr(R"(Duplicate instance of "need")"));
    EXPECT_FALSE(read(begin + R"("left":"a","right":"b")"));
    EXPECT_THAT(error(), HasSubstr("left"));
    EXPECT_FALSE(read(begin + R"("size":300)"));
    EXPECT_FALSE(read(begin + R"("nothere":1)"));
    EXPECT_THAT(error(), HasSubstr(R"(Node "nothere" not found)"));
}

TEST_F(HeldContent, KeepsTheOptionsOfTheCaller) {
    const LogCapture log{3};
    const std::string seen = std::string{two_members} + R"(,"need":"x","seen":"y")";
    EXPECT_TRUE(read(seen));
    EXPECT_FALSE(read(seen, LYD_PARSE_STRICT | LYD_PARSE_NO_STATE));
    EXPECT_FALSE(read(seen, LYD_PARSE_STRICT, LYD_VALIDATE_PRESENT | LYD_VALIDATE_NO_STATE));
    const std::string unknown = std::string{two_members} + R"(,"need":"x","nothere":1)";
    const layer::Tree without = read(unknown, 0);
    EXPECT_EQ(layer::print_json(without.get()), R"({"held:box":{"need":"x","data":{"a":1,"b":2}}})");
    const layer::Tree opaque = read(unknown, LYD_PARSE_OPAQ);
    EXPECT_EQ(opaque, nullptr) << "what is not of the schema is not valid";
}

TEST_F(HeldContent, IsNotEnoughForTheOtherModules) {
    const char *const other = "module other { namespace 'urn:o'; prefix o; leaf m { type string; mandatory true; } }";
    ASSERT_TRUE(zam_lys_parse_mem(ctx(), other, LYS_IN_YANG));
    const LogCapture log{3};
    const std::string box = R"("need":"x",)" + std::string{two_members};
    EXPECT_TRUE(read(box));
    EXPECT_FALSE(read(box, LYD_PARSE_STRICT, 0));
    EXPECT_THAT(error(), HasSubstr(R"(Mandatory node "m")"));
}

TEST_F(HeldContent, OfSeveralMembersIsNotValidatedItself) {
    const LogCapture log{0};
    for (const char *content :
         {R"({"a":1,"held:box":{"need":"y","need":"z"}})", R"({"held:box":{"need":"y","need":"z"},"a":1})",
          R"({"a":1,"held:box":{"left":"y","right":"z"}})", R"({"a":1,"held:box":{"checked":"wrong"}})",
          R"({"a":1,"held:box":{"data":{"b":1,"held:box":{"need":"y","need":"z"}}}})"}) {
        for (const char *name : {"data", "markup"}) {
            const std::string box = R"("need":"x",")" + std::string{name} + "\":" + content;
            EXPECT_TRUE(read(box)) << box << error();
            EXPECT_LT(growth([&] { read(box); }), less_than_a_leak) << box;
        }
    }
}

// One member that makes several nodes.
TEST_F(HeldContent, OfOneListIsNotValidatedItself) {
    const char *const list = R"(
module rows { namespace "urn:rows"; prefix r; list row { key id; leaf id { type string; } leaf value { type uint8; } } }
)";
    ASSERT_TRUE(zam_lys_parse_mem(ctx(), list, LYS_IN_YANG));
    const LogCapture log{0};
    const std::string box = R"("need":"x","data":{"rows:row":[{"id":"a"},{"id":"b","value":1,"value":2}]})";
    EXPECT_TRUE(read(box)) << error();
    EXPECT_LT(growth([&] { read(box); }), less_than_a_leak);
}

TEST_F(HeldContent, LeavesNothingBehindWhenTheRestIsNotValid) {
    const LogCapture log{0};
    for (const char *rest : {"", R"(,"need":"x","checked":"wrong")", R"(,"need":"x","need":"y")",
                             R"(,"need":"x","size":300)", R"(,"need":"x","nothere":1)"}) {
        const std::string box = two_members + std::string{rest};
        EXPECT_FALSE(read(box)) << box;
        EXPECT_LT(growth([&] { read(box); }), less_than_a_leak) << box;
    }
}

// The look alone

const char *fault_of(const std::string &text, LYD_FORMAT format = LYD_JSON) {
    return zam_lyd_text_fault(test_context(), text.c_str(), format, nullptr);
}

TEST(TextLook, FindsNothingInNoTextAndInGoodOnes) {
    size_t offset = 77;
    EXPECT_EQ(zam_lyd_text_fault(test_context(), nullptr, LYD_JSON, &offset), nullptr);
    EXPECT_EQ(offset, 0u);
    EXPECT_EQ(zam_lyd_text_fault(test_context(), nullptr, LYD_XML, nullptr), nullptr);
    EXPECT_EQ(zam_lyd_text_fault(nullptr, nullptr, LYD_JSON, nullptr), nullptr);
    for (const char *text : {"", " \t\r\n", "{}", "5", R"({"test-main:top":{"text":"x","any":{"a":1,"b":2}}})"})
        EXPECT_EQ(fault_of(text), nullptr) << text;
    for (const char *text : {"", " \t\r\n", R"(<top xmlns="urn:test:main"><any><a>1</a><b/></any></top>)"})
        EXPECT_EQ(fault_of(text, LYD_XML), nullptr) << text;
}

TEST(TextLook, DoesNotAskWhetherTheTextFitsTheSchema) {
    for (const char *text :
         {R"({"test-main:top":{"number":"x"}})", R"({"nowhere:a":1})", R"({"test-main:run":{}})",
          R"({"test-main:top":{"any":5}})", R"({"test-main:top":{"nothere":{"a":1,"b":[]}}})", R"(["a"])"})
        EXPECT_EQ(fault_of(text), nullptr) << text;
}

TEST(TextLook, TellsWhatIsWrongAndWhere) {
    struct Case {
        std::string text;
        const char *what;
        size_t offset;
    };
    const std::string top = R"({"test-main:top":{)";
    for (const auto &[text, what, offset] :
         {Case{"{} x", "not one well-formed value", 3}, Case{R"({"a":1)", "not one well-formed value", 6},
          Case{R"({"a":[[]]})", "an array directly inside an array", 6},
          Case{top + R"("any":{"\u0061":1}}})", "a name that hides a character in an escape", 33},
          Case{R"({"w":["a"],"@v":[null]})", "metadata that does not fit its member", 22},
          Case{top + R"("any":{"a":1,"@@b":{}}}})", "metadata that does not fit its member", 31},
          Case{top + R"("any":{"a":1,"b":[]}}})", "content of an anydata that does not parse", 24},
          Case{top + R"("xml":{"":1,"b":2}}})", "content of an anydata that does not parse", 24},
          Case{nested_any(9, "{}"), "too many levels", 216}, Case{repeated("[", 1025), "too many levels", 1024}}) {
        size_t found = 0;
        EXPECT_STREQ(zam_lyd_text_fault(test_context(), text.c_str(), LYD_JSON, &found), what) << text;
        EXPECT_EQ(found, offset) << text;
        EXPECT_STREQ(zam_lyd_text_fault(test_context(), text.c_str(), LYD_JSON, nullptr), what) << text;
    }
    EXPECT_STREQ(fault_of("[1e1000]"), "an excessive exponent");
    EXPECT_STREQ(fault_of(strings(40'000, true)), "a value that stands too often in one place");
}

TEST(TextLook, TakesTheFirstAnydataOfSeveralThatDoNotParse) {
    size_t offset = 0;
    const char *const text = R"({"test-main:top":{"any":{"a":1,"b":2},"xml":{"":1,"b":2}},"test-kinds:kinds":{"blob":)"
                             R"({"a":1,"b":[]}}})";
    ASSERT_NE(zam_lyd_text_fault(test_context(), text, LYD_JSON, &offset), nullptr);
    EXPECT_EQ(offset, 44u);
    EXPECT_THAT(last_error(), HasSubstr("zero-length"));
}

TEST(TextLook, LeavesLibyangsErrorForContentAndNoneForAllElse) {
    test_context();
    const LogCapture log{3};
    for (const char *text : {R"({"a":[[]]})", R"({"test-main:top":{"any":{"a":1,"@@b":{}}}})", "{"}) {
        EXPECT_EQ(read_data(R"({"nowhere:a":1})"), nullptr); // leaves one
        ASSERT_NE(zam_ly_errmsg(test_context()), nullptr);
        EXPECT_NE(fault_of(text), nullptr);
        EXPECT_EQ(last_error(), "") << text;
    }
    EXPECT_EQ(read_data(R"({"nowhere:a":1})"), nullptr);
    EXPECT_NE(fault_of(any(R"({"a":1,"b":[]})")), nullptr);
    EXPECT_THAT(last_error(), HasSubstr("empty array"));
}

TEST(TextLook, SaysNothing) {
    test_context();
    const LogCapture log{7};
    EXPECT_NE(fault_of(any(R"({"a":1,"b":[]})")), nullptr);
    EXPECT_NE(fault_of(any(R"({"a":1,"@@b":{}})")), nullptr);
    EXPECT_NE(fault_of("</a>", LYD_XML), nullptr);
    EXPECT_EQ(fault_of(any(R"({"a":1,"b":2})")), nullptr);
    EXPECT_THAT(log.lines(), IsEmpty()) << log.all();
}

TEST(TextLook, LeavesAnydataOutWithoutAContext) {
    size_t offset = 77;
    for (const std::string &text :
         {any(R"({"a":1,"b":[]})"), any(R"({"@@a":{}})"), nested_any(9, "{}"), any(R"({"a":1,"":2})")}) {
        EXPECT_EQ(zam_lyd_text_fault(nullptr, text.c_str(), LYD_JSON, &offset), nullptr) << text;
        EXPECT_EQ(offset, 0u);
    }
    EXPECT_STREQ(zam_lyd_text_fault(nullptr, R"({"a":[[]]})", LYD_JSON, &offset), "an array directly inside an array");
    EXPECT_EQ(offset, 6u);
    EXPECT_STREQ(zam_lyd_text_fault(nullptr, "<", LYD_XML, nullptr), "a tag without end");
}

TEST(TextLook, JudgesXmlByItsMarkup) {
    size_t offset = 0;
    EXPECT_STREQ(zam_lyd_text_fault(test_context(), "<a></a></b>", LYD_XML, &offset), "an end tag too many");
    EXPECT_EQ(offset, 7u);
    EXPECT_STREQ(fault_of("<a><!-- ", LYD_XML), "markup without end");
    EXPECT_STREQ(fault_of(repeated("<a>", 1025), LYD_XML), "too many levels");
    EXPECT_EQ(fault_of(R"(<top xmlns="urn:test:main"><any><a/><a/><top xmlns="urn:none"/></any></top>)", LYD_XML),
              nullptr);
}

TEST(TextLook, KnowsNothingOfOtherFormats) {
    size_t offset = 77;
    EXPECT_EQ(zam_lyd_text_fault(test_context(), any(R"({"a":1,"b":[]})").c_str(), LYD_LYB, &offset), nullptr);
    EXPECT_EQ(offset, 0u);
    EXPECT_EQ(fault_of("</a>", LYD_LYB), nullptr);
}

} // namespace
} // namespace zam::test
