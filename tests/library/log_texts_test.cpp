// Every text that the library logs, against the list in log_texts.golden: texts are part of the interface, programs and people
// search logs for them. KVO_WRITE_GOLDEN=1 in the environment writes the list anew instead.
#include <kvo_hws/kvo_hws.h>

#include "support/kept_by_the_platform.h"
#include "support/no_descriptors.h"
#include "support/own_thread.h"
#include "support/remote_service.h"
#include "support/scripted_service.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"
#include "support/usb_events.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using support::ScriptedService;

/// What differs from run to run is written as what it is.
std::string withoutNumbers(const std::string &text)
{
    static const std::vector<std::pair<std::regex, std::string>> kRules = {
        {std::regex("thread 0x[0-9A-F]{8}"), "thread 0x<thread>"},
        {std::regex("\\[[0-9A-F]{4,16}\\]"), "[<thread>]"},
        {std::regex("(recv|select)\\(-?[0-9]+\\)"), "$1(<fd>)"},
        {std::regex("(socket|closesocket) -?[0-9]+"), "$1 <fd>"},
        {std::regex("terminated([0-9]) [0-9]+ .*"), "terminated$1 <errno> <text>"},
        {std::regex("x{20,}"), "xxx..."},
        {std::regex("\n"), "\\n"}};
    std::string result = text;
    for (const auto &[pattern, replacement] : kRules) {
        result = std::regex_replace(result, pattern, replacement);
    }
    return result;
}

// Requests are shown with their own messages alone; the readers' lines, the same for all of them, stand once.
constexpr int kMessagesOnly = 0;
constexpr int kAll = 2;

class Collector {
public:
    /// Runs @p work at a debug level and notes what it logged under @p heading.
    void run(const std::string &heading, int level, const std::function<void()> &work)
    {
        const support::MessagesOn messages(level);
        const support::SyslogCapture capture;
        work();
        for (const support::LogLine &line : capture.lines()) {
            lines_.insert(heading + " [" + std::to_string(line.priority) + "] " + withoutNumbers(line.text));
        }
    }

    [[nodiscard]] std::string text() const
    {
        std::string text;
        for (const std::string &line : lines_) {
            text += line + "\n";
        }
        return text;
    }

private:
    std::set<std::string> lines_;
};

struct Call {
    const char *name;
    std::function<void()> call;
    std::vector<std::vector<std::string>> replies{};  ///< beyond those that every request is given
};

/// A getter of one number, with and without its output.
template <class Number>
std::function<void()> reads(int32_t (*get)(uint32_t, Number *))
{
    return [get] {
        Number number{};
        get(1, &number);
        get(1, nullptr);
    };
}

