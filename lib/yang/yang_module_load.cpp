// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Loading module files into a context: one file, or all files of a directory.
//
// A directory is loaded in passes, and the context compiled after each. When a file fails to parse, libyang takes out
// every module that was parsed since the last compilation, good ones too; so passes repeat, leaving out the files that
// failed, until one goes through without a failure. That a file failed at all is still the result.
//
// The import callback stands in the context only while a pass runs, because its data lives on the stack of the pass.

#include <cstdlib>
#include <cstring>
#include <string_view>

#include <zamc/logger.h>
#include <zamc/mem.h>
#include <zamc/vector.h>

#include "runtime/mem_internal.h"
#include "yang/yang_module_internal.h"

namespace zam::yang {

namespace {

using runtime::owned_text;

const char *all_features[] = {"*", nullptr};

// A result of scandir, in the memory of the system allocator.
void _free_filelist(dirent **list, int32_t count) {
    nyb_free_file_list(list, count);
}

struct file_list {
    dirent **entries = nullptr;
    int32_t count = 0;

    file_list() = default;
    file_list(const file_list &) = delete;
    file_list &operator=(const file_list &) = delete;
    ~file_list() { _free_filelist(entries, count); }
};

// The import callback for as long as this lives.
struct import_guard {
    ly_ctx *ctx;
    import_search search;

    import_guard(ly_ctx *context, const char *dir, LYS_INFORMAT format) : ctx(context), search{format, dir} {
        zam_ly_ctx_set_module_imp_clb(ctx, _search_module, &search);
    }
    import_guard(const import_guard &) = delete;
    import_guard &operator=(const import_guard &) = delete;
    ~import_guard() { zam_ly_ctx_set_module_imp_clb(ctx, nullptr, nullptr); }
};

// Names of files, borrowed from the listing.
struct failed_modules {
    zam_vector *names;

    explicit failed_modules(int32_t capacity) : names(zam_vector_init(static_cast<uint32_t>(capacity))) {}
    failed_modules(const failed_modules &) = delete;
    failed_modules &operator=(const failed_modules &) = delete;
    ~failed_modules() { zam_vector_free(names, nullptr); }
};

bool _is_fail_module(const zam_vector *failed, const char *file_name) {
    for (uint32_t i = 0; i < zam_vector_size(failed); ++i) {
        const char *const name = static_cast<const char *>(zam_vector_get(failed, i));
        if (name != nullptr && std::strcmp(name, file_name) == 0) return true;
    }
    return false;
}

int _has_extension(const dirent *entry, std::string_view extension) {
    if (entry == nullptr) return 0;
    const char *const dot = std::strrchr(entry->d_name, '.');
    return dot != nullptr && extension == dot ? 1 : 0;
}

// The words of a submodule anywhere in the text count, also in a description: cheap, and good enough to leave to the
// import callback what libyang only takes along with its module.
bool _is_submodule(const char *text) {
    return std::strstr(text, "submodule ") != nullptr && std::strstr(text, "belongs-to ") != nullptr;
}

// Whether the module of that file is in the context already.
bool _is_loaded(const ly_ctx *ctx, const char *file_name) {
    const owned_text name{_get_module_name(file_name)};
    zam_log_printf(ZAM_LOG_DEBUG, "[_load_files] module_name : %s start\n", _shown(name.get()));
    lys_module *const module = zam_ly_ctx_get_module(ctx, name.get());
    if (module == nullptr) return false;
    // Not compiled yet: an import of this pass brought it in, without the features that its turn would have enabled.
    if (module->compiled == nullptr) zam_lys_set_implemented(module, all_features);
    zam_log_printf(ZAM_LOG_DEBUG, "[_load_files] module_name : %s is loaded\n", _shown(name.get()));
    return true;
}

// Loads what is neither loaded nor known to fail; -1 when something failed.
int32_t _run_pass(ly_ctx *ctx, const import_search &search, const file_list &files, failed_modules &failed) {
    int32_t result = 0;
    for (int32_t i = 0; i < files.count; ++i) {
        char *const file_name = files.entries[i]->d_name;
        if (_is_fail_module(failed.names, file_name) || _is_loaded(ctx, file_name)) continue;
        if (zam_load_module(ctx, search.dir, file_name, search.format) != 0) {
            result = -1;
            // A failure that cannot be remembered would be tried for ever.
            if (zam_vector_add(&failed.names, file_name, nullptr) != 0) return -2;
        }
        zam_log_printf(ZAM_LOG_DEBUG, "[_load_files] module_name : %s loaded end, ret = %d\n", file_name, result);
    }
    return result;
}

int32_t _compile(ly_ctx *ctx) {
    return zam_ly_ctx_compile(ctx) == LY_SUCCESS ? 0 : -1;
}

} // namespace

char *_get_module_name(const char *file_name) {
    if (file_name == nullptr) return nullptr;
    return zam_strndup(file_name, static_cast<uint32_t>(std::strcspn(file_name, ".@")));
}

int _is_yang(const dirent *entry) {
    return _has_extension(entry, ".yang");
}

int _is_yin(const dirent *entry) {
    return _has_extension(entry, ".yin");
}

int32_t _load_files(ly_ctx *ctx, const char *dir, LYS_INFORMAT format) {
    const import_guard imports{ctx, dir, format};
    file_list files;
    files.count = scandir(dir, &files.entries, format == LYS_IN_YANG ? _is_yang : _is_yin, alphasort);
    if (files.count < 0) return -1;
    if (files.count == 0) return _compile(ctx);
    failed_modules failed{files.count};
    if (failed.names == nullptr) return -1;

    int32_t result = 0;
    for (;;) {
        const int32_t pass = _run_pass(ctx, imports.search, files, failed);
        if (pass != 0) result = -1;
        if (_compile(ctx) != 0) return -1;
        if (pass != -1) return result;
    }
}

} // namespace zam::yang

