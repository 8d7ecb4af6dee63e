// Activates and closes USB events on separate threads, and ends all events after each test.
#pragma once

#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>
#include <kvo_hws/usbevents.h>

#include "support/own_thread.h"
#include "support/scripted_service.h"
#include "support/usb_events.h"

#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace usbevents_test {

using Clock = std::chrono::steady_clock;
using Codes = std::vector<uint32_t>;

inline const std::string kState = "changeStateUSBdevice*10.0.0.5*usb1*1-1.4*00000007*\n";

/// Makes a call on a separate thread, because the library detaches the calling thread unless it refuses the call.
template <class Call>
int32_t onDetachedThread(Call call)
{
    return support::onOwnThread([call] {
        const int32_t result = call();
        if (result == -1 || result == -9) {
            kvo_hws_detach_thread();
        }
        return result;
    });
}

inline int32_t activate(SendUsbEventV1 callback)
{
    return onDetachedThread([=] { return KVO_HWS_activateUSBEvents(callback); });
}
inline int32_t activateV2(SendUsbEventV2 callback)
{
    return onDetachedThread([=] { return KVO_HWS_activateUSBEventsV2(callback); });
}
inline int32_t closeEvents() { return onDetachedThread(KVO_HWS_closeUSBEvents); }

inline bool isSet(SendUsbEventV2 &slot) { return __atomic_load_n(&slot, __ATOMIC_SEQ_CST) != nullptr; }
inline bool isSet(SendUsbEventV1 &slot) { return __atomic_load_n(&slot, __ATOMIC_SEQ_CST) != nullptr; }
inline bool anySet() { return isSet(sendUSBEvent) || isSet(sendUSBEvent2); }

/// Deactivates everything, so that tests may share a process.
inline void endEvents()
{
    const support::ScriptedService service({support::acceptsAll()});
    closeEvents();
    EXPECT_TRUE(support::eventually([] { return !anySet(); }));
    // If the service refused, the callbacks are cleared but the server still runs.
    if (support::serverState() != NOTIFY_STOPPED) {
        support::onOwnThread(KillUsbServer);
    }
}

class Activation : public testing::Test {
protected:
    void SetUp() override { std::filesystem::create_directories("/tmp/kvo_hws"); }
    void TearDown() override { endEvents(); }
};

}  // namespace usbevents_test
