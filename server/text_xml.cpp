// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// A scanner for XML tags. It knows markup well enough to say where elements begin and end; names, entities and
// namespaces are left to libyang.
#include "text.h"
#include "text_internal.h"

namespace zamd {
namespace {

enum class Markup { text, open, empty, close, other, broken };

// One piece of markup, or the text up to the next one.
struct Piece {
    Markup kind = Markup::text;
    std::size_t begin = 0;
    std::size_t end = 0;
    std::string_view name;
    std::string_view attributes;
};

// The end of the tag that begins at `at`: one past its ">", quoted attribute values skipped.
std::size_t _tag_end(std::string_view text, std::size_t at) {
    char quote = 0;
    for (; at < text.size(); ++at) {
        char c = text[at];
        if (quote) {
            if (c == quote) quote = 0;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == '>') {
            return at + 1;
        } else if (c == '<') {
            break;
        }
    }
    return std::string_view::npos;
}

// What stands between two fixed texts is skipped: comments, CDATA sections, processing instructions.
bool _skip_section(std::string_view text, Piece &piece) {
    struct Section {
        std::string_view begin, end;
    };
    constexpr Section sections[] = {{"<!--", "-->"}, {"<![CDATA[", "]]>"}, {"<?", "?>"}};
    for (const Section &section : sections) {
        if (text.substr(piece.begin, section.begin.size()) != section.begin) continue;
        std::size_t end = text.find(section.end, piece.begin + section.begin.size());
        bool closed = end != std::string_view::npos;
        piece.kind = closed ? Markup::other : Markup::broken;
        piece.end = closed ? end + section.end.size() : text.size();
        return true;
    }
    return false;
}

Piece _next_piece(std::string_view text, std::size_t at) {
    Piece piece;
    piece.begin = at;
    if (text[at] != '<') {
        std::size_t end = text.find('<', at);
        piece.end = end == std::string_view::npos ? text.size() : end;
        return piece;
    }
    if (_skip_section(text, piece)) return piece;
    std::size_t end = _tag_end(text, at + 1);
    piece.kind = Markup::broken;
    if (end == std::string_view::npos || text[at + 1] == '!') return piece;
    piece.end = end;
    std::string_view inside = text.substr(at + 1, end - at - 2);
    bool closes = !inside.empty() && inside.front() == '/';
    if (closes) inside.remove_prefix(1);
    bool empty = !inside.empty() && inside.back() == '/';
    if (empty) inside.remove_suffix(1);
    std::size_t name_end = 0;
    while (name_end < inside.size() && !is_blank(inside[name_end]))
        ++name_end;
    piece.name = inside.substr(0, name_end);
    piece.attributes = trim(inside.substr(name_end));
    if (piece.name.empty() || (closes && empty)) return piece;
    piece.kind = closes ? Markup::close : empty ? Markup::empty : Markup::open;
    return piece;
}

Error _malformed(const std::string &what, std::string_view text, std::size_t at) {
    return bad_request("malformed-message", "The content is not valid XML: " + what + " at line " +
                                                std::to_string(line_of(text, at)) + ", byte " + std::to_string(at) +
                                                ".");
}

} // namespace

Result<void> xml_check(std::string_view text) {
    std::vector<std::string_view> open;
    if (std::size_t nul = text.find('\0'); nul != std::string_view::npos)
        return _malformed("a NUL character", text, nul);
    for (std::size_t at = 0; at < text.size();) {
        Piece piece = _next_piece(text, at);
        at = piece.begin;
        switch (piece.kind) {
        case Markup::broken: return _malformed("a tag without end or of an unknown kind", text, at);
        case Markup::open:
            if (open.size() >= static_cast<std::size_t>(max_nesting)) return _malformed("too many levels", text, at);
            open.push_back(piece.name);
            break;
        case Markup::close:
            if (open.empty() || open.back() != piece.name)
                return _malformed("</" + std::string(piece.name) + "> closes nothing", text, at);
            open.pop_back();
            break;
        case Markup::text:
            if (open.empty() && !trim(text.substr(at, piece.end - at)).empty())
                return _malformed("text outside of an element", text, at);
            break;
        case Markup::empty:
        case Markup::other: break;
        }
        at = piece.end;
    }
    if (!open.empty()) return _malformed("<" + std::string(open.back()) + "> is not closed", text, text.size());
    return {};
}

std::vector<XmlElement> xml_elements(std::string_view text) {
    std::vector<XmlElement> elements;
    std::size_t depth = 0;
    std::size_t begin = 0;
    std::size_t content = 0;
    XmlElement element;
    for (std::size_t at = 0; at < text.size();) {
        Piece piece = _next_piece(text, at);
        if (piece.kind == Markup::broken) break; // not reached with checked text
        at = piece.end;
        bool opens = piece.kind == Markup::open || piece.kind == Markup::empty;
        if (opens && depth == 0) {
            begin = piece.begin;
            content = piece.end;
            element.name = piece.name;
            element.attributes = piece.attributes;
        }
        if (piece.kind == Markup::open) ++depth;
        if (piece.kind == Markup::close && depth-- == 0) break;
        if (depth > 0 || (piece.kind != Markup::empty && piece.kind != Markup::close)) continue;
        std::size_t content_end = piece.kind == Markup::empty ? content : piece.begin;
        element.content = text.substr(content, content_end - content);
        element.whole = text.substr(begin, at - begin);
        elements.push_back(element);
    }
    return elements;
}

std::optional<std::string_view> xml_attribute(const XmlElement &element, std::string_view name) {
    std::string_view rest = element.attributes;
    while (!rest.empty()) {
        std::size_t equals = rest.find('=');
        if (equals == std::string_view::npos) break;
        std::string_view found = trim(rest.substr(0, equals));
        rest = trim(rest.substr(equals + 1));
        if (rest.empty()) break;
        std::size_t end = rest.find(rest.front(), 1);
        if (end == std::string_view::npos) break;
        if (found == name) return rest.substr(1, end - 1);
        rest = trim(rest.substr(end + 1));
    }
    return std::nullopt;
}

std::string xml_escape(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        case '\'': out += "&apos;"; break;
        case '\r': out += "&#13;"; break;
        default: out.push_back(c);
        }
    }
    return out;
}

} // namespace zamd
