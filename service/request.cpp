#include "service/request.h"

#include "runtime/log.h"

#include <cstdarg>
#include <cstdio>

namespace kvo_hws {

namespace {

constexpr std::size_t kCommandSize = 1024;
constexpr const char *kCanNotSend = "can not send request";
constexpr const char *kRefused = "error sending request";
constexpr const char *kUnknown = "unknown error sending request";

}  // namespace

Request &Request::refuse(bool wrong, int32_t code, std::initializer_list<const char *> reasons) noexcept
{
    if (settled_ || !wrong) {
        return *this;
    }
    for (const char *reason : reasons) {
        log(reason, "");
    }
    settle({code});
    return *this;
}

Request &Request::sendFailureIs(int32_t code) noexcept
{
    sendFailure_ = code;
    return *this;
}

Request &Request::send(const char *format, ...) noexcept
{
    if (settled_) {
        return *this;
    }
    char command[kCommandSize];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(command, sizeof command, format, arguments);
    va_end(arguments);

    DynBuffer reply{nullptr, 0};
    const int32_t sent = SendCommand2ServiceDyn(command, &reply);
    reply_.reset(reply.pcData);
    if (sent != KVO_HWS_OK) {
        log(kCanNotSend, suffix_);
        settle({sendFailure_ != 0 ? sendFailure_ : sent});
    }
    return *this;
}

Request &Request::on(std::string_view text, int32_t code, const char *reason) noexcept
{
    if (hasUnmatchedReply() && this->text() == text) {
        settle({code, reason});
    }
    return *this;
}

Request &Request::onFailed() noexcept
{
    if (hasUnmatchedReply() && text() == "failed") {
        log(kRefused, suffix_);
        settle({KVO_HWS_FAILED});
    }
    return *this;
}

Request &Request::otherwise(int32_t code, const char *reason) noexcept
{
    if (hasUnmatchedReply()) {
        settle({code, reason});
    }
    return *this;
}

Request &Request::onNoText(int32_t code, const char *reason) noexcept
{
    if (!settled_ && reply_ == nullptr) {
        settle({code, reason});
    }
    return *this;
}

Request &Request::logOnReply(const char *message) noexcept
{
    if (hasUnmatchedReply()) {
        SendDLLDebugMessage(message);
    }
    return *this;
}

int32_t Request::result() noexcept
{
    onFailed();
    if (hasUnmatchedReply()) {
        log(kUnknown, suffix_);
    }
    return code_;
}

void Request::settle(Answer answer) noexcept
{
    if (answer.reason != nullptr) {
        log(answer.reason, "");
    }
    code_ = answer.code;
    settled_ = true;
}

void Request::log(const char *reason, const char *suffix) const noexcept
{
    if (label_ != nullptr) {
        debugMessage(label_, reason, suffix);
    }
}

}  // namespace kvo_hws
