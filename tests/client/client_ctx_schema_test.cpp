// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// The built-in modules of the IETF: what the RFCs define, and what this system changes.
#include "client/client_ctx_internal.h"

#include <map>
#include <set>

#include <zamc/yang_tree_data.h>

#include "client/client_ctx_fixture.h"

namespace {

using namespace zam::test;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

using IetfSchema = BuiltinSchema;

// The names of one of libyang's arrays of definitions.
template <typename T>
std::vector<std::string> names_of(T *array) {
    std::vector<std::string> names;
    LY_ARRAY_COUNT_TYPE i;
    LY_ARRAY_FOR(array, i) {
        names.emplace_back(array[i].name);
    }
    return names;
}

std::vector<std::string> groupings_of(const lys_module *module) {
    std::vector<std::string> names;
    for (const lysp_node_grp *grouping = module->parsed->groupings; grouping;
         grouping = reinterpret_cast<const lysp_node_grp *>(grouping->next))
        names.emplace_back(grouping->name);
    return names;
}

std::vector<std::string> extensions_of(const lys_module *module) {
    std::vector<std::string> texts;
    lysc_ext_instance *const all = module->compiled->exts;
    LY_ARRAY_COUNT_TYPE i;
    LY_ARRAY_FOR(all, i) {
        texts.push_back(std::string{all[i].def->name} + " " + all[i].argument);
    }
    return texts;
}

std::vector<std::string> derived_from(const lysc_ident &identity) {
    std::vector<std::string> names;
    LY_ARRAY_COUNT_TYPE i;
    LY_ARRAY_FOR(identity.derived, i) {
        names.emplace_back(identity.derived[i]->name);
    }
    return names;
}

// A number between braces stands for a longer type.
std::string expand(std::string text) {
    const std::string identifier =
        R"(string[1..18446744073709551615]~[a-zA-Z_][a-zA-Z0-9\-_.]*~.|..|[^xX].*|.[^mM].*|..[^lL].*)";
    const std::string revision = R"(string~\d{4}-\d{2}-\d{2})";
    for (const auto &[mark, full] : std::map<std::string, std::string>{{"{id}", identifier}, {"{date}", revision}}) {
        for (size_t at = 0; (at = text.find(mark, at)) != std::string::npos; at += full.size())
            text.replace(at, mark.size(), full);
    }
    return text;
}

constexpr const char *rpc_errors = R"(container errors
  list error keyless
    leaf error-type enum{transport=0 rpc=1 protocol=2 application=3} mandatory
    leaf error-tag string mandatory
    leaf error-app-tag string
    leaf error-path instance-identifier
    leaf error-message string
    anydata error-info
)";

// ietf-restconf

TEST_F(IetfSchema, RestconfIsThatOfRfc8040) {
    const lys_module *const restconf = module("ietf-restconf");
    EXPECT_EQ(head_text(restconf), "ietf-restconf urn:ietf:params:xml:ns:yang:ietf-restconf rc 2017-01-26\n");
    EXPECT_EQ(restconf->parsed->version, LYS_VERSION_1_1);
    EXPECT_THAT(groupings_of(restconf), ElementsAre("errors", "restconf"));
    EXPECT_THAT(extensions_of(restconf), ElementsAre("yang-data yang-errors", "yang-data yang-api"));
    EXPECT_EQ(schema_text(restconf), "");
}

TEST_F(IetfSchema, RestconfDefinesTheTemplateExtension) {
    const lysp_ext *const extensions = module("ietf-restconf")->parsed->extensions;
    ASSERT_THAT(names_of(const_cast<lysp_ext *>(extensions)), ElementsAre("yang-data"));
    EXPECT_STREQ(extensions[0].argname, "name");
    EXPECT_TRUE(extensions[0].flags & LYS_YINELEM_TRUE);
}