using namespace zam::yang;

int32_t zam_load_module(struct ly_ctx *ctx, const char *dir, const char *file_name, LYS_INFORMAT format) {
    if (ctx == nullptr || dir == nullptr || file_name == nullptr) return -1;
    char *built = nullptr;
    const int32_t length = zam_asprintf(&built, "%s/%s", dir, file_name);
    if (length < 0) {
        zam_log_printf(ZAM_LOG_WRONG, "Build path '%s/%s' unsuccessful\n", dir, file_name);
        return length;
    }
    zam::runtime::owned_text path{built};
    file_text text = _get_file_mmap_size(path.get());
    path.reset();
    if (!text) return -1;
    if (_is_submodule(text.address)) {
        zam_log_printf(ZAM_LOG_INFO, "Submodule(%s) not parse\n", file_name);
        return 0;
    }
    lys_module *const module = zam_lys_parse_mem(ctx, text.address, format);
    text = {};
    if (module == nullptr) {
        zam_log_printf(ZAM_LOG_WRONG, "Parse file '%s' unsuccessful.\n", file_name);
        return -1;
    }
    zam_log_printf(ZAM_LOG_DEBUG, "[_load_files] module_name : %s zam_lys_parse_mem end\n", file_name);
    // A module whose features cannot be enabled is reported by its compilation.
    zam_lys_set_implemented(module, all_features);
    return 0;
}

int32_t zam_load_directory(struct ly_ctx *ctx, const char *dir) {
    if (ctx == nullptr || dir == nullptr) return -1;
    const int32_t yang = _load_files(ctx, dir, LYS_IN_YANG);
    const int32_t yin = _load_files(ctx, dir, LYS_IN_YIN);
    return yang + yin;
}

int32_t nyb_is_directory(const struct dirent *entry) {
    if (entry == nullptr || entry->d_type != DT_DIR) return 0;
    return std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0 ? 1 : 0;
}

void nyb_free_file_list(struct dirent **list, int32_t count) {
    if (list == nullptr) return;
    for (int32_t i = 0; i < count; ++i) {
        std::free(list[i]);
        list[i] = nullptr;
    }
    std::free(list);
}

int32_t nyb_load_sub_schema_ctx(struct ly_ctx *ctx, const char *dir) {
    if (ctx == nullptr || dir == nullptr) return 0;
    file_list dirs;
    dirs.count = scandir(dir, &dirs.entries, nyb_is_directory, alphasort);
    for (int32_t i = 0; i < dirs.count; ++i) {
        char *built = nullptr;
        if (zam_asprintf(&built, "%s/%s", dir, dirs.entries[i]->d_name) < 0) return -1;
        const zam::runtime::owned_text path{built};
        zam_log_printf(ZAM_LOG_DEBUG, "[yang-schema]load sub schema path=%s.\n", path.get());
        // A directory that does not load leaves the others usable.
        zam_load_directory(ctx, path.get());
    }
    return 0;
}
