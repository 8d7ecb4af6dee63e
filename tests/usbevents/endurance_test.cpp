// A hundred thousand events leave nothing behind: no descriptor, no thread, no memory; and none of them is lost.
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>
#include <kvo_hws/usbevents.h>

#include "support/holdings.h"
#include "support/own_thread.h"
#include "support/scripted_service.h"
#include "support/usb_events.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>
#include <vector>

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kEvents = 5'000;
constexpr const char *kReason = " (a sanitizer's build is slow, and watches each allocation itself)";
#else
constexpr int kEvents = 100'000;
constexpr const char *kReason = "";
#endif

std::atomic<int> told{0};

int32_t count(UsbEventV2 *event) { return event->code == USB_EVENT_REMOVED ? ++told, 0 : -1; }

/// Each connection's thread stays for 100 ms, so that many of them are there at a time; this many rest in the end.
bool onlyTheServerRuns(std::size_t threads)
{
    return support::eventually([threads] { return support::threadsRunning() == threads; });
}

TEST(UsbEndurance, a_hundred_thousand_events_leave_nothing_behind)
{
    std::filesystem::create_directories("/tmp/kvo_hws");
    sendUSBEvent2 = count;
    const std::size_t threads = support::threadsRunning() + 1;
    ASSERT_EQ(kvo_hws_CreateThread(win_kvo_hws_usb_server, nullptr), 1);
    ASSERT_TRUE(support::eventually([] { return support::answerOfUsbServer("x\n") == "unknown request\n"; }));

    const auto send = [](int events) {
        return support::onOwnThread([events] {
            int delivered = 0;
            for (int event = 0; event < events; ++event) {
                delivered += SendUsbMsg2DLL("removeUSBdevice*10.0.0.5*usb1*1-1.4*") == 1 ? 1 : 0;
            }
            return delivered;
        });
    };
    // Threads' stacks and arenas are kept for the next ones: the first thousands show how many that makes.
    EXPECT_EQ(send(kEvents / 10), kEvents / 10);
    ASSERT_TRUE(onlyTheServerRuns(threads));
    const support::Holdings before = support::holdings();
    EXPECT_EQ(send(kEvents), kEvents);
    ASSERT_TRUE(onlyTheServerRuns(threads));
    const support::Holdings after = support::holdings();
    std::printf("%d events%s: descriptors %zu -> %zu, threads %zu -> %zu, heap %zu -> %zu bytes\n", kEvents, kReason,
                before.descriptors, after.descriptors, before.threads, after.threads, before.heapBytes, after.heapBytes);
    EXPECT_EQ(told, kEvents + kEvents / 10);
    EXPECT_EQ(after.descriptors, before.descriptors);
    EXPECT_LT(after.heapBytes, before.heapBytes + 64 * 1024);

    SetFunction_SendUSBEvent_NULL();
    support::onOwnThread(KillUsbServer);
}

}  // namespace
