// The fields of a USB device, their allowed values, and the event texts made from them.
#include "kvosim/plant/usb_device.h"

#include "tools/kvosim/support/named_row.h"

#include <gmock/gmock.h>

#include <set>
#include <vector>

namespace {

using kvosim::assign;
using kvosim::findUsbKey;
using kvosim::UsbDevice;
using kvosim::UsbEvent;
using kvosim::Value;
using testing::HasSubstr;

constexpr uint32_t kStation = 0x0A000005;

UsbDevice deviceWith(const std::vector<std::pair<std::string, Value>> &fields)
{
    UsbDevice device = kvosim::newUsbDevice({});
    for (const auto &[name, value] : fields) {
        EXPECT_EQ(assign(*findUsbKey(name), device, value), "") << name;
    }
    return device;
}

std::string zeros(std::size_t count)
{
    std::string bytes;
    for (std::size_t i = 0; i < count; ++i) {
        bytes += "00 ";
    }
    return bytes;
}

const std::string kEmpty = "?$?\xA7?eEmMpPtTyY!\xA7!$!";

// ---- Defaults ----

TEST(NewUsbDevice, has_defaults)
{
    EXPECT_EQ(
        eventText(UsbEvent::plugged, kStation, kvosim::newUsbDevice({})),
        "newUSBdevice*10.0.0.5*usb1*1-1.1*Simulated device*1.00*kvosim*Memory stick*00000000*00000000*00000000*0000*0000*" +
            zeros(64) + "*");
}

TEST(NewUsbDevice, gets_idents_that_no_other_device_has)
{
    std::vector<UsbDevice> devices;
    for (int i = 0; i < 3; ++i) {
        devices.push_back(kvosim::newUsbDevice(devices));
    }
    EXPECT_EQ(ident2Of(devices[2]), "usb3");
    EXPECT_EQ(ident3Of(devices[2]), "1-1.3");
    devices.erase(devices.begin());
    EXPECT_EQ(ident2Of(kvosim::newUsbDevice(devices)), "usb1");
    // A number is free if neither ident contains it.
    devices = {deviceWith({{"ident2", "other"}})};
    EXPECT_EQ(ident2Of(kvosim::newUsbDevice(devices)), "usb2");
    devices = {deviceWith({{"ident3", "other"}})};
    EXPECT_EQ(ident3Of(kvosim::newUsbDevice(devices)), "1-1.2");
}

// ---- Every field in the text of its event ----

struct Row : kvosim_test::NamedRow {
    std::string key;
    Value value;
    UsbEvent event;
    std::string text;  ///< the part of the event text from the address to the last field
};

class UsbField : public testing::TestWithParam<Row> {};

TEST_P(UsbField, appears_in_the_event_text)
{
    const UsbDevice device = deviceWith({{GetParam().key, GetParam().value}});
    EXPECT_THAT(eventText(GetParam().event, kStation, device), HasSubstr("*10.0.0.5*" + GetParam().text));
}

const std::string kNewTexts = "usb1*1-1.1*Simulated device*1.00*kvosim*Memory stick*";
const std::string kRefusedTexts = "usb1*1-1.1*Simulated device*1.00*";

const std::vector<Row> kFields = {
    {"ident2", "ident2", "stick", UsbEvent::plugged, "stick*1-1.1*Simulated"},
    {"ident2_whole", "ident2", std::string(32, 'i'), UsbEvent::removed, std::string(32, 'i') + "*1-1.1*"},
    {"ident3", "ident3", "3-2", UsbEvent::plugged, "usb1*3-2*Simulated"},
    {"ident3_whole", "ident3", std::string(32, 'j'), UsbEvent::removed, "usb1*" + std::string(32, 'j') + "*"},
    {"text4_whole", "text4", std::string(21, 't'), UsbEvent::plugged, "usb1*1-1.1*" + std::string(21, 't') + "*1.00*"},
    {"text4_empty", "text4", "", UsbEvent::plugged, "usb1*1-1.1*" + kEmpty + "*1.00*"},
    {"text5_whole", "text5", "0123456789", UsbEvent::refused, "usb1*1-1.1*Simulated device*0123456789*"},
    {"no_text5", "no_text5", 1, UsbEvent::plugged, "usb1*1-1.1*Simulated device*" + kEmpty + "*"},
    {"text6_whole", "text6", std::string(40, 'x'), UsbEvent::plugged, kRefusedTexts + std::string(40, 'x') + "*Memory stick*"},
    {"text7_whole", "text7", std::string(40, 'y'), UsbEvent::plugged, kRefusedTexts + "kvosim*" + std::string(40, 'y') + "*"},
    {"text8_whole", "text8", std::string(80, 'z'), UsbEvent::refused, kRefusedTexts + std::string(80, 'z') + "*0"},
    {"utf8", "text4", "Fräse", UsbEvent::plugged, "usb1*1-1.1*Fräse*"},
    {"number1", "number1", int64_t{0xFFFFFFFF}, UsbEvent::plugged, kNewTexts + "FFFFFFFF*00000000*"},
    {"number2", "number2", "0x1F", UsbEvent::plugged, kNewTexts + "00000000*0000001F*"},
    {"number3", "number3", "65535", UsbEvent::refused, kRefusedTexts + "refused*00000000*00000000*FFFF*"},
    {"id1", "id1", 0xAB, UsbEvent::plugged, kNewTexts + "00000000*00000000*00000000*00AB*0000*"},
    {"id2", "id2", 0xFFFF, UsbEvent::plugged, kNewTexts + "00000000*00000000*00000000*0000*FFFF*"},
    {"state", "state", 7, UsbEvent::stateChanged, "usb1*1-1.1*00000007*"},
    {"report", "report", 1, UsbEvent::plugged, kNewTexts + "00000000*00000000*08000000*"},
    {"bytes", "bytes", "0a1B", UsbEvent::plugged, kNewTexts + "00000000*00000000*00000000*0000*0000*0A 1B " + zeros(62) + "*"},
    {"bytes_all", "bytes", std::string(128, 'F'), UsbEvent::plugged, kNewTexts + "00000000*00000000*00000000*0000*0000*FF FF"}};

INSTANTIATE_TEST_SUITE_P(Table, UsbField, testing::ValuesIn(kFields), kvosim_test::kNameOfRow);

TEST(UsbField, report_applies_to_devices_in_state_0)
{
    EXPECT_THAT(eventText(UsbEvent::plugged, kStation, deviceWith({{"report", 1}, {"state", 1}})),
                HasSubstr(kNewTexts + "00000000*00000000*00000000*"));
}

TEST(UsbField, can_be_read_back)
{
    std::set<std::string> names;
    for (const kvosim::UsbKey &key : kvosim::usbKeys()) {
        UsbDevice device = kvosim::newUsbDevice({});
        const bool isNumber = std::holds_alternative<kvosim::UsbNumberKey>(key.kind);
        const Value value = isNumber                                                ? Value(int64_t{1})
                            : std::holds_alternative<kvosim::UsbBytesKey>(key.kind) ? Value(std::string(128, '7'))
                                                                                    : Value(std::string("a text"));
        EXPECT_EQ(assign(key, device, value), "") << key.name;
        EXPECT_EQ(read(key, device), value) << key.name;
        names.emplace(key.name);
    }
    EXPECT_EQ(names.size(), 16U);
}

TEST(UsbField, is_cleared_before_a_shorter_value_is_stored)
{
    const UsbDevice device = deviceWith(
        {{"text4", "a long text"}, {"text4", "a"}, {"bytes", "0A0B"}, {"bytes", "0C"}, {"report", 1}, {"report", 0}});
    EXPECT_THAT(eventText(UsbEvent::plugged, kStation, device), HasSubstr("*a*1.00*"));
    EXPECT_THAT(eventText(UsbEvent::plugged, kStation, device), HasSubstr("*00000000*0000*0000*0C " + zeros(63) + "*"));
}

// ---- Values that a field refuses ----

struct Refusal : kvosim_test::NamedRow {
    std::string key;
    Value value;
    std::string mistake;
};

class UsbFieldRefuses : public testing::TestWithParam<Refusal> {};

TEST_P(UsbFieldRefuses, an_invalid_value_and_names_valid_ones)
{
    UsbDevice device = kvosim::newUsbDevice({});
    const kvosim::UsbKey &key = *findUsbKey(GetParam().key);
    const Value before = read(key, device);
    EXPECT_THAT(assign(key, device, GetParam().value), HasSubstr(GetParam().mistake));
    EXPECT_EQ(read(key, device), before);
}

const std::vector<Refusal> kRefusals = {
    {"ident2_empty", "ident2", "", "is empty, but receivers need it to read the text of the device's removal; write 1 to 32"},
    {"ident3_empty", "ident3", "", "write 1 to 32 bytes"},
    {"ident2_long", "ident2", std::string(33, 'x'), "has 33 bytes; write at most 32"},
    {"ident3_long", "ident3", std::string(33, 'x'), "has 33 bytes; write at most 32"},
    {"text4_long", "text4", std::string(22, 'x'), "has 22 bytes; write at most 21"},
    {"text4_long_utf8", "text4", "äääääääääää", "has 22 bytes; write at most 21"},
    {"text5_long", "text5", std::string(11, 'x'), "has 11 bytes; write at most 10"},
    {"text6_long", "text6", std::string(41, 'x'), "has 41 bytes; write at most 40"},
    {"text7_long", "text7", std::string(41, 'x'), "has 41 bytes; write at most 40"},
    {"text8_long", "text8", std::string(81, 'x'), "has 81 bytes; write at most 80"},
    {"asterisk", "text4", "a*b", "contains an asterisk, which ends a field of the event text; remove it"},
    {"line_feed", "text6", "a\nb", "contains a line end or a zero byte, which ends the event text; remove it"},
    {"carriage_return", "ident2", "a\r", "contains a line end"},
    {"zero", "text7", std::string("a\0b", 3), "a zero byte"},
    {"text_is_number", "text4", 1, "is not a text; write it in quotes"},
    {"number1_large", "number1", int64_t{0x100000000}, "4294967296 is out of range; write 0 to 0xFFFFFFFF"},
    {"number2_negative", "number2", "-1", "-1 is out of range; write 0 to 0xFFFFFFFF"},
    {"state_word", "state", "open", "is not a whole number; write 0 to 0xFFFFFFFF"},
    {"id1_large", "id1", 65536, "65536 is out of range; write 0 to 65535"},
    {"id2_large", "id2", "0x10000", "65536 is out of range; write 0 to 65535"},
    {"number3_large", "number3", 65536, "65536 is out of range; write 0 to 65535"},
    {"switch_large", "no_text5", 2, "2 is out of range; write 0 to 1"},
    {"report_large", "report", 2, "2 is out of range; write 0 to 1"},
    {"bytes_odd", "bytes", "0A1", "is not a list of bytes; write two hexadecimal digits for each byte"},
    {"bytes_with_a_wrong_digit", "bytes", "0G", "is not a list of bytes"},
    {"bytes_number", "bytes", 10, "is not a list of bytes"},
    {"bytes_many", "bytes", std::string(130, '0'), "has 65 bytes; write at most 64"},
    {"neither", "number1", Value(), "is not a whole number"}};

INSTANTIATE_TEST_SUITE_P(Table, UsbFieldRefuses, testing::ValuesIn(kRefusals), kvosim_test::kNameOfRow);

TEST(UsbKey, rejects_unknown_names)
{
    EXPECT_EQ(findUsbKey("ipAddress"), nullptr);
    EXPECT_EQ(findUsbKey(""), nullptr);
}

// ---- Texts that the library must be able to read ----

TEST(UsbEventText, with_fields_of_maximum_length_is_read_by_the_library)
{
    UsbDevice device = kvosim::newUsbDevice({});
    for (const kvosim::UsbKey &key : kvosim::usbKeys()) {
        if (const auto *text = std::get_if<kvosim::UsbTextKey>(&key.kind)) {
            EXPECT_EQ(assign(key, device, std::string(text->member(device).size(), 'x')), "");
        }
    }
    std::string text = eventText(UsbEvent::plugged, 0xFFFFFFFF, device);
    EXPECT_LE(text.size(), 1022U) << "the longest text that can be delivered";
    UsbDeviceInfo info{};
    EXPECT_EQ(ConvertCmd2USBDeviceNM(&info, text.data()), 1);
    EXPECT_STREQ(info.ipAddress, "255.255.255.255");
    text = eventText(UsbEvent::refused, kStation, device);
    EXPECT_EQ(ConvertCmd2USBDeviceIM(&info, text.data()), 1);
    text = eventText(UsbEvent::removed, kStation, device);
    UsbRemoveInfo removed{};
    EXPECT_EQ(ConvertCmd2USBDeviceRM(&removed, text.data()), 1);
    EXPECT_STREQ(removed.ipAddress, "10.0.0.5");
}

TEST(Connector, consists_of_the_idents)
{
    EXPECT_EQ(connectorOf(deviceWith({})), "1-1.1:usb1");
    EXPECT_EQ(connectorOf(deviceWith({{"ident2", "Portal mill: ä;"}, {"ident3", "1 2"}})), "1_2:Portal_mill_____");
}

}  // namespace
