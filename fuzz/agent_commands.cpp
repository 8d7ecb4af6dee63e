// Fuzzes the handlers of the agent's commands: the reply, the requests to the service and the host, and the stored state are
// compared with a reference implementation with strspn, strtoul and strtol. The input determines the answers of service and
// host.
#include "reference_commands.h"
#include "support.h"

#include <kvo_hws/agent.h>
#include <kvo_hws/requests.h>
#include <kvo_hws/result.h>

#include "agent/focus_station.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using fuzz::Call;
using fuzz::Given;
using fuzz::kRows;
using fuzz::Row;
using fuzz::State;

constexpr int kSocket = 1000;  // no descriptor: nothing is written to it
constexpr const char *kTag = "042:";

// ---- The requests and replies of the agent ----

struct Seen {
    std::vector<std::string> requests;
    std::vector<std::string> replies;
};

Given given;
Seen seen;
KvoDescriptionEx description;

template <class... Values>
void recordRequest(const char *name, Values... values)
{
    std::string request = name;
    ((request += ' ' + std::to_string(values)), ...);
    seen.requests.push_back(std::move(request));
}

template <class... Values>
int32_t getValues(const char *name, uint32_t station, Values *...values)
{
    recordRequest(name, station);
    std::size_t index = 0;
    if (given.result == KVO_HWS_OK) {
        ((*values = static_cast<Values>(given.word(index++))), ...);
    }
    return given.result;
}

template <class Value>
int32_t setValue(const char *name, uint32_t station, Value value)
{
    recordRequest(name, station, value);
    return given.result;
}

int host(void *instance, const char *command)
{
    if (instance != gEmbKvoInst) {
        fuzz::fault("the host receives another handle");
    }
    seen.requests.push_back(std::string("host ") + command);
    if (given.hostThrows) {
        throw std::runtime_error("the host throws");
    }
    return given.result;
}

}  // namespace

int32_t KVO_HWS_getStationType(uint32_t station, int32_t *type) noexcept { return getValues("getStationType", station, type); }
int32_t KVO_HWS_getSwCapsLock(uint32_t station, int32_t *state) noexcept { return getValues("getSwCapsLock", station, state); }
int32_t KVO_HWS_getRV4Mode(uint32_t station, uint32_t *mode) noexcept { return getValues("getRV4Mode", station, mode); }
int32_t KVO_HWS_getMCPAddress(uint32_t station, uint32_t *address) noexcept
{
    return getValues("getMCPAddress", station, address);
}
int32_t KVO_HWS_getDCKAddress(uint32_t station, uint32_t *address) noexcept
{
    return getValues("getDCKAddress", station, address);
}
int32_t KVO_HWS_getKVOCksIndex(uint32_t station, uint32_t *index) noexcept
{
    return getValues("getKVOCksIndex", station, index);
}
int32_t KVO_HWS_getDCKEnable(uint32_t station, uint32_t *enable) noexcept { return getValues("getDCKEnable", station, enable); }
int32_t KVO_HWS_setMCPAddress(uint32_t station, uint32_t address) noexcept
{
    return setValue("setMCPAddress", station, address);
}
int32_t KVO_HWS_setKVOCksIndex(uint32_t station, uint32_t index) noexcept { return setValue("setKVOCksIndex", station, index); }
int32_t KVO_HWS_setDCKEnable(uint32_t station, uint32_t enable) noexcept { return setValue("setDCKEnable", station, enable); }
int32_t KVO_HWS_setRV4Mode(uint32_t station, uint32_t mode) noexcept { return setValue("setRV4Mode", station, mode); }
int32_t KVO_HWS_setSwCapsLock(uint32_t station, int32_t state) noexcept { return setValue("setSwCapsLock", station, state); }
int32_t KVO_HWS_invalidateTouchScreen(uint32_t station) noexcept { return getValues("invalidateTouchScreen", station); }

int32_t KVO_HWS_getUsbLock(uint32_t station, uint32_t *first, uint32_t *second) noexcept
{
    return getValues("getUsbLock", station, first, second);
}

int32_t KVO_HWS_showInputDeviceV2(uint32_t station, uint32_t *kbd, uint32_t *mouse, uint32_t *touch, uint32_t *vkbd) noexcept
{
    return getValues("showInputDeviceV2", station, kbd, mouse, touch, vkbd);
}

int32_t KVO_HWS_setUsbLock(uint32_t count, const char **hosts, int first, int second) noexcept
{
    recordRequest("setUsbLock", count, first, second);
    for (uint32_t i = 0; i < count; ++i) {
        seen.requests.back() += std::string(" ") + hosts[i];
    }
    return given.result;
}

/// The input determines all 8 bytes of a text, so the last one may be no terminator.
int32_t KVO_HWS_getStationMetrics(uint32_t id, uint32_t metric, void *result) noexcept
{
    recordRequest("getStationMetrics", id, metric);
    if (given.result == KVO_HWS_OK && metric == 1) {
        std::memset(result, 0, fuzz::kLayoutSize);
        given.bytes.copy(static_cast<char *>(result), fuzz::kLayoutSize);
    } else if (given.result == KVO_HWS_OK) {
        const uint32_t value = given.word(0);
        std::memcpy(result, &value, sizeof value);
    }
    return given.result;
}

void hmiconn_reply(int socket, const char *tag, const char *text, ...) noexcept
{
    if (socket != kSocket || (tag != nullptr) != given.hasTag) {
        fuzz::fault("a reply to socket %d with the tag \"%s\"", socket, tag != nullptr ? tag : "");
    }
    std::string reply = tag != nullptr ? tag : "";
    va_list texts;
    va_start(texts, text);
    for (const char *part = text; part != nullptr; part = va_arg(texts, const char *)) {
        reply += part;
    }
    va_end(texts);
    seen.replies.push_back(std::move(reply));
}

