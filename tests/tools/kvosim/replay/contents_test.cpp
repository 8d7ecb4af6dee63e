// What a recording contains for a replay: the order of requests, and the groups of events.
#include "kvosim/replay/contents.h"
#include "tools/kvosim/compare/recordings.h"
#include "tools/kvosim/support/named_row.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using kvosim::Contents;
using kvosim::EventGroup;
using kvosim::Exchange;
using kvosim::Recording;
using kvosim_test::recordingOf;

std::string textAt(const Recording &recording, kvosim::LineIndex line)
{
    const std::string bytes = joined(std::get<Exchange>(recording.line(line)).request);
    return bytes.substr(0, bytes.find('\n'));
}

std::vector<std::string> requestsOf(const std::string &lines)
{
    const Recording recording = recordingOf(lines);
    std::vector<std::string> texts;
    for (const auto &request : kvosim::contentsOf(recording).requests) {
        texts.push_back(textAt(recording, request.line));
    }
    return texts;
}

/// "offset in milliseconds:event" of each event, with a blank between.
std::string shown(const Recording &recording, const EventGroup &group)
{
    std::string text;
    for (const auto &event : group) {
        text += (text.empty() ? "" : " ") + std::to_string(event.offset.count() / 1000) + ':' + textAt(recording, event.line);
    }
    return text;
}

TEST(ReplayContents, orders_requests_by_the_time_of_their_line_end)
{
    EXPECT_EQ(requestsOf("3.0 ask 1 > \"c\\n\" < \"ok\\n\"\n"
                         "1.0 ask 1 > \"a\" +3.0 \"\\n\" +9.0 \"more\\n\" < \"ok\\n\"\n"
                         "2.0 ask 1 > \"b\\n\" < \"ok\\n\"\n"
                         "2.0 ask 1 > \"b2\\n\" < \"ok\\n\"\n"),
              (std::vector<std::string>{"b", "b2", "c", "a"}));
}

TEST(ReplayContents, leaves_out_requests_without_a_line_end)
{
    const Contents contents = kvosim::contentsOf(recordingOf("1.0 ask 1 > \"getVer\" < left\n"
                                                             "2.0 ask 1 > \"getVer\" eof < left\n"
                                                             "3.0 ask 1 > < left\n"));
    EXPECT_TRUE(contents.requests.empty());
    EXPECT_EQ(contents.withoutLineEnd, 2U) << "a connection without a request does not count";
}

struct LineRow : kvosim_test::NamedRow {
    std::string request;
    std::optional<std::string> line;
};

class RequestLine : public testing::TestWithParam<LineRow> {};

TEST_P(RequestLine, is_what_the_service_reads)
{
    const Recording recording = recordingOf("1.0 ask 1 > " + GetParam().request + " < left\n");
    EXPECT_EQ(kvosim::requestLineOf(std::get<Exchange>(recording.line(0))), GetParam().line);
}

const std::vector<LineRow> kLines = {
    {"whole", R"("getVersion\n")", "getVersion"},
    {"carriage_return", R"("getVersion\r\n")", "getVersion"},
    {"two_carriage_returns", R"("getVersion\r\r\n")", "getVersion\r"},
    {"pieces", R"("get" +0.1 "Ver" "sion\r" "\n")", "getVersion"},
    {"two_lines", R"("getVersion\nkillDaemon\n")", "getVersion"},
    {"zero_byte", R"("a\x00b\n")", std::string("a\0b", 3)},
    {"empty", R"("\n")", ""},
    {"no_line_end", R"("getVersion")", std::nullopt},
    {"nothing", "", std::nullopt},
};

INSTANTIATE_TEST_SUITE_P(Table, RequestLine, testing::ValuesIn(kLines), kvosim_test::kNameOfRow);

struct GroupRow : kvosim_test::NamedRow {
    std::string lines;
    std::vector<std::string> usb;
    std::vector<std::string> listeners;
    std::string shared;
};

class ReplayGroups : public testing::TestWithParam<GroupRow> {};

