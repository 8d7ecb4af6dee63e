// Calls for the cancellation test: the requests and the functions of runtime.h, service.h, codecs.h and config.h.
#include "library/cancellation_calls.h"

#include "catalogue/catalogue.h"

#include <kvo_hws/kvo_hws.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <syslog.h>

namespace cancellation {
namespace {

void *nothing(void * /*argument*/) { return nullptr; }

const std::string kTooLong(2000, 'x');

void readRegistry(int32_t (*read)(KvoDescription *list, uint32_t *count, uint32_t timeout))
{
    std::array<KvoDescription, 2> list = {};
    uint32_t count = list.size();
    read(list.data(), &count, 1);
}

/// Calls the request in every way that the catalogue lists.
void callRequest(const catalogue::Request &request)
{
    for (const catalogue::Exchange &exchange : request.ownExchanges()) {
        catalogue::Outputs outputs = request.function().outputsFor(exchange.arguments, '\0');
        const std::vector<void *> areas = outputs.addresses();
        exposed([&] { request.function()(exchange.arguments, areas); });
    }
}

}  // namespace

Calls requestCalls()
{
    Calls calls;
    for (const catalogue::Family &family : catalogue::families()) {
        for (const catalogue::Request &request : family.requests) {
            if (!request.ownExchanges().empty()) {
                Call &call = calls[request.function().name()];
                call = [others = call, &request] {
                    if (others) {
                        others();
                    }
                    callRequest(request);
                };
            }
        }
    }
    return calls;
}

Calls otherCalls()
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
        {"KillUsbServer", exposing([] {
             ServerPipeThreadSyncState =
                 NOTIFY_STOP_DONE;  // pretends that a server ran, so that the call checks whether it has ended
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

        // requests.h: functions that the catalogue does not call
        {"KVO_HWS_getKVOCurrentListFromRegistry", exposing([] { readRegistry(KVO_HWS_getKVOCurrentListFromRegistry); })},
        {"KVO_HWS_getKVOPreviousListFromRegistry", exposing([] { readRegistry(KVO_HWS_getKVOPreviousListFromRegistry); })},
        {"KVO_HWS_setUsbLock", exposing([] { KVO_HWS_setUsbLock(0, nullptr, 0, 0); })},

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
    };
}

}  // namespace cancellation