const KvoDescriptionEx *kvo_hws::agent::focusStation::description() noexcept
{
    return given.isDescribed ? &::description : nullptr;
}

const char *kvo_hws::agent::focusStation::t2m2n() noexcept
{
    static std::string text;
    text = given.t2m2n();
    return text.c_str();
}

namespace {

// ---- The agent ----

char *heapText(const std::optional<std::string> &text) { return text ? strdup(text->c_str()) : nullptr; }

std::optional<std::string> textAt(const char *text)
{
    return text != nullptr ? std::optional<std::string>(text) : std::nullopt;
}

/// The agent with a session; the input determines its state.
class Agent {
public:
    Agent()
    {
        gFocusKvoIp = given.word(fuzz::focusWord);
        gSuspendLock = given.word(fuzz::lockWord);
        gSuspendPrio = given.word(fuzz::prioWord);
        gStartupActive = given.word(fuzz::activeWord);
        gStartupPrio = given.word(fuzz::startupPrioWord);
        gChannelOnFocus = given.word(fuzz::channelWord);
        gKvoIndex = given.word(3);
        gMcpLikeFocusKvo = given.hasControlPanel ? std::max(given.word(2), 1U) : 0;
        gCmdCallback = given.hasHost ? host : nullptr;
        gHostname[given.argument.copy(gHostname, sizeof gHostname - 1)] = '\0';
        gScreenOnFocus[given.argument.copy(gScreenOnFocus, sizeof gScreenOnFocus - 1)] = '\0';
        hws_channel_info = heapText(storedBefore());
        server_.name = heapText(storedBefore());
        server_.address = given.word(fuzz::remoteWord);
        session_.server = &server_;
        session_.display = given.word(fuzz::displayWord);
        session_.keyFlags = given.word(1);
        session_.socket = kSocket;
    }
    Agent(const Agent &) = delete;
    Agent &operator=(const Agent &) = delete;
    ~Agent()
    {
        std::free(std::exchange(hws_channel_info, nullptr));
        std::free(server_.name);
    }

    void handle(CmdHandler handler, char *argument) { handler(&session_, given.hasTag ? kTag : nullptr, argument); }

    [[nodiscard]] State state() const
    {
        return {.channelInfo = textAt(hws_channel_info),
                .serverName = textAt(server_.name),
                .keyFlags = session_.keyFlags,
                .kvoIndex = gKvoIndex,
                .words = {gFocusKvoIp, gSuspendLock, gSuspendPrio, gStartupActive, gStartupPrio, gChannelOnFocus,
                          gMcpLikeFocusKvo, session_.display, server_.address, static_cast<uint32_t>(session_.socket)},
                .hostname = gHostname,
                .screenOnFocus = gScreenOnFocus};
    }

private:
    /// The text stored by an earlier command: present if the input's length is odd.
    static std::optional<std::string> storedBefore()
    {
        return given.bytes.size() % 2 != 0 ? std::optional(given.argument + " before") : std::nullopt;
    }

    HmiServer server_{};
    HmiSession session_{};
};

void describeStation()
{
    description.attr1 = given.word(0);
    description.attr2 = given.word(1);
    description.attr3 = given.word(2);
    description.extAttr3 = given.word(3);
    description.extAttr4 = given.word(4);
    description.extAttr5 = given.word(5);
    description.extAttr6 = given.word(6);
    description.extAttr7 = given.word(7);
}

std::string joined(const std::vector<std::string> &texts)
{
    std::string all;
    for (const std::string &text : texts) {
        all += '[' + text + ']';
    }
    return all;
}

void expectSame(const Row &row, const char *what, const std::string &got, const std::string &wanted)
{
    if (got != wanted) {
        fuzz::fault("\"%s%s\": %s: \"%s\", in the reference \"%s\"", row.keyword, given.argument.c_str(), what, got.c_str(),
                    wanted.c_str());
    }
}

void compare(const Row &row, CmdHandler handler)
{
    Agent agent;
    State wanted = agent.state();
    std::string argumentLeft = given.argument;
    Call call{given, wanted, argumentLeft};
    const std::string reply = (given.hasTag ? kTag : "") + row.handler(call);

    seen = {};
    const fuzz::ExactText argument(given.argument);
    agent.handle(handler, argument.get());

    expectSame(row, "reply", joined(seen.replies), joined({reply}));
    expectSame(row, "requests", joined(seen.requests), joined(call.requests));
    expectSame(row, "argument after the call", argument.get(), argumentLeft);
    if (agent.state() != wanted) {
        fuzz::fault("\"%s%s\": the stored state differs from the reference", row.keyword, given.argument.c_str());
    }
}

}  // namespace

/// The first byte selects the row of the table, the second the answers of service and host. The rest is the argument and the
/// numbers of the answers.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    if (size < 2) {
        return 0;
    }
    given = fuzz::givenBy(data[1], {reinterpret_cast<const char *>(data) + 2, size - 2});
    describeStation();
    const std::size_t row = data[0] % (std::size(kRows) + 1);
    if (row == std::size(kRows)) {
        compare(fuzz::kDisplayDpi, handle_get_display_dpi);
        return 0;
    }
    expectSame(kRows[row], "keyword", cmds[row].keyword, kRows[row].keyword);
    compare(kRows[row], cmds[row].handler);
    return 0;
}
