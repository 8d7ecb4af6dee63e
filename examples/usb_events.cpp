// Prints the USB events of all stations until Enter is pressed, in C++.
#include <kvo_hws/kvo_hws.hpp>

#include <cstdio>

namespace {

// One function for each kind of event. They run on threads of the library, several at a time; stdio does not mix their lines.
// false would report a failure to the service.
struct Printer {
    bool operator()(kvo::UsbStatus status) const
    {
        if (status == kvo::UsbStatus::activated) {
            std::puts("waiting for devices");
        } else if (kvo::is_final(status)) {
            std::puts("no more events; press Enter");
        }
        return true;
    }
    bool operator()(const kvo::UsbNewDevice &device) const { return print(device, "new device"); }
    bool operator()(const kvo::UsbDeviceRemoved &device) const { return print(device, "removed"); }
    bool operator()(const kvo::UsbStateChanged &device) const { return print(device, "changed"); }
    bool operator()(const kvo::UsbDeviceRefused &device) const { return print(device, "refused"); }

    static bool print(const kvo::UsbDeviceEvent &device, const char *what)
    {
        return std::printf("%s: %s %s\n", device.ip_address.c_str(), what, device.ident2.c_str()) > 0;
    }
};

}  // namespace

int main()
{
    auto events = kvo::UsbEvents::activate([](const kvo::UsbEvent &event) { return std::visit(Printer{}, event); });
    if (!events) {
        std::fprintf(stderr, "cannot activate USB events: %s\n", events.error().reason());
        return 1;
    }
    std::getchar();
    if (events->close()) {  // the destructor would do the same
        std::puts("ended");
    }
}
