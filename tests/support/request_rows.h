// The rows that every request in the common frame has, so that a test states only what is its own.
#pragma once

#include "support/request_table.h"

#include <cstdint>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace support {

inline constexpr uint32_t kStation = 0x0A000005;

/// A text buffer that is filled with a pattern, so that what was not stored is seen.
template <std::size_t Size>
class Filled {
public:
    Filled() { std::memset(bytes_, '#', Size); }
    [[nodiscard]] char *bytes() { return bytes_; }

    /// Holds @p text with its terminator and nothing else; null: untouched.
    void expectText(const char *text) const
    {
        const std::size_t used = text == nullptr ? 0 : std::strlen(text) + 1;
        if (text != nullptr) {
            EXPECT_STREQ(bytes_, text);
        }
        expectUntouchedFrom(used);
    }
    /// Holds @p text without a terminator and nothing else.
    void expectBytes(const std::string &text) const
    {
        EXPECT_EQ(std::string(bytes_, text.size()), text);
        expectUntouchedFrom(text.size());
    }

private:
    void expectUntouchedFrom(std::size_t at) const
    {
        EXPECT_EQ(std::string(bytes_ + at, Size - at), std::string(Size - at, '#'));
    }

    char bytes_[Size];
};

/// A number that is filled with a pattern.
template <class Number>
struct Out {
    static constexpr Number kUntouched = static_cast<Number>(0x5A5A5A5A);
    Number value = kUntouched;
};

/// Collects a request's rows. The frame's own are there from the start: no service, a peer that closes, "failed", an unknown
/// reply, an empty line, and "ok" with a trailing blank.
class Rows {
public:
    using Call = std::function<int32_t()>;

    Rows(std::string label, std::string command, Call call)
        : label_(std::move(label)), command_(std::move(command)), call_(std::move(call))
    {
    }

    /// A reply and its result, with the reason that is logged for it, if any.
    Rows &on(const std::string &reply, int32_t result, const std::string &reason = "")
    {
        return claim(reply, result, call_, reason);
    }

    /// A reply that is judged by a call of its own.
    Rows &value(const std::string &reply, int32_t result, Call call, const std::string &reason = "")
    {
        return claim(reply, result, std::move(call), reason);
    }

    /// A further reply that the request does not know.
    Rows &unknown(const std::string &reply)
    {
        unknown_.push_back(reply);
        return *this;
    }

    /// What "failed" comes to where it is not the frame's answer.
    Rows &failedIs(int32_t result, const std::string &reason)
    {
        failed_ = {result, reason};
        return *this;
    }

    /// What an unknown reply comes to where it is not the frame's answer.
    Rows &unknownIs(int32_t result, const std::string &reason)
    {
        unknownAnswer_ = {result, reason};
        return *this;
    }

    /// A call that is refused before anything is sent.
    Rows &refused(Call call, int32_t result, const std::string &reason, const std::string &label = "")
    {
        rows_.push_back({next("refused"), std::move(call), {}, {"asked"}, result, {message(reason, label)}});
        return *this;
    }

    /// A call with a null pointer; @p times where it tries several.
    Rows &nullPointer(Call call, const std::string &label = "", std::size_t times = 1)
    {
        rows_.push_back({next("null_pointer"),
                         std::move(call),
                         {},
                         {"asked"},
                         -7,
                         std::vector<std::string>(times, message("null pointer received", label))});
        return *this;
    }

    /// Another call and the command that it sends, answered "ok".
    Rows &sends(const std::string &command, Call call, const std::string &reply = "ok", int32_t result = 1)
    {
        rows_.push_back({next("sends"), std::move(call), {command}, {reply}, result});
        return *this;
    }

    [[nodiscard]] std::vector<RequestCase> rows() const
    {
        std::vector<RequestCase> all = rows_;
        all.push_back({"no_service", call_, {}, {}, -2, {kNoConnection, message("can not send request")}});
        all.push_back({"failed", call_, {command_}, {"failed"}, failed_.first, messages(failed_.second)});
        std::vector<std::string> unknown = {"", "ok ", "what is it"};
        unknown.insert(unknown.end(), unknown_.begin(), unknown_.end());
        int number = 0;
        for (const std::string &reply : unknown) {
            all.push_back({"unknown_" + std::to_string(++number),
                           call_,
                           {command_},
                           {reply},
                           unknownAnswer_.first,
                           messages(unknownAnswer_.second)});
        }
        all.push_back({.name = "peer_closes",
                       .call = call_,
                       .commands = {command_},
                       .replies = {},
                       .result = -1,
                       .messages = {"command socket - can not read from socket", message("can not send request")},
                       .peerCloses = true});
        return all;
    }

private:
    Rows &claim(const std::string &reply, int32_t result, Call call, const std::string &reason)
    {
        rows_.push_back({next("reply"), std::move(call), {command_}, {reply}, result, messages(reason)});
        return *this;
    }
    [[nodiscard]] std::string next(const std::string &kind) { return kind + "_" + std::to_string(++count_); }
    [[nodiscard]] std::string message(const std::string &reason, const std::string &label = "") const
    {
        return (label.empty() ? label_ : label) + " - " + reason;
    }
    [[nodiscard]] std::vector<std::string> messages(const std::string &reason) const
    {
        return reason.empty() ? std::vector<std::string>{} : std::vector<std::string>{message(reason)};
    }

    std::string label_;
    std::string command_;
    Call call_;
    std::vector<RequestCase> rows_;
    std::vector<std::string> unknown_;
    std::pair<int32_t, std::string> failed_{-1, "error sending request"};
    std::pair<int32_t, std::string> unknownAnswer_{-1, "unknown error sending request"};
    int count_ = 0;
};

/// A call that reads a number, and what it stores; Out::kUntouched where it stores nothing.
template <class Number>
Rows::Call stores(std::function<int32_t(Number *)> read, Number expected)
{
    return [read = std::move(read), expected] {
        Out<Number> out;
        const int32_t result = read(&out.value);
        EXPECT_EQ(out.value, expected);
        return result;
    };
}

template <class Number>
Rows::Call storesNothing(std::function<int32_t(Number *)> read)
{
    return stores<Number>(std::move(read), Out<Number>::kUntouched);
}

}  // namespace support
