// What reaches kvosim besides requests: datagrams of the USB lock and the lines of agents. Each is read a second time, plainly.
#pragma once

#include "support.h"

#include "kvosim/commands/commands.h"
#include "kvosim/remote/agent_lines.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <strings.h>
#include <vector>

namespace fuzz {

// ---- Datagrams ----

struct UsbLock {
    uint32_t station;  ///< 0 for all
    std::string numbers;
};

/// A number with 32 bits, signed or not.
inline std::optional<std::string> plainLockNumber(const std::string &text)
{
    char *end = nullptr;
    const long long value = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || std::strspn(text.c_str(), "-0123456789") != text.size() || *end != '\0' || value < INT32_MIN ||
        value > UINT32_MAX) {
        return std::nullopt;
    }
    return std::to_string(static_cast<uint32_t>(value));
}

/// setUsbLock="<number>:<number>" <address> and a line feed. A zero ends the address, as it ends every C text.
inline std::optional<UsbLock> plainUsbLock(const std::string &datagram)
{
    const std::string beginning = "setUsbLock=\"";
    const std::size_t colon = datagram.find(':');
    const std::size_t quote = datagram.find("\" ", beginning.size());
    if (!datagram.starts_with(beginning) || datagram.back() != '\n' || quote == datagram.npos || colon > quote) {
        return std::nullopt;
    }
    const auto first = plainLockNumber(datagram.substr(beginning.size(), colon - beginning.size()));
    const auto second = plainLockNumber(datagram.substr(colon + 1, quote - colon - 1));
    const std::string host = datagram.substr(quote + 2, datagram.size() - quote - 3);
    in_addr address{};
    if (!first || !second || inet_pton(AF_INET, host.c_str(), &address) != 1) {
        return std::nullopt;
    }
    return UsbLock{ntohl(address.s_addr), *first + ':' + *second};
}

struct LockOfStation {
    const char *request;
    uint32_t address;
    uint32_t lowestByteFirst;  ///< as some clients send it
    std::string lock = "usb-lock=0:0";
};

/// @param context  its plant has the two stations 10.0.0.5 and 10.0.0.6, of which none has a lock
inline void expectPlainUsbLocks(kvosim::ServiceContext &context, const std::vector<std::string> &datagrams)
{
    LockOfStation stations[] = {{"getUsbLock=0A000005", 0x0A000005, 0x0500000A},
                                {"getUsbLock=0A000006", 0x0A000006, 0x0600000A}};
    for (const std::string &datagram : datagrams) {
        const auto lock = plainUsbLock(datagram);
        bool wanted = false;
        for (LockOfStation &station : stations) {
            if (lock && (lock->station == 0 || lock->station == station.address || lock->station == station.lowestByteFirst)) {
                station.lock = "usb-lock=" + lock->numbers;
                wanted = true;
            }
        }
        if (kvosim::takeUsbLock(context.plant, ExactBytes(datagram).view()) != wanted) {
            fault("\"%s\" is taken by %s alone", datagram.c_str(), wanted ? "a plain reading" : "it");
        }
        for (const LockOfStation &station : stations) {
            if (const std::string got = kvosim::answer(context, station.request); got != station.lock) {
                fault("\"%s\" makes it \"%s\", by a plain reading \"%s\"", datagram.c_str(), got.c_str(), station.lock.c_str());
            }
        }
    }
}

// ---- Lines of agents ----

/// A line, with a line feed where it came with its end.
using PlainLines = std::vector<std::string>;

/// @param unended  a line that may come without an end, or nothing
/// @param text     is left with what is not complete
inline PlainLines plainLines(std::string &text, const std::string &unended)
{
    PlainLines lines;
    for (;;) {
        const std::size_t end = text.find('\n');
        std::string line = text.substr(0, end);
        const bool mayBeUnended = !unended.empty() && text.starts_with(unended);
        if (mayBeUnended && line != unended && line != unended + '\r') {
            lines.push_back(unended);
            text.erase(0, unended.size());
            continue;
        }
        if (end == text.npos) {
            return lines;
        }
        if (line.ends_with('\r')) {
            line.pop_back();
        }
        lines.push_back(line + '\n');
        text.erase(0, end + 1);
    }
}

inline std::string plainTag(const std::string &line)
{
    return std::strspn(line.c_str(), "0123456789") == 3 && line[3] == ':' ? line.substr(0, 4) : "";
}

inline std::string plainIndication(const std::string &line)
{
    const bool numbered = line.starts_with('I') && std::strspn(line.c_str() + 1, "0123456789") == 2 && line[3] == ':';
    return numbered ? line.substr(0, 4) : "";
}

inline bool plainlyUnended(const std::string &request)
{
    constexpr const char *kMetrics[] = {"get-softkey-type", "get-keyboard-caps", "get-hardware-caps", "get-panel-oem-layout",
                                        "get-panel-rotation"};
    return std::strlen(request.c_str()) == request.size() &&
           std::any_of(std::begin(kMetrics), std::end(kMetrics),
                       [&](auto name) { return strcasecmp(name, request.c_str()) == 0; });
}

inline void expectPlainParts(const std::string &line)
{
    const ExactBytes bytes(line);
    if (kvosim::tagOf(bytes.view()) != plainTag(line) || kvosim::indicationOf(bytes.view()) != plainIndication(line)) {
        fault("\"%s\": its tag or number is another one by a plain reading", line.c_str());
    }
    if (kvosim::mayAnswerUnended(bytes.view()) != plainlyUnended(line)) {
        fault("\"%s\" may be answered without an end by one reading alone", line.c_str());
    }
}

/// @param pieces  as they come in
inline void expectPlainAgentLines(const std::vector<std::string> &pieces, const std::string &unended)
{
    std::string text;
    PlainLines got;
    kvosim::AgentLines lines;
    for (const std::string &piece : pieces) {
        text += piece;
        lines.add(ExactBytes(piece).view());
        while (const auto line = lines.next(unended)) {
            got.push_back(line->text + (line->ended ? "\n" : ""));
            expectPlainParts(line->text);
        }
    }
    if (got != plainLines(text, unended)) {
        fault("of an agent's %zu pieces, %zu lines differ from a plain reading's", pieces.size(), got.size());
    }
    const bool wanted = text.substr(plainTag(text).size()) == "none";
    if (lines.holdsNone() != wanted || (wanted && lines.takeNone().text != text)) {
        fault("a \"none\" is left by %s alone", wanted ? "a plain reading" : "the lines");
    }
    if (!wanted && lines.overlong() != (text.size() > kvosim::kLongestAgentLine)) {
        fault("%zu bytes of a line are left, which counts as %sone that is too long", text.size(),
              lines.overlong() ? "" : "not ");
    }
}

}  // namespace fuzz
