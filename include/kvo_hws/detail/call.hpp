/** @file
 *  Internal: how the methods of the C++ interface call the functions of C. One function for each shape of result.
 */
#ifndef KVO_HWS_DETAIL_CALL_HPP
#define KVO_HWS_DETAIL_CALL_HPP

#include <kvo_hws/address.hpp>
#include <kvo_hws/detail/late.hpp>
#include <kvo_hws/requests.h>
#include <kvo_hws/result.hpp>
#include <kvo_hws/runtime.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/** @cond internal */

/* The name of a function, and the function. */
#define KVO_HWS_CALL(function) #function, function

namespace kvo::detail {

template <class Use, class Function, class... Argument>
Result<void> done(const char *name, Function *function, Argument... arguments)
{
    const std::int32_t code = function(arguments...);
    if (code == KVO_HWS_OK) {
        return {};
    }
    return Error(name, code);
}

/* 1 yes, 0 no, or an error. */
template <class Use, class Function, class... Argument>
Late<Use, Result<bool>> yes(const char *name, Function *function, Argument... arguments)
{
    const std::int32_t code = function(arguments...);
    if (code == KVO_HWS_OK || code == KVO_HWS_NO) {
        return code == KVO_HWS_OK;
    }
    return Error(name, code);
}

// ---- Outputs ----

/* The value that the function stored, or an error. */
template <class Use, class Value>
Result<Value> stored(const char *name, std::int32_t code, Value value)
{
    if (code == KVO_HWS_OK) {
        return value;
    }
    return Error(name, code);
}

/* The same, where 0 means that the value does not exist. */
template <class Use, class Value>
Result<std::optional<Value>> stored_or_none(const char *name, std::int32_t code, Value value)
{
    if (code == KVO_HWS_OK) {
        return std::optional<Value>(std::move(value));
    }
    if (code == KVO_HWS_NO) {
        return std::optional<Value>();
    }
    return Error(name, code);
}

/* The number that a function stores for a station. */
template <class Use, class Value, class Number>
Result<Value> number_as(const char *name, std::int32_t (*function)(std::uint32_t, Number *), std::uint32_t station)
{
    Number value{};
    const std::int32_t code = function(station, &value);
    return stored<Use>(name, code, static_cast<Value>(value));
}

template <class Use>
Late<Use, Result<std::uint32_t>> number(const char *name, std::int32_t (*function)(std::uint32_t, std::uint32_t *),
                                        std::uint32_t station)
{
    return number_as<Use, std::uint32_t>(name, function, station);
}

/* A number that the function of C stores only if the reply contains it. */
struct Count {
    static constexpr std::uint32_t kAbsent = 0xFFFFFFFF;
    [[nodiscard]] std::optional<std::uint32_t> get() const
    {
        return value == kAbsent ? std::nullopt : std::optional<std::uint32_t>(value);
    }
    std::uint32_t value = kAbsent;
};

// ---- Lists and texts of any size ----

constexpr std::uint32_t kSmallestCapacity = 64;
constexpr std::uint32_t kLargestList = 1000000;
constexpr std::uint32_t kFirstTextSize = 4096;
constexpr int kAttempts = 8;

enum class List : std::uint8_t { stations, stations_ex, previous, current, clients, count };

/* The last size asked of each list, so that the next call fits at once. One array for each shared object. */
inline __attribute__((visibility("hidden"))) std::uint32_t asked_sizes[static_cast<std::size_t>(List::count)] = {};

inline Error too_large(const char *name) noexcept
{
    return {name, KVO_HWS_TOO_SMALL, Errc::too_small,
            "the service reports more than 1000000 elements or bytes; only the function of C reads that many"};
}

inline Error keeps_growing(const char *name) noexcept
{
    return {name, KVO_HWS_TOO_SMALL, Errc::too_small, "the list or text was larger at each of 8 attempts; try again"};
}

/* The elements of a list as values; empty if the function returns 0. The array is cleared before each call. */
template <class Use, class Value, class Record, class Call>
Result<std::optional<std::vector<Value>>> list_or_none(const char *name, List which, Value (*value_of)(const Record &),
                                                       Call call)
{
    std::uint32_t &asked = asked_sizes[static_cast<std::size_t>(which)];
    std::uint32_t capacity = __atomic_load_n(&asked, __ATOMIC_RELAXED);
    capacity = capacity < kSmallestCapacity ? kSmallestCapacity : capacity;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        std::vector<Record> records(capacity);
        std::uint32_t count = capacity;
        const std::int32_t code = call(records.data(), &count);
        if (code != KVO_HWS_TOO_SMALL) {
            std::vector<Value> values;
            if (code == KVO_HWS_OK) {
                __atomic_store_n(&asked, capacity, __ATOMIC_RELAXED);
                values.reserve(count);
                for (std::uint32_t i = 0; i < count; ++i) {
                    values.push_back(value_of(records[i]));
                }
            }
            return stored_or_none<Use>(name, code, std::move(values));
        }
        if (count > kLargestList) {
            return too_large(name);
        }
        capacity = count > capacity ? count : capacity;
    }
    return keeps_growing(name);
}

