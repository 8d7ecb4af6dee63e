// One connection of the USB event server: what comes in, who is told, what goes out.
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>
#include <kvo_hws/usbevents.h>

#include "support/own_thread.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"
#include "support/usb_events.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <syslog.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace std::chrono_literals;

namespace {

using support::EventRecorder;
using support::MessagesOn;
using support::SyslogCapture;
using support::ToldEvent;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;

using Clock = std::chrono::steady_clock;

const std::string kNew = "newUSBdevice*10.0.0.5*usb1*1-1.4*SanDisk*8.02*Media*Cruzer*00000001*00000002*80000000*0001*0002*" +
                         std::string("00 01 02 ") + "*";
const std::string kRefused = "ignoreUSBdevice*10.0.0.5*usb1*1-1.4*SanDisk*8.02*not here*00000001*00000002*0003*";
const std::string kState = "changeStateUSBdevice*10.0.0.5*usb1*1-1.4*00000007*";
const std::string kRemoved = "removeUSBdevice*10.0.0.5*usb1*1-1.4*";

/// A connection that ConInstThread serves on a thread of its own; the test is the daemon.
class Connection {
public:
    Connection()
    {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        daemon_ = ends[0];
        EXPECT_EQ(kvo_hws_CreateThread(ConInstThread, reinterpret_cast<void *>(intptr_t{ends[1]})), 1);
    }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;
    ~Connection() { close(daemon_); }

