// Sends messages to the USB event server of a library instance, which the log calls "DLL", and stops such a server.
#include <kvo_hws/platform.h>
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>

#include "runtime/clock.h"
#include "runtime/notifications.h"
#include "runtime/owners.h"
#include "service/socket.h"
#include "usbevents/server_state.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <syslog.h>

using namespace std::chrono_literals;

pthread_mutex_t sGCriticalSectionCmdPipe2DLL = PTHREAD_MUTEX_INITIALIZER;
uint32_t ServerPipeThreadSyncState = 0;
uint32_t uiSuicide = 0;

namespace {

constexpr std::size_t kLongestMessage = 1022;
constexpr int kConnectAttempts = 5;
constexpr auto kConnectPause = 10ms;
constexpr std::string_view kSuicide = "suicide";

/// The result of a sender, which the log shows as "thRet".
enum SendResult : int { kSent = 1, kSocketError = 2, kConnectError = 3, kWriteError = 4, kBufferSizeError = 5 };

using ReplyBuffer = std::array<char, 1028>;

/// The result of a delivery, and the values for its log line.
struct Delivery {
    SendResult result = kSent;
    const char *reason = "";
    int priority = LOG_ERR;
    int error = 0;
    int fd = -1;  ///< the socket that was used; it is already closed. -1 if there was none
};

/// Usually no server is listening when "suicide" is sent; this is not an error.
bool connectToServer(const kvo_hws::Descriptor &socket, bool suicide, const char *noServer, Delivery &delivery) noexcept
{
    for (int attempt = 0; attempt < kConnectAttempts; ++attempt) {
        if (kvo_hws::connectLocal(socket, kvo_hws::kUsbSocket)) {
            return true;
        }
        delivery.error = errno;
        delivery.reason = suicide ? noServer : "connect error (--> DLL)";
        // This priority also applies to later failures of this delivery: log filters rely on it if a server starts between two
        // attempts to send "suicide".
        delivery.priority = suicide ? LOG_INFO : LOG_ERR;
        kvo_hws::pause(kConnectPause);
        if (delivery.error == EAGAIN) {
            break;  // the server's queue stayed full for the whole timeout; more attempts would only multiply the wait
        }
    }
    return false;
}

/// Sends one line to the USB event server that is listening now, and reads the reply. @p noServer is the reason that the sender
/// logs if no server is listening.
Delivery deliver(std::string_view message, const char *noServer, ReplyBuffer &reply) noexcept
{
    Delivery delivery;
    const auto failed = [&delivery](SendResult result, const char *reason, int error) {
        delivery.result = result;
        delivery.reason = reason;
        delivery.error = error;
        return delivery;
    };
    if (message.size() > kLongestMessage) {
        return failed(kBufferSizeError, "buffer size error (--> DLL)", 0);
    }
    const kvo_hws::OutgoingLine line(message);
    const kvo_hws::Descriptor socket = kvo_hws::openLocalSocket();
    if (!socket.valid()) {
        return failed(kSocketError, "socket error (--> DLL)", errno);
    }
    delivery.fd = socket.get();
    const kvo_hws::Lock lock(sGCriticalSectionCmdPipe2DLL);
    if (!connectToServer(socket, message == kSuicide, noServer, delivery)) {
        delivery.result = kConnectError;
        return delivery;
    }
    errno = 0;
    if (!line.write(socket)) {
        return failed(kWriteError, "write error (--> DLL)", errno);
    }
    // The message is delivered once it is written, even if the reply is lost.
    ReadSocket(socket.get(), reply.data());
    return delivery;
}

uint32_t thisThread() noexcept { return static_cast<uint32_t>(GetCurrentThreadId()); }

/// Requests the end of this process's server and waits for it. Returns false if it is still running after 2 s.
bool stopOwnServer() noexcept
{
    kvo_hws::advanceServer(NOTIFY_RUNNING, NOTIFY_STOP_REQUESTED);
    const uint64_t deadline = GetTickCount64() + 2000;
    bool ended = false;
    do {
        kvo_hws::pause(100ms);
        ended = kvo_hws::hasEnded(kvo_hws::serverState().load());
    } while (!ended && GetTickCount64() < deadline);
    ended = ended || kvo_hws::hasEnded(kvo_hws::serverState().load());
    kvo_hws::serverState().store(NOTIFY_STOPPED);
    return ended;
}

}  // namespace

