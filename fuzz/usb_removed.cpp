// Fuzzes the parser of a removal for the newer callback.
#include "usb_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    using Record = UsbRemoveInfo;
    static const fuzz::UsbReader<Record> reader{
        .name = "ConvertCmd2USBDeviceRM",
        .read = ConvertCmd2USBDeviceRM,
        .fields = fuzz::removalFields(),
    };
    return reader.compare(data, size);
}
