// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
// pull and push
#include "connection.h"
#include "output.h"

namespace zamctl {
namespace {

const ly_ctx *context() {
    return zam_clients_schema_ctx();
}

// What stands in the answer's `data`.
std::string pulled_data(const std::string &answer, uint32_t encoding) {
    if (encoding == ZAM_ENCODE_JSON) {
        const Text value{zam_get_value("/", answer.c_str())};
        return value ? value.get() : "";
    }
    const Tree tree{zam_lyd_parse_op(context(), answer.c_str(), LYD_XML, LYD_TYPE_REPLY_YANG)};
    const lyd_node *data = tree ? zam_lyd_find_path(tree.get(), "/orvel-zam-server:pull/data") : nullptr;
    const Text text{zam_anydata_dump(data, LYD_XML, nullptr)};
    return text ? text.get() : "";
}

int32_t operation_number(const std::string &name) {
    for (int32_t number = ZAMC_PUSH_MERGE; number <= ZAMC_PUSH_DELETE; ++number) {
        if (name == zam_xlate_edit_enum2str(number)) return number;
    }
    throw Failure{exit_usage, "no such operation: " + name};
}

} // namespace

int pull(const Options &options) {
    const std::string path = checked_path(options.path);
    Connection connection{options, "zamctl"};
    const std::string answer =
        connection.exchange(zam_message_build_pull(datastore_name(options.datastore).c_str(), options.last ? 1 : 0,
                                                   path.c_str(), options.depth, context()),
                            options.encoding);
    print_data(pulled_data(answer, options.encoding), options.encoding);
    return exit_done;
}

int push(const Options &options) {
    const std::string path = checked_path(options.path);
    const char *operation = zam_xlate_edit_enum2str(operation_number(options.operation));
    const std::string content = read_argument(options.content);
    Connection connection{options, "zamctl"};
    const Bytes bytes{zamc_new_bytes(content.data(), static_cast<int32_t>(content.size()), options.encoding)};
    connection.exchange(zam_message_build_push(datastore_name(options.datastore).c_str(), path.c_str(), operation,
                                               bytes.get(), context()),
                        options.encoding);
    return exit_done;
}

} // namespace zamctl
