// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors

// The text tools behind documents and anydata, and the steps of the error trees: what the yang_wrap files share and
// the client reads a pull reply with.
#ifndef ZAMC_YANG_YANG_WRAP_INTERNAL_H
#define ZAMC_YANG_YANG_WRAP_INTERNAL_H

#include <cstdarg>
#include <cstdint>
#include <memory>
#include <string_view>

#include <zamc/path.h>

#include "yang/yang_internal.h"

namespace zam::yang {

struct free_segment {
    void operator()(zam_path_node *segment) const { zam_free_path_node(&segment); }
};
using owned_segment = std::unique_ptr<zam_path_node, free_segment>;

// Splicing: the printed skeleton of a path takes the value of `doc`. Neither text is changed. With `bare` zero the
// value is the member of a one-member object, and the object's last character is cut. The complete document, or null;
// released with zam_free.
char *_build_container(const char *skeleton, const zam_mem_doc *doc, int32_t bare);
char *_build_list(const char *skeleton, const zam_mem_doc *doc, const char *name, int32_t bare);
char *_build_json_list(const char *skeleton, const char *content, int32_t bare);
char *_build_xml_list(const char *skeleton, const char *content, const char *name);
char *_build_leaflist(const char *skeleton, const zam_mem_doc *doc, int32_t bare);

// A whole text as a tree: the input of an RPC when `is_operation`, else data. Null when it does not parse.
lyd_node *_lyd_parse(const ly_ctx *ctx, const char *text, LYD_FORMAT format, uint32_t options, uint8_t is_operation);

// XML when the text begins with "<", JSON for any other beginning, unknown for null and the empty text.
LYD_FORMAT _get_format_by_str(const char *text);

// Writes the body of a JSON string, up to its closing quote, unescaped to `dst`, which holds as many bytes as `src` and
// is zeroed: no terminator is written. An escape never grows, so the size suffices.
void _escape_json_str(char *dst, std::string_view src);

// Writes the UTF-8 form of (at most) four hexadecimal characters; the number of bytes, 0 to 4.
uint32_t _unicode_to_utf8(char *dst, std::string_view hex);

// The last node name of a path, without its predicates; released with zam_free.
char *_find_name(const char *path);

// The value of a pull reply as zam_get_value extracts it, in *value: 0 with the value or, when there is none, with
// null; -1 when memory ran out, so that "no data" and "no memory" stay apart.
int32_t get_value(const char *path, const char *json, char **value);

// A pull reply with an empty object in place of its data; released with zam_free. Null when the reply has another shape
// than the server prints, no data, or data that libyang must not be given; null without memory.
char *without_pull_data(const char *reply);

// Fills a new rpc-error with its leaves; 0, or -1 after the message of the leaf that failed.
int32_t _create_error_entry(lyd_node *error, const char *type, const char *tag, const char *app_tag, const char *path,
                            const char *format, va_list args) ZAM_PRINTF(6, 0);

// The error-tag of a libyang validation code.
const char *_get_ly_error(LY_VECODE code);

} // namespace zam::yang

#endif
