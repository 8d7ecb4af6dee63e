// Every exported function, called by a thread for which a cancellation is pending: it comes back, and neither the process nor
// the thread ends in it. All system calls are the real ones, as these are what a cancellation acts in.
#include <kvo_hws/kvo_hws.h>
#include <kvo_hws/platform.h>

#include "agent/agent_fixture.h"
#include "agent/own_session.h"
#include "support/own_thread.h"
#include "support/scripted_service.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <chrono>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <deque>
#include <dlfcn.h>
#include <fstream>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <iostream>
#include <map>
#include <memory>
#include <pthread.h>
#include <regex>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <syslog.h>
#include <thread>
#include <type_traits>
#include <unistd.h>
#include <utility>
#include <vector>

// What may be where one acts, though it never is on this machine: the system log without its daemon, texts that are read from a
// file, and what the panel's own libraries may do.
#pragma GCC visibility push(default)
extern "C" {

void openlog(const char * /*identity*/, int /*options*/, int /*facility*/) { pthread_testcancel(); }
void closelog() { pthread_testcancel(); }
void syslog(int /*priority*/, const char * /*format*/, ...) { pthread_testcancel(); }
void vsyslog(int /*priority*/, const char * /*format*/, va_list /*arguments*/) { pthread_testcancel(); }

char *strerror(int /*number*/) noexcept
{
    pthread_testcancel();
    static char text[] = "error";
    return text;
}

uint64_t GetTickCount64() noexcept
{
    pthread_testcancel();
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1'000'000;
}

unsigned long GetCurrentThreadId() noexcept
{
    pthread_testcancel();
    return 1;
}

}  // extern "C"
#pragma GCC visibility pop

namespace {

using agent_test::OwnSession;

using Call = std::function<void()>;

/// Runs what is looked at. Around it a cancellation is held off, so that what prepares it and looks at it goes on.
template <class Work>
void exposed(Work work)
{
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    work();
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
}

// ---- Calls with arguments that need no thought ----

/// What pointers point to: zeros, so that sizes are 0, texts empty and records clear.
using Area = std::array<std::max_align_t, 512>;

Call exposing(void (*work)())
{
    return [work] { exposed(work); };
}

template <class Argument>
Argument blank(std::deque<Area> &areas)
{
    if constexpr (std::is_pointer_v<Argument>) {
        return reinterpret_cast<Argument>(areas.emplace_back().data());
    } else {
        return Argument{1};
    }
}

template <class Result, class... Arguments>
Call blankly(Result (*function)(Arguments...))
{
    return [function] {
        std::deque<Area> areas;
        exposed([&] { function(blank<Arguments>(areas)...); });
    };
}

// ---- What the others need ----

/// One end of a connection on which a line waits.
class Connected {
public:
    explicit Connected(const std::string &line = "line\n")
    {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends_.data()), 0);
        EXPECT_EQ(write(ends_[1], line.data(), line.size()), static_cast<ssize_t>(line.size()));
    }
    Connected(const Connected &) = delete;
    Connected &operator=(const Connected &) = delete;
    ~Connected()
    {
        if (!given_) {
            close(ends_[0]);
        }
        close(ends_[1]);
    }

    [[nodiscard]] int fd() const { return ends_[0]; }
    void *give()
    {
        given_ = true;
        return reinterpret_cast<void *>(static_cast<std::intptr_t>(ends_[0]));
    }

private:
    std::array<int, 2> ends_{};
    bool given_ = false;
};

Notify *newNotify()
{
    Notify *record = nullptr;
    CreateNotify(&record);
    return record;
}

/// A host's function in which a cancellation can act.
template <class... Arguments>
int32_t testsForCancellation(Arguments... /*arguments*/)
{
    pthread_testcancel();
    return 1;
}

void listens(const char * /*name*/, const char * /*data*/) { pthread_testcancel(); }

void *nothing(void * /*argument*/) { return nullptr; }

const std::string kTooLong(2000, 'x');

