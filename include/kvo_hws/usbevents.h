/** @file
 *  USB events: the library calls a program's callback for every USB device that arrives, leaves, is refused or changes its
 *  state on any station.
 *
 *  While events are active, a server in the library listens on "/tmp/kvo_hws/usb_sock". The daemon opens one connection for
 *  each event. Only one program on a panel receives the events at a time. A program that activates them takes them over, and
 *  the previous program receives USB_EVENT_DEACTIVATED.
 *
 *  Rules for the callback:
 *  - The library calls it on its own threads, one for each event. Several calls may run at the same time, in parallel with the
 *    program's own threads.
 *  - The library sends USB_EVENT_BEGIN and USB_EVENT_SERVER_FAILED on the thread that activates or closes, before that function
 *    returns. Therefore this thread must not hold a lock that the callback takes.
 *  - It may run for a long time. The library holds no lock during the call, and other events do not wait for it. The daemon,
 *    however, waits for the reply and gives up after 4 s.
 *  - It returns -1 for a failure; the library then replies "failed" to the daemon. Any other value means success. An exception
 *    that leaves the callback counts as -1. The callback must not end its thread.
 *  - It may call every function of the library, including KVO_HWS_closeUSBEvents, with one exception: on USB_EVENT_BEGIN it
 *    must neither close nor activate USB events, because both send USB_EVENT_BEGIN again, without end.
 *  - If it responds to a takeover with an activation, it takes the events back from the program that has just activated them.
 *  - Shortly after KVO_HWS_closeUSBEvents has returned, it may still be running, and may still be called for events in transit.
 *    It receives no event that arrives after one of the final codes.
 *
 *  The record that the callback receives is valid until the callback returns. pthread_cancel cannot cancel a callback, nor a
 *  wait in these functions (kvo_hws.h).
 *
 *  If an activation ends with USB_EVENT_REFUSED or USB_EVENT_NO_SERVICE, the server keeps listening and answers every event
 *  with "failed", until the next activation or KillUsbServer. If a server fails later, the library only writes to the system
 *  log; the callback receives no code.
 */
#ifndef KVO_HWS_USBEVENTS_H
#define KVO_HWS_USBEVENTS_H

#include <kvo_hws/codecs.h>
#include <kvo_hws/export.h>

#include <stdint.h>

KVO_HWS_BEGIN_DECLS

/** @defgroup kvo_hws_usb_events USB events
 *  @{
 */

/** The codes that a callback receives: the progress of an activation, and events of devices. */
enum UsbEventCode {
    USB_EVENT_ACTIVATED = 1,   /**< the service has accepted the activation: events follow */
    USB_EVENT_DEACTIVATED = 2, /**< final code: closed, or taken over by another program */
    USB_EVENT_BEGIN = 3,       /**< an activation or deactivation begins */

    USB_EVENT_NEW_DEVICE = 10,     /**< payload: device; older callback: UsbDeviceV1 */
    USB_EVENT_REMOVED = 11,        /**< payload: removed; older callback: UsbRemoveInfo in an area of 264 bytes */
    USB_EVENT_STATE = 13,          /**< payload: state; not sent to the older callback */
    USB_EVENT_DEVICE_REFUSED = 14, /**< payload: device, with text8 and number3 instead of text6, text7 and flagWord; not sent
                                        to the older callback */

    USB_EVENT_SERVER_FAILED = 100, /**< final code: the old server could not be stopped, or the new one could not be started */
    USB_EVENT_REFUSED = 101,       /**< final code: the service did not reply "ok" */
    USB_EVENT_NO_SERVICE = 102     /**< final code: the service could not be reached or sent no reply */
};

/** The record that the newer callback receives. */
typedef struct UsbEventV2 {
    uint32_t code;   /**< UsbEventCode */
    uint32_t length; /**< number of bytes of this record used by the code: 8 without a payload, 216 new, 88 removed, 92 state,
                          212 refused */
    union {
        UsbDeviceInfo device;  /**< new or refused */
        UsbStateInfo state;    /**< its state has changed */
        UsbRemoveInfo removed; /**< it was removed */
    } payload;                 /**< the data of the event; the member depends on the code */
} UsbEventV2;

