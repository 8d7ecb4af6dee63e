// The two names of a handler. The exported name is handle_x; a host that defines its own function handle_x replaces the
// exported one. The agent calls the handler by a hidden name, which a host cannot replace.
#pragma once

#include <kvo_hws/agent.h>

/// The hidden name of the handler whose exported name is @p name.
#define KVO_OWN(name) own_##name

#define KVO_DECLARE_OWN(name)                                                                                                  \
    extern "C" __attribute__((visibility("hidden"))) void KVO_OWN(name)(HmiSession * session, const char *tag,                 \
                                                                        char *argument) noexcept

/// Another exported name for the handler @p other in the same source file.
#define KVO_HANDLER_ALIAS(name, other)                                                                                         \
    KVO_DECLARE_OWN(name) __attribute__((alias("own_" #other)));                                                               \
    void name(HmiSession *session, const char *tag, char *argument) noexcept __attribute__((alias("own_" #other)))

/// Begins the definition of a handler with the parameters session, tag and argument.
#define KVO_HANDLER(name)                                                                                                      \
    KVO_DECLARE_OWN(name);                                                                                                     \
    void name(HmiSession *session, const char *tag, char *argument) noexcept __attribute__((alias("own_" #name)));             \
    void KVO_OWN(name)([[maybe_unused]] HmiSession * session, [[maybe_unused]] const char *tag,                                \
                       [[maybe_unused]] char *argument) noexcept
