// Writing the four USB event texts.
#include <kvo_hws/codecs.h>

#include "codecs/usb_texts.h"
#include "support/failing_allocations.h"

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace {

using codecs_test::device;
using codecs_test::kBlock;
using codecs_test::kMarker;
using codecs_test::newText;
using codecs_test::put;
using codecs_test::station;
using codecs_test::taken;

TEST(UsbWriters, write_a_new_device)
{
    EXPECT_EQ(newText(device()), "newUSBdevice*10.0.0.5*usb1*1-1.4*SanDisk*8.02*Storage Media*Cruzer Edge*ABCDEF01*0000002A*"
                                 "00000000*0781*556B*" +
                                     kBlock + "*");
}

TEST(UsbWriters, write_every_byte_as_two_digits)
{
    UsbDeviceSource source = device();
    std::memset(source.bytes, 0x0A, sizeof source.bytes);
    std::string block;
    for (int byte = 0; byte < 64; ++byte) {
        block += "0A ";
    }
    EXPECT_NE(newText(source).find("*556B*" + block + "*"), std::string::npos);
}

TEST(UsbWriters, write_a_refused_device)
{
    const UsbDeviceSource source = device();
    EXPECT_EQ(taken(ConvertUSBDeviceIM2Cmd(&source)),
              "ignoreUSBdevice*10.0.0.5*usb1*1-1.4*SanDisk*8.02*not allowed here*ABCDEF01*0000002A*12FE*");
}

TEST(UsbWriters, write_a_change_of_state)
{
    const UsbDeviceSource source = device();
    EXPECT_EQ(taken(ConvertUSBDeviceCS2Cmd(&source)), "changeStateUSBdevice*10.0.0.5*usb1*1-1.4*00000003*");
}

TEST(UsbWriters, write_a_removal)
{
    const UsbStationRecord record = station("192.168.214.1", "usb1");
    EXPECT_EQ(taken(ConvertUSBDeviceRemove2Cmd(&record, "1-1.4")), "removeUSBdevice*192.168.214.1*usb1*1-1.4*");
}

TEST(UsbWriters, mark_empty_texts)
{
    UsbDeviceSource source = device();
    for (char *const member : {source.ipAddress, source.ident2, source.ident3, source.text4, source.text5, source.text6,
                               source.text7, source.text8}) {
        *member = '\0';
    }
    const std::string &m = kMarker;
    EXPECT_EQ(newText(source), "newUSBdevice*" + m + "*" + m + "*" + m + "*" + m + "*" + m + "*" + m + "*" + m +
                                   "*ABCDEF01*0000002A*00000000*0781*556B*" + kBlock + "*");
    EXPECT_EQ(taken(ConvertUSBDeviceIM2Cmd(&source)),
              "ignoreUSBdevice*" + m + "*" + m + "*" + m + "*" + m + "*" + m + "*" + m + "*ABCDEF01*0000002A*12FE*");
    EXPECT_EQ(taken(ConvertUSBDeviceCS2Cmd(&source)), "changeStateUSBdevice*" + m + "*" + m + "*" + m + "*00000003*");
}

TEST(UsbWriters, do_not_mark_empty_texts_of_a_removal)
{
    const UsbStationRecord record = station("10.0.0.5", "");
    EXPECT_EQ(taken(ConvertUSBDeviceRemove2Cmd(&record, "")), "removeUSBdevice*10.0.0.5***");
}

TEST(UsbWriters, send_a_suppressed_text5_as_empty)
{
    UsbDeviceSource source = device();
    source.noText5 = 2;
    EXPECT_NE(newText(source).find("*SanDisk*" + kMarker + "*Storage Media*"), std::string::npos);
    EXPECT_NE(taken(ConvertUSBDeviceIM2Cmd(&source)).find("*SanDisk*" + kMarker + "*not allowed here*"), std::string::npos);
}

TEST(UsbWriters, report_a_new_device_only_with_the_report_bit_and_in_state_0)
{
    UsbDeviceSource source = device();
    const auto flagWord = [&source](uint8_t flags) {
        return newText(source, flags).substr(newText(source).find("*0781*") - 8, 8);
    };
    EXPECT_EQ(flagWord(0x01), "00000000") << "state 3";
    source.state = 0;
    EXPECT_EQ(flagWord(0x01), "08000000");
    EXPECT_EQ(flagWord(0xFF), "08000000");
    EXPECT_EQ(flagWord(0xFE), "00000000");
}

TEST(UsbWriters, need_no_terminator_in_a_full_member)
{
    UsbDeviceSource source = device();
    put(source.ipAddress, std::string(16, 'a'));
    put(source.ident2, std::string(32, 'b'));
    put(source.ident3, std::string(32, 'c'));
    put(source.text4, std::string(21, 'd'));
    put(source.text5, std::string(10, 'e'));
    put(source.text6, std::string(40, 'f'));
    put(source.text7, std::string(40, 'g'));
    put(source.text8, std::string(80, 'h'));
    const std::string head = std::string(16, 'a') + "*" + std::string(32, 'b') + "*" + std::string(32, 'c') + "*";
    const std::string middle = std::string(21, 'd') + "*" + std::string(10, 'e') + "*";
    EXPECT_EQ(newText(source), "newUSBdevice*" + head + middle + std::string(40, 'f') + "*" + std::string(40, 'g') +
                                   "*ABCDEF01*0000002A*00000000*0781*556B*" + kBlock + "*");
    EXPECT_EQ(taken(ConvertUSBDeviceIM2Cmd(&source)),
              "ignoreUSBdevice*" + head + middle + std::string(80, 'h') + "*ABCDEF01*0000002A*12FE*");
}

TEST(UsbWriters, truncate_a_text_to_1023_characters)
{
    UsbStationRecord record = station("10.0.0.5", std::string(260, 's'));
    const std::string whole = "removeUSBdevice*10.0.0.5*" + std::string(260, 's') + "*" + std::string(2000, 'x') + "*";
    EXPECT_EQ(taken(ConvertUSBDeviceRemove2Cmd(&record, std::string(2000, 'x').c_str())), whole.substr(0, 1023));
    const std::size_t fits = 1023 - std::string("removeUSBdevice*10.0.0.5**").size() - 260 - 1;
    EXPECT_EQ(taken(ConvertUSBDeviceRemove2Cmd(&record, std::string(fits, 'x').c_str())).size(), 1023U);
    EXPECT_EQ(taken(ConvertUSBDeviceRemove2Cmd(&record, std::string(fits, 'x').c_str())).back(), '*');
}

TEST(UsbWriters, return_null_without_memory)
{
    if (const char *const reason = support::FailingAllocations::unavailable()) {
        GTEST_SKIP() << reason;
    }
    const UsbDeviceSource source = device();
    const UsbDaemonContext context{};
    const UsbStationRecord record = station("10.0.0.5", "usb1");
    char *texts[4] = {};
    {
        const support::FailingAllocations failing;
        texts[0] = ConvertUSBDeviceNew2Cmd(&context, &source);
        texts[1] = ConvertUSBDeviceIM2Cmd(&source);
        texts[2] = ConvertUSBDeviceCS2Cmd(&source);
        texts[3] = ConvertUSBDeviceRemove2Cmd(&record, "1-1.4");
    }
    for (char *const text : texts) {
        EXPECT_EQ(text, nullptr);
    }
}

}  // namespace
