/** @file
 *  The IPv4 address of a station.
 */
#ifndef KVO_HWS_ADDRESS_HPP
#define KVO_HWS_ADDRESS_HPP

#include <kvo_hws/result.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

namespace kvo {

/** @defgroup kvo_cpp_address Addresses in C++
 *  @{
 */

/** An IPv4 address: reads and prints dotted quads. Unordered containers accept it as a key. */
class Address {
public:
    /** 0.0.0.0. */
    constexpr Address() noexcept = default;
    /** The address with this number, as the functions of C have it: 0x0A000005 is 10.0.0.5. */
    constexpr explicit Address(std::uint32_t number) noexcept : number_(number) {}
    /** The address in @p text. If it is not a dotted quad, throws or ends the process as Result::value() does; read the texts of
     *  users with parse().
     */
    KVO_HWS_EXCEPTIONS_TAG explicit Address(std::string_view text) : Address(parse(text).value()) {}
    /** @copydoc Address(std::string_view) */
    KVO_HWS_EXCEPTIONS_TAG explicit Address(const char *text) : Address(std::string_view(text)) {}

    /** Reads four decimal numbers, 0 to 255, with dots between them, and nothing else.
     *  @return the address; Errc::invalid_address
     */
    static Result<Address> parse(std::string_view text) noexcept
    {
        std::uint32_t number = 0;
        std::size_t at = 0;
        for (int part = 0; part < 4; ++part) {
            if (part > 0 && (at >= text.size() || text[at++] != '.')) {
                return not_an_address();
            }
            std::uint32_t value = 0;
            const std::size_t start = at;
            for (; at < text.size() && text[at] >= '0' && text[at] <= '9' && at < start + 4; ++at) {
                value = value * 10 + static_cast<std::uint32_t>(text[at] - '0');
            }
            // Some readers take a number with a leading zero for an octal one.
            if (at == start || value > 255 || (text[start] == '0' && at > start + 1)) {
                return not_an_address();
            }
            number = number << 8U | value;
        }
        if (at != text.size()) {
            return not_an_address();
        }
        return Address(number);
    }

    /** The address as a number: 0x0A000005 for 10.0.0.5. */
    [[nodiscard]] constexpr std::uint32_t number() const noexcept { return number_; }
    /** The dotted quad, such as "10.0.0.5". */
    [[nodiscard]] std::string to_string() const
    {
        std::string text;
        for (unsigned shift = 32; shift > 0; shift -= 8) {
            text += std::to_string(number_ >> (shift - 8) & 0xFFU);
            text += shift > 8 ? "." : "";
        }
        return text;
    }

    /** True if both are the same address. */
    friend constexpr bool operator==(Address a, Address b) noexcept { return a.number_ == b.number_; }
    /** True if they differ. */
    friend constexpr bool operator!=(Address a, Address b) noexcept { return a.number_ != b.number_; }
    /** The order of the numbers. */
    friend constexpr bool operator<(Address a, Address b) noexcept { return a.number_ < b.number_; }
    /** Prints the dotted quad. */
    template <class Traits>
    friend std::basic_ostream<char, Traits> &operator<<(std::basic_ostream<char, Traits> &stream, Address address)
    {
        return stream << address.to_string();
    }

private:
    static Error not_an_address() noexcept
    {
        return {"kvo::Address::parse", KVO_HWS_INVALID_HOST, Errc::invalid_address,
                "not an IPv4 address: write four numbers from 0 to 255, such as 10.0.0.5"};
    }

    std::uint32_t number_ = 0;
};

/** @} */

}  // namespace kvo

/** @cond internal */
template <>
struct std::hash<kvo::Address> {
    std::size_t operator()(kvo::Address address) const noexcept { return std::hash<std::uint32_t>()(address.number()); }
};
/** @endcond */

#endif
