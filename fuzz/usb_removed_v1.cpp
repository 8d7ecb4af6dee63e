// Fuzzes the reader of a removal for the older callback, which has a larger area that is cleared first.
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
