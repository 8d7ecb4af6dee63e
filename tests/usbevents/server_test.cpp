// The USB event server: its state word, its socket, and many concurrent clients.
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>
#include <kvo_hws/usbevents.h>

#include "support/alarms.h"
#include "support/resource_usage.h"
#include "support/scripted_service.h"
#include "support/small_thread_stacks.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"
#include "support/usb_events.h"
#include "usbevents/server_fixture.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace std::chrono_literals;

namespace {

using support::descriptorsOpen;
using support::EventRecorder;
using support::eventually;
using support::kPassThrough;
using support::RecordedEvent;
using support::serverState;
using support::setServerState;
using support::suicideServed;
using support::SyslogCapture;
using support::threadsRunning;
using support::usbServerReply;
using support::WithSystemCalls;
using testing::ElementsAre;
using usbevents_test::kRemoved;
using usbevents_test::requestStop;
using usbevents_test::UsbServer;

using Clock = std::chrono::steady_clock;

// ---- States ----

TEST_F(UsbServer, runs_until_a_stop_is_requested)
{
    start();
    EXPECT_EQ(serverState(), static_cast<uint32_t>(NOTIFY_RUNNING));
    requestStop();
    const auto requested = Clock::now();
    ASSERT_TRUE(eventually([] { return serverState() != NOTIFY_STOP_REQUESTED; }));
    EXPECT_EQ(serverState(), static_cast<uint32_t>(NOTIFY_STOP_DONE));
    EXPECT_LT(Clock::now() - requested, 3500ms) << "within about one second, even without a client";
    EXPECT_EQ(usbServerReply(kRemoved), "(no server)");
}

TEST_F(UsbServer, notices_a_stop_at_the_next_client_and_does_not_serve_it)
{
    start();
    requestStop();
    EXPECT_EQ(usbServerReply(kRemoved), "");
    EXPECT_TRUE(eventually([] { return serverState() == NOTIFY_STOP_DONE; }));
    EXPECT_THAT(recorder_.events(), testing::IsEmpty());
}

TEST_F(UsbServer, ends_in_any_state_except_running)
{
    for (const uint32_t state : {NOTIFY_STOPPED, NOTIFY_STOP_DONE}) {
        start();
        const SyslogCapture capture;
        setServerState(state);
        EXPECT_TRUE(eventually([&] { return !capture.lines().empty(); })) << "its last line";
        EXPECT_EQ(serverState(), static_cast<uint32_t>(NOTIFY_STOPPED)) << "no stop was requested";
    }
}

TEST_F(UsbServer, clears_an_earlier_suicide_when_it_starts)
{
    __atomic_store_n(&uiSuicide, 1U, __ATOMIC_SEQ_CST);
    start();
    EXPECT_EQ(suicideServed(), 0U);
    EXPECT_EQ(serverState(), static_cast<uint32_t>(NOTIFY_RUNNING));
}

TEST_F(UsbServer, ends_in_the_stopped_state_after_suicide)
{
    const support::ScriptedService service({support::acceptsAll()});
    start();
    EXPECT_EQ(usbServerReply("suicide\n"), "ok\n");
    const auto closed = Clock::now();
    EXPECT_TRUE(eventually([] { return serverState() == NOTIFY_STOPPED && suicideServed() == 0; }));
    EXPECT_LT(Clock::now() - closed, 3500ms);
    EXPECT_EQ(usbServerReply(kRemoved), "(no server)");
    EXPECT_THAT(recorder_.codes(), ElementsAre(USB_EVENT_DEACTIVATED));
}

TEST_F(UsbServer, keeps_running_and_still_ends_during_signals)
{
    start();
    const support::Alarms alarms(20ms, 20ms);
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(usbServerReply(kRemoved), "ok\n");
    requestStop();
    const auto requested = Clock::now();
    EXPECT_TRUE(eventually([] { return serverState() == NOTIFY_STOP_DONE; }));
    EXPECT_LT(Clock::now() - requested, 3500ms);
}

TEST_F(UsbServer, started_twice_leaves_only_the_last_one_running)
{
    const std::size_t before = threadsRunning();
    start();
    start();
    EXPECT_TRUE(eventually([&] { return threadsRunning() == before + 1; })) << "the first one ends by itself";
    EXPECT_EQ(serverState(), static_cast<uint32_t>(NOTIFY_RUNNING));
    EXPECT_EQ(usbServerReply(kRemoved), "ok\n");
}

// ---- The socket ----

TEST_F(UsbServer, replaces_whatever_is_at_its_path_and_leaves_the_file)
{
    std::ofstream(support::kUsbSocket) << "something";
    start();
    EXPECT_EQ(usbServerReply(kRemoved), "ok\n");
    requestStop();
    EXPECT_TRUE(eventually([] { return serverState() == NOTIFY_STOP_DONE; }));
    EXPECT_TRUE(std::filesystem::is_socket(support::kUsbSocket));
    start();
    EXPECT_EQ(usbServerReply(kRemoved), "ok\n");
}

TEST_F(UsbServer, binds_to_the_exact_path_length_with_a_backlog_of_5)
{
    std::atomic<socklen_t> length{0};
    std::atomic<int> backlog{0};
    {
        const WithSystemCalls calls({.bind =
                                         [&](int, const sockaddr *, socklen_t size) {
                                             length = size;
                                             return kPassThrough;
                                         },
                                     .listen =
                                         [&](int, int size) {
                                             backlog = size;
                                             return kPassThrough;
                                         }});
        start();
    }
    EXPECT_EQ(length, 23U) << "2 bytes of family and 21 of path, without a terminator";
    EXPECT_EQ(backlog, 5);
}

TEST_F(UsbServer, passes_no_descriptor_to_programs_it_starts)
{
    std::atomic<bool> checked{false};
    const EventRecorder blocking([&](const RecordedEvent &) { return eventually([&] { return checked.load(); }) ? 0 : -1; });
    start();
    std::thread client([] { EXPECT_EQ(usbServerReply(kRemoved), "ok\n"); });
    EXPECT_TRUE(blocking.waitFor(1));
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fdinfo")) {
        std::ifstream info(entry.path());
        std::string text((std::istreambuf_iterator<char>(info)), {});
        const auto link = std::filesystem::path("/proc/self/fd") / entry.path().filename();
        std::error_code gone;
        if (std::filesystem::read_symlink(link, gone).string().starts_with("socket:")) {
            EXPECT_NE(text.find("flags:\t02"), std::string::npos) << text;
        }
    }
    checked = true;
    client.join();
}

