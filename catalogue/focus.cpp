// Focus, start and channel information.
#include "catalogue/catalogue.h"

#include <kvo_hws/requests.h>

namespace catalogue {

namespace {

constexpr std::size_t kBuffer = 8192;  // more than any text of a plant

Request priority()
{
    Request request = CATALOGUE_REQUEST(KVO_HWS_getKVOPriority, "get KVO priority");
    request.asks("getKVOPriority=0A000005", {station, out, out})
        .on("Priority=", 1, {0, 1})
        .on("Priority=:", 1, {0, 1})
        .on("Priority=0:", 1, {0, 1})
        .on("Priority=1:", 1, {1, 1})
        .on("Priority=1:3", 1, {1, 3})
        .on("Priority=1:10", 1, {1, 10})
        .on("Priority=:7", 1, {0, 7})
        .unknown("priority=1:3")
        .soak({1, -1, -2})
        .kvoctl("focus priority", {kHere})
        .shows("Priority=1:3", "suspend_lock      1\nsuspend_priority  3\n", R"({"suspend_lock": 1, "suspend_priority": 3})")
        .shows("Priority=", "suspend_lock      0\nsuspend_priority  1\n", R"({"suspend_lock": 0, "suspend_priority": 1})")
        .wire("`getKVOPriority=`*station*", "`Priority=`*options*, `failed`",
              "returns the suspend options; the text below explains *options*")
        .cpp("Station::priority")
        .python("Panel.get_priority");
    for (const char *malformed : {"1", "2:3", "0:0", "0:11", "0:5 ", "x", " 1:3", "+1:3", "-1:3", ":x", ":+5", "1 :5",
                                  "4294967296:1", ":4294967297", "::", "1:3:"}) {
        request.on(std::string("Priority=") + malformed, -1, "error get suspend options");
    }
    return request;
}

std::vector<Request> numbers()
{
    return {
        priority(),

        CATALOGUE_REQUEST(KVO_HWS_getKVOStartupActive, "get KVO startup active")
            .asks("getKVOStartupActive=0A000005", {station, out})
            .reads({.key = "startup-active=", .highest = 2})
            .on("startup-active=0", 1, {0})
            .on("startup-active=2", 1, {2})
            .on("startup-active=3", -1)
            .on("startup-active=1 ", -1)
            .on("startup-active=-1", -1)
            .nullPointer({station, nullptr})
            .soak({1, -1, -2})
            .kvoctl("focus startup", {kHere})
            .wire("`getKVOStartupActive=`*station*", "`startup-active=`*number*, `failed`",
                  "returns whether the station becomes active at start, 0 to 2")
            .cpp("Station::startup_active")
            .python("Panel.get_startup_active"),

        CATALOGUE_REQUEST(KVO_HWS_getKVOStartupPrio, "get KVO startup prio")
            .asks("getKVOStartupPrio=0A000005", {station, out})
            .reads({.key = "startup-prio="})
            .on("startup-prio=70", 1, {70})
            .on("startup-prio=4294967295", 1, {0xFFFFFFFF})
            .on("startup-prio=4294967298", 1, {sizeof(long) == 8 ? 2 : 0xFFFFFFFF})
            .on("startup-prio=70x", -1)
            .nullPointer({station, nullptr})
            .soak({1, -1, -2})
            .kvoctl("focus startup", {kHere})
            .wire("`getKVOStartupPrio=`*station*", "`startup-prio=`*number*, `failed`",
                  "returns the priority with which the station becomes active at start")
            .cpp("Station::startup_prio")
            .python("Panel.get_startup_prio"),

        CATALOGUE_REQUEST(KVO_HWS_getKVOChannelOnFocus, "get KVO channel on focus")
            .asks("getKVOChannelOnFocus=0A000005", {station, out})
            .reads({.key = "channel-on-focus=", .lowest = 1, .highest = 8})
            .on("channel-on-focus=1", 1, {1})
            .on("channel-on-focus=8", 1, {8})
            .on("channel-on-focus=0", -1)
            .on("channel-on-focus=9", -1)
            .on("channel-on-focus=", -1)
            .on("channel-on-focus=1 ", -1)
            .nullPointer({station, nullptr})
            .soak({1, -1, -2})
            .kvoctl("focus channel", {kHere})
            .shows("channel-on-focus=8", "8\n", R"({"channel": 8})")
            .wire("`getKVOChannelOnFocus=`*station*", "`channel-on-focus=`*number*, `failed`",
                  "returns the channel that the station shows when it gets the focus, 1 to 8")
            .cpp("Station::channel_on_focus")
            .python("Panel.get_channel_on_focus"),
    };
}

std::vector<Request> texts()
{
    const std::string longText(1500, 't');  // more than one read of the channel
    return {
        CATALOGUE_REQUEST(KVO_HWS_getKVOScreenOnFocus, "get KVO screen on focus")
            .asks("getKVOScreenOnFocus=0A000005", {station, buffer(kBuffer)})
            .on("screen-on-focus=machine", 1, {"machine"})
            .on("screen-on-focus=" + longText, 1, {longText})
            .on("screen-on-focus=", 1, {""})
            .nullPointer({station, nullptr})
            .soak({1, -1, -2})
            .kvoctl("focus screen", {kHere})
            .shows("screen-on-focus=main", "main\n", R"({"screen": "main"})")
            .shows("screen-on-focus=", "\n", R"({"screen": ""})")
            .shows("screen-on-focus=\x1B[2J", "\\x1B[2J\n", R"({"screen": "\u001b[2J"})")
            .shows("screen-on-focus=" + longText, longText + "\n", R"({"screen": ")" + longText + R"("})")
            .wire("`getKVOScreenOnFocus=`*station*", "`screen-on-focus=`*text*, `failed`",
                  "returns the screen that the station shows when it gets the focus")
            .cpp("Station::screen_on_focus")
            .python("Panel.get_screen_on_focus"),

        // Any reply of the daemon is the text, except "failed".
        CATALOGUE_REQUEST(KVO_HWS_getKVOT2M2N, "get KVO M:N")
            .asks("getKVOt2m2n=0A000005", {station, buffer(kBuffer)})
            .takesAnyReply()
            .on("1:2 3:4", 1, {"1:2 3:4"})
            .on("unknown", 1, {"unknown"})
            .on("", 1, {""})
            .on("failed ", 1, {"failed "})
            .on("failed", -1, "error sending request")
            .nullPointer({station, nullptr})
            .soak({1, -1, -2})
            .kvoctl("focus m2n", {kHere})
            .shows("1:2,3", "1:2,3\n", R"({"m2n": "1:2,3"})")
            .shows("hm", "hm\n", R"({"m2n": "hm"})")
            .wire("`getKVOt2m2n=`*station*", "any text, `failed`", "returns the M:N assignment; the whole reply is the text")
            .cpp("Station::t2m2n")
            .python("Panel.get_t2m2n"),
    };
}

Arguments infoOf(uint32_t size) { return {station, buffer(64), inOut(size)}; }

std::vector<Request> channelInfo()
{
    const std::string longest(230, 'i');
    return {
        CATALOGUE_REQUEST(KVO_HWS_setChannelInfo, "set channel info")
            .asks("setChannelInfo=\"turning 2\" 0A000005", {station, "turning 2"})
            .on("ok", 1)
            .sends("setChannelInfo=\"\" 0A000005", {station, ""})
            .sends("setChannelInfo=\"" + longest + "\" 0A000005", {station, longest})
            .sends("setChannelInfo=\"a\"b\" 0A000005", {station, "a\"b"})
            .refuses({station, longest + "i"}, -3, "channel info to long (max. 230)")
            .nullPointer({station, nullptr})
            .soak({1, -1, -2})
            .kvoctl("channel-info set", {kHere, "turning 2"})
            .wire("`setChannelInfo=\"`*text*`\" `*station*", "`ok`, `failed`",
                  "stores the channel information, at most 230 bytes")
            .cpp("Station::set_channel_info")
            .python("Panel.set_channel_info"),

        CATALOGUE_REQUEST(KVO_HWS_getChannelInfo, "get channel info")
            .asks("getChannelInfo=0A000005", infoOf(16))
            .on("channel-info=abc", 1, {"abc", 16})
            .on("channel-info=abc", 1, {"abc", 4})
            .given(infoOf(4))
            .on("channel-info=abc", -3, {nothing, 4})
            .given(infoOf(3))
            .on("channel-info=abc", -3, {nothing, 4})
            .given(infoOf(0))
            .on("channel-info=", 0, {nothing, 0})
            .given(infoOf(0))
            .on("channel-info=", 0, {"", 1})
            .given(infoOf(1))
            .nullPointer({station, buffer(4), nullptr})
            .nullPointer({station, nullptr, inOut(4)})
            .soak({1, 0, -1, -2, -3})
            .kvoctl("channel-info get", {kHere})
            .shows("channel-info=Spindle 1", "Spindle 1\n", R"({"info": "Spindle 1"})")
            .wire("`getChannelInfo=`*station*", "`channel-info=`*text*, `failed`",
                  "returns the channel information; no text after the `=` if the station has none")
            .cpp("Station::channel_info")
            .python("Panel.get_channel_info"),

        CATALOGUE_REQUEST(KVO_HWS_deleteChannelInfo, "delete channel info")
            .asks("deleteChannelInfo=0A000005", {station})
            .on("ok", 1)
            .soak({1, -1, -2})
            .kvoctl("channel-info delete", {kHere})
            .wire("`deleteChannelInfo=`*station*", "`ok`, `failed`",
                  "deletes the channel information; `ok` even if the station has none")
            .cpp("Station::delete_channel_info")
            .python("Panel.delete_channel_info"),
    };
}

}  // namespace

Family focus() { return {"focus", joined({numbers(), texts(), channelInfo()})}; }

}  // namespace catalogue
