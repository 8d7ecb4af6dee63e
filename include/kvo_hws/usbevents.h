/** @file
 *  USB events: a program hands over a callback and is told of every USB device that arrives, leaves, is refused or changes
 *  its state on any station.
 *
 *  While events are active the library listens on "/tmp/kvo_hws/usb_sock"; the daemon connects there once an event. One
 *  program of a panel has the events at a time: whoever activates them takes them over, and the program that had them is
 *  told with USB_EVENT_DEACTIVATED.
 *
 *  The callback
 *  - runs on threads of the library, one for each event, so several calls may run at once, beside the program's own threads.
 *    USB_EVENT_BEGIN and USB_EVENT_SERVER_FAILED come on the thread that activates or closes, before that function returns:
 *    it must not hold a lock that the callback takes;
 *  - may take its time: no lock of the library is held and no other event waits for it, but the daemon awaits the answer, and
 *    looks no further after 4 s;
 *  - returns -1 for a failure, which the daemon is told as "failed", and anything else for success. An exception that leaves it
 *    counts as -1. It must not end its thread;
 *  - may call every function of the library, KVO_HWS_closeUSBEvents included; but on USB_EVENT_BEGIN neither that nor an
 *    activation, since each begins with that code, and so without end. A program that answers a takeover with an activation
 *    takes the events back from the program that has just got them;
 *  - may still run, and may still be called by events on their way, shortly after KVO_HWS_closeUSBEvents has returned. No event
 *    that arrives after an end reaches it.
 *  The record it is given is valid until it returns. Neither a callback nor a wait in here can be cancelled with pthread_cancel
 *  (kvo_hws.h).
 *
 *  After USB_EVENT_REFUSED or USB_EVENT_NO_SERVICE of an activation the server still listens, and answers every event "failed",
 *  until the next activation or KillUsbServer. A server that fails later says so in the system log alone.
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

/** What a callback is told: how an activation goes, and what happens to devices. */
enum UsbEventCode {
    USB_EVENT_ACTIVATED = 1,   /**< the service has accepted the activation: events come from here on */
    USB_EVENT_DEACTIVATED = 2, /**< the end: closed, or taken over by another program */
    USB_EVENT_BEGIN = 3,       /**< activation or deactivation begins */

    USB_EVENT_NEW_DEVICE = 10,     /**< payload: device; older callback: UsbDeviceV1 */
    USB_EVENT_REMOVED = 11,        /**< payload: removed; older callback: UsbRemoveInfo in an area of 264 bytes */
    USB_EVENT_STATE = 13,          /**< payload: state; the older callback is not told */
    USB_EVENT_DEVICE_REFUSED = 14, /**< payload: device, text8 and number3 in place of text6, text7 and flagWord; the older
                                        callback is not told */

    USB_EVENT_SERVER_FAILED = 100, /**< the end: the server that ran could not be stopped, or the new one not be started */
    USB_EVENT_REFUSED = 101,       /**< the end: the service answered something other than "ok" */
    USB_EVENT_NO_SERVICE = 102     /**< the end: the service could not be reached or gave no answer */
};

/** What the newer callback is given. */
typedef struct UsbEventV2 {
    uint32_t code;   /**< UsbEventCode */
    uint32_t length; /**< bytes of this record that belong to the code: 8 without a payload, 216 new, 88 removed, 92 state, 212
                          refused */
    union {
        UsbDeviceInfo device;  /**< new or refused */
        UsbStateInfo state;    /**< its state has changed */
        UsbRemoveInfo removed; /**< it was removed */
    } payload;                 /**< the member that belongs to the code */
} UsbEventV2;

/** The older callback: a code and its record, null for codes without one. */
typedef int32_t (*SendUsbEventV1)(uint32_t code, void *record);

/** The newer callback. */
typedef int32_t (*SendUsbEventV2)(UsbEventV2 *event);

/** The older callback, null when none is set. Set by the functions below; a program that reads it does so atomically. */
extern KVO_HWS_API SendUsbEventV1 sendUSBEvent;

/** The newer callback, null when none is set. Where both are set, events go to this one. */
extern KVO_HWS_API SendUsbEventV2 sendUSBEvent2;

/** Activates USB events for the older callback. What comes of it is told to the callback: USB_EVENT_BEGIN at once, then
 *  USB_EVENT_ACTIVATED, or one of the ends; with a service that is still starting it waits for as long as that takes.
 *  @param callback  what it may and must not do stands at the head of usbevents.h; it replaces the one that was set
 *  @return 1 started; -1 @p callback is null; -8 a server could not be stopped or started (USB_EVENT_SERVER_FAILED was sent,
 *  and no callback is set any more); -3 no thread for asking the service (the callback stays set: KVO_HWS_closeUSBEvents
 *  ends it)
 *
 *  Stops this process's server if one runs, which takes up to a second (2 s where it does not stop), and asks whichever
 *  other one listens to end with "suicide": 50 ms where there is none, 4 s where it does not answer. Detaches the calling
 *  thread, which cannot be joined afterwards.
 *  Debug messages: "activate USB events - " and "null pointer received", "kill server", "can not kill server", "start
 *  server" or "can not start server"; failures besides, at LOG_ERR and whatever the debug level is, "activate USB events -
 *  fails with <result>"; what stopping logs stands at KillUsbServer. Asks "isInitComplete" every 100 ms until it is "yes",
 *  then "activateUSBEvents". Safe from any thread; activations and closes take turns.
 */
KVO_HWS_API int32_t KVO_HWS_activateUSBEvents(SendUsbEventV1 callback) KVO_HWS_NOEXCEPT;

