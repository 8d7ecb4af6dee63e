#include "requests/key_values.h"

#include "runtime/numbers.h"

#include <string_view>

namespace kvo_hws {

namespace {

bool isBlank(char character) noexcept { return character == ' ' || character == '\t'; }

/// An item may end at the end of the text, at a blank, or at a line end, which a reply may contain.
bool endsItem(char character) noexcept
{
    return character == '\0' || isBlank(character) || character == '\r' || character == '\n';
}

/// Stops at the first difference, so it does not read past the end of the text.
bool startsWith(const char *text, std::string_view beginning) noexcept
{
    for (const char character : beginning) {
        if (*text++ != character) {
            return false;
        }
    }
    return true;
}

/// The start of the next item, or the end of the text. A line end is not a separator.
const char *nextItem(const char *at) noexcept
{
    while (*at != '\0' && !isBlank(*at)) {
        ++at;
    }
    while (isBlank(*at)) {
        ++at;
    }
    return at;
}

}  // namespace

int FindReplyValue(const char *text, const char *key, int32_t *value) noexcept
{
    *value = 0;
    const std::string_view wanted = key;
    // Compares only at the start of an item: "touch=" must not match in "multitouch=".
    for (const char *at = text; *at != '\0'; at = nextItem(at)) {
        if (!startsWith(at, wanted)) {
            continue;
        }
        const char *const number = at + wanted.size();
        const auto [read, end] = readSigned(number);
        *value = static_cast<int32_t>(read);
        return end != number && endsItem(*end) ? kFound : kMalformed;
    }
    return kAbsent;
}

int ParseInputDeviceReply(const char *text, uint32_t *mask, uint32_t *kbd, uint32_t *mouse, uint32_t *touch,
                          uint32_t *multitouch, uint32_t *maxcontacts, uint32_t *vkbd) noexcept
{
    struct Device {
        const char *key;
        uint32_t *output;
    };
    const Device devices[] = {
        {"kbd=", kbd},  {"mouse=", mouse}, {"touch=", touch}, {"multitouch=", multitouch}, {"maxcontacts=", maxcontacts},
        {"vkbd=", vkbd}};
    uint32_t found = 0;
    uint32_t bit = 1;
    for (const Device &device : devices) {
        int32_t value = 0;
        const int result = FindReplyValue(text, device.key, &value);
        if (result == kMalformed) {
            return kMalformed;
        }
        if (result == kFound) {
            found |= bit;
            if (device.output != nullptr) {
                *device.output = static_cast<uint32_t>(value);
            }
        }
        bit <<= 1;
    }
    if (mask != nullptr) {
        *mask = found;
    }
    return found != 0 ? kFound : kAbsent;
}

}  // namespace kvo_hws
