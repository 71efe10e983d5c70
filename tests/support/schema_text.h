// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// Compiled schemas as text, one line a node, so that a test compares a whole operation with what it should be.
#pragma once

#include <string>

#include <libyang/libyang.h>

namespace zam::test {

// "uint32", "enum{a=0 b=1}", "bits{a@0 b@1}", "int32[-1|1..65535]", "identityref(mod:base)", "leafref(path)" ….
std::string type_text(const lysc_type *type);

// The node and all below it, indented by two blanks a level: kind, name, type and what else is not the default
// (mandatory, default, when, keys, order, config false …). Descriptions are left out.
std::string schema_text(const lysc_node *node);

// All nodes of a yang-data template; all top nodes, operations and notifications of a module.
std::string schema_text(const lysc_ext_instance *yang_data);
std::string schema_text(const lys_module *module);

} // namespace zam::test
