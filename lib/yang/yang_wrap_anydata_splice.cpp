// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors

// Splices a value into the printed skeleton of its path, by plain text search: no parser is involved, and the first
// match counts. libyang prints the empty node at the path as
//
//     container          {}                           <name/>
//     list, no keys      [{}]                         <name/>
//     list, keys         [{"key":"value"}]            <name><key>value</key></name>
//     leaf-list          [""]                         <name/>
//     leaf-list, value   ["value"]                    <name>value</name>
//
// and in XML the opening tag also holds an xmlns where the module changes. A key value that holds one of the JSON
// placeholders, or an empty key in XML, is met first and spoils the splice.

#include <cstring>
#include <string_view>

#include <zamc/logger.h>

#include "yang/yang_wrap_internal.h"

namespace zam::yang {
namespace {

using std::string_view;
constexpr size_t none = string_view::npos;

// Where the skeleton is cut open: [begin, end) goes, the value comes in. `begin` is `none` when there is no place.
struct gap {
    size_t begin = none;
    size_t end = none;
};

char *_splice(string_view skeleton, const gap &gap, string_view value) {
    const string_view prefix = text_before(skeleton, gap.begin);
    const string_view suffix = text_from(skeleton, gap.end);
    const uint64_t length = uint64_t{prefix.size()} + value.size() + suffix.size();
    if (length >= UINT32_MAX) return nullptr;
    auto *text = static_cast<char *>(zam_malloc(static_cast<uint32_t>(length) + 1));
    if (!text) return nullptr;
    char *end = text;
    for (const string_view part : {prefix, value, suffix}) {
        memcpy(end, part.data(), part.size());
        end += part.size();
    }
    *end = '\0';
    return text;
}

gap _find_text(string_view skeleton, string_view placeholder) {
    const size_t begin = skeleton.find(placeholder);
    return begin == none ? gap{} : gap{begin, begin + placeholder.size()};
}

// The first self-closing element.
gap _find_empty_element(string_view skeleton) {
    const size_t slash = skeleton.find("/>");
    if (slash == none) return {};
    const size_t begin = skeleton.rfind('<', slash);
    return begin == none ? gap{} : gap{begin, slash + 2};
}

// From the first array or entry that the path left behind to its closing bracket.
gap _find_array(string_view skeleton) {
    const gap empty = _find_text(skeleton, "[]");
    if (empty.begin != none) return empty;
    const size_t close = skeleton.find("}]");
    if (close == none) return {};
    const size_t open = text_before(skeleton, close).rfind("[{");
    return open == none ? gap{} : gap{open, close + 2};
}

bool _is_opening_tag(string_view text, size_t at, string_view name) {
    const string_view rest = text_from(text, at + 1);
    return rest.size() > name.size() && starts_with(rest, name) &&
           (rest[name.size()] == '>' || rest[name.size()] == ' ');
}

// The last opening tag of the name before `end`: an ancestor may bear the same name.
size_t _find_opening_tag(string_view skeleton, string_view name, size_t end) {
    size_t at = text_before(skeleton, end).rfind('<');
    while (at != none && !_is_opening_tag(skeleton, at, name)) {
        at = at == 0 ? none : skeleton.rfind('<', at - 1);
    }
    return at;
}

size_t _find_closing_tag(string_view skeleton, string_view name) {
    size_t at = skeleton.find("</");
    while (at != none) {
        const string_view rest = text_from(skeleton, at + 2);
        if (rest.size() > name.size() && starts_with(rest, name) && rest[name.size()] == '>') return at;
        at = skeleton.find("</", at + 2);
    }
    return none;
}

gap _find_element(string_view skeleton, string_view name) {
    const size_t close = _find_closing_tag(skeleton, name);
    if (close == none) return {};
    const size_t open = _find_opening_tag(skeleton, name, close);
    return open == none ? gap{} : gap{open, close + name.size() + 3};
}

// The value that starts with `begin` in the content, without the end of its wrapper when it has one.
string_view _find_value(string_view content, string_view begin, int32_t bare) {
    const size_t at = content.find(begin);
    if (at == none) return {};
    string_view value = text_from(content, at);
    if (!bare) value.remove_suffix(1);
    return value;
}

string_view _container_value(const zam_mem_doc *doc, int32_t bare) {
    if (doc->format == LYD_XML || bare) return doc->data;
    string_view value = _find_value(doc->data, ":{", 0);
    if (value.data()) value.remove_prefix(1);
    return value;
}

bool _is_empty_element(string_view content) {
    return content.find("></") != none || content.find("/>") != none;
}

// A skeleton that holds the value already is complete: the path's predicate named it.
char *_copy_if_complete(string_view skeleton, string_view value) {
    if (skeleton.find(value) == none) return nullptr;
    return zam_strndup(skeleton.data(), static_cast<uint32_t>(skeleton.size()));
}

char *_fill_leaflist(string_view skeleton, const gap &gap, string_view value) {
    if (gap.begin == none) return _copy_if_complete(skeleton, value);
    char *text = _splice(skeleton, gap, value);
    if (text) zam_log_printf(ZAM_LOG_DEBUG, "Build leaflist, complete: %s\n", text);
    return text;
}

bool _is_usable(const char *skeleton, const zam_mem_doc *doc) {
    return skeleton && doc && doc->data;
}

} // namespace

char *_build_container(const char *skeleton, const zam_mem_doc *doc, int32_t bare) {
    if (!_is_usable(skeleton, doc)) return nullptr;
    const string_view value = _container_value(doc, bare);
    const gap gap = doc->format == LYD_XML ? _find_empty_element(skeleton) : _find_text(skeleton, "{}");
    if (!value.data() || gap.begin == none) return nullptr;
    char *text = _splice(skeleton, gap, value);
    if (text) zam_log_printf(ZAM_LOG_DEBUG, "Build container, complete:%s\n", text);
    return text;
}

char *_build_json_list(const char *skeleton, const char *content, int32_t bare) {
    if (!skeleton || !content) return nullptr;
    const string_view value = _find_value(content, "[", bare);
    const gap gap = _find_array(skeleton);
    return value.data() && gap.begin != none ? _splice(skeleton, gap, value) : nullptr;
}

char *_build_xml_list(const char *skeleton, const char *content, const char *name) {
    if (!skeleton || !content || !name) return nullptr;
    gap gap = _find_empty_element(skeleton);
    if (gap.begin == none) gap = _find_element(skeleton, name);
    return gap.begin != none ? _splice(skeleton, gap, content) : nullptr;
}

char *_build_list(const char *skeleton, const zam_mem_doc *doc, const char *name, int32_t bare) {
    if (!_is_usable(skeleton, doc)) return nullptr;
    char *text = doc->format == LYD_XML ? _build_xml_list(skeleton, doc->data, name)
                                        : _build_json_list(skeleton, doc->data, bare);
    if (text) zam_log_printf(ZAM_LOG_DEBUG, "Build list, complete: %s\n", text);
    return text;
}

// Arrays of numbers and booleans, which do not start with a quote, are not spliced.
char *_build_leaflist(const char *skeleton, const zam_mem_doc *doc, int32_t bare) {
    if (!_is_usable(skeleton, doc)) return nullptr;
    if (doc->format == LYD_XML) {
        if (_is_empty_element(doc->data)) return zam_strdup(skeleton);
        return _fill_leaflist(skeleton, _find_empty_element(skeleton), doc->data);
    }
    const string_view value = _find_value(doc->data, "[\"", bare);
    return value.data() ? _fill_leaflist(skeleton, _find_text(skeleton, "[\"\"]"), value) : nullptr;
}

} // namespace zam::yang
