// The USB event server: its state word, its ends, and many clients at once.
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>
#include <kvo_hws/usbevents.h>

#include "support/alarms.h"
#include "support/holdings.h"
#include "support/many_threads.h"
#include "support/own_thread.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"
#include "support/usb_events.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>
#include <poll.h>
#include <set>
#include <string>
#include <sys/un.h>
#include <syslog.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace std::chrono_literals;

namespace {

using support::answerOfUsbServer;
using support::descriptorsOpen;
using support::EventRecorder;
using support::eventually;
using support::kPass;
using support::LogLine;
using support::MessagesOn;
using support::serverState;
using support::SyslogCapture;
using support::SystemCalls;
using support::threadsRunning;
using support::ToldEvent;
using support::WithSystemCalls;
using testing::ElementsAre;
using testing::MatchesRegex;

using Clock = std::chrono::steady_clock;

const std::string kRemoved = "removeUSBdevice*10.0.0.5*usb1*1-1.4*\n";

void requestStop() { __atomic_store_n(&ServerPipeThreadSyncState, NOTIFY_STOP_REQUESTED, __ATOMIC_SEQ_CST); }
uint32_t suicideServed() { return __atomic_load_n(&uiSuicide, __ATOMIC_SEQ_CST); }

std::atomic<bool> stopAtAccept{false};

class UsbServer : public testing::Test {
protected:
    void SetUp() override
    {
        std::filesystem::create_directories("/tmp/kvo_hws");
        sendUSBEvent2 = EventRecorder::newer;
    }
    void TearDown() override
    {
        SetFunction_SendUSBEvent_NULL();
        if (serverState() == NOTIFY_RUNNING) {
            requestStop();
            EXPECT_TRUE(eventually([] { return serverState() == NOTIFY_STOP_DONE; }));
            __atomic_store_n(&ServerPipeThreadSyncState, NOTIFY_STOPPED, __ATOMIC_SEQ_CST);
        }
    }

    static void start()
    {
        ASSERT_EQ(kvo_hws_CreateThread(win_kvo_hws_usb_server, nullptr), 1);
        ASSERT_TRUE(eventually([] { return answerOfUsbServer("hello\n") == "unknown request\n"; }));
    }

