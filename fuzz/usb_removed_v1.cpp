// Fuzzes the parser of a removal for the older callback. Its area is larger, and it clears the area first.
#include "usb_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    using Record = UsbRemoveInfo;
    static const fuzz::UsbReader<Record> reader{
        .name = "ConvertCmd2USBDeviceRemove",
        .read = ConvertCmd2USBDeviceRemove,
        .fields = fuzz::removalFields(),
        .area = sizeof(UsbDeviceV1),
        .clearsArea = true,
    };
    return reader.compare(data, size);
}
