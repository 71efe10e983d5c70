// SPDX-License-Identifier: BSD-3-Clause
// Copyright the zamc authors
//
// A connected stream socket with its two buffers.
//
//     open --(end of stream, read error, write error, hang-up)--> closed --(done stage, not read-busy)--> close
//     callback
//
// The wake handler only moves bytes and queues events; what they mean is for the events' handlers, which may free the
// connector. Therefore nothing in here touches the connector after a call that can run a handler, and freeing takes the
// connector's queued events along.
//
// Readiness is reported once per change (edge-triggered), so a wake reads until the socket is drained and whatever ends
// early for another reason re-arms the trigger: the kernel would not mention it again. `closed` is set once and never
// cleared, so that the owner hears of it once however many of the paths see it.

#include <cerrno>
#include <span>

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <zamc/connector.h>
#include <zamc/logger.h>

#include "io/connector_internal.h"
#include "io/errno_text.h"
#include "io/proactor_internal.h"
#include "io/stream_buffer.h"
#include "runtime/mem_internal.h"

using zam::io::errno_text;
using zam::runtime::mem_new;
using zam::runtime::owned;

struct zam_connector {
    int32_t fd; // owned
    zam_proactor *proactor;
    zam_trigger *trigger; // owned
    zam::io::stream_buffer output;
    zam::io::stream_buffer input;
    void *context;
    zam_connector_close_fn close_callback;
    uint8_t closed;
    uint8_t read_busy;
    uint8_t receive_owed; // a receive event could not be queued
    uint8_t read_owed;    // there was no room to read into
};

