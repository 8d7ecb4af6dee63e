/** @file
 *  The result codes of the functions, and a text that explains each of them.
 */
#ifndef KVO_HWS_RESULT_H
#define KVO_HWS_RESULT_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

/** @defgroup kvo_hws_result Result codes
 *  @{
 */

/** The results of the request functions. One number may have several names, because its meaning depends on the function. The
 *  function's comment documents the meaning.
 */
enum KvoHwsResult {
    KVO_HWS_OK = 1, /**< done, or "yes" */
    KVO_HWS_NO = 0, /**< nothing was done, but this is not an error: "no", "busy", "not found", or debug level 0 */

    KVO_HWS_FAILED = -1,     /**< refused, an unknown reply, a broken exchange, or an argument that the function rejects */
    KVO_HWS_NO_SERVICE = -2, /**< no connection to the service's socket */

    KVO_HWS_TOO_SMALL = -3,    /**< the caller's buffer or array is too small */
    KVO_HWS_OUT_OF_RANGE = -3, /**< a value is out of range, or the reply contains an unknown mode */
    KVO_HWS_AMBIGUOUS = -3,    /**< several stations match */

    KVO_HWS_TIMEOUT = -4,          /**< a lock was not obtained in time */
    KVO_HWS_SECOND_TOO_SMALL = -4, /**< the caller's second buffer is too small */
    KVO_HWS_INVALID_MODE = -4,     /**< a mode is out of range */
    KVO_HWS_REFUSED = -4,          /**< the service refused, in functions with another code for unknown replies */
    KVO_HWS_NOT_AVAILABLE = -4,    /**< the service has no such information */

    KVO_HWS_UNSUPPORTED = -5,   /**< the station does not know the mode */
    KVO_HWS_UNKNOWN_REPLY = -5, /**< the service sent an unknown reply or a malformed value */
    KVO_HWS_NOT_ACTIVE = -6,    /**< the backlight is not active */

    KVO_HWS_NULL_POINTER = -7,      /**< a required pointer is null */
    KVO_HWS_SERVER_FAILED = -8,     /**< a USB event server could not be stopped or started */
    KVO_HWS_NO_THREAD = -3,         /**< a required thread could not be started */
    KVO_HWS_ALREADY_RUNNING = -8,   /**< the agent or listener is already running, or has ended but was not cleaned up */
    KVO_HWS_MISSING_PARAMETER = -9, /**< a required parameter is missing */
    KVO_HWS_INVALID_INSTANCE = -10, /**< the handle is not the agent's */
    KVO_HWS_NO_EVENTS = -9,         /**< USB events are not active in this program */
    KVO_HWS_BUSY = -9,              /**< the service is busy, in functions that treat this as an error */
    KVO_HWS_INVALID_METRIC = -9,    /**< no such metric */
    KVO_HWS_INVALID_HOST = -10      /**< a host address that cannot be used */
};

/** Explains a result in words, for messages to users. Programs should test the number, not the text.
 *  @param function  the name of the function that returned the result, such as "KVO_HWS_getUsbLock". With null or an unknown
 *                   name, the text describes the number's general meaning
 *  @param result    the result of that function
 *  @return a text in English without a line end, never null; "unexpected result" for a number without a meaning. The text is
 *  constant and stays valid until the program ends; do not free it
 *
 *  Sends, logs and allocates nothing. The text is the same in every locale. Safe from any thread and from signal handlers.
 *  The texts may change with every version. Example in C:
 *
 *      int32_t result = KVO_HWS_setBacklightBrightness(0x0A000005, 180);
 *      if (result != KVO_HWS_OK) {
 *          puts(kvo_hws_result_text("KVO_HWS_setBacklightBrightness", result)); // the level is not one of 0 to 100
 *      }
 */