    void send(const std::string &bytes) const
    {
        EXPECT_EQ(write(daemon_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }

    /// Everything until the library closes.
    [[nodiscard]] std::string answer() const
    {
        std::string answer;
        char piece[64];
        for (ssize_t count = 0; (count = read(daemon_, piece, sizeof piece)) > 0;) {
            answer.append(piece, static_cast<std::size_t>(count));
        }
        return answer;
    }

    [[nodiscard]] bool readable(std::chrono::milliseconds within) const
    {
        pollfd waiting{.fd = daemon_, .events = POLLIN, .revents = 0};
        return poll(&waiting, 1, static_cast<int>(within.count())) == 1;
    }

private:
    int daemon_ = -1;
};

std::string answerTo(const std::string &text)
{
    const Connection connection;
    connection.send(text + "\n");
    return connection.answer();
}

// ---- Every text against every set of callbacks ----

enum Set { kNone = 0, kOlder = 1, kNewer = 2, kBoth = 3 };

struct Exchange {
    const char *name;
    int callbacks;
    std::string text;
    int32_t result;               ///< what the callbacks return
    std::string answer;           ///< without its line feed
    std::vector<ToldEvent> told;  ///< records are compared by their beginning
    std::string message = "";     ///< between those of the text and the answer; empty: none
};

std::ostream &operator<<(std::ostream &out, const Exchange &row) { return out << row.name; }

class Exchanges : public testing::TestWithParam<Exchange> {
protected:
    void TearDown() override { SetFunction_SendUSBEvent_NULL(); }
};

TEST_P(Exchanges, is_told_answered_and_logged)
{
    const Exchange &row = GetParam();
    const EventRecorder recorder([&row](const ToldEvent &) { return row.result; });
    sendUSBEvent = (row.callbacks & kOlder) != 0 ? EventRecorder::older : nullptr;
    sendUSBEvent2 = (row.callbacks & kNewer) != 0 ? EventRecorder::newer : nullptr;
    const MessagesOn messages;
    const SyslogCapture capture;
    EXPECT_EQ(answerTo(row.text), row.answer + "\n");

    const auto told = recorder.events();
    ASSERT_EQ(told.size(), row.told.size());
    for (std::size_t event = 0; event < told.size(); ++event) {
        EXPECT_EQ(told[event].generation, row.told[event].generation);
        EXPECT_EQ(told[event].code, row.told[event].code);
        EXPECT_EQ(told[event].length, row.told[event].length);
        EXPECT_STREQ(told[event].record.c_str(), row.told[event].record.c_str());
    }
    std::vector<std::string> expected{"USB server - received text from client '" + row.text + "'"};
    if (!row.message.empty()) {
        expected.push_back(row.message);
    }
    expected.push_back("USB server - sending text to client '" + row.answer + "'");
    EXPECT_EQ(capture.texts(), expected);
}

const std::string kAddress = "10.0.0.5";

INSTANTIATE_TEST_SUITE_P(
    Of, Exchanges,
    testing::Values(
        Exchange{"new_newer", kNewer, kNew, 0, "ok", {{2, 10, 216, kAddress}}},
        Exchange{"new_older", kOlder, kNew, 0, "ok", {{1, 10, 0, kAddress}}},
        Exchange{"new_both", kBoth, kNew, 0, "ok", {{2, 10, 216, kAddress}}},
        Exchange{"new_none", kNone, kNew, 0, "failed", {}, " ExecuteNewUSBDevice SendUSBEventCheckNULL fails '-1'"},
        Exchange{"new_callback_fails",
                 kNewer,
                 kNew,
                 -1,
                 "failed",
                 {{2, 10, 216, kAddress}},
                 " ExecuteNewUSBDevice SendUSBEventCheckNULL fails '-1'"},
        Exchange{"new_older_callback_fails",
                 kOlder,
                 kNew,
                 -1,
                 "failed",
                 {{1, 10, 0, kAddress}},
                 " ExecuteNewUSBDevice SendUSBEventCheckNULL fails '-1'"},
        Exchange{"new_other_results_are_no_failure", kNewer, kNew, -2, "ok", {{2, 10, 216, kAddress}}},
        Exchange{"new_malformed",
                 kNewer,
                 "newUSBdevice*10.0.0.5*a*b*c*d*e*f*12G4*",
                 0,
                 "failed",
                 {},
                 " ExecuteNewUSBDevice ConvertText2USBDeviceNew fails -10"},
        Exchange{"new_malformed_older",
                 kOlder,
                 "newUSBdevice*10.0.0.5*",
                 0,
                 "failed",
                 {},
                 " ExecuteNewUSBDevice ConvertText2USBDeviceNew fails -3"},
        Exchange{"new_malformed_none",
                 kNone,
                 "newUSBdevice*10.0.0.5*",
                 0,
                 "failed",
                 {},
                 " ExecuteNewUSBDevice SendUSBEventCheckNULL fails '-1'"},
        Exchange{"new_needs_only_to_begin_so", kNewer, "newUSBdeviceXYZ" + kNew.substr(12), 0, "ok", {{2, 10, 216, kAddress}}},

        Exchange{"removed_newer", kNewer, kRemoved, 0, "ok", {{2, 11, 88, kAddress}}},
        Exchange{"removed_older", kOlder, kRemoved, 0, "ok", {{1, 11, 0, kAddress}}},
        Exchange{"removed_both", kBoth, kRemoved, 0, "ok", {{2, 11, 88, kAddress}}},
        Exchange{"removed_none", kNone, kRemoved, 0, "failed", {}},
        Exchange{"removed_callback_fails", kNewer, kRemoved, -1, "failed", {{2, 11, 88, kAddress}}},
        Exchange{"removed_older_callback_fails", kOlder, kRemoved, -1, "failed", {{1, 11, 0, kAddress}}},
        // The one malformed text that is answered with an empty line.
        Exchange{"removed_malformed", kNewer, "removeUSBdevice*10.0.0.5*usb1*", 0, "", {}},
        Exchange{"removed_malformed_older", kOlder, "removeUSBdevice*10.0.0.5*usb1*", 0, "", {}},
        Exchange{"removed_malformed_none", kNone, "removeUSBdevice*", 0, "failed", {}},

        Exchange{"state_newer", kNewer, kState, 0, "ok", {{2, 13, 92, kAddress}}},
        Exchange{"state_both", kBoth, kState, 0, "ok", {{2, 13, 92, kAddress}}},
        Exchange{"state_older_is_not_told", kOlder, kState, 0, "failed", {}},
        Exchange{"state_none", kNone, kState, 0, "failed", {}},
        Exchange{"state_callback_fails", kNewer, kState, -1, "failed", {{2, 13, 92, kAddress}}},
        Exchange{"state_malformed", kNewer, "changeStateUSBdevice*10.0.0.5*a*b*x*", 0, "failed", {}},

        Exchange{"refused_newer", kNewer, kRefused, 0, "ok", {{2, 14, 212, kAddress}}},
        Exchange{"refused_both", kBoth, kRefused, 0, "ok", {{2, 14, 212, kAddress}}},
        Exchange{"refused_older_is_not_told",
                 kOlder,
                 kRefused,
                 0,
                 "failed",
                 {},
                 " ExecuteIgnoreUSBDevice SendUSBEventCheckNULL fails '-1'"},
        Exchange{"refused_none", kNone, kRefused, 0, "failed", {}, " ExecuteIgnoreUSBDevice SendUSBEventCheckNULL fails '-1'"},
        Exchange{"refused_none_malformed",
                 kNone,
                 "ignoreUSBdevice*",
                 0,
                 "failed",
                 {},
                 " ExecuteIgnoreUSBDevice SendUSBEventCheckNULL fails '-1'"},
        Exchange{"refused_callback_fails",
                 kNewer,
                 kRefused,
                 -1,
                 "failed",
                 {{2, 14, 212, kAddress}},
                 " ExecuteIgnoreUSBDevice SendUSBEventCheckNULL fails '-1'"},
        Exchange{"refused_malformed",
                 kNewer,
                 "ignoreUSBdevice*10.0.0.5*a*b*c*d*e*1*2*zz*",
                 0,
                 "failed",
                 {},
                 " ExecuteIgnoreUSBDevice ConvertText2USBDeviceNew fails -14"},

        Exchange{"unknown", kNewer, "hello", 0, "unknown request", {}}, Exchange{"empty", kNewer, "", 0, "unknown request", {}},
        Exchange{"keyword_in_the_middle", kNewer, " newUSBdevice*", 0, "unknown request", {}},
        Exchange{"keyword_cut_short", kNewer, "newUSBdevic", 0, "unknown request", {}},
        Exchange{"keyword_in_other_case", kNewer, "NEWUSBDEVICE*", 0, "unknown request", {}},
        Exchange{"suicide_and_a_blank", kNewer, "suicide ", 0, "unknown request", {}},
        Exchange{"suicidex", kNewer, "suicidex", 0, "unknown request", {}}),
    [](const auto &row) { return std::string(row.param.name); });

// ---- Records ----

class ConnectionTest : public testing::Test {
protected:
    void TearDown() override { SetFunction_SendUSBEvent_NULL(); }
};

TEST_F(ConnectionTest, fills_the_newer_callbacks_records)
{
    const EventRecorder recorder;
    sendUSBEvent2 = EventRecorder::newer;
    for (const std::string &text : {kNew, kRemoved, kState, kRefused}) {
        EXPECT_EQ(answerTo(text), "ok\n");
    }
    const auto events = recorder.events();
    ASSERT_EQ(events.size(), 4U);
    UsbDeviceInfo device{};
    std::memcpy(&device, events[0].record.data(), events[0].record.size());
    EXPECT_STREQ(device.text7, "Cruzer");
    EXPECT_EQ(device.number2, 2U);
    EXPECT_EQ(device.flagBits, 1 | 2 << 1 | 1 << 3);
    UsbRemoveInfo removed{};
    ASSERT_EQ(events[1].record.size(), sizeof removed);
    std::memcpy(&removed, events[1].record.data(), sizeof removed);
    EXPECT_STREQ(removed.ident3, "1-1.4");
    UsbStateInfo state{};
    ASSERT_EQ(events[2].record.size(), sizeof state);
    std::memcpy(&state, events[2].record.data(), sizeof state);
    EXPECT_EQ(state.state, 7U);
    UsbDeviceInfo refused{};
    std::memcpy(&refused, events[3].record.data(), events[3].record.size());
    EXPECT_STREQ(refused.text8, "not here");
    EXPECT_EQ(refused.number3, 3);
}

TEST_F(ConnectionTest, fills_the_older_callbacks_264_bytes)
{
    const EventRecorder recorder;
    sendUSBEvent = EventRecorder::older;
    EXPECT_EQ(answerTo(kNew), "ok\n");
    EXPECT_EQ(answerTo(kRemoved), "ok\n");
    const auto events = recorder.events();
    ASSERT_EQ(events.size(), 2U);
    UsbDeviceV1 device{};
    ASSERT_EQ(events[0].record.size(), 264U);
    std::memcpy(&device, events[0].record.data(), sizeof device);
    EXPECT_STREQ(device.text5, "8.02");
    EXPECT_EQ(device.id1, 1);
    EXPECT_EQ(device.bytes[0], 2) << "the low byte of id2";
    EXPECT_EQ(events[1].record.substr(sizeof(UsbRemoveInfo)), std::string(264 - sizeof(UsbRemoveInfo), '\0'));
}

TEST_F(ConnectionTest, clears_each_record_first)
{
    const EventRecorder recorder;
    const std::string longText = "newUSBdevice*" + std::string(15, 'x') + "*" + std::string(31, 'x') + "*" +
                                 std::string(31, 'x') + "*" + std::string(20, 'x') + "*" + std::string(9, 'x') + "*" +
                                 std::string(39, 'x') + "*" + std::string(39, 'x') +
                                 "*FFFFFFFF*FFFFFFFF*FFFFFFFF*FFFF*FFFF*00 *";
    const std::string shortText = "newUSBdevice*a*b*c*d*e*f*g*0*0*0*0*0*00 *";
    const std::string shortRemoval = "removeUSBdevice*a*b*c*";
    for (const bool newer : {true, false}) {
        sendUSBEvent2 = newer ? EventRecorder::newer : nullptr;
        sendUSBEvent = newer ? nullptr : EventRecorder::older;
        for (const std::string &text : {longText, shortText, shortRemoval}) {
            EXPECT_EQ(answerTo(text), "ok\n");
        }
    }
    for (const ToldEvent &event : recorder.events()) {
        if (event.record[0] == 'a') {
            EXPECT_EQ(event.record.find_first_not_of(std::string("abcdefg\0", 8)), std::string::npos) << event.code;
        }
    }
    EXPECT_EQ(recorder.events().size(), 6U);
}

// ---- How a line comes in and an answer goes out ----

TEST_F(ConnectionTest, takes_a_carriage_return_before_the_line_feed)
{
    const EventRecorder recorder;
    sendUSBEvent2 = EventRecorder::newer;
    EXPECT_EQ(answerTo(kRemoved + "\r"), "ok\n");
}

TEST_F(ConnectionTest, answers_one_text_a_connection)
{
    const EventRecorder recorder;
    sendUSBEvent2 = EventRecorder::newer;
    const Connection connection;
    connection.send(kRemoved + "\n" + kRemoved + "\n");
    EXPECT_TRUE(connection.readable(5s));
    EXPECT_EQ(recorder.events().size(), 1U);
}

TEST_F(ConnectionTest, closes_100_ms_after_the_answer)
{
    const Connection connection;
    connection.send("hello\n");
    ASSERT_TRUE(connection.readable(5s));
    const auto answered = Clock::now();
    EXPECT_EQ(connection.answer(), "unknown request\n");
    EXPECT_GE(Clock::now() - answered, 90ms);
    EXPECT_LT(Clock::now() - answered, 2s);
}

TEST_F(ConnectionTest, an_end_before_the_line_end_fails)
{
    const MessagesOn messages;
    const SyslogCapture capture;
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    ASSERT_EQ(write(ends[0], "half", 4), 4);
    shutdown(ends[0], SHUT_WR);
    ASSERT_EQ(kvo_hws_CreateThread(ConInstThread, reinterpret_cast<void *>(intptr_t{ends[1]})), 1);
    char answer[16] = {};
    EXPECT_EQ(read(ends[0], answer, sizeof answer), 7);
    EXPECT_STREQ(answer, "failed\n");
    EXPECT_THAT(capture.texts(),
                ElementsAre("USB server - received text error", "USB server - sending text to client 'failed'"));
    EXPECT_EQ(read(ends[0], answer, 1), 0);
    close(ends[0]);
}

TEST_F(ConnectionTest, a_receive_error_fails)
{
    const support::WithSystemCalls calls({.recv = [](int, void *, std::size_t, int) {
        errno = ECONNRESET;
        return ssize_t{-1};
    }});
    const MessagesOn messages;
    const SyslogCapture capture;
    EXPECT_EQ(answerTo("hello"), "failed\n");
    EXPECT_EQ(capture.texts().front(), "USB server - received text error");
}

TEST_F(ConnectionTest, runs_detached)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    close(ends[0]);
    EXPECT_EQ(support::onOwnThread([end = ends[1]] {
                  ConInstThread(reinterpret_cast<void *>(intptr_t{end}));
                  return kvo_hws_detach_thread();
              }),
              -1);
}

TEST_F(ConnectionTest, a_line_of_1024_bytes_without_an_end_fails)
{
    const Connection connection;
    connection.send(std::string(1024, 'x'));
    EXPECT_EQ(connection.answer(), "failed\n");
}

TEST_F(ConnectionTest, silence_fails_after_4_s)
{
    const Connection silent;
    const Connection half;
    half.send("newUSBdevice*10.0.0.5*");
    const auto start = Clock::now();
    EXPECT_EQ(silent.answer(), "failed\n");
    EXPECT_EQ(half.answer(), "failed\n");
    EXPECT_GE(Clock::now() - start, 3900ms);
    EXPECT_LT(Clock::now() - start, 8s);
}

TEST_F(ConnectionTest, a_client_that_does_not_wait_for_the_answer_harms_nobody)
{
    const EventRecorder recorder([](const ToldEvent &) {
        std::this_thread::sleep_for(50ms);
        return 0;
    });
    sendUSBEvent2 = EventRecorder::newer;
    {
        const Connection connection;
        connection.send(kRemoved + "\n");
        ASSERT_TRUE(recorder.waitFor(1));
    }
    std::this_thread::sleep_for(300ms);  // the answer goes to a closed socket meanwhile, which must not raise SIGPIPE
    EXPECT_EQ(answerTo(kRemoved), "ok\n");
}

TEST_F(ConnectionTest, messages_end_at_255_characters_and_are_no_formats)
{
    const MessagesOn messages;
    const SyslogCapture capture;
    const std::string text = "%s%n%d" + std::string(600, 'x');
    EXPECT_EQ(answerTo(text), "unknown request\n");
    EXPECT_THAT(capture.texts().front(), ("USB server - received text from client '" + text).substr(0, 255));
}

// ---- The control word ----

class Suicide : public testing::Test {
protected:
    void SetUp() override
    {
        __atomic_store_n(&uiSuicide, 0U, __ATOMIC_SEQ_CST);
        sendUSBEvent = EventRecorder::older;
        sendUSBEvent2 = EventRecorder::newer;
    }
    void TearDown() override { SetFunction_SendUSBEvent_NULL(); }
};

uint32_t suicideServed() { return __atomic_load_n(&uiSuicide, __ATOMIC_SEQ_CST); }
void setServerState(uint32_t state) { __atomic_store_n(&ServerPipeThreadSyncState, state, __ATOMIC_SEQ_CST); }

TEST_F(Suicide, asks_the_service_tells_the_callback_and_takes_it_away)
{
    const support::ScriptedService service({support::agrees()});
    const EventRecorder recorder;
    EXPECT_EQ(answerTo("suicide"), "ok\n");
    EXPECT_THAT(service.requests(), ElementsAre("deactivateUSBEvents\n"));
    EXPECT_THAT(recorder.events(), ElementsAre(ToldEvent{2, USB_EVENT_DEACTIVATED, 8, ""}));
    EXPECT_EQ(sendUSBEvent, nullptr);
    EXPECT_EQ(sendUSBEvent2, nullptr);
    EXPECT_EQ(suicideServed(), 1U);
}

TEST_F(Suicide, tells_the_older_callback_where_it_is_the_only_one)
{
    const support::ScriptedService service({support::agrees()});
    const EventRecorder recorder;
    sendUSBEvent2 = nullptr;
    EXPECT_EQ(answerTo("suicide"), "ok\n");
    EXPECT_THAT(recorder.events(), ElementsAre(ToldEvent{1, USB_EVENT_DEACTIVATED, 0, ""}));
}

TEST_F(Suicide, is_answered_failed_where_the_service_disagrees_and_gives_up_all_the_same)
{
    for (const char *const reply : {"failed", "ok ", ""}) {
        const support::ScriptedService service({support::replies(reply)});
        const EventRecorder recorder;
        sendUSBEvent2 = EventRecorder::newer;
        EXPECT_EQ(answerTo("suicide"), "failed\n");
        EXPECT_EQ(recorder.codes(), std::vector<uint32_t>{USB_EVENT_DEACTIVATED});
        EXPECT_EQ(sendUSBEvent2, nullptr);
    }
}

TEST_F(Suicide, is_answered_failed_without_a_service)
{
    const EventRecorder recorder;
    EXPECT_EQ(answerTo("suicide"), "failed\n");
    EXPECT_EQ(recorder.codes(), std::vector<uint32_t>{USB_EVENT_DEACTIVATED});
    EXPECT_EQ(suicideServed(), 1U);
}

TEST_F(Suicide, logs_no_answer_of_the_service)
{
    for (const char *const reply : {"ok", "failed", "busy"}) {
        const support::ScriptedService service({support::replies(reply)});
        const std::string answer = reply == std::string("ok") ? "ok" : "failed";
        const MessagesOn messages;
        const SyslogCapture capture;
        EXPECT_EQ(answerTo("suicide"), answer + "\n");
        EXPECT_THAT(capture.texts(), ElementsAre("USB server - received text from client 'suicide'",
                                                 "USB server - sending text to client '" + answer + "'"));
    }
}

TEST_F(Suicide, stops_a_running_server_once_the_connection_is_closed)
{
    const support::ScriptedService service({support::agrees()});
    const EventRecorder recorder;
    setServerState(NOTIFY_RUNNING);
    const Connection connection;
    connection.send("suicide\n");
    ASSERT_TRUE(connection.readable(5s));
    EXPECT_EQ(support::serverState(), static_cast<uint32_t>(NOTIFY_RUNNING)) << "its answer is not read yet";
    EXPECT_EQ(connection.answer(), "ok\n");
    EXPECT_TRUE(support::eventually([] { return support::serverState() == NOTIFY_STOP_REQUESTED; }));
    setServerState(NOTIFY_STOPPED);
}

TEST_F(Suicide, leaves_an_activation_alone_that_comes_while_the_service_is_asked)
{
    std::filesystem::create_directories("/tmp/kvo_hws");
    const support::ScriptedService service({support::answersWith([](const std::string &request) {
        if (request == "deactivateUSBEvents") {
            std::this_thread::sleep_for(500ms);
        }
        return std::string(request == "isInitComplete" ? "yes" : "ok");
    })});
    const EventRecorder recorder;
    sendUSBEvent = nullptr;
    const Connection connection;
    connection.send("suicide\n");
    ASSERT_TRUE(support::eventually([&] { return !service.requests().empty(); }));
    EXPECT_EQ(support::onOwnThread([] { return KVO_HWS_activateUSBEventsV2(EventRecorder::newer); }), 1);
    EXPECT_EQ(connection.answer(), "ok\n");
    ASSERT_TRUE(recorder.waitFor(3));
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(suicideServed(), 0U);
    EXPECT_EQ(support::serverState(), static_cast<uint32_t>(NOTIFY_RUNNING));
    EXPECT_EQ(support::answerOfUsbServer(kState + "\n"), "ok\n");
    support::onOwnThread(KVO_HWS_closeUSBEvents);
    EXPECT_TRUE(support::eventually([] { return __atomic_load_n(&sendUSBEvent2, __ATOMIC_SEQ_CST) == nullptr; }));
}

TEST_F(Suicide, changes_no_other_state)
{
    const support::ScriptedService service({support::agrees()});
    for (const uint32_t state : {NOTIFY_STOPPED, NOTIFY_STOP_REQUESTED, NOTIFY_STOP_DONE}) {
        setServerState(state);
        EXPECT_EQ(answerTo("suicide"), "ok\n");
        std::this_thread::sleep_for(50ms);
        EXPECT_EQ(support::serverState(), state);
    }
    setServerState(NOTIFY_STOPPED);
}

TEST_F(Suicide, no_other_text_stops_a_server)
{
    setServerState(NOTIFY_RUNNING);
    answerTo("unknown");
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(support::serverState(), static_cast<uint32_t>(NOTIFY_RUNNING));
    setServerState(NOTIFY_STOPPED);
}

}  // namespace
