/** @file
 *  Internal: types that are compiled only where they are used.
 */
#ifndef KVO_HWS_DETAIL_LATE_HPP
#define KVO_HWS_DETAIL_LATE_HPP

/** @cond internal */
namespace kvo::detail {

/* Compile time: a unit that includes the headers compiles every inline function with all types in it, but a template only if it
 * is used. So functions whose types are costly are templates. Their argument Use has no other purpose: types and calls that depend
 * on it are not looked into before that. */
template <class Use, class T>
struct LateType {
    using Type = T;
};
template <class Use, class T>
using Late = typename LateType<Use, T>::Type;

}  // namespace kvo::detail
/** @endcond */

#endif
