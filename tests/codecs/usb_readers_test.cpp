// Reading the four USB event texts into the records of both callbacks.
#include <kvo_hws/codecs.h>

#include "codecs/usb_texts.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <thread>

namespace {

using codecs_test::device;
using codecs_test::Guarded;
using codecs_test::kBlock;
using codecs_test::kMarker;
using codecs_test::newText;
using codecs_test::put;
using codecs_test::read;
using codecs_test::station;
using codecs_test::taken;

TEST(UsbReaders, read_a_new_device_for_the_newer_callback)
{
    Guarded<UsbDeviceInfo> record;
    ASSERT_EQ(read(ConvertCmd2USBDeviceNM, record.get(), newText(device())), 1);
    EXPECT_STREQ(record->ipAddress, "10.0.0.5");
    EXPECT_STREQ(record->ident2, "usb1");
    EXPECT_STREQ(record->ident3, "1-1.4");
    EXPECT_STREQ(record->text4, "SanDisk");
    EXPECT_STREQ(record->text5, "8.02");
    EXPECT_STREQ(record->text6, "Storage Media");
    EXPECT_STREQ(record->text7, "Cruzer Edge");
    EXPECT_EQ(record->number1, 0xABCDEF01);
    EXPECT_EQ(record->number2, 0x2AU);
    EXPECT_EQ(record->flagWord, 0U);
    EXPECT_EQ(record->flagBits, 1 | (3 << 1)) << "id1 0781 is odd, id2 556B ends in 3";
}

TEST(UsbReaders, derive_the_flag_bits_from_the_ids_and_bit_31_of_the_flag_word)
{
    const auto bitsOf = [](const std::string &flagWord, const std::string &id1, const std::string &id2) {
        Guarded<UsbDeviceInfo> record;
        EXPECT_EQ(
            read(ConvertCmd2USBDeviceNM, record.get(), "k*a*b*c*d*e*f*g*1*2*" + flagWord + "*" + id1 + "*" + id2 + "*00 *"), 1);
        EXPECT_EQ(record->flagWord, std::stoul(flagWord, nullptr, 16));
        return record->flagBits;
    };
    EXPECT_EQ(bitsOf("00000000", "0000", "0000"), 0);
    EXPECT_EQ(bitsOf("00000000", "FFFE", "FFFC"), 0);
    EXPECT_EQ(bitsOf("00000000", "0001", "0000"), 1);
    EXPECT_EQ(bitsOf("00000000", "0000", "0001"), 2);
    EXPECT_EQ(bitsOf("00000000", "0000", "0002"), 4);
    EXPECT_EQ(bitsOf("80000000", "0000", "0000"), 8);
    EXPECT_EQ(bitsOf("FFFFFFFF", "FFFF", "FFFF"), 15);
    EXPECT_EQ(bitsOf("7FFFFFFF", "0000", "0000"), 0);
}

/// A writer sets bit 27 and a reader tests bit 31: the difference is deliberate.
TEST(UsbReaders, ignore_the_bit_that_the_writer_sets)
{
    UsbDeviceSource source = device();
    source.state = 0;
    source.id1 = source.id2 = 0;
    Guarded<UsbDeviceInfo> record;
    ASSERT_EQ(read(ConvertCmd2USBDeviceNM, record.get(), newText(source, 1)), 1);
    EXPECT_EQ(record->flagWord, 0x08000000U);
    EXPECT_EQ(record->flagBits, 0);
}

TEST(UsbReaders, read_a_refused_device)
{
    const UsbDeviceSource source = device();
    Guarded<UsbDeviceInfo> record;
    ASSERT_EQ(read(ConvertCmd2USBDeviceIM, record.get(), taken(ConvertUSBDeviceIM2Cmd(&source))), 1);
    EXPECT_STREQ(record->ipAddress, "10.0.0.5");
    EXPECT_STREQ(record->ident2, "usb1");
    EXPECT_STREQ(record->ident3, "1-1.4");
    EXPECT_STREQ(record->text4, "SanDisk");
    EXPECT_STREQ(record->text5, "8.02");
    EXPECT_STREQ(record->text8, "not allowed here");
    EXPECT_EQ(record->number1, 0xABCDEF01);
    EXPECT_EQ(record->number2, 0x2AU);
    EXPECT_EQ(record->number3, 0xFE) << "the low 8 bits of 12FE";
    EXPECT_EQ(record->flagWord, 0xFEU);
    EXPECT_EQ(record->flagBits, 0);
}

TEST(UsbReaders, limit_number3_to_its_16_bits)
{
    Guarded<UsbDeviceInfo> record(0xFF);
    ASSERT_EQ(read(ConvertCmd2USBDeviceIM, record.get(), "k*a*b*c*d*e*f*1*2*1234*"), 1);
    EXPECT_EQ(record->flagWord, 0xFFFF0034U);
    EXPECT_EQ(record->flagBits, 0xFF);
}

TEST(UsbReaders, read_a_change_of_state)
{
    const UsbDeviceSource source = device();
    Guarded<UsbStateInfo> record;
    ASSERT_EQ(read(ConvertCmd2USBDeviceCS, record.get(), taken(ConvertUSBDeviceCS2Cmd(&source))), 1);
    EXPECT_STREQ(record->ipAddress, "10.0.0.5");
    EXPECT_STREQ(record->ident2, "usb1");
    EXPECT_STREQ(record->ident3, "1-1.4");
    EXPECT_EQ(record->state, 3U);
}

TEST(UsbReaders, read_a_new_device_for_the_older_callback)
{
    Guarded<UsbDeviceV1> record;
    ASSERT_EQ(read(ConvertCmd2USBDeviceNew, record.get(), newText(device())), 1);
    EXPECT_STREQ(record->ipAddress, "10.0.0.5");
    EXPECT_STREQ(record->ident2, "usb1");
    EXPECT_STREQ(record->ident3, "1-1.4");
    EXPECT_EQ(record->number1, 0xABCDEF01);
    EXPECT_EQ(record->id1, 0x0781);
    EXPECT_EQ(record->reserved, 0);
    EXPECT_STREQ(record->text4, "SanDisk");
    EXPECT_EQ(record->noText5, 0);
    EXPECT_STREQ(record->text5, "8.02");
    EXPECT_STREQ(record->text6, "Storage Media");
    EXPECT_STREQ(record->text7, "Cruzer Edge");
}

/// id2 takes the place of the former byte block; programs of that time see its low byte and zeros.
TEST(UsbReaders, for_the_older_callback_read_id2_as_the_byte_block)
{
    Guarded<UsbDeviceV1> record;
    ASSERT_EQ(read(ConvertCmd2USBDeviceNew, record.get(), newText(device())), 1);
    EXPECT_EQ(record->bytes[0], 0x6B) << "the low byte of 556B";
    for (unsigned byte = 1; byte < 64; ++byte) {
        EXPECT_EQ(record->bytes[byte], 0) << byte;
    }
}

TEST(UsbReaders, for_the_older_callback_read_a_block_in_its_former_place)
{
    Guarded<UsbDeviceV1> record(0);
    const std::string head = "k*a*b*c*d*e*f*g*1*2*3*4*";
    ASSERT_EQ(read(ConvertCmd2USBDeviceNew, record.get(), head + kBlock + "77 *"), 1);
    for (unsigned byte = 0; byte < 64; ++byte) {
        EXPECT_EQ(record->bytes[byte], byte + 0xC0) << byte;
    }
    Guarded<UsbDeviceV1> partly(0x5A);
    partly->noText5 = 0;
    ASSERT_EQ(read(ConvertCmd2USBDeviceNew, partly.get(), head + "01  0x2 fff 4g 05 *"), 1);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(partly->bytes), 4), "\x01\x02\xff\x5A")
        << "it ends at the first text that is not a number";
}

