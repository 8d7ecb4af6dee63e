// The plugin of the test of shared objects.
#include "cpp/events/plugin.h"

extern "C" __attribute__((visibility("default"))) const cpp_events_test::Side *pluginSide()
{
    return &cpp_events_test::thisSide();
}
/// The address of its own callback.
extern "C" __attribute__((visibility("default"))) SendUsbEventV2 pluginCallback() { return kvo::detail::usb_callback; }
