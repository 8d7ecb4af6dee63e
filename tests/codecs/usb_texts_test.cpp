// The four USB event texts, written and read.
#include <kvo_hws/codecs.h>

#include "support/failing_allocations.h"

#include <arpa/inet.h>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

const std::string kMarker = "?$?\xA7?eEmMpPtTyY!\xA7!$!";

template <std::size_t Size>
void put(char (&member)[Size], std::string_view text)
{
    std::memset(member, 0, Size);
    text.copy(member, Size);
}

UsbDeviceSource device()
{
    UsbDeviceSource source{};
    std::memset(source.reserved, 0xEE, sizeof source.reserved);
    put(source.ipAddress, "10.0.0.5");
    put(source.ident2, "usb1");
    put(source.ident3, "1-1.4");
    source.number1 = 0xABCDEF01;
    source.id1 = 0x0781;
    source.id2 = 0x556B;
    put(source.text4, "SanDisk");
    put(source.text5, "8.02");
    put(source.text6, "Storage Media");
    put(source.text7, "Cruzer Edge");
    for (unsigned byte = 0; byte < sizeof source.bytes; ++byte) {
        source.bytes[byte] = static_cast<uint8_t>(byte + 0xC0);
    }
    source.number2 = 0x0000002A;
    source.state = 3;
    put(source.text8, "not allowed here");
    source.number3 = 0x12FE;
    return source;
}

std::string taken(char *text)
{
    const std::unique_ptr<char, void (*)(void *)> owned(text, std::free);
    return owned == nullptr ? "null" : owned.get();
}

std::string newText(const UsbDeviceSource &source, uint8_t flags = 0)
{
    const UsbDaemonContext context{flags};
    return taken(ConvertUSBDeviceNew2Cmd(&context, &source));
}

const std::string kBlock = "C0 C1 C2 C3 C4 C5 C6 C7 C8 C9 CA CB CC CD CE CF D0 D1 D2 D3 D4 D5 D6 D7 D8 D9 DA DB DC DD DE DF "
                           "E0 E1 E2 E3 E4 E5 E6 E7 E8 E9 EA EB EC ED EE EF F0 F1 F2 F3 F4 F5 F6 F7 F8 F9 FA FB FC FD FE FF ";

// ---- Writers ----

TEST(UsbWriters, write_a_new_device)
{
    EXPECT_EQ(newText(device()), "newUSBdevice*10.0.0.5*usb1*1-1.4*SanDisk*8.02*Storage Media*Cruzer Edge*ABCDEF01*0000002A*"
                                 "00000000*0781*556B*" +
                                     kBlock + "*");
}

TEST(UsbWriters, write_every_byte_with_two_digits)
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

UsbStationRecord station(const char *address, std::string_view text)
{
    UsbStationRecord record{};
    record.reserved = 0xEEEEEEEE;
    inet_pton(AF_INET, address, &record.address);
    put(record.text, text);
    return record;
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

TEST(UsbWriters, report_a_new_device_only_with_the_report_bit_and_at_state_0)
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

TEST(UsbWriters, cut_a_text_at_1023_characters)
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

// ---- Readers ----

/// A record between guards, filled with a pattern or with zeros.
template <class Record, std::size_t Area = sizeof(Record)>
class Guarded {
public:
    explicit Guarded(int pattern = 0)
    {
        std::memset(bytes_, '#', sizeof bytes_);
        std::memset(bytes_ + kGuard, pattern, Area);
    }
    ~Guarded()
    {
        EXPECT_EQ(std::string(bytes_, kGuard), std::string(kGuard, '#'));
        EXPECT_EQ(std::string(bytes_ + kGuard + Area, kGuard), std::string(kGuard, '#'));
    }
    Guarded(const Guarded &) = delete;
    Guarded &operator=(const Guarded &) = delete;

    Record *operator->() { return get(); }
    [[nodiscard]] Record *get() { return reinterpret_cast<Record *>(bytes_ + kGuard); }
    [[nodiscard]] std::string_view area() const { return {bytes_ + kGuard, Area}; }

private:
    static constexpr std::size_t kGuard = 64;
    alignas(8) char bytes_[Area + 2 * kGuard];
};

template <class Record>
int read(int (*reader)(Record *, char *) noexcept, Record *record, std::string text)
{
    return reader(record, text.data());
}

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

TEST(UsbReaders, take_the_flag_bits_from_the_ids_and_bit_31_of_the_flag_word)
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

/// What a writer sets is bit 27, what a reader tests is bit 31: the two differ on purpose.
TEST(UsbReaders, do_not_see_the_bit_that_the_writer_sets)
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

TEST(UsbReaders, keep_number3_to_its_16_bits)
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

/// id2 stands where the block once stood; programs of that time see its low byte and zeros.
TEST(UsbReaders, the_older_one_takes_id2_for_the_byte_block)
{
    Guarded<UsbDeviceV1> record;
    ASSERT_EQ(read(ConvertCmd2USBDeviceNew, record.get(), newText(device())), 1);
    EXPECT_EQ(record->bytes[0], 0x6B) << "the low byte of 556B";
    for (unsigned byte = 1; byte < 64; ++byte) {
        EXPECT_EQ(record->bytes[byte], 0) << byte;
    }
}

TEST(UsbReaders, the_older_one_reads_a_block_where_it_once_stood)
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
    EXPECT_EQ(std::string(reinterpret_cast<char *>(partly->bytes), 4), "\x01\x02\xff\x5A") << "it ends at what is no number";
}

