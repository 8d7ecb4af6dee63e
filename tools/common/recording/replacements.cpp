#include "common/recording/replacements.h"

#include <algorithm>
#include <array>

namespace tools::recording {

namespace {

constexpr std::array<uint32_t, 3> kDocumentationNetworks{0xC0000200, 0xC6336400, 0xCB007100};
constexpr uint32_t kHostsPerNetwork = 254;  // 1 to 254
constexpr uint32_t kFallbackNetwork = 0x0A000000;

uint32_t reversed(uint32_t address) noexcept
{
    return address << 24U | (address & 0xFF00U) << 8U | (address >> 8U & 0xFF00U) | address >> 24U;
}

/// Whether the address belongs to a network that plants use. Of an address and its reverse, such a one is the normal order.
bool isPrivate(uint32_t address) noexcept
{
    return address >> 24U == 10 || address >> 20U == 0xAC1 || address >> 16U == 0xC0A8;
}

bool isDigit(char character) noexcept { return character >= '0' && character <= '9'; }

bool hasMeaning(uint32_t address) noexcept { return address == 0 || address == 0x7F000001 || address == 0xFFFFFFFF; }

}  // namespace

bool isWordCharacter(char character) noexcept
{
    return isDigit(character) || (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z') ||
           character == '_' || static_cast<unsigned char>(character) >= 0x80;
}

uint32_t AddressReplacements::next()
{
    constexpr uint32_t kDocumentationHosts = kHostsPerNetwork * kDocumentationNetworks.size();
    for (;;) {
        const uint32_t index = used_++;
        const uint32_t address = index < kDocumentationHosts
                                     ? kDocumentationNetworks.at(index / kHostsPerNetwork) + index % kHostsPerNetwork + 1
                                     : kFallbackNetwork + index - kDocumentationHosts + 1;
        // With a last byte of 10, the reversed address would belong to a network of plants, and could be another's replacement.
        const uint32_t last = address & 0xFFU;
        if (last != 0 && last != 10 && last != 255) {
            return address;
        }
    }
}

uint32_t AddressReplacements::of(uint32_t address)
{
    const uint32_t other = reversed(address);
    if (hasMeaning(address) || hasMeaning(other)) {
        return address;
    }
    const auto known = replacements_.find(address);
    if (known != replacements_.end()) {
        return known->second;
    }
    const uint32_t replacement = next();
    ++count_;
    const bool isReversed = isPrivate(other) && !isPrivate(address);
    replacements_.emplace(isReversed ? other : address, replacement);
    replacements_.emplace(isReversed ? address : other, reversed(replacement));
    return replacements_.at(address);
}

bool AddressReplacements::isProbable(uint32_t number) const
{
    return replacements_.contains(number) || isPrivate(number) || isPrivate(reversed(number));
}

std::string TextReplacements::of(std::string_view text, std::string_view prefix)
{
    if (text.empty()) {
        return {};
    }
    if (prefix == kNamePrefix && !std::ranges::all_of(text, isDigit)) {
        names_.emplace(text);
        lengths_.insert(text.size());
    }
    const auto known = replacements_.find(text);
    if (known != replacements_.end()) {
        return known->second;
    }
    const std::string number = std::to_string(replacements_.size() + 1);
    const std::size_t room = std::max(text.size(), number.size() + 1) - number.size();
    std::string replacement = std::string(prefix.substr(0, room)) + number;
    replacement.resize(std::max(replacement.size(), text.size()), 'x');
    return replacements_.emplace(text, std::move(replacement)).first->second;
}

std::string_view TextReplacements::nameAtFront(std::string_view text) const
{
    for (const std::size_t length : lengths_) {
        const bool endsWord = length == text.size() || (length < text.size() && !isWordCharacter(text[length]));
        if (endsWord && names_.contains(text.substr(0, length))) {
            return text.substr(0, length);
        }
    }
    return {};
}

}  // namespace tools::recording