// ---- Many clients ----

TEST_F(UsbServer, serves_64_connections_in_parallel)
{
    // Each callback waits until all 64 are active: served one after the other, they would wait forever.
    std::atomic<int> present{0};
    const EventRecorder together([&](const RecordedEvent &) {
        ++present;
        return eventually([&] { return present == 64; }) ? 0 : -1;
    });
    start();
    std::vector<std::string> answers(64);
    std::vector<std::thread> clients;
    for (std::string &answer : answers) {
        clients.emplace_back([&answer] { answer = usbServerReply(kRemoved); });
    }
    for (std::thread &client : clients) {
        client.join();
    }
    EXPECT_THAT(answers, testing::Each("ok\n"));
}

TEST_F(UsbServer, is_not_blocked_by_silent_clients_and_leaks_nothing)
{
    const std::size_t threads = threadsRunning() + 1;
    start();
    ASSERT_TRUE(eventually([&] { return threadsRunning() == threads; }));
    const std::size_t descriptors = descriptorsOpen();
    std::vector<int> clients;
    for (int client = 0; client < 20; ++client) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, support::kUsbSocket);
        clients.push_back(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        ASSERT_EQ(connect(clients.back(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        if (client % 2 == 0) {
            ASSERT_EQ(write(clients.back(), "half a line", 11), 11);
        }
    }
    const auto start = Clock::now();
    EXPECT_EQ(usbServerReply(kRemoved), "ok\n");
    EXPECT_LT(Clock::now() - start, 3500ms);
    EXPECT_TRUE(eventually([&] { return threadsRunning() == threads; })) << "they are closed after 4 s of silence";
    for (const int client : clients) {
        close(client);
    }
    EXPECT_EQ(descriptorsOpen(), descriptors);
}

TEST_F(UsbServer, loses_no_event_of_several_senders_and_leaks_nothing)
{
    support::useSmallThreadStacks();  // each connection's thread exists for 100 ms
    const std::size_t threads = threadsRunning() + 1;
    start();
    ASSERT_TRUE(eventually([&] { return threadsRunning() == threads; }));
    const std::size_t descriptors = descriptorsOpen();
    constexpr int kSenders = 8;
    constexpr int kEvents = 250;
    std::vector<std::thread> senders;
    std::atomic<int> delivered{0};
    for (int sender = 0; sender < kSenders; ++sender) {
        senders.emplace_back([&, sender] {
            for (int event = 0; event < kEvents; ++event) {
                const std::string name = std::to_string(sender) + "-" + std::to_string(event);
                delivered += support::usbServerReplyLine("removeUSBdevice*10.0.0.5*" + name + "*x*\n") == "ok\n" ? 1 : 0;
            }
        });
    }
    for (std::thread &sender : senders) {
        sender.join();
    }
    EXPECT_EQ(delivered, kSenders * kEvents);
    std::set<std::string> names;
    for (const RecordedEvent &event : recorder_.events()) {
        names.insert(event.record.c_str() + offsetof(UsbRemoveInfo, ident2));
    }
    EXPECT_EQ(names.size(), static_cast<std::size_t>(kSenders * kEvents));
    EXPECT_TRUE(eventually([&] { return threadsRunning() == threads; }));
    EXPECT_EQ(descriptorsOpen(), descriptors);
}

}  // namespace
