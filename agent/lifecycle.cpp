// Starting and stopping the agent, and sending the host's events.
#include <kvo_hws/agent.h>
#include <kvo_hws/platform.h>
#include <kvo_hws/result.h>
#include <kvo_hws/runtime.h>

#include "agent/instance.h"
#include "agent/line_writer.h"
#include "agent/parameters.h"
#include "runtime/clock.h"
#include "runtime/log.h"
#include "runtime/owners.h"

#include <cerrno>
#include <chrono>

using namespace std::chrono_literals;

namespace {

using kvo_hws::debugValues;
using kvo_hws::Lock;
using kvo_hws::shared;

constexpr uint64_t kStopTime = 6000;  // milliseconds
constexpr auto kSettleTime = 1s;

/// Only one start or clean-up runs at a time. Not locked while the host's callback runs.
pthread_mutex_t lifecycle = PTHREAD_MUTEX_INITIALIZER;

bool isRunning() noexcept { return shared(gEmbKvoInst->running).load() == 1; }

/// True if the agent is running, or has ended but was not cleaned up.
bool isInUse() noexcept { return shared(gEmbKvoInst->running).load() != 0 || shared(gCmdCallback).load() != nullptr; }

int start(const char *params, void **instanceOut, EmbCmdCallback callback) noexcept
{
    if (!kvo_hws::agent::readParameters(params, *gEmbKvoInst)) {
        SendDLLDebugMessage("KVO_HWS DLL - parseParameter - obligatory parameter missed");
        return KVO_HWS_MISSING_PARAMETER;
    }
    shared(gCmdCallback).store(callback);
    shared(protocolNegotiated).store(0);
    ++kvo_hws::agent::starts;
    shared(gEmbKvoInst->stop).store(0);
    // The thread sets this too, but a clean-up that follows at once must already wait for the thread.
    shared(gEmbKvoInst->running).store(1);
    if (kvo_hws_CreateThread(embHwsClientThread, gEmbKvoInst) != 1) {
        debugValues("KVO_HWS DLL - KVO_HWS_startupEmbHwsClient - pthread_create fails %d", errno);
        shared(gEmbKvoInst->running).store(0);
        return KVO_HWS_FAILED;
    }
    *instanceOut = gEmbKvoInst;
    return KVO_HWS_OK;
}

/// The result code if a clean-up must be rejected; otherwise 1.
int32_t refusal(const void *instance) noexcept
{
    constexpr const char *kLabel = "KVO_HWS DLL - KVO_HWS_cleanupEmbHwsClient";
    if (shared(gCmdCallback).load() == nullptr) {
        kvo_hws::debugMessage(kLabel, "no previous startup");
        return KVO_HWS_NULL_POINTER;
    }
    if (instance == nullptr) {
        kvo_hws::debugMessage(kLabel, "instance data is NULL");
        return KVO_HWS_NULL_POINTER;
    }
    if (instance != gEmbKvoInst) {
        kvo_hws::debugMessage(kLabel, "instance data is invalid");
        return KVO_HWS_INVALID_INSTANCE;
    }
    return KVO_HWS_OK;
}

/// Makes the agent end even if no thread waits for it.
void abandon() noexcept { kvo_hws::agent::abandoned.store(kvo_hws::agent::starts.load()); }

/// For a clean-up on the agent's own thread: the agent ends when the callback returns.
int32_t endWithoutWaiting() noexcept
{
    abandon();
    shared(protocolNegotiated).store(0);
    shared(gCmdCallback).store(nullptr);
    return KVO_HWS_FAILED;
}

/// Waits for the thread's end. Returns false if it is still running.
bool awaitEnd() noexcept
{
    const uint64_t deadline = GetTickCount64() + kStopTime;
    while (isRunning() && GetTickCount64() < deadline) {
        kvo_hws::pause(kvo_hws::agent::kStopPeriod);
    }
    return !isRunning();
}

}  // namespace

int KVO_HWS_startupEmbHwsClient(const char *params, void **instanceOut, EmbCmdCallback callback) noexcept
{
    const auto refused = [] {
        SendDLLDebugMessage("KVO_HWS DLL - KVO_HWS_startupEmbHwsClient - one instance of embedded kvo is already running!");
        return KVO_HWS_ALREADY_RUNNING;
    };
    // Checked before the lock too: a callback that starts an agent must not wait for a clean-up that waits for that callback.
    if (isInUse()) {
        return refused();
    }
    const Lock lock(lifecycle);
    if (isInUse()) {
        return refused();
    }
    if (instanceOut == nullptr || callback == nullptr || params == nullptr) {
        SendDLLDebugMessage("KVO_HWS DLL - KVO_HWS_startupEmbHwsClient - null pointer received!");
        return KVO_HWS_NULL_POINTER;
    }
    return start(params, instanceOut, callback);
}

int KVO_HWS_cleanupEmbHwsClient(void *instance) noexcept
{
    if (kvo_hws::agent::isConnectionThread()) {
        const int32_t refused = refusal(instance);
        return refused != KVO_HWS_OK ? refused : endWithoutWaiting();
    }
    const kvo_hws::NoCancellation wholeWait;
    const Lock lock(lifecycle);
    if (const int32_t refused = refusal(instance); refused != KVO_HWS_OK) {
        return refused;
    }
    shared(gEmbKvoInst->stop).store(1);
    shared(protocolNegotiated).store(0);
    const bool ended = awaitEnd();
    if (!ended) {
        abandon();  // a call still blocks the agent, which ends when that call returns
    }
    shared(gEmbKvoInst->stop).store(0);
    shared(gCmdCallback).store(nullptr);
    kvo_hws::pause(kSettleTime);
    shared(gFocusKvoIp).store(0);
    return ended ? KVO_HWS_OK : KVO_HWS_FAILED;
}

int KVO_HWS_sendEmbHwsEvent(void *instance, const char *text) noexcept
{
    constexpr const char *kLabel = "KVO_HWS DLL - KVO_HWS_sendEmbHwsEvent";
    if (instance == nullptr || text == nullptr) {
        kvo_hws::debugMessage(kLabel, instance == nullptr ? "instance data is NULL" : "null pointer received!");
        return KVO_HWS_NULL_POINTER;
    }
    if (instance != gEmbKvoInst) {
        kvo_hws::debugMessage(kLabel, "instance data is invalid");
        return KVO_HWS_INVALID_INSTANCE;
    }
    return kvo_hws::agent::pushIndication(gEmbKvoInst->session, text);
}