const std::vector<Call> &calls()
{
    static const std::vector<Call> kCalls = {
        {"KVO_HWS_getDLLVersion",
         [] {
             char text[20];
             unsigned size = 3;
             KVO_HWS_getDLLVersion(text, &size);
             KVO_HWS_getDLLVersion(nullptr, &size);
         }},
        {"KVO_HWS_getDebugLevel", [] { KVO_HWS_getDebugLevel(); }},
        {"KVO_HWS_getDescriptionEx",
         [] {
             KvoDescriptionEx record;
             KVO_HWS_getDescriptionEx(1, nullptr, &record);
             KVO_HWS_getDescriptionEx(1, nullptr, nullptr);
         }},
        {"KVO_HWS_getDescriptionList",
         [] {
             KvoDescription list[1];
             uint32_t count = 1;
             KVO_HWS_getDescriptionList(list, &count);
             KVO_HWS_getDescriptionList(nullptr, &count);
         },
         {{"2"}, {"1", "failed"}, {"1", "x"}, {"1", "00000002 "}, {"1", "00000001 x"}}},
        {"KVO_HWS_getDescriptionListEx",
         [] {
             KvoDescriptionEx list[1];
             uint32_t count = 1;
             KVO_HWS_getDescriptionListEx(list, &count);
             KVO_HWS_getDescriptionListEx(list, nullptr);
         },
         {{"2"}, {"1", "failed"}, {"1", "x"}, {"1", "00000002 "}, {"1", "00000001 x"}}},
        {"KVO_HWS_getKVOCurrentListFromRegistry",
         [] {
             KvoDescription list[1];
             uint32_t count = 1;
             KVO_HWS_getKVOCurrentListFromRegistry(list, &count, 0);
         }},
        {"KVO_HWS_getKVOHWSVersion",
         [] {
             char text[20];
             unsigned size = 1;
             KVO_HWS_getKVOHWSVersion(text, &size);
             KVO_HWS_getKVOHWSVersion(nullptr, &size);
         }},
        {"KVO_HWS_isInitComplete", [] { KVO_HWS_isInitComplete(); }},
        {"KVO_HWS_killDaemon", [] { KVO_HWS_killDaemon(); }},
        {"KVO_HWS_lockKVORegData", [] { KVO_HWS_lockKVORegData(); }},
        {"KVO_HWS_setBacklight",
         [] {
             KVO_HWS_setBacklight(1);
             KVO_HWS_setBacklight(2);
         }},
        {"KVO_HWS_setBrightness",
         [] {
             KVO_HWS_setBrightness(1, 1);
             KVO_HWS_setBrightness(1, 2);
         }},
        {"KVO_HWS_setDebugLevel", [] { KVO_HWS_setDebugLevel(1); }},
        {"KVO_HWS_setStatusline",
         [] {
             KVO_HWS_setStatusline(1, 2, 3, "text");
             KVO_HWS_setStatusline(1, 2, 3, nullptr);
         }},
        {"KVO_HWS_rebootKVO", [] { KVO_HWS_rebootKVO(1); }},
        {"KVO_HWS_isViewerActive", [] { KVO_HWS_isViewerActive(1); }},
        {"KVO_HWS_getCurrentServer",
         [] {
             char text[8];
             uint32_t size = 8;
             KVO_HWS_getCurrentServer(1, text, &size, text, &size);
             KVO_HWS_getCurrentServer(1, nullptr, &size, text, &size);
         }},
        {"KVO_HWS_setActivateMe", [] { KVO_HWS_setActivateMe(1); }},
        {"KVO_HWS_setStartViewer",
         [] {
             KVO_HWS_setStartViewer(1, "a", "b", "c");
             KVO_HWS_setStartViewer(1, nullptr, "b", "c");
         }},
        {"KVO_HWS_startConfiguredViewer",
         [] {
             KVO_HWS_startConfiguredViewer(1, "a", 2);
             KVO_HWS_startConfiguredViewer(1, nullptr, 2);
         }},
        {"KVO_HWS_setStopViewer", [] { KVO_HWS_setStopViewer(1); }},
        {"KVO_HWS_setStopViewerPreempt", [] { KVO_HWS_setStopViewerPreempt(1); }},
        {"KVO_HWS_setStopViewerNoClean", [] { KVO_HWS_setStopViewerNoClean(1); }},
        {"KVO_HWS_setBacklightBrightness",
         [] {
             KVO_HWS_setBacklightBrightness(1, 1);
             KVO_HWS_setBacklightBrightness(1, 101);
         }},
        {"KVO_HWS_setBacklightBrightnessV2",
         [] {
             KVO_HWS_setBacklightBrightnessV2(1, 1, 1);
             KVO_HWS_setBacklightBrightnessV2(1, 101, 1);
             KVO_HWS_setBacklightBrightnessV2(1, 1, 2);
         },
         {{"bad request"}, {"not active"}}},
        {"KVO_HWS_getBacklightBrightnessV2",
         [] {
             uint32_t level = 0;
             KVO_HWS_getBacklightBrightnessV2(1, &level, 1);
             KVO_HWS_getBacklightBrightnessV2(1, &level, 2);
             KVO_HWS_getBacklightBrightnessV2(1, nullptr, 1);
         },
         {{"backlight-brightness-v2="}}},
        {"KVO_HWS_setDisableNumLock",
         [] {
             KVO_HWS_setDisableNumLock(1, 1);
             KVO_HWS_setDisableNumLock(1, 2);
         }},
        {"KVO_HWS_setDisableCapsLock",
         [] {
             KVO_HWS_setDisableCapsLock(1, 1);
             KVO_HWS_setDisableCapsLock(1, 2);
         }},
        {"KVO_HWS_getDisableNumLock", reads<uint32_t>(KVO_HWS_getDisableNumLock)},
        {"KVO_HWS_getDisableCapsLock", reads<uint32_t>(KVO_HWS_getDisableCapsLock)},
        {"KVO_HWS_getStationType", reads<int32_t>(KVO_HWS_getStationType)},
        {"KVO_HWS_getSwCapsLock", reads<int32_t>(KVO_HWS_getSwCapsLock)},
        {"KVO_HWS_setSwCapsLock",
         [] {
             KVO_HWS_setSwCapsLock(1, 1);
             KVO_HWS_setSwCapsLock(1, 2);
         }},
        {"KVO_HWS_getRV4Mode", reads<uint32_t>(KVO_HWS_getRV4Mode), {{"rv4mode=1 "}, {"not_a_rv4"}}},
        {"KVO_HWS_setRV4Mode",
         [] {
             KVO_HWS_setRV4Mode(1, 1);
             KVO_HWS_setRV4Mode(1, 2);
         },
         {{"not_a_rv4"}}},
        {"KVO_HWS_setMCPAddress", [] { KVO_HWS_setMCPAddress(1, 1); }},
        {"KVO_HWS_setKVOIndex", [] { KVO_HWS_setKVOIndex(1, 1); }},
        {"KVO_HWS_setDCKEnable", [] { KVO_HWS_setDCKEnable(1, 1); }},
        {"KVO_HWS_setKVOCksIndex",
         [] {
             KVO_HWS_setKVOCksIndex(1, 1);
             KVO_HWS_setKVOCksIndex(1, 256);
         },
         {{"bad request"}}},
        {"KVO_HWS_simulateMCPKey", [] { KVO_HWS_simulateMCPKey(1, 2, 3); }},
        {"KVO_HWS_enableMCPKey", [] { KVO_HWS_enableMCPKey(1, 2, 3); }},
        {"KVO_HWS_getMCPAddress", reads<uint32_t>(KVO_HWS_getMCPAddress), {{"mcpaddr=x"}}},
        {"KVO_HWS_getKVOIndex", reads<uint32_t>(KVO_HWS_getKVOIndex), {{"kvoindex=x"}}},
        {"KVO_HWS_getDCKEnable", reads<uint32_t>(KVO_HWS_getDCKEnable), {{"dckenable=x"}}},
        {"KVO_HWS_getDCKAddress", reads<uint32_t>(KVO_HWS_getDCKAddress), {{"dckaddr=x"}}},
        {"KVO_HWS_getKVOCksIndex", reads<uint32_t>(KVO_HWS_getKVOCksIndex), {{"cksindex=x"}}},
        {"KVO_HWS_getIPbyMCPAddress", reads<uint32_t>(KVO_HWS_getIPbyMCPAddress), {{"no_mcp_address"}, {"more_than_one_mcp"}}},
        {"KVO_HWS_getIPbyDCKAddress", reads<uint32_t>(KVO_HWS_getIPbyDCKAddress), {{"no_dck_address"}, {"more_than_one_dck"}}},
        {"KVO_HWS_getIPbyKVOIndex", reads<uint32_t>(KVO_HWS_getIPbyKVOIndex), {{"no_kvo_index"}, {"more_than_one_kvo_index"}}},
        {"KVO_HWS_getKVOPriority",
         [] {
             uint32_t lock = 0;
             uint32_t priority = 0;
             KVO_HWS_getKVOPriority(1, &lock, &priority);
         },
         {{"Priority=x"}}},
        {"KVO_HWS_getKVOStartupActive", reads<uint32_t>(KVO_HWS_getKVOStartupActive), {{"startup-active=x"}}},
        {"KVO_HWS_getKVOStartupPrio", reads<uint32_t>(KVO_HWS_getKVOStartupPrio), {{"startup-prio=x"}}},
        {"KVO_HWS_getKVOChannelOnFocus", reads<uint32_t>(KVO_HWS_getKVOChannelOnFocus), {{"channel-on-focus=x"}}},
        {"KVO_HWS_getKVOScreenOnFocus",
         [] {
             char text[64];
             KVO_HWS_getKVOScreenOnFocus(1, text);
             KVO_HWS_getKVOScreenOnFocus(1, nullptr);
         }},
        {"KVO_HWS_getKVOT2M2N",
         [] {
             char text[64];
             KVO_HWS_getKVOT2M2N(1, text);
             KVO_HWS_getKVOT2M2N(1, nullptr);
         }},
        {"KVO_HWS_setChannelInfo",
         [] {
             KVO_HWS_setChannelInfo(1, "info");
             KVO_HWS_setChannelInfo(1, std::string(231, 'i').c_str());
             KVO_HWS_setChannelInfo(1, nullptr);
         }},
        {"KVO_HWS_getChannelInfo",
         [] {
             char text[64];
             uint32_t size = sizeof text;
             KVO_HWS_getChannelInfo(1, text, &size);
             KVO_HWS_getChannelInfo(1, nullptr, &size);
         }},
        {"KVO_HWS_deleteChannelInfo", [] { KVO_HWS_deleteChannelInfo(1); }},
        {"KVO_HWS_invalidateTouchScreen", [] { KVO_HWS_invalidateTouchScreen(1); }, {{"no_touchscreen"}}},
        {"KVO_HWS_getTouchScreenCalibParam",
         [] {
             int32_t press = 0;
             int32_t nonlinear = 0;
             KVO_HWS_getTouchScreenCalibParam(1, &press, &nonlinear);
             KVO_HWS_getTouchScreenCalibParam(1, nullptr, &nonlinear);
         },
         {{"no_touchscreen"}, {"nonlinear=x"}}},
        {"KVO_HWS_setTouchScreenCalibParam",
         [] {
             KVO_HWS_setTouchScreenCalibParam(1, 0, 0);
             KVO_HWS_setTouchScreenCalibParam(1, 0, 2);
         },
         {{"no_touchscreen"}}},
        {"KVO_HWS_showInputDevice",
         [] {
             uint32_t number = 0;
             KVO_HWS_showInputDevice(1, &number, &number, &number);
             KVO_HWS_showInputDevice(1, nullptr, &number, &number);
         },
         {{"kbd=x"}}},
        {"KVO_HWS_showInputDeviceV2",
         [] {
             uint32_t number = 0;
             KVO_HWS_showInputDeviceV2(1, &number, &number, &number, &number);
             KVO_HWS_showInputDeviceV2(1, &number, &number, &number, nullptr);
         },
         {{"kbd=x"}}},
        {"KVO_HWS_showInputDeviceV3",
         [] { KVO_HWS_showInputDeviceV3(1, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr); },
         {{"kbd=x"}}},
        {"KVO_HWS_showDPI", reads<int32_t>(KVO_HWS_showDPI), {{"dpi=x"}}},
        {"KVO_HWS_getUsbLock",
         [] {
             uint32_t number = 0;
             KVO_HWS_getUsbLock(1, &number, &number);
             KVO_HWS_getUsbLock(1, &number, nullptr);
         },
         {{"usb-lock=x"}}},
        {"KVO_HWS_getUsbConnectorList",
         [] {
             char text[64];
             uint32_t size = sizeof text;
             KVO_HWS_getUsbConnectorList(text, &size);
             KVO_HWS_getUsbConnectorList(text, nullptr);
         },
         {{"busy"}}},
        {"KVO_HWS_getUsbConnectorListOne",
         [] {
             char text[64];
             uint32_t size = sizeof text;
             KVO_HWS_getUsbConnectorListOne(1, text, &size);
             KVO_HWS_getUsbConnectorListOne(1, text, nullptr);
         },
         {{"busy"}}},
        {"KVO_HWS_getStationMetrics",
         [] {
             uint64_t area = 0;
             KVO_HWS_getStationMetrics(1, 1, &area);
             KVO_HWS_getStationMetrics(1, 7, &area);
             KVO_HWS_getStationMetrics(1, 1, nullptr);
         },
         {{"none"}}},
        {"KVO_HWS_getClientList",
         [] {
             KvoClientEntry one[1];
             uint32_t count = 1;
             KVO_HWS_getClientList(one, &count, 0);
             KVO_HWS_getClientList(nullptr, nullptr, 0);
         },
         {{"00000002 "}, {"00000001 x"}}},
        {"KVO_HWS_isUSBEventsActivated", [] { KVO_HWS_isUSBEventsActivated(); }, {{"yes"}, {"no"}}},
        {"KVO_HWS_isMarovantiPanel", [] { KVO_HWS_isMarovantiPanel(1); }, {{"is-Marovanti-Panel=2"}, {"not found"}}},
        {"KVO_HWS_setUsbLock",
         [] {
             const char *loopback[] = {"127.0.0.1"};
             KVO_HWS_setUsbLock(1, loopback, 0, 1);
             KVO_HWS_setUsbLock(1, nullptr, 0, 1);
         }},
        {"KVO_HWS_unlockKVORegData", [] { KVO_HWS_unlockKVORegData(); }},
    };
    return kCalls;
}

