// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// What zamc_diff() tells, for tests.
#pragma once

#include <string>

#include <gtest/gtest.h>
#include <zamc/zamc.h>

namespace zam::test {

// The outcome of one zamc_diff().
struct Seen {
    int32_t result = 1;
    bool output = false;
    uint32_t format = 0;
    std::string text;
};

inline Seen look(zamc_client *client, const std::string &path, int32_t depth = -1) {
    zamc_bytes *bytes = nullptr;
    Seen seen;
    seen.result = zamc_diff(client, path.c_str(), depth, &bytes);
    if (bytes) seen = {seen.result, true, bytes->format, {bytes->data, static_cast<size_t>(bytes->length)}};
    zamc_free_bytes(bytes);
    return seen;
}

// The output as a document from the root.
class Document {
public:
    explicit Document(const Seen &seen) {
        zamc_bytes *bytes = zamc_new_bytes(seen.text.data(), static_cast<int32_t>(seen.text.size()), seen.format);
        doc_ = zamc_parse_bytes(bytes, "/");
        zamc_free_bytes(bytes);
        EXPECT_NE(doc_, nullptr) << seen.text;
    }
    ~Document() { zamc_free_doc(doc_); }
    bool has(const std::string &path) const { return doc_ && zamc_node_is_present(doc_, path.c_str()) == 1; }
    std::string content(const std::string &path) const { return text(zamc_node_content(doc_, path.c_str())); }
    std::string attribute(const std::string &path, const char *name) const {
        return text(zamc_node_attr(doc_, path.c_str(), name));
    }

private:
    static std::string text(const char *text) { return text ? text : "(none)"; }
    zamc_doc *doc_;
};

} // namespace zam::test
