// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "support/test_schema.h"

#include <cstdlib>

#include <gtest/gtest.h>
#include <zamc/client.h>
#include <zamc/yang_module.h>

#include "support/files.h"

namespace zam::test {
namespace {

constexpr const char *main_module = R"(
module test-main {
  yang-version 1.1;
  namespace "urn:test:main";
  prefix tm;

  identity kind;
  identity round { base kind; }
  identity square { base kind; }

  container top {
    leaf text { type string; }
    leaf number { type uint8; }
    leaf big { type uint64; }
    leaf kind { type identityref { base kind; } }
    leaf flag { type empty; }
    leaf colors { type bits { bit red; bit green; bit blue { position 9; } } }
    leaf mode { type enumeration { enum slow { value 3; } enum fast { value 7; } } }
    leaf either { type union { type uint8; type string; } }
    leaf ratio { type decimal64 { fraction-digits 2; } }
    leaf switch { type boolean; default "true"; }

    container sub {
      leaf a { type string; }
      leaf b { type uint8; }
      container inner { leaf c { type string; } }
    }
    container present { presence "stands for itself"; }

    choice way {
      case left { leaf left { type string; } }
      case right { container right { leaf speed { type uint8; } } }
    }

    list item {
      key name;
      leaf name { type string; }
      leaf value { type uint8; }
      leaf note { type string; }
      container box { leaf size { type uint8; } }
      list part {
        key "row column";
        leaf row { type uint8; }
        leaf column { type uint8; }
        leaf label { type string; }
      }
      action reset {
        input { leaf delay { type uint8; } }
        output { leaf done { type boolean; } }
      }
    }
    list four {
      key "a b c d";
      leaf a { type string; }
      leaf b { type string; }
      leaf c { type string; }
      leaf d { type string; }
    }
    list by-kind {
      key kind;
      leaf kind { type identityref { base kind; } }
      leaf value { type uint8; }
    }
    list ordered {
      key name;
      ordered-by user;
      leaf name { type string; }
      leaf value { type uint8; }
    }
    list reading {
      config false;
      leaf at { type uint32; }
      leaf value { type uint8; }
    }

    leaf-list tag { type string; }
    leaf-list ordered-tag { ordered-by user; type string; }
    leaf-list count { type uint8; }
    leaf-list shape { type identityref { base kind; } }

    anydata any;
    anyxml xml;
  }

  list entry {
    key id;
    leaf id { type string; }
    leaf value { type uint8; }
  }
  leaf single { type string; }
  leaf-list word { type string; }

  rpc run {
    input {
      leaf speed { type uint8; }
      anydata content;
    }
    output { leaf result { type string; } }
  }
  notification alarm { leaf message { type string; } }
}
)";

constexpr const char *extra_module = R"(
module test-extra {
  yang-version 1.1;
  namespace "urn:test:extra";
  prefix tx;
  import test-main { prefix tm; }

  identity oval { base tm:kind; }

  augment "/tm:top" {
    leaf extra { type string; }
    container more { leaf x { type uint8; } }
    list far {
      key id;
      leaf id { type string; }
      leaf value { type uint8; }
    }
    leaf-list mark { type string; }
  }
  augment "/tm:top/tm:item" { leaf color { type string; } }

  container rpc-error { leaf error-type { type string; } }
  container short-error {
    leaf error-type { type string; }
    leaf error-tag { type string; }
  }
  leaf-list pair { type string; max-elements 2; }
}
)";

constexpr const char *kinds_module = R"(
module test-kinds {
  yang-version 1.1;
  namespace "urn:test:kinds";
  prefix tk;
  import ietf-restconf { prefix rc; }
  import ietf-yang-metadata { prefix md; }
  import test-main { prefix tm; }

  md:annotation stamp { type uint8; }
  rc:yang-data first-data { container one { leaf a { type string; } } }
  rc:yang-data second-data { container two { leaf b { type string; } } }

