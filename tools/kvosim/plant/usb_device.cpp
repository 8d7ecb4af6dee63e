// The table of a device's fields; checks and stores their values, and writes event texts with the library's functions.
#include "kvosim/plant/usb_device.h"

#include "common/dotted_address.h"
#include "common/plant_values.h"
#include "kvosim/base/arguments.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>

namespace kvosim {

namespace {

constexpr uint8_t kReportBit = 0x01;

template <auto Member>
std::span<char> memberOf(UsbDevice &device)
{
    return device.source.*Member;
}

template <auto Member>
uint32_t numberOf(const UsbDevice &device)
{
    return device.source.*Member;
}

template <auto Member>
void setNumber(UsbDevice &device, uint32_t value)
{
    device.source.*Member = static_cast<std::remove_reference_t<decltype(device.source.*Member)>>(value);
}

template <auto Member>
constexpr UsbTextKey text(bool required = false)
{
    return {memberOf<Member>, required};
}

template <auto Member>
constexpr UsbNumberKey numberKey(uint32_t highest)
{
    return {highest, numberOf<Member>, setNumber<Member>};
}

uint32_t reports(const UsbDevice &device) { return (device.context.flags & kReportBit) != 0 ? 1 : 0; }

void setReports(UsbDevice &device, uint32_t value) { device.context.flags = value != 0 ? kReportBit : 0; }

constexpr uint32_t kHighestNumber = std::numeric_limits<uint32_t>::max();
constexpr uint32_t kHighest16 = std::numeric_limits<uint16_t>::max();

const UsbKey kUsbKeys[] = {
    {"ident2", text<&UsbDeviceSource::ident2>(true), "First identifying text, not empty (default: usb1, usb2, ...)"},
    {"ident3", text<&UsbDeviceSource::ident3>(true), "Second identifying text, not empty (default: 1-1.1, 1-1.2, ...)"},
    {"text4", text<&UsbDeviceSource::text4>(), "Text of a new or refused device (default: Simulated device)"},
    {"text5", text<&UsbDeviceSource::text5>(), "Text of a new or refused device (default: 1.00)"},
    {"no_text5", numberKey<&UsbDeviceSource::noText5>(1), "Send text 5 as an empty text"},
    {"text6", text<&UsbDeviceSource::text6>(), "Text of a new device (default: kvosim)"},
    {"text7", text<&UsbDeviceSource::text7>(), "Text of a new device (default: Memory stick)"},
    {"text8", text<&UsbDeviceSource::text8>(), "Text of a refused device (default: refused, or USB lock)"},
    {"number1", numberKey<&UsbDeviceSource::number1>(kHighestNumber), "Number of a new or refused device (default: 0)"},
    {"number2", numberKey<&UsbDeviceSource::number2>(kHighestNumber), "Number of a new or refused device (default: 0)"},
    {"number3", numberKey<&UsbDeviceSource::number3>(kHighest16), "Number of a refused device (default: 0)"},
    {"id1", numberKey<&UsbDeviceSource::id1>(kHighest16), "Identifier of a new device (default: 0)"},
    {"id2", numberKey<&UsbDeviceSource::id2>(kHighest16), "Identifier of a new device (default: 0)"},
    {"state", numberKey<&UsbDeviceSource::state>(kHighestNumber), "State of the device (default: 0)"},
    {"bytes", UsbBytesKey{}, "Bytes of a new device: up to 128 hexadecimal digits; the other bytes are zero (default: none)"},
    {"report", UsbNumberKey{1, reports, setReports}, "The new device reports itself if its state is 0"},
};

std::string textOf(std::span<const char> member) { return {member.data(), strnlen(member.data(), member.size())}; }

template <std::size_t Size>
void fill(char (&member)[Size], std::string_view text)
{
    std::memset(member, 0, Size);
    text.copy(member, Size);  // a text that fills the whole member has no terminator
}

// ---- Values ----

std::string assignText(const UsbTextKey &key, UsbDevice &device, const Value &value)
{
    const auto *text = std::get_if<std::string>(&value);
    if (text == nullptr) {
        return "is not a text; write it in quotes";
    }
    const std::span<char> member = key.member(device);
    if (text->empty() && key.required) {
        return "is empty, but receivers need it to read the text of the device's removal; write 1 to " +
               std::to_string(member.size()) + " bytes";
    }
    if (text->size() > member.size()) {
        return "has " + std::to_string(text->size()) + " bytes; write at most " + std::to_string(member.size());
    }
    if (text->find('*') != std::string::npos) {
        return "contains an asterisk, which ends a field of the event text; remove it";
    }
    if (text->find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos) {
        return "contains a line end or a zero byte, which ends the event text; remove it";
    }
    std::fill(member.begin(), member.end(), '\0');
    std::copy(text->begin(), text->end(), member.begin());
    return {};
}

std::string assignNumber(const UsbNumberKey &key, UsbDevice &device, const Value &value)
{
    const Value typed = std::holds_alternative<std::string>(value) ? parseTypedNumber(std::get<std::string>(value)) : value;
    const std::string range =
        "; write 0 to " + (key.highest == kHighestNumber ? std::string("0xFFFFFFFF") : std::to_string(key.highest));
    const auto *number = std::get_if<int64_t>(&typed);
    if (number == nullptr) {
        return "is not a whole number" + range;
    }
    if (*number < 0 || *number > int64_t{key.highest}) {
        return std::to_string(*number) + " is out of range" + range;
    }
    key.set(device, static_cast<uint32_t>(*number));
    return {};
}

std::string assignBytes(UsbDevice &device, const Value &value)
{
    constexpr std::size_t kMaxBytes = sizeof device.source.bytes;
    const auto *text = std::get_if<std::string>(&value);
    if (text == nullptr || text->size() % 2 != 0 ||
        !std::all_of(text->begin(), text->end(), [](unsigned char c) { return std::isxdigit(c) != 0; })) {
        return "is not a list of bytes; write two hexadecimal digits for each byte, such as \"0A1B\"";
    }
    if (text->size() > 2 * kMaxBytes) {
        return "has " + std::to_string(text->size() / 2) + " bytes; write at most " + std::to_string(kMaxBytes);
    }
    std::fill(std::begin(device.source.bytes), std::end(device.source.bytes), uint8_t{0});
    for (std::size_t i = 0; i < text->size() / 2; ++i) {
        device.source.bytes[i] = static_cast<uint8_t>(*number(std::string_view(*text).substr(2 * i, 2), 16));
    }
    return {};
}

std::string bytesOf(const UsbDevice &device)
{
    std::string digits;
    for (const unsigned byte : device.source.bytes) {
        std::array<char, 3> two{};
        std::snprintf(two.data(), two.size(), "%02X", byte);
        digits += two.data();
    }
    return digits;
}

std::string connectorWord(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](char c) { return !tools::isConnectorCharacter(c); }, '_');
    return text;
}