TEST_F(IetfSchema, RestconfHasItsTwoTemplates) {
    EXPECT_EQ(template_text("ietf-restconf", "yang-errors"), rpc_errors);
    EXPECT_EQ(template_text("ietf-restconf", "yang-api"), expand(R"(container restconf
  container data
  container operations
  leaf yang-library-version {date} mandatory
)"));
}

// ietf-netconf

TEST_F(IetfSchema, NetconfImportsRestconfToo) {
    EXPECT_EQ(head_text(module("ietf-netconf")), "ietf-netconf urn:ietf:params:xml:ns:netconf:base:1.0 nc 2011-06-01\n"
                                                 "import ietf-inet-types inet\n"
                                                 "import ietf-restconf rc\n");
}

TEST_F(IetfSchema, NetconfHasTheDefinitionsOfRfc6241) {
    const lys_module *const netconf = module("ietf-netconf");
    EXPECT_THAT(names_of(netconf->parsed->typedefs),
                ElementsAre("session-id-type", "session-id-or-zero-type", "error-tag-type", "error-severity-type",
                            "edit-operation-type"));
    EXPECT_THAT(names_of(netconf->parsed->features),
                ElementsAre("writable-running", "candidate", "confirmed-commit", "rollback-on-error", "validate",
                            "startup", "url", "xpath"));
    EXPECT_STREQ(netconf->parsed->features[2].iffeatures[0].str, "candidate");
    EXPECT_THAT(names_of(netconf->parsed->extensions), ElementsAre("get-filter-element-attributes"));
}

TEST_F(IetfSchema, NetconfHasTheMetadataOfLibyangAndThenTheTwoTemplates) {
    EXPECT_THAT(extensions_of(module("ietf-netconf")),
                ElementsAre("annotation operation", "annotation type", "annotation select", "yang-data yang-errors",
                            "yang-data hello"));
}

TEST_F(IetfSchema, TheErrorTemplateHasOneRpcError) {
    EXPECT_EQ(template_text("ietf-netconf", "yang-errors"), R"(container rpc-error
  leaf error-type enum{transport=0 rpc=1 protocol=2 application=3} mandatory
  leaf error-tag string mandatory
  leaf error-severity string
  leaf error-app-tag string
  leaf error-path string
  leaf error-message string
)");
}

TEST_F(IetfSchema, TheHelloTemplateHasCapabilitiesAndSession) {
    EXPECT_EQ(template_text("ietf-netconf", "hello"), R"(container hello
  container capabilities
    leaf-list capability string
  leaf session-id uint32[1..4294967295]
)");
}

TEST_F(IetfSchema, TheTemplatesBelongToNetconf) {
    for (const char *name : {"yang-errors", "hello"}) {
        const lysc_ext_instance *const found = extension("ietf-netconf", "yang-data", name);
        ASSERT_TRUE(found);
        const lysc_node *const top = lys_getnext_ext(nullptr, nullptr, found, 0);
        EXPECT_EQ(top->module, module("ietf-netconf"));
        EXPECT_EQ(lysc_node_child(top)->module, module("ietf-netconf"));
    }
}

lyd_node *parse_template(const ly_ctx *ctx, const char *text, const char *name, uint32_t validate) {
    ly_in *const in = zam_ly_in_new_memory(text);
    lyd_node *const tree = zam_lyd_parse_ext_data(ctx, "ietf-netconf", in, LYD_JSON, LYD_PARSE_STRICT, validate, name);
    zam_ly_in_free(in);
    return tree;
}

// 1 when the text is such a template's data.
int accepted(const ly_ctx *ctx, const char *text, const char *name) {
    lyd_node *const tree = parse_template(ctx, text, name, LYD_VALIDATE_PRESENT);
    lyd_free_all(tree);
    return tree != nullptr;
}

TEST_F(IetfSchema, AnErrorNeedsTypeAndTag) {
    LogCapture log;
    EXPECT_TRUE(accepted(ctx(), R"({"ietf-netconf:rpc-error":{"error-type":"rpc","error-tag":"x"}})", "yang-errors"));
    EXPECT_FALSE(accepted(ctx(), R"({"ietf-netconf:rpc-error":{"error-type":"rpc"}})", "yang-errors"));
    EXPECT_FALSE(accepted(ctx(), R"({"ietf-netconf:rpc-error":{"error-tag":"x"}})", "yang-errors"));
    EXPECT_FALSE(accepted(ctx(), R"({"ietf-netconf:rpc-error":{"error-type":"x","error-tag":"x"}})", "yang-errors"));
}

TEST_F(IetfSchema, AHelloTakesNoSessionZero) {
    LogCapture log;
    EXPECT_TRUE(
        accepted(ctx(), R"({"ietf-netconf:hello":{"session-id":1,"capabilities":{"capability":["a:b"]}}})", "hello"));
    EXPECT_FALSE(accepted(ctx(), R"({"ietf-netconf:hello":{"session-id":0}})", "hello"));
}

TEST_F(IetfSchema, AnErrorPrintsWithTheNamespaceOfNetconf) {
    lyd_node *const tree =
        parse_template(ctx(), R"({"ietf-netconf:rpc-error":{"error-type":"rpc","error-tag":"x"}})", "yang-errors", 2);
    ASSERT_TRUE(tree);
    char *text = nullptr;
    zam_lyd_print_mem(&text, tree, LYD_XML, 0);
    EXPECT_STREQ(text, R"(<rpc-error xmlns="urn:ietf:params:xml:ns:netconf:base:1.0"><error-type>rpc</error-type>)"
                       R"(<error-tag>x</error-tag></rpc-error>)");
    std::free(text);
    lyd_free_all(tree);
}

TEST_F(IetfSchema, NetconfHasItsOperationsWithTheFeaturesOff) {
    std::set<std::string> names;
    for (const lysc_node_action *rpc = module("ietf-netconf")->compiled->rpcs; rpc; rpc = rpc->next)
        names.insert(rpc->name);
    EXPECT_THAT(names, UnorderedElementsAre("get-config", "edit-config", "copy-config", "delete-config", "lock",
                                            "unlock", "get", "close-session", "kill-session"));
    EXPECT_EQ(node_text("/ietf-netconf:kill-session"), R"(rpc kill-session
  input
    leaf session-id uint32[1..4294967295] mandatory
)");
}

// libyang keeps the case of a leaf that its feature has switched off.
TEST_F(IetfSchema, EditConfigRollsBackOnErrorByDefault) {
    EXPECT_EQ(node_text("/ietf-netconf:edit-config"), R"(rpc edit-config
  input
    container target
      choice config-target mandatory
        case candidate
        case running
    leaf default-operation enum{merge=0 replace=1 none=2} = merge
    leaf error-option enum{continue-on-error=0 rollback-on-error=1} = rollback-on-error
    choice edit-content mandatory
      case config
        anyxml config
      case url
)");
}

TEST_F(IetfSchema, NoFeatureOfABuiltinModuleIsEnabled) {
    for (const auto &builtin : zam::client::_builtin_modules()) {
        const std::string name{builtin.file_name, std::string{builtin.file_name}.find('.')};
        uint32_t index = 0;
        for (const lysp_feature *feature = nullptr;
             (feature = lysp_feature_next(feature, module(name.c_str())->parsed, &index));)
            EXPECT_FALSE(feature->flags & LYS_FENABLED) << name << " " << feature->name;
    }
}

// In a context of its own, since it changes the compiled schema.
TEST_F(IetfSchema, WithAllFeaturesNetconfHasAllOfItsNodes) {
    ly_ctx *const own = zam::client::_build_ctx(zam::client::_builtin_modules());
    ASSERT_TRUE(own);
    const char *all[] = {"*", nullptr};
    lys_module *const netconf = ly_ctx_get_module_implemented(own, "ietf-netconf");
    ASSERT_EQ(zam_lys_set_implemented(netconf, all), LY_SUCCESS);
    ASSERT_EQ(zam_ly_ctx_compile(own), LY_SUCCESS);
    const auto text = [own](const char *path) { return schema_text(lys_find_path(own, nullptr, path, 0)); };
    EXPECT_EQ(text("/ietf-netconf:edit-config"), R"(rpc edit-config
  input
    container target
      choice config-target mandatory
        case candidate
          leaf candidate empty
        case running
          leaf running empty
    leaf default-operation enum{merge=0 replace=1 none=2} = merge
    leaf test-option enum{set=0} = set
    leaf error-option enum{continue-on-error=0 rollback-on-error=1} = rollback-on-error
    choice edit-content mandatory
      case config
        anyxml config
      case url
        leaf url string
)");
    EXPECT_EQ(text("/ietf-netconf:commit"), R"(rpc commit
  input
    leaf confirmed empty
    leaf confirm-timeout uint32[1..4294967295] = 600 in seconds
    leaf persist string
    leaf persist-id string
)");
    EXPECT_EQ(text("/ietf-netconf:copy-config"), R"(rpc copy-config
  input
    container target
      choice config-target mandatory
        case candidate
          leaf candidate empty
        case running
          leaf running empty
        case startup
          leaf startup empty
        case url
          leaf url string
    container source
      choice config-source mandatory
        case candidate
          leaf candidate empty
        case running
          leaf running empty
        case startup
          leaf startup empty
        case url
          leaf url string
        case config
          anyxml config
)");
    EXPECT_EQ(text("/ietf-netconf:get-config"), R"(rpc get-config
  input
    container source
      choice config-source mandatory
        case candidate
          leaf candidate empty
        case running
          leaf running empty
        case startup
          leaf startup empty
    anyxml filter
  output
    anyxml data
)");
    zam_ly_ctx_destroy(own);
}

// ietf-yang-patch

TEST_F(IetfSchema, YangPatchIsThatOfRfc8072) {
    const lys_module *const patch = module("ietf-yang-patch");
    EXPECT_EQ(head_text(patch), "ietf-yang-patch urn:ietf:params:xml:ns:yang:ietf-yang-patch ypatch 2017-02-22\n"
                                "import ietf-restconf rc\n");
    EXPECT_THAT(names_of(patch->parsed->typedefs), ElementsAre("target-resource-offset"));
    EXPECT_THAT(groupings_of(patch), ElementsAre("yang-patch", "yang-patch-status"));
    EXPECT_THAT(extensions_of(patch), ElementsAre("yang-data yang-patch", "yang-data yang-patch-status"));
    EXPECT_EQ(template_text("ietf-yang-patch", "yang-patch"), R"(container yang-patch
  leaf patch-id string mandatory
  leaf comment string
  list edit by edit-id ordered-by user
    leaf edit-id string
    leaf operation enum{create=0 delete=1 insert=2 merge=3 move=4 replace=5 remove=6} mandatory
    leaf target string mandatory
    leaf point string when (../operation = 'insert' or ../operation = 'move')and (../where = 'before' or ../where = 'after')
    leaf where enum{before=0 after=1 first=2 last=3} = last when ../operation = 'insert' or ../operation = 'move'
    anydata value when ../operation = 'create' or ../operation = 'merge' or ../operation = 'replace' or ../operation = 'insert'
)");
}

TEST_F(IetfSchema, YangPatchStatusHasErrorsInTwoPlaces) {
    const std::string text = template_text("ietf-yang-patch", "yang-patch-status");
    EXPECT_THAT(text, testing::StartsWith(R"(container yang-patch-status
  leaf patch-id string mandatory
  choice global-status
    case global-errors
      container errors
        list error keyless
)"));
    EXPECT_THAT(text, testing::HasSubstr(R"(    case ok
      leaf ok empty
  container edit-status
    list edit by edit-id
      leaf edit-id string
      choice edit-status-choice
        case ok
          leaf ok empty
        case errors
          container errors
)"));
}

// ietf-datastores

TEST_F(IetfSchema, DatastoresIsThatOfRfc8342WithTwoMoreIdentities) {
    const lys_module *const datastores = module("ietf-datastores");
    EXPECT_EQ(head_text(datastores), "ietf-datastores urn:ietf:params:xml:ns:yang:ietf-datastores ds 2018-02-14\n");
    EXPECT_EQ(datastores->parsed->version, LYS_VERSION_1_1);
    EXPECT_THAT(names_of(datastores->identities),
                UnorderedElementsAre("datastore", "conventional", "running", "candidate", "startup", "intended",
                                     "dynamic", "operational", "temporary-operational", "yang-library"));
    EXPECT_THAT(names_of(datastores->parsed->typedefs), ElementsAre("datastore-ref"));
    EXPECT_EQ(schema_text(datastores), "");
}

TEST_F(IetfSchema, DatastoresDeriveFromEachOther) {
    std::map<std::string, std::vector<std::string>> derived;
    lysc_ident *const identities = module("ietf-datastores")->identities;
    LY_ARRAY_COUNT_TYPE i;
    LY_ARRAY_FOR(identities, i) {
        derived[identities[i].name] = derived_from(identities[i]);
    }
    EXPECT_THAT(derived["datastore"], UnorderedElementsAre("conventional", "dynamic", "operational",
                                                           "temporary-operational", "yang-library"));
    EXPECT_THAT(derived["conventional"], UnorderedElementsAre("running", "candidate", "startup", "intended"));
    EXPECT_THAT(derived["operational"], ElementsAre());
}

TEST_F(IetfSchema, TheIdentitiesOfThisSystemSayWhatTheyAre) {
    std::map<std::string, std::string> descriptions;
    lysp_ident *const identities = module("ietf-datastores")->parsed->identities;
    LY_ARRAY_COUNT_TYPE i;
    LY_ARRAY_FOR(identities, i) {
        descriptions[identities[i].name] = identities[i].dsc ? identities[i].dsc : "";
    }
    EXPECT_EQ(descriptions["temporary-operational"], "Abstract base identity for temporary operational datastores.");
    EXPECT_EQ(descriptions["yang-library"], "Record yang library info.");
}

// ietf-yang-library

TEST_F(IetfSchema, YangLibraryHasTheDefinitionsOfRfc8525) {
    const lys_module *const library = module("ietf-yang-library");
    EXPECT_EQ(head_text(library), "ietf-yang-library urn:ietf:params:xml:ns:yang:ietf-yang-library yanglib 2019-01-04\n"
                                  "import ietf-yang-types yang\n"
                                  "import ietf-inet-types inet\n"
                                  "import ietf-datastores ds\n");
    EXPECT_THAT(names_of(library->parsed->typedefs), ElementsAre("revision-identifier"));
    EXPECT_THAT(groupings_of(library),
                ElementsAre("module-identification-leafs", "location-leaf-list", "module-implementation-parameters",
                            "module-set-parameters", "yang-library-parameters", "module-list"));
}

TEST_F(IetfSchema, YangLibraryDescribesModuleSetsSchemasAndDatastores) {
    EXPECT_EQ(node_text("/ietf-yang-library:yang-library"), expand(R"(container yang-library config false
  list module-set by name
    leaf name string
    list module by name
      leaf name {id}
      leaf revision {date}
      leaf namespace string mandatory
      leaf-list location string ordered-by user
      list submodule by name
        leaf name {id}
        leaf revision {date}
        leaf-list location string ordered-by user
      leaf-list feature {id} ordered-by user
      leaf-list deviation leafref(../../module/name) ordered-by user
    list import-only-module by name revision
      leaf name {id}
      leaf revision union({date} string[0])
      leaf namespace string mandatory
      leaf-list location string ordered-by user
      list submodule by name
        leaf name {id}
        leaf revision {date}
        leaf-list location string ordered-by user
  list schema by name
    leaf name string
    leaf-list module-set leafref(../../module-set/name) ordered-by user
  list datastore by name
    leaf name identityref(ietf-datastores:datastore)
    leaf schema leafref(../../schema/name) mandatory
  leaf content-id string mandatory
)"));
}

TEST_F(IetfSchema, YangLibraryKeepsItsDeprecatedPart) {
    EXPECT_EQ(node_text("/ietf-yang-library:modules-state"), expand(R"(container modules-state config false deprecated
  leaf module-set-id string mandatory deprecated
  list module by name revision deprecated
    leaf name {id} deprecated
    leaf revision union({date} string[0]) deprecated
    leaf schema string deprecated
    leaf namespace string mandatory deprecated
    leaf-list feature {id} ordered-by user deprecated
    list deviation by name revision deprecated
      leaf name {id} deprecated
      leaf revision union({date} string[0]) deprecated
    leaf conformance-type enum{implement=0 import=1} mandatory deprecated
    list submodule by name revision deprecated
      leaf name {id} deprecated
      leaf revision union({date} string[0]) deprecated
      leaf schema string deprecated
)"));
}

TEST_F(IetfSchema, YangLibraryTellsOfItsChanges) {
    EXPECT_EQ(node_text("/ietf-yang-library:yang-library-update"), R"(notification yang-library-update
  leaf content-id leafref(/yanglib:yang-library/yanglib:content-id) mandatory
)");
    EXPECT_EQ(node_text("/ietf-yang-library:yang-library-change"), R"(notification yang-library-change deprecated
  leaf module-set-id leafref(/yanglib:modules-state/yanglib:module-set-id) mandatory deprecated
)");
}

} // namespace
