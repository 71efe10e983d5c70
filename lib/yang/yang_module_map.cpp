// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// Texts of module files, and the import callback that serves them to libyang.
//
// A text is read into a mapping of its own, one byte larger than the file, so that it ends in a NUL also when the file
// fills its last page, and so that a file cut short by somebody else while we read it cannot raise SIGBUS.
//
// Texts that an import asked for stay in one list of the process, in the order of mapping, until zam_free_module_map:
// libyang is told of no release function. The list is touched only under its lock. The lock works before
// zam_module_init, since nothing on the way of an application that loads modules calls that.

#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <zamc/dlist.h>
#include <zamc/logger.h>
#include <zamc/mem.h>
#include <zamc/utils.h>

#include "runtime/mem_internal.h"
#include "yang/yang_module_internal.h"

namespace zam::yang {

namespace {

using runtime::owned_text;

constexpr const char *system_dir = "/usr/local/conf/nyblib/modules";

struct file_map {
    zam_dlist_node link; // first: the list hands back its address
    char *path;          // owned; the key
    char *address;
    uint32_t size;
};

pthread_mutex_t file_map_lock = PTHREAD_MUTEX_INITIALIZER;
zam_dlist file_maps;

struct descriptor {
    int fd;
    explicit descriptor(int opened) : fd(opened) {}
    descriptor(const descriptor &) = delete;
    descriptor &operator=(const descriptor &) = delete;
    ~descriptor() {
        if (fd >= 0) close(fd);
    }
};

const char *_error_text() {
    return zam_get_str_error(errno);
}

file_map *_record(zam_dlist_node *node) {
    return reinterpret_cast<file_map *>(node);
}

// Fills the block from the file. A file that shrank meanwhile leaves zeros, which end the text. 0 or -1 with errno.
int32_t _read_all(int fd, char *block, uint32_t size) {
    uint32_t done = 0;
    while (done < size) {
        const ssize_t got = pread(fd, block + done, size - done, static_cast<off_t>(done));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return -1;
        if (got == 0) return 0;
        done += static_cast<uint32_t>(got);
    }
    return 0;
}

// The text in a block of its own, or none with errno; an empty file has no text, as it has no mapping.
file_text _map_text(int fd, off_t size) {
    if (size <= 0 || size >= UINT32_MAX) {
        errno = size <= 0 ? EINVAL : EFBIG;
        return {};
    }
    const uint32_t length = static_cast<uint32_t>(size);
    void *const block =
        mmap(nullptr, size_t{length} + 1, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
    if (block == MAP_FAILED) return {};
    file_text text{static_cast<char *>(block), length};
    if (_read_all(fd, text.address, length) == 0) return text;
    const int error = errno; // survives the release of the block
    text = {};
    errno = error;
    return {};
}

void _free_submodule_map(zam_dlist_node *node) {
    file_map *const map = _record(node);
    zam_log_printf(ZAM_LOG_DEBUG, "Free submode:%s , size:%u.\n", map->path, map->size);
    { const file_text text{map->address, map->size}; }
    zam_free(map->path);
    zam_free(map);
}

const file_map *_find_file_map(const char *path) {
    for (zam_dlist_node *node = file_maps.head; node != nullptr; node = node->next) {
        if (std::strcmp(_record(node)->path, path) == 0) return _record(node);
    }
    return nullptr;
}

// Takes over path and text on success only.
int32_t _add_file_map(owned_text &path, file_text &text) {
    file_map *const map = runtime::mem_new<file_map>();
    if (map == nullptr) return -1;
    map->path = path.release();
    map->address = std::exchange(text.address, nullptr);
    map->size = std::exchange(text.size, 0);
    zam_dlist_append(&file_maps, &map->link);
    zam_log_printf(ZAM_LOG_DEBUG, "Load mmap path %s, size:%u.\n", map->path, map->size);
    return 0;
}

// Maps the file and lists it; null when there is none, or no memory to list it.
const char *_get_file_mmap(owned_text path) {
    file_text text = _get_file_mmap_size(path.get());
    if (!text) return nullptr;
    const char *const address = text.address;
    return _add_file_map(path, text) == 0 ? address : nullptr;
}

const char *_cached_text(owned_text path) {
    const file_map *const known = _find_file_map(path.get());
    return known != nullptr ? known->address : _get_file_mmap(std::move(path));
}

// Where an import of that name may be: beside the files of the pass, then with the modules of the system. -1 when the
// path cannot be built. Runs under the lock.
int32_t _find_text(const char *dir, const char *name, const char *extension, const char **text) {
    for (const char *const place : {dir, system_dir}) {
        char *path = nullptr;
        if (zam_asprintf(&path, "%s/%s.%s", place, name, extension) < 0) return -1;
        *text = _cached_text(owned_text{path});
        if (*text != nullptr) return 0;
    }
    return 0;
}

} // namespace

file_text::~file_text() {
    if (address != nullptr && size != 0) munmap(address, size_t{size} + 1);
}

file_text _get_file_mmap_size(const char *path) {
    if (access(path, F_OK) != 0) {
        zam_log_printf(ZAM_LOG_WRONG, "Can't access to path %s for mmap (%s).\n", path, _error_text());
        return {};
    }
    char resolved[PATH_MAX]; // without one realpath() would allocate past the hooks
    if (!realpath(path, resolved)) {
        zam_log_printf(ZAM_LOG_WRONG, "Check path %s unsuccess (%s).\n", path, _error_text());
        return {};
    }
    // Non-blocking: a FIFO of that name has no text, and nobody may wait for its writer.
    const descriptor file{open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK)};
    if (file.fd < 0) {
        zam_log_printf(ZAM_LOG_WRONG, "Failed to open path %s for mmap (%s).\n", path, _error_text());
        return {};
    }
    struct stat status = {};
    if (fstat(file.fd, &status) != 0) {
        zam_log_printf(ZAM_LOG_WRONG, "Failed to stat the file descriptor for mmap (%s).\n", _error_text());
        return {};
    }
    file_text text = _map_text(file.fd, status.st_size);
    if (!text) zam_log_printf(ZAM_LOG_WRONG, "Failed to mmap for path:%s (%s).\n", path, _error_text());
    return text;
}

LY_ERR _search_module(const char *module, const char *, const char *submodule, const char *, void *user_data,
                      LYS_INFORMAT *format, const char **text, ly_module_imp_data_free_clb *release) {
    const char *const name = submodule != nullptr ? submodule : module;
    const import_search *const search = static_cast<const import_search *>(user_data);
    if (name == nullptr || search == nullptr) return LY_EINVAL;
    const char *found = nullptr;
    if (pthread_mutex_lock(&file_map_lock) == 0) {
        const int32_t result = _find_text(search->dir, name, search->format == LYS_IN_YANG ? "yang" : "yin", &found);
        pthread_mutex_unlock(&file_map_lock);
        if (result != 0) {
            zam_log_printf(ZAM_LOG_WRONG, "Failed to strdup submod path %s.\n", name);
            return LY_EMEM;
        }
    }
    *format = search->format;
    *text = found; // none is for libyang to report
    *release = nullptr;
    return LY_SUCCESS;
}

} // namespace zam::yang

using namespace zam::yang;

int32_t zam_module_init(void) {
    return pthread_mutex_init(&file_map_lock, nullptr);
}

int32_t zam_module_exit(void) {
    const int result = pthread_mutex_destroy(&file_map_lock);
    // A load that comes later finds the lock ready: a destroyed one refuses to be taken, and no import would be found.
    if (result == 0) pthread_mutex_init(&file_map_lock, nullptr);
    return result;
}

void zam_free_module_map(void) {
    if (pthread_mutex_lock(&file_map_lock) != 0) return;
    zam_dlist_free(&file_maps, _free_submodule_map);
    pthread_mutex_unlock(&file_map_lock);
}