/// Copies and frees a text that the library has allocated.
std::string copyAndFree(char *text)
{
    const std::unique_ptr<char, decltype(&std::free)> owned(text, &std::free);
    if (owned == nullptr) {
        throw std::bad_alloc();
    }
    return owned.get();
}

std::string removalText(uint32_t station, const UsbDevice &device)
{
    UsbStationRecord record{};
    record.address = htonl(station);
    ident2Of(device).copy(record.text, sizeof record.text);
    return copyAndFree(ConvertUSBDeviceRemove2Cmd(&record, ident3Of(device).c_str()));
}

}  // namespace

std::span<const UsbKey> usbKeys() { return kUsbKeys; }

const UsbKey *findUsbKey(std::string_view name)
{
    const auto *found =
        std::find_if(std::begin(kUsbKeys), std::end(kUsbKeys), [name](const UsbKey &key) { return key.name == name; });
    return found == std::end(kUsbKeys) ? nullptr : found;
}

Value read(const UsbKey &key, UsbDevice device)
{
    if (const auto *text = std::get_if<UsbTextKey>(&key.kind)) {
        return textOf(text->member(device));
    }
    const auto *number = std::get_if<UsbNumberKey>(&key.kind);
    return number != nullptr ? Value(int64_t{number->get(device)}) : Value(bytesOf(device));
}

std::string assign(const UsbKey &key, UsbDevice &device, const Value &value)
{
    if (const auto *text = std::get_if<UsbTextKey>(&key.kind)) {
        return assignText(*text, device, value);
    }
    const auto *number = std::get_if<UsbNumberKey>(&key.kind);
    return number != nullptr ? assignNumber(*number, device, value) : assignBytes(device, value);
}

UsbDevice newUsbDevice(std::span<const UsbDevice> others)
{
    UsbDevice device;
    fill(device.source.text4, "Simulated device");
    fill(device.source.text5, "1.00");
    fill(device.source.text6, "kvosim");
    fill(device.source.text7, "Memory stick");
    fill(device.source.text8, "refused");
    const auto known = [&others, &device] {
        return std::any_of(others.begin(), others.end(), [&device](const UsbDevice &other) {
            return ident2Of(other) == ident2Of(device) || ident3Of(other) == ident3Of(device);
        });
    };
    uint32_t number = 0;
    do {
        ++number;
        fill(device.source.ident2, "usb" + std::to_string(number));
        fill(device.source.ident3, "1-1." + std::to_string(number));
    } while (known());
    return device;
}

std::string ident2Of(const UsbDevice &device) { return textOf(device.source.ident2); }
std::string ident3Of(const UsbDevice &device) { return textOf(device.source.ident3); }

bool sameIdents(const UsbDevice &one, const UsbDevice &other)
{
    return ident2Of(one) == ident2Of(other) && ident3Of(one) == ident3Of(other);
}

std::string connectorOf(const UsbDevice &device)
{
    return connectorWord(ident3Of(device)) + ':' + connectorWord(ident2Of(device));
}

std::string eventText(UsbEvent event, uint32_t station, const UsbDevice &device)
{
    UsbDevice copy = device;
    fill(copy.source.ipAddress, tools::dotted(station));
    switch (event) {
    case UsbEvent::plugged: return copyAndFree(ConvertUSBDeviceNew2Cmd(&copy.context, &copy.source));
    case UsbEvent::stateChanged: return copyAndFree(ConvertUSBDeviceCS2Cmd(&copy.source));
    case UsbEvent::refused: return copyAndFree(ConvertUSBDeviceIM2Cmd(&copy.source));
    case UsbEvent::removed: break;
    }
    return removalText(station, copy);
}

}  // namespace kvosim
