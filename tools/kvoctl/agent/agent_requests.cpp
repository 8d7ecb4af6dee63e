// The commands of the remote protocol, each with a harmless argument.
#include "kvoctl/agent/agent_requests.h"

#include <map>
#include <regex>

namespace kvoctl {

namespace {

std::string line(const std::string &pattern) { return pattern + "\r\n"; }

std::string failed(const std::string &reason) { return line("failed: " + reason); }

const std::string kOk = line("ok");
const std::string kFailed = line("failed");
const std::string kBad = line("bad request");
/// Replies to a command for the host. Without a host, the reply is "bad request".
const std::string kDone = kOk + "|" + kFailed + "|" + kBad;
/// Replies to a command that stores a value: "bad request" if the value is not allowed.
const std::string kTaken = kOk + "|" + kBad;
/// Without a line end, unlike all other replies: remote services wait for these four letters.
const std::string kNone = "none";

/// Includes commands that the agent always refuses: they are harmless, because the agent does not pass them on.
const std::map<std::string_view, AgentRequest> kRequests{
    {"show-panel-size",
     {.reply = line("width=-?[0-9]+ height=-?[0-9]+ depth=-?[0-9]+") + "|" + failed("panel size not readable")}},
    {"show-hwid", {.reply = line("hwid=[0-9]+[.][0-9]+[.][0-9]+[.][0-9]+:[0-9a-f]{8}") + "|" + failed("hwid not readable")}},
    {"show-input-devices",
     {.reply = line("kbd=[0-9]+ mouse=[0-9]+ touch=[0-9]+ vkbd=-?[0-9]+") + "|" + failed("input devices not readable")}},
    {"set-backlight=", {.reply = failed("EMB-KVO backlight not supported"), .argument = "1"}},
    {"set-backlight-brightness=", {.reply = failed("EMB-KVO backlight brightness not supported"), .argument = "50"}},
    {"set-backlight-brightness-v2=", {.reply = failed("EMB-KVO backlight brightness V2 not supported"), .argument = "0,50"}},
    {"get-backlight-brightness-v2=", {.reply = failed("EMB-KVO backlight brightness not supported"), .argument = "0"}},
    {"set-darken=", {.reply = kDone, .argument = "0"}},
    {"set-disable-numlock=", {.reply = kTaken, .argument = "0", .getter = "get-disable-numlock"}},
    {"set-disable-capslock=", {.reply = kTaken, .argument = "0", .getter = "get-disable-capslock"}},
    {"get-disable-numlock", {.reply = line("disable-numlock=[01]")}},
    {"get-disable-capslock", {.reply = line("disable-capslock=[01]")}},
    {"get-station-type", {.reply = line("station-type=-?[0-9]+") + "|" + failed("station-type not readable")}},
    {"get-sw-capslock", {.reply = line("sw-capslock=-?[0-9]+") + "|" + failed("sw-capslock not readable")}},
    {"set-sw-capslock=",
     {.reply = kTaken + "|" + failed("sw-capslock not writeable"), .argument = "-1", .getter = "get-sw-capslock"}},
    {"get-kvo-name", {.reply = line("EmbKVO_[0-9A-F]{12}")}},
    {"get-kvo-priority", {.reply = line("Priority=[0-9]+:-?[0-9]+")}},
    {"get-kvo-startup-active", {.reply = line("startup-active=[0-9]+")}},
    {"get-kvo-startup-prio", {.reply = line("startup-prio=[0-9]+")}},
    {"set-channel-info=", {.reply = kOk + "|" + failed("out of memory"), .getter = "get-channel-info"}},
    {"get-channel-info", {.reply = line("channel-info=[^\r\n]*")}},
    {"get-screen-on-focus", {.reply = line("screen-on-focus=[^\r\n]*")}},
    {"get-channel-on-focus", {.reply = line("channel-on-focus=[0-9]+")}},
    {"get-t2m2n", {.reply = line("[^\r\n]*")}},
    {"get-mcpaddr", {.reply = line("mcpaddr=[0-9]+") + "|" + failed("mcp addr not readable")}},
    {"set-mcpaddr=", {.reply = kTaken + "|" + failed("mcp addr not writeable"), .argument = "0", .getter = "get-mcpaddr"}},
    {"get-kvoindex", {.reply = line("kvoindex=[0-9]+")}},
    {"set-kvoindex=", {.reply = kTaken, .argument = "1", .getter = "get-kvoindex"}},
    {"get-dckaddr", {.reply = line("dckaddr=[0-9]+") + "|" + failed("dck addr not readable")}},
    {"get-dckenable", {.reply = line("dckenable=[0-9]+") + "|" + failed("dck enable not readable")}},
    {"set-dckenable=", {.reply = kTaken + "|" + failed("kvo index not writeable"), .argument = "0", .getter = "get-dckenable"}},
    {"get-cksindex", {.reply = line("cksindex=[0-9]+") + "|" + failed("cks index not readable")}},
    {"set-cksindex=", {.reply = kTaken + "|" + failed("cks index not writeable"), .argument = "0", .getter = "get-cksindex"}},
    {"invalidate-calibration", {.reply = kOk + "|" + kFailed + "|" + line("no_touchscreen"), .changes = true}},
    {"get-rv4mode", {.reply = line("rv4mode=[0-9]+") + "|" + failed("rv4 mode not readable")}},
    {"set-rv4mode=", {.reply = kTaken + "|" + failed("rv4 mode not writeable"), .argument = "0", .getter = "get-rv4mode"}},
    {"get-calibparam", {.reply = kBad}},
    {"set-calibparam=", {.reply = kBad, .argument = "0,0"}},
    {"simulate-mcp=", {.reply = kBad, .argument = "0,0"}},
    {"enable-mcp=", {.reply = kBad, .argument = "0,0"}},
    {"reboot", {.reply = kBad}},
    {"show-viewer-active", {.reply = line("active=[01]") + "|" + kFailed + "|" + kBad}},
    {"show-current-server", {.reply = line("vncserver=[0-9.]+:[0-9]") + "|" + line("none") + "|" + kBad}},
    {"start-viewer=", {.reply = kBad, .argument = "check"}},
    {"start-configured-viewer=", {.reply = kBad, .argument = "check"}},
    {"stop-viewer-preempt", {.reply = kDone + "|" + line("not running")}},
    {"stop-viewer-noclean", {.reply = kDone + "|" + line("not running")}},
    {"stop-viewer", {.reply = kDone + "|" + line("not running")}},
    {"activate-me", {.reply = kDone + "|" + line("busy")}},
    {"servername=", {.reply = kOk, .argument = "kvoctl"}},
    {"set-statusline=", {.reply = kDone, .argument = "0,0,check"}},
    {"ping", {.reply = line("pong")}},
    {"get-softkey-type", {.reply = line("softkey-type=[0-9]+") + "|" + kNone + "|" + failed("softkey type not readable")}},
    {"get-keyboard-caps", {.reply = line("keyboard-caps=[0-9]+") + "|" + kNone + "|" + failed("keyboard caps not readable")}},
    {"get-hardware-caps", {.reply = line("hardware-caps=[0-9]+") + "|" + kNone + "|" + failed("hardware caps not readable")}},
    {"get-panel-oem-layout",
     {.reply = line("panel-oem-layout=[^\r\n]*") + "|" + kNone + "|" + failed("panel oem layout not readable")}},
    {"get-panel-rotation",
     {.reply = line("panel-rotation=[0-9A-F]+") + "|" + kNone + "|" + failed("panel rotation not readable")}},
    {"set-usb-lock=",
     {.reply = kTaken + "|" + failed("usb lock not writeable"), .argument = "0:0", .getter = "get-usb-lock", .changes = true}},
    {"get-usb-lock", {.reply = line("usb-lock=[0-9]+:[0-9]+") + "|" + failed("usb lock not readable")}},
    {"sync-times=", {.reply = kBad, .argument = "0"}},
};

}  // namespace

const AgentRequest *findAgentRequest(std::string_view keyword)
{
    const auto request = kRequests.find(keyword);
    return request == kRequests.end() ? nullptr : &request->second;
}

bool isValidReply(const AgentRequest &request, const std::string &reply)
{
    return std::regex_match(reply, std::regex(request.reply, std::regex::extended));
}

}  // namespace kvoctl