/// Each request without a service, with one that hangs up, and with every reply.
void collectRequests(Collector &collector)
{
    const std::vector<std::vector<std::string>> common = {{"ok"}, {"failed"}, {"what"}, {""}};
    for (const Call &call : calls()) {
        collector.run(call.name, kMessagesOnly, call.call);
        {
            const ScriptedService service({support::closesAfterRequest()});
            collector.run(call.name, kMessagesOnly, call.call);
        }
        auto replies = common;
        replies.insert(replies.end(), call.replies.begin(), call.replies.end());
        for (const auto &conversation : replies) {
            std::vector<support::Script> scripts;
            for (const std::string &reply : conversation) {
                scripts.push_back(support::replies(reply));
            }
            const ScriptedService service(scripts);
            collector.run(call.name, kMessagesOnly, call.call);
        }
    }
}

void collectSenders(Collector &collector)
{
    const auto sendBoth = [](const std::string &text) {
        return [text] {
            support::onOwnThread([text] { return FuncSendCommand2DLL(strdup(text.c_str())); });
            support::onOwnThread([text] { return SendUsbMsg2DLL(text.c_str()); });
        };
    };
    for (const std::string &text : {std::string("suicide"), std::string("state"), std::string(1023, 'x')}) {
        collector.run("senders", kAll, sendBoth(text));
    }
    {
        const ScriptedService server({support::replies("ok")}, support::kUsbSocket);
        collector.run("senders", kAll, sendBoth("suicide"));
    }
    // Larger than what a socket holds, to a peer that never reads it.
    const ScriptedService gone({support::closesAtOnce()});
    collector.run("command socket", kMessagesOnly, [] {
        DynBuffer reply{};
        SendCommand2ServiceDyn(std::string(5'000'000, 'x').c_str(), &reply);
    });
    collector.run("senders", kAll, [] {
        support::onOwnThread([] {
            const support::NoDescriptors none;
            return FuncSendCommand2DLL(strdup("suicide"));
        });
        support::onOwnThread([] {
            const support::NoDescriptors none;
            return SendUsbMsg2DLL("suicide");
        });
    });
    collector.run("command socket", kMessagesOnly, [] {
        const support::NoDescriptors none;
        KVO_HWS_getDebugLevel();
    });
}

