// A hundred thousand events leave nothing behind: no descriptor, no thread, no memory; and none of them is lost.
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
constexpr const char *kWhyFewerRuns = " (the emulator keeps memory of its own for each thread that there ever was)";
#else
constexpr int kEvents = support::kSanitized ? 4'800 : 112'000;
constexpr const char *kWhyFewerRuns = support::kWhyFewerRuns;
#endif

constexpr int kSenders = 16;

std::atomic<int> told{0};

int32_t count(UsbEventV2 *event) { return event->code == USB_EVENT_REMOVED ? ++told, 0 : -1; }

/// Each connection keeps a descriptor for 100 ms. Where a process may have few, the sender waits for some of them to be given
/// back.
class Pace {
public:
    Pace()
    {
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
        most_ = static_cast<std::size_t>(std::min<rlim_t>(limit.rlim_cur / 2, 4096));
    }

    void keep() const
    {
        static_cast<void>(support::eventually([this] { return support::descriptorsOpen() < most_; }));
    }

private:
    std::size_t most_ = 0;
};

/// Each connection's thread stays for 100 ms, so that many of them are there at a time; this many rest in the end.
bool onlyTheServerRuns(std::size_t threads)
{
    return support::eventually([threads] { return support::threadsRunning() <= threads; });
}

TEST(UsbEndurance, a_hundred_thousand_events_leave_nothing_behind)
{
    support::useSmallThreadStacks();
    std::filesystem::create_directories("/tmp/kvo_hws");
    sendUSBEvent2 = count;
    const std::size_t threads = support::threadsRunning() + 1;
    ASSERT_EQ(kvo_hws_CreateThread(win_kvo_hws_usb_server, nullptr), 1);
    ASSERT_TRUE(support::eventually([] { return support::usbServerReply("x\n") == "unknown request\n"; }));

    // Several at a time: on a busy machine each waits for its turns, and not for those of the others.
    const auto send = [](int events) {
        std::atomic<int> delivered{0};
        std::vector<std::thread> senders;
        for (int sender = 0; sender < kSenders; ++sender) {
            senders.emplace_back([&delivered, events] {
                const Pace pace;
                for (int event = 0; event < events / kSenders; ++event) {
                    if (event % 10 == 0) {
                        pace.keep();
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
    // Threads' stacks and arenas are kept for the next ones: the first thousands show how many that makes.
    EXPECT_EQ(send(kEvents / 10), kEvents / 10);
    ASSERT_TRUE(onlyTheServerRuns(threads));
    const support::ResourceUsage before = support::resourceUsage();
    EXPECT_EQ(send(kEvents), kEvents);
    ASSERT_TRUE(onlyTheServerRuns(threads));
    const support::ResourceUsage after = support::resourceUsage();
    EXPECT_EQ(told, kEvents + kEvents / 10);
    support::expectSameUsage(kEvents, "events", kWhyFewerRuns, before, after, 64 * 1024);

    SetFunction_SendUSBEvent_NULL();
    support::onOwnThread(KillUsbServer);
}

}  // namespace