int FuncSendCommand2DLL(char *command) noexcept
{
    const kvo_hws::NoCancellation wholeSending;
    const kvo_hws::HeapText owned(command);
    // Detaches the caller's thread too: callers of this function have always been detached.
    kvo_hws_detach_thread();
    const uint32_t thread = thisThread();
    LOG(LOG_INFO, "sending request to DLL \"%s\" [thread 0x%08X]", command, thread);

    ReplyBuffer reply{};
    const Delivery delivery =
        deliver(command, "can not connect to running DLL (command \"suicide\") - probably no other server running", reply);
    if (delivery.fd >= 0) {
        DEBUG(LOG_INFO, "FuncSendCommand2DLL: closesocket %d", delivery.fd);
    }
    if (delivery.result == kSent) {
        LOG(LOG_INFO, "reply from DLL \"%s\" [thread 0x%08X]", reply.data(), thread);
    } else {
        LOG(delivery.priority, "%s: %s [thread 0x%08X] thRet=%d errno=%d (%s)", "FuncSendCommand2DLL", delivery.reason, thread,
            delivery.result, delivery.error, std::strerror(delivery.error));
    }
    return delivery.result;
}

int SendUsbMsg2DLL(const char *message) noexcept
{
    const kvo_hws::NoCancellation wholeSending;
    kvo_hws_detach_thread();
    const uint32_t thread = thisThread();
    LOG(LOG_INFO, "%s: [%08X] sending request to DLL iLength=%d '%12.12s'", "SendUsbMsg2DLL", thread,
        static_cast<int>(std::strlen(message)) + 1, message);

    ReplyBuffer reply{};
    const Delivery delivery =
        deliver(message, "can not connect to running DLL (command 'suicide') - probably no other server running", reply);
    if (delivery.fd >= 0) {
        DEBUG(LOG_INFO, "%s: closesocket %d", "SendUsbMsg2DLL", delivery.fd);
    }
    if (delivery.result == kSent) {
        LOG(LOG_INFO, "%s: reply from DLL \"%s\" [thread 0x%08X]", "SendUsbMsg2DLL", reply.data(), thread);
    } else {
        LOG(delivery.priority, "%s: [%08X] thRet=%d errno=%d (%s) '%s'", "SendUsbMsg2DLL", thread, delivery.result,
            delivery.error, std::strerror(delivery.error), delivery.reason);
    }
    return delivery.result;
}

int SendCommand2DLL(char *command, int synchronous) noexcept
{
    if (synchronous != 0) {
        return FuncSendCommand2DLL(command);
    }
    if (kvo_hws_CreateThread(ThreadSendCommand2DLL, command) != 1) {
        std::free(command);
    }
    return 1;  // also without a thread: no caller waits for the outcome
}

void *ThreadSendCommand2DLL(void *command) noexcept
{
    FuncSendCommand2DLL(static_cast<char *>(command));
    return nullptr;
}

int KillUsbServer() noexcept
{
    const kvo_hws::NoCancellation wholeStop;
    const bool stopped = kvo_hws::serverState().load() == NOTIFY_STOPPED || stopOwnServer();

    constexpr std::size_t kSize = kSuicide.size() + 1;
    auto *const message = static_cast<char *>(std::malloc(kSize));
    if (message == nullptr) {
        SendDLLDebugMessage("kill servernot enough memory");  // the missing blank is part of the text: log searches rely on it
        return -2;
    }
    std::memcpy(message, kSuicide.data(), kSize);
    if (SendCommand2DLL(message, 1) != kSent) {
        // Usually no server is listening. This result takes precedence over a server that did not stop, because the next server
        // can take the path.
        return -2;
    }
    return stopped ? 1 : -1;
}
