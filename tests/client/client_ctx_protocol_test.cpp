// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// The two modules of the protocol, field by field.
#include "client/client_ctx_internal.h"

#include <zamc/logger.h>
#include <zamc/yang_tree_data.h>

#include "client/client_ctx_fixture.h"

namespace {

using namespace zam::test;
using testing::HasSubstr;

using ServerSchema = BuiltinSchema;
using ClientSchema = BuiltinSchema;

struct FreeTree {
    void operator()(lyd_node *tree) const { lyd_free_all(tree); }
};
using Tree = std::unique_ptr<lyd_node, FreeTree>;

// Whether the text is a request (reply) of the protocol as the schema wants it, with everything mandatory there.
class Operations {
public:
    explicit Operations(const ly_ctx *ctx) : ctx_{ctx} {}

    Tree request(const std::string &json) const { return checked(json, LYD_TYPE_RPC_YANG); }
    Tree reply(const std::string &json) const { return checked(json, LYD_TYPE_REPLY_YANG); }
    std::string printed(const std::string &json) const {
        const Tree tree = request(json);
        if (!tree) return "refused";
        char *text = nullptr;
        lyd_print_mem(&text, tree.get(), LYD_JSON, LYD_PRINT_SHRINK | LYD_PRINT_WD_ALL);
        const std::string printed = text;
        std::free(text);
        return printed;
    }

private:
    Tree checked(const std::string &json, lyd_type type) const {
        Tree tree{zam_lyd_parse_op(ctx_, json.c_str(), LYD_JSON, type)};
        if (tree && lyd_validate_op(tree.get(), nullptr, type, nullptr) != LY_SUCCESS) return nullptr;
        return tree;
    }

