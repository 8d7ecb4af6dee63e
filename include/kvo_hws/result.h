/** @file
 *  The result codes of the request functions, in one table.
 */
#ifndef KVO_HWS_RESULT_H
#define KVO_HWS_RESULT_H

/** What a request function returns. A function's own comment lists those that it uses and what they mean there. */
enum KvoHwsResult {
    KVO_HWS_OK = 1,           /**< done, or "yes" */
    KVO_HWS_NO = 0,           /**< nothing was done and nothing is wrong: "no", "busy", "not found", or level 0 */
    KVO_HWS_FAILED = -1,      /**< the service refused, answered something unknown, or the exchange broke off */
    KVO_HWS_NO_SERVICE = -2,  /**< no connection to the service's socket */
    KVO_HWS_TOO_SMALL = -3,   /**< the caller's buffer or array is too small, or a value is out of range */
    KVO_HWS_TIMEOUT = -4,     /**< a lock was not obtained in time, or a second buffer is too small */
    KVO_HWS_NULL_POINTER = -7 /**< a pointer that is needed is null */
};

#endif
