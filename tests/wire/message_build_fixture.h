// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// What the tests of the request builders share.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <zamc/format.h>
#include <zamc/message.h>
#include <zamc/yang_module.h>

#include "support/heap.h"
#include "support/log_capture.h"
#include "support/test_schema.h"

namespace zam::test {

using Context = std::unique_ptr<ly_ctx, decltype([](ly_ctx *ctx) { zam_ly_ctx_destroy(ctx); })>;
using Bytes = std::unique_ptr<zamc_bytes, decltype([](zamc_bytes *bytes) { zamc_free_bytes(bytes); })>;
using Builder = std::function<lyd_node *(const ly_ctx *ctx)>;

inline constexpr const char *server_ns = "urn:orvel:params:xml:ns:yang:orvel-zam-server";
inline constexpr const char *client_ns = "urn:orvel:params:xml:ns:yang:orvel-zam-client";

// The leaf `datastore` of a request, as XML.
inline std::string xml_datastore(const std::string &name) {
    return "<datastore xmlns:ds=\"urn:ietf:params:xml:ns:yang:ietf-datastores\">ds:" + name + "</datastore>";
}

inline std::string server_json(const std::string &operation, const std::string &members) {
    return "{\"orvel-zam-server:" + operation + "\":{" + members + "}}";
}

inline std::string server_xml(const std::string &operation, const std::string &elements) {
    const std::string start = "<" + operation + " xmlns=\"" + server_ns + "\"";
    return elements.empty() ? start + "/>" : start + ">" + elements + "</" + operation + ">";
}

class MessageBuild : public testing::Test {
protected:
    static Bytes bytes(const std::string &text, uint32_t format) {
        return Bytes{zamc_new_bytes(text.data(), static_cast<int32_t>(text.size()), format)};
    }

    // A declaration that a builder needs, and the message when the schema lacks it.
    struct Need {
        const char *declaration;
        const char *message;
    };

    // Builds against schemas that hold nothing, the first declaration, the first two … inside of `opening` and
    // `closing`: each time the first missing one is reported, once, and no tree comes out.
    void expect_messages(const char *module, const std::string &opening, const std::vector<Need> &needs,
                         const std::string &closing, const Builder &build) {
        std::string body = opening;
        for (const Need &need : needs) {
            const Context cut = schema(module, body + closing);
            log.clear();
            EXPECT_EQ(build(cut.get()), nullptr) << body;
            EXPECT_EQ(log.count(3, need.message), 1) << log.all();
            for (const Need &other : needs)
                EXPECT_TRUE(&other == &need || !log.has(3, other.message)) << other.message;
            body += need.declaration;
        }
    }

    static Context schema(const std::string &module, const std::string &body) {
        Context cut{zam_ly_ctx_new(nullptr, LY_CTX_NO_YANGLIBRARY)};
        const std::string text =
            "module " + module + " { yang-version 1.1; namespace \"urn:cut\"; prefix c; " + body + "}";
        EXPECT_NE(zam_lys_parse_mem(cut.get(), text.c_str(), LYS_IN_YANG), nullptr) << text;
        return cut;
    }

    // No root in a context without the protocol, nor in none at all.
    void expect_root_message(const char *path, const Builder &build) {
        const Context bare{zam_ly_ctx_new(nullptr, LY_CTX_NO_YANGLIBRARY)};
        const std::string message = "Create node '" + std::string{path} + "' unsuccessful.";
        for (const ly_ctx *given : {static_cast<const ly_ctx *>(bare.get()), static_cast<const ly_ctx *>(nullptr)}) {
            log.clear();
            EXPECT_EQ(build(given), nullptr);
            EXPECT_EQ(log.count(3, message), 1) << log.all();
        }
    }

    // Whichever allocation fails: the whole tree or none, and no block left.
    void expect_all_or_nothing(const Builder &build) {
        const std::string whole = to_json(Tree{build(ctx)});
        EXPECT_NE(whole, "");
        const auto failures = fail_each_allocation([&](bool may_fail) {
            const Tree tree{build(ctx)};
            EXPECT_TRUE(tree || may_fail);
            if (tree) {
                EXPECT_EQ(to_json(tree), whole);
            }
        });
        EXPECT_GE(failures, 1u);
    }

    ly_ctx *ctx = test_context();
    LogCapture log;
};

} // namespace zam::test