namespace {

constexpr uint32_t first_capacity = 1024;
constexpr uint32_t least_area = 1024;     // less free space than this is not worth a system call
constexpr uint32_t large_step = 0x800000; // 8 MiB: doubling ends here, a huge reply grows the buffer by steps
constexpr uint32_t armed_events = EPOLLIN | EPOLLOUT;
constexpr uint32_t readable_events = EPOLLIN | EPOLLPRI;
constexpr uint32_t gone_events = EPOLLERR | EPOLLHUP | EPOLLRDHUP;

bool _is_transient(int error) {
    return error == EAGAIN || error == EINTR;
}

void _push_close(zam_connector *connector) {
    zam_event_push(connector->proactor, EVENT_CONNECT_CLOSE, connector, nullptr);
}

// The owner looks at its input after every drained read. When the event cannot be queued another wake has to bring it,
// or the input would lie there until the peer sends more.
void _push_receive(zam_connector *connector) {
    connector->receive_owed = zam_event_push(connector->proactor, EVENT_MESSAGE_RECV, connector, nullptr) != 0;
    if (connector->receive_owed) zam_connector_wake_io(connector);
}

// One write, without the signal that a peer's close raises otherwise. Descriptors that are no sockets work as well.
ssize_t _write(const zam_connector *connector) {
    const ssize_t sent = send(connector->fd, connector->output.front(), connector->output.size(), MSG_NOSIGNAL);
    if (sent >= 0 || errno != ENOTSOCK) return sent;
    return write(connector->fd, connector->output.front(), connector->output.size());
}

void _drop_written(zam_connector *connector, ssize_t written) {
    connector->output.drop_front(static_cast<uint32_t>(written));
    if (!connector->output.is_oversized()) return;
    // Dropping gives memory back by itself; when that found none for the smaller block, try an even smaller one.
    zam_rw_bytes *bytes = connector->output.compact();
    zam_rw_bytes_resize(bytes, (bytes->length + 8191) / 8192 * 8192);
}

void _write_done(zam_connector *connector, ssize_t written, int error) {
    if (written > 0) {
        _drop_written(connector, written);
    } else if (written < 0 && !_is_transient(error) && !connector->closed) {
        connector->closed = 1;
        zam_log_printf(ZAM_LOG_WRONG, "Connector %d write message not successful(%s).\n", connector->fd,
                       errno_text(error).c_str());
        _push_close(connector);
    }
}

void _grow(zam_rw_bytes *bytes) {
    const uint64_t capacity = bytes->capacity;
    const uint64_t wanted = capacity < large_step ? capacity * 2 : (capacity + large_step) / large_step * large_step;
    if (wanted <= UINT32_MAX) zam_rw_bytes_resize(bytes, static_cast<uint32_t>(wanted));
}

// Where the next read goes: straight behind the content, with room left for the terminator. Empty when the buffer is
// full and cannot grow.
std::span<char> _get_read_buffer(zam_connector *connector) {
    zam_rw_bytes *bytes = connector->input.compact();
    if (bytes->capacity - bytes->length < least_area) _grow(bytes);
    const uint32_t free_space = bytes->capacity - bytes->length;
    if (free_space <= 1) return {};
    return {bytes->data + bytes->length, free_space - 1};
}

// What a read of `received` bytes into `area` means; true when there may be more to read.
bool _read_done(zam_connector *connector, std::span<char> area, ssize_t received, int error) {
    if (received > 0) {
        zam_rw_bytes *bytes = connector->input.compact();
        bytes->length += static_cast<uint32_t>(received);
        bytes->data[bytes->length] = '\0';
        if (static_cast<size_t>(received) == area.size()) return true;
        _push_receive(connector);
        return false;
    }
    if (received < 0 && _is_transient(error)) {
        if (error == EINTR) zam_connector_wake_io(connector); // what it kept us from is still to be read
        _push_receive(connector);
        return false;
    }
    if (connector->closed) return false;
    connector->closed = 1;
    if (received < 0) {
        zam_log_printf(ZAM_LOG_DEBUG, "Connector %d read message not successful(%s).\n", connector->fd,
                       errno_text(error).c_str());
    } else {
        zam_log_printf(ZAM_LOG_DEBUG, "The peer of connector %d has closed.\n", connector->fd);
    }
    _push_close(connector);
    return false;
}

// One read of a wake; true when reading goes on.
bool _read_some(zam_connector *connector) {
    const std::span<char> area = _get_read_buffer(connector);
    connector->read_owed = area.empty();
    if (connector->read_owed) {
        zam_connector_wake_io(connector);
        return false;
    }
    const ssize_t received = read(connector->fd, area.data(), area.size());
    const int error = errno;
    zam_log_printf(ZAM_LOG_DEBUG, "Connector %d received %d bytes from peer.\n", connector->fd,
                   static_cast<int>(received));
    return _read_done(connector, area, received, error);
}

// One write of a wake; true when writing goes on: a full socket is tried again at once, since a wake for writing means
// that there is room.
bool _write_some(zam_connector *connector) {
    if (connector->output.empty()) return false;
    const ssize_t sent = _write(connector);
    const int error = errno;
    zam_log_printf(ZAM_LOG_DEBUG, "Connector %d sent %d bytes to peer.\n", connector->fd, static_cast<int>(sent));
    _write_done(connector, sent, error);
    return sent < 0 && !connector->closed;
}

void _wake_connector(zam_proactor *, void *arg, uint32_t events) {
    auto *connector = static_cast<zam_connector *>(arg);
    zam_log_printf(ZAM_LOG_DEBUG, "Connector %d is waked by event 0x%x.\n", connector->fd, events);
    if (connector->closed) return;
    bool readable = (events & readable_events) != 0 || connector->receive_owed;
    bool writable = (events & EPOLLOUT) != 0;
    while (readable || writable) {
        if (readable) readable = _read_some(connector);
        if (writable) writable = _write_some(connector);
    }
    if (connector->closed || !(events & gone_events)) return;
    connector->closed = 1;
    zam_log_printf(ZAM_LOG_INFO, "The connector %d has closed,events %d.\n", connector->fd, events);
    _push_close(connector);
}

// What the handlers of this round queued leaves here, without another wake.
void _write_in_done_stage(zam_connector *connector) {
    if (connector->output.empty()) return;
    const ssize_t sent = _write(connector);
    const int error = errno;
    zam_log_printf(ZAM_LOG_DEBUG, "Connector %d sent %d bytes to peer in done stage.\n", connector->fd,
                   static_cast<int>(sent));
    if (sent > 0) _drop_written(connector, sent);
    if (sent < 0 && error == EINTR) zam_connector_wake_io(connector);
}

void _done_connector(zam_proactor *, void *arg) {
    auto *connector = static_cast<zam_connector *>(arg);
    _write_in_done_stage(connector);
    if (!connector->closed || connector->read_busy) return;
    zam_log_printf(ZAM_LOG_DEBUG, "Connector fd %d is closed.\n", connector->fd);
    if (connector->close_callback) connector->close_callback(connector); // may free it
}

// Everything of a connector, half-built ones included, but its socket.
void _discard_connector(zam_connector *connector) {
    zam_trigger_free(connector->trigger);
    connector->input.reset();
    connector->output.reset();
    zam_free(connector);
}

using half_built = owned<zam_connector, _discard_connector>;

zam_connector *_build_connector(zam_proactor *proactor, int32_t fd, void *context) {
    half_built connector{mem_new<zam_connector>()};
    if (!connector) {
        zam_log_printf(ZAM_LOG_EMERG, "Allocate memory for connector not successful.\n");
        return nullptr;
    }
    connector->fd = fd;
    connector->proactor = proactor;
    connector->context = context;
    if (!connector->output.init(first_capacity) || !connector->input.init(first_capacity)) return nullptr;
    connector->trigger = zam_trigger_new(fd, connector.get(), _wake_connector, _done_connector);
    if (!connector->trigger || zam_trigger_arm(proactor, connector->trigger, armed_events) != 0) return nullptr;
    return connector.release();
}

} // namespace

