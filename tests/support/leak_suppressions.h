// Configuration names are not leaks: when the file is read again, the library cannot know whether a replaced name is still
// in use.
#pragma once

/// Read by the leak checker of the address sanitizer only.
extern "C" inline __attribute__((used, visibility("default"))) const char *__lsan_default_suppressions()
{
    return "leak:read_str\nleak:hostName\n";
}