TEST(UsbReaders, for_the_older_callback_leave_text5_unset_on_request)
{
    Guarded<UsbDeviceV1> record;
    record->noText5 = 1;
    put(record->text5, "mine");
    ASSERT_EQ(read(ConvertCmd2USBDeviceNew, record.get(), newText(device())), 1);
    EXPECT_STREQ(record->text5, "mine");
    EXPECT_STREQ(record->text6, "Storage Media");
}

TEST(UsbReaders, read_a_removal_for_both_callbacks)
{
    const UsbStationRecord from = station("10.0.0.5", "usb1");
    const std::string text = taken(ConvertUSBDeviceRemove2Cmd(&from, "1-1.4"));
    Guarded<UsbRemoveInfo, 264> older('x');
    ASSERT_EQ(read(ConvertCmd2USBDeviceRemove, older.get(), text), 1);
    Guarded<UsbRemoveInfo> newer('x');
    ASSERT_EQ(read(ConvertCmd2USBDeviceRM, newer.get(), text), 1);
    for (const UsbRemoveInfo *record : {older.get(), newer.get()}) {
        EXPECT_STREQ(record->ipAddress, "10.0.0.5");
        EXPECT_STREQ(record->ident2, "usb1");
        EXPECT_STREQ(record->ident3, "1-1.4");
    }
    EXPECT_EQ(older.area().substr(80), std::string(184, '\0')) << "the older callback's area is cleared";
    EXPECT_EQ(newer.area().substr(9, 7), "xxxxxxx") << "the newer callback's record is not cleared";
}

