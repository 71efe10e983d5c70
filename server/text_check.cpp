// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Walks a JSON text once, without recursion, and refuses what is no JSON and what libyang 2.1.30 cannot bear:
//
// - it recurses once for each level, and dies of arrays directly inside arrays;
// - it dies of metadata of a leaf-list ("@name") that goes on after the last value of "name";
// - it takes quadratic time over equal values of one array.
//
// The walk keeps a frame for each open object or array; the members of all open objects lie in one vector, each
// object's behind those of the one that it is in.
#include <unordered_map>

#include "text.h"
#include "text_internal.h"

namespace zamd {
namespace {

constexpr std::size_t longest_number = 64; // digits enough for every built-in type, with room for an exponent
constexpr std::size_t longest_exponent = 3;
constexpr std::size_t most_equal_values = 1000; // in one array; a configuration has no two

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

// The character of `length` valid bytes at `at`.
char32_t _utf8_character(std::string_view text, std::size_t at, std::size_t length) {
    char32_t character = static_cast<unsigned char>(text[at]);
    if (length > 1) character &= 0x7Fu >> length;
    for (std::size_t i = 1; i < length; ++i)
        character = character << 6 | (static_cast<unsigned char>(text[at + i]) & 0x3Fu);
    return character;
}

bool _is_yang_character(char32_t c) {
    if (c < 0x20) return c == '\t' || c == '\n' || c == '\r';
    bool noncharacter = (c >= 0xFDD0 && c <= 0xFDEF) || (c & 0xFFFE) == 0xFFFE;
    return !noncharacter;
}

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
    enum class Kind : char { object, array, null, scalar };

    struct Value {
        Kind kind = Kind::scalar;
        std::size_t elements = 0;  // of an array
        bool fits_metadata = true; // an array of nothing but objects and nulls
    };

    struct Member {
        std::string_view name;
        Value value;
    };

    struct Frame {
        Value value;
        std::size_t first_member = 0; // of an object
        bool has_metadata = false;
        std::unordered_map<std::string_view, std::size_t> counts; // of an array's values, once there are many
    };

    bool _fail(const char *what) {
        failure_ = what;
        return false;
    }
    char _now() const { return at_ < text_.size() ? text_[at_] : '\0'; }
    void _skip_blanks() {
        while (at_ < text_.size() && is_blank(text_[at_]))
            ++at_;
    }

    // ---- structure; each step is true when the walk goes on

    bool _value() {
        char c = _now();
        if (at_ == text_.size()) return _fail("the text ends early");
        if (c == '{' || c == '[') return _open(c == '{' ? Kind::object : Kind::array);
        std::size_t from = at_;
        bool scalar = c == '"' ? _string() : c == '-' || is_digit(c) ? _number() : _word();
        if (!scalar) return false;
        Value value;
        if (c == 'n') value.kind = Kind::null;
        return _ended(value, text_.substr(from, at_ - from));
    }

    bool _open(Kind kind) {
        if (frames_.size() >= static_cast<std::size_t>(max_nesting)) return _fail("too many levels");
        if (kind == Kind::array && !frames_.empty() && frames_.back().value.kind == Kind::array)
            return _fail("an array directly inside an array, which no data model has,");
        Frame &frame = frames_.emplace_back();
        frame.value.kind = kind;
        frame.first_member = members_.size();
        ++at_;
        _skip_blanks();
        want_value_ = true;
        if (_now() == (kind == Kind::object ? '}' : ']')) return _close();
        return kind == Kind::object ? _name() : true;
    }

    bool _close() {
        ++at_;
        const Frame &frame = frames_.back();
        if (frame.has_metadata && !_metadata_fits(frame.first_member)) return false;
        members_.resize(frame.first_member);
        Value value = frame.value;
        frames_.pop_back();
        return _ended(value, {});
    }

    bool _name() {
        _skip_blanks();
        if (_now() != '"') return _fail("a member name is missing");
        std::size_t from = at_ + 1;
        if (!_string()) return false;
        std::string_view name = text_.substr(from, at_ - from - 1);
        members_.push_back({name, {}});
        if (!name.empty() && name[0] == '@') frames_.back().has_metadata = true;
        _skip_blanks();
        if (_now() != ':') return _fail("a colon is missing");
        ++at_;
        want_value_ = true;
        return true;
    }

    // A value has ended: it is noted in what it is in. `text` is that of a scalar.
    bool _ended(const Value &value, std::string_view text) {
        want_value_ = false;
        if (frames_.empty()) return true;
        Frame &frame = frames_.back();
        if (frame.value.kind == Kind::object) {
            members_.back().value = value;
            return true;
        }
        if (value.kind == Kind::scalar || value.kind == Kind::array) frame.value.fits_metadata = false;
        if (++frame.value.elements <= most_equal_values || text.empty()) return true;
        return ++frame.counts[text] <= most_equal_values || _fail("a value that the array holds too often");
    }

    // What comes after a value. False also at the good end of the text.
    bool _after_value() {
        if (frames_.empty()) return at_ == text_.size() ? false : _fail("text after the value");
        bool object = frames_.back().value.kind == Kind::object;
        if (_now() == (object ? '}' : ']')) return _close();
        if (_now() != ',') return _fail(at_ == text_.size() ? "the text ends early" : "a comma or an end is missing");
        ++at_;
        want_value_ = true;
        return object ? _name() : true;
    }

    // The metadata of an object's members: an object for a single value, for an array one object or null for each of
    // its values from the first on.
    bool _metadata_fits(std::size_t first) {
        std::unordered_map<std::string_view, const Value *> values;
        for (std::size_t i = first; i < members_.size(); ++i)
            values.emplace(members_[i].name, &members_[i].value);
        for (std::size_t i = first; i < members_.size(); ++i) {
            const Member &member = members_[i];
            if (member.name.empty() || member.name[0] != '@' || member.value.kind == Kind::object) continue;
            auto found = values.find(member.name.substr(1));
            bool fits = found != values.end() && member.value.kind == Kind::array && member.value.fits_metadata &&
                        found->second->kind == Kind::array && member.value.elements <= found->second->elements;
            if (!fits) return _fail("metadata (\"@…\") that does not fit its member");
        }
        return true;
    }

    // ---- scalars; each leaves at_ behind the value

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
            if (c == '\0' || std::string_view("\"\\/bfnrt").find(c) == std::string_view::npos)
                return _fail("an unknown escape");
            at_ += 2;
            return true;
        }
        int32_t unit = hex_quad(text_, at_ + 2);
        if (unit < 0) return _fail("an incomplete escape");
        if (unit == 0) return _fail("a NUL character");
        if (is_low_surrogate(unit)) return _fail("half a surrogate pair");
        at_ += 6;
        if (!is_high_surrogate(unit)) return true;
        bool paired = text_.substr(at_, 2) == "\\u" && is_low_surrogate(hex_quad(text_, at_ + 2));
        if (!paired) return _fail("half a surrogate pair");
        at_ += 6;
        return true;
    }

    std::size_t _digits() {
        std::size_t from = at_;
        while (is_digit(_now()))
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
    std::vector<Frame> frames_;
    std::vector<Member> members_;
    bool want_value_ = true;
    const char *failure_ = nullptr;
};

} // namespace

Result<void> json_check(std::string_view text) {
    return JsonChecker(text).check();
}

bool is_yang_text(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        std::size_t length = _utf8_length(text, at);
        if (length == 0 || !_is_yang_character(_utf8_character(text, at, length))) return false;
        at += length;
    }
    return true;
}

} // namespace zamd