void collectReaders(Collector &collector)
{
    const auto readAll = [](int fd) {
        return [fd] {
            char line[1025];
            DynBuffer reply{};
            SocketCache cache{};
            ReadSocket(fd, line);
            ReadSocketDyn(fd, &reply);
            free(reply.pcData);
            ReadSocketCache(fd, line, &cache, 10);
        };
    };
    collector.run("readers", kAll, readAll(-1));
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    ASSERT_EQ(write(ends[1], "a\nb\nc\n", 6), 6);
    collector.run("readers", kAll, readAll(ends[0]));
    collector.run("readers", kAll, readAll(ends[0]));  // silent
    close(ends[1]);
    collector.run("readers", kAll, readAll(ends[0]));
    close(ends[0]);
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(write(ends[1], "a\n", 2), 2);
    collector.run("readers", kAll, readAll(ends[0]));
    close(ends[0]);
    close(ends[1]);
    for (int reader = 0; reader < 3; ++reader) {
        // A peer that closes with bytes unread resets the connection; the reset is told once.
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        ASSERT_EQ(write(ends[0], "x", 1), 1);
        close(ends[1]);
        collector.run("readers", kAll, [reader, fd = ends[0]] {
            char line[1025];
            DynBuffer reply{};
            SocketCache cache{};
            if (reader == 0) {
                ReadSocket(fd, line);
            } else if (reader == 1) {
                ReadSocketDyn(fd, &reply);
            } else {
                ReadSocketCache(fd, line, &cache, 10);
            }
        });
        close(ends[0]);
    }
}

