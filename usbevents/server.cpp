// The USB event server: one thread that accepts connections, and a thread for each connection. The server checks its state
// word at least once a second and ends when a stop is requested.
#include "usbevents/server.h"

#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>
#include <kvo_hws/usbevents.h>

#include "runtime/clock.h"
#include "runtime/log.h"
#include "runtime/owners.h"
#include "service/socket.h"
#include "usbevents/server_state.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <sys/socket.h>
#include <syslog.h>

using namespace std::chrono_literals;

namespace {

constexpr int kBacklog = 5;
constexpr auto kStatePeriod = 1s;
constexpr auto kStartTime = 2s;
constexpr auto kStartPeriod = 1ms;

/// The reason why a server ended; part of its last log line.
enum class End { stopped = 0, noSocket = 1, notBound = 2, notListening = 3, waitFailed = 4, acceptFailed = 5, noThread = 6 };

/// Locked while a server takes its number, and while it takes the socket path. If two servers start at the same time, the one
/// with the later number keeps the path.
pthread_mutex_t pathChange = PTHREAD_MUTEX_INITIALIZER;

/// Servers are numbered in the order of their starts. Only the latest one is in use.
std::atomic<uint32_t> latestServer{0};

/// Number of servers that started listening, and number of servers that started listening or failed to.
std::atomic<uint32_t> serversListening{0};
std::atomic<uint32_t> serversSettled{0};

class Server {
public:
    Server() noexcept : socket_(-1)
    {
        const kvo_hws::Lock lock(pathChange);
        number_ = ++latestServer;
        kvo_hws::serverState().store(NOTIFY_RUNNING);
        kvo_hws::suicide().store(0);
    }

    void run() noexcept
    {
        end_ = listen();
        if (end_ == End::stopped) {
            ++serversListening;
        }
        ++serversSettled;
        if (end_ == End::stopped) {
            end_ = serve();
        }
        finish();
    }

private:
    [[nodiscard]] bool isLatest() const noexcept { return latestServer.load() == number_; }
    [[nodiscard]] bool isActive() const noexcept { return isLatest() && kvo_hws::serverState().load() == NOTIFY_RUNNING; }

    End listen() noexcept
    {
        End end = End::stopped;
        {
            const kvo_hws::Lock lock(pathChange);
            end = isLatest() ? takePath() : End::stopped;
            error_ = errno;
        }
        switch (end) {
        case End::noSocket: SendDLLDebugMessage("USB server - socket error"); break;
        case End::notBound: SendDLLDebugMessage("USB server - bind error"); break;
        case End::notListening: SendDLLDebugMessage("USB server - listen error"); break;
        default: SendDLLDebugMessage("USB server - started --> wait for clients"); break;
        }
        return end;
    }

    End takePath() noexcept
    {
        // Non-blocking: accept must not block if a client has already disconnected.
        kvo_hws::Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        if (!socket.valid()) {
            return End::noSocket;
        }
        if (!kvo_hws::bindLocal(socket, kvo_hws::kUsbSocket)) {
            return End::notBound;
        }
        if (::listen(socket.get(), kBacklog) != 0) {
            return End::notListening;
        }
        socket_ = std::move(socket);
        return End::stopped;
    }

    End serve() noexcept
    {
        while (isActive()) {
            const int ready = kvo_hws::pollReadable(socket_.get(), kStatePeriod);
            error_ = errno;
            if (!isActive()) {
                break;
            }
            if (ready < 0 && error_ != EINTR) {
                return End::waitFailed;
            }
            if (ready > 0) {
                if (const End end = acceptOne(); end != End::stopped) {
                    return end;
                }
            }
        }
        return End::stopped;
    }

    End acceptOne() noexcept
    {
        kvo_hws::Descriptor connection(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        error_ = errno;
        if (!isActive()) {
            return End::stopped;
        }
        if (!connection.valid()) {
            return error_ == EAGAIN || error_ == EINTR ? End::stopped : End::acceptFailed;
        }
        if (kvo_hws_CreateThread(ConInstThread, reinterpret_cast<void *>(intptr_t{connection.get()})) != 1) {
            error_ = errno;
            SendDLLDebugMessage("USB server - create thread error");
            return End::noThread;
        }
        connection.release();  // the thread owns it now
        return End::stopped;
    }

    void finish() noexcept
    {
        socket_.close();
        // If a newer server exists, the state belongs to that server.
        if (isLatest() && !kvo_hws::advanceServer(NOTIFY_STOP_REQUESTED, NOTIFY_STOP_DONE)) {
            kvo_hws::serverState().store(NOTIFY_STOPPED);
        }
        SendDLLDebugMessage("USB server - terminated");
        // No space between the word and the number: log filters rely on this form.
        const bool abnormal = end_ != End::stopped;
        kvo_hws::logAlways(abnormal ? LOG_ERR : LOG_INFO, "USB server - %sterminated%d %d %s", abnormal ? "abnormal " : "",
                           static_cast<int>(end_), error_, std::strerror(error_));
        if (isLatest() && kvo_hws::suicide().exchange(0) != 0) {
            // No thread of this process waits for this server's end.
            kvo_hws::advanceServer(NOTIFY_STOP_DONE, NOTIFY_STOPPED);
        }
    }

    kvo_hws::Descriptor socket_;
    uint32_t number_ = 0;
    End end_ = End::stopped;
    int error_ = 0;
};

}  // namespace

bool kvo_hws::startUsbServer() noexcept
{
    const uint32_t settledBefore = serversSettled.load();
    const uint32_t listeningBefore = serversListening.load();
    if (kvo_hws_CreateThread(win_kvo_hws_usb_server, nullptr) != 1) {
        return false;
    }
    // An event or a close may follow the activation at once, and must find the server listening.
    for (auto waited = 0ms; serversSettled.load() == settledBefore && waited < kStartTime; waited += kStartPeriod) {
        pause(kStartPeriod);
    }
    return serversListening.load() != listeningBefore;
}

void *win_kvo_hws_usb_server(void * /*argument*/) noexcept
{
    const kvo_hws::NoCancellation wholeLife;
    kvo_hws_detach_thread();
    Server().run();
    return nullptr;
}
