// Fuzzes the parsers of the service's replies: for every request, the result and each byte of the outputs are compared with
// those of a reference implementation with strtoul.
#include "reply_rows.h"

#include <kvo_hws/platform.h>
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>
#include <kvo_hws/usbevents.h>

#include "requests/focus.h"

#include <algorithm>
#include <map>
#include <string>

namespace {

using catalogue::Arguments;
using fuzz::Caller;
using fuzz::Outputs;
using fuzz::Reference;
using fuzz::Replies;
using fuzz::Row;
using fuzz::sized;

constexpr std::size_t kLongestCommand = 1023;

Replies coming;  // to the current request

}  // namespace

/// Replaces the exchange: returns the next reply in a heap block of exactly its size.
int SendCommand2ServiceDyn(const char *command, DynBuffer *reply) noexcept
{
    const std::string_view line = command;
    if (line.empty() || line.size() > kLongestCommand || line.find('\n') != line.npos) {
        fuzz::fault("\"%s\" is not a command", command);
    }
    const auto text = coming.take();
    if (!text) {
        *reply = {nullptr, 0};
        return coming.gone;
    }
    *reply = {strdup(text->c_str()), static_cast<uint32_t>(text->size() + 1)};
    return KVO_HWS_OK;
}

// ---- Replacements of platform and lock functions, which only requests with datagrams use; none is fuzzed here ----

const char *libpavo_getMetric(unsigned long /*id*/) noexcept { return ""; }
void setAdapterInterfaceCache(const char * /*interface*/) noexcept {}
int getAdapterValuesDirect(int /*refresh*/) noexcept { return -1; }
uint32_t getAdapterBroadcastCache() noexcept { return 0; }
/// Not fuzzed, because its source in the library also contains threads and servers; its replies are words.
int32_t KVO_HWS_isUSBEventsActivated() noexcept { return KVO_HWS_FAILED; }
int kvo_hws_EnterCriticalSection(pthread_mutex_t *section) noexcept { return pthread_mutex_lock(section); }
int kvo_hws_LeaveCriticalSection(pthread_mutex_t *section) noexcept { return pthread_mutex_unlock(section); }

