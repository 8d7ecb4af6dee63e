// Activating and closing USB events on threads of their own, and what is left to end after each test.
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

/// A call on a thread of its own: the library detaches whoever activates or closes, but for a call that it refuses.
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

/// Leaves nothing active behind, so that tests may share a process.
inline void endEvents()
{
    const support::ScriptedService service({support::acceptsAll()});
    closeEvents();
    EXPECT_TRUE(support::eventually([] { return !anySet(); }));
    // Where the service refused, the callbacks have gone and the server has stayed.
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