TEST(UsbReaders, do_not_recognize_the_marker_in_a_removal)
{
    Guarded<UsbRemoveInfo> record;
    ASSERT_EQ(read(ConvertCmd2USBDeviceRM, record.get(), "removeUSBdevice*10.0.0.5*" + kMarker + "*" + kMarker + "*"), 1);
    EXPECT_EQ(record->ident2, kMarker);
    EXPECT_EQ(record->ident3, kMarker);
}

TEST(UsbReaders, read_marked_texts_as_empty)
{
    UsbDeviceSource source = device();
    *source.text4 = *source.text5 = *source.text6 = *source.text7 = *source.text8 = *source.ident3 = '\0';
    Guarded<UsbDeviceInfo> record('x');
    ASSERT_EQ(read(ConvertCmd2USBDeviceNM, record.get(), newText(source)), 1);
    for (const char *text : {record->text4, record->text5, record->text6, record->text7, record->ident3}) {
        EXPECT_STREQ(text, "");
    }
    EXPECT_STREQ(record->ident2, "usb1");
    Guarded<UsbDeviceInfo> refused('x');
    ASSERT_EQ(read(ConvertCmd2USBDeviceIM, refused.get(), taken(ConvertUSBDeviceIM2Cmd(&source))), 1);
    EXPECT_STREQ(refused->text8, "");
    Guarded<UsbDeviceV1> older('x');
    older->noText5 = 0;
    ASSERT_EQ(read(ConvertCmd2USBDeviceNew, older.get(), newText(source)), 1);
    for (const char *text : {older->text4, older->text5, older->text6, older->text7, older->ident3}) {
        EXPECT_STREQ(text, "");
    }
}

TEST(UsbReaders, recognize_the_marker_only_as_a_whole_field)
{
    Guarded<UsbStateInfo> record;
    ASSERT_EQ(read(ConvertCmd2USBDeviceCS, record.get(), "k*a*" + kMarker + "x*x" + kMarker + "*1*"), 1);
    EXPECT_EQ(record->ident2, kMarker + "x");
    EXPECT_EQ(record->ident3, "x" + kMarker);
}

TEST(UsbReaders, store_number3_only_if_it_is_a_number)
{
    Guarded<UsbDeviceInfo> record('x');
    EXPECT_EQ(read(ConvertCmd2USBDeviceIM, record.get(), "k*a*b*c*d*e*f*1*2*"), -13);
    EXPECT_EQ(record->flagWord, 0x78787878U);
    EXPECT_EQ(read(ConvertCmd2USBDeviceIM, record.get(), "k*a*b*c*d*e*f*1*2*3z*"), -14);
    EXPECT_EQ(record->flagWord, 0x78787878U);
}

