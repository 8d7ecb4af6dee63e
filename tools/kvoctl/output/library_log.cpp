// The library logs through syslog. These functions write its messages to standard error instead, where the user of kvoctl sees
// them, and keep the user's experiments out of the system log. Only errors pass, or all messages with --debug.
#include "kvoctl/output/display_text.h"

#include <kvo_hws/runtime.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <syslog.h>

namespace {

constexpr const char *kOwnIdentity = "kvoctl";

/// A plain pointer, because threads of the library may still log while the process ends.
std::atomic<const char *> identity{kOwnIdentity};

/// The library also logs some messages without debugging that do not concern the user, such as the end of its server.
bool passes(int priority)
{
    int debugLevel = 0;
    GetDebugLevel(&debugLevel);
    return LOG_PRI(priority) <= LOG_ERR || debugLevel > 0;
}

void print(int priority, const char *format, va_list arguments)
{
    if (!passes(priority)) {
        return;
    }
    char *formatted = nullptr;
    if (vasprintf(&formatted, format, arguments) < 0) {
        return;
    }
    const std::unique_ptr<char, decltype(&std::free)> text(formatted, &std::free);
    std::fprintf(stderr, "%s: %s\n", identity.load(), kvoctl::displayText(text.get()).text.c_str());
}

}  // namespace

// They replace the C library's functions: the dynamic linker binds the library's calls to the program's own definitions.
extern "C" {

void openlog(const char *ident, int /*option*/, int /*facility*/) { identity = ident; }

void closelog() { identity = kOwnIdentity; }

void vsyslog(int priority, const char *format, va_list arguments) { print(priority, format, arguments); }

void syslog(int priority, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    print(priority, format, arguments);
    va_end(arguments);
}

// Fortified builds call these instead of the two above.
void __vsyslog_chk(int priority, int /*flag*/, const char *format, va_list arguments) { print(priority, format, arguments); }

void __syslog_chk(int priority, int /*flag*/, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    print(priority, format, arguments);
    va_end(arguments);
}
}
