// Fuzzes the parser of a change of state.
#include "usb_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    using Record = UsbStateInfo;
    static const fuzz::UsbReader<Record> reader{
        .name = "ConvertCmd2USBDeviceCS",
        .read = ConvertCmd2USBDeviceCS,
        .fields = fuzz::eventFields<Record>({fuzz::number(&Record::state, -5, -10)}),
    };
    return reader.compare(data, size);
}