/// Lets a connection's thread serve a line, and waits for its end.
void serveLine(const std::string &line)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    ASSERT_EQ(write(ends[0], line.data(), line.size()), static_cast<ssize_t>(line.size()));
    shutdown(ends[0], SHUT_WR);
    support::onOwnThread([end = ends[1]] { return ConInstThread(reinterpret_cast<void *>(intptr_t{end})); });
    close(ends[0]);
}

void collectUsbEvents(Collector &collector)
{
    const auto activate = [] { support::onOwnThread([] { return KVO_HWS_activateUSBEvents(support::EventRecorder::older); }); };
    const auto activateV2 = [] {
        support::onOwnThread([] { return KVO_HWS_activateUSBEventsV2(support::EventRecorder::newer); });
    };
    const auto closeEvents = [] { support::onOwnThread(KVO_HWS_closeUSBEvents); };
    for (const std::function<void()> &start : std::vector<std::function<void()>>{activate, activateV2}) {
        const ScriptedService service({support::agrees()});
        collector.run("USB events", kMessagesOnly, [&] {
            const support::EventRecorder recorder;
            start();
            EXPECT_TRUE(recorder.waitFor(2));
            closeEvents();
            EXPECT_TRUE(recorder.waitFor(4));
            EXPECT_TRUE(support::eventually([] { return sendUSBEvent == nullptr && sendUSBEvent2 == nullptr; }));
            start();
            EXPECT_TRUE(recorder.waitFor(6));
            support::onOwnThread(KillUsbServer);
            // A server that listens and does not stop.
            const ScriptedService deaf({support::replies("ok")}, support::kUsbSocket);
            ServerPipeThreadSyncState = NOTIFY_RUNNING;
            start();
            sendUSBEvent = support::EventRecorder::older;
            ServerPipeThreadSyncState = NOTIFY_RUNNING;
            closeEvents();
        });
    }
    collector.run("USB events", kMessagesOnly, [&] {
        KVO_HWS_activateUSBEvents(nullptr);
        KVO_HWS_activateUSBEventsV2(nullptr);
        closeEvents();
        for (const char *line :
             {"newUSBdevice*\n", "ignoreUSBdevice*\n", "removeUSBdevice*\n", "changeStateUSBdevice*\n", "what\n", ""}) {
            serveLine(line);
            sendUSBEvent2 = support::EventRecorder::newer;
            serveLine(line);
            sendUSBEvent2 = nullptr;
        }
        support::onOwnThread([] {
            const support::NoDescriptors none;
            return win_kvo_hws_usb_server(nullptr);
        });
    });
}

