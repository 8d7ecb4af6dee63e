// One exchange with the hardware service: connect, write one line, read one line.
#include <kvo_hws/service.h>

#include "runtime/log.h"
#include "runtime/owners.h"
#include "service/socket.h"

#include <cerrno>
#include <sys/socket.h>

pthread_mutex_t sGCriticalSectionCmdPipe = PTHREAD_MUTEX_INITIALIZER;

namespace {

/// The result of an exchange; the reason is null on success.
struct Outcome {
    int code;
    const char *reason;
};

Outcome exchange(const char *command, DynBuffer *reply) noexcept
{
    const kvo_hws::OutgoingLine line(command);
    if (!line.valid()) {
        return {KVO_HWS_FAILED, "can not write to socket"};
    }
    const kvo_hws::Descriptor socket = kvo_hws::openLocalSocket();
    if (!socket.valid()) {
        return {KVO_HWS_FAILED, "error creating socket"};
    }
    // Locked until the reply is read: only one thread of a process talks to the service at a time.
    const kvo_hws::Lock lock(sGCriticalSectionCmdPipe);
    if (!kvo_hws::connectLocal(socket, kvo_hws::kCommandSocket)) {
        return {KVO_HWS_NO_SERVICE, "can not connect to socket"};
    }
    if (!line.write(socket)) {
        return {KVO_HWS_FAILED, "can not write to socket"};
    }
    if (ReadSocketDyn(socket.get(), reply) < 0) {
        return {KVO_HWS_FAILED, "can not read from socket"};
    }
    return {KVO_HWS_OK, nullptr};
}

}  // namespace

int SendCommand2ServiceDyn(const char *command, DynBuffer *reply) noexcept
{
    if (command == nullptr || *command == '\0') {
        return KVO_HWS_FAILED;
    }
    const kvo_hws::NoCancellation wholeExchange;
    const auto [code, reason] = exchange(command, reply);
    if (reason != nullptr) {
        kvo_hws::debugMessage("command socket", reason);
    }
    return code;
}

int kvo_hws_send_socket(int fd, const void *buffer, unsigned length, int flags) noexcept
{
    const kvo_hws::NoCancellation wholeSend;
    const ssize_t sent = send(fd, buffer, length, flags);
    if (sent >= 0 && static_cast<std::size_t>(sent) == length) {
        return static_cast<int>(length);
    }
    const bool lost = sent < 0 && (errno == ECONNABORTED || errno == ENOTCONN || errno == EPIPE);
    return lost ? -2 : -1;
}

int kvo_hws_StartUpSockets(int *status) noexcept
{
    if (status != nullptr) {
        *status = 0;
    }
    return 0;
}

int kvo_hws_CleanUpSockets() noexcept { return 0; }
