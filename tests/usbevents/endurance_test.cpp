// A hundred thousand events cause no leak of descriptors, threads or memory, and none of them is lost.
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>
#include <kvo_hws/usbevents.h>

#include "support/endurance.h"
#include "support/eventually.h"
#include "support/own_thread.h"
#include "support/scripted_service.h"
#include "support/small_thread_stacks.h"
#include "support/usb_events.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <thread>
#include <vector>

namespace {

#ifdef KVO_EMULATED
constexpr int kEvents = 4'800;
constexpr const char *kWhyFewerRuns = " (the emulator keeps memory for every thread that ever existed)";
#else
constexpr int kEvents = support::kSanitized ? 4'800 : 112'000;
constexpr const char *kWhyFewerRuns = support::kWhyFewerRuns;
#endif

constexpr int kSenders = 16;

std::atomic<int> counted{0};

int32_t count(UsbEventV2 *event) { return event->code == USB_EVENT_REMOVED ? ++counted, 0 : -1; }

/// Each connection keeps a descriptor for 100 ms. If the process may have only a few, the sender waits until some are closed.
class DescriptorLimit {
public:
    DescriptorLimit()
    {
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
        most_ = static_cast<std::size_t>(std::min<rlim_t>(limit.rlim_cur / 2, 4096));
    }

    void wait() const
    {
        static_cast<void>(support::eventually([this] { return support::descriptorsOpen() < most_; }));
    }

private:
    std::size_t most_ = 0;
};

/// Each connection's thread runs for 100 ms, so many exist at a time; @p threads remain at the end.
bool onlyTheServerRuns(std::size_t threads)
{
    return support::eventually([threads] { return support::threadsRunning() <= threads; });
}

TEST(UsbEndurance, a_hundred_thousand_events_leave_no_resources_in_use)
{
    support::useSmallThreadStacks();
    std::filesystem::create_directories("/tmp/kvo_hws");
    sendUSBEvent2 = count;
    const std::size_t threads = support::threadsRunning() + 1;
    ASSERT_EQ(kvo_hws_CreateThread(win_kvo_hws_usb_server, nullptr), 1);
    ASSERT_TRUE(support::eventually([] { return support::usbServerReply("x\n") == "unknown request\n"; }));

    // Several senders run in parallel, so that on a busy machine their waits overlap.
    const auto send = [](int events) {
        std::atomic<int> delivered{0};
        std::vector<std::thread> senders;
        for (int sender = 0; sender < kSenders; ++sender) {
            senders.emplace_back([&delivered, events] {
                const DescriptorLimit limit;
                for (int event = 0; event < events / kSenders; ++event) {
                    if (event % 10 == 0) {
                        limit.wait();
                    }
                    delivered += support::usbServerReplyLine("removeUSBdevice*10.0.0.5*usb1*1-1.4*\n") == "ok\n" ? 1 : 0;
                }
            });
        }
        for (std::thread &sender : senders) {
            sender.join();
        }
        return delivered.load();
    };
    // The C library keeps stacks and arenas of threads for reuse: the first thousands of events show how many.
    EXPECT_EQ(send(kEvents / 10), kEvents / 10);
    ASSERT_TRUE(onlyTheServerRuns(threads));
    const support::ResourceUsage before = support::resourceUsage();
    EXPECT_EQ(send(kEvents), kEvents);
    ASSERT_TRUE(onlyTheServerRuns(threads));
    const support::ResourceUsage after = support::resourceUsage();
    EXPECT_EQ(counted, kEvents + kEvents / 10);
    support::expectSameUsage(kEvents, "events", kWhyFewerRuns, before, after, 64 * 1024);

    SetFunction_SendUSBEvent_NULL();
    support::onOwnThread(KillUsbServer);
}

}  // namespace
