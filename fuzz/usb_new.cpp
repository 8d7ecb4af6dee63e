// Fuzzes the parser of a new device for the newer callback.
#include "usb_reader.h"

namespace {

/// The flag byte: bit 0 from id1, bits 1 and 2 from id2, bit 3 from bit 31 of the flag word.
void setFlagBits(UsbDeviceInfo &record, const std::vector<unsigned long> &numbers)
{
    const unsigned long flagWord = numbers[2];
    const unsigned long id1 = numbers[3];
    const unsigned long id2 = numbers[4];
    record.flagBits = static_cast<uint8_t>(id1 % 2 + id2 % 4 * 2 + ((flagWord & 0x80000000) != 0 ? 8 : 0));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    using Record = UsbDeviceInfo;
    static const fuzz::UsbReader<Record> reader{
        .name = "ConvertCmd2USBDeviceNM",
        .read = ConvertCmd2USBDeviceNM,
        .fields = fuzz::eventFields<Record>({
            fuzz::marked(&Record::text4, -5),
            fuzz::marked(&Record::text5, -6),
            fuzz::marked(&Record::text6, -7),
            fuzz::marked(&Record::text7, -8),
            fuzz::number(&Record::number1, -9, -10),
            fuzz::number(&Record::number2, -11, -19),
            fuzz::number(&Record::flagWord, -20, -17),
            fuzz::droppedNumber(-18, -12),
            fuzz::droppedNumber(-13, -14),
            fuzz::skipped(-15),
        }),
        .complete = setFlagBits,
    };
    return reader.compare(data, size);
}
