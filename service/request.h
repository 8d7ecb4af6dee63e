// The frame that every request is written in: check, format, send, classify, parse, free. A function names its steps in the
// order in which they happen; once a step has settled the result, the ones behind it do nothing.
//
//     return Request("stop viewer").send("stopViewer=%08X", station).on("ok", 1).on("not running", 0).result();
#pragma once

#include <kvo_hws/result.h>
#include <kvo_hws/service.h>

#include "runtime/owners.h"

#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <type_traits>

namespace kvo_hws {

/// What a reader of a reply's value found: the result code, and the reason to log where there is one.
struct Answer {
    int32_t code;
    const char *reason = nullptr;
};

/// The label of a request that logs nothing.
inline constexpr const char *kSilent = nullptr;

class Request {
public:
    /// @param label   starts every message; kSilent for a request that logs nothing
    /// @param suffix  ends the frame's own reasons, for functions that tell two exchanges apart by it
    explicit Request(const char *label, const char *suffix = "") noexcept : label_(label), suffix_(suffix) {}

    // ---- Before anything is sent ----

    /// Pointers that must not be null.
    template <class... Pointers>
    Request &needs(const Pointers *...pointers) noexcept
    {
        return refuse(((pointers == nullptr) || ...), KVO_HWS_NULL_POINTER, {"null pointer received"});
    }

    /// Refuses an argument, with the messages that tell why.
    Request &refuse(bool wrong, int32_t code, std::initializer_list<const char *> reasons) noexcept;

    /// What starts the messages from here on.
    Request &label(const char *label) noexcept
    {
        label_ = label;
        return *this;
    }

    /// Whatever keeps the request from being sent is this code, instead of the channel's own.
    Request &sendFailureIs(int32_t code) noexcept;

    /// Runs @p make when no argument was refused.
    template <class Make>
    Request &prepare(Make make) noexcept
    {
        if (!settled_) {
            make();
        }
        return *this;
    }

    /// The result of a function that asks nobody.
    template <class Tell>
    Request &answer(Tell tell) noexcept
    {
        if (!settled_) {
            settle(tell());
        }
        return *this;
    }

    // ---- The exchange ----

    /// Formats the command and exchanges it. What does not fit in a command's 1024 bytes is cut.
    Request &send(const char *format, ...) noexcept __attribute__((format(printf, 2, 3)));

    // ---- Claims on the reply, first come first served ----

    /// A reply that is exactly this text.
    Request &on(std::string_view text, int32_t code, const char *reason = nullptr) noexcept;

    /// The reply "failed", ahead of a claim that would take it for something else.
    Request &onFailed() noexcept;

    /// A reply that begins with @p key: @p read is given the rest, as a C text, and returns an Answer.
    template <class Read>
    Request &value(std::string_view key, Read read) noexcept
    {
        if (awaitsClaim() && text().starts_with(key)) {
            settle(read(reply() + key.size()));
        }
        return *this;
    }

    /// A reply that is exactly this text and stands for a value.
    template <class Value>
    Request &stores(std::string_view text, Value *out, std::type_identity_t<Value> value) noexcept
    {
        if (awaitsClaim() && this->text() == text) {
            *out = value;
            settle({KVO_HWS_OK});
        }
        return *this;
    }

    /// Any reply at all.
    template <class Read>
    Request &whole(Read read) noexcept
    {
        return value("", read);
    }

    /// Whatever is left.
    Request &otherwise(int32_t code, const char *reason = nullptr) noexcept;

    // ---- Departures ----

    /// A reply that holds no text at all.
    Request &onNoText(int32_t code, const char *reason = nullptr) noexcept;

    /// A finished message that is logged whenever a reply has come.
    Request &stray(const char *message) noexcept;

    [[nodiscard]] bool settled() const noexcept { return settled_; }

    /// The result. A reply that nobody claimed is "failed" or unknown, and -1 either way.
    [[nodiscard]] int32_t result() noexcept;

private:
    [[nodiscard]] bool awaitsClaim() const noexcept { return !settled_ && reply_ != nullptr; }
    [[nodiscard]] const char *reply() const noexcept { return reply_.get(); }
    [[nodiscard]] std::string_view text() const noexcept { return reply_.get(); }
    void settle(Answer answer) noexcept;
    void log(const char *reason, const char *suffix) const noexcept;

    const char *label_;
    const char *suffix_;
    HeapText reply_;
    int32_t code_ = KVO_HWS_FAILED;
    int32_t sendFailure_ = 0;  ///< 0: the channel's own code
    bool settled_ = false;
};

}  // namespace kvo_hws
