// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// What went wrong, as a value. Every refusal in the server is an Error: the fields of one rpc-error, filled in where
// the cause is known, carried up untouched and turned into a reply (or a line on stderr) at the very end. Nothing in
// the server throws for a reason that a peer or an operator can bring about.
#ifndef ZAMD_ERROR_H
#define ZAMD_ERROR_H

#include <string>
#include <utility>
#include <variant>

namespace zamd {

// The leaves of an rpc-error. An empty app_tag, path or message is left out of the reply.
struct Error {
    std::string type = "application"; // transport, rpc, protocol or application
    std::string tag = "operation-failed";
    std::string app_tag;
    std::string path; // instance path of the node at fault
    std::string message;
};

// An rpc-error of type "protocol": the request itself cannot be carried out as it was written.
inline Error bad_request(std::string tag, std::string message, std::string path = {}) {
    return {"protocol", std::move(tag), {}, std::move(path), std::move(message)};
}

// An rpc-error of type "application": the request is sound, the data or its owner stands against it.
inline Error refusal(std::string tag, std::string message, std::string path = {}) {
    return {"application", std::move(tag), {}, std::move(path), std::move(message)};
}

// A value or the Error that stands in its place.
template <class T>
class [[nodiscard]] Result {
public:
    Result(T value) : content_(std::in_place_index<0>, std::move(value)) {}
    Result(Error error) : content_(std::in_place_index<1>, std::move(error)) {}

    explicit operator bool() const { return content_.index() == 0; }

    T &operator*() & { return *std::get_if<0>(&content_); }
    const T &operator*() const & { return *std::get_if<0>(&content_); }
    T &&operator*() && { return std::move(*std::get_if<0>(&content_)); }
    T *operator->() { return std::get_if<0>(&content_); }
    const T *operator->() const { return std::get_if<0>(&content_); }

    Error &error() & { return *std::get_if<1>(&content_); }
    const Error &error() const & { return *std::get_if<1>(&content_); }
    Error &&error() && { return std::move(*std::get_if<1>(&content_)); }

private:
    std::variant<T, Error> content_;
};

// Success without a value, or an Error.
template <>
class [[nodiscard]] Result<void> {
public:
    Result() = default;
    Result(Error error) : error_(std::move(error)), failed_(true) {}

    explicit operator bool() const { return !failed_; }

    Error &error() & { return error_; }
    const Error &error() const & { return error_; }
    Error &&error() && { return std::move(error_); }

private:
    Error error_;
    bool failed_ = false;
};

} // namespace zamd

#endif
