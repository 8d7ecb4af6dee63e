// The connection thread: connects to the remote service, serves its requests, and connects again after a lost connection, until
// the agent is stopped.
#include <kvo_hws/agent.h>
#include <kvo_hws/config.h>
#include <kvo_hws/platform.h>
#include <kvo_hws/runtime.h>

#include "agent/dotted.h"
#include "agent/instance.h"
#include "agent/line_writer.h"
#include "config/interface_name.h"
#include "runtime/adapter_cache.h"
#include "runtime/clock.h"
#include "runtime/log.h"
#include "runtime/owners.h"
#include "service/socket.h"

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <netinet/in.h>
#include <poll.h>
#include <string_view>
#include <sys/socket.h>
#include <utility>

using namespace std::chrono_literals;

namespace {

using kvo_hws::debugValues;
using kvo_hws::Descriptor;
using kvo_hws::shared;
using kvo_hws::agent::kStopPeriod;
using kvo_hws::agent::mustStop;
using kvo_hws::agent::socketOf;

constexpr uint32_t kFirstPort = 5850;
constexpr auto kServePeriod = 1s;
constexpr auto kRetryPause = 1s;
constexpr auto kReconnectPause = 5s;
constexpr int32_t kStaleAfter = 6;  // milliseconds, on purpose: a socket that is still open here is almost always closed

/// True on the thread that runs the agent.
thread_local bool runsAgent = false;

enum Result : int { kStopped = 0, kFailed = -1 };

/// Sleeps, but returns early if the agent is stopped.
void pauseUnlessStopped(std::chrono::milliseconds time) noexcept
{
    for (auto slept = 0ms; slept < time && !mustStop(); slept += kStopPeriod) {
        kvo_hws::pause(kStopPeriod);
    }
}

class Connection {
public:
    explicit Connection(EmbKvoInst &agent) noexcept : agent_(agent), session_(agent.session), remote_(agent.remoteKvoHwsIp) {}

    /// Connects and serves until the agent is stopped.
    Result run() noexcept
    {
        while (!mustStop()) {
            if (!connect()) {
                debugValues("KVO_HWS DLL - embHwsClientThread - Emb-KVO next try to connect to %s in 1 second", remote_.text());
                pauseUnlessStopped(kRetryPause);
                continue;
            }
            serve();
            if (mustStop()) {
                if (socketOf(session_) >= 0) {
                    hmi_close_x(&session_);
                }
                return kStopped;
            }
            pauseUnlessStopped(kReconnectPause);
        }
        return kFailed;
    }

private:
    bool connect() noexcept
    {
        debugValues("KVO_HWS DLL - embHwsClientThread - connect to %s", remote_.text());
        if (keepsOpenSocket()) {
            return true;
        }
        Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        if (!socket.valid()) {
            debugValues("KVO_HWS DLL - try_hws_connect - socket() returns %d", errno);
            return false;
        }
        if (const int error = connectError(socket); error != 0) {
            socket.close();
            debugValues("KVO_HWS DLL - try_hws_connect - connect() returns %d", error);
            return false;
        }
        session_.lineFill = 0;
        session_.connected = 1;
        timeval_get(&session_.lastActivity);
        kvo_hws::agent::openSocket(session_, socket.release());
        debugValues("KVO_HWS DLL - embHwsClientThread - Emb-KVO connected with %s", remote_.text());
        return true;
    }

    /// Keeps a socket that is still open if it was active recently; otherwise closes it.
    bool keepsOpenSocket() noexcept
    {
        if (socketOf(session_) < 0) {
            return false;
        }
        if (timeval_diff(nullptr, &session_.lastActivity) <= kStaleAfter) {
            return true;
        }
        debugValues("KVO_HWS DLL - try_hws_connect - timeout");
        hmi_close_x(&session_);
        return false;
    }

    /// Connects and returns 0 or the error number. Waits until the system reports a result or the agent is stopped.
    int connectError(const Descriptor &socket) const noexcept
    {
        sockaddr_in remote{};
        remote.sin_family = AF_INET;
        remote.sin_port = htons(static_cast<uint16_t>(kFirstPort + session_.display));
        remote.sin_addr.s_addr = agent_.remoteKvoHwsIp;
        if (::connect(socket.get(), reinterpret_cast<const sockaddr *>(&remote), sizeof remote) != 0) {
            if (errno != EINPROGRESS && errno != EINTR) {
                return errno;
            }
            if (const int error = awaitConnect(socket); error != 0) {
                return error;
            }
        }
        return 0;
    }

    static int awaitConnect(const Descriptor &socket) noexcept
    {
        pollfd waiting{.fd = socket.get(), .events = POLLOUT, .revents = 0};
        while (!mustStop()) {
            const int ready = poll(&waiting, 1, static_cast<int>(kStopPeriod.count()));
            if (ready > 0) {
                return pendingError(socket.get());
            }
            if (ready < 0 && errno != EINTR) {
                return errno;
            }
        }
        return ECANCELED;
    }

