// Replacements for addresses and texts: the same original always gets the same replacement, different originals get different ones.
#pragma once

#include <cstdint>
#include <map>
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

    [[nodiscard]] std::size_t count() const noexcept { return count_; }

private:
    uint32_t next();

    std::map<uint32_t, uint32_t> replacements_;
    uint32_t used_ = 0;      ///< the addresses that next() has considered
    std::size_t count_ = 0;  ///< the addresses that were replaced
};

/// Replaces texts with texts of the same length, such as "name1xxx". A text that is too short for its number becomes longer.
class TextReplacements {
public:
    /// @p prefix begins the replacement of a new text, and begins with a letter that is not a hexadecimal digit.
    std::string of(std::string_view text, std::string_view prefix);

    [[nodiscard]] std::size_t count() const noexcept { return replacements_.size(); }

private:
    std::map<std::string, std::string, std::less<>> replacements_;
};

}  // namespace tools::recording