constexpr const char *kParameters = "focusKvoIp=10.0.0.5\nremoteKvoHwsIp=127.0.0.1\n";

void readRegistry(int32_t (*read)(KvoDescription *list, uint32_t *count, uint32_t timeout))
{
    std::array<KvoDescription, 2> list = {};
    uint32_t count = list.size();
    read(list.data(), &count, 1);
}

#define BLANKLY(name)                                                                                                          \
    {                                                                                                                          \
#name, blankly(name)                                                                                                   \
    }

/// All functions but the handlers.
std::map<std::string, Call> callsByName()
{
    return {
        // runtime.h
        BLANKLY(ActivateNotify),
        BLANKLY(CloseLogMessages),
        {"CreateNotify", exposing([] {
             Notify *record = nullptr;
             CreateNotify(&record);
             DeleteNotify(&record);
         })},
        BLANKLY(CreateReceivedNotify),
        {"DEBUG", exposing([] { DEBUG(LOG_ERR, "%s", "text"); })},
        {"DeleteNotify", exposing([] {
             Notify *record = newNotify();
             DeleteNotify(&record);
         })},
        BLANKLY(DeleteReceivedNotify),
        BLANKLY(GetDebugLevel),
        BLANKLY(InitLogMessages),
        BLANKLY(InitReceivedNotify),
        BLANKLY(KVO_HWS_activateDebugDLL),
        BLANKLY(KVO_HWS_deactivateDebugDLL),
        {"LOG", exposing([] { LOG(LOG_ERR, "%s", "text"); })},
        BLANKLY(NotifyReceived),
        {"NotifyThread", exposing([] { NotifyThread({}); })},
        {"SendDLLDebugMessage", exposing([] { SendDLLDebugMessage("text"); })},
        BLANKLY(SetDebugLevel),
        {"ShutdownThread", exposing([] { ShutdownThread(newNotify(), 1); })},
        BLANKLY(WaitNotify),
        BLANKLY(WaitReceivedNotify),
        BLANKLY(WaitShutdown),
        {"kvo_hws_CreateThread", exposing([] { kvo_hws_CreateThread(nothing, nullptr); })},
        {"kvo_hws_CreateThreadIdent", exposing([] {
             pthread_t id{};
             kvo_hws_CreateThreadIdent(nothing, nullptr, &id);
         })},
        BLANKLY(kvo_hws_DeleteCriticalSection),
        BLANKLY(kvo_hws_EnterCriticalSection),
        BLANKLY(kvo_hws_GiveUpThreadExecution),
        BLANKLY(kvo_hws_InitializeCriticalSection),
        BLANKLY(kvo_hws_LeaveCriticalSection),
        BLANKLY(kvo_hws_detach_thread),
        BLANKLY(timeval_diff),
        BLANKLY(timeval_get),
        {"traceFree", exposing([] { traceFree(nullptr, "file", 1); })},
        {"traceIt", exposing([] { traceIt("%s", "text"); })},
        {"traceRealloc", exposing([] { std::free(traceRealloc(nullptr, 1, "file", 1)); })},
        {"traceXmalloc", exposing([] { std::free(traceXmalloc(1, "file", 1)); })},
        {"xmalloc", exposing([] { std::free(xmalloc(1)); })},

        // service.h
        {"FuncSendCommand2DLL", exposing([] {
             FuncSendCommand2DLL(strdup("text"));
             FuncSendCommand2DLL(strdup(kTooLong.c_str()));
         })},
        BLANKLY(KVO_HWS_getDLLVersion),
        BLANKLY(KVO_HWS_getDebugLevel),
        BLANKLY(KVO_HWS_getKVOHWSVersion),
        BLANKLY(KVO_HWS_isInitComplete),
        BLANKLY(KVO_HWS_killDaemon),
        BLANKLY(KVO_HWS_lockKVORegData),
        BLANKLY(KVO_HWS_setBacklight),
        BLANKLY(KVO_HWS_setBrightness),
        BLANKLY(KVO_HWS_setDebugLevel),
        BLANKLY(KVO_HWS_unlockKVORegData),
        {"KillUsbServer", exposing([] {
             ServerPipeThreadSyncState = NOTIFY_STOP_DONE;  // there was one, for whose end it looks
             KillUsbServer();
         })},
        {"ReadSocket",
         [] {
             const Connected connected;
             std::array<char, 1028> line;
             exposed([&] { ReadSocket(connected.fd(), line.data()); });
         }},
        {"ReadSocketCache",
         [] {
             const Connected connected;
             std::array<char, 1028> line;
             SocketCache cache = {};
             exposed([&] { ReadSocketCache(connected.fd(), line.data(), &cache, 1000); });
         }},
        {"ReadSocketDyn",
         [] {
             const Connected connected;
             DynBuffer reply = {};
             exposed([&] { ReadSocketDyn(connected.fd(), &reply); });
             std::free(reply.pcData);
         }},
        {"SendCommand2DLL", exposing([] { SendCommand2DLL(strdup("text"), 1); })},
        {"SendCommand2ServiceDyn",
         [] {
             DynBuffer reply = {};
             exposed([&] { SendCommand2ServiceDyn("isInitComplete", &reply); });
             std::free(reply.pcData);
         }},
        {"SendUsbMsg2DLL", exposing([] {
             SendUsbMsg2DLL("text");
             SendUsbMsg2DLL(kTooLong.c_str());
         })},
        {"ThreadSendCommand2DLL", exposing([] { ThreadSendCommand2DLL(strdup("text")); })},
        BLANKLY(kvo_hws_CleanUpSockets),
        BLANKLY(kvo_hws_StartUpSockets),
        {"kvo_hws_send_socket",
         [] {
             const Connected connected;
             exposed([&] { kvo_hws_send_socket(connected.fd(), "text", 4, 0); });
         }},

        // codecs.h
        BLANKLY(ConvertCmd2USBDeviceCS),
        BLANKLY(ConvertCmd2USBDeviceIM),
        BLANKLY(ConvertCmd2USBDeviceNM),
        BLANKLY(ConvertCmd2USBDeviceNew),
        BLANKLY(ConvertCmd2USBDeviceRM),
        BLANKLY(ConvertCmd2USBDeviceRemove),
        BLANKLY(ConvertConArray2Text),
        BLANKLY(ConvertConArray2TextClients),
        BLANKLY(ConvertConArray2TextEx),
        BLANKLY(ConvertConElem2TextEx),
        BLANKLY(ConvertText2KVOClientArray),
        BLANKLY(ConvertText2KVODescArrayEx),
        BLANKLY(ConvertText2KVODescEx),
        BLANKLY(ConvertText2KVODescriptionArray),
        {"ConvertUSBDeviceCS2Cmd",
         exposing([] { std::free(ConvertUSBDeviceCS2Cmd(std::make_unique<UsbDeviceSource>().get())); })},
        {"ConvertUSBDeviceIM2Cmd",
         exposing([] { std::free(ConvertUSBDeviceIM2Cmd(std::make_unique<UsbDeviceSource>().get())); })},
        {"ConvertUSBDeviceNew2Cmd", exposing([] {
             std::free(ConvertUSBDeviceNew2Cmd(std::make_unique<UsbDaemonContext>().get(),
                                               std::make_unique<UsbDeviceSource>().get()));
         })},
        {"ConvertUSBDeviceRemove2Cmd",
         exposing([] { std::free(ConvertUSBDeviceRemove2Cmd(std::make_unique<UsbStationRecord>().get(), "")); })},
        BLANKLY(GetCountKVODescriptionsFromText),
        BLANKLY(GetCountKVODescriptionsFromTextEx),

        // requests.h
        BLANKLY(KVO_HWS_deleteChannelInfo),
        BLANKLY(KVO_HWS_enableMCPKey),
        BLANKLY(KVO_HWS_getBacklightBrightnessV2),
        BLANKLY(KVO_HWS_getChannelInfo),
        BLANKLY(KVO_HWS_getClientList),
        BLANKLY(KVO_HWS_getCurrentServer),
        BLANKLY(KVO_HWS_getDCKAddress),
        BLANKLY(KVO_HWS_getDCKEnable),
        BLANKLY(KVO_HWS_getDescriptionEx),
        BLANKLY(KVO_HWS_getDescriptionList),
        BLANKLY(KVO_HWS_getDescriptionListEx),
        BLANKLY(KVO_HWS_getDisableCapsLock),
        BLANKLY(KVO_HWS_getDisableNumLock),
        BLANKLY(KVO_HWS_getIPbyDCKAddress),
        BLANKLY(KVO_HWS_getIPbyKVOIndex),
        BLANKLY(KVO_HWS_getIPbyMCPAddress),
        BLANKLY(KVO_HWS_getKVOChannelOnFocus),
        BLANKLY(KVO_HWS_getKVOCksIndex),
        {"KVO_HWS_getKVOCurrentListFromRegistry", exposing([] { readRegistry(KVO_HWS_getKVOCurrentListFromRegistry); })},
        BLANKLY(KVO_HWS_getKVOIndex),
        {"KVO_HWS_getKVOPreviousListFromRegistry", exposing([] { readRegistry(KVO_HWS_getKVOPreviousListFromRegistry); })},
        BLANKLY(KVO_HWS_getKVOPriority),
        BLANKLY(KVO_HWS_getKVOScreenOnFocus),
        BLANKLY(KVO_HWS_getKVOStartupActive),
        BLANKLY(KVO_HWS_getKVOStartupPrio),
        BLANKLY(KVO_HWS_getKVOT2M2N),
        BLANKLY(KVO_HWS_getMCPAddress),
        BLANKLY(KVO_HWS_getRV4Mode),
        BLANKLY(KVO_HWS_getStationMetrics),
        {"KVO_HWS_getStationType",
         exposing([] { KVO_HWS_getStationType(1, nullptr); })},  // what it prints is where one can act
        BLANKLY(KVO_HWS_getSwCapsLock),
        BLANKLY(KVO_HWS_getTouchScreenCalibParam),
        BLANKLY(KVO_HWS_getUsbConnectorList),
        BLANKLY(KVO_HWS_getUsbConnectorListOne),
        BLANKLY(KVO_HWS_getUsbLock),
        BLANKLY(KVO_HWS_invalidateTouchScreen),
        BLANKLY(KVO_HWS_isMarovantiPanel),
        BLANKLY(KVO_HWS_isViewerActive),
        BLANKLY(KVO_HWS_rebootKVO),
        BLANKLY(KVO_HWS_setActivateMe),
        BLANKLY(KVO_HWS_setBacklightBrightness),
        BLANKLY(KVO_HWS_setBacklightBrightnessV2),
        BLANKLY(KVO_HWS_setChannelInfo),
        BLANKLY(KVO_HWS_setDCKEnable),
        BLANKLY(KVO_HWS_setDisableCapsLock),
        BLANKLY(KVO_HWS_setDisableNumLock),
        BLANKLY(KVO_HWS_setKVOCksIndex),
        BLANKLY(KVO_HWS_setKVOIndex),
        BLANKLY(KVO_HWS_setMCPAddress),
        BLANKLY(KVO_HWS_setRV4Mode),
        BLANKLY(KVO_HWS_setStartViewer),
        BLANKLY(KVO_HWS_setStatusline),
        BLANKLY(KVO_HWS_setStopViewer),
        BLANKLY(KVO_HWS_setStopViewerNoClean),
        BLANKLY(KVO_HWS_setStopViewerPreempt),
        BLANKLY(KVO_HWS_setSwCapsLock),
        BLANKLY(KVO_HWS_setTouchScreenCalibParam),
        {"KVO_HWS_setUsbLock", exposing([] { KVO_HWS_setUsbLock(0, nullptr, 0, 0); })},
        BLANKLY(KVO_HWS_showDPI),
        BLANKLY(KVO_HWS_showInputDevice),
        BLANKLY(KVO_HWS_showInputDeviceV2),
        BLANKLY(KVO_HWS_showInputDeviceV3),
        BLANKLY(KVO_HWS_simulateMCPKey),
        BLANKLY(KVO_HWS_startConfiguredViewer),

        // usbevents.h
        {"ConInstThread",
         [] {
             Connected connected("changeStateUSBdevice\n");
             exposed([&] { ConInstThread(connected.give()); });
         }},
        {"KVO_HWS_activateUSBEvents", exposing([] { KVO_HWS_activateUSBEvents(testsForCancellation); })},
        {"KVO_HWS_activateUSBEventsV2", exposing([] { KVO_HWS_activateUSBEventsV2(testsForCancellation); })},
        {"KVO_HWS_closeUSBEvents", exposing([] {
             sendUSBEvent2 = testsForCancellation;
             KVO_HWS_closeUSBEvents();
         })},
        BLANKLY(KVO_HWS_isUSBEventsActivated),
        {"SendUSBEventCheckNULL_Simple", exposing([] {
             sendUSBEvent2 = testsForCancellation;
             SendUSBEventCheckNULL_Simple(1);
         })},
        {"SendUSBEventCheckNULL_V1", exposing([] {
             sendUSBEvent = testsForCancellation;
             SendUSBEventCheckNULL_V1(1, nullptr);
         })},
        {"SendUSBEventCheckNULL_V2", exposing([] {
             sendUSBEvent2 = testsForCancellation;
             SendUSBEventCheckNULL_V2(std::make_unique<UsbEventV2>().get());
         })},
        BLANKLY(SetFunction_SendUSBEvent_NULL),
        {"threadActivateUSBevents",
         exposing([] { threadActivateUSBevents(reinterpret_cast<void *>(1)); })},  // a superseded one
        {"threadDeactivateUSBevents", exposing([] { threadDeactivateUSBevents(nullptr); })},
        {"win_kvo_hws_usb_server",
         [] {
             std::thread stopping([] {
                 while (__atomic_load_n(&ServerPipeThreadSyncState, __ATOMIC_SEQ_CST) != NOTIFY_RUNNING) {
                     std::this_thread::yield();
                 }
                 KillUsbServer();
             });
             exposed([] { win_kvo_hws_usb_server(nullptr); });
             stopping.join();
         }},

        // config.h
        BLANKLY(GetBacklightBrightnessMode),
        BLANKLY(GetBacklightMode),
        BLANKLY(GetBrightnessMode),
        {"GetInterfaceIP",
         [] {
             ReadConfFile();
             blankly(GetInterfaceIP)();
         }},
        BLANKLY(GetPortNumber),
        BLANKLY(GetRHZName),
        BLANKLY(GetRegistryPath),
        BLANKLY(GetSessionNumber),
        BLANKLY(ReadConfFile),

        // agent.h
        {"KVO_HWS_activateEmbKvoEvents", exposing([] { KVO_HWS_activateEmbKvoEvents(listens); })},
        {"KVO_HWS_cleanupEmbHwsClient", exposing([] {
             void *instance = nullptr;
             KVO_HWS_startupEmbHwsClient(kParameters, &instance, testsForCancellation);
             KVO_HWS_cleanupEmbHwsClient(instance);
         })},
        {"KVO_HWS_deactivateEmbKvoEvents", exposing([] {
             KVO_HWS_activateEmbKvoEvents(listens);
             KVO_HWS_deactivateEmbKvoEvents();
         })},
        {"KVO_HWS_sendEmbHwsEvent", exposing([] {
             protocolNegotiated = 1;
             KVO_HWS_sendEmbHwsEvent(gEmbKvoInst, "x");
         })},
        {"KVO_HWS_startupEmbHwsClient", exposing([] {
             void *instance = nullptr;
             KVO_HWS_startupEmbHwsClient(kParameters, &instance, testsForCancellation);
         })},
        {"embHwsClientThread",
         [] {
             // As a start sets it; it looks for its remote side until it is to stop.
             gEmbKvoInst->focusKvoIp = inet_addr("10.0.0.5");
             gEmbKvoInst->remoteKvoHwsIp = inet_addr("127.0.0.1");
             std::thread stopping([] {
                 std::this_thread::sleep_for(std::chrono::milliseconds(200));
                 __atomic_store_n(&gEmbKvoInst->stop, 1U, __ATOMIC_SEQ_CST);
             });
             exposed([] { embHwsClientThread(gEmbKvoInst); });
             stopping.join();
         }},
        {"embKvoEventsThread",
         [] {
             Notify *const record = newNotify();
             std::thread stopping([] {
                 while (KVO_HWS_deactivateEmbKvoEvents() != 1) {
                     std::this_thread::yield();
                 }
             });
             exposed([&] { embKvoEventsThread(record); });
             stopping.join();
         }},
        BLANKLY(enable_vt_control),
        {"format_servername", exposing([] {
             std::array<char, 80> name;
             format_servername(name.data(), name.size(), std::make_unique<HmiServer>().get(), 80);
         })},
        BLANKLY(get_shiftstate),
        {"hmi_close_x",
         [] {
             OwnSession own;
             exposed([&] { hmi_close_x(&own.session); });
         }},
        {"hmiconn_indication",
         [] {
             OwnSession own;
             exposed([&] {
                 protocolNegotiated = 1;
                 hmiconn_indication(own.session.socket, "x", static_cast<char *>(nullptr));
             });
         }},
        {"hmiconn_process_one_request",
         [] {
             for (const char *const sent : {"ping\n", "pi", "set-darken=1\n"}) {
                 OwnSession own;
                 own.sends(sent);
                 gCmdCallback = testsForCancellation;
                 exposed([&] { hmiconn_process_one_request(&own.session); });
             }
         }},
        {"hmiconn_reply",
         [] {
             OwnSession own;
             exposed([&] { hmiconn_reply(own.session.socket, nullptr, "x", static_cast<char *>(nullptr)); });
         }},
        BLANKLY(init_fb),
        BLANKLY(register_hws_servername),
        {"sesstoa",
         [] {
             OwnSession own;
             exposed([&] { sesstoa(&own.session); });
         }},
        {"sysfsfile", exposing([] { std::free(sysfsfile("/proc/self", "fdinfo", "0")); })},
        {"sysfssubst", exposing([] {
             std::array<char, 300> path{"/proc/self/*"};
             sysfssubst(path.data());
         })},
        {"vnc_strerror", exposing([] { vnc_strerror(2); })},
    };
}