  container kinds {
    leaf bits1 { type bits { bit one; bit two; bit four { position 3; } bit last { position 7; } } }
    leaf bits2 { type bits { bit low; bit high { position 15; } } }
    leaf bits4 { type bits { bit low; bit high { position 31; } } }
    leaf bits8 { type bits { bit low; bit top { position 31; } bit beyond { position 63; } } }
    leaf bits9 { type bits { bit low; bit beyond { position 64; } } }
    leaf level { type enumeration { enum below { value -5; } enum even; enum above { value 40; } } }
    leaf number { type uint8; default "+7"; }
    leaf plain { type string; }
    leaf ratio { type decimal64 { fraction-digits 2; } default "1.50"; }
    leaf number-ref { type leafref { path "../number"; } }
    leaf kind { type identityref { base tm:kind; } }
    leaf kind-ref { type leafref { path "../kind"; } }
    leaf level-ref { type leafref { path "../level"; } }
    leaf mixed { type union { type uint8; type boolean; } }
    leaf-list levels { type uint8; default "1"; default "2"; }
    choice outer {
      case deep {
        choice inner { case deeper { leaf buried { type string; } } }
      }
      case side { container aside { leaf near { type string; } } }
    }
    list keyed {
      key "b a";
      leaf a { type string; }
      leaf b { type string; }
      leaf c { type string; }
      container nested { leaf d { type string; } }
      anydata extra;
      action restart {
        input { leaf after { type uint8; } }
        output { leaf before { type uint8; } }
      }
    }
    list keyless { config false; leaf a { type string; } }
    anydata blob;
    anyxml markup;
  }
  rpc compute {
    input {
      leaf p { type uint8; }
      choice how { case fast { leaf speed { type uint8; } } }
      container given { leaf g { type string; } }
    }
    output {
      leaf result { type uint8; }
      choice what { leaf answer { type string; } }
      container found { leaf f { type string; } }
      list row { key id; leaf id { type string; } }
      anydata rest;
    }
  }
  notification event { leaf what { type string; } }
  identity cone { base tm:kind; }
}
)";

ly_ctx *_load() {
    const TempDir dir;
    dir.write("test-main.yang", main_module);
    dir.write("test-extra.yang", extra_module);
    dir.write("test-kinds.yang", kinds_module);
    const std::string path = dir.path();
    const bool loaded = zamc_initialize() == 0 && zamc_load_module(path.c_str(), "test-main") == 0 &&
                        zamc_load_module(path.c_str(), "test-extra") == 0 &&
                        zamc_load_module(path.c_str(), "test-kinds") == 0;
    if (!loaded) std::abort(); // nothing can be tested
    ly_ctx *ctx = zam_clients_schema_ctx();
    ly_ctx_unset_searchdir(ctx, path.c_str()); // the folder is about to go
    return ctx;
}

std::string _print(const lyd_node *tree, LYD_FORMAT format, bool siblings) {
    const uint32_t options = LYD_PRINT_SHRINK | LYD_PRINT_KEEPEMPTYCONT | (siblings ? LYD_PRINT_WITHSIBLINGS : 0);
    char *text = nullptr;
    if (!tree) return {};
    EXPECT_EQ(zam_lyd_print_mem(&text, tree, format, options), LY_SUCCESS);
    const std::string copy = text ? text : "";
    std::free(text);
    return copy;
}

} // namespace

ly_ctx *test_context() {
    static ly_ctx *ctx = _load();
    return ctx;
}

Tree parse_json(const std::string &text) {
    lyd_node *tree = nullptr;
    const LY_ERR result =
        lyd_parse_data_mem(test_context(), text.c_str(), LYD_JSON, LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0, &tree);
    EXPECT_EQ(result, LY_SUCCESS) << text;
    return Tree{tree};
}

std::string to_json(const lyd_node *tree, bool siblings) {
    return _print(tree, LYD_JSON, siblings);
}

std::string to_xml(const lyd_node *tree, bool siblings) {
    return _print(tree, LYD_XML, siblings);
}

std::string take(char *text) {
    const std::string copy = text ? text : "(null)";
    zam_free(text);
    return copy;
}

const lysc_node *schema_at(const char *path) {
    const lysc_node *schema = lys_find_path(test_context(), nullptr, path, 0);
    EXPECT_NE(schema, nullptr) << path;
    return schema;
}

} // namespace zam::test
