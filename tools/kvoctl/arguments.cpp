// Reads shared arguments, and refuses what the service could not take.
#include "arguments.h"

#include <algorithm>
#include <charconv>
#include <vector>

namespace kvoctl {

namespace {

/// The parser's own reading would take "0x10", "-1" and "1e3" in some forms and wrap in others.
std::string checkSeconds(const std::string &text)
{
    uint32_t seconds = 0;
    const char *const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, seconds);
    return parsed.ec == std::errc{} && parsed.ptr == end ? "" : "\"" + text + "\" is no number of whole seconds";
}

}  // namespace

CLI::Validator oneOf(std::initializer_list<std::pair<std::string, unsigned>> words)
{
    const auto replace = [table = std::vector(words)](std::string &text) -> std::string {
        std::string known;
        for (const auto &[word, number] : table) {
            if (text == word) {
                text = std::to_string(number);
                return {};
            }
            known += (known.empty() ? "" : ", ") + word;
        }
        return "\"" + text + "\" is none of " + known;
    };
    return {replace, ""};
}

CLI::Option *addFlag(CLI::App &command, const std::string &name, const std::string &help)
{
    return command.add_flag(name, help);
}

std::shared_ptr<unsigned> addOnOff(CLI::App &command)
{
    auto state = std::make_shared<unsigned>();
    command.add_option("STATE", *state, "on or off")->required()->transform(oneOf({{"on", 1}, {"off", 0}}))->type_name("");
    return state;
}

Seconds addSeconds(CLI::App &command, const std::string &name, const std::string &help, uint32_t otherwise)
{
    auto seconds = std::make_shared<uint32_t>(otherwise);
    auto *option = command.add_option(name, *seconds, help)->check({checkSeconds, ""})->type_name("SECONDS");
    return {option, seconds};
}

CLI::Validator oneLine()
{
    const auto refuse = [](const std::string &text) -> std::string {
        const bool controls = std::any_of(text.begin(), text.end(), [](char byte) {
            const auto value = static_cast<unsigned char>(byte);
            return value < 0x20 || value == 0x7F;
        });
        return controls ? "\"" + text + "\" holds a control character" : "";
    };
    return {refuse, ""};
}

}  // namespace kvoctl