    const ly_ctx *ctx_;
};

std::string subscription(const char *operation, const std::string &members) {
    return std::string{R"({"orvel-zam-server:)"} + operation + R"(":{"subscriptions":{"subscription":[{)" + members +
           "}]}}}";
}

// orvel-zam-server

TEST_F(ServerSchema, HasItsNamesAndImports) {
    const lys_module *const server = module("orvel-zam-server");
    EXPECT_EQ(head_text(server), "orvel-zam-server urn:orvel:params:xml:ns:yang:orvel-zam-server zams 2019-07-14\n"
                                 "import ietf-datastores ds\n"
                                 "import ietf-yang-library yanglib\n"
                                 "import ietf-yang-patch yangpatch\n"
                                 "import ietf-restconf rc\n"
                                 "import ietf-yang-metadata md\n"
                                 "import ietf-yang-types yang\n");
    EXPECT_EQ(server->parsed->version, LYS_VERSION_1_1);
}

TEST_F(ServerSchema, HasItsOperationsAndNoData) {
    const lysc_module *const compiled = module("orvel-zam-server")->compiled;
    EXPECT_FALSE(compiled->data);
    std::vector<std::string> names;
    for (const lysc_node_action *rpc = compiled->rpcs; rpc; rpc = rpc->next)
        names.emplace_back(rpc->name);
    EXPECT_THAT(names,
                testing::UnorderedElementsAre("register", "subscribe", "unsubscribe", "activate", "deactivate", "pull",
                                              "diff", "locate", "push", "notify", "verify-configuration"));
}

TEST_F(ServerSchema, RegisterTakesNameAndAttributes) {
    EXPECT_EQ(node_text("/orvel-zam-server:register"), R"(rpc register
  input
    leaf name string = null
    container attribute
      leaf api-version enum{v1=0 v2=1} = v2
      leaf deadline int32 = 0
      leaf encode enum{unknown=0 xml=1 json=2 gpb=3} = json
      leaf dependent-clients string
  output
    leaf session-id uint32
)");
}

constexpr const char *filter_mask =
    "bits{config-create@0 config-delete@1 config-update@2 config-move@3 curb-delete@4 curb-create@5 scene-normal@7 "
    "scene-cfgr@8 scene-rollback@9 scene-smooth@10}";

std::string subscriptions_text(const char *name, const char *after) {
    return std::string{"rpc "} + name + R"(
  input
    container subscriptions
      list subscription keyless
        leaf target string mandatory
        leaf sub-type enum{config-change=0 status-query=1 operation=2} mandatory
        leaf priority uint32 mandatory when ../sub-type = 'config-change'
        leaf filter-mask )" +
           filter_mask + " when ../sub-type = 'config-change'\n" + after;
}

TEST_F(ServerSchema, SubscribeTakesSubscriptions) {
    EXPECT_EQ(node_text("/orvel-zam-server:subscribe"),
              subscriptions_text("subscribe", "        leaf priv-data uint64\n"));
}

TEST_F(ServerSchema, UnsubscribeIsTheSameWithoutPrivData) {
    EXPECT_EQ(node_text("/orvel-zam-server:unsubscribe"), subscriptions_text("unsubscribe", ""));
}

TEST_F(ServerSchema, ActivateTakesAMode) {
    EXPECT_EQ(node_text("/orvel-zam-server:activate"), R"(rpc activate
  input
    leaf mode enum{direct=0 replay=1} = replay
)");
}

TEST_F(ServerSchema, DeactivateHasNothing) {
    EXPECT_EQ(node_text("/orvel-zam-server:deactivate"), "rpc deactivate\n");
}

TEST_F(ServerSchema, PullTakesDatastoreEntityDepthAndVersion) {
    EXPECT_EQ(node_text("/orvel-zam-server:pull"), R"(rpc pull
  input
    leaf datastore identityref(ietf-datastores:datastore) = ietf-datastores:running
    leaf entity string
    leaf depth int32[-1|1..65535] = -1
    leaf version enum{last=0 current=1} = current
  output
    leaf entity string
    anydata data
)");
}

TEST_F(ServerSchema, DiffAnswersWithAPatch) {
    EXPECT_EQ(node_text("/orvel-zam-server:diff"), R"(rpc diff
  input
    leaf datastore identityref(ietf-datastores:datastore) = ietf-datastores:running
    leaf entity string
    leaf depth int32[-1|1..65535] = -1
  output
    leaf entity string
    container yang-patch
      leaf patch-id string mandatory
      leaf comment string
      list edit by edit-id
        leaf edit-id string
        leaf operation enum{create=0 delete=1 insert=2 merge=3 move=4 replace=5 remove=6} mandatory
        leaf target string mandatory
        leaf point string when (../operation = 'insert' or ../operation = 'move')and (../where = 'before' or ../where = 'after')
        leaf where enum{before=0 after=1 first=2 last=3} = last when ../operation = 'insert' or ../operation = 'move'
        anydata value when ../operation = 'create' or ../operation = 'merge' or ../operation = 'replace' or ../operation = 'insert'
)");
}

TEST_F(ServerSchema, LocateAnswersWithTheNeighbours) {
    EXPECT_EQ(node_text("/orvel-zam-server:locate"), R"(rpc locate
  input
    leaf datastore identityref(ietf-datastores:datastore) = ietf-datastores:running
    leaf entity string
    leaf version enum{current=0 last=1} = current
  output
    leaf prev-entity string
    leaf post-entity string
)");
}

TEST_F(ServerSchema, PushTakesOperationAndContent) {
    EXPECT_EQ(node_text("/orvel-zam-server:push"), R"(rpc push
  input
    leaf datastore identityref(ietf-datastores:datastore) = ietf-datastores:operational
    leaf entity string
    leaf operation enum{merge=0 replace=1 create=2 remove=3 delete=4} = merge
    anydata content
)");
}

TEST_F(ServerSchema, NotifyHasItsDataBesideTheStreams) {
    EXPECT_EQ(node_text("/orvel-zam-server:notify"), R"(rpc notify
  input
    container streams
      list stream keyless
        leaf name string mandatory
    anydata data
)");
}

TEST_F(ServerSchema, VerifyConfigurationAnswersWithOneWord) {
    EXPECT_EQ(node_text("/orvel-zam-server:verify-configuration"), R"(rpc verify-configuration
  input
    leaf name string = null
  output
    leaf consistent enum{inconsistent=0 consistent=1}
)");
}

TEST_F(ServerSchema, AppinfoIsItsOnlyNotification) {
    const lysc_node_notif *const first = module("orvel-zam-server")->compiled->notifs;
    ASSERT_TRUE(first);
    EXPECT_FALSE(first->next);
    EXPECT_EQ(schema_text(&first->node), "notification appinfo\n  leaf data string\n");
}

TEST_F(ServerSchema, TheServersConfigurationIsATemplate) {
    EXPECT_EQ(template_text("orvel-zam-server", "zam-server-config"), R"(container zam-server-config
  container listen-addrs
    leaf-list listen-addr string
  leaf daemon boolean
  leaf yang-repo string
  container log-info
    choice log-type
      case syslog
        leaf syslog empty
      case stdout
        leaf stdout empty
      case file
        leaf file string
    leaf log-level enum{emergency=0 alert=1 critical=2 error=3 warning=4 notice=5 info=6 debug=7}
  leaf timeout uint32 in seconds
  leaf worker-thread uint32
  leaf async-num uint32
  leaf work-dir string
  leaf startup-file string
  container default-datastores
    list datastore by name
      leaf name identityref(ietf-datastores:datastore)
      leaf schema string = default
  container offline-config
    leaf support-offline boolean = true
    leaf error-message string
  leaf global-dependent-clients string
)");
}

// In a template the statement counts for nothing; the grouping has it for those who use it elsewhere.
TEST_F(ServerSchema, TheServersConfigurationIsAGroupingOfStateData) {
    const lysp_node_grp *const grouping = module("orvel-zam-server")->parsed->groupings;
    ASSERT_TRUE(grouping);
    EXPECT_STREQ(grouping->name, "zam-server-config");
    ASSERT_TRUE(grouping->child);
    EXPECT_STREQ(grouping->child->name, "zam-server-config");
    EXPECT_TRUE(grouping->child->flags & LYS_CONFIG_R);
    EXPECT_FALSE(grouping->child->next);
}

TEST_F(ServerSchema, AnnotationsAreStrings) {
    for (const char *name : {"origin-position", "origin-value"}) {
        const lysc_ext_instance *const annotation = extension("orvel-zam-server", "annotation", name);
        ASSERT_TRUE(annotation) << name;
        EXPECT_STREQ(annotation->def->module->name, "ietf-yang-metadata");
        const Tree node{zam_lyd_parse_op(ctx(), R"({"orvel-zam-server:deactivate":{}})", LYD_JSON, LYD_TYPE_RPC_YANG)};
        ASSERT_TRUE(node);
        const std::string qualified = "orvel-zam-server:" + std::string{name};
        const char *const value = "after:[key1='v \"1\"'][key2='v2']";
        ASSERT_EQ(zam_lyd_new_meta(node.get(), nullptr, nullptr, qualified.c_str(), value), LY_SUCCESS);
        EXPECT_STREQ(lyd_get_meta_value(node->meta), value);
        EXPECT_EQ(node->meta->value.realtype->basetype, LY_TYPE_STRING);
    }
}

TEST_F(ServerSchema, OtherModulesMayUseItsTypes) {
    ly_ctx *const own = zam::client::_build_ctx(zam::client::_builtin_modules());
    ASSERT_TRUE(own);
    const char *const text = "module user { yang-version 1.1; namespace 'urn:user'; prefix u;"
                             "import orvel-zam-server { prefix zams; }"
                             "container c { config false;"
                             "leaf level { type zams:log-level; } leaf kind { type zams:subpub-type; }"
                             "leaf schema { type zams:schema-ref; } uses zams:zam-server-config; } }";
    ASSERT_TRUE(zam_lys_parse_mem(own, text, LYS_IN_YANG));
    ASSERT_EQ(zam_ly_ctx_compile(own), LY_SUCCESS);
    EXPECT_THAT(schema_text(lys_find_path(own, nullptr, "/user:c", 0)),
                testing::StartsWith(
                    "container c config false\n"
                    "  leaf level enum{emergency=0 alert=1 critical=2 error=3 warning=4 notice=5 info=6 debug=7}\n"
                    "  leaf kind enum{config-change=0 status-query=1 operation=2}\n"
                    "  leaf schema leafref(/yanglib:yang-library/yanglib:schema/yanglib:name) of any value = default\n"
                    "  container zam-server-config\n"));
    zam_ly_ctx_destroy(own);
}

TEST_F(ServerSchema, LogLevelsAreThoseOfTheLogger) {
    const std::string text = template_text("orvel-zam-server", "zam-server-config");
    EXPECT_THAT(text, HasSubstr("emergency=" + std::to_string(ZAM_LOG_EMERG) + " "));
    EXPECT_THAT(text, HasSubstr("error=" + std::to_string(ZAM_LOG_WRONG) + " "));
    EXPECT_THAT(text, HasSubstr("info=" + std::to_string(ZAM_LOG_INFO) + " "));
    EXPECT_THAT(text, HasSubstr("debug=" + std::to_string(ZAM_LOG_DEBUG) + "}"));
}

// What the schema takes

TEST_F(ServerSchema, DefaultsFillARegistration) {
    EXPECT_EQ(Operations{ctx()}.printed(R"({"orvel-zam-server:register":{}})"),
              R"({"orvel-zam-server:register":{"name":"null","attribute":{"api-version":"v2","deadline":0,)"
              R"("encode":"json"}}})");
}

TEST_F(ServerSchema, DefaultsFillAPull) {
    EXPECT_EQ(Operations{ctx()}.printed(R"({"orvel-zam-server:pull":{}})"),
              R"({"orvel-zam-server:pull":{"datastore":"ietf-datastores:running","depth":-1,"version":"current"}})");
}

TEST_F(ServerSchema, PushGoesToTheOperationalDatastoreUnlessToldOtherwise) {
    EXPECT_EQ(Operations{ctx()}.printed(R"({"orvel-zam-server:push":{}})"),
              R"({"orvel-zam-server:push":{"datastore":"ietf-datastores:operational","operation":"merge"}})");
}

TEST_F(ServerSchema, APriorityBelongsToConfigChangesAndIsMandatoryThere) {
    const Operations operations{ctx()};
    LogCapture log;
    for (const char *name : {"subscribe", "unsubscribe"}) {
        EXPECT_TRUE(operations.request(
            subscription(name, R"("target":"/a:b","sub-type":"config-change","priority":1,"filter-mask":"")")));
        EXPECT_TRUE(operations.request(
            subscription(name, R"("target":"/a:b","sub-type":"config-change","priority":4294967295)")));
        EXPECT_FALSE(operations.request(subscription(name, R"("target":"/a:b","sub-type":"config-change")")));
        for (const char *other : {"status-query", "operation"}) {
            const std::string rest = R"("target":"/a:b","sub-type":")" + std::string{other} + "\"";
            EXPECT_TRUE(operations.request(subscription(name, rest)));
            EXPECT_FALSE(operations.request(subscription(name, rest + R"(,"priority":1)")));
            EXPECT_FALSE(operations.request(subscription(name, rest + R"(,"filter-mask":"config-create")")));
        }
    }
}