// ---- All of them ----

using Names = std::vector<std::string>;

/// The names in a list of the linker, by the comment that they stand below.
std::map<std::string, Names> namesByComment(const char *list)
{
    std::ifstream file(list);
    std::map<std::string, Names> names;
    std::string comment;
    std::smatch match;
    for (std::string line; std::getline(file, line);) {
        if (std::regex_match(line, match, std::regex("\\s+# (\\w+).*"))) {
            comment = match[1];
        } else if (std::regex_match(line, match, std::regex("\\s+([A-Za-z_0-9]+);"))) {
            names[comment].push_back(match[1]);
        }
    }
    return names;
}

/// The exported names by their header.
std::map<std::string, Names> exported() { return namesByComment(KVO_EXPORTS); }

bool isVariable(const std::string &name)
{
    static const Names variables = namesByComment(KVO_DYNAMIC).at("Variables");
    return std::ranges::find(variables, name) != variables.end();
}

/// The call of a function; handlers are all called alike. Nothing where it is not known above.
Call callOf(const std::string &name)
{
    static const auto calls = callsByName();
    if (name.starts_with("handle_")) {
        return [handler = reinterpret_cast<CmdHandler>(dlsym(RTLD_DEFAULT, name.c_str()))] {
            OwnSession own;
            std::string argument = "1:1";
            gCmdCallback = testsForCancellation;
            exposed([&] { handler(&own.session, nullptr, argument.data()); });
        };
    }
    const auto call = calls.find(name);
    return call != calls.end() ? call->second : Call();
}

