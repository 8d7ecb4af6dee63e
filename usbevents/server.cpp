// The USB event server: one thread that accepts, and a thread for each connection. It ends by its state word, at which it
// looks at least once a second.
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

/// Why a server ended; part of its last log line.
enum class End { stopped = 0, noSocket = 1, notBound = 2, notListening = 3, waitFailed = 4, acceptFailed = 5, noThread = 6 };

/// Taking a number, and taking the socket's path, are each one step: of two servers that start at once, the last one has the
/// path too.
pthread_mutex_t pathChange = PTHREAD_MUTEX_INITIALIZER;

/// Servers are numbered as they start; only the last one is anybody's server.
std::atomic<uint32_t> lastServer{0};

/// Servers that have come as far as listening, and those that have come there or ended before.
std::atomic<uint32_t> serversListening{0};
std::atomic<uint32_t> serversSettled{0};

class Server {
public:
    Server() noexcept : socket_(-1)
    {
        const kvo_hws::Lock lock(pathChange);
        number_ = ++lastServer;
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
    [[nodiscard]] bool isLast() const noexcept { return lastServer.load() == number_; }
    [[nodiscard]] bool goesOn() const noexcept { return isLast() && kvo_hws::serverState().load() == NOTIFY_RUNNING; }

    End listen() noexcept
    {
        End end = End::stopped;
        {
            const kvo_hws::Lock lock(pathChange);
            end = isLast() ? takePath() : End::stopped;
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
        // Without blocking: a client that has gone again must not hold up the accept.
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
        while (goesOn()) {
            const int ready = kvo_hws::pollReadable(socket_.get(), kStatePeriod);
            error_ = errno;
            if (!goesOn()) {
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
        if (!goesOn()) {
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
        connection.release();  // it is the thread's now
        return End::stopped;
    }

    void finish() noexcept
    {
        socket_.close();
        // A successor has the state for its own.
        if (isLast() && !kvo_hws::advanceServer(NOTIFY_STOP_REQUESTED, NOTIFY_STOP_DONE)) {
            kvo_hws::serverState().store(NOTIFY_STOPPED);
        }
        SendDLLDebugMessage("USB server - terminated");
        // The number follows the word directly: log filters match it so.
        const bool abnormal = end_ != End::stopped;
        kvo_hws::logAlways(abnormal ? LOG_ERR : LOG_INFO, "USB server - %sterminated%d %d %s", abnormal ? "abnormal " : "",
                           static_cast<int>(end_), error_, std::strerror(error_));
        if (isLast() && kvo_hws::suicide().exchange(0) != 0) {
            // Nobody in this process waits for that end.
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
    // An event may follow the activation at once, and so may a close: both are to meet the server.
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