TEST_F(ServerSchema, ASubscriptionNeedsTargetAndType) {
    const Operations operations{ctx()};
    LogCapture log;
    EXPECT_FALSE(operations.request(subscription("subscribe", R"("sub-type":"operation")")));
    EXPECT_FALSE(operations.request(subscription("subscribe", R"("target":"/a:b")")));
    EXPECT_FALSE(operations.request(subscription("subscribe", R"("target":"/a:b","sub-type":"other")")));
}

TEST_F(ServerSchema, OnlyASubscribeCarriesPrivData) {
    const Operations operations{ctx()};
    const std::string rest = R"("target":"/a:b","sub-type":"operation","priv-data":"18446744073709551615")";
    LogCapture log;
    EXPECT_TRUE(operations.request(subscription("subscribe", rest)));
    EXPECT_FALSE(operations.request(subscription("unsubscribe", rest)));
}

TEST_F(ServerSchema, AFilterMaskTakesItsTenNames) {
    const Operations operations{ctx()};
    const std::string rest = R"("target":"/a:b","sub-type":"config-change","priority":1,"filter-mask":")";
    LogCapture log;
    for (const char *bit : {"config-create", "config-delete", "config-update", "config-move", "curb-delete",
                            "curb-create", "scene-normal", "scene-cfgr", "scene-rollback", "scene-smooth"})
        EXPECT_TRUE(operations.request(subscription("subscribe", rest + bit + "\""))) << bit;
    EXPECT_FALSE(operations.request(subscription("subscribe", rest + "scene-other\"")));
}