/// Whether a thread comes back from @p call although it was cancelled before.
bool comesBackFrom(const Call &call)
{
    try {
        return support::onOwnThread([&] {
            pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
            pthread_cancel(pthread_self());
            call();
            return true;
        });
    } catch (const std::future_error &) {
        return false;
    }
}

/// Runs @p work in a process of its own, with which the threads end that it has left running. Its wait status.
int statusOf(const std::function<bool()> &work)
{
    const pid_t child = fork();
    if (child == 0) {
        _exit(work() ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

/// The functions of a header.
class Cancelled : public testing::TestWithParam<std::string> {
protected:
    void SetUp() override
    {
        setenv("KVO_PLATFORM_INTERFACE", "lo", 1);
        uiDebugMessageSysLogActive = 1;
        SetDebugLevel(2);
        for (const char *const file : {"/tmp/kvo_hws/currkvos.reg", "/tmp/kvo_hws/prevkvos.reg"}) {
            std::ofstream(file) << "10.0.0.5:st1:1024:768:32\n";
        }
    }

    /// So that what asks more than one question comes to the last one.
    static std::string answerTo(const std::string &line)
    {
        const std::string request = line.substr(0, line.find('\n'));
        if (request == "isInitComplete") {
            return "yes";
        }
        if (request == "getregistrypath") {
            return "/tmp/";
        }
        return request.starts_with("getExDesc") ? agent_test::kStation : "ok";
    }

    const support::ScriptedService service{{support::answersWith(answerTo)}};
    const support::ScriptedService usb{{support::replies("ok")}, support::kUsbSocket};
    const support::ScriptedService events{{support::closesAtOnce()}, "/tmp/kvo_hws/event_sock"};
};

TEST_P(Cancelled, goes_on)
{
    const Names names = exported().at(GetParam());
    int functions = 0;
    for (const std::string &name : names) {
        if (isVariable(name)) {
            continue;
        }
        const Call call = callOf(name);
        EXPECT_TRUE(call) << name << ": how it is called is not known here";
        if (call) {
            ++functions;
            EXPECT_EQ(statusOf([&] { return comesBackFrom(call); }), 0) << name;
        }
    }
    std::cout << functions << " functions\n";
}

std::string nameOf(const testing::TestParamInfo<std::string> &info) { return info.param; }

INSTANTIATE_TEST_SUITE_P(Library, Cancelled,
                         testing::Values("runtime", "service", "codecs", "requests", "usbevents", "config", "agent"), nameOf);

TEST(CancelledThread, does_not_come_back_from_what_can_be_cancelled)
{
    EXPECT_FALSE(comesBackFrom(exposing([] { usleep(1000); })));
    EXPECT_TRUE(comesBackFrom(exposing([] {})));
}

TEST(CancelledThread, ends_after_the_library)
{
    EXPECT_FALSE(comesBackFrom(exposing([] {
        kvo_hws_GiveUpThreadExecution();
        pthread_testcancel();
    }))) << "the cancellation is held off, not forgotten";
}

TEST(CancelledThread, is_asked_of_what_there_is)
{
    Names names;
    for (const auto &[header, of] : exported()) {
        names.insert(names.end(), of.begin(), of.end());
    }
    EXPECT_EQ(exported().size(), 7U) << "the headers whose functions are asked above";
    for (const auto &[name, call] : callsByName()) {
        EXPECT_NE(std::ranges::find(names, name), names.end()) << name;
    }
}

}  // namespace