/** The older callback: a code and its record; null for codes without a record. */
typedef int32_t (*SendUsbEventV1)(uint32_t code, void *record);

/** The newer callback. */
typedef int32_t (*SendUsbEventV2)(UsbEventV2 *event);

/** The older callback, null if none is set. The functions below set it; a program must read it atomically. */
extern KVO_HWS_API SendUsbEventV1 sendUSBEvent;

/** The newer callback, null if none is set. If both are set, events go to this one. */
extern KVO_HWS_API SendUsbEventV2 sendUSBEvent2;

/** Activates USB events for the older callback. The callback receives the outcome: USB_EVENT_BEGIN at once, then
 *  USB_EVENT_ACTIVATED or one of the final codes. The activation waits without a limit until the service is ready.
 *  @param callback  replaces the callback that is set; the beginning of usbevents.h lists the rules for it
 *  @return 1 started; -1 @p callback is null; -8 a server could not be stopped or started (USB_EVENT_SERVER_FAILED was sent,
 *  and the callbacks are cleared); -3 the thread that asks the service could not be started (the callback stays set:
 *  KVO_HWS_closeUSBEvents clears it)
 *
 *  If this process's server is running, the function stops it. This takes up to a second, or 2 s if the server does not stop.
 *  Then it sends "suicide" to any other server that is listening. This takes 50 ms if no server is listening, and 4 s if the
 *  server does not reply. The function detaches the calling thread, which cannot be joined afterwards.
 *  Debug messages: "activate USB events - " and "null pointer received", "kill server", "can not kill server", "start
 *  server" or "can not start server". Failures are also logged at LOG_ERR at every debug level: "activate USB events - fails
 *  with <result>". KillUsbServer documents the messages about stopping. Sends "isInitComplete" every 100 ms until the reply is
 *  "yes", then "activateUSBEvents". Safe from any thread; only one activation or close runs at a time.
 */
KVO_HWS_API int32_t KVO_HWS_activateUSBEvents(SendUsbEventV1 callback) KVO_HWS_NOEXCEPT;

/** As KVO_HWS_activateUSBEvents, but for the newer callback. The messages begin with "activate USB events V2". */
KVO_HWS_API int32_t KVO_HWS_activateUSBEventsV2(SendUsbEventV2 callback) KVO_HWS_NOEXCEPT;

/** Deactivates USB events. The callback receives USB_EVENT_BEGIN at once. After the exchange with the service, it receives
 *  USB_EVENT_DEACTIVATED, USB_EVENT_REFUSED or USB_EVENT_NO_SERVICE. Then the callbacks are cleared, unless USB events have
 *  been activated again in the meantime.
 *  @return 1 ending; -9 no callback is set, nothing was sent; -8 the server could not be stopped (USB_EVENT_SERVER_FAILED
 *  was sent, and the callbacks are cleared)
 *
 *  If the thread that asks the service cannot be started, the result is also 1, but no final code follows and the callback
 *  stays set. Call the function again in this case.
 *  Stops servers in the same way as KVO_HWS_activateUSBEvents, including the server of another program that has taken over the
 *  events, and takes 100 ms longer. Detaches the calling thread, which cannot be joined afterwards.
 *  Debug messages: "deactivate USB events - " and "events not activated", "kill server" or "can not kill server".
 *  KillUsbServer documents the messages about stopping. Sends "deactivateUSBEvents". Safe from any thread; only one activation
 *  or close runs at a time.
 */
KVO_HWS_API int32_t KVO_HWS_closeUSBEvents(void) KVO_HWS_NOEXCEPT;

/** Asks whether any program has activated USB events.
 *  @return 1 yes; 0 no; -1 any other reply, or no service answers
 *
 *  Sends "isUSBEventsActivated". Logs no messages of its own.
 */
