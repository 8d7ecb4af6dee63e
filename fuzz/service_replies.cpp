// Fuzzes the readers of the service's replies: for every request, its result and each byte of its outputs are those of a plain
// reading by strtoul of the same replies.
#include "reply_rows.h"

#include <kvo_hws/platform.h>
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>

#include "requests/focus.h"

#include <algorithm>
#include <string>

namespace {

using fuzz::Caller;
using fuzz::keyed;
using fuzz::number;
using fuzz::Outputs;
using fuzz::Replies;
using fuzz::Row;
using fuzz::stored;
using fuzz::words;
using fuzz::Words;

constexpr uint32_t kStation = 0x0A000005;
constexpr std::size_t kWord = sizeof(uint32_t);
constexpr std::size_t kLongestCommand = 1023;

Replies coming;  // to the request that is being asked

}  // namespace

/// The exchange: the next reply in a block of just its size.
int SendCommand2ServiceDyn(const char *command, DynBuffer *reply) noexcept
{
    const std::string_view line = command;
    if (line.empty() || line.size() > kLongestCommand || line.find('\n') != line.npos) {
        fuzz::fault("\"%s\" is no command", command);
    }
    const auto text = coming.take();
    if (!text) {
        *reply = {nullptr, 0};
        return coming.gone;
    }
    *reply = {strdup(text->c_str()), static_cast<uint32_t>(text->size() + 1)};
    return KVO_HWS_OK;
}

// ---- Of the platform and its lock, for the datagrams that are sent by none of the requests here ----

const char *libpavo_getMetric(unsigned long /*id*/) noexcept { return ""; }
void setAdapterInterfaceCache(const char * /*interface*/) noexcept {}
int getAdapterValuesDirect(int /*refresh*/) noexcept { return -1; }
uint32_t getAdapterBroadcastCache() noexcept { return 0; }
int kvo_hws_EnterCriticalSection(pthread_mutex_t *section) noexcept { return pthread_mutex_lock(section); }
int kvo_hws_LeaveCriticalSection(pthread_mutex_t *section) noexcept { return pthread_mutex_unlock(section); }