    const EventRecorder recorder_;
};

// ---- States ----

TEST_F(UsbServer, runs_until_a_stop_is_requested)
{
    start();
    EXPECT_EQ(serverState(), static_cast<uint32_t>(NOTIFY_RUNNING));
    requestStop();
    const auto requested = Clock::now();
    ASSERT_TRUE(eventually([] { return serverState() != NOTIFY_STOP_REQUESTED; }));
    EXPECT_EQ(serverState(), static_cast<uint32_t>(NOTIFY_STOP_DONE));
    EXPECT_LT(Clock::now() - requested, 2s) << "within about a second, although no client comes";
    EXPECT_EQ(answerOfUsbServer(kRemoved), "(nobody)");
}

TEST_F(UsbServer, notices_a_stop_as_soon_as_a_client_comes_and_does_not_serve_it)
{
    start();
    requestStop();
    EXPECT_EQ(answerOfUsbServer(kRemoved), "");
    EXPECT_TRUE(eventually([] { return serverState() == NOTIFY_STOP_DONE; }));
    EXPECT_THAT(recorder_.events(), testing::IsEmpty());
}

TEST_F(UsbServer, ends_at_any_state_but_running)
{
    for (const uint32_t state : {NOTIFY_STOPPED, NOTIFY_STOP_DONE}) {
        start();
        const SyslogCapture capture;
        __atomic_store_n(&ServerPipeThreadSyncState, state, __ATOMIC_SEQ_CST);
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

TEST_F(UsbServer, ends_after_suicide_and_leaves_nothing_to_acknowledge)
{
    const support::ScriptedService service({support::agrees()});
    start();
    EXPECT_EQ(answerOfUsbServer("suicide\n"), "ok\n");
    const auto closed = Clock::now();
    EXPECT_TRUE(eventually([] { return serverState() == NOTIFY_STOPPED && suicideServed() == 0; }));
    EXPECT_LT(Clock::now() - closed, 2s);
    EXPECT_EQ(answerOfUsbServer(kRemoved), "(nobody)");
    EXPECT_THAT(recorder_.codes(), ElementsAre(USB_EVENT_DEACTIVATED));
}

TEST_F(UsbServer, signals_neither_end_it_nor_keep_it_from_its_end)
{
    start();
    const support::Alarms alarms(20ms, 20ms);
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(answerOfUsbServer(kRemoved), "ok\n");
    requestStop();
    const auto requested = Clock::now();
    EXPECT_TRUE(eventually([] { return serverState() == NOTIFY_STOP_DONE; }));
    EXPECT_LT(Clock::now() - requested, 2s);
}

TEST_F(UsbServer, the_last_of_two_is_the_one_and_the_other_leaves_the_state_alone)
{
    const std::size_t before = threadsRunning();
    start();
    start();
    EXPECT_TRUE(eventually([&] { return threadsRunning() == before + 1; })) << "the first one ends by itself";
    EXPECT_EQ(serverState(), static_cast<uint32_t>(NOTIFY_RUNNING));
    EXPECT_EQ(answerOfUsbServer(kRemoved), "ok\n");
}

// ---- The socket ----

TEST_F(UsbServer, takes_the_place_of_whatever_was_at_its_path_and_leaves_the_file)
{
    std::ofstream(support::kUsbSocket) << "something";
    start();
    EXPECT_EQ(answerOfUsbServer(kRemoved), "ok\n");
    requestStop();
    EXPECT_TRUE(eventually([] { return serverState() == NOTIFY_STOP_DONE; }));
    EXPECT_TRUE(std::filesystem::is_socket(support::kUsbSocket));
    start();
    EXPECT_EQ(answerOfUsbServer(kRemoved), "ok\n");
}

TEST_F(UsbServer, binds_by_family_and_path_alone_with_a_backlog_of_5)
{
    std::atomic<socklen_t> length{0};
    std::atomic<int> backlog{0};
    {
        const WithSystemCalls calls({.bind =
                                         [&](int, const sockaddr *, socklen_t size) {
                                             length = size;
                                             return kPass;
                                         },
                                     .listen =
                                         [&](int, int size) {
                                             backlog = size;
                                             return kPass;
                                         }});
        start();
    }
    EXPECT_EQ(length, 23U) << "2 bytes of family and 21 of path, without a terminator";
    EXPECT_EQ(backlog, 5);
}

TEST_F(UsbServer, hands_no_descriptor_on_to_programs_it_starts)
{
    std::atomic<bool> checked{false};
    const EventRecorder holding([&](const ToldEvent &) { return eventually([&] { return checked.load(); }) ? 0 : -1; });
    start();
    std::thread client([] { EXPECT_EQ(answerOfUsbServer(kRemoved), "ok\n"); });
    EXPECT_TRUE(holding.waitFor(1));
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

// ---- Failing calls, each with its end ----

/// Whether the calling thread is the server that calls are to fail for.
thread_local bool isServer = false;

/// Runs a server on a thread of its own to its end.
void runServer()
{
    support::onOwnThread([] {
        isServer = true;
        return win_kvo_hws_usb_server(nullptr);
    });
}

/// Makes a server's call fail, and nobody else's.
template <class... Arguments>
auto fails(int error)
{
    return [error](Arguments...) {
        errno = error;
        return isServer ? -1 : kPass;
    };
}

int readable(pollfd *descriptors, nfds_t, int)
{
    descriptors->revents = POLLIN;
    return isServer ? 1 : kPass;
}

/// A client for the server, as far as a descriptor is one.
int someClient(int) { return isServer ? openat(AT_FDCWD, "/dev/null", O_RDWR | O_CLOEXEC) : kPass; }

struct Failure {
    const char *name;
    int end;
    int error;
    const char *message;
    SystemCalls calls;
};

std::ostream &operator<<(std::ostream &out, const Failure &row) { return out << row.name; }

class FailingServer : public testing::TestWithParam<Failure> {
protected:
    void SetUp() override { std::filesystem::create_directories("/tmp/kvo_hws"); }
};

TEST_P(FailingServer, ends_with_its_number)
{
    const Failure &row = GetParam();
    const std::size_t descriptors = descriptorsOpen();
    const MessagesOn messages;
    const SyslogCapture capture;
    {
        const WithSystemCalls calls(row.calls);
        runServer();
    }
    EXPECT_EQ(serverState(), static_cast<uint32_t>(NOTIFY_STOPPED));
    EXPECT_THAT(capture.lines(),
                ElementsAre(LogLine{"", LOG_INFO, row.message}, LogLine{"", LOG_INFO, "USB server - terminated"},
                            LogLine{"", LOG_ERR,
                                    "USB server - abnormal terminated" + std::to_string(row.end) + " " +
                                        std::to_string(row.error) + " " + std::strerror(row.error)}));
    EXPECT_EQ(descriptorsOpen(), descriptors);
}

constexpr const char *kStarted = "USB server - started --> wait for clients";

INSTANTIATE_TEST_SUITE_P(
    Of, FailingServer,
    testing::Values(
        Failure{"no_socket", 1, EMFILE, "USB server - socket error", {.socket = fails<int>(EMFILE)}},
        Failure{"no_bind", 2, EACCES, "USB server - bind error", {.bind = fails<int, const sockaddr *, socklen_t>(EACCES)}},
        Failure{"no_listen", 3, EADDRINUSE, "USB server - listen error", {.listen = fails<int, int>(EADDRINUSE)}},
        Failure{"no_wait", 4, ENOMEM, kStarted, {.poll = fails<pollfd *, nfds_t, int>(ENOMEM)}},
        Failure{"no_accept", 5, ECONNABORTED, kStarted, {.accept4 = fails<int>(ECONNABORTED), .poll = readable}}),
    [](const auto &row) { return std::string(row.param.name); });

TEST_F(UsbServer, ends_where_a_connection_gets_no_thread)
{
    const std::size_t descriptors = descriptorsOpen();
    const MessagesOn messages;
    const SyslogCapture capture;
    {
        const WithSystemCalls calls({.accept4 = someClient, .poll = readable, .pthreadCreate = [] {
                                         errno = EAGAIN;
                                         return isServer ? EAGAIN : kPass;
                                     }});
        runServer();
    }
    EXPECT_EQ(serverState(), static_cast<uint32_t>(NOTIFY_STOPPED));
    EXPECT_THAT(capture.lines(),
                ElementsAre(LogLine{"", LOG_INFO, kStarted}, LogLine{"", LOG_INFO, "USB server - create thread error"},
                            LogLine{"", LOG_INFO, "USB server - terminated"},
                            LogLine{"", LOG_ERR, "USB server - abnormal terminated6 11 Resource temporarily unavailable"}));
    EXPECT_EQ(descriptorsOpen(), descriptors) << "the client is closed too";
}

TEST_F(UsbServer, keeps_stopped_and_requested_apart_also_where_it_fails)
{
    const WithSystemCalls calls({.poll = [](pollfd *, nfds_t, int) {
        if (isServer) {
            requestStop();
            errno = ENOMEM;
            return -1;
        }
        return kPass;
    }});
    const SyslogCapture capture;
    runServer();
    EXPECT_EQ(serverState(), static_cast<uint32_t>(NOTIFY_STOP_DONE));
    EXPECT_THAT(capture.texts(), ElementsAre(testing::StartsWith("USB server - terminated0 ")))
        << "the stop is looked at before the failure";
}

TEST_F(UsbServer, looks_at_its_state_after_an_accept_too)
{
    const WithSystemCalls calls({.accept4 = [](int) {
        if (serverState() == NOTIFY_RUNNING && stopAtAccept.exchange(false)) {
            requestStop();
        }
        return kPass;
    }});
    start();
    stopAtAccept = true;
    EXPECT_EQ(answerOfUsbServer(kRemoved), "") << "accepted, and not served";
    EXPECT_TRUE(eventually([] { return serverState() == NOTIFY_STOP_DONE; }));
    EXPECT_THAT(recorder_.events(), testing::IsEmpty());
}

TEST_F(UsbServer, does_not_hang_on_a_client_that_is_not_there_after_all)
{
    std::atomic<int> calls{0};
    const WithSystemCalls stand({.poll = [&](pollfd *descriptors, nfds_t, int milliseconds) {
        if (milliseconds != 1000 || calls++ != 0) {
            return kPass;
        }
        descriptors->revents = POLLIN;
        return 1;
    }});
    ASSERT_EQ(kvo_hws_CreateThread(win_kvo_hws_usb_server, nullptr), 1);
    ASSERT_TRUE(eventually([&] { return calls > 1; })) << "the accept has come back";
    requestStop();
    EXPECT_TRUE(eventually([] { return serverState() == NOTIFY_STOP_DONE; }));
}

TEST_F(UsbServer, runs_detached)
{
    const WithSystemCalls calls({.socket = fails<int>(EMFILE)});
    EXPECT_EQ(support::onOwnThread([] {
                  isServer = true;
                  win_kvo_hws_usb_server(nullptr);
                  return kvo_hws_detach_thread();
              }),
              -1);
}

TEST_F(UsbServer, listens_no_more_when_it_says_that_it_has_ended)
{
    const MessagesOn messages;
    std::atomic<bool> refused{false};
    start();
    const SyslogCapture capture([&] {
        if (serverState() != NOTIFY_STOP_REQUESTED) {
            refused = answerOfUsbServer(kRemoved) == "(nobody)";
        }
    });
    requestStop();
    EXPECT_TRUE(eventually([] { return serverState() == NOTIFY_STOP_DONE; }));
    EXPECT_TRUE(eventually([&] { return refused.load(); }));
}

TEST_F(UsbServer, goes_on_after_an_accept_that_found_nobody_and_after_interruptions)
{
    std::atomic<int> accepts{0};
    std::atomic<int> waits{0};
    const WithSystemCalls calls({.accept4 =
                                     [&](int) {
                                         const int count = accepts++;
                                         errno = count == 0 ? EAGAIN : EINTR;
                                         return count < 2 ? -1 : kPass;
                                     },
                                 .poll =
                                     [&](pollfd *, nfds_t, int milliseconds) {
                                         errno = EINTR;
                                         return milliseconds == 1000 && waits++ == 0 ? -1 : kPass;
                                     }});
    start();
    EXPECT_EQ(answerOfUsbServer(kRemoved), "ok\n");
    EXPECT_GT(accepts, 2);
    EXPECT_GT(waits, 1) << "each wait lasts a second at most";
}

/// The last line goes to the system log whatever the debug level and the debug message channel are.
TEST_F(UsbServer, says_how_it_ended_when_all_went_well)
{
    const SyslogCapture capture;
    start();
    requestStop();
    ASSERT_TRUE(eventually([&] { return !capture.lines().empty(); }));
    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines.front().priority, LOG_INFO);
    EXPECT_THAT(lines.front().text, MatchesRegex("USB server - terminated0 [0-9]+ .+"));
}

TEST_F(UsbServer, tells_its_steps_as_debug_messages)
{
    const MessagesOn messages;
    const SyslogCapture capture;
    start();
    requestStop();
    ASSERT_TRUE(eventually([&] { return capture.texts().back().starts_with("USB server - terminated0"); }));
    const auto lines = capture.lines();
    EXPECT_EQ(lines.front(), (LogLine{"", LOG_INFO, kStarted}));
    EXPECT_EQ(lines[lines.size() - 2], (LogLine{"", LOG_INFO, "USB server - terminated"}));
}

// ---- Many clients ----

TEST_F(UsbServer, serves_64_connections_side_by_side)
{
    // Each callback waits until all 64 are there: one after the other they would wait for ever.
    std::atomic<int> present{0};
    const EventRecorder together([&](const ToldEvent &) {
        ++present;
        return eventually([&] { return present == 64; }) ? 0 : -1;
    });
    start();
    std::vector<std::string> answers(64);
    std::vector<std::thread> clients;
    for (std::string &answer : answers) {
        clients.emplace_back([&answer] { answer = answerOfUsbServer(kRemoved); });
    }
    for (std::thread &client : clients) {
        client.join();
    }
    EXPECT_THAT(answers, testing::Each("ok\n"));
}

TEST_F(UsbServer, silent_clients_hold_up_nobody_and_leave_nothing_behind)
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
    EXPECT_EQ(answerOfUsbServer(kRemoved), "ok\n");
    EXPECT_LT(Clock::now() - start, 2s);
    EXPECT_TRUE(eventually([&] { return threadsRunning() == threads; })) << "after 4 s of silence they are given up";
    for (const int client : clients) {
        close(client);
    }
    EXPECT_EQ(descriptorsOpen(), descriptors);
}

TEST_F(UsbServer, loses_no_event_of_several_senders_and_keeps_nothing)
{
    support::makeRoomForManyThreads();  // a connection's stays for 100 ms
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
                delivered += support::lineOfUsbServer("removeUSBdevice*10.0.0.5*" + name + "*x*\n") == "ok\n" ? 1 : 0;
            }
        });
    }
    for (std::thread &sender : senders) {
        sender.join();
    }
    EXPECT_EQ(delivered, kSenders * kEvents);
    std::set<std::string> names;
    for (const ToldEvent &event : recorder_.events()) {
        names.insert(event.record.c_str() + offsetof(UsbRemoveInfo, ident2));
    }
    EXPECT_EQ(names.size(), static_cast<std::size_t>(kSenders * kEvents));
    EXPECT_TRUE(eventually([&] { return threadsRunning() == threads; }));
    EXPECT_EQ(descriptorsOpen(), descriptors);
}

}  // namespace
