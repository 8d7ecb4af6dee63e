// Checks the texts of events and publishes them.
#include "kvosim/control/event_control.h"

#include "kvosim/control/control_request.h"

namespace kvosim {

namespace {

constexpr std::size_t kLongestEventName = 19;
constexpr const char *kForm = "; write \"name, data\" with a name of 1 to 19 bytes, or send it unchanged with --as-is";

/// Refuses texts that cannot be sent as one line, even with --as-is.
void checkLine(std::string_view text)
{
    if (text.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos) {
        throw tools::Refused(
            "the event contains a line end or a zero byte, which ends it for receivers; send each line separately");
    }
    if (text.size() > kLongestEvent) {
        throw tools::Refused("the event has " + std::to_string(text.size()) + " bytes; write at most " +
                             std::to_string(kLongestEvent));
    }
}

}  // namespace

std::string eventMistake(std::string_view text)
{
    if (text == kAlive) {
        return {};
    }
    const std::size_t comma = text.find(',');
    if (comma == std::string_view::npos) {
        return std::string("the event has no comma, so receivers drop it") + kForm;
    }
    if (comma == 0 || comma > kLongestEventName) {
        return "the event's name has " + std::to_string(comma) + " bytes, so receivers " +
               (comma == 0 ? "cannot identify it" : "drop it") + kForm;
    }
    if (text.substr(comma + 1, 1) != " ") {
        return std::string("no space follows the event's comma, so receivers lose one character of the data") + kForm;
    }
    return {};
}

std::optional<Reply> answerEventControl(EmbeddedEvents &events, const tools::Json &request)
{
    if (request.at("do") != "event") {
        return std::nullopt;
    }
    const std::string text = request.at("text").get<std::string>();
    checkLine(text);
    const std::string mistake = eventMistake(text);
    if (!mistake.empty() && !request.value("as_is", false)) {
        throw tools::Refused(mistake);
    }
    return lineOf({{"listeners", events.publish(text)}});
}

}  // namespace kvosim