zam_connector *zam_connector_new(zam_proactor *proactor, int32_t fd, void *context) {
    zam_connector *connector = _build_connector(proactor, fd, context);
    if (!connector) {
        zam_log_printf(ZAM_LOG_WRONG, "Create connector for sock %d not successful.\n", fd);
        return nullptr;
    }
    zam_log_printf(ZAM_LOG_DEBUG, "Create connector %d success.\n", fd);
    return connector;
}

void zam_connector_free(zam_connector *connector) {
    if (!connector) return;
    zam_log_printf(ZAM_LOG_DEBUG, "Free the connector fd: %d.\n", connector->fd);
    zam_trigger_unarm(connector->proactor, connector->trigger);
    close(connector->fd);
    zam::io::drop_events_of(connector->proactor, connector);
    _discard_connector(connector);
}

int32_t zam_connector_write(zam_connector *connector, const void *data, uint32_t length) {
    if (!connector || !data) return -1;
    return connector->output.append(data, length);
}

void zam_connector_recall(zam_connector *connector, uint32_t length) {
    if (connector) connector->output.drop_back(length);
}

int32_t zam_connector_wake_io(zam_connector *connector) {
    return connector ? zam_trigger_rearm(connector->proactor, connector->trigger, armed_events) : 0;
}

void zam_connector_flush(zam_connector *connector) {
    if (!connector) return;
    while (!connector->output.empty()) {
        const ssize_t sent = _write(connector);
        if (sent <= 0) {
            if (sent < 0 && errno == EINTR) zam_connector_wake_io(connector); // a full socket reports itself, this not
            return;
        }
        zam_log_printf(ZAM_LOG_DEBUG, "Connector %d sent %d bytes to peer.\n", connector->fd, static_cast<int>(sent));
        _write_done(connector, sent, 0);
    }
}

char *zam_connector_readbuf(zam_connector *connector, uint32_t *length) {
    const uint32_t unread = connector ? connector->input.size() : 0;
    if (length) *length = unread;
    return unread > 0 ? connector->input.front() : nullptr;
}

void zam_connector_consume(zam_connector *connector, uint32_t length) {
    if (connector) connector->input.drop_front(length);
}

int32_t zam_connector_reentry(zam_connector *connector, const void *data, uint32_t length) {
    if (!connector || !data) return -1;
    return connector->input.append(data, length);
}

void *zam_connector_context(const zam_connector *connector) {
    return connector ? connector->context : nullptr;
}

void zam_connector_set_context(zam_connector *connector, void *context) {
    if (connector) connector->context = context;
}

uint8_t zam_connector_closed(const zam_connector *connector) {
    return connector ? connector->closed : 1;
}

void zam_connector_set_closed(zam_connector *connector) {
    if (connector) connector->closed = 1;
}

bool zam::io::is_starved(const zam_connector *connector) {
    return connector && !connector->closed && (connector->read_owed || connector->receive_owed);
}

uint8_t zam_connector_rbusy(const zam_connector *connector) {
    return connector ? connector->read_busy : 0;
}

void zam_connector_set_rbusy(zam_connector *connector, uint8_t busy) {
    if (!connector) return;
    connector->read_busy = busy;
    if (!busy) zam_event_push(connector->proactor, EVENT_CONNECT_READ_IDLE, connector, nullptr);
}

void zam_connector_reg_close_cb(zam_connector *connector, zam_connector_close_fn callback) {
    if (connector) connector->close_callback = callback;
}
