// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// How messages and modules are changed. Bytes changed anywhere break the JSON or YANG nearly always, and libyang, which
// is not instrumented, tells the search nothing about how near it was. Half of the changes made here keep the text
// whole: a token takes the place of another, a number becomes another; a record of a message target comes twice, goes,
// has another number, or follows another. The words come from the inputs themselves: the seeds are the vocabulary.
#include <cctype>
#include <random>
#include <vector>

#include "fuzz.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t *data, size_t size, size_t max_size);
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t max_size, unsigned seed);
extern "C" size_t LLVMFuzzerCustomCrossOver(const uint8_t *data, size_t size, const uint8_t *other, size_t other_size,
                                            uint8_t *out, size_t max_out_size, unsigned seed);

namespace zam::fuzz {
namespace {

struct Span {
    size_t begin;
    size_t size;
};

bool is_word(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '.';
}

// Past the string that opens at `at`.
size_t string_end(std::string_view text, size_t at) {
    for (size_t i = at + 1; i < text.size(); ++i) {
        if (text[i] == '\\') {
            ++i;
        } else if (text[i] == '"') {
            return i + 1;
        }
    }
    return text.size();
}

// Past the object or array that opens at `at`.
size_t block_end(std::string_view text, size_t at) {
    int depth = 0;
    for (size_t i = at; i < text.size();) {
        const char c = text[i];
        depth += c == '{' || c == '[';
        depth -= c == '}' || c == ']';
        i = c == '"' ? string_end(text, i) : i + 1;
        if (depth == 0) return i;
    }
    return text.size();
}

// Strings, numbers, literals, objects and arrays, in the order of their beginnings.
std::vector<Span> tokens(std::string_view text) {
    std::vector<Span> found;
    for (size_t i = 0; i < text.size();) {
        size_t next = i + 1;
        if (text[i] == '"') {
            next = string_end(text, i);
            found.push_back({i, next - i});
        } else if (text[i] == '{' || text[i] == '[') {
            found.push_back({i, block_end(text, i) - i});
        } else if (is_word(text[i])) {
            while (next < text.size() && is_word(text[next]))
                ++next;
            found.push_back({i, next - i});
        }
        i = next;
    }
    return found;
}

std::vector<Span> records(std::string_view text) {
    std::vector<Span> found;
    for (size_t begin = 0; begin <= text.size();) {
        const size_t end = std::min(text.find(record_separator, begin), text.size());
        found.push_back({begin, end - begin});
        begin = end + 1;
    }
    return found;
}

class Mutator {
public:
    explicit Mutator(unsigned seed) : random_{seed} {}

    size_t below(size_t bound) { return bound < 2 ? 0 : random_() % bound; }
    bool coin() { return below(2) == 0; }

    // One change to the text, with words and records of the other, which may be the text itself.
    void change(std::string &text, const std::string &other) {
        switch (below(7)) {
        case 0: return follow(text, other);
        case 1: return drop_record(text);
        case 2: return renumber(text);
        case 3: return count(text);
        default: return replace_token(text, other);
        }
    }

private:
    Span any(const std::vector<Span> &spans) { return spans[below(spans.size())]; }

    void replace_token(std::string &text, const std::string &other) {
        const auto places = tokens(text);
        const auto words = tokens(other);
        if (places.empty() || words.empty()) return;
        const Span word = any(words);
        const Span place = any(places);
        text.replace(place.begin, place.size, other.substr(word.begin, word.size));
    }

    // A number, or the flag that stands there, gets another value.
    void count(std::string &text) {
        std::vector<Span> places;
        for (const Span token : tokens(text)) {
            const std::string_view word = std::string_view{text}.substr(token.begin, token.size);
            const bool numeric = std::isdigit(static_cast<unsigned char>(word.front())) != 0 || word.front() == '-';
            if (numeric || word == "true" || word == "false") places.push_back(token);
        }
        if (places.empty()) return;
        static constexpr const char *values[] = {"0",          "1",     "2",    "3",          "4",
                                                 "6",          "7",     "10",   "-1",         "255",
                                                 "2147483648", "65536", "true", "4294967296", "18446744073709551615",
                                                 "false"};
        const Span place = any(places);
        text.replace(place.begin, place.size, values[below(std::size(values))]);
    }

    void follow(std::string &text, const std::string &other) {
        const Span record = any(records(other));
        const std::string copy = other.substr(record.begin, record.size);
        const Span place = any(records(text));
        text.insert(place.begin + place.size, record_separator + copy);
    }

    void drop_record(std::string &text) {
        const auto all = records(text);
        if (all.size() < 2) return;
        const Span record = all[1 + below(all.size() - 1)]; // the separator before it goes along
        text.erase(record.begin - 1, record.size + 1);
    }

    // The second byte of a record is the number that tells a request from the others and a reply whose it is.
    void renumber(std::string &text) {
        constexpr size_t small_numbers = 8;
        const Span record = any(records(text));
        if (record.size >= 2) text[record.begin + 1] = static_cast<char>(below(small_numbers));
    }

    std::minstd_rand random_;
};

// False where it does not fit: cut, it would be broken.
bool put(const std::string &text, uint8_t *out, size_t max_size) {
    if (text.size() > max_size) return false;
    std::ranges::copy(text, out);
    return true;
}

std::string take(const uint8_t *data, size_t size) {
    return {reinterpret_cast<const char *>(data), size};
}

} // namespace
} // namespace zam::fuzz

size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t max_size, unsigned seed) {
    zam::fuzz::Mutator mutator{seed};
    if (mutator.coin()) return LLVMFuzzerMutate(data, size, max_size);
    std::string text = zam::fuzz::take(data, size);
    mutator.change(text, text);
    return zam::fuzz::put(text, data, max_size) ? text.size() : LLVMFuzzerMutate(data, size, max_size);
}

size_t LLVMFuzzerCustomCrossOver(const uint8_t *data, size_t size, const uint8_t *other, size_t other_size,
                                 uint8_t *out, size_t max_out_size, unsigned seed) {
    zam::fuzz::Mutator mutator{seed};
    std::string text = zam::fuzz::take(data, size);
    mutator.change(text, zam::fuzz::take(other, other_size));
    return zam::fuzz::put(text, out, max_out_size) ? text.size() : 0;
}
