// How the functions of runtime.h, service.h, codecs.h, requests.h and config.h are called in which a cancellation can act.
#include "library/cancellation_calls.h"

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

}  // namespace

Calls requestCalls()
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
