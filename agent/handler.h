// The two names of a handler. Hosts know it as handle_x, and a host that has a function handle_x of its own takes the place of
// that name; the agent calls it by a hidden name of its own.
#pragma once

#include <kvo_hws/agent.h>

/// The hidden name of the handler whose exported name is @p name.
#define KVO_OWN(name) own_##name

#define KVO_DECLARE_OWN(name)                                                                                                  \
    extern "C" __attribute__((visibility("hidden"))) void KVO_OWN(name)(HmiSession * session, const char *tag,                 \
                                                                        char *argument) noexcept

/// A further exported name for the handler @p other of the same source.
#define KVO_HANDLER_ALIAS(name, other)                                                                                         \
    KVO_DECLARE_OWN(name) __attribute__((alias("own_" #other)));                                                               \
    void name(HmiSession *session, const char *tag, char *argument) noexcept __attribute__((alias("own_" #other)))

/// Begins the definition of a handler; it has session, tag and argument.
#define KVO_HANDLER(name)                                                                                                      \
    KVO_DECLARE_OWN(name);                                                                                                     \
    void name(HmiSession *session, const char *tag, char *argument) noexcept __attribute__((alias("own_" #name)));             \
    void KVO_OWN(name)([[maybe_unused]] HmiSession * session, [[maybe_unused]] const char *tag,                                \
                       [[maybe_unused]] char *argument) noexcept
