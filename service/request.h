// The builder that implements every request: check, format, send, classify, parse, free. A function calls the steps in the
// order in which they run. After a step has set the result, the remaining steps do nothing.
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

/// The outcome of reading a reply: the result code, and the reason to log, if any.
struct Answer {
    int32_t code;
    const char *reason = nullptr;
};

/// The label of a request that logs nothing.
inline constexpr const char *kSilent = nullptr;

class Request {
public:
    /// @param label   starts every message; kSilent for a request that logs nothing
    /// @param suffix  ends the builder's own reasons; it distinguishes the two exchanges of a function that has two
    explicit Request(const char *label, const char *suffix = "") noexcept : label_(label), suffix_(suffix) {}

    // ---- Before anything is sent ----

    /// Rejects null pointers.
    template <class... Pointers>
    Request &needs(const Pointers *...pointers) noexcept
    {
        return refuse(((pointers == nullptr) || ...), KVO_HWS_NULL_POINTER, {"null pointer received"});
    }

    /// Rejects an argument and logs the reasons.
    Request &refuse(bool wrong, int32_t code, std::initializer_list<const char *> reasons) noexcept;

    /// Changes the label of the following messages.
    Request &label(const char *label) noexcept
    {
        label_ = label;
        return *this;
    }

    /// Sets the result code for a request that could not be sent, instead of the channel's own code.
    Request &sendFailureIs(int32_t code) noexcept;

    /// Runs @p step if no argument was rejected.
    template <class Step>
    Request &prepare(Step step) noexcept
    {
        if (!settled_) {
            step();
        }
        return *this;
    }

    /// The result of a function that sends no request.
    template <class Compute>
    Request &answer(Compute compute) noexcept
    {
        if (!settled_) {
            settle(compute());
        }
        return *this;
    }

    // ---- The exchange ----

    /// Formats and sends the command, and reads the reply. A command is cut at 1023 bytes.
    Request &send(const char *format, ...) noexcept __attribute__((format(printf, 2, 3)));

    // ---- Matching the reply; the first match sets the result ----

    /// A reply that is exactly this text.
    Request &on(std::string_view text, int32_t code, const char *reason = nullptr) noexcept;

    /// The reply "failed". Call this before a step that also matches "failed".
    Request &onFailed() noexcept;

    /// A reply that begins with @p key. @p read receives the rest as a null-terminated text and returns an Answer.
    template <class Read>
    Request &value(std::string_view key, Read read) noexcept
    {
        if (hasUnmatchedReply() && text().starts_with(key)) {
            settle(read(reply() + key.size()));
        }
        return *this;
    }

    /// A reply that is exactly this text; stores @p value.
    template <class Value>
    Request &stores(std::string_view text, Value *out, std::type_identity_t<Value> value) noexcept
    {
        if (hasUnmatchedReply() && this->text() == text) {
            *out = value;
            settle({KVO_HWS_OK});
        }
        return *this;
    }

    /// Any reply; @p read receives the whole text.
    template <class Read>
    Request &anyReply(Read read) noexcept
    {
        return value("", read);
    }

    /// Any other reply.
    Request &otherwise(int32_t code, const char *reason = nullptr) noexcept;

    // ---- Special cases ----

    /// A reply without a text.
    Request &onNoText(int32_t code, const char *reason = nullptr) noexcept;

    /// Logs a complete message, without the label, if a reply has arrived.
    Request &logOnReply(const char *message) noexcept;

    [[nodiscard]] bool settled() const noexcept { return settled_; }

    /// The result. A reply that no step has matched is "failed" or unknown; the result is -1 in both cases.
    [[nodiscard]] int32_t result() noexcept;

private:
    [[nodiscard]] bool hasUnmatchedReply() const noexcept { return !settled_ && reply_ != nullptr; }
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