    static int pendingError(int socket) noexcept
    {
        int error = 0;
        socklen_t length = sizeof error;
        return getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &length) == 0 ? error : errno;
    }

    /// Serves requests until the connection is lost or the agent is stopped.
    void serve() noexcept
    {
        while (!mustStop() && socketOf(session_) >= 0) {
            const int socket = socketOf(session_);
            const int ready = kvo_hws::pollReadable(socket, kServePeriod);
            if (ready > 0) {
                hmiconn_process_one_request(&session_);
            } else if (ready == 0) {
                debugValues("KVO_HWS DLL - embHwsClientThread - Emb-KVO select with timeout");
            } else if (const int error = errno; error != EINTR) {
                int pending = 0;
                socklen_t length = sizeof pending;
                const int result = getsockopt(socket, SOL_SOCKET, SO_ERROR, &pending, &length);
                debugValues("KVO_HWS DLL - embHwsClientThread - Emb-KVO socket %d getsockopt returns %d serrno:%d", socket,
                            result, pending);
                debugValues("KVO_HWS DLL - embHwsClientThread - Emb-KVO select returns:%d error:%d", ready, error);
                hmi_close_x(&session_);
            }
        }
    }

    EmbKvoInst &agent_;
    HmiSession &session_;
    kvo_hws::agent::Dotted remote_;
};

/// Makes the agent's name from the six bytes of the hardware address.
void nameAgent() noexcept
{
    const kvo_hws::AdapterCache adapter(sConfData.interface);
    debugValues("KVO_HWS DLL - embHwsClientThread - embHwsClientThread uses interface '%s'", kvo_hws::interfaceName());
    uint8_t mac[6] = {};
    adapter.readMac(mac);
    std::snprintf(gHostname, sizeof gHostname, "EmbKVO_%02X%02X%02X%02X%02X%02X", mac[0], mac[1], mac[2], mac[3], mac[4],
                  mac[5]);
}

/// Copies the host's parameters to the variables that the handlers report.
void publishParameters(const EmbKvoInst &agent) noexcept
{
    shared(gFocusKvoIp).store(agent.focusKvoIp);
    shared(gKvoIndex).store(agent.kvoIndex);
    shared(gMcpLikeFocusKvo).store(agent.mcpFlag);
    gScreenOnFocus[std::string_view(agent.screenOnFocus).copy(gScreenOnFocus, sizeof gScreenOnFocus - 1)] = '\0';
    shared(gChannelOnFocus).store(agent.channelOnFocus);
    shared(gStartupActive).store(agent.startupActive);
    shared(gStartupPrio).store(agent.startupPrio);
    shared(gSuspendLock).store(agent.suspendLock);
    shared(gSuspendPrio).store(agent.suspendPrio);
}

/// Prepares the session, without a socket. Returns false if memory for its line runs out.
bool prepareSession(EmbKvoInst &agent) noexcept
{
    agent.session.server = &agent.server;
    agent.session.display = agent.remoteSession;
    kvo_hws::agent::closeSocket(agent.session);
    agent.session.lineBuffer = static_cast<char *>(xmalloc(kvo_hws::agent::kLineSize + 1));  // one byte for the terminator
    agent.session.lineFill = 0;
    agent.session.keyFlags = 0;
    agent.server.address = agent.remoteKvoHwsIp;
    std::free(std::exchange(agent.server.name, nullptr));
    agent.server.session = &agent.session;
    return agent.session.lineBuffer != nullptr;
}

Result runAgent(EmbKvoInst &agent) noexcept
{
    ReadConfFile();
    nameAgent();
    publishParameters(agent);
    if (init_fb() != 0 || !prepareSession(agent)) {
        return kFailed;
    }
    return Connection(agent).run();
}

}  // namespace

bool kvo_hws::agent::isConnectionThread() noexcept { return runsAgent; }

void *embHwsClientThread(void *instance) noexcept
{
    const kvo_hws::NoCancellation wholeLife;
    runsAgent = true;
    EmbKvoInst &agent = *static_cast<EmbKvoInst *>(instance);
    shared(agent.running).store(1);
    kvo_hws_detach_thread();
    const Result result = runAgent(agent);
    debugValues("KVO_HWS DLL - embHwsClientThread - threadID[%04lX] terminates with %d", GetCurrentThreadId(), result);
    kvo_hws::agent::closeSocket(agent.session);
    std::free(std::exchange(agent.session.lineBuffer, nullptr));
    shared(gFocusKvoIp).store(0);
    shared(protocolNegotiated).store(0);  // again: a request that was served during the clean-up may have set it
    runsAgent = false;
    shared(agent.running).store(0);
    return nullptr;
}