namespace {

// ---- Plain readings of what several requests read ----

/// A number of a list of "key=number" items, and whether it is one. 0 where the key is absent.
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
            const bool ended = std::strchr(" \t\r\n", *end) != nullptr;  // the text's end is one too
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

/// A description list, into an array behind the word of its capacity. @p clears: once it is known that it fits.
std::optional<int32_t> readList(Outputs &out, Replies &replies, const fuzz::DescriptionForm &form, bool clears)
{
    const auto reply = replies.take();
    if (!reply) {
        return std::nullopt;
    }
    const uint32_t count = fuzz::countPlainly(*reply);
    if (*reply == "failed" || count == 0xFFFFFFFF) {
        return KVO_HWS_FAILED;
    }
    if (count > out.word(0)) {
        out.word(0) = count;
        return KVO_HWS_TOO_SMALL;
    }
    if (clears) {
        out.clear(1);
    }
    fuzz::PlainDescriptions plain(*reply, form);
    if (plain.readList(out.at<uint8_t>(1)) != 1) {
        out.leaveOpen(1, plain.whole() * form.record, form.record);
        return KVO_HWS_FAILED;
    }
    out.word(0) = count;
    return KVO_HWS_OK;
}

/// The number that comes before a list: a result where it ends the request.
std::optional<int32_t> readCount(Outputs &out, const std::string &reply, bool haveArray)
{
    char *end = nullptr;
    const unsigned long count = std::strtoul(reply.c_str(), &end, 10);
    if (*end != '\0') {
        return KVO_HWS_FAILED;
    }
    if (!haveArray || count > out.word(0)) {
        out.word(0) = static_cast<uint32_t>(std::min<unsigned long>(count, 0xFFFFFFFF));
        return KVO_HWS_TOO_SMALL;
    }
    return std::nullopt;
}

// ---- Rows of their own ----

constexpr uint32_t kMostStations = 8;

uint32_t capacityOf(const Caller &caller) { return caller.room % (kMostStations + 1); }

Row listRow(const char *name, std::size_t record, std::function<int32_t(Outputs &out, const Caller &caller)> ask,
            std::function<std::optional<int32_t>(Outputs &out, const Caller &caller, Replies &replies)> read)
{
    return {.name = name,
            .codes = {KVO_HWS_OK, KVO_HWS_FAILED, KVO_HWS_NO_SERVICE, KVO_HWS_TOO_SMALL},
            .areas =
                [record](const Caller &caller, const Replies &) {
                    return std::vector<std::size_t>{kWord, capacityOf(caller) * record};
                },
            .prepare = [](Outputs &out, const Caller &caller) { out.word(0) = capacityOf(caller); },
            .ask = std::move(ask),
            .read = std::move(read)};
}

Row descriptionList()
{
    return listRow(
        "KVO_HWS_getDescriptionList", sizeof(KvoDescription),
        [](Outputs &out, const Caller &) { return KVO_HWS_getDescriptionList(out.at<KvoDescription>(1), &out.word(0)); },
        [](Outputs &out, const Caller &, Replies &replies) -> std::optional<int32_t> {
            out.clear(1);
            const auto reply = replies.take();
            if (!reply) {
                return std::nullopt;
            }
            const auto counted = readCount(out, *reply, true);
            return counted ? counted : readList(out, replies, fuzz::kBasicForm, false);
        });
}

Row extendedList()
{
    const auto haveArray = [](const Caller &caller) { return caller.secondRoom % 4 != 0; };
    return listRow(
        "KVO_HWS_getDescriptionListEx", sizeof(KvoDescriptionEx),
        [=](Outputs &out, const Caller &caller) {
            return KVO_HWS_getDescriptionListEx(haveArray(caller) ? out.at<KvoDescriptionEx>(1) : nullptr, &out.word(0));
        },
        [=](Outputs &out, const Caller &caller, Replies &replies) -> std::optional<int32_t> {
            const auto reply = replies.take();
            if (!reply) {
                return std::nullopt;
            }
            const auto counted = readCount(out, *reply, haveArray(caller));
            return counted ? counted : readList(out, replies, fuzz::kExtendedForm, true);
        });
}

Row clientList()
{
    return listRow(
        "KVO_HWS_getClientList", sizeof(KvoClientEntry),
        [](Outputs &out, const Caller &) { return KVO_HWS_getClientList(out.at<KvoClientEntry>(1), &out.word(0), 0xF); },
        [](Outputs &out, const Caller &, Replies &replies) {
            out.clear(1);
            return readList(out, replies, fuzz::kClientForm, false);
        });
}

Row oneStation(const char *name, uint32_t address)
{
    return keyed(
        name, {sizeof(KvoDescriptionEx)},
        [address](Outputs &out) { return KVO_HWS_getDescriptionEx(address, "Panel", out.at<KvoDescriptionEx>(0)); }, "",
        [](Outputs &out, const Caller &, const std::string &reply) -> int32_t {
            if (reply == "failed" || reply == "not found") {
                return reply == "failed" ? KVO_HWS_FAILED : KVO_HWS_NO;
            }
            out.clear(0);
            const int read = fuzz::PlainDescriptions(reply, fuzz::kExtendedForm).readOne(out.at<uint8_t>(0));
            if (read != 1) {
                out.leaveOpen(0, 0, sizeof(KvoDescriptionEx));
            }
            return read;
        },
        {}, {KVO_HWS_NO});
}

/// A text for a buffer whose size is an output too; the areas are its word and the buffer.
Row sizedText(const char *name, std::function<int32_t(char *buffer, uint32_t *size)> ask, const std::string &key,
              std::function<int32_t(Outputs &out, const std::string &text)> read, const std::vector<int32_t> &codes,
              const Words &known = {}, int32_t otherwise = KVO_HWS_FAILED)
{
    return {.name = name,
            .codes = codes,
            .areas =
                [](const Caller &caller, const Replies &) {
                    return std::vector<std::size_t>{kWord, caller.room};
                },
            .prepare = [](Outputs &out, const Caller &caller) { out.word(0) = caller.room; },
            .ask = [ask = std::move(ask)](Outputs &out, const Caller &) { return ask(out.at(1), &out.word(0)); },
            .read = [=](Outputs &out, const Caller &, Replies &replies) -> std::optional<int32_t> {
                const auto reply = replies.take();
                if (!reply) {
                    return std::nullopt;
                }
                return reply->starts_with(key) ? read(out, reply->substr(key.size()))
                                               : fuzz::resultOf(known, *reply, otherwise);
            }};
}

int32_t readVersion(Outputs &out, const std::string &version)
{
    if (version.size() >= out.word(0)) {
        out.word(0) = static_cast<uint32_t>(version.size());
        return KVO_HWS_FAILED;
    }
    out.storeTerminated(1, version);
    return KVO_HWS_OK;
}

int32_t readChannelInfo(Outputs &out, const std::string &info)
{
    if (info.size() >= out.word(0) && !info.empty()) {
        out.word(0) = static_cast<uint32_t>(info.size() + 1);
        return KVO_HWS_TOO_SMALL;
    }
    if (out.word(0) != 0) {
        out.storeTerminated(1, info);
    }
    return info.empty() ? KVO_HWS_NO : KVO_HWS_OK;
}

/// Its buffer has a byte at least, whatever the size says.
Row connectors(const char *name, const std::string &key, std::function<int32_t(char *buffer, uint32_t *size)> ask)
{
    Row row = sizedText(
        name, std::move(ask), key,
        [](Outputs &out, const std::string &list) -> int32_t {
            const uint32_t room = std::exchange(out.word(0), static_cast<uint32_t>(list.size()));
            if (list.empty()) {
                out.storeTerminated(1, "");
                return KVO_HWS_NO;
            }
            if (list.size() >= room) {
                return KVO_HWS_TOO_SMALL;
            }
            out.store(1, list);
            return KVO_HWS_OK;
        },
        {KVO_HWS_OK, KVO_HWS_NO, KVO_HWS_FAILED, KVO_HWS_NO_SERVICE, KVO_HWS_TOO_SMALL, KVO_HWS_REFUSED, KVO_HWS_UNKNOWN_REPLY,
         KVO_HWS_BUSY},
        {{"busy", KVO_HWS_BUSY}, {"failed", KVO_HWS_REFUSED}}, KVO_HWS_UNKNOWN_REPLY);
    row.areas = [](const Caller &caller, const Replies &) {
        return std::vector<std::size_t>{kWord, std::max<std::size_t>(caller.room, 1)};
    };
    return row;
}

/// A server and a display, each at most 1024 characters; the areas are two words and two buffers.
Row currentServer()
{
    const auto store = [](Outputs &out, std::size_t which, const std::string &text) {
        const uint32_t room = std::exchange(out.word(which), static_cast<uint32_t>(text.size() + 1));
        if (text.size() >= room) {
            return false;
        }
        out.storeTerminated(which + 2, text);
        return true;
    };
    return {.name = "KVO_HWS_getCurrentServer",
            .codes = {KVO_HWS_OK, KVO_HWS_NO, KVO_HWS_FAILED, KVO_HWS_NO_SERVICE, KVO_HWS_TOO_SMALL, KVO_HWS_SECOND_TOO_SMALL},
            .areas =
                [](const Caller &caller, const Replies &) {
                    return std::vector<std::size_t>{kWord, kWord, caller.room, caller.secondRoom};
                },
            .prepare =
                [](Outputs &out, const Caller &caller) {
                    out.word(0) = caller.room;
                    out.word(1) = caller.secondRoom;
                },
            .ask =
                [](Outputs &out, const Caller &) {
                    return KVO_HWS_getCurrentServer(kStation, out.at(2), &out.word(0), out.at(3), &out.word(1));
                },
            .read = [store](Outputs &out, const Caller &, Replies &replies) -> std::optional<int32_t> {
                constexpr std::size_t kLongest = 1024;
                constexpr std::string_view kKey = "vncserver=";
                const auto reply = replies.take();
                if (!reply) {
                    return std::nullopt;
                }
                const std::size_t colon = reply->find(':', kKey.size());
                if (*reply == "none") {
                    return KVO_HWS_NO;
                }
                if (!reply->starts_with(kKey) || colon == reply->npos || colon - kKey.size() > kLongest) {
                    return KVO_HWS_FAILED;
                }
                if (!store(out, 0, reply->substr(kKey.size(), colon - kKey.size()))) {
                    return KVO_HWS_TOO_SMALL;
                }
                const std::string display = reply->substr(colon + 1);
                if (display.size() > kLongest) {
                    return KVO_HWS_FAILED;
                }
                return store(out, 1, display) ? KVO_HWS_OK : KVO_HWS_SECOND_TOO_SMALL;
            }};
}

/// A buffer for all of the reply, as its callers have to have it.
Row wholeText(const char *name, int32_t (*ask)(uint32_t station, char *text), const std::string &key, const Words &known)
{
    Row row = keyed(
        name, {}, [ask](Outputs &out) { return ask(kStation, out.at(0)); }, key,
        [known](Outputs &out, const Caller &, const std::string &text) {
            return fuzz::resultOf(known, text, 1) == 1 ? storeText(out, text) : KVO_HWS_FAILED;
        });
    row.areas = [key](const Caller &, const Replies &replies) {
        const std::string reply = replies.lines.empty() ? "" : replies.lines.front();
        return std::vector<std::size_t>{reply.size() + 1 - (reply.starts_with(key) ? key.size() : 0)};
    };
    return row;
}

Row cutText()
{
    const auto roomOf = [](const Caller &caller) { return std::max<std::size_t>(caller.room, 1); };
    Row row = wholeText("getT2M2N", nullptr, "", {});
    row.areas = [=](const Caller &caller, const Replies &) { return std::vector<std::size_t>{roomOf(caller)}; };
    row.ask = [=](Outputs &out, const Caller &caller) { return kvo_hws::getT2M2N(kStation, out.at(0), roomOf(caller)); };
    row.read = [=](Outputs &out, const Caller &caller, Replies &replies) -> std::optional<int32_t> {
        const auto reply = replies.take();
        if (!reply) {
            return std::nullopt;
        }
        return *reply == "failed" ? KVO_HWS_FAILED : storeText(out, reply->substr(0, roomOf(caller) - 1));
    };
    return row;
}

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

/// Stored before it is judged.
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

/// @p place: of a device's area; nothing where the request does not tell it.
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

/// Both kinds of touch devices as one number; the areas are keyboards, mice, touch devices and virtual keyboards.
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

/// The areas are the mask and the devices; the caller leaves some of them out.
Row devicesApart()
{
    const auto wants = [](const Caller &caller, std::size_t area) { return (caller.room >> area & 1) == 0; };
    Row row = keyed("KVO_HWS_showInputDeviceV3", std::vector<std::size_t>(1 + kDevices, kWord), {}, "", {});
    row.ask = [=](Outputs &out, const Caller &caller) {
        const auto output = [&](std::size_t area) { return wants(caller, area) ? &out.word(area) : nullptr; };
        return KVO_HWS_showInputDeviceV3(kStation, output(0), output(1), output(2), output(3), output(4), output(5), output(6));
    };
    row.read = [=](Outputs &out, const Caller &caller, Replies &replies) -> std::optional<int32_t> {
        const auto reply = replies.take();
        if (!reply) {
            return std::nullopt;
        }
        uint32_t mask = 0;
        const int32_t result = readDevices(out, *reply, [&](std::size_t device) {
            return wants(caller, 1 + device) ? std::optional(1 + device) : std::nullopt;
        });
        for (std::size_t i = 0; i < kDevices; ++i) {
            mask |= itemOf(*reply, kDeviceKeys[i]).there ? 1U << i : 0;
        }
        if (result == KVO_HWS_OK && wants(caller, 0)) {
            out.word(0) = mask;
        }
        return result;
    };
    return row;
}

/// 8 bytes; @p base 0 is a text.
Row metric(uint32_t id, const char *name, const std::string &key, int base, bool (*valid)(unsigned long value))
{
    return keyed(
        name, {8}, [id](Outputs &out) { return KVO_HWS_getStationMetrics(kStation, id, out.at(0)); }, key,
        [=](Outputs &out, const Caller &, const std::string &rest) -> int32_t {
            if (base == 0) {
                return rest.empty() || rest.size() > 7 ? int32_t{KVO_HWS_UNKNOWN_REPLY} : storeText(out, rest);
            }
            char *end = nullptr;
            const unsigned long value = std::strtoul(rest.c_str(), &end, base);
            if (end == rest.c_str() || *end != '\0' || !valid(value)) {
                return KVO_HWS_UNKNOWN_REPLY;
            }
            out.word(0) = static_cast<uint32_t>(value);
            return KVO_HWS_OK;
        },
        {{"none", KVO_HWS_NOT_AVAILABLE}}, {KVO_HWS_UNKNOWN_REPLY});
}

Row marovantiPanel()
{
    Row row = keyed(
        "KVO_HWS_isMarovantiPanel", {}, [](Outputs &) { return KVO_HWS_isMarovantiPanel(kStation); }, "is-Marovanti-Panel=",
        [](Outputs &, const Caller &, const std::string &mode) -> int32_t {
            return fuzz::resultOf({{"1", KVO_HWS_OK}, {"0", KVO_HWS_NO}, {"", KVO_HWS_FAILED}}, mode, KVO_HWS_OUT_OF_RANGE);
        });
    row.codes = {KVO_HWS_OK,           KVO_HWS_NO,           KVO_HWS_FAILED,
                 KVO_HWS_NO_SERVICE,   KVO_HWS_OUT_OF_RANGE, KVO_HWS_NOT_AVAILABLE,
                 KVO_HWS_UNKNOWN_REPLY};
    row.read = [readMode = row.read](Outputs &out, const Caller &caller, Replies &replies) -> std::optional<int32_t> {
        const bool names = replies.lines.empty() || replies.lines.front().starts_with("is-Marovanti-Panel=");
        return names ? readMode(out, caller, replies)
                     : fuzz::resultOf({{"not found", KVO_HWS_NOT_AVAILABLE}, {"failed", KVO_HWS_NOT_AVAILABLE}},
                                      *replies.take(), KVO_HWS_UNKNOWN_REPLY);
    };
    return row;
}

/// A request that has never told a missing service from another failure.
Row neverWithoutService(Row row)
{
    row.noService = KVO_HWS_FAILED;
    return row;
}

// ---- The table ----

const Words kOk = {{"ok", KVO_HWS_OK}};
const Words kOkOrBusy = {{"ok", KVO_HWS_OK}, {"busy", KVO_HWS_NO}};
const Words kStopped = {{"ok", KVO_HWS_OK}, {"not running", KVO_HWS_NO}};
const Words kNotARv4 = {{"not_a_rv4", KVO_HWS_NO}};

bool isKnown(unsigned long value) { return value < 0xFFFFFFFF; }

/// New rows come at the end: the corpus names them by their number.
std::vector<Row> rows()
{
    return {
        words(
            "KVO_HWS_setDebugLevel", [] { return KVO_HWS_setDebugLevel(1); }, kOk),
        words("KVO_HWS_getDebugLevel", KVO_HWS_getDebugLevel,
              {{"DEBUG_LEVEL_NONE", 0}, {"DEBUG_LEVEL_I", 1}, {"DEBUG_LEVEL_II", 2}}),
        neverWithoutService(words("KVO_HWS_lockKVORegData", KVO_HWS_lockKVORegData, kOkOrBusy)),
        neverWithoutService(words("KVO_HWS_unlockKVORegData", KVO_HWS_unlockKVORegData, kOk)),
        sizedText("KVO_HWS_getKVOHWSVersion", KVO_HWS_getKVOHWSVersion, "", readVersion,
                  {KVO_HWS_OK, KVO_HWS_FAILED, KVO_HWS_NO_SERVICE}),
        words(
            "KVO_HWS_setBacklight", [] { return KVO_HWS_setBacklight(1); }, kOk),
        words(
            "KVO_HWS_setBrightness", [] { return KVO_HWS_setBrightness(kStation, 1); }, kOk),
        words("KVO_HWS_isInitComplete", KVO_HWS_isInitComplete, {{"yes", KVO_HWS_OK}, {"no", KVO_HWS_NO}}),
        words("KVO_HWS_killDaemon", KVO_HWS_killDaemon, {}, KVO_HWS_OK),
        descriptionList(),
        extendedList(),
        clientList(),
        oneStation("KVO_HWS_getDescriptionEx by its address", kStation),
        oneStation("KVO_HWS_getDescriptionEx by its name", 0),
        words(
            "KVO_HWS_setStatusline", [] { return KVO_HWS_setStatusline(kStation, 1, 2, "text"); }, kOk),
        words(
            "KVO_HWS_rebootKVO", [] { return KVO_HWS_rebootKVO(kStation); }, kOk),
        words("KVO_HWS_isViewerActive", [] { return KVO_HWS_isViewerActive(kStation); },
              {{"active", KVO_HWS_OK}, {"not active", KVO_HWS_NO}}),
        currentServer(),
        words(
            "KVO_HWS_setActivateMe", [] { return KVO_HWS_setActivateMe(kStation); }, kOkOrBusy),
        words(
            "KVO_HWS_setStartViewer", [] { return KVO_HWS_setStartViewer(kStation, "a", "b", "c"); }, kOkOrBusy),
        words(
            "KVO_HWS_startConfiguredViewer", [] { return KVO_HWS_startConfiguredViewer(kStation, "a", 1); }, kOkOrBusy),
        words(
            "KVO_HWS_setStopViewer", [] { return KVO_HWS_setStopViewer(kStation); }, kStopped),
        words(
            "KVO_HWS_setStopViewerPreempt", [] { return KVO_HWS_setStopViewerPreempt(kStation); }, kStopped),
        words(
            "KVO_HWS_setStopViewerNoClean", [] { return KVO_HWS_setStopViewerNoClean(kStation); }, kStopped),
        words(
            "KVO_HWS_setBacklightBrightness", [] { return KVO_HWS_setBacklightBrightness(kStation, 50); }, kOk),
        words("KVO_HWS_setBacklightBrightnessV2", [] { return KVO_HWS_setBacklightBrightnessV2(kStation, 50, 1); },
              {{"ok", KVO_HWS_OK}, {"bad request", KVO_HWS_UNSUPPORTED}, {"not active", KVO_HWS_NOT_ACTIVE}}),
        keyed("KVO_HWS_getBacklightBrightnessV2", {kWord},
              [](Outputs &out) { return KVO_HWS_getBacklightBrightnessV2(kStation, &out.word(0), 1); },
              "backlight-brightness-v2=", readBrightness, {{"bad request", KVO_HWS_NO}}),
        words(
            "KVO_HWS_setDisableNumLock", [] { return KVO_HWS_setDisableNumLock(kStation, 1); }, kOk),
        words(
            "KVO_HWS_setDisableCapsLock", [] { return KVO_HWS_setDisableCapsLock(kStation, 1); }, kOk),
        stored("KVO_HWS_getDisableNumLock", KVO_HWS_getDisableNumLock, {{"disable numlock 0", 0}, {"disable numlock 1", 1}}),
        stored("KVO_HWS_getDisableCapsLock", KVO_HWS_getDisableCapsLock, {{"diable capslock 0", 0}, {"diable capslock 1", 1}}),
        stored("KVO_HWS_getStationType", KVO_HWS_getStationType,
               {{"stationtype 0", 0}, {"stationtype 1", 1}, {"stationtype -1", -1}}),
        stored("KVO_HWS_getSwCapsLock", KVO_HWS_getSwCapsLock,
               {{"swcapslock 0", 0}, {"swcapslock 1", 1}, {"swcapslock -1", -1}}),
        words(
            "KVO_HWS_setSwCapsLock", [] { return KVO_HWS_setSwCapsLock(kStation, -1); }, kOk),
        keyed(
            "KVO_HWS_getRV4Mode", {kWord}, [](Outputs &out) { return KVO_HWS_getRV4Mode(kStation, &out.word(0)); },
            "rv4mode=", readRv4Mode, kNotARv4),
        words("KVO_HWS_setRV4Mode", [] { return KVO_HWS_setRV4Mode(kStation, 1); },
              {{"ok", KVO_HWS_OK}, {"not_a_rv4", KVO_HWS_NO}}),
        words(
            "KVO_HWS_setMCPAddress", [] { return KVO_HWS_setMCPAddress(kStation, 1); }, kOk),
        words(
            "KVO_HWS_setKVOIndex", [] { return KVO_HWS_setKVOIndex(kStation, 1); }, kOk),
        words(
            "KVO_HWS_setDCKEnable", [] { return KVO_HWS_setDCKEnable(kStation, 1); }, kOk),
        words(
            "KVO_HWS_setKVOCksIndex", [] { return KVO_HWS_setKVOCksIndex(kStation, 1); }, kOk),
        words(
            "KVO_HWS_simulateMCPKey", [] { return KVO_HWS_simulateMCPKey(kStation, 1, 2); }, kOk),
        words(
            "KVO_HWS_enableMCPKey", [] { return KVO_HWS_enableMCPKey(kStation, 1, 2); }, kOk),
        number("KVO_HWS_getMCPAddress", KVO_HWS_getMCPAddress, "mcpaddr=", 10, 0, 255),
        number("KVO_HWS_getKVOIndex", KVO_HWS_getKVOIndex, "kvoindex=", 10, 0, 255),
        number("KVO_HWS_getDCKEnable", KVO_HWS_getDCKEnable, "dckenable=", 10, 0, 1),
        number("KVO_HWS_getDCKAddress", KVO_HWS_getDCKAddress, "dckaddr=", 10, 0, 255),
        number("KVO_HWS_getKVOCksIndex", KVO_HWS_getKVOCksIndex, "cksindex="),
        number("KVO_HWS_getIPbyMCPAddress", KVO_HWS_getIPbyMCPAddress, "ipaddr=", 16, 0, ~0UL,
               {{"no_mcp_address", KVO_HWS_NO}, {"more_than_one_mcp", KVO_HWS_AMBIGUOUS}}),
        number("KVO_HWS_getIPbyDCKAddress", KVO_HWS_getIPbyDCKAddress, "ipaddr=", 16, 0, ~0UL,
               {{"no_dck_address", KVO_HWS_NO}, {"more_than_one_dck", KVO_HWS_AMBIGUOUS}}),
        number("KVO_HWS_getIPbyKVOIndex", KVO_HWS_getIPbyKVOIndex, "ipaddr=", 16, 0, ~0UL,
               {{"no_kvo_index", KVO_HWS_NO}, {"more_than_one_kvo_index", KVO_HWS_AMBIGUOUS}}),
        keyed(
            "KVO_HWS_getKVOPriority", {kWord, kWord},
            [](Outputs &out) { return KVO_HWS_getKVOPriority(kStation, &out.word(0), &out.word(1)); },
            "Priority=", readPriority),
        number("KVO_HWS_getKVOStartupActive", KVO_HWS_getKVOStartupActive, "startup-active=", 10, 0, 2),
        number("KVO_HWS_getKVOStartupPrio", KVO_HWS_getKVOStartupPrio, "startup-prio="),
        number("KVO_HWS_getKVOChannelOnFocus", KVO_HWS_getKVOChannelOnFocus, "channel-on-focus=", 10, 1, 8),
        wholeText("KVO_HWS_getKVOScreenOnFocus", KVO_HWS_getKVOScreenOnFocus, "screen-on-focus=", {}),
        wholeText("KVO_HWS_getKVOT2M2N", KVO_HWS_getKVOT2M2N, "", {{"failed", KVO_HWS_FAILED}}),
        cutText(),
        words(
            "KVO_HWS_setChannelInfo", [] { return KVO_HWS_setChannelInfo(kStation, "info"); }, kOk),
        sizedText(
            "KVO_HWS_getChannelInfo", [](char *info, uint32_t *size) { return KVO_HWS_getChannelInfo(kStation, info, size); },
            "channel-info=", readChannelInfo, {KVO_HWS_OK, KVO_HWS_NO, KVO_HWS_FAILED, KVO_HWS_NO_SERVICE, KVO_HWS_TOO_SMALL}),
        words(
            "KVO_HWS_deleteChannelInfo", [] { return KVO_HWS_deleteChannelInfo(kStation); }, kOk),
        words("KVO_HWS_invalidateTouchScreen", [] { return KVO_HWS_invalidateTouchScreen(kStation); },
              {{"ok", KVO_HWS_OK}, {"no_touchscreen", KVO_HWS_NO}}),
        keyed("KVO_HWS_getTouchScreenCalibParam", {kWord, kWord},
              [](Outputs &out) { return KVO_HWS_getTouchScreenCalibParam(kStation, &out.signedWord(0), &out.signedWord(1)); },
              "", readCalibration, {}, {KVO_HWS_NO}),
        words("KVO_HWS_setTouchScreenCalibParam", [] { return KVO_HWS_setTouchScreenCalibParam(kStation, 1, 1); },
              {{"ok", KVO_HWS_OK}, {"no_touchscreen", KVO_HWS_NO}}),
        keyed(
            "KVO_HWS_showInputDevice", {kWord, kWord, kWord},
            [](Outputs &out) { return KVO_HWS_showInputDevice(kStation, &out.word(0), &out.word(1), &out.word(2)); }, "",
            [](Outputs &out, const Caller &, const std::string &reply) { return readOldDevices(out, reply, false); }),
        keyed(
            "KVO_HWS_showInputDeviceV2", {kWord, kWord, kWord, kWord},
            [](Outputs &out) {
                return KVO_HWS_showInputDeviceV2(kStation, &out.word(0), &out.word(1), &out.word(2), &out.word(3));
            },
            "", [](Outputs &out, const Caller &, const std::string &reply) { return readOldDevices(out, reply, true); }),
        devicesApart(),
        keyed(
            "KVO_HWS_showDPI", {kWord}, [](Outputs &out) { return KVO_HWS_showDPI(kStation, &out.signedWord(0)); },
            "dpi=", readDpi),
        keyed(
            "KVO_HWS_getUsbLock", {kWord, kWord},
            [](Outputs &out) { return KVO_HWS_getUsbLock(kStation, &out.word(0), &out.word(1)); }, "usb-lock=", readUsbLock),
        connectors("KVO_HWS_getUsbConnectorList", "usb-connector-list=", KVO_HWS_getUsbConnectorList),
        connectors("KVO_HWS_getUsbConnectorListOne", "usb-connector-list-one=",
                   [](char *buffer, uint32_t *size) { return KVO_HWS_getUsbConnectorListOne(kStation, buffer, size); }),
        metric(1, "panel layout", "panel-oem-layout=", 0, nullptr),
        metric(2, "soft key type", "softkey-type=", 16, [](unsigned long value) { return isKnown(value) && value % 2 == 0; }),
        metric(3, "keyboard capabilities", "keyboard-caps=", 16, isKnown),
        metric(4, "dots per inch", "dpi=", 10, isKnown),
        metric(5, "hardware capabilities", "hardware-caps=", 16, isKnown),
        metric(6, "panel rotation", "panel-rotation=", 10, [](unsigned long value) { return value >= 1 && value <= 4; }),
        marovantiPanel(),
    };
}

// ---- The comparison ----

void compare(const Row &row, const Caller &caller, const Replies &replies, uint8_t fill)
{
    const std::vector<std::size_t> areas = row.areas(caller, replies);
    Outputs wanted(areas, fill);
    row.prepare(wanted, caller);
    Replies read = replies;
    const int32_t gone = row.noService != 0 ? row.noService : replies.gone;
    const int32_t wantedResult = row.read(wanted, caller, read).value_or(gone);

    Outputs got(areas, fill);
    row.prepare(got, caller);
    coming = replies;
    const int32_t result = row.ask(got, caller);

    if (std::ranges::find(row.codes, result) == row.codes.end()) {
        fuzz::fault("%s: returned %d, which is none of its codes", row.name, result);
    }
    if (result != wantedResult) {
        fuzz::fault("%s: returned %d, a plain reading returns %d", row.name, result, wantedResult);
    }
    if (coming.next != read.next) {
        fuzz::fault("%s: made %zu exchanges instead of %zu", row.name, coming.next, read.next);
    }
    wanted.expectSame(got, row.name);
}

/// Up to 127 bytes one by one, and up to 2 KiB in steps.
uint32_t roomOf(uint8_t byte) { return byte < 128 ? byte : (byte - 128U) * 16; }

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

}  // namespace

/// The first byte is the request, the next two are the sizes of the caller's buffers; the rest are the replies, a line each. A
/// service that is asked once more has gone.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    constexpr std::size_t kHead = 3;
    static const std::vector<Row> table = rows();
    if (size < kHead || data[0] >= table.size()) {
        return 0;
    }
    const Row &row = table[data[0]];
    const Caller caller{.room = roomOf(data[1]), .secondRoom = roomOf(data[2])};
    const int gone = data[2] % 2 == 0 ? KVO_HWS_NO_SERVICE : KVO_HWS_FAILED;
    const Replies replies = repliesOf(fuzz::textOf(data + kHead, size - kHead), gone);
    compare(row, caller, replies, 0);
    compare(row, caller, replies, 0xA5);
    return 0;
}
