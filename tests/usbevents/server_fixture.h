// A USB event server on a separate thread.
#pragma once

#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>
#include <kvo_hws/usbevents.h>

#include "support/usb_events.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>

namespace usbevents_test {

inline const std::string kRemoved = "removeUSBdevice*10.0.0.5*usb1*1-1.4*\n";

inline void requestStop() { support::setServerState(NOTIFY_STOP_REQUESTED); }

class UsbServer : public testing::Test {
protected:
    void SetUp() override
    {
        std::filesystem::create_directories("/tmp/kvo_hws");
        sendUSBEvent2 = support::EventRecorder::newer;
    }
    void TearDown() override
    {
        SetFunction_SendUSBEvent_NULL();
        if (support::serverState() == NOTIFY_RUNNING) {
            requestStop();
            EXPECT_TRUE(support::eventually([] { return support::serverState() == NOTIFY_STOP_DONE; }));
            support::setServerState(NOTIFY_STOPPED);
        }
    }

    static void start()
    {
        ASSERT_EQ(kvo_hws_CreateThread(win_kvo_hws_usb_server, nullptr), 1);
        ASSERT_TRUE(support::eventually([] { return support::usbServerReply("hello\n") == "unknown request\n"; }));
    }

    const support::EventRecorder recorder_;
};

}  // namespace usbevents_test
