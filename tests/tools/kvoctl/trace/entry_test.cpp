// What an exchange means: its lines, its outcome, its duration and its program.
#include "exchanges.h"

#include "catalogue/catalogue.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <ostream>
#include <set>
#include <vector>

namespace kvoctl_test {

namespace {

using kvoctl::isFailure;
using kvoctl::Outcome;

// ---- Outcomes ----

struct OutcomeRow {
    std::string name;
    Exchange exchange;
    Outcome outcome;
};

std::ostream &operator<<(std::ostream &out, const OutcomeRow &row) { return out << row.name; }

const std::vector<OutcomeRow> kOutcomes = {
    {"reply", exchange("getMCPAddress=0A000005\n", "mcpaddr=12\n"), Outcome::done},
    {"reply_with_a_carriage_return", exchange("setBacklight=1\r\n", "ok\r\n"), Outcome::done},
    {"failed", exchange("getMCPAddress=0A000005\n", "failed\n"), Outcome::refused},
    {"failed_with_a_carriage_return", exchange("getMCPAddress=0A000005\n", "failed\r\n"), Outcome::refused},
    {"failed_in_pieces", inPieces({{0us, "setBackli"}, {1ms, "ght=1\n"}}, {{1ms, "fai"}, {1ms, "led\n"}}), Outcome::refused},
    {"text_that_begins_with_failed", exchange("getVersion\n", "failed-over 1.0\n"), Outcome::done},
    {"busy", exchange("activateMe=0A000005\n", "busy\n"), Outcome::refused},
    {"several_stations", exchange("getIPbyMCPAddress=0000000C\n", "more_than_one_mcp\n"), Outcome::refused},
    {"viewer_that_is_not_active", exchange("isViewerActive=0A000005\n", "not active\n"), Outcome::done},
    {"backlight_that_is_not_active", exchange("setBacklightBrightnessV2=40 1 0A000005\n", "not active\n"), Outcome::refused},
    {"answer_no", exchange("isInitComplete\n", "no\n"), Outcome::done},
    {"empty_line", exchange("getMCPAddress=0A000005\n", "\n"), Outcome::refused},
    {"empty_line_that_is_a_text", exchange("getKVOt2m2n=0A000005\n", "\n"), Outcome::done},
    {"no_reply_in_time", exchange("getMCPAddress=0A000005\n", "", End::left), Outcome::silent},
    {"closed_without_a_reply", exchange("getMCPAddress=0A000005\n", ""), Outcome::closed},
    {"closed_in_the_middle", exchange("getMCPAddress=0A000005\n", "mcp"), Outcome::incomplete},
    {"left_in_the_middle", exchange("getMCPAddress=0A000005\n", "mcp", End::left), Outcome::incomplete},
    {"reset_without_a_reply", exchange("getMCPAddress=0A000005\n", "", End::reset), Outcome::reset},
    {"reset_after_the_reply", exchange("getMCPAddress=0A000005\n", "mcpaddr=12\n", End::reset), Outcome::done},
    {"still_open", exchange("getMCPAddress=0A000005\n", "", End::open), Outcome::open},
    {"nothing_sent", exchange("", ""), Outcome::done},
    {"usb_event", exchange("removeUSBdevice*10.0.0.5*a*b*\n", "ok\n", End::closed, Kind::usb), Outcome::done},
    {"usb_event_refused", exchange("removeUSBdevice*10.0.0.5*a*b*\n", "failed\n", End::closed, Kind::usb), Outcome::refused},
    {"usb_event_malformed", exchange("removeUSBdevice*10.0.0.5***\n", "\n", End::closed, Kind::usb), Outcome::refused},
    {"usb_event_unknown", exchange("what\n", "unknown request\n", End::closed, Kind::usb), Outcome::refused},
    {"usb_event_without_an_answer", exchange("suicide\n", "", End::closed, Kind::usb), Outcome::closed},
    {"embedded_event", exchange("focus,10.0.0.5\n", "", End::open, Kind::event), Outcome::done},
    {"listener", exchange("", "", End::closed, Kind::event), Outcome::listens}};

class EntryOutcome : public testing::TestWithParam<OutcomeRow> {};

TEST_P(EntryOutcome, is_judged_by_reply_and_end)
{
    EXPECT_EQ(kvoctl::wordOf(entryOf(kPanel, GetParam().exchange).outcome), kvoctl::wordOf(GetParam().outcome));
}

INSTANTIATE_TEST_SUITE_P(Rows, EntryOutcome, testing::ValuesIn(kOutcomes), [](const auto &row) { return row.param.name; });

TEST(Entry, fails_unless_it_is_done_or_still_open)
{
    for (const Outcome outcome : {Outcome::refused, Outcome::silent, Outcome::closed, Outcome::incomplete, Outcome::reset}) {
        EXPECT_TRUE(isFailure(outcome)) << kvoctl::wordOf(outcome);
    }
    EXPECT_FALSE(isFailure(Outcome::done));
    EXPECT_FALSE(isFailure(Outcome::open));
    EXPECT_FALSE(isFailure(Outcome::listens));
}

/// Whether a reply is words, and not a value.
bool isWords(const std::string &reply)
{
    return !reply.empty() && reply.find_first_not_of("abcdefghijklmnopqrstuvwxyz4_ ") == std::string::npos &&
           reply.back() != ' ';
}

/// The library reports 0 or a negative result for these replies, although they answer the question.
bool answersTheQuestion(const std::string &command, const std::string &reply)
{
    static const std::set<std::string> kAnswers{"no", "none"};
    // The catalogue's examples of texts that are not valid.
    static const std::set<std::string> kUnknown{"what", "vncserver"};
    return kAnswers.contains(reply) || kUnknown.contains(reply) || (reply == "not active" && command.starts_with("isViewer"));
}

TEST(Entry, agrees_with_the_library_about_every_reply_of_the_catalogue)
{
    int refusals = 0;
    for (const auto &family : catalogue::families()) {
        for (const auto &request : family.requests) {
            for (const auto &row : request.ownExchanges()) {
                if (row.service != catalogue::Exchange::Service::answers || row.commands.size() != 1 ||
                    row.replies.size() != 1 || !isWords(row.replies[0])) {
                    continue;
                }
                const bool failed = isFailure(entry(row.commands[0] + "\n", row.replies[0] + "\n").outcome);
                // Some functions of the library ignore a refusal.
                const bool expected =
                    row.replies[0] == "failed" || (row.result <= 0 && !answersTheQuestion(row.commands[0], row.replies[0]));
                EXPECT_EQ(failed, expected) << row.commands[0] << " -> " << row.replies[0] << ", result " << row.result;
                refusals += failed ? 1 : 0;
            }
        }
    }
    EXPECT_GT(refusals, 10);
}

// ---- Lines ----

TEST(Entry, shows_the_first_line_without_its_end)
{
    const Entry made = entry("getVersion\r\n", "V1\n");
    EXPECT_EQ(made.request, "getVersion");
    EXPECT_EQ(made.reply, "V1");
    EXPECT_EQ(made.requestBytes, 12U);
    EXPECT_EQ(made.replyBytes, 3U);
    EXPECT_EQ(made.furtherRequestLines, 0U);
    EXPECT_EQ(made.furtherReplyLines, 0U);
}

TEST(Entry, counts_further_lines_across_pieces)
{
    const Entry made = entryOf(kPanel, inPieces({{0us, "a"}, {1us, "b\nc\n"}, {1us, "d"}}, {{0us, "x\n"}, {0us, "y\n"}}));
    EXPECT_EQ(made.request, "ab");
    EXPECT_EQ(made.furtherRequestLines, 2U);
    EXPECT_EQ(made.reply, "x");
    EXPECT_EQ(made.furtherReplyLines, 1U);
}

TEST(Entry, cuts_long_lines_on_request)
{
    const std::string text(kvoctl::kEnoughToJudge + 1000, 'x');
    const Entry made = entryOf(kPanel, exchange(text + "\n", text + "\n"), kvoctl::kEnoughToJudge);
    EXPECT_EQ(made.request.size(), kvoctl::kEnoughToJudge);
    EXPECT_EQ(made.reply.size(), kvoctl::kEnoughToJudge);
    EXPECT_EQ(made.replyBytes, text.size() + 1);
    EXPECT_EQ(made.furtherReplyLines, 0U);
    EXPECT_EQ(made.outcome, Outcome::done);
}

// ---- Duration ----

TEST(Entry, lasts_from_the_first_byte_of_the_request_to_the_last_of_the_reply)
{
    const Entry made = entryOf(kPanel, inPieces({{7ms, "a"}, {1ms, "b\n"}}, {{10ms, "x"}, {100ms, "y\n"}}, End::left, 5s));
    EXPECT_EQ(made.duration, 111ms);
}

TEST(Entry, lasts_until_the_end_of_the_connection_if_no_reply_was_complete)
{
    EXPECT_EQ(entry("getVersion\n", "", End::left).duration, 4s);
    EXPECT_EQ(entry("getVersion\n", "V", End::left).duration, 450us);
}

// ---- Command and program ----

TEST(Entry, has_the_first_word_as_command)
{
    EXPECT_EQ(kvoctl::commandOf(entry("getDLV2 8\n", "")), "getDLV2");
    EXPECT_EQ(kvoctl::commandOf(entry("getVersion\n", "")), "getVersion");
    EXPECT_EQ(kvoctl::commandOf(entry("setMCPAddress=\"1\" 0A000005\n", "")), "setMCPAddress");
    EXPECT_EQ(kvoctl::commandOf(entry("stateUSB*1*\n", "", End::closed, Kind::usb)), "stateUSB");
    EXPECT_EQ(kvoctl::commandOf(entry("focus,a b\n", "", End::closed, Kind::event)), "focus");
}

TEST(Entry, says_if_a_program_is_unknown)
{
    const auto program = [](const Peer &peer, Kind kind = Kind::ask) {
        return kvoctl::programOf(entryOf(peer, exchange("x\n", "y\n", End::closed, kind)));
    };
    EXPECT_EQ(program({4711, "panel"}), "panel[4711]");
    EXPECT_EQ(program({4711, ""}), "(ended)[4711]");
    EXPECT_EQ(program({0, "panel"}), "panel[?]");
    EXPECT_EQ(program({0, ""}), "(other namespace)");
    EXPECT_EQ(program({0, ""}, Kind::event), "(this trace)");
}

}  // namespace

}  // namespace kvoctl_test
