#include "support/syslog_capture.h"

#include "support/failing_allocations.h"

#include <kvo_hws/runtime.h>

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <syslog.h>

namespace support {

namespace {

// Never destroyed: threads of the library may still log while the process ends.
std::mutex &lock = *new std::mutex;
std::string &identity = *new std::string;
std::vector<LogLine> &recorded = *new std::vector<LogLine>;
std::function<void()> &whenRecorded = *new std::function<void()>;

void record(int priority, const char *format, va_list arguments)
{
    const WorkingAllocations working;
    char *text = nullptr;
    if (vasprintf(&text, format, arguments) < 0) {
        return;
    }
    const std::lock_guard guard(lock);
    recorded.push_back({identity, priority, text});
    std::free(text);
    if (whenRecorded) {
        whenRecorded();
    }
}

}  // namespace

std::ostream &operator<<(std::ostream &out, const LogLine &line)
{
    return out << '[' << line.identity << ' ' << line.priority << "] " << line.text;
}

SyslogCapture::SyslogCapture(std::function<void()> onLine)
{
    const std::lock_guard guard(lock);
    recorded.clear();
    whenRecorded = std::move(onLine);
}

SyslogCapture::~SyslogCapture()
{
    const std::lock_guard guard(lock);
    whenRecorded = {};
}

std::vector<LogLine> SyslogCapture::lines() const
{
    const std::lock_guard guard(lock);
    return recorded;
}

std::vector<std::string> SyslogCapture::texts() const
{
    std::vector<std::string> texts;
    for (const LogLine &line : lines()) {
        texts.push_back(line.text);
    }
    return texts;
}

MessagesOn::MessagesOn(int level)
{
    SetDebugLevel(level);
    __atomic_store_n(&uiDebugMessageSysLogActive, 1U, __ATOMIC_SEQ_CST);
}

MessagesOn::~MessagesOn()
{
    __atomic_store_n(&uiDebugMessageSysLogActive, 0U, __ATOMIC_SEQ_CST);
    SetDebugLevel(0);
}

}  // namespace support

// Replaces the C library's functions: the dynamic linker binds the library's calls to the program's definitions.
extern "C" {

void openlog(const char *ident, int option, int facility)
{
    const std::lock_guard guard(support::lock);
    support::identity = ident;
    // Unexpected arguments become part of the identity, so every comparison fails.
    if (option != 0 || facility != 0) {
        support::identity += " with options";
    }
}

void closelog()
{
    const std::lock_guard guard(support::lock);
    support::identity.clear();
}

void vsyslog(int priority, const char *format, va_list arguments) { support::record(priority, format, arguments); }

void syslog(int priority, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    support::record(priority, format, arguments);
    va_end(arguments);
}

// The two functions above as fortified builds call them.
void __vsyslog_chk(int priority, int /*flag*/, const char *format, va_list arguments)
{
    support::record(priority, format, arguments);
}

void __syslog_chk(int priority, int /*flag*/, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    support::record(priority, format, arguments);
    va_end(arguments);
}
}
