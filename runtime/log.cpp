// The system log: the debug message channel, and the log that is filtered by priority.
#include "runtime/log.h"

#include "runtime/owners.h"
#include "runtime/shared_word.h"

#include <kvo_hws/runtime.h>

#include <cstdarg>
#include <cstdio>
#include <syslog.h>

int32_t iDebugLevel = 0;
uint32_t uiDebugMessageSysLogActive = 0;

namespace {

std::atomic_ref<int32_t> debugLevel() noexcept { return kvo_hws::shared(iDebugLevel); }
std::atomic_ref<uint32_t> messagesActive() noexcept { return kvo_hws::shared(uiDebugMessageSysLogActive); }

/// Errors (priority 3 and below) always pass; other messages need a debug level above @p threshold.
bool passes(int priority, int32_t threshold) noexcept
{
    return priority <= LOG_ERR || debugLevel().load(std::memory_order_relaxed) > threshold;
}

void write(int priority, const char *format, va_list arguments) noexcept
{
    const kvo_hws::NoCancellation wholeMessage;
    vsyslog(priority, format, arguments);
}

void open(const char *identity) noexcept
{
    const kvo_hws::NoCancellation wholeOpen;
    openlog(identity, 0, 0);
}

}  // namespace

int SendDLLDebugMessage(const char *text) noexcept
{
    if (messagesActive().load(std::memory_order_relaxed) != 0) {
        const kvo_hws::NoCancellation wholeMessage;
        syslog(LOG_INFO, "%s", text);
    }
    return 1;
}

void LOG(int priority, const char *format, ...) noexcept
{
    va_list arguments;
    va_start(arguments, format);
    if (passes(priority, 0)) {
        write(priority, format, arguments);
    }
    va_end(arguments);
}

void DEBUG(int priority, const char *format, ...) noexcept
{
    va_list arguments;
    va_start(arguments, format);
    if (passes(priority, 1)) {
        write(priority, format, arguments);
    }
    va_end(arguments);
}

void SetDebugLevel(int level) noexcept { debugLevel().store(level, std::memory_order_relaxed); }

void GetDebugLevel(int *level) noexcept { *level = debugLevel().load(std::memory_order_relaxed); }

void InitLogMessages() noexcept { open("kvo_hws"); }

void CloseLogMessages() noexcept
{
    const kvo_hws::NoCancellation wholeClose;
    closelog();
}

int32_t KVO_HWS_activateDebugDLL() noexcept
{
    SetDebugLevel(2);
    messagesActive().store(1, std::memory_order_relaxed);
    open("kvo_hws_dll");
    return SendDLLDebugMessage("activate debug mode");
}

int32_t KVO_HWS_deactivateDebugDLL() noexcept
{
    SendDLLDebugMessage("deactivate debug mode");
    CloseLogMessages();
    messagesActive().store(0, std::memory_order_relaxed);
    SetDebugLevel(0);
    return 1;
}

namespace kvo_hws {

void debugMessage(const char *label, const char *reason, const char *detail) noexcept
{
    debugValues("%s - %s%s", label, reason, detail);
}

void logAlways(int priority, const char *format, ...) noexcept
{
    va_list arguments;
    va_start(arguments, format);
    write(priority, format, arguments);
    va_end(arguments);
}

void debugValues(const char *format, ...) noexcept
{
    if (messagesActive().load(std::memory_order_relaxed) == 0) {
        return;
    }
    char message[256];  // log readers rely on the limit of 255 characters
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(message, sizeof message, format, arguments);
    va_end(arguments);
    SendDLLDebugMessage(message);
}

}  // namespace kvo_hws
