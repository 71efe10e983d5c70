// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Walks the tags of an XML text once, without recursion, for what libyang 2.1.30 cannot bear: it recurses once for each
// level, and takes quadratic time over equal leaf-list entries. Names, entities and namespaces are not looked at.

#include <array>

#include "yang/yang_internal.h"
#include "yang/yang_module_scan_internal.h"

namespace zam::yang {
namespace {

using std::string_view;

// What is skipped whole.
struct section {
    string_view begin, end;
};
constexpr section sections[] = {{"<!--", "-->"}, {"<![CDATA[", "]]>"}, {"<?", "?>"}};

// An open element.
struct element {
    size_t start = 0;   // where its tag begins
    size_t content = 0; // where its tag has ended
    bool leaf = true;   // no element in it yet
};

class _scanner {
public:
    explicit _scanner(string_view whole) : text{whole} {}

    text_fault run() {
        while (!fault && (at = text.find('<', at)) != string_view::npos)
            if (!_section()) _tag();
        return {fault, fault ? at : 0};
    }

private:
    bool _section() {
        for (const section &kind : sections) {
            if (!starts_with(text_from(text, at), kind.begin)) continue;
            const size_t end = text.find(kind.end, at + kind.begin.size());
            if (end == string_view::npos) {
                fault = "markup without end";
            } else {
                at = end + kind.end.size();
            }
            return true;
        }
        return false;
    }

    void _tag() {
        const size_t end = _tag_end();
        if (end == string_view::npos) {
            fault = "a tag without end";
        } else if (text[at + 1] == '/') {
            _element_ends(end);
        } else {
            _element_begins(end);
        }
    }

    // One past the ">" of the tag here; attribute values may hold one as well.
    size_t _tag_end() const {
        char quote = '\0';
        for (size_t i = at + 1; i < text.size(); i++) {
            const char c = text[i];
            if (quote != '\0') {
                if (c == quote) quote = '\0';
            } else if (c == '"' || c == '\'') {
                quote = c;
            } else if (c == '>') {
                return i + 1;
            }
        }
        return string_view::npos;
    }

    void _element_begins(size_t end) {
        if (depth > 0) levels[depth - 1].leaf = false;
        if (text[end - 2] == '/') {
            _count(text_from(text_before(text, end), at));
            at = end;
        } else if (depth == levels.size()) {
            fault = too_deep;
        } else {
            levels[depth++] = {at, end, true};
            at = end;
        }
    }

    void _element_ends(size_t end) {
        if (depth == 0) {
            fault = "an end tag too many";
            return;
        }
        const element &ended = levels[--depth];
        if (ended.leaf) _count(text_from(text_before(text, at), ended.start));
        if (!fault) at = end;
    }

    // An element without elements, equal ones of which have the same text from their tag on.
    void _count(string_view leaf) {
        const size_t place = depth > 0 ? levels[depth - 1].start + 1 : 0;
        if (!values.count(place, leaf)) fault = too_many_equal;
    }

    string_view text;
    size_t at = 0;
    std::array<element, json_depth_max> levels; // those that are open, of `depth`
    size_t depth = 0;
    const char *fault = nullptr;
    equal_values values;
};

} // namespace

text_fault scan_xml(string_view text) {
    return _scanner{text}.run();
}

} // namespace zam::yang
