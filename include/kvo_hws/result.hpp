/** @file
 *  What a call of the C++ interface returns: a value, or an error.
 *
 *  The functions of C return small numbers whose meaning depends on the function: -3 means "the array is too small" for one
 *  and "the level is out of range" for another. kvo::Error has the number, the function, the reason in words, and an
 *  enumeration that means the same for every function. A "no" of the service (result 0) is a value, not an error.
 *
 *      kvo::Result<std::uint32_t> mcp = station.mcp_address();
 *      if (mcp) {
 *          std::printf("MCP address %u\n", *mcp);
 *      } else if (mcp.error().meaning() == kvo::Errc::no_service) {
 *          std::puts("no service is running");
 *      } else {
 *          std::puts(mcp.error().message().c_str());
 *      }
 *
 *  Or, where the program uses exceptions: `std::uint32_t mcp = station.mcp_address().value();`.
 *
 *  The objects may be used in one thread at a time, like those of the standard library.
 */
#ifndef KVO_HWS_RESULT_HPP
#define KVO_HWS_RESULT_HPP

#if __cplusplus < 201703L
#error "the C++ interface needs C++17: compile with -std=c++17 or later, or include kvo_hws/kvo_hws.h"
#endif

#include <kvo_hws/result.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <optional>
#include <string>
#include <utility>

#ifdef __cpp_exceptions
/** 1 in a unit that is compiled with exceptions, else 0. */
#define KVO_HWS_EXCEPTIONS 1
/** @cond internal */
/* A program may contain units with exceptions and units without: the functions that differ between them have different names
 * for the linker. */
#define KVO_HWS_EXCEPTIONS_TAG
/** @endcond */
#else
#define KVO_HWS_EXCEPTIONS 0
#define KVO_HWS_EXCEPTIONS_TAG __attribute__((abi_tag("no_exceptions")))
#endif

