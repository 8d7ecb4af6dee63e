// Fuzzes the parser of the agent's parameters: the whole record is compared byte by byte with that of a reference
// implementation with strncmp, strtoul and inet_aton.
#include "support.h"

#include "agent/parameters.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdlib>
#include <string>

namespace {

struct Field {
    enum class Kind { address, number, session, text };

    const char *key;
    Kind kind;
    std::size_t offset;
    std::size_t size = sizeof(uint32_t);
};

using enum Field::Kind;

/// In the order in which the parser tries them.
constexpr Field kFields[] = {
    {"focusKvoIp=", address, offsetof(EmbKvoInst, focusKvoIp)},
    {"focusKvoName=", text, offsetof(EmbKvoInst, focusKvoName), sizeof(EmbKvoInst::focusKvoName)},
    {"remoteKvoHwsIp=", address, offsetof(EmbKvoInst, remoteKvoHwsIp)},
    {"kvoIndex=", number, offsetof(EmbKvoInst, kvoIndex)},
    {"mcpFlag=", number, offsetof(EmbKvoInst, mcpFlag)},
    {"screenOnFocus=", text, offsetof(EmbKvoInst, screenOnFocus), sizeof(EmbKvoInst::screenOnFocus)},
    {"channelOnFocus=", number, offsetof(EmbKvoInst, channelOnFocus)},
    {"suspendLock=", number, offsetof(EmbKvoInst, suspendLock)},
    {"suspendPrio=", number, offsetof(EmbKvoInst, suspendPrio)},
    {"startupActive=", number, offsetof(EmbKvoInst, startupActive)},
    {"startupPrio=", number, offsetof(EmbKvoInst, startupPrio)},
    {"remoteSession=", session, offsetof(EmbKvoInst, remoteSession)},
};

void storeText(uint8_t *record, const Field &field, const char *value)
{
    auto *const member = reinterpret_cast<char *>(record + field.offset);
    const std::size_t length = std::min(std::strlen(value), field.size - 1);
    std::memcpy(member, value, length);
    member[length] = '\0';
}

void store(uint8_t *record, const Field &field, const char *value)
{
    uint32_t word = 0;
    in_addr dotted{};
    switch (field.kind) {
    case text: storeText(record, field, value); return;
    case address: word = inet_aton(value, &dotted) != 0 ? dotted.s_addr : 0; break;
    case number: word = static_cast<uint32_t>(std::strtoul(value, nullptr, 10)); break;
    case session: word = static_cast<uint32_t>(std::strtoul(value, nullptr, 10) % 10); break;
    }
    std::memcpy(record + field.offset, &word, sizeof word);
}

void readLine(uint8_t *record, const char *line)
{
    for (const Field &field : kFields) {
        if (std::strncmp(line, field.key, std::strlen(field.key)) == 0) {
            store(record, field, line + std::strlen(field.key));
            return;
        }
    }
}

bool readReference(uint8_t *area, std::string_view input)
{
    auto &record = *reinterpret_cast<EmbKvoInst *>(area);
    std::memset(area + offsetof(EmbKvoInst, focusKvoIp), 0, offsetof(EmbKvoInst, session) - offsetof(EmbKvoInst, focusKvoIp));
    record.kvoIndex = record.channelOnFocus = record.suspendPrio = record.startupActive = 1;
    record.startupPrio = 2;
    std::string line;
    for (const char character : std::string(input) + '\n') {
        if (character != '\n') {
            line += character;
            continue;
        }
        readLine(area, line.c_str());
        line.clear();
    }
    return (record.focusKvoIp != 0 || record.focusKvoName[0] != '\0') && record.remoteKvoHwsIp != 0;
}

void expectTerminated(fuzz::GuardedArea &got)
{
    for (const Field &field : kFields) {
        if (field.kind == text && std::memchr(got.area() + field.offset, '\0', field.size) == nullptr) {
            fuzz::fault("readParameters: the text of \"%s\" is not terminated", field.key);
        }
    }
}

void compare(std::string_view input, uint8_t fill)
{
    fuzz::GuardedArea wanted(sizeof(EmbKvoInst), fill);
    const bool wantedComplete = readReference(wanted.area(), input);

    fuzz::GuardedArea got(sizeof(EmbKvoInst), fill);
    const fuzz::ExactText params(input);
    const bool complete = kvo_hws::agent::readParameters(params.get(), *reinterpret_cast<EmbKvoInst *>(got.area()));

    if (!got.guardsIntact()) {
        fuzz::fault("readParameters: wrote outside its record");
    }
    expectTerminated(got);
    if (complete != wantedComplete) {
        fuzz::fault("readParameters: only %s finds the parameters complete", complete ? "the library" : "the reference");
    }
    if (got != wanted) {
        const auto differing = std::mismatch(got.area(), got.area() + sizeof(EmbKvoInst), wanted.area()).first;
        fuzz::fault("readParameters: the record differs from the reference at byte %td", differing - got.area());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    constexpr uint8_t kPattern = 0xA5;
    const std::string_view input = fuzz::textOf(data, size);
    compare(input, 0);
    compare(input, kPattern);
    return 0;
}
