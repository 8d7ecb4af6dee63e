#include "agent/parameters.h"

#include "runtime/numbers.h"

#include <arpa/inet.h>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace kvo_hws::agent {

namespace {

constexpr unsigned long kSessions = 10;

/// A value, which ends at the end of its line. The conversions read the original text: the character after the value is not a
/// digit, so no copy is needed.
class Value {
public:
    explicit Value(std::string_view text) noexcept : text_(text) {}

    /// A decimal number; it ends at the first character that is not a digit.
    [[nodiscard]] unsigned long number() const noexcept
    {
        const bool isBlank =
            text_.find_first_not_of(" \t\r\v\f") == std::string_view::npos;  // else strtoul would read the next line
        return isBlank ? 0 : readNumber(text_.data(), 10).value;
    }

    /// A dotted address as inet_aton stores it; 0 for anything else.
    [[nodiscard]] uint32_t address() const noexcept
    {
        in_addr address{};
        return inet_aton(text_.data(), &address) != 0 ? address.s_addr : 0;
    }

private:
    std::string_view text_;
};

template <std::size_t Size>
void store(std::string_view value, char (&field)[Size]) noexcept
{
    field[value.copy(field, Size - 1)] = '\0';
}

struct Parameter {
    std::string_view key;
    void (*set)(EmbKvoInst &instance, std::string_view value) noexcept;
};

template <auto Field>
void setNumber(EmbKvoInst &instance, std::string_view value) noexcept
{
    instance.*Field = static_cast<uint32_t>(Value(value).number());
}

template <auto Field>
void setAddress(EmbKvoInst &instance, std::string_view value) noexcept
{
    instance.*Field = Value(value).address();
}

template <auto Field>
void setText(EmbKvoInst &instance, std::string_view value) noexcept
{
    store(value, instance.*Field);
}

void setSession(EmbKvoInst &instance, std::string_view value) noexcept
{
    instance.remoteSession = static_cast<uint32_t>(Value(value).number() % kSessions);
}

constexpr Parameter kParameters[] = {
    {"focusKvoIp=", setAddress<&EmbKvoInst::focusKvoIp>},
    {"focusKvoName=", setText<&EmbKvoInst::focusKvoName>},
    {"remoteKvoHwsIp=", setAddress<&EmbKvoInst::remoteKvoHwsIp>},
    {"kvoIndex=", setNumber<&EmbKvoInst::kvoIndex>},
    {"mcpFlag=", setNumber<&EmbKvoInst::mcpFlag>},
    {"screenOnFocus=", setText<&EmbKvoInst::screenOnFocus>},
    {"channelOnFocus=", setNumber<&EmbKvoInst::channelOnFocus>},
    {"suspendLock=", setNumber<&EmbKvoInst::suspendLock>},
    {"suspendPrio=", setNumber<&EmbKvoInst::suspendPrio>},
    {"startupActive=", setNumber<&EmbKvoInst::startupActive>},
    {"startupPrio=", setNumber<&EmbKvoInst::startupPrio>},
    {"remoteSession=", setSession},
};

/// Sets the fields between the state words and the session. Other threads may access the state words and the session.
void setDefaults(EmbKvoInst &instance) noexcept
{
    constexpr std::size_t kFirst = offsetof(EmbKvoInst, focusKvoIp);
    std::memset(reinterpret_cast<char *>(&instance) + kFirst, 0, offsetof(EmbKvoInst, session) - kFirst);
    instance.kvoIndex = 1;
    instance.channelOnFocus = 1;
    instance.suspendPrio = 1;
    instance.startupActive = 1;
    instance.startupPrio = 2;
}

void readLine(std::string_view line, EmbKvoInst &instance) noexcept
{
    for (const Parameter &parameter : kParameters) {
        if (line.starts_with(parameter.key)) {
            parameter.set(instance, line.substr(parameter.key.size()));
            return;
        }
    }
}

}  // namespace

bool readParameters(const char *params, EmbKvoInst &instance) noexcept
{
    setDefaults(instance);
    std::string_view text = params;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        readLine(line, instance);
        text.remove_prefix(line.size() < text.size() ? line.size() + 1 : line.size());
    }
    const bool hasFocus = instance.focusKvoIp != 0 || instance.focusKvoName[0] != '\0';
    return hasFocus && instance.remoteKvoHwsIp != 0;
}

}  // namespace kvo_hws::agent