KVO_HWS_API int32_t KVO_HWS_isUSBEventsActivated(void) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_usb_event_parts Parts of the USB events
 *  The steps of activation and close, for programs that run some of them themselves.
 *  @{
 */

/** Sends a code without a record to the newer callback if it is set, else to the older one.
 *  @param code  UsbEventCode; the newer callback receives a record of 8 bytes, the older one the code and null
 *  @return the callback's result; -1 if no callback is set
 */
KVO_HWS_API int32_t SendUSBEventCheckNULL_Simple(uint32_t code) KVO_HWS_NOEXCEPT;

/** Calls the older callback.
 *  @return the callback's result; -1 if no callback is set
 */
KVO_HWS_API int32_t SendUSBEventCheckNULL_V1(uint32_t code, void *record) KVO_HWS_NOEXCEPT;

/** Calls the newer callback.
 *  @return the callback's result; -1 if no callback is set
 */
KVO_HWS_API int32_t SendUSBEventCheckNULL_V2(UsbEventV2 *event) KVO_HWS_NOEXCEPT;

/** Clears both callbacks. */
KVO_HWS_API void SetFunction_SendUSBEvent_NULL(void) KVO_HWS_NOEXCEPT;

/** Thread function: waits until the service is ready, sends "activateUSBEvents" and sends the outcome to the callback.
 *  @param argument  null
 *  @return null
 *
 *  If a later activation or close replaces this activation, the thread ends without sending the request, or without calling the
 *  callback.
 */
KVO_HWS_API void *threadActivateUSBevents(void *argument) KVO_HWS_NOEXCEPT;

/** Thread function: sends "deactivateUSBEvents", sends the outcome to the callback, and clears both callbacks.
 *  @param argument  null
 *  @return null
 */
KVO_HWS_API void *threadDeactivateUSBevents(void *argument) KVO_HWS_NOEXCEPT;

/** Thread function: the server on "/tmp/kvo_hws/usb_sock". Sets ServerPipeThreadSyncState to 3 (running), checks this variable
 *  at least once a second, and ends when it has any other value. At its end, the server changes the value 1 (stop requested)
 *  to 2, and any other value to 0.
 *  @param argument  null
 *  @return null
 *
 *  Takes over the socket path from any other server. If another server of this process replaces this one, this server also ends
 *  within a second, and does not change ServerPipeThreadSyncState. The server does not remove the socket file, and does not
 *  call the callback when it ends. Debug messages: "USB server - " and "socket error", "bind error", "listen error", "started
 *  --> wait for clients", "create thread error" or "terminated". The end is logged at every debug level: "USB server -
 *  terminated0 <errno> <text>" at LOG_INFO. After a failure, which has a number from 1 to 6, it is "USB server - abnormal
 *  terminated<failure> <errno> <text>" at LOG_ERR.
 */
KVO_HWS_API void *win_kvo_hws_usb_server(void *argument) KVO_HWS_NOEXCEPT;

/** Thread function: serves one connection of the server. Reads a line, calls the callback, replies "ok", "failed", "unknown
 *  request" or an empty line, and closes the connection after 100 ms.
 *  @param socket  the connection's descriptor, cast to a pointer; closed by this function
 *  @return null
 *
 *  A line is a USB event text (codecs.h) or the control word "suicide". On "suicide" the program gives up the events: the
 *  function sends "deactivateUSBEvents" to the service and USB_EVENT_DEACTIVATED to the callback, clears both callbacks, and
 *  lets the server end.
 *  Debug messages, each cut at 255 characters: "USB server - received text error", "USB server - received text from client
 *  '<text>'", "USB server - sending text to client '<answer>'", and, beginning with a blank and the words
 *  ExecuteNewUSBDevice or ExecuteIgnoreUSBDevice, "... ConvertText2USBDeviceNew fails <code>" and "... SendUSBEventCheckNULL
 *  fails '<result>'".
 */
KVO_HWS_API void *ConInstThread(void *socket) KVO_HWS_NOEXCEPT;

/** @} */

KVO_HWS_END_DECLS

#endif