TEST_P(ReplayGroups, follow_activations_and_listeners)
{
    const Recording recording = recordingOf("process 2 4712 \"other\"\nprocess 3 0 \"\"\n" + GetParam().lines);
    const Contents contents = kvosim::contentsOf(recording);
    std::vector<std::string> usb;
    std::vector<std::string> listeners;
    for (const EventGroup &group : contents.usbEvents) {
        usb.push_back(shown(recording, group));
    }
    for (const EventGroup &group : contents.listenerEvents) {
        listeners.push_back(shown(recording, group));
    }
    EXPECT_EQ(usb, GetParam().usb);
    EXPECT_EQ(listeners, GetParam().listeners);
    EXPECT_EQ(shown(recording, contents.sharedEvents), GetParam().shared);
}

const std::string kActivate = " ask 1 > \"activateUSBEvents\\n\" < \"ok\\n\"\n";

std::string usbEvent(const std::string &at, const std::string &text, const std::string &process = "2")
{
    return at + " usb " + process + " > \"" + text + "\\n\" < \"ok\\n\"\n";
}

std::string event(const std::string &at, const std::string &process, const std::string &text)
{
    return at + " event " + process + " > " + (text.empty() ? "" : '"' + text + "\\n\" ") + "<\n";
}

const std::vector<GroupRow> kGroups = {
    {"none", "1.0 ask 1 > \"getVersion\\n\" < \"V1\\n\"\n", {}, {}, ""},
    {"after_each_activation",
     "1.0" + kActivate + usbEvent("1.5", "a") + usbEvent("2.5", "b") + "3.0" + kActivate + usbEvent("3.1", "c"),
     {"500:a 1500:b", "100:c"},
     {},
     ""},
    {"in_the_order_of_time", usbEvent("2.5", "b") + usbEvent("1.5", "a") + "1.0" + kActivate, {"500:a 1500:b"}, {}, ""},
    {"before_the_first_activation", usbEvent("1.5", "a") + "2.0" + kActivate + usbEvent("2.1", "b"), {"100:b 1500:a"}, {}, ""},
    {"without_an_activation", usbEvent("1.5", "a"), {"1500:a"}, {}, ""},
    {"activation_without_events", "1.0" + kActivate + "2.0" + kActivate + usbEvent("2.5", "a"), {"", "500:a"}, {}, ""},
    {"connection_without_an_event", "1.0" + kActivate + "1.5 usb 2 > <\n", {""}, {}, ""},
    {"takeover_by_a_program_of_the_replay", "1.0" + kActivate + usbEvent("1.5", "suicide", "1"), {""}, {}, ""},
    {"takeover_from_outside", "1.0" + kActivate + usbEvent("1.5", "suicide", "2"), {"500:suicide"}, {}, ""},
    {"takeover_by_an_unknown_program",
     "1.0" + kActivate + usbEvent("1.5", "suicide", "3") + usbEvent("1.6", "suicide", "0"),
     {""},
     {},
     ""},
    {"events_of_an_asking_program", "1.0" + kActivate + usbEvent("1.5", "a", "1"), {"500:a"}, {}, ""},
    {"listeners_of_two_programs",
     event("1.0", "1", "") + event("2.0", "2", "") + event("2.5", "1", "a") + event("2.5", "2", "a") + event("3.0", "2", "b"),
     {},
     {"1500:a", "500:a 1000:b"},
     ""},
    {"listener_again",
     event("1.0", "1", "") + event("1.5", "1", "a") + event("2.0", "1", "") + event("2.5", "1", "b"),
     {},
     {"500:a", "500:b"},
     ""},
    {"event_before_the_listener", event("0.5", "1", "a") + event("1.0", "1", ""), {}, {""}, "500:a"},
    {"without_a_listener", event("1.5", "0", "a") + event("1.0", "0", "b"), {}, {}, "1000:b 1500:a"},
};

INSTANTIATE_TEST_SUITE_P(Table, ReplayGroups, testing::ValuesIn(kGroups), kvosim_test::kNameOfRow);

TEST(ReplayContents, counts_events)
{
    const Contents contents = kvosim::contentsOf(
        recordingOf("process 2 4712 \"other\"\n1.0" + kActivate + usbEvent("1.5", "a") + "2.0" + kActivate +
                    usbEvent("2.5", "b") + event("1.0", "1", "") + event("1.5", "1", "c") + event("1.5", "0", "d")));
    EXPECT_EQ(contents.usbEventCount(), 2U);
    EXPECT_EQ(contents.embeddedEventCount(), 2U);
}

}  // namespace
