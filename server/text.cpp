// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "text.h"

#include <algorithm>
#include <cstdint>

namespace zamd {
namespace {

constexpr std::size_t longest_number = 64; // digits enough for every built-in type, with room for an exponent
constexpr std::size_t longest_exponent = 3;

bool _is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}
bool _is_digit(char c) {
    return c >= '0' && c <= '9';
}

int _hex_digit(char c) {
    if (_is_digit(c)) return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// The code unit of the four digits at `at`, or -1.
int32_t _hex_quad(std::string_view text, std::size_t at) {
    if (at + 4 > text.size()) return -1;
    int32_t unit = 0;
    for (std::size_t i = at; i < at + 4; ++i) {
        int digit = _hex_digit(text[i]);
        if (digit < 0) return -1;
        unit = unit * 16 + digit;
    }
    return unit;
}

bool _is_high_surrogate(int32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool _is_low_surrogate(int32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

int32_t _join(int32_t high, int32_t low) {
    return 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00);
}

void _append_utf8(std::string &out, int32_t code) {
    auto put = [&out](int32_t byte) { out.push_back(static_cast<char>(byte)); };
    if (code < 0x80) {
        put(code);
    } else if (code < 0x800) {
        put(0xC0 | code >> 6);
        put(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        put(0xE0 | code >> 12);
        put(0x80 | (code >> 6 & 0x3F));
        put(0x80 | (code & 0x3F));
    } else {
        put(0xF0 | code >> 18);
        put(0x80 | (code >> 12 & 0x3F));
        put(0x80 | (code >> 6 & 0x3F));
        put(0x80 | (code & 0x3F));
    }
}

// The bytes that the UTF-8 character at `at` takes; 0 when it is none: truncated, overlong, a surrogate, too large.
std::size_t _utf8_length(std::string_view text, std::size_t at) {
    auto byte = [&](std::size_t i) { return at + i < text.size() ? static_cast<unsigned char>(text[at + i]) : 0u; };
    unsigned first = byte(0);
    if (first < 0x80) return 1;
    std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4) return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return 0;
    }
    unsigned second = byte(1);
    bool out_of_range = (first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
                        (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F);
    return out_of_range ? 0 : length;
}

// Walks a JSON text once, without recursion and without building anything.
class JsonChecker {
public:
    explicit JsonChecker(std::string_view text) : text_(text) {}

    Result<void> check() {
        while (!failure_) {
            _skip_blanks();
            if (want_value_ ? !_value() : !_after_value()) break;
        }
        if (!failure_) return {};
        return bad_request("malformed-message", "The content is not valid JSON: " + std::string(failure_) +
                                                    " at line " + std::to_string(line_of(text_, at_)) + ", byte " +
                                                    std::to_string(at_) + ".");
    }

private:
    enum class Level : char { object, array };

    bool _fail(const char *what) {
        failure_ = what;
        return false;
    }
    char _now() const { return at_ < text_.size() ? text_[at_] : '\0'; }
    void _skip_blanks() {
        while (at_ < text_.size() && _is_blank(text_[at_]))
            ++at_;
    }

    // A value begins here. True when the walk goes on.
    bool _value() {
        char c = _now();
        if (at_ == text_.size()) return _fail("the text ends early");
        if (c == '{' || c == '[') return _open(c == '{' ? Level::object : Level::array);
        bool scalar = c == '"' ? _string() : c == '-' || _is_digit(c) ? _number() : _word();
        if (!scalar) return false;
        want_value_ = false;
        return true;
    }

    bool _open(Level level) {
        if (levels_.size() >= static_cast<std::size_t>(max_nesting)) return _fail("too many levels");
        if (level == Level::array && !levels_.empty() && levels_.back() == Level::array)
            return _fail("an array directly inside an array, which no data model has,");
        levels_.push_back(level);
        ++at_;
        _skip_blanks();
        char end = level == Level::object ? '}' : ']';
        if (_now() == end) {
            _close();
            return true;
        }
        return level == Level::object ? _name() : true;
    }

    void _close() {
        ++at_;
        levels_.pop_back();
        want_value_ = false;
    }

    bool _name() {
        _skip_blanks();
        if (_now() != '"') return _fail("a member name is missing");
        if (!_string()) return false;
        _skip_blanks();
        if (_now() != ':') return _fail("a colon is missing");
        ++at_;
        want_value_ = true;
        return true;
    }

    // A value has ended. False also at the good end of the text.
    bool _after_value() {
        if (levels_.empty()) return at_ == text_.size() ? false : _fail("text after the value");
        char end = levels_.back() == Level::object ? '}' : ']';
        if (_now() == end) {
            _close();
            return true;
        }
        if (_now() != ',') return _fail(at_ == text_.size() ? "the text ends early" : "a comma or an end is missing");
        ++at_;
        want_value_ = true;
        return levels_.back() == Level::object ? _name() : true;
    }

    bool _string() {
        for (++at_; at_ < text_.size();) {
            unsigned char c = static_cast<unsigned char>(text_[at_]);
            if (c == '"') {
                ++at_;
                return true;
            }
            if (c < 0x20) return _fail("an unescaped control character");
            if (c == '\\') {
                if (!_escape()) return false;
                continue;
            }
            std::size_t length = c < 0x80 ? 1 : _utf8_length(text_, at_);
            if (length == 0) return _fail("invalid UTF-8");
            at_ += length;
        }
        return _fail("the text ends early");
    }

    bool _escape() {
        char c = at_ + 1 < text_.size() ? text_[at_ + 1] : '\0';
        if (c != 'u') {
            if (std::string_view("\"\\/bfnrt").find(c) == std::string_view::npos || c == '\0')
                return _fail("an unknown escape");
            at_ += 2;
            return true;
        }
        int32_t unit = _hex_quad(text_, at_ + 2);
        if (unit < 0) return _fail("an incomplete escape");
        if (unit == 0) return _fail("a NUL character");
        if (_is_low_surrogate(unit)) return _fail("half a surrogate pair");
        at_ += 6;
        if (!_is_high_surrogate(unit)) return true;
        bool paired = text_.substr(at_, 2) == "\\u" && _is_low_surrogate(_hex_quad(text_, at_ + 2));
        if (!paired) return _fail("half a surrogate pair");
        at_ += 6;
        return true;
    }

    std::size_t _digits() {
        std::size_t from = at_;
        while (_is_digit(_now()))
            ++at_;
        return at_ - from;
    }

    bool _number() {
        std::size_t from = at_;
        if (_now() == '-') ++at_;
        bool zero = _now() == '0';
        std::size_t whole = _digits();
        if (whole == 0 || (zero && whole > 1)) return _fail("a malformed number");
        if (_now() == '.') {
            ++at_;
            if (_digits() == 0) return _fail("a malformed number");
        }
        if (_now() == 'e' || _now() == 'E') {
            ++at_;
            if (_now() == '+' || _now() == '-') ++at_;
            std::size_t exponent = _digits();
            if (exponent == 0 || exponent > longest_exponent) return _fail("a malformed or excessive exponent");
        }
        return at_ - from <= longest_number || _fail("a number of excessive length");
    }

    bool _word() {
        for (std::string_view word : {"true", "false", "null"}) {
            if (text_.substr(at_, word.size()) != word) continue;
            at_ += word.size();
            return true;
        }
        return _fail("an unknown value");
    }

    std::string_view text_;
    std::size_t at_ = 0;
    std::vector<Level> levels_;
    bool want_value_ = true;
    const char *failure_ = nullptr;
};

// The end of the string that begins at `at` (its opening quote), one past the closing quote.
std::size_t _string_end(std::string_view text, std::size_t at) {
    for (++at; at < text.size(); ++at) {
        if (text[at] == '\\')
            ++at;
        else if (text[at] == '"')
            return at + 1;
    }
    return text.size();
}

// The end of the checked value that begins at `at`.
std::size_t _value_end(std::string_view text, std::size_t at) {
    int depth = 0;
    while (at < text.size()) {
        char c = text[at];
        if (c == '"') {
            at = _string_end(text, at);
            if (depth == 0) return at;
            continue;
        }
        if (c == '{' || c == '[') ++depth;
        if (c == '}' || c == ']') {
            if (depth == 0) return at; // a bare word or number ended by its container
            if (--depth == 0) return at + 1;
        }
        if (depth == 0 && (c == ',' || _is_blank(c))) return at;
        ++at;
    }
    return at;
}

std::size_t _skip(std::string_view text, std::size_t at) {
    while (at < text.size() && (_is_blank(text[at]) || text[at] == ',' || text[at] == ':'))
        ++at;
    return at;
}

} // namespace

std::size_t line_of(std::string_view text, std::size_t at) {
    return 1 + static_cast<std::size_t>(std::count(
                   text.begin(), text.begin() + static_cast<std::ptrdiff_t>(std::min(at, text.size())), '\n'));
}

std::string_view trim(std::string_view text) {
    while (!text.empty() && _is_blank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && _is_blank(text.back()))
        text.remove_suffix(1);
    return text;
}

Result<void> json_check(std::string_view text) {
    return JsonChecker(text).check();
}

std::vector<JsonMember> json_members(std::string_view object) {
    std::vector<JsonMember> members;
    object = trim(object);
    if (object.empty() || object.front() != '{') return members;
    for (std::size_t at = _skip(object, 1); at < object.size() && object[at] == '"'; at = _skip(object, at)) {
        std::size_t name_end = _string_end(object, at);
        std::string_view name = object.substr(at + 1, name_end - at - 2);
        std::size_t from = _skip(object, name_end);
        at = _value_end(object, from);
        members.push_back({name, object.substr(from, at - from)});
    }
    return members;
}

std::vector<std::string_view> json_elements(std::string_view array) {
    std::vector<std::string_view> elements;
    array = trim(array);
    if (array.empty() || array.front() != '[') return elements;
    for (std::size_t at = _skip(array, 1); at < array.size() && array[at] != ']'; at = _skip(array, at)) {
        std::size_t from = at;
        at = _value_end(array, from);
        elements.push_back(array.substr(from, at - from));
    }
    return elements;
}

std::optional<std::string_view> json_member(std::string_view object, std::string_view name) {
    for (const JsonMember &member : json_members(object)) {
        if (member.name == name) return member.value;
    }
    return std::nullopt;
}

std::string json_unescape(std::string_view body) {
    constexpr std::string_view letters = "bfnrt";
    constexpr std::string_view meanings = "\b\f\n\r\t";
    std::string out;
    out.reserve(body.size());
    for (std::size_t at = 0; at < body.size(); ++at) {
        if (body[at] != '\\' || at + 1 == body.size()) {
            out.push_back(body[at]);
            continue;
        }
        char c = body[++at];
        if (c != 'u') {
            std::size_t which = letters.find(c);
            out.push_back(which == std::string_view::npos ? c : meanings[which]);
            continue;
        }
        int32_t unit = _hex_quad(body, at + 1);
        if (unit < 0) continue; // not reached with checked text
        at += 4;
        if (_is_high_surrogate(unit)) {
            int32_t low = _hex_quad(body, at + 3);
            if (_is_low_surrogate(low)) {
                unit = _join(unit, low);
                at += 6;
            }
        }
        _append_utf8(out, unit);
    }
    return out;
}

std::string json_quote(std::string_view text) {
    constexpr std::string_view hex = "0123456789abcdef";
    std::string out = "\"";
    for (char c : text) {
        unsigned char byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out.push_back('\\');
            out.push_back(c);
        } else if (byte < 0x20 || byte == 0x7F) {
            out += "\\u00";
            out.push_back(hex[byte >> 4]);
            out.push_back(hex[byte & 0xF]);
        } else {
            out.push_back(c);
        }
    }
    out.push_back('"');
    return out;
}

std::string json_join_surrogates(std::string_view text) {
    std::string out;
    std::size_t done = 0;
    for (std::size_t at = text.find('\\'); at != std::string_view::npos; at = text.find('\\', at)) {
        int32_t high = text.substr(at, 2) == "\\u" ? _hex_quad(text, at + 2) : -1;
        if (!_is_high_surrogate(high)) {
            at += 2;
            continue;
        }
        out.append(text, done, at - done);
        _append_utf8(out, _join(high, _hex_quad(text, at + 8)));
        done = at += 12;
    }
    return out.append(text, done);
}

} // namespace zamd