static inline const char *kvo_hws_result_text(const char *function, int32_t result)
{
    /* The only copy of these texts. Scripts parse this table, so keep each row on one line. A row without a function contains
     * the general meaning of a number. */
    static const struct {
        const char *function;
        int32_t result;
        const char *text;
    } rows[] = {
        /* clang-format off */
        /* Any function. */
        {"", 1, "done, or yes"},
        {"", 0, "the service says no"},
        {"", -1, "the service refused or sent an unknown reply"},
        {"", -2, "no service answers at /tmp/kvo_hws/cmd_sock"},
        {"", -3, "a buffer is too small, a value is out of range, several stations match, or no thread could be started"},
        {"", -4, "a timeout, a refusal, missing information, a mode that is out of range, or a buffer that is too small"},
        {"", -5, "the station does not know the mode, or the service sent an unknown reply"},
        {"", -6, "the station's backlight is not active"},
        {"", -7, "a required pointer is null"},
        {"", -8, "an agent, listener or server is already running, or could not be stopped or started"},
        {"", -9, "a parameter is missing or unknown, USB events are not active, or the service is busy"},
        {"", -10, "an address or a handle cannot be used"},
        /* service.h */
        {"SendCommand2ServiceDyn", -1, "the command is empty, or the exchange with the service broke"},
        {"SendCommand2ServiceDyn", -2, "no connection to the service"},
        {"FuncSendCommand2DLL", 1, "done"},
        {"FuncSendCommand2DLL", 2, "the socket could not be created"},
        {"FuncSendCommand2DLL", 3, "no USB event server answers"},
        {"FuncSendCommand2DLL", 4, "the message could not be written"},
        {"FuncSendCommand2DLL", 5, "the message is longer than 1022 characters; nothing was sent"},
        {"SendUsbMsg2DLL", 1, "done"},
        {"SendUsbMsg2DLL", 2, "the socket could not be created"},
        {"SendUsbMsg2DLL", 3, "no USB event server answers"},
        {"SendUsbMsg2DLL", 4, "the message could not be written"},
        {"SendUsbMsg2DLL", 5, "the message is longer than 1022 characters; nothing was sent"},
        {"SendCommand2DLL", 1, "done"},
        {"SendCommand2DLL", 2, "the socket could not be created"},
        {"SendCommand2DLL", 3, "no USB event server answers"},
        {"SendCommand2DLL", 4, "the message could not be written"},
        {"SendCommand2DLL", 5, "the message is longer than 1022 characters; nothing was sent"},
        {"KillUsbServer", -1, "this program's USB event server did not stop in time"},
        {"KillUsbServer", -2, "the message could not be delivered to a USB event server, or memory ran out"},
        {"kvo_hws_send_socket", -1, "not all bytes could be sent"},
        {"kvo_hws_send_socket", -2, "the connection is lost"},
        {"kvo_hws_StartUpSockets", 0, "done"},
        {"kvo_hws_CleanUpSockets", 0, "done"},
        {"ReadSocket", -1, "the socket could not be read"},
        {"ReadSocket", -3, "the connection is closed, or 1024 bytes came without a line feed"},
        {"ReadSocket", -5, "no data came in time"},
        {"ReadSocketDyn", -1, "the socket could not be read, or the pointer for the line is null"},
        {"ReadSocketDyn", -3, "the connection is closed"},
        {"ReadSocketDyn", -5, "no data came in time"},
        {"ReadSocketDyn", -6, "the wait for the socket failed"},
        {"ReadSocketDyn", -8, "not enough memory for the line"},
        {"ReadSocketCache", -1, "the socket could not be read"},
        {"ReadSocketCache", -3, "the connection is closed, or 1024 bytes came without a line feed"},
        {"ReadSocketCache", -5, "no data came in time"},
        {"ReadSocketCache", -6, "the wait for the socket failed"},
        {"KVO_HWS_getDebugLevel", 0, "the debug level is none"},
        {"KVO_HWS_getDebugLevel", 1, "the debug level is I"},
        {"KVO_HWS_getDebugLevel", 2, "the debug level is II"},
        {"KVO_HWS_lockKVORegData", 0, "the registry is already locked; try again"},
        {"KVO_HWS_lockKVORegData", -1, "the service refused, or no service answers"},
        {"KVO_HWS_unlockKVORegData", -1, "the service refused, or no service answers"},
        {"KVO_HWS_getDLLVersion", -1, "the buffer is too small for the version"},
        {"KVO_HWS_getKVOHWSVersion", -1, "the buffer is too small for the version, or the exchange with the service broke"},
        {"KVO_HWS_isInitComplete", 0, "the service is still starting; try again"},
        {"KVO_HWS_killDaemon", -1, "the exchange with the service broke"},
        /* requests.h: stations */
        {"KVO_HWS_getDescriptionList", -3, "the array is too small for all stations"},
        {"KVO_HWS_getDescriptionListEx", -3, "the array is too small for all stations"},
        {"KVO_HWS_getDescriptionEx", 0, "no station has this address or name"},
        {"KVO_HWS_getKVOPreviousListFromRegistry", 0, "the service is still starting; try again"},
        {"KVO_HWS_getKVOPreviousListFromRegistry", -1, "the service refused, or the list is missing in its registry"},
        {"KVO_HWS_getKVOPreviousListFromRegistry", -3, "the array is too small for all stations"},
        {"KVO_HWS_getKVOPreviousListFromRegistry", -4, "the registry stayed locked for too long"},
        {"KVO_HWS_getKVOCurrentListFromRegistry", 0, "the service is still starting; try again"},
        {"KVO_HWS_getKVOCurrentListFromRegistry", -1, "the service refused, or the list is missing in its registry"},
        {"KVO_HWS_getKVOCurrentListFromRegistry", -3, "the array is too small for all stations"},
        {"KVO_HWS_getKVOCurrentListFromRegistry", -4, "the registry stayed locked for too long"},
        /* requests.h: viewer */
        {"KVO_HWS_isViewerActive", 0, "the station's viewer is not running"},
        {"KVO_HWS_getCurrentServer", 0, "no server is shown"},
        {"KVO_HWS_getCurrentServer", -3, "the buffer is too small for the server"},
        {"KVO_HWS_getCurrentServer", -4, "the buffer is too small for the display"},
        {"KVO_HWS_setActivateMe", 0, "busy; try again"},
        {"KVO_HWS_setStartViewer", 0, "busy; try again"},
        {"KVO_HWS_startConfiguredViewer", 0, "busy; try again"},
        {"KVO_HWS_setStopViewer", 0, "the station's viewer is not running"},
        {"KVO_HWS_setStopViewerPreempt", 0, "the station's viewer is not running"},
        {"KVO_HWS_setStopViewerNoClean", 0, "the station's viewer is not running"},
        /* requests.h: panel */
        {"KVO_HWS_setBacklightBrightness", -3, "the level is not one of 0 to 100"},
        {"KVO_HWS_setBacklightBrightnessV2", -3, "the level is not one of 0 to 100"},
        {"KVO_HWS_setBacklightBrightnessV2", -4, "the mode is not 0 or 1"},
        {"KVO_HWS_setBacklightBrightnessV2", -5, "the station does not know this mode"},
        {"KVO_HWS_getBacklightBrightnessV2", 0, "the station does not know this mode"},
        {"KVO_HWS_getBacklightBrightnessV2", -3, "the pointer for the level is null"},
        {"KVO_HWS_getBacklightBrightnessV2", -4, "the mode is not 0 or 1"},
        {"KVO_HWS_getRV4Mode", 0, "the station has no handheld terminal of this type"},
        {"KVO_HWS_setRV4Mode", 0, "the station has no handheld terminal of this type"},
        {"KVO_HWS_setRV4Mode", -3, "the mode is not 0 (auto) or 1 (individual)"},
        /* requests.h: addresses */
        {"KVO_HWS_setKVOCksIndex", -3, "the index is not one of 0 to 255"},
        {"KVO_HWS_getIPbyMCPAddress", 0, "no station has this MCP address"},
        {"KVO_HWS_getIPbyMCPAddress", -3, "several stations have this MCP address"},
        {"KVO_HWS_getIPbyDCKAddress", 0, "no station has this DCK address"},
        {"KVO_HWS_getIPbyDCKAddress", -3, "several stations have this DCK address"},
        {"KVO_HWS_getIPbyKVOIndex", 0, "no station has this KVO index"},
        {"KVO_HWS_getIPbyKVOIndex", -3, "several stations have this KVO index"},
        /* requests.h: focus, start and channel information */
        {"KVO_HWS_setChannelInfo", -3, "the channel information is longer than 230 bytes"},
        {"KVO_HWS_getChannelInfo", 0, "the station has no channel information"},
        {"KVO_HWS_getChannelInfo", -3, "the buffer is too small for the channel information"},
        /* requests.h: touch screen, input devices and display */
        {"KVO_HWS_invalidateTouchScreen", 0, "the station has no touch screen"},
        {"KVO_HWS_getTouchScreenCalibParam", 0, "the station has no touch screen"},
        {"KVO_HWS_setTouchScreenCalibParam", 0, "the station has no touch screen"},
        {"KVO_HWS_setTouchScreenCalibParam", -3, "the threshold is below -1, or nonlinear is not -1, 0 or 1"},
        /* requests.h: USB lock and connectors */
        {"KVO_HWS_setUsbLock", -1, "the lock could not be sent over the network"},
        {"KVO_HWS_setUsbLock", -10, "127.0.0.1 is not a station's address; nothing was sent"},
        {"KVO_HWS_getUsbConnectorList", 0, "the list of connectors is empty"},
        {"KVO_HWS_getUsbConnectorList", -3, "the buffer is too small for the list of connectors"},
        {"KVO_HWS_getUsbConnectorList", -4, "the service refused"},
        {"KVO_HWS_getUsbConnectorList", -5, "the service sent an unknown reply"},
        {"KVO_HWS_getUsbConnectorList", -9, "the service is busy; try again"},
        {"KVO_HWS_getUsbConnectorListOne", 0, "the list of connectors is empty"},
        {"KVO_HWS_getUsbConnectorListOne", -3, "the buffer is too small for the list of connectors"},
        {"KVO_HWS_getUsbConnectorListOne", -4, "the service refused"},
        {"KVO_HWS_getUsbConnectorListOne", -5, "the service sent an unknown reply"},
        {"KVO_HWS_getUsbConnectorListOne", -9, "the service is busy; try again"},
        /* requests.h: metrics, clients and the kind of panel */
        {"KVO_HWS_getStationMetrics", -4, "the station does not report this metric"},
        {"KVO_HWS_getStationMetrics", -5, "the service sent a malformed value"},
        {"KVO_HWS_getStationMetrics", -9, "no metric has this number"},
        {"KVO_HWS_getClientList", -3, "the array is too small for all clients"},
        {"KVO_HWS_isMarovantiPanel", 0, "the panel is not a Marovanti panel"},
        {"KVO_HWS_isMarovantiPanel", -3, "the service sent an unknown mode"},
        {"KVO_HWS_isMarovantiPanel", -4, "the panel was not found, or the service failed"},
        {"KVO_HWS_isMarovantiPanel", -5, "the service sent an unknown reply"},
        /* usbevents.h */
        {"KVO_HWS_activateUSBEvents", -1, "the callback is null"},
        {"KVO_HWS_activateUSBEvents", -3, "the thread that asks the service could not be started"},
        {"KVO_HWS_activateUSBEvents", -8, "the USB event server could not be stopped or started"},
        {"KVO_HWS_activateUSBEventsV2", -1, "the callback is null"},
        {"KVO_HWS_activateUSBEventsV2", -3, "the thread that asks the service could not be started"},
        {"KVO_HWS_activateUSBEventsV2", -8, "the USB event server could not be stopped or started"},
        {"KVO_HWS_closeUSBEvents", -8, "the USB event server could not be stopped"},
        {"KVO_HWS_closeUSBEvents", -9, "USB events are not active in this program"},
        {"KVO_HWS_isUSBEventsActivated", 0, "no program has activated USB events"},
        {"KVO_HWS_isUSBEventsActivated", -1, "the service refused, or no service answers"},
        {"SendUSBEventCheckNULL_Simple", -1, "no callback is set, or the callback failed"},
        {"SendUSBEventCheckNULL_V1", -1, "no callback is set, or the callback failed"},
        {"SendUSBEventCheckNULL_V2", -1, "no callback is set, or the callback failed"},
        /* agent.h */
        {"KVO_HWS_startupEmbHwsClient", -1, "the agent's thread could not be started"},
        {"KVO_HWS_startupEmbHwsClient", -8, "an agent is already running, or has ended but was not cleaned up"},
        {"KVO_HWS_startupEmbHwsClient", -9, "the parameters name no station in focus or no remote service"},
        {"KVO_HWS_cleanupEmbHwsClient", -1, "the agent is still running; it ends when the call that blocks it returns"},
        {"KVO_HWS_cleanupEmbHwsClient", -7, "no agent was started, or the handle is null"},
        {"KVO_HWS_cleanupEmbHwsClient", -10, "this is not the handle of the agent"},
        {"KVO_HWS_sendEmbHwsEvent", -1, "the remote side has not sent a valid request yet"},
        {"KVO_HWS_sendEmbHwsEvent", -7, "the handle or the text is null"},
        {"KVO_HWS_sendEmbHwsEvent", -10, "this is not the handle of the agent"},
        {"hmiconn_indication", -1, "the remote side has not sent a valid request yet"},
        {"init_fb", 0, "done"},
        {"init_fb", -1, "the station in focus cannot be read, or an agent is ending"},
        {"get_shiftstate", 6, "the shift state is 6, or could not be read"},
        {"KVO_HWS_activateEmbKvoEvents", -1, "the listener's thread could not be started"},
        {"KVO_HWS_activateEmbKvoEvents", -8, "this program is already listening"},
        {"KVO_HWS_deactivateEmbKvoEvents", -1, "no listener was running, or it keeps running until a service is available"},
        /* config.h */
        {"GetInterfaceIP", 0, "done"},
        {"GetInterfaceIP", -1, "the interface has no IPv4 address"},
        {"GetInterfaceIP", -2, "the configuration file was not read"},
        {"GetPortNumber", 0, "done"},
        {"GetPortNumber", -1, "the configuration file was not read"},
        {"GetSessionNumber", 0, "done"},
        {"GetSessionNumber", -1, "the configuration file was not read"},
        {"GetRHZName", 0, "done"},
        {"GetRHZName", -1, "the configuration file was not read"},
        {"GetBacklightMode", 0, "done"},
        {"GetBacklightMode", -1, "the configuration file was not read"},
        {"GetBrightnessMode", 0, "done"},
        {"GetBrightnessMode", -1, "the configuration file was not read"},
        {"GetBacklightBrightnessMode", 0, "done"},
        {"GetBacklightBrightnessMode", -1, "the configuration file was not read"},
        {"GetRegistryPath", 0, "done"},
        {"GetRegistryPath", -1, "the configuration file was not read"},
        /* runtime.h */
        {"kvo_hws_CreateThread", -1, "the thread could not be started"},
        {"kvo_hws_CreateThreadIdent", -1, "the thread could not be started"},
        {"kvo_hws_detach_thread", -1, "the thread was already detached"},
        {"kvo_hws_GiveUpThreadExecution", 0, "done"},
        {"kvo_hws_EnterCriticalSection", 0, "done"},
        {"kvo_hws_LeaveCriticalSection", 0, "done"},
        {"ActivateNotify", 0, "done"},
        {"ActivateNotify", -1, "the signal handler could not be set; errno says why"},
        {"CreateNotify", 0, "done"},
        {"CreateNotify", -1, "not enough memory for the record"},
        {"DeleteNotify", 0, "done"},
        {"WaitNotify", 1, "a signal came, and a stop is requested"},
        {"WaitNotify", 0, "the time has passed"},
        {"WaitNotify", -3, "a signal came without a stop, or the sleep failed"},
        {"WaitShutdown", 1, "the thread has ended, or was not running"},
        {"WaitShutdown", -1, "the sleep failed, or the time has passed"},
        {"WaitShutdown", -2, "the thread is still running"},
        {"ShutdownThread", 1, "the thread has ended, or was not running"},
        {"ShutdownThread", -1, "the sleep failed, or the time has passed"},
        {"ShutdownThread", -2, "the thread is still running, or the record is null"},
        {"CreateReceivedNotify", 0, "done"},
        {"InitReceivedNotify", 0, "done"},
        {"InitReceivedNotify", -1, "the semaphore cannot be used; errno says why"},
        {"DeleteReceivedNotify", 0, "done"},
        {"DeleteReceivedNotify", -1, "the semaphore cannot be used; errno says why"},
        {"WaitReceivedNotify", 1, "the semaphore was posted"},
        {"WaitReceivedNotify", 0, "the semaphore was not posted in time"},
        {"WaitReceivedNotify", -1, "the wait failed, or a signal came"},
        /* codecs.h */
        {"ConvertConArray2Text", 0, "done"},
        {"ConvertConArray2TextEx", 0, "done"},
        {"ConvertConArray2TextClients", 0, "done"},
        {"ConvertConElem2TextEx", -1, "the buffer is too small for the station"},
        {"ConvertText2KVODescriptionArray", -1, "the text is malformed"},
        {"ConvertText2KVODescArrayEx", -1, "the text is malformed"},
        {"ConvertText2KVOClientArray", -1, "the text is malformed"},
        {"ConvertText2KVODescEx", -1, "the text is malformed"},
        {"ConvertCmd2USBDeviceNew", -1, "the keyword is missing"},
        {"ConvertCmd2USBDeviceNew", -2, "ipAddress is missing"},
        {"ConvertCmd2USBDeviceNew", -3, "ident2 is missing"},
        {"ConvertCmd2USBDeviceNew", -4, "ident3 is missing"},
        {"ConvertCmd2USBDeviceNew", -5, "text4 is missing"},
        {"ConvertCmd2USBDeviceNew", -6, "text5 is missing"},
        {"ConvertCmd2USBDeviceNew", -7, "text6 is missing"},
        {"ConvertCmd2USBDeviceNew", -8, "text7 is missing"},
        {"ConvertCmd2USBDeviceNew", -9, "number1 is missing"},
        {"ConvertCmd2USBDeviceNew", -10, "number1 is malformed"},
        {"ConvertCmd2USBDeviceNew", -11, "number2 is missing"},
        {"ConvertCmd2USBDeviceNew", -12, "id1 is malformed"},
        {"ConvertCmd2USBDeviceNew", -13, "the byte block is missing"},
        {"ConvertCmd2USBDeviceNew", -17, "the flag word is malformed"},
        {"ConvertCmd2USBDeviceNew", -18, "id1 is missing"},
        {"ConvertCmd2USBDeviceNew", -19, "number2 is malformed"},
        {"ConvertCmd2USBDeviceNew", -20, "the flag word is missing"},
        {"ConvertCmd2USBDeviceNM", -1, "the keyword is missing"},
        {"ConvertCmd2USBDeviceNM", -2, "ipAddress is missing"},
        {"ConvertCmd2USBDeviceNM", -3, "ident2 is missing"},
        {"ConvertCmd2USBDeviceNM", -4, "ident3 is missing"},
        {"ConvertCmd2USBDeviceNM", -5, "text4 is missing"},
        {"ConvertCmd2USBDeviceNM", -6, "text5 is missing"},
        {"ConvertCmd2USBDeviceNM", -7, "text6 is missing"},
        {"ConvertCmd2USBDeviceNM", -8, "text7 is missing"},
        {"ConvertCmd2USBDeviceNM", -9, "number1 is missing"},
        {"ConvertCmd2USBDeviceNM", -10, "number1 is malformed"},
        {"ConvertCmd2USBDeviceNM", -11, "number2 is missing"},
        {"ConvertCmd2USBDeviceNM", -12, "id1 is malformed"},
        {"ConvertCmd2USBDeviceNM", -13, "id2 is missing"},
        {"ConvertCmd2USBDeviceNM", -14, "id2 is malformed"},
        {"ConvertCmd2USBDeviceNM", -15, "the byte block is missing"},
        {"ConvertCmd2USBDeviceNM", -17, "the flag word is malformed"},
        {"ConvertCmd2USBDeviceNM", -18, "id1 is missing"},
        {"ConvertCmd2USBDeviceNM", -19, "number2 is malformed"},
        {"ConvertCmd2USBDeviceNM", -20, "the flag word is missing"},
        {"ConvertCmd2USBDeviceIM", -1, "the keyword is missing"},
        {"ConvertCmd2USBDeviceIM", -2, "ipAddress is missing"},
        {"ConvertCmd2USBDeviceIM", -3, "ident2 is missing"},
        {"ConvertCmd2USBDeviceIM", -4, "ident3 is missing"},
        {"ConvertCmd2USBDeviceIM", -5, "text4 is missing"},
        {"ConvertCmd2USBDeviceIM", -6, "text5 is missing"},
        {"ConvertCmd2USBDeviceIM", -7, "text8 is missing"},
        {"ConvertCmd2USBDeviceIM", -8, "number1 is missing"},
        {"ConvertCmd2USBDeviceIM", -10, "number1 is malformed"},
        {"ConvertCmd2USBDeviceIM", -11, "number2 is missing"},
        {"ConvertCmd2USBDeviceIM", -12, "number2 is malformed"},
        {"ConvertCmd2USBDeviceIM", -13, "number3 is missing"},
        {"ConvertCmd2USBDeviceIM", -14, "number3 is malformed"},
        {"ConvertCmd2USBDeviceCS", -1, "the keyword is missing"},
        {"ConvertCmd2USBDeviceCS", -2, "ipAddress is missing"},
        {"ConvertCmd2USBDeviceCS", -3, "ident2 is missing"},
        {"ConvertCmd2USBDeviceCS", -4, "ident3 is missing"},
        {"ConvertCmd2USBDeviceCS", -5, "the state is missing"},
        {"ConvertCmd2USBDeviceCS", -10, "the state is malformed"},
        {"ConvertCmd2USBDeviceRemove", -1, "a field is missing"},
        {"ConvertCmd2USBDeviceRM", -1, "a field is missing"},
        /* clang-format on */
    };
    const char *general = "unexpected result";
    for (size_t i = 0; i < sizeof rows / sizeof rows[0]; ++i) {
        if (rows[i].result != result) {
            continue;
        }
        if (rows[i].function[0] == '\0') {
            general = rows[i].text;
        } else if (function && strcmp(rows[i].function, function) == 0) {
            return rows[i].text;
        }
    }
    return general;
}

/** @} */

#endif
