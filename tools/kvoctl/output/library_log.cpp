// The library reports through syslog. Here its calls end on standard error instead, where whoever runs kvoctl looks, and do not
// fill the system's log with a person's experiments. Only errors pass, or everything with --debug.
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

/// No object: threads of the library may still report while the process ends.
std::atomic<const char *> identity{kOwnIdentity};

/// The library itself lets some messages pass that are none of a person's concern, as that its server has ended.
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

// In place of the C library's: the dynamic linker binds the library's calls to the program's own definitions.
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

// What the two above become in fortified builds.
void __vsyslog_chk(int priority, int /*flag*/, const char *format, va_list arguments) { print(priority, format, arguments); }

void __syslog_chk(int priority, int /*flag*/, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    print(priority, format, arguments);
    va_end(arguments);
}
}
