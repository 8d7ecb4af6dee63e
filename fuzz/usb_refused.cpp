// Fuzzes the parser of a refused device.
#include "usb_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    using Record = UsbDeviceInfo;
    static const fuzz::UsbReader<Record> reader{
        .name = "ConvertCmd2USBDeviceIM",
        .read = ConvertCmd2USBDeviceIM,
        .fields = fuzz::eventFields<Record>({
            fuzz::marked(&Record::text4, -5),
            fuzz::marked(&Record::text5, -6),
            fuzz::marked(&Record::text8, -7),
            fuzz::number(&Record::number1, -8, -10),
            fuzz::number(&Record::number2, -11, -12),
            fuzz::lowByte(&Record::number3, -13, -14),
        }),
    };
    return reader.compare(data, size);
}
