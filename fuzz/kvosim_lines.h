// Input of kvosim other than requests: USB lock datagrams and lines of agents, each compared with a reference implementation.
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

/// A number of 32 bits, signed or unsigned.
inline std::optional<std::string> referenceLockNumber(const std::string &text)
{
    char *end = nullptr;
    const long long value = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || std::strspn(text.c_str(), "-0123456789") != text.size() || *end != '\0' || value < INT32_MIN ||
        value > UINT32_MAX) {
        return std::nullopt;
    }
    return std::to_string(static_cast<uint32_t>(value));
}

/// setUsbLock="<number>:<number>" <address> and a line feed. A zero byte ends the address, as in every C string.
inline std::optional<UsbLock> referenceUsbLock(const std::string &datagram)
{
    const std::string beginning = "setUsbLock=\"";
    const std::size_t colon = datagram.find(':');
    const std::size_t quote = datagram.find("\" ", beginning.size());
    if (!datagram.starts_with(beginning) || datagram.back() != '\n' || quote == datagram.npos || colon > quote) {
        return std::nullopt;
    }
    const auto first = referenceLockNumber(datagram.substr(beginning.size(), colon - beginning.size()));
    const auto second = referenceLockNumber(datagram.substr(colon + 1, quote - colon - 1));
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
    uint32_t lowestByteFirst;  ///< the address in the byte order that some clients use
    std::string lock = "usb-lock=0:0";
};

/// @param context  its plant has the stations 10.0.0.5 and 10.0.0.6, both without a lock
inline void compareUsbLocks(kvosim::ServiceContext &context, const std::vector<std::string> &datagrams)
{
    LockOfStation stations[] = {{"getUsbLock=0A000005", 0x0A000005, 0x0500000A},
                                {"getUsbLock=0A000006", 0x0A000006, 0x0600000A}};
    for (const std::string &datagram : datagrams) {
        const auto lock = referenceUsbLock(datagram);
        bool wanted = false;
        for (LockOfStation &station : stations) {
            if (lock && (lock->station == 0 || lock->station == station.address || lock->station == station.lowestByteFirst)) {
                station.lock = "usb-lock=" + lock->numbers;
                wanted = true;
            }
        }
        if (kvosim::applyUsbLock(context.plant, ExactBytes(datagram).view()) != wanted) {
            fault("only %s accepts \"%s\"", wanted ? "the reference" : "kvosim", datagram.c_str());
        }
        for (const LockOfStation &station : stations) {
            if (const std::string got = kvosim::answer(context, station.request); got != station.lock) {
                fault("\"%s\" sets the lock to \"%s\", the reference to \"%s\"", datagram.c_str(), got.c_str(),
                      station.lock.c_str());
            }
        }
    }
}

// ---- Lines of agents ----

/// Lines; each has its line feed unless it came without one.
using Lines = std::vector<std::string>;

/// @param unended  a line that may come without a line end, or an empty string
/// @param text     on return, the incomplete rest
inline Lines referenceLines(std::string &text, const std::string &unended)
{
    Lines lines;
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

inline std::string referenceTag(const std::string &line)
{
    return std::strspn(line.c_str(), "0123456789") == 3 && line[3] == ':' ? line.substr(0, 4) : "";
}

inline std::string referenceIndication(const std::string &line)
{
    const bool numbered = line.starts_with('I') && std::strspn(line.c_str() + 1, "0123456789") == 2 && line[3] == ':';
    return numbered ? line.substr(0, 4) : "";
}

inline bool referenceMayBeUnended(const std::string &request)
{
    constexpr const char *kMetrics[] = {"get-softkey-type", "get-keyboard-caps", "get-hardware-caps", "get-panel-oem-layout",
                                        "get-panel-rotation"};
    return std::strlen(request.c_str()) == request.size() &&
           std::any_of(std::begin(kMetrics), std::end(kMetrics),
                       [&](auto name) { return strcasecmp(name, request.c_str()) == 0; });
}

inline void compareParts(const std::string &line)
{
    const ExactBytes bytes(line);
    if (kvosim::tagOf(bytes.view()) != referenceTag(line) || kvosim::indicationOf(bytes.view()) != referenceIndication(line)) {
        fault("\"%s\": the reference has another tag or number", line.c_str());
    }
    if (kvosim::mayReplyUnterminated(bytes.view()) != referenceMayBeUnended(line)) {
        fault("\"%s\": the reference disagrees whether a reply may come without a line end", line.c_str());
    }
}

/// @param pieces  the bytes as they arrive
inline void compareAgentLines(const std::vector<std::string> &pieces, const std::string &unended)
{
    std::string text;
    Lines got;
    kvosim::AgentLines lines;
    for (const std::string &piece : pieces) {
        text += piece;
        lines.add(ExactBytes(piece).view());
        while (const auto line = lines.next(unended)) {
            got.push_back(line->text + (line->terminated ? "\n" : ""));
            compareParts(line->text);
        }
    }
    if (got != referenceLines(text, unended)) {
        fault("the %zu lines from an agent's %zu pieces differ from the reference", got.size(), pieces.size());
    }
    const bool wanted = text.substr(referenceTag(text).size()) == "none";
    if (lines.hasUnterminatedNone() != wanted || (wanted && lines.takeUnterminatedNone().text != text)) {
        fault("only %s leaves a \"none\"", wanted ? "the reference" : "kvosim");
    }
    if (!wanted && lines.isTooLong() != (text.size() > kvosim::kLongestAgentLine)) {
        fault("%zu bytes of a line are left, which is %sreported as too long", text.size(), lines.isTooLong() ? "" : "not ");
    }
}

}  // namespace fuzz