TEST(UsbReaders, truncate_every_text_to_its_member)
{
    const std::string longText(300, 'x');
    const std::string head = "k*" + longText + "*" + longText + "*" + longText + "*";
    const auto expectCut = [](const char *text, std::size_t member) { EXPECT_EQ(text, std::string(member - 1, 'x')); };

    Guarded<UsbDeviceInfo> device(0);
    const std::string texts = longText + "*" + longText + "*" + longText + "*" + longText + "*";
    ASSERT_EQ(read(ConvertCmd2USBDeviceNM, device.get(), head + texts + "1*2*3*4*5*6*"), 1);
    expectCut(device->ipAddress, 16);
    expectCut(device->ident2, 32);
    expectCut(device->ident3, 32);
    expectCut(device->text4, 22);
    expectCut(device->text5, 10);
    expectCut(device->text6, 40);
    expectCut(device->text7, 40);
    EXPECT_EQ(device->number1, 1U);

    Guarded<UsbDeviceInfo> refused(0);
    ASSERT_EQ(read(ConvertCmd2USBDeviceIM, refused.get(), head + longText + "*" + longText + "*" + longText + "*1*2*3*"), 1);
    expectCut(refused->text8, 80);

    Guarded<UsbDeviceV1> older(0);
    ASSERT_EQ(read(ConvertCmd2USBDeviceNew, older.get(), head + texts + "1*2*3*4*5*"), 1);
    expectCut(older->text4, 21);
    expectCut(older->text5, 10);
    expectCut(older->text7, 40);
    EXPECT_EQ(older->noText5, 0);

    Guarded<UsbStateInfo> state(0);
    ASSERT_EQ(read(ConvertCmd2USBDeviceCS, state.get(), head + "1*"), 1);
    expectCut(state->ident3, 32);

    Guarded<UsbRemoveInfo> removed(0);
    ASSERT_EQ(read(ConvertCmd2USBDeviceRM, removed.get(), head), 1);
    expectCut(removed->ident3, 32);
    Guarded<UsbRemoveInfo, 264> removedOlder(0);
    ASSERT_EQ(read(ConvertCmd2USBDeviceRemove, removedOlder.get(), head), 1);
    expectCut(removedOlder->ident3, 32);
}

TEST(UsbReaders, skip_empty_fields)
{
    Guarded<UsbRemoveInfo> record;
    EXPECT_EQ(read(ConvertCmd2USBDeviceRM, record.get(), "removeUSBdevice*10.0.0.5***"), -1);
    EXPECT_EQ(read(ConvertCmd2USBDeviceRM, record.get(), "***removeUSBdevice**10.0.0.5***usb1*1-1.4"), 1);
    EXPECT_STREQ(record->ident3, "1-1.4") << "and the last asterisk may be missing";
}

TEST(UsbReaders, accept_63_bytes_of_the_block_or_none)
{
    Guarded<UsbDeviceInfo> record;
    const std::string head = "newUSBdevice*a*b*c*d*e*f*g*1*2*3*4*5*";
    EXPECT_EQ(read(ConvertCmd2USBDeviceNM, record.get(), head + kBlock.substr(0, kBlock.size() - 3) + "*"), 1);
    EXPECT_EQ(read(ConvertCmd2USBDeviceNM, record.get(), head + "nothing like it*"), 1);
    EXPECT_EQ(read(ConvertCmd2USBDeviceNM, record.get(), head + " *"), 1);
}

TEST(UsbReaders, read_texts_on_several_threads_at_once)
{
    const auto work = [](const char *name) {
        const std::string text = std::string("changeStateUSBdevice*") + name + "*b*c*7*";
        for (int round = 0; round < 2000; ++round) {
            Guarded<UsbStateInfo> record;
            ASSERT_EQ(read(ConvertCmd2USBDeviceCS, record.get(), text), 1);
            ASSERT_STREQ(record->ipAddress, name);
        }
    };
    std::thread other(work, "first");
    work("second");
    other.join();
}

TEST(UsbReaders, keep_the_low_bits_of_a_number_that_is_too_large)
{
    Guarded<UsbStateInfo> record;
    ASSERT_EQ(read(ConvertCmd2USBDeviceCS, record.get(), "k*a*b*c*112345678*"), 1);
    if (sizeof(long) == 8) {
        EXPECT_EQ(record->state, 0x12345678U);
    }
    ASSERT_EQ(read(ConvertCmd2USBDeviceCS, record.get(), "k*a*b*c*-1*"), 1);
    EXPECT_EQ(record->state, 0xFFFFFFFFU);
    Guarded<UsbDeviceV1> older;
    ASSERT_EQ(read(ConvertCmd2USBDeviceNew, older.get(), "k*a*b*c*d*e*f*g*1*2*3*12345*00*"), 1);
    EXPECT_EQ(older->id1, 0x2345);
}

TEST(UsbReaders, store_the_fields_before_an_error)
{
    Guarded<UsbDeviceInfo> record('x');
    EXPECT_EQ(read(ConvertCmd2USBDeviceNM, record.get(), "k*10.0.0.5*usb1*"), -4);
    EXPECT_STREQ(record->ident2, "usb1");
    EXPECT_EQ(record->ident3[0], 'x');
    EXPECT_EQ(record->flagBits, 'x');
}

}  // namespace
