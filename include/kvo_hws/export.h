/** @file
 *  How the library's functions and variables are declared: C linkage, and visible outside the shared library. No exception
 *  leaves a function.
 */
#ifndef KVO_HWS_EXPORT_H
#define KVO_HWS_EXPORT_H

/** Visible outside the shared library. */
#define KVO_HWS_API __attribute__((visibility("default")))

#ifdef __cplusplus
/** No exception leaves the function. */
#define KVO_HWS_NOEXCEPT noexcept
/** Opens a block of declarations with C linkage. */
#define KVO_HWS_BEGIN_DECLS extern "C" {
/** Closes the block of declarations. */
#define KVO_HWS_END_DECLS }
#else
#define KVO_HWS_NOEXCEPT
#define KVO_HWS_BEGIN_DECLS
#define KVO_HWS_END_DECLS
#endif

#endif
