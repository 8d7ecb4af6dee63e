/** @file
 *  The result codes of the request functions, in one table.
 */
#ifndef KVO_HWS_RESULT_H
#define KVO_HWS_RESULT_H

/** @defgroup kvo_hws_result Result codes
 *  @{
 */

/** What a request function returns. A number may have several names: what it means is the function's, and stands in its
 *  comment.
 */
enum KvoHwsResult {
    KVO_HWS_OK = 1, /**< done, or "yes" */
    KVO_HWS_NO = 0, /**< nothing was done and nothing is wrong: "no", "busy", "not found", or level 0 */

    KVO_HWS_FAILED = -1,     /**< refused, an unknown reply, a broken exchange, or an argument that a function does not take */
    KVO_HWS_NO_SERVICE = -2, /**< no connection to the service's socket */

    KVO_HWS_TOO_SMALL = -3,    /**< the caller's buffer or array is too small */
    KVO_HWS_OUT_OF_RANGE = -3, /**< a value is out of range, or a reply of another kind than the two that are known */
    KVO_HWS_AMBIGUOUS = -3,    /**< several stations match */

    KVO_HWS_TIMEOUT = -4,          /**< a lock was not obtained in time */
    KVO_HWS_SECOND_TOO_SMALL = -4, /**< the caller's second buffer is too small */
    KVO_HWS_INVALID_MODE = -4,     /**< a mode is out of range */
    KVO_HWS_REFUSED = -4,          /**< the service refused, where that is told apart from an unknown reply */
    KVO_HWS_NOT_AVAILABLE = -4,    /**< the service has no such information */

    KVO_HWS_UNSUPPORTED = -5,   /**< the station does not know the mode */
    KVO_HWS_UNKNOWN_REPLY = -5, /**< the service answered something unknown, or a malformed value */
    KVO_HWS_NOT_ACTIVE = -6,    /**< the backlight is not active */

    KVO_HWS_NULL_POINTER = -7,      /**< a pointer that is needed is null */
    KVO_HWS_SERVER_FAILED = -8,     /**< a USB event server could not be stopped or started */
    KVO_HWS_NO_THREAD = -3,         /**< a thread that is needed could not be started */
    KVO_HWS_ALREADY_RUNNING = -8,   /**< it runs already, or has ended and was not cleaned up */
    KVO_HWS_MISSING_PARAMETER = -9, /**< an obligatory parameter is missing */
    KVO_HWS_INVALID_INSTANCE = -10, /**< a handle that is not the agent's */
    KVO_HWS_NO_EVENTS = -9,         /**< USB events are not active in this program */
    KVO_HWS_BUSY = -9,              /**< the service is busy, where that is a failure */
    KVO_HWS_INVALID_METRIC = -9,    /**< no such metric */
    KVO_HWS_INVALID_HOST = -10      /**< a host address that can not be used */
};

/** @} */

#endif
