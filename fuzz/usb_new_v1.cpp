// Fuzzes the parser of a new device for the older callback.
#include "usb_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    using Record = UsbDeviceV1;
    static const fuzz::UsbReader<Record> reader{
        .name = "ConvertCmd2USBDeviceNew",
        .read = ConvertCmd2USBDeviceNew,
        .fields = fuzz::eventFields<Record>({
            fuzz::marked(&Record::text4, -5), fuzz::markedUnless(&Record::noText5, &Record::text5, -6),
            fuzz::marked(&Record::text6, -7), fuzz::marked(&Record::text7, -8), fuzz::number(&Record::number1, -9, -10),
            fuzz::droppedNumber(-11, -19), fuzz::droppedNumber(-20, -17), fuzz::number(&Record::id1, -18, -12),
            fuzz::block(&Record::bytes, -13),  // old programs get the field of id2
        }),
    };
    return reader.compare(data, size);
}