void collectConfiguration(Collector &collector)
{
    collector.run("configuration", kAll, [] {
        char text[300];
        uint32_t word = 0;
        uint16_t port = 0;
        for (int round = 0; round < 2; ++round) {
            GetInterfaceIP(text, &word);
            GetPortNumber(&port);
            GetSessionNumber(&word);
            GetRHZName(text);
            GetBacklightMode(&word);
            GetBrightnessMode(&word);
            GetBacklightBrightnessMode(&word);
            GetRegistryPath(text);
            hws_keywords[0].defaultText = "none";
            hws_keywords[1].defaultText = "panel";
            ReadConfFile();
        }
    });
}

void collectFocusStation(Collector &collector)
{
    const std::string station =
        "0A000005 00000001 00000002 00000003 00000001 x 00000001 00000002 00000003 00000004 00000005 00000006 "
        "00000007 ";
    collector.run("station in focus", kMessagesOnly, [&] {
        gFocusKvoIp = 0x0500000A;
        init_fb();
        {
            const ScriptedService service({support::replies(station), support::replies("failed")});
            init_fb();
        }
        gFocusKvoIp = 0;
        std::strcpy(gFocusName, "panel");
        init_fb();
    });
}

/// An agent that is started for a scope.
class Agent {
public:
    Agent() { start(); }
    Agent(const Agent &) = delete;
    Agent &operator=(const Agent &) = delete;
    ~Agent() { KVO_HWS_cleanupEmbHwsClient(gEmbKvoInst); }

