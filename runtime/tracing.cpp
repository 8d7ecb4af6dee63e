// Allocation of zeroed memory, and the traced allocators with their trace file.
#include <kvo_hws/runtime.h>

#include "runtime/owners.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr const char *kTraceFile = "/user/traceIt.log";
constexpr mode_t kTraceMode = 0666;

/// Large enough for the longest stamp: six numbers of up to 11 characters, and the separators.
using Stamp = char[80];

std::size_t writeStamp(Stamp &stamp) noexcept
{
    const time_t now = time(nullptr);
    tm local = {};
    localtime_r(&now, &local);
    // The month counts from 0 and the year from 1900, as in struct tm: the readers of these files correct both.
    return static_cast<std::size_t>(std::snprintf(stamp, sizeof stamp, "%02d.%02d.%04d/%02d:%02d:%02d   ", local.tm_mday,
                                                  local.tm_mon, local.tm_year, local.tm_hour, local.tm_min, local.tm_sec));
}

/// Stamp, text and line feed; null if memory runs out.
kvo_hws::HeapText traceLine(std::size_t &length, const char *format, va_list arguments) noexcept
{
    Stamp stamp;
    const std::size_t stampLength = writeStamp(stamp);
    va_list again;
    va_copy(again, arguments);
    const int textLength = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (textLength < 0) {
        return nullptr;
    }
    length = stampLength + static_cast<std::size_t>(textLength) + 1;
    kvo_hws::HeapText line(static_cast<char *>(std::malloc(length + 1)));
    if (line != nullptr) {
        std::memcpy(line.get(), stamp, stampLength);
        std::vsnprintf(line.get() + stampLength, static_cast<std::size_t>(textLength) + 1, format, arguments);
        line.get()[length - 1] = '\n';
    }
    return line;
}

/// Ignores failures, and preserves errno for the traced call.
void trace(const char *format, va_list arguments) noexcept
{
    const int error = errno;
    const kvo_hws::NoCancellation wholeLine;
    const kvo_hws::Descriptor file(open(kTraceFile, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, kTraceMode));
    if (file.valid()) {
        std::size_t length = 0;
        if (const kvo_hws::HeapText line = traceLine(length, format, arguments)) {
            [[maybe_unused]] const ssize_t written = write(file.get(), line.get(), length);
        }
    }
    errno = error;
}

}  // namespace

void *xmalloc(unsigned size) noexcept { return std::calloc(size, 1); }

void traceIt(const char *format, ...) noexcept
{
    va_list arguments;
    va_start(arguments, format);
    trace(format, arguments);
    va_end(arguments);
}

void *traceXmalloc(unsigned size, const char *file, unsigned long line) noexcept
{
    void *const block = std::calloc(size, 1);
    traceIt("%15s#%4lu malloc(%u) returns %p", file, line, size, block);
    return block;
}

void *traceRealloc(void *old, unsigned size, const char *file, unsigned long line) noexcept
{
    char before[32];  // the pointer must not be used after realloc
    std::snprintf(before, sizeof before, "%p", old);
    void *const block = std::realloc(old, size);
    traceIt("%15s#%4lu realloc(%s, %u) returns %p", file, line, before, size, block);
    return block;
}

void traceFree(void *block, const char *file, unsigned long line) noexcept
{
    traceIt("%15s#%4lu free(%p)", file, line, block);
    std::free(block);
}
