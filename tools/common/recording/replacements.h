// Replacements for addresses and texts: the same original always gets the same replacement, different originals get different ones.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>

namespace tools::recording {

/// Replaces IPv4 addresses with addresses that are reserved for documentation, and with 10.x.x.x when these are used up. 0.0.0.0,
/// 127.0.0.1 and 255.255.255.255 stay.
class AddressReplacements {
public:
    /// The replacement of an address, which is a number such as 0x0A000005 for 10.0.0.5. Agents store addresses with their bytes in
    /// reverse order, so the replacement of a reversed address is the reversed replacement.
    uint32_t of(uint32_t address);
    /// Whether a number is probably an address: it was replaced before, or belongs to a network that plants use, in either order.
    [[nodiscard]] bool isProbable(uint32_t number) const;

    [[nodiscard]] std::size_t count() const noexcept { return count_; }

private:
    uint32_t next();

    std::map<uint32_t, uint32_t> replacements_;
    uint32_t used_ = 0;      ///< the addresses that next() has considered
    std::size_t count_ = 0;  ///< the addresses that were replaced
};

/// Whether a character is a part of a word: a letter, a digit, "_", or a part of a UTF-8 character.
bool isWordCharacter(char character) noexcept;

/// Replaces texts with texts of the same length, such as "name1xxx". A text that is too short for its number becomes longer.
class TextReplacements {
public:
    /// @p prefix begins the replacement of a new text, and begins with a letter that is not a hexadecimal digit.
    std::string of(std::string_view text, std::string_view prefix);
    /// The longest name at the front of @p text that ends with a word, empty if there is none. Names are texts that were replaced with
    /// kNamePrefix. Numbers do not count.
    [[nodiscard]] std::string_view nameAtFront(std::string_view text) const;

    [[nodiscard]] std::size_t count() const noexcept { return replacements_.size(); }

private:
    std::map<std::string, std::string, std::less<>> replacements_;
    std::set<std::string, std::less<>> names_;
    std::set<std::size_t, std::greater<>> lengths_;  // of the names
};

inline constexpr std::string_view kNamePrefix = "name";

}  // namespace tools::recording