    static void start()
    {
        void *instance = nullptr;
        KVO_HWS_startupEmbHwsClient("focusKvoIp=10.0.0.5\nremoteKvoHwsIp=127.0.0.1\n", &instance,
                                    [](void *, const char *) { return 1; });
    }
};

int32_t agentSocket() { return std::atomic_ref(gEmbKvoInst->session.socket).load(); }

void collectRefusedCalls()
{
    int other = 0;
    KVO_HWS_startupEmbHwsClient(nullptr, nullptr, nullptr);
    void *instance = nullptr;
    KVO_HWS_startupEmbHwsClient("", &instance, [](void *, const char *) { return 1; });
    KVO_HWS_cleanupEmbHwsClient(gEmbKvoInst);
    KVO_HWS_sendEmbHwsEvent(nullptr, "");
    KVO_HWS_sendEmbHwsEvent(&other, "");
    KVO_HWS_sendEmbHwsEvent(gEmbKvoInst, nullptr);
    const support::WithSystemCalls calls{{.pthreadCreate = [] {
        errno = EAGAIN;
        return EAGAIN;
    }}};
    const Agent agent;
    KVO_HWS_cleanupEmbHwsClient(nullptr);
    KVO_HWS_cleanupEmbHwsClient(&other);
    Agent::start();
}

