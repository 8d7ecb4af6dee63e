// Every text of a USB event with every set of callbacks: which callback is called, what is answered, and what is logged.
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>
#include <kvo_hws/usbevents.h>

#include "support/syslog_capture.h"
#include "support/usb_events.h"
#include "usbevents/connection.h"

#include <cstring>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <vector>

namespace {

using support::EventRecorder;
using support::MessagesOn;
using support::RecordedEvent;
using support::SyslogCapture;
using usbevents_test::answerTo;
using usbevents_test::kNew;
using usbevents_test::kRefused;
using usbevents_test::kRemoved;
using usbevents_test::kState;

enum Set { kNone = 0, kOlder = 1, kNewer = 2, kBoth = 3 };

struct Exchange {
    const char *name;
    int callbacks;
    std::string text;
    int32_t result;                     ///< what the callbacks return
    std::string answer;                 ///< without its line feed
    std::vector<RecordedEvent> events;  ///< only the beginning of each record is compared
    std::string message = "";           ///< what is logged between the text and the answer; empty: nothing
};

std::ostream &operator<<(std::ostream &out, const Exchange &row) { return out << row.name; }

class Exchanges : public testing::TestWithParam<Exchange> {
protected:
    void TearDown() override { SetFunction_SendUSBEvent_NULL(); }
};

TEST_P(Exchanges, calls_back_answers_and_logs)
{
    const Exchange &row = GetParam();
    const EventRecorder recorder([&row](const RecordedEvent &) { return row.result; });
    sendUSBEvent = (row.callbacks & kOlder) != 0 ? EventRecorder::older : nullptr;
    sendUSBEvent2 = (row.callbacks & kNewer) != 0 ? EventRecorder::newer : nullptr;
    const MessagesOn messages;
    const SyslogCapture capture;
    EXPECT_EQ(answerTo(row.text), row.answer + "\n");

    const auto events = recorder.events();
    ASSERT_EQ(events.size(), row.events.size());
    for (std::size_t event = 0; event < events.size(); ++event) {
        EXPECT_EQ(events[event].generation, row.events[event].generation);
        EXPECT_EQ(events[event].code, row.events[event].code);
        EXPECT_EQ(events[event].length, row.events[event].length);
        EXPECT_STREQ(events[event].record.c_str(), row.events[event].record.c_str());
    }
    std::vector<std::string> expected{"USB server - received text from client '" + row.text + "'"};
    if (!row.message.empty()) {
        expected.push_back(row.message);
    }
    expected.push_back("USB server - sending text to client '" + row.answer + "'");
    EXPECT_EQ(capture.texts(), expected);
}

const std::string kAddress = "10.0.0.5";

const std::vector<Exchange> kExchanges = {
    {"new_with_the_newer_callback", kNewer, kNew, 0, "ok", {{2, 10, 216, kAddress}}},
    {"new_with_the_older_callback", kOlder, kNew, 0, "ok", {{1, 10, 0, kAddress}}},
    {"new_with_both_callbacks", kBoth, kNew, 0, "ok", {{2, 10, 216, kAddress}}},
    {"new_without_a_callback", kNone, kNew, 0, "failed", {}, " ExecuteNewUSBDevice SendUSBEventCheckNULL fails '-1'"},
    {"new_if_the_newer_callback_fails",
     kNewer,
     kNew,
     -1,
     "failed",
     {{2, 10, 216, kAddress}},
     " ExecuteNewUSBDevice SendUSBEventCheckNULL fails '-1'"},
    {"new_if_the_older_callback_fails",
     kOlder,
     kNew,
     -1,
     "failed",
     {{1, 10, 0, kAddress}},
     " ExecuteNewUSBDevice SendUSBEventCheckNULL fails '-1'"},
    {"new_if_the_callback_returns_minus_2", kNewer, kNew, -2, "ok", {{2, 10, 216, kAddress}}},
    {"new_malformed",
     kNewer,
     "newUSBdevice*10.0.0.5*a*b*c*d*e*f*12G4*",
     0,
     "failed",
     {},
     " ExecuteNewUSBDevice ConvertText2USBDeviceNew fails -10"},
    {"new_malformed_with_the_older_callback",
     kOlder,
     "newUSBdevice*10.0.0.5*",
     0,
     "failed",
     {},
     " ExecuteNewUSBDevice ConvertText2USBDeviceNew fails -3"},
    {"new_malformed_without_a_callback",
     kNone,
     "newUSBdevice*10.0.0.5*",
     0,
     "failed",
     {},
     " ExecuteNewUSBDevice SendUSBEventCheckNULL fails '-1'"},
    {"new_with_a_longer_keyword", kNewer, "newUSBdeviceXYZ" + kNew.substr(12), 0, "ok", {{2, 10, 216, kAddress}}},

    {"removed_with_the_newer_callback", kNewer, kRemoved, 0, "ok", {{2, 11, 88, kAddress}}},
    {"removed_with_the_older_callback", kOlder, kRemoved, 0, "ok", {{1, 11, 0, kAddress}}},
    {"removed_with_both_callbacks", kBoth, kRemoved, 0, "ok", {{2, 11, 88, kAddress}}},
    {"removed_without_a_callback", kNone, kRemoved, 0, "failed", {}},
    {"removed_if_the_newer_callback_fails", kNewer, kRemoved, -1, "failed", {{2, 11, 88, kAddress}}},
    {"removed_if_the_older_callback_fails", kOlder, kRemoved, -1, "failed", {{1, 11, 0, kAddress}}},
    // The only malformed text that is answered with an empty line.
    {"removed_malformed", kNewer, "removeUSBdevice*10.0.0.5*usb1*", 0, "", {}},
    {"removed_malformed_with_the_older_callback", kOlder, "removeUSBdevice*10.0.0.5*usb1*", 0, "", {}},
    {"removed_malformed_without_a_callback", kNone, "removeUSBdevice*", 0, "failed", {}},

    {"state_with_the_newer_callback", kNewer, kState, 0, "ok", {{2, 13, 92, kAddress}}},
    {"state_with_both_callbacks", kBoth, kState, 0, "ok", {{2, 13, 92, kAddress}}},
    {"state_with_the_older_callback", kOlder, kState, 0, "failed", {}},
    {"state_without_a_callback", kNone, kState, 0, "failed", {}},
    {"state_if_the_newer_callback_fails", kNewer, kState, -1, "failed", {{2, 13, 92, kAddress}}},
    {"state_malformed", kNewer, "changeStateUSBdevice*10.0.0.5*a*b*x*", 0, "failed", {}},

    {"refused_with_the_newer_callback", kNewer, kRefused, 0, "ok", {{2, 14, 212, kAddress}}},
    {"refused_with_both_callbacks", kBoth, kRefused, 0, "ok", {{2, 14, 212, kAddress}}},
    {"refused_with_the_older_callback",
     kOlder,
     kRefused,
     0,
     "failed",
     {},
     " ExecuteIgnoreUSBDevice SendUSBEventCheckNULL fails '-1'"},
    {"refused_without_a_callback",
     kNone,
     kRefused,
     0,
     "failed",
     {},
     " ExecuteIgnoreUSBDevice SendUSBEventCheckNULL fails '-1'"},
    {"refused_malformed_without_a_callback",
     kNone,
     "ignoreUSBdevice*",
     0,
     "failed",
     {},
     " ExecuteIgnoreUSBDevice SendUSBEventCheckNULL fails '-1'"},
    {"refused_if_the_newer_callback_fails",
     kNewer,
     kRefused,
     -1,
     "failed",
     {{2, 14, 212, kAddress}},
     " ExecuteIgnoreUSBDevice SendUSBEventCheckNULL fails '-1'"},
    {"refused_malformed",
     kNewer,
     "ignoreUSBdevice*10.0.0.5*a*b*c*d*e*1*2*zz*",
     0,
     "failed",
     {},
     " ExecuteIgnoreUSBDevice ConvertText2USBDeviceNew fails -14"},

    {"unknown", kNewer, "hello", 0, "unknown request", {}},
    {"empty", kNewer, "", 0, "unknown request", {}},
    {"keyword_in_the_middle", kNewer, " newUSBdevice*", 0, "unknown request", {}},
    {"keyword_cut_short", kNewer, "newUSBdevic", 0, "unknown request", {}},
    {"keyword_in_other_case", kNewer, "NEWUSBDEVICE*", 0, "unknown request", {}},
    {"suicide_and_a_blank", kNewer, "suicide ", 0, "unknown request", {}},
    {"suicide_and_a_letter", kNewer, "suicidex", 0, "unknown request", {}}};

INSTANTIATE_TEST_SUITE_P(Of, Exchanges, testing::ValuesIn(kExchanges),
                         [](const auto &row) { return std::string(row.param.name); });

}  // namespace
