#include "agent/call.h"

#include <cstdarg>
#include <cstdio>

void kvo_hws::agent::Call::value(const char *format, ...) const noexcept
{
    char line[128];  // the longest line contains a text of 8 characters, or five numbers
    va_list values;
    va_start(values, format);
    std::vsnprintf(line, sizeof line, format, values);
    va_end(values);
    text(line);
}
