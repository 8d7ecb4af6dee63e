// Calls for the cancellation test: the functions of usbevents.h and agent.h.
#include "library/cancellation_calls.h"

#include <kvo_hws/kvo_hws.h>

#include "agent/own_session.h"

#include <arpa/inet.h>
#include <array>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <thread>

namespace cancellation {
namespace {

using agent_test::OwnSession;

void listens(const char * /*name*/, const char * /*data*/) { pthread_testcancel(); }

constexpr const char *kParameters = "focusKvoIp=10.0.0.5\nremoteKvoHwsIp=127.0.0.1\n";

}  // namespace

Calls eventCalls()
{
    return {
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
         exposing([] { threadActivateUSBevents(reinterpret_cast<void *>(1)); })},  // a superseded activation
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
             // The values that a start would set. The thread tries to connect to its remote side until it is stopped.
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

}  // namespace cancellation
