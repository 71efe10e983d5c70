// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
#include "store_file.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

#include <zamc/yang_module.h>

#include "diff_pairs.h"
#include "store_copy.h"
#include "store_error.h"
#include "text.h"

namespace zamd {
namespace {

constexpr mode_t new_file_mode = S_IRUSR | S_IWUSR;
constexpr std::size_t read_at_once = 64U << 10;

class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    int get() const { return fd_; }

private:
    int fd_;
};

struct StreamCloser {
    void operator()(FILE *stream) const { std::fclose(stream); }
};
using Stream = std::unique_ptr<FILE, StreamCloser>;

// Unlinks the temporary file unless it got its final name.
class TemporaryName {
public:
    explicit TemporaryName(std::string path) : path_(std::move(path)) {}
    ~TemporaryName() {
        if (!path_.empty()) ::unlink(path_.c_str());
    }
    TemporaryName(const TemporaryName &) = delete;
    TemporaryName &operator=(const TemporaryName &) = delete;
    void release() { path_.clear(); }

private:
    std::string path_;
};

Error _system_error(const std::string &path, const char *what) {
    return refusal("operation-failed", path + ": " + what + ": " + std::strerror(errno));
}

bool _ends_with(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

Format _format(std::string_view path, std::string_view text) {
    if (_ends_with(path, ".xml")) return Format::xml;
    if (_ends_with(path, ".json")) return Format::json;
    text = trim(text);
    return !text.empty() && text[0] == '<' ? Format::xml : Format::json;
}

std::string _directory(const std::string &path) {
    std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

std::string _resolved(const std::string &path) {
    std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr), &std::free);
    return real ? real.get() : path;
}

Result<Tree> _parse(const ly_ctx *ctx, const std::string &path, const std::string &text, Format format) {
    if (trim(text).empty()) return Tree();
    auto checked = format == Format::json ? json_check(trim(text)) : xml_check(text);
    if (!checked) return refusal("operation-failed", path + ": " + checked.error().message);
    LibyangErrors errors(ctx);
    std::string joined = format == Format::json ? json_join_surrogates(text) : text;
    lyd_node *root = nullptr;
    LY_ERR result =
        lyd_parse_data_mem(ctx, joined.c_str(), static_cast<LYD_FORMAT>(format), LYD_PARSE_STRICT | LYD_PARSE_NO_STATE,
                           LYD_VALIDATE_PRESENT | LYD_VALIDATE_NO_STATE, &root);
    Tree tree(root);
    if (result != LY_SUCCESS) return refusal("operation-failed", path + ": " + errors.take_line());
    drop_bare_defaults(tree);
    return tree;
}

// A file stream of the library throws when the disk fails.
bool _read(const std::string &path, std::string &text) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0) return false;
    std::array<char, read_at_once> block;
    for (;;) {
        const ssize_t count = ::read(file.get(), block.data(), block.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return count == 0;
        text.append(block.data(), static_cast<std::size_t>(count));
    }
}

bool _write(FILE *stream, const DatastoreFile &file, const Tree &tree) {
    bool printed = true;
    if (tree)
        printed = zam_lyd_print_file(stream, tree.root, static_cast<LYD_FORMAT>(file.format), LYD_PRINT_WITHSIBLINGS) ==
                  LY_SUCCESS;
    else if (file.format == Format::json)
        std::fputs("{}\n", stream);
    return std::fflush(stream) == 0 && printed;
}

// The new file takes after the one that it replaces.
bool _take_after(int fd, const std::string &path) {
    struct stat old;
    if (::stat(path.c_str(), &old) != 0) return ::fchmod(fd, new_file_mode) == 0;
    if (::fchown(fd, old.st_uid, old.st_gid) != 0 && errno != EPERM) return false;
    return ::fchmod(fd, old.st_mode & 07777) == 0;
}

Result<void> _sync_directory(const std::string &path) {
    std::string name = _directory(path);
    Descriptor directory(::open(name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory.get() < 0 || ::fsync(directory.get()) != 0)
        return _system_error(name, "the directory cannot be synchronised");
    return {};
}

} // namespace

void drop_bare_defaults(Tree &tree) {
    std::set<const lys_module *> in_use;
    for (const lyd_node *node = tree.root; node; node = node->next) {
        if (is_explicit(node)) in_use.insert(node->schema->module);
    }
    for (lyd_node *node = tree.root, *next; node; node = next) {
        next = node->next;
        if (in_use.contains(node->schema->module)) continue;
        detach(tree, node);
        lyd_free_tree(node);
    }
}

Result<Tree> load_file(const ly_ctx *ctx, const std::string &path, bool may_be_missing, DatastoreFile &file) {
    file.path = _resolved(path);
    file.format = _format(path, "");
    struct stat info;
    if (::stat(path.c_str(), &info) != 0) {
        if (errno == ENOENT && may_be_missing) return Tree();
        return _system_error(path, "cannot be read");
    }
    if (!S_ISREG(info.st_mode)) return refusal("operation-failed", path + ": is no regular file");
    std::string text;
    if (!_read(path, text)) return _system_error(path, "cannot be read");
    file.format = _format(path, text);
    return _parse(ctx, path, text, file.format);
}

Result<void> save_file(const DatastoreFile &file, const Tree &tree) {
    std::string name = file.path + ".XXXXXX";
    int fd = ::mkostemp(name.data(), O_CLOEXEC);
    if (fd < 0) return _system_error(name, "no temporary file can be made");
    TemporaryName temporary(name);
    Stream stream(::fdopen(fd, "w"));
    if (!stream) {
        ::close(fd);
        return _system_error(name, "cannot be written");
    }
    if (!_write(stream.get(), file, tree) || !_take_after(fd, file.path) || ::fsync(fd) != 0)
        return _system_error(name, "cannot be written");
    if (std::fclose(stream.release()) != 0) return _system_error(name, "cannot be written");
    if (::rename(name.c_str(), file.path.c_str()) != 0) return _system_error(file.path, "cannot be replaced");
    temporary.release();
    return _sync_directory(file.path);
}

} // namespace zamd
