// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The names in a JSON text that is known to be well-formed, and what they name in a schema.

#include "yang/yang_module_scan_internal.h"

namespace zam::yang {

size_t string_end(std::string_view text, size_t at) {
    for (++at; text[at] != '"'; ++at) {
        if (text[at] == '\\') ++at;
    }
    return at;
}

object_members::object_members(std::string_view object) : text{object}, at{object.find_first_not_of(" \t\r\n")} {
    if (at < text.size() && text[at] == '{') {
        ++at;
    } else {
        at = text.size();
    }
}

bool object_members::next() {
    for (int depth = 0; at < text.size(); ++at) {
        switch (text[at]) {
        case '"': {
            const size_t start = at + 1;
            at = string_end(text, at);
            if (depth > 0 || !name_is_due) break;
            name_is_due = false;
            current = text_before(text_from(text, start), at - start);
            ++at;
            return true;
        }
        case '{':
        case '[': ++depth; break;
        case '}':
        case ']':
            if (depth-- == 0) at = text.size();
            break;
        case ',': name_is_due = name_is_due || depth == 0; break;
        default: break;
        }
    }
    return false;
}

const lys_module *find_module(const ly_ctx *ctx, std::string_view name) {
    const lys_module *module = nullptr;
    for (uint32_t index = 0; (module = ly_ctx_get_module_iter(ctx, &index)) != nullptr;) {
        if (module->implemented && module->compiled && name == module->name) return module;
    }
    return nullptr;
}

const lysc_node *find_child(const lysc_node *parent, const lys_module *module, std::string_view name,
                            uint32_t options) {
    if (!module || name.empty()) return nullptr; // an empty name stands for one that ends with a NUL
    return lys_find_child(parent, module, name.data(), name.size(), 0, options);
}

} // namespace zam::yang
