// Compares an exchange with the user's values. Stations are found where docs/command-protocol.md puts them in a request.
#include "kvoctl/trace/filter.h"

#include "common/dotted_address.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <string_view>

namespace kvoctl {

namespace {

constexpr std::size_t kDigits = 8;
constexpr std::size_t kLongestName = 15;  // the kernel cuts the name of a process
constexpr std::string_view kByName = "getExDescByName";
constexpr std::string_view kStationFirst = "setStatusline";

std::optional<uint32_t> hexadecimal(std::string_view text)
{
    uint32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
    return text.size() == kDigits && error == std::errc{} && end == text.data() + text.size() ? std::optional(value)
                                                                                              : std::nullopt;
}

uint32_t reversed(uint32_t address) { return __builtin_bswap32(address); }

/// The address in a request of the command socket. In some requests, the last number is not an address.
std::optional<uint32_t> addressIn(const std::string &command, std::string_view request)
{
    static constexpr std::array kWithout{std::string_view("getIPbyMCPAddress"),
                                         std::string_view("getIPbyDCKAddress"),
                                         std::string_view("getIPbyKVOIndex"),
                                         std::string_view("getClientList"),
                                         std::string_view("getDLV2"),
                                         std::string_view("getDL_ExV2"),
                                         kByName};
    if (std::find(kWithout.begin(), kWithout.end(), command) != kWithout.end() || request.size() <= command.size()) {
        return std::nullopt;
    }
    const std::string_view arguments = request.substr(command.size() + 1);
    if (command == kStationFirst) {
        return hexadecimal(arguments.substr(0, arguments.find(',')));
    }
    const std::size_t blank = arguments.rfind(' ');
    return hexadecimal(blank == std::string_view::npos ? arguments : arguments.substr(blank + 1));
}

bool concernsInRequest(const TracedStation &station, const Entry &entry)
{
    const std::string command = commandOf(entry);
    if (command == kByName) {
        return !station.name.empty() && entry.request.size() > command.size() &&
               entry.request.substr(command.size() + 1) == station.name;
    }
    const std::optional<uint32_t> address = addressIn(command, entry.request);
    return address && (*address == station.address || *address == reversed(station.address));
}

/// The text between the first @p separator and the next one.
std::string secondField(const std::string &text, char separator)
{
    const std::size_t begin = text.find(separator);
    return begin == std::string::npos ? "" : text.substr(begin + 1, text.find(separator, begin + 1) - begin - 1);
}

bool concerns(const TracedStation &station, const Entry &entry)
{
    switch (entry.kind) {
    case Kind::ask: return concernsInRequest(station, entry);
    case Kind::usb: return secondField(entry.request, '*') == tools::dotted(station.address);
    case Kind::event: return secondField(entry.request, ',') == tools::dotted(station.address);
    }
    return false;
}

bool isProgram(const std::string &wanted, const Peer &peer)
{
    return (!peer.name.empty() && peer.name == wanted.substr(0, kLongestName)) ||
           (peer.pid != 0 && std::to_string(peer.pid) == wanted);
}

template <class Values, class Matches>
bool anyOrEmpty(const Values &values, Matches matches)
{
    return values.empty() || std::any_of(values.begin(), values.end(), matches);
}

}  // namespace

bool Filter::matches(const Entry &entry) const
{
    return (!failures || isFailure(entry.outcome)) &&
           anyOrEmpty(programs, [&](const std::string &program) { return isProgram(program, entry.peer); }) &&
           anyOrEmpty(commands, [&](const std::string &command) { return command == commandOf(entry); }) &&
           anyOrEmpty(stations, [&](const TracedStation &station) { return concerns(station, entry); });
}

}  // namespace kvoctl