/** The C++ interface of the library (kvo_hws.hpp). */
namespace kvo {

/** @defgroup kvo_cpp_result Results and errors in C++
 *  @{
 */

/** The meaning of an error. It does not depend on the function. */
enum class Errc : std::uint8_t {
    failed = 1,        /**< the service refused or sent an unknown reply, or the exchange broke */
    no_service,        /**< no connection to the service */
    timeout,           /**< a deadline, a lock or the end of a thread was not reached in time */
    refused,           /**< the service refused; only functions with another code for unknown replies */
    unknown_reply,     /**< an unknown reply or a malformed value; only functions with another code for refusals */
    busy,              /**< the service is busy, in functions where this is an error; try again */
    out_of_range,      /**< a number is out of range; nothing was sent */
    invalid_text,      /**< a text would not arrive as given; nothing was sent */
    invalid_address,   /**< a text is not an IPv4 address, or an address cannot be used */
    ambiguous,         /**< several stations match */
    not_available,     /**< the station does not report this value */
    unsupported,       /**< the station does not know the mode */
    not_active,        /**< the backlight is not active */
    too_small,         /**< a list or text grew with each call, or is larger than this interface reads */
    null_pointer,      /**< a required function is empty */
    missing_parameter, /**< the agent has no station in focus or no remote service */
    already_running,   /**< the process already has such an object, and can have only one */
    not_running,       /**< the object was moved from or closed, or the events are not active */
    not_negotiated,    /**< the remote side of the agent has not sent a valid request yet */
    server_failed,     /**< the server of USB events could not be stopped or started */
    no_thread,         /**< a thread or a descriptor could not be created */
    full,              /**< too many requests wait; dispatch those that are done, then try again */
    exception          /**< the program's own function threw an exception */
};

/** @cond internal */
namespace detail {

/* The meanings that differ from those of general_meaning. */
inline Errc special_meaning(const char *function, std::int32_t code) noexcept
{
    static constexpr struct {
        const char *function;
        std::int32_t code;
        Errc meaning;
    } rows[] = {
        {"KVO_HWS_getDLLVersion", -1, Errc::too_small},
        {"KVO_HWS_activateUSBEvents", -1, Errc::null_pointer},
        {"KVO_HWS_activateUSBEvents", -3, Errc::no_thread},
        {"KVO_HWS_activateUSBEventsV2", -1, Errc::null_pointer},
        {"KVO_HWS_activateUSBEventsV2", -3, Errc::no_thread},
        {"KVO_HWS_closeUSBEvents", -9, Errc::not_running},
        {"KVO_HWS_activateEmbKvoEvents", -1, Errc::no_thread},
        {"KVO_HWS_activateEmbKvoEvents", -8, Errc::already_running},
        {"KVO_HWS_deactivateEmbKvoEvents", -1, Errc::timeout},
        {"KVO_HWS_startupEmbHwsClient", -1, Errc::no_thread},
        {"KVO_HWS_startupEmbHwsClient", -8, Errc::already_running},
        {"KVO_HWS_startupEmbHwsClient", -9, Errc::missing_parameter},
        {"KVO_HWS_cleanupEmbHwsClient", -1, Errc::timeout},
        {"KVO_HWS_cleanupEmbHwsClient", -7, Errc::not_running},
        {"KVO_HWS_cleanupEmbHwsClient", -10, Errc::not_running},
        {"KVO_HWS_sendEmbHwsEvent", -1, Errc::not_negotiated},
        {"KVO_HWS_sendEmbHwsEvent", -10, Errc::not_running},
        {"KVO_HWS_getKVOPreviousListFromRegistry", -4, Errc::timeout},
        {"KVO_HWS_getKVOCurrentListFromRegistry", -4, Errc::timeout},
        {"KVO_HWS_getCurrentServer", -4, Errc::too_small},
        {"KVO_HWS_setBacklightBrightness", -3, Errc::out_of_range},
        {"KVO_HWS_setBacklightBrightnessV2", -3, Errc::out_of_range},
        {"KVO_HWS_setBacklightBrightnessV2", -4, Errc::out_of_range},
        {"KVO_HWS_setBacklightBrightnessV2", -5, Errc::unsupported},
        {"KVO_HWS_getBacklightBrightnessV2", -3, Errc::null_pointer},
        {"KVO_HWS_getBacklightBrightnessV2", -4, Errc::out_of_range},
        {"KVO_HWS_setRV4Mode", -3, Errc::out_of_range},
        {"KVO_HWS_setKVOCksIndex", -3, Errc::out_of_range},
        {"KVO_HWS_getIPbyMCPAddress", -3, Errc::ambiguous},
        {"KVO_HWS_getIPbyDCKAddress", -3, Errc::ambiguous},
        {"KVO_HWS_getIPbyKVOIndex", -3, Errc::ambiguous},
        {"KVO_HWS_setChannelInfo", -3, Errc::invalid_text},
        {"KVO_HWS_setTouchScreenCalibParam", -3, Errc::out_of_range},
        {"KVO_HWS_setUsbLock", -10, Errc::invalid_address},
        {"KVO_HWS_getStationMetrics", -4, Errc::not_available},
        {"KVO_HWS_getStationMetrics", -9, Errc::out_of_range},
        {"KVO_HWS_isMarovantiPanel", -3, Errc::unknown_reply},
    };
    for (const auto &row : rows) {
        if (row.code == code && std::strcmp(row.function, function) == 0) {
            return row.meaning;
        }
    }
    return Errc{};
}

inline Errc general_meaning(std::int32_t code) noexcept
{
    switch (code) {
    case KVO_HWS_NO_SERVICE: return Errc::no_service;
    case KVO_HWS_TOO_SMALL: return Errc::too_small;
    case KVO_HWS_REFUSED: return Errc::refused;
    case KVO_HWS_UNKNOWN_REPLY: return Errc::unknown_reply;
    case KVO_HWS_NOT_ACTIVE: return Errc::not_active;
    case KVO_HWS_NULL_POINTER: return Errc::null_pointer;
    case KVO_HWS_SERVER_FAILED: return Errc::server_failed;
    case KVO_HWS_BUSY: return Errc::busy;
    default: return Errc::failed;
    }
}

}  // namespace detail
/** @endcond */

/** @cond internal */
template <class T>
class Result;
/** @endcond */

/** Why a call failed. */
class Error {
public:
    /** The failure of a function of C.
     *  @param function  its name, which must stay valid: a literal
     *  @param code      its result
     */
    Error(const char *function, std::int32_t code) noexcept
        : function_(function), code_(code), meaning_(detail::special_meaning(function, code))
    {
        if (meaning_ == Errc{}) {
            meaning_ = detail::general_meaning(code);
        }
    }

    /** A failure that the C++ interface itself found.
     *  @param function  the function that was not called, or the member of this interface: a literal
     *  @param code      the number among the result codes that comes nearest
     *  @param meaning   the meaning
     *  @param reason    what was wrong and what would be right: a literal
     */
    Error(const char *function, std::int32_t code, Errc meaning, const char *reason) noexcept
        : function_(function), reason_(reason), code_(code), meaning_(meaning)
    {
    }

    /** The result code (result.h), less than 1. Its meaning depends on the function. */
    [[nodiscard]] std::int32_t code() const noexcept { return code_; }
    /** The name of the function of C, such as "KVO_HWS_getUsbLock", or of the member of this interface that failed. */
    [[nodiscard]] const char *function() const noexcept { return function_; }
    /** The meaning, the same for every function. */
    [[nodiscard]] Errc meaning() const noexcept { return meaning_; }
    /** The reason in English, without a line end, as result.h has it. The texts may change with every version. */
    [[nodiscard]] const char *reason() const noexcept
    {
        return reason_ != nullptr ? reason_ : kvo_hws_result_text(function_, code_);
    }
    /** The reason, the function and the code, for a log or a user. */
    [[nodiscard]] std::string message() const
    {
        return std::string(reason()) + " (" + function_ + ": " + std::to_string(code_) + ")";
    }

private:
    template <class T>
    friend class Result;

