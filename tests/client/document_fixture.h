// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Documents over a module of their own.
#pragma once

#include <cstdlib>

#include <gmock/gmock.h>
#include <zamc/client.h>

#include "client/client_ctx_internal.h"
#include "client/format_internal.h"
#include "client_fixture.h"

namespace zam::test {

constexpr const char *document_module = R"(
module test-doc {
  yang-version 1.1;
  namespace "urn:test:doc";
  prefix td;
  identity kind;
  identity round { base kind; }
  container box {
    leaf name { type string; }
    leaf size { type int32; }
    leaf on { type boolean; }
    leaf color { type enumeration { enum red { value 1; } enum green { value 5; } enum blue { value -2; } } }
    leaf kind { type identityref { base kind; } }
    leaf none { type empty; }
    leaf-list tag { type string; }
    leaf-list colors { type enumeration { enum red { value 1; } enum green { value 5; } } }
    leaf-list flags { type boolean; }
    leaf-list kinds { type identityref { base kind; } }
    leaf-list sizes { type uint8; }
    list item {
      key id;
      leaf id { type string; }
      leaf value { type uint8; }
      container more { leaf x { type string; } }
    }
    anydata blob;
    container part { leaf a { type string; } container inner { leaf b { type string; } } }
  }
  leaf alone { type string; }
  rpc go { input { leaf speed { type uint8; } } output { leaf way { type string; } } }
}
)";

inline void load_document_module() {
    static const bool loaded = [] {
        test_context();
        const TempDir dir;
        dir.write("test-doc.yang", document_module);
        const bool ok = zamc_load_module(dir.path().c_str(), "test-doc") == 0;
        ly_ctx_unset_searchdir(zam_clients_schema_ctx(), dir.path().c_str());
        return ok;
    }();
    ASSERT_TRUE(loaded);
}

// Documents of a test go with it; no block of the library may be left then.
class DocumentTest : public testing::Test {
protected:
    static void SetUpTestSuite() { load_document_module(); }
    void TearDown() override {
        zamc_free_doc(doc);
        EXPECT_EQ(heap.live(), 0u) << heap.live_sites();
    }

    void make(uint32_t format = 2) {
        zamc_free_doc(doc);
        doc = zamc_new_doc(format);
        ASSERT_NE(doc, nullptr);
    }
    void parse(const std::string &text, const char *path = "/", uint32_t format = 2) {
        zamc_free_doc(doc);
        doc = zamc_parse_bytes(Payload{text, format}, path);
        ASSERT_NE(doc, nullptr) << text;
    }
    std::string json() { return take_bytes(zamc_format_doc(doc, 2)); }
    std::string xml() { return take_bytes(zamc_format_doc(doc, 1)); }
    std::string dir() const {
        const char *text = zamc_current_dir(doc);
        return text ? text : "(null)";
    }
    static std::string text(const char *borrowed) { return borrowed ? borrowed : "(null)"; }

    LogCapture log;
    Heap heap;
    zamc_doc *doc = nullptr;
};

} // namespace zam::test
