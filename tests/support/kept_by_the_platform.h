// What the platform's configuration reader allocates and forgets counts as no leak: it can not know whether a text that it
// replaces is still held.
#pragma once

/// Read by the leak checker of the address sanitizer; nobody else looks for it.
extern "C" inline __attribute__((used, visibility("default"))) const char *__lsan_default_suppressions()
{
    return "leak:read_str\n";
}
