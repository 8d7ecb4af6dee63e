// The USB event server when its calls fail: how it ends, and what it logs.
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>
#include <kvo_hws/usbevents.h>

#include "support/own_thread.h"
#include "support/resource_usage.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"
#include "support/usb_events.h"
#include "usbevents/server_fixture.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>
#include <poll.h>
#include <string>
#include <syslog.h>
#include <vector>

namespace {

using support::descriptorsOpen;
using support::eventually;
using support::kPassThrough;
using support::LogLine;
using support::MessagesOn;
using support::serverState;
using support::SyslogCapture;
using support::SystemCalls;
using support::usbServerReply;
using support::WithSystemCalls;
using testing::ElementsAre;
using testing::MatchesRegex;
using usbevents_test::kRemoved;
using usbevents_test::requestStop;
using usbevents_test::UsbServer;

std::atomic<bool> stopAtAccept{false};

/// Whether the calling thread is the server whose calls fail.
thread_local bool isServer = false;

/// Runs a server on a separate thread until it ends.
void runServer()
{
    support::onOwnThread([] {
        isServer = true;
        return win_kvo_hws_usb_server(nullptr);
    });
}

/// Makes a call fail on the server's thread only.
template <class... Arguments>
auto fails(int error)
{
    return [error](Arguments...) {
        errno = error;
        return isServer ? -1 : kPassThrough;
    };
}

int readable(pollfd *descriptors, nfds_t, int)
{
    descriptors->revents = POLLIN;
    return isServer ? 1 : kPassThrough;
}

/// Replaces an accepted client: any open descriptor will do.
int someClient(int) { return isServer ? openat(AT_FDCWD, "/dev/null", O_RDWR | O_CLOEXEC) : kPassThrough; }

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

TEST_P(FailingServer, logs_the_failed_step_and_its_number)
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

const std::vector<Failure> kFailures = {
    {"socket_fails", 1, EMFILE, "USB server - socket error", {.socket = fails<int>(EMFILE)}},
    {"bind_fails", 2, EACCES, "USB server - bind error", {.bind = fails<int, const sockaddr *, socklen_t>(EACCES)}},
    {"listen_fails", 3, EADDRINUSE, "USB server - listen error", {.listen = fails<int, int>(EADDRINUSE)}},
    {"wait_fails", 4, ENOMEM, kStarted, {.poll = fails<pollfd *, nfds_t, int>(ENOMEM)}},
    {"accept_fails", 5, ECONNABORTED, kStarted, {.accept4 = fails<int>(ECONNABORTED), .poll = readable}}};

INSTANTIATE_TEST_SUITE_P(Of, FailingServer, testing::ValuesIn(kFailures),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_F(UsbServer, ends_if_a_connection_gets_no_thread)
{
    const std::size_t descriptors = descriptorsOpen();
    const MessagesOn messages;
    const SyslogCapture capture;
    {
        const WithSystemCalls calls({.accept4 = someClient, .poll = readable, .pthreadCreate = [] {
                                         errno = EAGAIN;
                                         return isServer ? EAGAIN : kPassThrough;
                                     }});
        runServer();
    }
    EXPECT_EQ(serverState(), static_cast<uint32_t>(NOTIFY_STOPPED));
    EXPECT_THAT(capture.lines(),
                ElementsAre(LogLine{"", LOG_INFO, kStarted}, LogLine{"", LOG_INFO, "USB server - create thread error"},
                            LogLine{"", LOG_INFO, "USB server - terminated"},
                            LogLine{"", LOG_ERR, "USB server - abnormal terminated6 11 Resource temporarily unavailable"}));
    EXPECT_EQ(descriptorsOpen(), descriptors) << "the client's descriptor is closed too";
}

TEST_F(UsbServer, reports_a_requested_stop_rather_than_a_failure)
{
    const WithSystemCalls calls({.poll = [](pollfd *, nfds_t, int) {
        if (isServer) {
            requestStop();
            errno = ENOMEM;
            return -1;
        }
        return kPassThrough;
    }});
    const SyslogCapture capture;
    runServer();
    EXPECT_EQ(serverState(), static_cast<uint32_t>(NOTIFY_STOP_DONE));
    EXPECT_THAT(capture.texts(), ElementsAre(testing::StartsWith("USB server - terminated0 ")))
        << "the stop is checked before the failure";
}

TEST_F(UsbServer, checks_its_state_after_an_accept_too)
{
    const WithSystemCalls calls({.accept4 = [](int) {
        if (serverState() == NOTIFY_RUNNING && stopAtAccept.exchange(false)) {
            requestStop();
        }
        return kPassThrough;
    }});
    start();
    stopAtAccept = true;
    EXPECT_EQ(usbServerReply(kRemoved), "") << "accepted, but not served";
    EXPECT_TRUE(eventually([] { return serverState() == NOTIFY_STOP_DONE; }));
    EXPECT_THAT(recorder_.events(), testing::IsEmpty());
}

TEST_F(UsbServer, does_not_block_on_a_client_that_has_disappeared)
{
    std::atomic<int> calls{0};
    const WithSystemCalls replaced({.poll = [&](pollfd *descriptors, nfds_t, int milliseconds) {
        if (milliseconds != 1000 || calls++ != 0) {
            return kPassThrough;
        }
        descriptors->revents = POLLIN;
        return 1;
    }});
    ASSERT_EQ(kvo_hws_CreateThread(win_kvo_hws_usb_server, nullptr), 1);
    ASSERT_TRUE(eventually([&] { return calls > 1; })) << "accept has returned";
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

TEST_F(UsbServer, no_longer_listens_when_it_reports_its_end)
{
    const MessagesOn messages;
    std::atomic<bool> refused{false};
    start();
    const SyslogCapture capture([&] {
        if (serverState() != NOTIFY_STOP_REQUESTED) {
            refused = usbServerReply(kRemoved) == "(no server)";
        }
    });
    requestStop();
    EXPECT_TRUE(eventually([] { return serverState() == NOTIFY_STOP_DONE; }));
    EXPECT_TRUE(eventually([&] { return refused.load(); }));
}

TEST_F(UsbServer, continues_after_an_empty_accept_and_after_interruptions)
{
    std::atomic<int> accepts{0};
    std::atomic<int> waits{0};
    const WithSystemCalls calls({.accept4 =
                                     [&](int) {
                                         const int count = accepts++;
                                         errno = count == 0 ? EAGAIN : EINTR;
                                         return count < 2 ? -1 : kPassThrough;
                                     },
                                 .poll =
                                     [&](pollfd *, nfds_t, int milliseconds) {
                                         errno = EINTR;
                                         return milliseconds == 1000 && waits++ == 0 ? -1 : kPassThrough;
                                     }});
    start();
    EXPECT_EQ(usbServerReply(kRemoved), "ok\n");
    EXPECT_GT(accepts, 2);
    EXPECT_GT(waits, 1) << "each wait lasts one second at most";
}

/// The last line goes to the system log at any debug level, with the debug message channel on or off.
TEST_F(UsbServer, logs_how_it_ended_after_a_normal_end)
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

TEST_F(UsbServer, logs_its_steps_as_debug_messages)
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

}  // namespace
