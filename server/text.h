// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// JSON and XML as text: what has to be known about a payload before libyang reads it, and what wrapping one takes.
// libyang 2.1.30 does not survive everything that a peer may send, and overlooks text after the top object; so
// everything from a peer passes json_check() or xml_check() first. The readers below them expect checked text and
// return views into it.
#ifndef ZAMD_TEXT_H
#define ZAMD_TEXT_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "error.h"

namespace zamd {

// Objects, arrays or elements inside one another; far beyond any data model, far below what the stack takes.
inline constexpr int max_nesting = 200;

// One JSON value and nothing after it: RFC 8259 by the letter, UTF-8, no NUL, no array directly inside an array,
// numbers of at most 64 characters, metadata ("@name") of the shape that its member asks for, no value a thousand times
// over in one array.
Result<void> json_check(std::string_view text);

struct JsonMember {
    std::string_view name; // as written between its quotes
    std::string_view value;
};

// The members of an object and the elements of an array, in their order; nothing for any other value.
std::vector<JsonMember> json_members(std::string_view object);
std::vector<std::string_view> json_elements(std::string_view array);
// The value of a member, or nothing.
std::optional<std::string_view> json_member(std::string_view object, std::string_view name);

// The characters that a JSON string stands for; `body` is what is between its quotes.
std::string json_unescape(std::string_view body);
// A JSON string, quotes included.
std::string json_quote(std::string_view text);
// The same JSON text with each pair of surrogate escapes (\\ud83d\\ude00) written as the character itself, which is the
// only form of it that libyang reads.
std::string json_join_surrogates(std::string_view text);

// Elements, comments and processing instructions, properly nested; no document type.
Result<void> xml_check(std::string_view text);

struct XmlElement {
    std::string_view whole;
    std::string_view name; // with its prefix, if it has one
    std::string_view attributes;
    std::string_view content;
};

// The elements at the top of a text, or of another element's content.
std::vector<XmlElement> xml_elements(std::string_view text);
// The value of an attribute as written, or nothing.
std::optional<std::string_view> xml_attribute(const XmlElement &element, std::string_view name);
// Text fit for element content and for attribute values in either kind of quotes.
std::string xml_escape(std::string_view text);

// UTF-8 of nothing but the characters that values may hold (RFC 7950, 9.4): no control character but tab, line feed and
// carriage return, no surrogate, no noncharacter. XML could not carry the others, so nobody could read what is around.
bool is_yang_text(std::string_view text);

// The line, counted from 1, that the byte at `at` lies in.
std::size_t line_of(std::string_view text, std::size_t at);
// Without the blanks at both ends.
std::string_view trim(std::string_view text);

} // namespace zamd

#endif
