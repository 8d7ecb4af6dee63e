/** @file
 *  The version of these headers. The library's own version is in its file name: libkvo_hws.so.0.MINOR.PATCH before 1.0.0.
 */
#ifndef KVO_HWS_VERSION_H
#define KVO_HWS_VERSION_H

/** @defgroup kvo_hws_version Version
 *  @{
 */

/** The first number: a change that breaks programs increases it. */
#define KVO_HWS_VERSION_MAJOR 0
/** The second number: an addition increases it. */
#define KVO_HWS_VERSION_MINOR 1
/** The third number: a bug fix increases it. */
#define KVO_HWS_VERSION_PATCH 0
/** All three numbers as a string. */
#define KVO_HWS_VERSION_STRING "0.1.0"

/** True if these headers have this version or a later one; for `#if`. */
#define KVO_HWS_VERSION_AT_LEAST(major, minor, patch)                                                                          \
    (KVO_HWS_VERSION_MAJOR > (major) ||                                                                                        \
     (KVO_HWS_VERSION_MAJOR == (major) &&                                                                                      \
      (KVO_HWS_VERSION_MINOR > (minor) || (KVO_HWS_VERSION_MINOR == (minor) && KVO_HWS_VERSION_PATCH >= (patch)))))

/** @} */

#endif