/// A connection that is closed by the remote side, and one whose wait fails.
void collectConnections()
{
    support::RemoteService remote;
    {
        const Agent agent;
        (void)remote.accept();
        (void)remote.ask("ping");
        remote.close();
        support::eventually([] { return agentSocket() < 0; });
    }
    {
        const Agent agent;
        (void)remote.accept();
        (void)remote.ask("ping");
        std::this_thread::sleep_for(std::chrono::milliseconds(1300));  // longer than it waits at a time
    }
    std::atomic<int> failing{-1};
    const support::WithSystemCalls calls{{.poll = [&](pollfd *descriptors, nfds_t, int) {
        if (descriptors->fd != failing) {
            return support::kPass;
        }
        failing = -1;
        errno = ENOMEM;
        return -1;
    }}};
    const Agent agent;
    (void)remote.accept();
    (void)remote.ask("ping");
    failing = agentSocket();
    support::eventually([] { return agentSocket() < 0; });
}

/// Without a remote side: connects that fail, and a socket that is still open.
void collectFailedConnects()
{
    std::atomic<int> rounds{0};
    const support::WithSystemCalls calls{{.socket = [&](int domain) {
        if (domain != AF_INET || rounds++ != 0) {
            return support::kPass;
        }
        errno = EMFILE;
        return -1;
    }}};
    const Agent agent;
    support::eventually([&] { return rounds == 2; });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    std::atomic_ref(gEmbKvoInst->session.socket).store(eventfd(0, EFD_CLOEXEC));
    support::eventually([] { return agentSocket() < 0; });
}

void collectAgent(Collector &collector)
{
    setenv("KVO_PLATFORM_INTERFACE", "lo", 1);
    collector.run("agent", kMessagesOnly, collectRefusedCalls);
    const std::string station =
        "0500000A 00000001 00000002 00000003 00000001 x 00000001 00000002 00000003 00000004 00000005 00000006 "
        "00000007 ";
    const ScriptedService service({support::answersWith(
        [&](const std::string &request) { return request.starts_with("getExDescByIP") ? station : std::string("t2m2n"); })});
    collector.run("agent", kMessagesOnly, collectConnections);
    collector.run("agent", kMessagesOnly, collectFailedConnects);
}

void collectEventListener(Collector &collector)
{
    constexpr const char *kEvents = "/tmp/kvo_hws/event_sock";
    const auto activate = [] { KVO_HWS_activateEmbKvoEvents([](const char *, const char *) {}); };
    using Kind = support::Step::Kind;
    collector.run("embedded events", kMessagesOnly, [&] {
        {
            const ScriptedService service({{{.kind = Kind::write, .bytes = "Alive?\nname, data\nno comma\n"},
                                            {.kind = Kind::pause, .pause = std::chrono::milliseconds(1500)}}},
                                          kEvents);
            activate();
            std::this_thread::sleep_for(std::chrono::milliseconds(2000));
            KVO_HWS_deactivateEmbKvoEvents();
        }
        activate();
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        KVO_HWS_deactivateEmbKvoEvents();  // in its pause between two connects
        KVO_HWS_deactivateEmbKvoEvents();
        const ScriptedService service({support::closesAtOnce()}, kEvents);
        support::eventually([&] { return KVO_HWS_activateEmbKvoEvents(nullptr) == -7; });
    });
}

TEST(LogTexts, are_those_of_the_golden_list)
{
    Collector collector;
    collector.run("debug mode", kAll, [] {
        KVO_HWS_activateDebugDLL();
        KVO_HWS_deactivateDebugDLL();
    });
    collectRequests(collector);
    collectSenders(collector);
    collectReaders(collector);
    collectUsbEvents(collector);
    collectConfiguration(collector);
    collectFocusStation(collector);
    collectAgent(collector);
    collectEventListener(collector);

    if (std::getenv("KVO_WRITE_GOLDEN") != nullptr) {
        std::ofstream(KVO_LOG_TEXTS) << collector.text();
        GTEST_SKIP() << "wrote " << KVO_LOG_TEXTS << " instead of comparing";
    }
    std::stringstream golden;
    golden << std::ifstream(KVO_LOG_TEXTS).rdbuf();
    EXPECT_EQ(collector.text(), golden.str()) << "KVO_WRITE_GOLDEN=1 writes the list anew";
}

}  // namespace
