// The library reports through syslog. Here its calls end on standard error instead, where whoever runs kvoctl looks, and do not
// fill the system's log with a person's experiments. The library decides what passes: only errors, or everything with --debug.
#include "display_text.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <syslog.h>

namespace {

std::string identity = "kvoctl";

void print(const char *format, va_list arguments)
{
    char *formatted = nullptr;
    if (vasprintf(&formatted, format, arguments) < 0) {
        return;
    }
    const std::unique_ptr<char, decltype(&std::free)> text(formatted, &std::free);
    std::fprintf(stderr, "%s: %s\n", identity.c_str(), kvoctl::displayText(text.get()).text.c_str());
}

}  // namespace

// In place of the C library's: the dynamic linker binds the library's calls to the program's own definitions.
extern "C" {

void openlog(const char *ident, int /*option*/, int /*facility*/) { identity = ident; }

void closelog() { identity = "kvoctl"; }

void vsyslog(int /*priority*/, const char *format, va_list arguments) { print(format, arguments); }

void syslog(int /*priority*/, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    print(format, arguments);
    va_end(arguments);
}

// What the two above become in fortified builds.
void __vsyslog_chk(int /*priority*/, int /*flag*/, const char *format, va_list arguments) { print(format, arguments); }

void __syslog_chk(int /*priority*/, int /*flag*/, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    print(format, arguments);
    va_end(arguments);
}
}