TEST_F(ServerSchema, ADepthIsMinusOneOrOneTo65535) {
    const Operations operations{ctx()};
    LogCapture log;
    for (const char *name : {"pull", "diff"}) {
        const auto with = [&](const char *depth) {
            return operations.request(std::string{R"({"orvel-zam-server:)"} + name + R"(":{"depth":)" + depth + "}}");
        };
        for (const char *depth : {"-1", "1", "65535"})
            EXPECT_TRUE(with(depth)) << name << depth;
        for (const char *depth : {"0", "-2", "65536"})
            EXPECT_FALSE(with(depth)) << name << depth;
    }
}

TEST_F(ServerSchema, EveryDatastoreCanBePulled) {
    const Operations operations{ctx()};
    LogCapture log;
    const auto pull = [&](const char *name) {
        return operations.request(std::string{R"({"orvel-zam-server:pull":{"datastore":")"} + name + "\"}}");
    };
    for (const char *name : {"running", "candidate", "startup", "intended", "operational", "temporary-operational",
                             "yang-library", "dynamic", "conventional"})
        EXPECT_TRUE(pull(("ietf-datastores:" + std::string{name}).c_str())) << name;
    EXPECT_FALSE(pull("ietf-datastores:datastore")) << "the base is none itself";
    EXPECT_FALSE(pull("ietf-datastores:other"));
    EXPECT_FALSE(pull("ds:running")) << "a prefix of the schema means nothing in data";
}

TEST_F(ServerSchema, AStreamNeedsItsName) {
    const Operations operations{ctx()};
    LogCapture log;
    EXPECT_TRUE(operations.request(R"({"orvel-zam-server:notify":{"streams":{"stream":[{"name":"APPINFO"}]}}})"));
    EXPECT_FALSE(operations.request(R"({"orvel-zam-server:notify":{"streams":{"stream":[{}]}}})"));
}

TEST_F(ServerSchema, ThePatchOfADiffIsNamedAfterTheServer) {
    const Operations operations{ctx()};
    LogCapture log;
    EXPECT_TRUE(operations.reply(R"({"orvel-zam-server:diff":{"yang-patch":{"patch-id":"1"}}})"));
    EXPECT_FALSE(operations.reply(R"({"orvel-zam-server:diff":{"ietf-yang-patch:yang-patch":{"patch-id":"1"}}})"));
}

// orvel-zam-client

TEST_F(ClientSchema, HasItsNamesAndImports) {
    const lys_module *const client = module("orvel-zam-client");
    EXPECT_EQ(head_text(client), "orvel-zam-client urn:orvel:params:xml:ns:yang:orvel-zam-client zamc 2019-07-14\n"
                                 "import ietf-yang-types yang\n"
                                 "import ietf-inet-types inet\n"
                                 "import orvel-zam-server zams\n");
    EXPECT_EQ(client->parsed->version, LYS_VERSION_1_1);
}

TEST_F(ClientSchema, HasFourOperationsAndNothingElse) {
    EXPECT_EQ(schema_text(module("orvel-zam-client")), R"(rpc publish
  input
    leaf pub-type enum{config-change=0 status-query=1 operation=2} mandatory
    leaf from-session uint32
    leaf scene enum{normal=0 rollback=1 replay=2} = normal
    container publications
      list publication keyless
        leaf target string
        leaf priv-data uint64
        leaf priority uint32
        leaf modify-type uint32
        leaf list-more boolean
        anydata content
  output
    choice result
      case nothing
      case data
        anydata data
rpc notify-publish-stage
  input
    leaf pub-type enum{config-change=0 status-query=1 operation=2} mandatory
    leaf stage enum{publish-start=0 publish-finish=1} mandatory
rpc notify-activate-finish
rpc notify-deactivate-finish
)");
}

TEST_F(ClientSchema, APublicationNeedsItsType) {
    const Operations operations{ctx()};
    LogCapture log;
    EXPECT_FALSE(operations.request(R"({"orvel-zam-client:publish":{}})"));
    EXPECT_EQ(operations.printed(R"({"orvel-zam-client:publish":{"pub-type":"operation"}})"),
              R"({"orvel-zam-client:publish":{"pub-type":"operation","scene":"normal"}})");
}

TEST_F(ClientSchema, AStageNeedsTypeAndStage) {
    const Operations operations{ctx()};
    LogCapture log;
    EXPECT_TRUE(operations.request(
        R"({"orvel-zam-client:notify-publish-stage":{"pub-type":"operation","stage":"publish-start"}})"));
    EXPECT_FALSE(operations.request(R"({"orvel-zam-client:notify-publish-stage":{"pub-type":"operation"}})"));
    EXPECT_FALSE(operations.request(R"({"orvel-zam-client:notify-publish-stage":{"stage":"publish-start"}})"));
}

TEST_F(ClientSchema, APublicationIsAnsweredWithDataOrNothing) {
    const Operations operations{ctx()};
    LogCapture log;
    EXPECT_TRUE(operations.reply(R"({"orvel-zam-client:publish":{}})"));
    EXPECT_TRUE(operations.reply(R"({"orvel-zam-client:publish":{"data":{}}})"));
    EXPECT_FALSE(operations.reply(R"({"orvel-zam-client:publish":{"nothing":{}}})")) << "an empty case has no node";
}

} // namespace
