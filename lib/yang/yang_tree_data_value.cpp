// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors

#include <zamc/yang_tree_data.h>

#include <libyang/plugins_types.h>

#include "yang/yang_internal.h"

namespace zam::yang {
namespace {

// libyang makes the canonical text on demand and keeps it with the value.
const char *_canonical(const ly_ctx *ctx, const lyd_value &value) {
    return value._canonical ? value._canonical : lyd_value_get_canonical(ctx, &value);
}

bool _is_term(const lyd_node *node) {
    return node->schema && (node->schema->nodetype & LYD_NODE_TERM);
}

// Up to 32 bits as a number, least significant byte first as libyang keeps them; larger sets by their address.
uintptr_t _bits_value(const lyd_value &value) {
    static_assert(sizeof(lyd_value_bits) <= LYD_VALUE_FIXED_MEM_SIZE);
    const auto *bits = reinterpret_cast<const lyd_value_bits *>(value.fixed_mem);
    size_t size = lyplg_type_bits_bitmap_size(reinterpret_cast<const lysc_type_bits *>(value.realtype));
    if (size == 8) size = 4; // positions from 32 on are not part of the number
    if (size != 1 && size != 2 && size != 4) return reinterpret_cast<uintptr_t>(bits->bitmap);

    uint32_t number = 0;
    for (size_t i = 0; i < size; i++)
        number |= uint32_t{static_cast<unsigned char>(bits->bitmap[i])} << (8 * i);
    return number;
}

} // namespace
} // namespace zam::yang

using namespace zam::yang;

const char *zam_lyd_value_string(const lyd_node *node) {
    if (!node) return nullptr;
    if (!node->schema) return reinterpret_cast<const lyd_node_opaq *>(node)->value;
    if (!_is_term(node)) return nullptr;
    return _canonical(node->schema->module->ctx, reinterpret_cast<const lyd_node_term *>(node)->value);
}

const char *zam_lyd_meta_value(const lyd_meta *meta) {
    return meta ? _canonical(meta->annotation->module->ctx, meta->value) : nullptr;
}

uintptr_t zam_lyd_get_value(const lyd_node *node) {
    if (node && _is_term(node)) {
        const lyd_value &value = reinterpret_cast<const lyd_node_term *>(node)->value;
        switch (value.realtype->basetype) {
        case LY_TYPE_BITS: return _bits_value(value);
        // An enumeration may hold negative values: they keep their 32 bits and no more.
        case LY_TYPE_ENUM: return static_cast<uint32_t>(value.enum_item->value);
        case LY_TYPE_BOOL: return value.boolean ? 1 : 0;
        default: break;
        }
    }
    return reinterpret_cast<uintptr_t>(zam_lyd_value_string(node));
}