TEST(UsbReaders, the_older_one_keeps_text5_back_where_the_caller_asks_for_it)
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
    EXPECT_EQ(newer.area().substr(9, 7), "xxxxxxx") << "the newer callback's record is not";
}

TEST(UsbReaders, do_not_know_the_marker_in_a_removal)
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

TEST(UsbReaders, take_the_marker_for_nothing_but_itself)
{
    Guarded<UsbStateInfo> record;
    ASSERT_EQ(read(ConvertCmd2USBDeviceCS, record.get(), "k*a*" + kMarker + "x*x" + kMarker + "*1*"), 1);
    EXPECT_EQ(record->ident2, kMarker + "x");
    EXPECT_EQ(record->ident3, "x" + kMarker);
}

TEST(UsbReaders, store_number3_only_where_it_is_one)
{
    Guarded<UsbDeviceInfo> record('x');
    EXPECT_EQ(read(ConvertCmd2USBDeviceIM, record.get(), "k*a*b*c*d*e*f*1*2*"), -13);
    EXPECT_EQ(record->flagWord, 0x78787878U);
    EXPECT_EQ(read(ConvertCmd2USBDeviceIM, record.get(), "k*a*b*c*d*e*f*1*2*3z*"), -14);
    EXPECT_EQ(record->flagWord, 0x78787878U);
}

TEST(UsbReaders, cut_every_text_to_its_member)
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

TEST(UsbReaders, pass_over_empty_fields_as_if_they_were_not_there)
{
    Guarded<UsbRemoveInfo> record;
    EXPECT_EQ(read(ConvertCmd2USBDeviceRM, record.get(), "removeUSBdevice*10.0.0.5***"), -1);
    EXPECT_EQ(read(ConvertCmd2USBDeviceRM, record.get(), "***removeUSBdevice**10.0.0.5***usb1*1-1.4"), 1);
    EXPECT_STREQ(record->ident3, "1-1.4") << "and the last asterisk may be missing";
}

TEST(UsbReaders, take_63_bytes_of_the_block_or_none)
{
    Guarded<UsbDeviceInfo> record;
    const std::string head = "newUSBdevice*a*b*c*d*e*f*g*1*2*3*4*5*";
    EXPECT_EQ(read(ConvertCmd2USBDeviceNM, record.get(), head + kBlock.substr(0, kBlock.size() - 3) + "*"), 1);
    EXPECT_EQ(read(ConvertCmd2USBDeviceNM, record.get(), head + "nothing like it*"), 1);
    EXPECT_EQ(read(ConvertCmd2USBDeviceNM, record.get(), head + " *"), 1);
}

TEST(UsbReaders, read_several_texts_at_once)
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

// ---- Step codes ----

/// A reader, the fields of a text that it accepts, and the codes for each of them.
struct Field {
    std::string good;
    int missing;
    int malformed = 0;  ///< 0: a text
};

struct ReaderRow {
    const char *name;
    std::function<int(std::string)> read;
    std::vector<Field> fields;
};

std::ostream &operator<<(std::ostream &out, const ReaderRow &row) { return out << row.name; }

template <class Record, std::size_t Area = sizeof(Record)>
std::function<int(std::string)> with(int (*reader)(Record *, char *) noexcept)
{
    return [reader](const std::string &text) {
        Guarded<Record, Area> record;
        return read(reader, record.get(), text);
    };
}