    /* No error. Cheaper to compile than an optional. */
    Error() noexcept = default;
    [[nodiscard]] bool is_error() const noexcept { return function_ != nullptr; }

    const char *function_ = nullptr;
    const char *reason_ = nullptr;
    std::int32_t code_ = 0;
    Errc meaning_{};
};

/** What Result::value() throws. */
class Exception : public std::exception {
public:
    /** An exception that carries @p error. */
    explicit Exception(const Error &error) : error_(error), message_(error.message()) {}
    /** The error. */
    [[nodiscard]] const Error &error() const noexcept { return error_; }
    /** Error::message(). */
    [[nodiscard]] const char *what() const noexcept override { return message_.c_str(); }

private:
    Error error_;
    std::string message_;
};

/** @cond internal */
namespace detail {

[[noreturn]] KVO_HWS_EXCEPTIONS_TAG inline void fail(const Error &error)
{
#if KVO_HWS_EXCEPTIONS
    throw Exception(error);
#else
    std::fprintf(stderr, "kvo_hws: %s (%s: %d)\n", error.reason(), error.function(), error.code());
    std::abort();
#endif
}

}  // namespace detail
/** @endcond */

/** A value, or the Error that prevented it. */
template <class T>
class [[nodiscard]] Result {
public:
    /** The type of the value. */
    using value_type = T;

    /** A value. */
    Result(T value) : value_(std::move(value)) {}  // NOLINT(*-explicit-*): functions return a value or an error
    /** An error. */
    Result(const Error &error) noexcept : error_(error) {}  // NOLINT(*-explicit-*)

    /** True if there is a value. */
    [[nodiscard]] bool has_value() const noexcept { return value_.has_value(); }
    /** True if there is a value. It says nothing about the value: a `Result<bool>` with the value false is true here. */
    explicit operator bool() const noexcept { return value_.has_value(); }

    /** The value. With an error, throws kvo::Exception. In a unit without exceptions, writes the error to standard error and
     *  ends the process with abort().
     */
    KVO_HWS_EXCEPTIONS_TAG T &value() &
    {
        require();
        return *value_;
    }
    /** @copydoc value() */
    KVO_HWS_EXCEPTIONS_TAG const T &value() const &
    {
        require();
        return *value_;
    }
    /** @copydoc value()
     *
     *  Of a temporary result, the value itself: `for (auto &station : kvo::Service::description_list().value())` is safe.
     */
    KVO_HWS_EXCEPTIONS_TAG T value() &&
    {
        require();
        return std::move(*value_);
    }
    /** The value, or @p other if there is an error. */
    template <class Other>
    [[nodiscard]] T value_or(Other &&other) const &
    {
        return value_ ? *value_ : static_cast<T>(std::forward<Other>(other));
    }
    /** The value, or @p other if there is an error. */
    template <class Other>
    [[nodiscard]] T value_or(Other &&other) &&
    {
        return value_ ? std::move(*value_) : static_cast<T>(std::forward<Other>(other));
    }

    /** The value. Only if there is one. */
    T &operator*() &noexcept { return *value_; }
    /** The value. Only if there is one. */
    const T &operator*() const &noexcept { return *value_; }
    /** The value. Only if there is one. */
    T operator*() && { return std::move(*value_); }
    /** A member of the value. Only if there is one. */
    T *operator->() noexcept { return &*value_; }
    /** A member of the value. Only if there is one. */
    const T *operator->() const noexcept { return &*value_; }

    /** The error. Only if the call failed. */
    [[nodiscard]] const Error &error() const noexcept { return error_; }

private:
    KVO_HWS_EXCEPTIONS_TAG void require() const
    {
        if (!value_) {
            detail::fail(error_);
        }
    }

    std::optional<T> value_;
    Error error_;
};

/** Done, or the Error that prevented it. */
template <>
class [[nodiscard]] Result<void> {
public:
    /** The type of the value. */
    using value_type = void;

    /** Done. */
    Result() noexcept = default;
    /** An error. */
    Result(const Error &error) noexcept : error_(error) {}  // NOLINT(*-explicit-*)

    /** True if it was done. */
    [[nodiscard]] bool has_value() const noexcept { return !error_.is_error(); }
    /** True if it was done. */
    explicit operator bool() const noexcept { return !error_.is_error(); }
    /** Nothing. With an error, throws kvo::Exception, or ends the process as Result::value() does. */
    KVO_HWS_EXCEPTIONS_TAG void value() const
    {
        if (error_.is_error()) {
            detail::fail(error_);
        }
    }
    /** The error. Only if it was not done. */
    [[nodiscard]] const Error &error() const noexcept { return error_; }

private:
    Error error_;
};

/** @} */

}  // namespace kvo

#endif