namespace {

// ---- Reference implementations shared by several requests ----

/// An item of a list of "key=number" items: whether it is present, whether its value is a number, and the value (0 if absent).
struct Item {
    bool there = false;
    bool sound = true;
    int32_t value = 0;
};

Item itemOf(const std::string &reply, std::string_view key)
{
    constexpr const char *kBlanks = " \t";
    for (std::size_t at = 0; at < reply.size();
         at = std::min(reply.find_first_not_of(kBlanks, reply.find_first_of(kBlanks, at)), reply.size())) {
        if (std::string_view(reply).substr(at).starts_with(key)) {
            const char *const digits = reply.c_str() + at + key.size();
            char *end = nullptr;
            const long value = std::strtol(digits, &end, 10);
            const bool ended = std::strchr(" \t\r\n", *end) != nullptr;  // also true for the end of the text
            return {true, end != digits && ended, static_cast<int32_t>(value)};
        }
    }
    return {};
}

int32_t storeText(Outputs &out, const std::string &text)
{
    out.storeTerminated(0, text);
    return KVO_HWS_OK;
}

// ---- Lists: an array and its capacity ----

constexpr std::size_t kArray = 0;
constexpr std::size_t kCount = 1;
constexpr uint32_t kMostStations = 8;

Arguments arraySized(const Arguments &arguments, const Caller &caller, const Replies & /*replies*/)
{
    return sized(arguments, {caller.bufferSize % (kMostStations + 1)});
}

/// @param clears  whether the array is cleared as soon as the list is known to fit
std::optional<int32_t> readList(Outputs &out, Replies &replies, const fuzz::DescriptionForm &form, bool clears)
{
    const auto reply = replies.take();
    if (!reply) {
        return std::nullopt;
    }
    const uint32_t count = fuzz::referenceCount(*reply);
    if (*reply == "failed" || count == 0xFFFFFFFF) {
        return KVO_HWS_FAILED;
    }
    if (count > out.word(kCount)) {
        out.word(kCount) = count;
        return KVO_HWS_TOO_SMALL;
    }
    if (clears) {
        out.clear(kArray);
    }
    fuzz::ReferenceDescriptions reference(*reply, form);
    if (reference.readList(out.at<uint8_t>(kArray)) != 1) {
        out.ignore(kArray, reference.whole() * form.record, form.record);
        return KVO_HWS_FAILED;
    }
    out.word(kCount) = count;
    return KVO_HWS_OK;
}

/// Reads the count that is requested before a list. Returns a result if it ends the request.
std::optional<int32_t> readCount(Outputs &out, const std::string &reply, bool haveArray)
{
    char *end = nullptr;
    const unsigned long count = std::strtoul(reply.c_str(), &end, 10);
    if (*end != '\0') {
        return KVO_HWS_FAILED;
    }
    if (!haveArray || count > out.word(kCount)) {
        out.word(kCount) = static_cast<uint32_t>(std::min<unsigned long>(count, 0xFFFFFFFF));
        return KVO_HWS_TOO_SMALL;
    }
    return std::nullopt;
}

std::optional<int32_t> readBasicList(Outputs &out, const Caller & /*caller*/, Replies &replies)
{
    out.clear(kArray);
    const auto reply = replies.take();
    if (!reply) {
        return std::nullopt;
    }
    const auto counted = readCount(out, *reply, true);
    return counted ? counted : readList(out, replies, fuzz::kBasicForm, false);
}

bool haveExtendedArray(const Caller &caller, std::size_t area) { return area != kArray || caller.secondBufferSize % 4 != 0; }

std::optional<int32_t> readExtendedList(Outputs &out, const Caller &caller, Replies &replies)
{
    const auto reply = replies.take();
    if (!reply) {
        return std::nullopt;
    }
    const auto counted = readCount(out, *reply, haveExtendedArray(caller, kArray));
    return counted ? counted : readList(out, replies, fuzz::kExtendedForm, true);
}

std::optional<int32_t> readClients(Outputs &out, const Caller & /*caller*/, Replies &replies)
{
    out.clear(kArray);
    return readList(out, replies, fuzz::kClientForm, false);
}

int32_t readStation(Outputs &out, const Caller & /*caller*/, const std::string &reply)
{
    if (reply == "failed" || reply == "not found") {
        return reply == "failed" ? KVO_HWS_FAILED : KVO_HWS_NO;
    }
    out.clear(0);
    const int read = fuzz::ReferenceDescriptions(reply, fuzz::kExtendedForm).readOne(out.at<uint8_t>(0));
    if (read != 1) {
        out.ignore(0, 0, sizeof(KvoDescriptionEx));
    }
    return read;
}

// ---- Texts: a buffer and, for most, its size ----

constexpr std::size_t kBuffer = 0;
constexpr std::size_t kSize = 1;

Arguments bufferSized(const Arguments &arguments, const Caller &caller, const Replies & /*replies*/)
{
    return sized(arguments, {caller.bufferSize, caller.secondBufferSize});
}

/// A buffer of at least one byte, even if its size is 0.
Arguments neverEmpty(const Arguments &arguments, const Caller &caller, const Replies & /*replies*/)
{
    return sized(arguments, {caller.bufferSize}, 1);
}

int32_t readVersion(Outputs &out, const Caller & /*caller*/, const std::string &version)
{
    if (version.size() >= out.word(kSize)) {
        out.word(kSize) = static_cast<uint32_t>(version.size());
        return KVO_HWS_FAILED;
    }
    out.storeTerminated(kBuffer, version);
    return KVO_HWS_OK;
}

int32_t readChannelInfo(Outputs &out, const Caller & /*caller*/, const std::string &info)
{
    if (info.size() >= out.word(kSize) && !info.empty()) {
        out.word(kSize) = static_cast<uint32_t>(info.size() + 1);
        return KVO_HWS_TOO_SMALL;
    }
    if (out.word(kSize) != 0) {
        out.storeTerminated(kBuffer, info);
    }
    return info.empty() ? KVO_HWS_NO : KVO_HWS_OK;
}

int32_t readConnectors(Outputs &out, const Caller & /*caller*/, const std::string &list)
{
    const uint32_t size = std::exchange(out.word(kSize), static_cast<uint32_t>(list.size()));
    if (list.empty()) {
        out.storeTerminated(kBuffer, "");
        return KVO_HWS_NO;
    }
    if (list.size() >= size) {
        return KVO_HWS_TOO_SMALL;
    }
    out.store(kBuffer, list);
    return KVO_HWS_OK;
}

/// Stores one of the two texts into its buffer, and its length into the size after the buffer.
bool storePart(Outputs &out, std::size_t buffer, const std::string &text)
{
    const uint32_t size = std::exchange(out.word(buffer + 1), static_cast<uint32_t>(text.size() + 1));
    if (text.size() >= size) {
        return false;
    }
    out.storeTerminated(buffer, text);
    return true;
}

/// A server and a display, each with at most 1024 characters.
int32_t readServer(Outputs &out, const Caller & /*caller*/, const std::string &rest)
{
    constexpr std::size_t kLongest = 1024;
    constexpr std::size_t kDisplay = 2;
    const std::size_t colon = rest.find(':');
    if (colon == rest.npos || colon > kLongest) {
        return KVO_HWS_FAILED;
    }
    if (!storePart(out, 0, rest.substr(0, colon))) {
        return KVO_HWS_TOO_SMALL;
    }
    const std::string display = rest.substr(colon + 1);
    if (display.size() > kLongest) {
        return KVO_HWS_FAILED;
    }
    return storePart(out, kDisplay, display) ? KVO_HWS_OK : KVO_HWS_SECOND_TOO_SMALL;
}

/// A buffer for the reply after its key. Callers of these requests must provide a large enough buffer.
Arguments sizedForRest(const Arguments &arguments, const Replies &replies, const std::string &key)
{
    const std::string reply = replies.lines.empty() ? "" : replies.lines.front();
    return {arguments[0], catalogue::buffer(reply.size() + 1 - (reply.starts_with(key) ? key.size() : 0))};
}

int32_t readScreen(Outputs &out, const Caller & /*caller*/, const std::string &text) { return storeText(out, text); }

int32_t readText(Outputs &out, const Caller & /*caller*/, const std::string &text)
{
    return text == "failed" ? KVO_HWS_FAILED : storeText(out, text);
}

// ---- Numbers in special forms ----

/// "", ":", "<lock>:", ":<priority>" or "<lock>:<priority>", in digits.
int32_t readPriority(Outputs &out, const Caller & /*caller*/, const std::string &rest)
{
    constexpr const char *kDigits = "0123456789";
    const std::size_t colon = rest.find(':');
    const std::string lock = rest.substr(0, colon);
    const std::string priority = colon == rest.npos ? "" : rest.substr(colon + 1);
    const bool digits = (lock + priority).find_first_not_of(kDigits) == rest.npos;
    if (!digits || (colon == rest.npos && !lock.empty())) {
        return KVO_HWS_FAILED;
    }
    const unsigned long lockValue = lock.empty() ? 0 : std::strtoul(lock.c_str(), nullptr, 10);
    const unsigned long priorityValue = priority.empty() ? 1 : std::strtoul(priority.c_str(), nullptr, 10);
    if (lockValue > 1 || priorityValue < 1 || priorityValue > 10) {
        return KVO_HWS_FAILED;
    }
    out.word(0) = static_cast<uint32_t>(lockValue);
    out.word(1) = static_cast<uint32_t>(priorityValue);
    return KVO_HWS_OK;
}

int32_t readUsbLock(Outputs &out, const Caller & /*caller*/, const std::string &rest)
{
    char *colon = nullptr;
    char *end = nullptr;
    const unsigned long first = std::strtoul(rest.c_str(), &colon, 10);
    if (colon == rest.c_str() || *colon != ':') {
        return KVO_HWS_FAILED;
    }
    const unsigned long second = std::strtoul(colon + 1, &end, 10);
    if (end == colon + 1) {
        return KVO_HWS_FAILED;
    }
    out.word(0) = static_cast<uint32_t>(first);
    out.word(1) = static_cast<uint32_t>(second);
    return KVO_HWS_OK;
}

int32_t readBrightness(Outputs &out, const Caller & /*caller*/, const std::string &rest)
{
    if (rest.empty()) {
        return KVO_HWS_FAILED;
    }
    out.word(0) = static_cast<uint32_t>(std::strtoul(rest.c_str(), nullptr, 10));
    return KVO_HWS_OK;
}

/// The value is stored even if it is invalid.
int32_t readRv4Mode(Outputs &out, const Caller & /*caller*/, const std::string &rest)
{
    char *end = nullptr;
    out.word(0) = static_cast<uint32_t>(std::strtoul(rest.c_str(), &end, 10));
    return *end == '\0' ? KVO_HWS_OK : KVO_HWS_FAILED;
}

int32_t readDpi(Outputs &out, const Caller & /*caller*/, const std::string &rest)
{
    char *end = nullptr;
    const long value = std::strtol(rest.c_str(), &end, 10);
    if (*end != '\0') {
        return KVO_HWS_FAILED;
    }
    out.signedWord(0) = static_cast<int32_t>(value);
    return KVO_HWS_OK;
}

int32_t readCalibration(Outputs &out, const Caller & /*caller*/, const std::string &reply)
{
    if (reply == "no_touchscreen") {
        return KVO_HWS_NO;
    }
    const Item threshold = itemOf(reply, "press_thresh=");
    const Item nonlinear = itemOf(reply, "nonlinear=");
    out.signedWord(0) = threshold.value;
    out.signedWord(1) = nonlinear.value;
    return threshold.sound && nonlinear.sound ? KVO_HWS_OK : KVO_HWS_FAILED;
}

constexpr const char *kDeviceKeys[] = {"kbd=", "mouse=", "touch=", "multitouch=", "maxcontacts=", "vkbd="};
constexpr std::size_t kDevices = std::size(kDeviceKeys);
constexpr std::size_t kTouch = 2;
constexpr std::size_t kMultiTouch = 3;

/// @param place  returns the output area of a device, or nothing if the request does not report it
int32_t readDevices(Outputs &out, const std::string &reply,
                    const std::function<std::optional<std::size_t>(std::size_t device)> &place)
{
    for (std::size_t i = 0; i < kDevices; ++i) {
        const Item item = itemOf(reply, kDeviceKeys[i]);
        if (!item.sound) {
            return KVO_HWS_FAILED;
        }
        if (const auto area = place(i); area && item.there) {
            out.word(*area) = static_cast<uint32_t>(item.value);
        }
    }
    return KVO_HWS_OK;
}

/// Counts both kinds of touch devices together. The areas are keyboards, mice, touch devices and virtual keyboards.
int32_t readOldDevices(Outputs &out, const std::string &reply, bool virtualKeyboards)
{
    const int32_t result = readDevices(out, reply, [=](std::size_t device) -> std::optional<std::size_t> {
        if (device == kDevices - 1 && virtualKeyboards) {
            return 3;
        }
        return device < kTouch ? std::optional(device) : std::nullopt;
    });
    if (result == KVO_HWS_OK) {
        out.word(2) = static_cast<uint32_t>(itemOf(reply, kDeviceKeys[kTouch]).value) +
                      static_cast<uint32_t>(itemOf(reply, kDeviceKeys[kMultiTouch]).value);
    }
    return result;
}

/// The caller passes null pointers for some outputs.
bool wantsDevice(const Caller &caller, std::size_t area) { return (caller.bufferSize >> area & 1) == 0; }

/// Counts each kind of device separately. The areas are the mask and the devices.
int32_t readDevicesApart(Outputs &out, const Caller &caller, const std::string &reply)
{
    uint32_t mask = 0;
    const int32_t result = readDevices(out, reply, [&](std::size_t device) {
        return wantsDevice(caller, 1 + device) ? std::optional(1 + device) : std::nullopt;
    });
    for (std::size_t i = 0; i < kDevices; ++i) {
        mask |= itemOf(reply, kDeviceKeys[i]).there ? 1U << i : 0;
    }
    if (result == KVO_HWS_OK && wantsDevice(caller, 0)) {
        out.word(0) = mask;
    }
    return result;
}

bool isKnown(unsigned long value) { return value < 0xFFFFFFFF; }
bool isEven(unsigned long value) { return isKnown(value) && value % 2 == 0; }
bool isRotation(unsigned long value) { return value >= 1 && value <= 4; }

fuzz::ReadRest metric(int base, bool (*valid)(unsigned long value))
{
    return [=](Outputs &out, const Caller &, const std::string &rest) -> int32_t {
        char *end = nullptr;
        const unsigned long value = std::strtoul(rest.c_str(), &end, base);
        if (end == rest.c_str() || *end != '\0' || !valid(value)) {
            return KVO_HWS_UNKNOWN_REPLY;
        }
        out.word(0) = static_cast<uint32_t>(value);
        return KVO_HWS_OK;
    };
}

int32_t readLayout(Outputs &out, const Caller & /*caller*/, const std::string &rest)
{
    constexpr std::size_t kLongest = 7;
    return rest.empty() || rest.size() > kLongest ? int32_t{KVO_HWS_UNKNOWN_REPLY} : storeText(out, rest);
}

int32_t readMarovanti(Outputs & /*out*/, const Caller & /*caller*/, const std::string &mode)
{
    if (mode == "1" || mode == "0") {
        return mode == "1" ? KVO_HWS_OK : KVO_HWS_NO;
    }
    return mode.empty() ? KVO_HWS_FAILED : KVO_HWS_OUT_OF_RANGE;
}

// ---- The table ----

/// The requests whose replies are more than words and bounded numbers.
const std::map<std::string, Reference> &references()
{
    const auto oldDevices = [](bool virtualKeyboards) {
        return [=](Outputs &out, const Caller &, const std::string &reply) {
            return readOldDevices(out, reply, virtualKeyboards);
        };
    };
    const auto restOf = [](const std::string &key) {
        return [=](const Arguments &arguments, const Caller &, const Replies &replies) {
            return sizedForRest(arguments, replies, key);
        };
    };
    static const std::map<std::string, Reference> kReferences = {
        {"KVO_HWS_getDescriptionList", {.whole = readBasicList, .arguments = arraySized}},
        {"KVO_HWS_getDescriptionListEx", {.whole = readExtendedList, .arguments = arraySized, .wants = haveExtendedArray}},
        {"KVO_HWS_getClientList", {.whole = readClients, .arguments = arraySized}},
        {"KVO_HWS_getDescriptionEx by address", {.rest = readStation}},
        {"KVO_HWS_getDescriptionEx by name", {.rest = readStation}},
        {"KVO_HWS_getKVOHWSVersion", {.rest = readVersion, .arguments = bufferSized}},
        {"KVO_HWS_getChannelInfo", {.key = "channel-info=", .rest = readChannelInfo, .arguments = bufferSized}},
        {"KVO_HWS_getUsbConnectorList", {.key = "usb-connector-list=", .rest = readConnectors, .arguments = neverEmpty}},
        {"KVO_HWS_getUsbConnectorListOne", {.key = "usb-connector-list-one=", .rest = readConnectors, .arguments = neverEmpty}},
        {"KVO_HWS_getCurrentServer", {.key = "vncserver=", .rest = readServer, .arguments = bufferSized}},
        {"KVO_HWS_getKVOScreenOnFocus",
         {.key = "screen-on-focus=", .rest = readScreen, .arguments = restOf("screen-on-focus=")}},
        {"KVO_HWS_getKVOT2M2N", {.rest = readText, .arguments = restOf("")}},
        {"KVO_HWS_getKVOPriority", {.key = "Priority=", .rest = readPriority}},
        {"KVO_HWS_getUsbLock", {.key = "usb-lock=", .rest = readUsbLock}},
        {"KVO_HWS_getBacklightBrightnessV2", {.key = "backlight-brightness-v2=", .rest = readBrightness}},
        {"KVO_HWS_getRV4Mode", {.key = "rv4mode=", .rest = readRv4Mode}},
        {"KVO_HWS_showDPI", {.key = "dpi=", .rest = readDpi}},
        {"KVO_HWS_getTouchScreenCalibParam", {.rest = readCalibration}},
        {"KVO_HWS_showInputDevice", {.rest = oldDevices(false)}},
        {"KVO_HWS_showInputDeviceV2", {.rest = oldDevices(true)}},
        {"KVO_HWS_showInputDeviceV3", {.rest = readDevicesApart, .wants = wantsDevice}},
        {"KVO_HWS_getStationMetrics oem-layout", {.key = "panel-oem-layout=", .rest = readLayout}},
        {"KVO_HWS_getStationMetrics softkey-type", {.key = "softkey-type=", .rest = metric(16, isEven)}},
        {"KVO_HWS_getStationMetrics keyboard-caps", {.key = "keyboard-caps=", .rest = metric(16, isKnown)}},
        {"KVO_HWS_getStationMetrics dpi", {.key = "dpi=", .rest = metric(10, isKnown)}},
        {"KVO_HWS_getStationMetrics hardware-caps", {.key = "hardware-caps=", .rest = metric(16, isKnown)}},
        {"KVO_HWS_getStationMetrics rotation", {.key = "panel-rotation=", .rest = metric(10, isRotation)}},
        {"KVO_HWS_isMarovantiPanel", {.key = "is-Marovanti-Panel=", .rest = readMarovanti}},
    };
    return kReferences;
}

/// The agent's function for this text, which truncates it to the buffer's size.
int32_t cutText(uint32_t address, char *text, uint32_t *size) { return kvo_hws::getT2M2N(address, text, *size); }

const catalogue::Request &cutTextRequest()
{
    static const catalogue::Request kRequest =
        CATALOGUE_REQUEST(cutText, "")
            .asks("getKVOt2m2n=0A000005", {catalogue::station, catalogue::buffer(1), catalogue::inOut(1)})
            .soak({1, -1, -2});
    return kRequest;
}

Row cutTextRow()
{
    const auto bufferSizeOf = [](const Caller &caller) { return std::max<uint32_t>(caller.bufferSize, 1); };
    return {cutTextRequest(),
            {.rest =
                 [=](Outputs &out, const Caller &caller, const std::string &reply) {
                     return reply == "failed" ? int32_t{KVO_HWS_FAILED}
                                              : storeText(out, reply.substr(0, bufferSizeOf(caller) - 1));
                 },
             .arguments = [=](const Arguments &arguments, const Caller &caller,
                              const Replies &) { return sized(arguments, {bufferSizeOf(caller)}); }}};
}

/// All rows by number. The number is a hash of the name, so inputs for other requests stay valid when a request is added.
std::map<uint16_t, Row> rows()
{
    std::map<uint16_t, Row> all;
    const auto add = [&all](const Row &row) {
        uint32_t hash = 2166136261;
        for (const char character : row.name()) {
            hash = (hash ^ static_cast<uint8_t>(character)) * 16777619;
        }
        const auto number = static_cast<uint16_t>(hash ^ hash >> 16);
        if (!all.emplace(number, row).second) {
            fuzz::fault("%s has the same number as another request", row.name().c_str());
        }
    };
    for (const catalogue::Family &family : catalogue::families()) {
        for (const catalogue::Request &request : family.requests) {
            if (!request.commands().empty() && request.function().name() != "KVO_HWS_isUSBEventsActivated") {
                const auto reading = references().find(request.name());
                add({request, reading == references().end() ? Reference{} : reading->second});
            }
        }
    }
    add(cutTextRow());
    return all;
}

// ---- The comparison ----

void compare(const Row &row, const Caller &caller, const Replies &replies, uint8_t fill)
{
    Outputs wanted = row.outputs(caller, replies, fill);
    Replies read = replies;
    const bool reportsGone = row.withoutService() == KVO_HWS_NO_SERVICE;
    const int32_t gone = reportsGone ? replies.gone : row.withoutService();
    const int32_t wantedResult = row.read(wanted, caller, read).value_or(gone);

    Outputs got = row.outputs(caller, replies, fill);
    coming = replies;
    const int32_t result = row.ask(got, caller, replies);

    if (!row.documents(result)) {
        fuzz::fault("%s: returned the undocumented code %d", row.name().c_str(), result);
    }
    if (result != wantedResult) {
        fuzz::fault("%s: returned %d, the reference %d", row.name().c_str(), result, wantedResult);
    }
    if (coming.next != read.next) {
        fuzz::fault("%s: made %zu exchanges instead of %zu", row.name().c_str(), coming.next, read.next);
    }
    wanted.expectSame(got, row.name().c_str());
}

/// 0 to 127 bytes, then up to 2 KiB in steps of 16.
uint32_t sizeOf(uint8_t byte) { return byte < 128 ? byte : (byte - 128U) * 16; }

Replies repliesOf(std::string_view input, int gone)
{
    Replies replies{.lines = {}, .gone = gone};
    while (!input.empty()) {
        const std::size_t end = input.find('\n');
        const std::string_view line = input.substr(0, end);
        replies.lines.emplace_back(line);
        input.remove_prefix(std::min(input.size(), line.size() + 1));
    }
    return replies;
}

/// Checks every reply of the catalogue before the first input: reference implementations and catalogue must agree.
void compareKnown(const std::map<uint16_t, Row> &table)
{
    for (const auto &[number, row] : table) {
        for (const Replies &replies : row.knownReplies()) {
            compare(row, {.bufferSize = 64, .secondBufferSize = 65}, replies, 0);
        }
    }
}

const std::map<uint16_t, Row> &table()
{
    static const std::map<uint16_t, Row> kTable = [] {
        std::map<uint16_t, Row> all = rows();
        compareKnown(all);
        return all;
    }();
    return kTable;
}

}  // namespace

/// The first two bytes are the number of the request, the next two the sizes of the caller's buffers. The rest are the replies,
/// one per line. After the last reply, the service has ended.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    constexpr std::size_t kHead = 4;
    if (size < kHead) {
        return 0;
    }
    const auto row = table().find(static_cast<uint16_t>(data[0] << 8U | data[1]));
    if (row == table().end()) {
        return 0;
    }
    const Caller caller{.bufferSize = sizeOf(data[2]), .secondBufferSize = sizeOf(data[3])};
    const int gone = data[3] % 2 == 0 ? KVO_HWS_NO_SERVICE : KVO_HWS_FAILED;
    const Replies replies = repliesOf(fuzz::textOf(data + kHead, size - kHead), gone);
    compare(row->second, caller, replies, 0);
    compare(row->second, caller, replies, 0xA5);
    return 0;
}