class StepCodes : public testing::TestWithParam<ReaderRow> {
protected:
    /// The text up to field @p count, the last of which may be replaced.
    static std::string upTo(std::size_t count, const std::string &replaced = "")
    {
        std::string text;
        for (std::size_t field = 0; field < count; ++field) {
            text += (field + 1 == count && !replaced.empty() ? replaced : GetParam().fields[field].good) + "*";
        }
        return text;
    }
};

TEST_P(StepCodes, name_the_first_field_that_is_missing)
{
    const auto &fields = GetParam().fields;
    for (std::size_t field = 0; field < fields.size(); ++field) {
        EXPECT_EQ(GetParam().read(upTo(field)), fields[field].missing) << "field " << field;
    }
    EXPECT_EQ(GetParam().read(upTo(fields.size())), 1);
    EXPECT_EQ(GetParam().read(upTo(fields.size()) + "more*and more*"), 1);
}

TEST_P(StepCodes, name_the_first_field_that_is_no_number)
{
    const auto &fields = GetParam().fields;
    for (std::size_t field = 0; field < fields.size(); ++field) {
        if (fields[field].malformed != 0) {
            for (const char *malformed : {"12G4", "x", " ", "0x", "12 ", "-", "1.5"}) {
                EXPECT_EQ(GetParam().read(upTo(field + 1, malformed)), fields[field].malformed) << field << " " << malformed;
            }
        }
    }
}

TEST_P(StepCodes, take_every_number_that_strtoul_takes)
{
    const auto &fields = GetParam().fields;
    for (std::size_t field = 0; field < fields.size(); ++field) {
        if (fields[field].malformed != 0) {
            for (const char *number : {"0", "0x1f", " 1", "-1", "+ff", "abcdef", "\t7", "FFFFFFFFFFFFFFFFFFFFFFFF"}) {
                std::string text = upTo(field + 1, number);
                for (std::size_t rest = field + 1; rest < fields.size(); ++rest) {
                    text += fields[rest].good + "*";
                }
                EXPECT_EQ(GetParam().read(text), 1) << field << " " << number;
            }
        }
    }
}

const std::vector<Field> kBeginning = {{"keyword", -1}, {"10.0.0.5", -2}, {"usb1", -3}, {"1-1.4", -4}};

std::vector<Field> beginningAnd(std::vector<Field> rest)
{
    rest.insert(rest.begin(), kBeginning.begin(), kBeginning.end());
    return rest;
}

INSTANTIATE_TEST_SUITE_P(
    Of, StepCodes,
    testing::Values(
        ReaderRow{"NM", with(ConvertCmd2USBDeviceNM),
                  beginningAnd({{"4", -5},
                                {"5", -6},
                                {"6", -7},
                                {"7", -8},
                                {"00000001", -9, -10},
                                {"00000002", -11, -19},
                                {"08000000", -20, -17},
                                {"0001", -18, -12},
                                {"0002", -13, -14},
                                {"00 01 ", -15}})},
        ReaderRow{"New", with(ConvertCmd2USBDeviceNew),
                  beginningAnd({{"4", -5},
                                {"5", -6},
                                {"6", -7},
                                {"7", -8},
                                {"00000001", -9, -10},
                                {"00000002", -11, -19},
                                {"08000000", -20, -17},
                                {"0001", -18, -12},
                                {"0002", -13}})},
        ReaderRow{
            "IM", with(ConvertCmd2USBDeviceIM),
            beginningAnd({{"4", -5}, {"5", -6}, {"8", -7}, {"00000001", -8, -10}, {"00000002", -11, -12}, {"0003", -13, -14}})},
        ReaderRow{"CS", with(ConvertCmd2USBDeviceCS), beginningAnd({{"00000003", -5, -10}})},
        ReaderRow{"RM", with(ConvertCmd2USBDeviceRM), {{"keyword", -1}, {"10.0.0.5", -1}, {"usb1", -1}, {"1-1.4", -1}}},
        ReaderRow{"Remove",
                  with<UsbRemoveInfo, 264>(ConvertCmd2USBDeviceRemove),
                  {{"keyword", -1}, {"10.0.0.5", -1}, {"usb1", -1}, {"1-1.4", -1}}}),
    [](const auto &row) { return std::string(row.param.name); });

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

TEST(UsbReaders, store_what_comes_before_a_fault)
{
    Guarded<UsbDeviceInfo> record('x');
    EXPECT_EQ(read(ConvertCmd2USBDeviceNM, record.get(), "k*10.0.0.5*usb1*"), -4);
    EXPECT_STREQ(record->ident2, "usb1");
    EXPECT_EQ(record->ident3[0], 'x');
    EXPECT_EQ(record->flagBits, 'x');
}

}  // namespace
