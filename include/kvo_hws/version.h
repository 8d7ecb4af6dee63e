/** @file
 *  The version of these headers. The library's own, by the name of its file: libkvo_hws.so.0.MINOR.PATCH before 1.0.0.
 */
#ifndef KVO_HWS_VERSION_H
#define KVO_HWS_VERSION_H

/** @defgroup kvo_hws_version Version
 *  @{
 */

/** The first number: raised by a change that breaks programs. */
#define KVO_HWS_VERSION_MAJOR 0
/** The second number: raised by an addition. */
#define KVO_HWS_VERSION_MINOR 1
/** The third number: raised by a correction. */
#define KVO_HWS_VERSION_PATCH 0
/** All three, as people write them. */
#define KVO_HWS_VERSION_STRING "0.1.0"

/** Whether these headers are of this version or a later one; for `#if`. */
#define KVO_HWS_VERSION_AT_LEAST(major, minor, patch)                                                                          \
    (KVO_HWS_VERSION_MAJOR > (major) ||                                                                                        \
     (KVO_HWS_VERSION_MAJOR == (major) &&                                                                                      \
      (KVO_HWS_VERSION_MINOR > (minor) || (KVO_HWS_VERSION_MINOR == (minor) && KVO_HWS_VERSION_PATCH >= (patch)))))

/** @} */

#endif
