// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// The library says that a directory did not load and logs why, spread over
// several lines. An operator needs one: so after a failure the files are read once
// more, one by one in a context of their own, until the one at fault shows.
#include "modules.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>

#include <sys/stat.h>
#include <unistd.h>

#include <libyang/libyang.h>

#include <zamc/client.h>
#include <zamc/logger.h>
#include <zamc/yang_module.h>

namespace zamd {
namespace {

namespace fs = std::filesystem;

struct ContextDeleter {
    void operator()(ly_ctx *ctx) const { ly_ctx_destroy(ctx); }
};

// libyang's log callback takes no argument of the caller's.
std::string complaint;

void _complain(LY_LOG_LEVEL level, const char *message, const char *path) {
    if (level != LY_LLERR || message == nullptr) return;
    // The first error is the cause, the later ones say what became of it. Its place is the first one that is named.
    const bool first = complaint.empty();
    if (first) complaint = message;
    if (path != nullptr && complaint.find(" (") == std::string::npos) complaint += std::string{" ("} + path + ")";
}

std::vector<fs::path> _module_files(const std::string &directory) {
    std::vector<fs::path> files;
    std::error_code error;
    for (const fs::directory_entry &entry : fs::directory_iterator{directory, error})
        if (entry.path().extension() == ".yang" || entry.path().extension() == ".yin") files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

std::string _diagnose(const std::vector<std::string> &directories, const std::string &at_fault) {
    ly_ctx *made = nullptr;
    if (ly_ctx_new(nullptr, LY_CTX_ALL_IMPLEMENTED | LY_CTX_NO_YANGLIBRARY, &made) != LY_SUCCESS) return {};
    const std::unique_ptr<ly_ctx, ContextDeleter> ctx{made};
    for (const std::string &directory : directories)
        ly_ctx_set_searchdir(ctx.get(), directory.c_str());
    zam_ly_set_log_clb(_complain, 1);
    for (const fs::path &file : _module_files(at_fault)) {
        complaint.clear();
        const LYS_INFORMAT format = file.extension() == ".yin" ? LYS_IN_YIN : LYS_IN_YANG;
        if (lys_parse_path(ctx.get(), file.c_str(), format, nullptr) != LY_SUCCESS)
            return file.string() + ": " + (complaint.empty() ? "it does not parse" : complaint);
    }
    return {};
}

Result<void> _check_directory(const std::string &directory) {
    struct stat status {};
    const bool known = stat(directory.c_str(), &status) == 0;
    if (known && !S_ISDIR(status.st_mode))
        return refusal("operation-failed", "the module directory " + directory + " is no directory");
    if (!known || access(directory.c_str(), R_OK | X_OK) != 0)
        return refusal("operation-failed",
                       "cannot read the module directory " + directory + ": " + std::strerror(errno));
    if ((status.st_mode & S_IWOTH) != 0) // a sticky bit keeps nobody from adding a module
        zam_log_printf(ZAM_LOG_WARN, "Everybody may write to the module directory %s.\n", directory.c_str());
    if (_module_files(directory).empty())
        return refusal("operation-failed", "the module directory " + directory + " holds no module");
    return {};
}

} // namespace

Result<void> load_modules(const std::vector<std::string> &directories) {
    if (zamc_initialize() != 0) return refusal("operation-failed", "the built-in modules cannot be loaded");
    for (const std::string &directory : directories)
        if (auto checked = _check_directory(directory); !checked) return checked;
    for (const std::string &directory : directories) {
        if (zamc_load_module(directory.c_str(), nullptr) == 0) continue;
        const std::string why = _diagnose(directories, directory);
        return refusal("operation-failed", "the modules of " + directory +
                                               " do not load: " + (why.empty() ? "the log names the reason" : why));
    }
    return {};
}

} // namespace zamd