/* The elements of a list, from a function that does not return 0. */
template <class Use, class Value, class Record, class Call>
Result<std::vector<Value>> list(const char *name, List which, Value (*value_of)(const Record &), Call call)
{
    auto read = list_or_none<Use>(name, which, value_of, call);
    if (!read) {
        return read.error();
    }
    return read->has_value() ? std::move(**read) : std::vector<Value>();
}

/* A text of any size, from a function that stores the required size when it does not fit. Empty if the function returns 0. */
template <class Use, class Call>
Late<Use, Result<std::optional<std::string>>> text(const char *name, Call call)
{
    std::uint32_t capacity = kFirstTextSize;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        std::string read(capacity, '\0');  // a function may store the text without a terminator
        std::uint32_t size = capacity;
        const std::int32_t code = call(read.data(), &size);
        if (code != KVO_HWS_TOO_SMALL) {
            read.resize(std::strlen(read.c_str()));
            read.shrink_to_fit();
            return stored_or_none<Use>(name, code, std::move(read));
        }
        if (size >= kLargestList) {
            return too_large(name);
        }
        capacity = size + 1;
    }
    return keeps_growing(name);
}

/* The same, where 0 means an empty text. */
template <class Use, class Call>
Late<Use, Result<std::string>> text_or_empty(const char *name, Call call)
{
    auto read = text<Use>(name, call);
    if (!read) {
        return read.error();
    }
    return read->value_or(std::string());
}

/* A request whose reply is a text. The functions of C for these requests cannot bound their output or report its size, so the
 * exchange happens here: the same request, the same results and the same messages. */
struct TextRequest {
    const char *name;    /* the function of C */
    const char *command; /* before the station */
    const char *key;     /* the beginning of the reply, which is not part of the text */
    /* The messages. */
    const char *unsent;
    const char *refused; /* null: "failed" is a text */
    const char *unknown;
};

template <class Use>
Late<Use, Result<std::string>> read_text(const TextRequest &request, const std::string &command)
{
    struct Reply : DynBuffer {
        Reply() noexcept : DynBuffer{nullptr, 0} {}
        Reply(const Reply &) = delete;
        Reply &operator=(const Reply &) = delete;
        ~Reply() { std::free(pcData); }
    } reply;
    const std::int32_t code = SendCommand2ServiceDyn(command.c_str(), &reply);
    if (code != KVO_HWS_OK || reply.pcData == nullptr) {
        SendDLLDebugMessage(request.unsent);
        return Error(request.name, code != KVO_HWS_OK ? code : KVO_HWS_FAILED);
    }
    const std::string_view line = reply.pcData;
    const std::string_view key = request.key;
    const bool refused = request.refused != nullptr && line == "failed";
    if (!refused && line.substr(0, key.size()) == key) {
        return std::string(line.substr(key.size()));
    }
    SendDLLDebugMessage(refused ? request.refused : request.unknown);
    return Error(request.name, KVO_HWS_FAILED);
}

/* The same for a request about a station. */
template <class Use>
Late<Use, Result<std::string>> read_text(const TextRequest &request, Address station)
{
    std::string command = request.command;
    for (unsigned shift = 32; shift > 0; shift -= 4) {
        command += "0123456789ABCDEF"[station.number() >> (shift - 4) & 0xFU];
    }
    return read_text<Use>(request, command);
}

// ---- Texts that the program passes ----

constexpr std::size_t kLongestLine = 1023;

/* Where a text stands in its request: between quotation marks, or at the end of the line. */
enum class Place : std::uint8_t { quoted, last };

/* Why a text would not arrive as given; null if it would. */
inline const char *fault_of(std::string_view text, Place place) noexcept
{
    if (text.find('\0') != std::string_view::npos) {
        return "the text contains a NUL byte, which would end it; remove this byte";
    }
    if (text.find('\n') != std::string_view::npos) {
        return "the text contains a line feed, which would end the request; use one line";
    }
    if (place == Place::quoted && text.find('"') != std::string_view::npos) {
        return "the text contains a quotation mark, which would end it in the request; use another character";
    }
    if (place == Place::last && !text.empty() && text.back() == '\r') {
        return "the text ends with a carriage return, which belongs to the line end; remove it";
    }
    return nullptr;
}

/* A text in a request. */
struct Text {
    std::string_view text;
    Place place;
};

/* Why texts would not arrive as given.
 * line: the length of the request with all of them */
inline const char *fault_of(std::size_t line, std::initializer_list<Text> texts) noexcept
{
    for (const Text &part : texts) {
        if (const char *fault = fault_of(part.text, part.place)) {
            return fault;
        }
    }
    return line > kLongestLine ? "the text is too long: the line of the request may have 1023 bytes" : nullptr;
}

inline Error invalid_text(const char *name, const char *fault) noexcept
{
    return {name, KVO_HWS_OUT_OF_RANGE, Errc::invalid_text, fault};
}

/* The number of decimal digits. */
constexpr std::size_t digits(std::uint32_t value) noexcept
{
    std::size_t count = 1;
    for (; value >= 10; value /= 10) {
        ++count;
    }
    return count;
}

constexpr std::size_t kStationDigits = 8;
constexpr std::uint32_t kPanelLayout = 1; /* the metric that is a text */

}  // namespace kvo::detail

/** @endcond */

#endif
