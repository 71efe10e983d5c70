// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "store_error.h"

#include <array>
#include <string_view>

namespace zamd {
namespace {

// What a validation code becomes as error-tag, the same as everywhere in this system; any other code, such as none at
// all, is operation-failed.
struct Tag {
    LY_VECODE code;
    const char *tag;
};
constexpr std::array<Tag, 10> tags{{{LYVE_SYNTAX, "syntax"},
                                    {LYVE_SYNTAX_YANG, "syntax"},
                                    {LYVE_SYNTAX_YIN, "syntax"},
                                    {LYVE_REFERENCE, "invalid-value"},
                                    {LYVE_XPATH, "invalid-value"},
                                    {LYVE_SEMANTICS, "semantic"},
                                    {LYVE_SYNTAX_XML, "syntax"},
                                    {LYVE_SYNTAX_JSON, "syntax"},
                                    {LYVE_DATA, "invalid-value"},
                                    {LYVE_OTHER, "operation-failed"}}};

const char *_tag(LY_VECODE code) {
    for (const Tag &tag : tags) {
        if (tag.code == code) return tag.tag;
    }
    return "operation-failed";
}

// The path out of `Data location "/a:b/c", line number 3.`
std::string _path(const char *place) {
    std::string_view text = place ? place : "";
    std::size_t begin = text.find("location \"");
    if (begin == std::string_view::npos) return {};
    begin = text.find('"', begin) + 1;
    std::size_t end = text.find("\", ", begin);
    if (end == std::string_view::npos) end = text.rfind("\".");
    return end == std::string_view::npos || end < begin ? std::string() : std::string(text.substr(begin, end - begin));
}

} // namespace

LibyangErrors::LibyangErrors(const ly_ctx *ctx) : ctx_(ctx), options_(ly_log_options(LY_LOSTORE_LAST)) {
    ly_set_log_clb(ly_get_log_clb(), 1); // with a place
    ly_err_clean(const_cast<ly_ctx *>(ctx), nullptr);
}

LibyangErrors::~LibyangErrors() {
    ly_err_clean(const_cast<ly_ctx *>(ctx_), nullptr);
    ly_set_log_clb(ly_get_log_clb(), 0);
    ly_log_options(options_);
}

Error LibyangErrors::take(const std::string &otherwise) {
    const char *message = ly_errmsg(ctx_);
    const char *app_tag = ly_errapptag(ctx_);
    Error error{"protocol", _tag(ly_vecode(ctx_)), app_tag ? app_tag : "", _path(ly_errpath(ctx_)),
                message ? message : otherwise};
    ly_err_clean(const_cast<ly_ctx *>(ctx_), nullptr);
    return error;
}

std::string LibyangErrors::take_line() {
    const char *message = ly_errmsg(ctx_);
    const char *place = ly_errpath(ctx_);
    std::string line = message ? message : "libyang gives no reason";
    if (place) line.append(" (").append(place).append(")");
    ly_err_clean(const_cast<ly_ctx *>(ctx_), nullptr);
    return line;
}

} // namespace zamd