/** As KVO_HWS_activateUSBEvents for the newer callback; the messages begin "activate USB events V2". */
KVO_HWS_API int32_t KVO_HWS_activateUSBEventsV2(SendUsbEventV2 callback) KVO_HWS_NOEXCEPT;

/** Ends USB events. The callback is told USB_EVENT_BEGIN at once, and USB_EVENT_DEACTIVATED, USB_EVENT_REFUSED or
 *  USB_EVENT_NO_SERVICE when the service has answered; then no callback is set any more, unless USB events were activated
 *  anew meanwhile.
 *  @return 1 ending; -9 no callback is set, nothing was sent; -8 the server could not be stopped (USB_EVENT_SERVER_FAILED
 *  was sent, and no callback is set any more)
 *
 *  Where there is no thread for asking the service, the result is 1 as well, but no end comes and the callback stays set:
 *  close again. Stops servers as KVO_HWS_activateUSBEvents does, the one of another program that has taken the events over
 *  included, and takes 100 ms more. Detaches the calling thread, which cannot be joined afterwards.
 *  Debug messages: "deactivate USB events - " and "events not activated", "kill server" or "can not kill server"; what
 *  stopping logs stands at KillUsbServer. Asks "deactivateUSBEvents". Safe from any thread; activations and closes take
 *  turns.
 */
KVO_HWS_API int32_t KVO_HWS_closeUSBEvents(void) KVO_HWS_NOEXCEPT;

/** Asks whether any program has USB events activated.
 *  @return 1 yes; 0 no; -1 anything else, also when there is no service
 *
 *  Asks "isUSBEventsActivated". Logs nothing of its own.
 */
KVO_HWS_API int32_t KVO_HWS_isUSBEventsActivated(void) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_usb_event_parts Parts of the USB events
 *  What activation and close are made of; for programs that run parts of it themselves.
 *  @{
 */

/** Tells a code without a record to the callback that is set, the newer one first.
 *  @param code  UsbEventCode; the newer callback gets a record of 8 bytes, the older one the code and null
 *  @return what the callback returned; -1 when none is set
 */
KVO_HWS_API int32_t SendUSBEventCheckNULL_Simple(uint32_t code) KVO_HWS_NOEXCEPT;

/** Calls the older callback.
 *  @return what it returned; -1 when none is set
 */
KVO_HWS_API int32_t SendUSBEventCheckNULL_V1(uint32_t code, void *record) KVO_HWS_NOEXCEPT;

/** Calls the newer callback.
 *  @return what it returned; -1 when none is set
 */
KVO_HWS_API int32_t SendUSBEventCheckNULL_V2(UsbEventV2 *event) KVO_HWS_NOEXCEPT;

/** Sets no callback any more. */
KVO_HWS_API void SetFunction_SendUSBEvent_NULL(void) KVO_HWS_NOEXCEPT;

/** Thread body: waits until the service is ready, asks "activateUSBEvents" and tells the callback what came of it.
 *  @param argument  null
 *  @return null
 *
 *  Ends without asking, or without telling, when a later activation or close has overtaken it.
 */
KVO_HWS_API void *threadActivateUSBevents(void *argument) KVO_HWS_NOEXCEPT;

/** Thread body: asks "deactivateUSBEvents", tells the callback what came of it, and sets no callback any more.
 *  @param argument  null
 *  @return null
 */
KVO_HWS_API void *threadDeactivateUSBevents(void *argument) KVO_HWS_NOEXCEPT;

/** Thread body: the server on "/tmp/kvo_hws/usb_sock". Sets ServerPipeThreadSyncState to 3 (running), looks at it at least
 *  once a second and ends when it is anything else: then it sets 2 where 1 (stop requested) stood, else 0.
 *  @param argument  null
 *  @return null
 *
 *  Takes the socket's place whoever listened there; a server of this process that another one has replaced ends within a
 *  second too, and leaves the state to its successor. The socket file stays. The callback is not told of its end.
 *  Debug messages: "USB server - " and "socket error", "bind error", "listen error", "started --> wait for clients", "create
 *  thread error" or "terminated"; its end, whatever the debug level is, as "USB server - terminated0 <errno> <text>" at
 *  LOG_INFO or, for a failure 1 to 6, "USB server - abnormal terminated<failure> <errno> <text>" at LOG_ERR.
 */
KVO_HWS_API void *win_kvo_hws_usb_server(void *argument) KVO_HWS_NOEXCEPT;

/** Thread body: serves one connection of the server: reads a line, tells the callback, answers "ok", "failed", "unknown
 *  request" or an empty line, and closes after 100 ms.
 *  @param socket  the connection's descriptor, cast to a pointer; closed here
 *  @return null
 *
 *  A line is a USB event text (codecs.h) or the control word "suicide", which gives the events up: asks
 *  "deactivateUSBEvents", tells the callback USB_EVENT_DEACTIVATED, sets no callback any more and lets the server end.
 *  Debug messages, each cut at 255 characters: "USB server - received text error", "USB server - received text from client
 *  '<text>'", "USB server - sending text to client '<answer>'", and, beginning with a blank and the words
 *  ExecuteNewUSBDevice or ExecuteIgnoreUSBDevice, "... ConvertText2USBDeviceNew fails <code>" and "... SendUSBEventCheckNULL
 *  fails '<result>'".
 */
KVO_HWS_API void *ConInstThread(void *socket) KVO_HWS_NOEXCEPT;

/** @} */

KVO_HWS_END_DECLS

#endif
