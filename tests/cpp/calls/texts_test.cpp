// Texts that the program passes: they arrive as given, or they are refused before anything is sent.
#include <kvo_hws/kvo_hws.hpp>

#include "support/catalogue_service.h"

#include <functional>
#include <gmock/gmock.h>
#include <ostream>
#include <string>
#include <vector>

namespace {

using kvo::Errc;
using kvo::Error;
using kvo::Service;
using kvo::Station;
using Failure = std::optional<Error>;

template <class Value>
Failure failureOf(const kvo::Result<Value> &result)
{
    return result ? Failure() : result.error();
}

/// A request with a text.
struct Place {
    const char *name;
    const char *function;
    std::function<Failure(const std::string &text)> call;
    std::string before;   ///< the request before the text
    std::string after;    ///< the request after the text
    std::size_t longest;  ///< the longest text in bytes
    bool quoted;          ///< between quotation marks; otherwise at the end of the request
};

std::ostream &operator<<(std::ostream &out, const Place &place) { return out << place.name; }

const Station kStation("10.0.0.5");
const std::string kHalf(498, 'p');

const Place kPlaces[] = {
    {"status_line", "KVO_HWS_setStatusline", [](const auto &text) { return failureOf(kStation.set_statusline(text)); },
     "setStatusline=0A000005,0,0,", "", 996, false},
    {"status_line_after_long_numbers", "KVO_HWS_setStatusline",
     [](const auto &text) { return failureOf(kStation.set_statusline(text, 4294967295, 1000000000)); },
     "setStatusline=0A000005,4294967295,1000000000,", "", 978, false},
    {"status_line_after_numbers_of_nine_digits", "KVO_HWS_setStatusline",
     [](const auto &text) { return failureOf(kStation.set_statusline(text, 999999999, 9)); },
     "setStatusline=0A000005,999999999,9,", "", 988, false},
    {"viewer_part_1", "KVO_HWS_setStartViewer", [](const auto &text) { return failureOf(kStation.start_viewer(text, "", "")); },
     "startViewer=\"", "::\" 0A000005", 998, true},
    {"viewer_part_2", "KVO_HWS_setStartViewer",
     [](const auto &text) { return failureOf(kStation.start_viewer("a", text, "c")); }, "startViewer=\"a:", ":c\" 0A000005",
     996, true},
    {"viewer_part_3_after_long_parts", "KVO_HWS_setStartViewer",
     [](const auto &text) { return failureOf(kStation.start_viewer(kHalf, kHalf, text)); },
     "startViewer=\"" + kHalf + ":" + kHalf + ":", "\" 0A000005", 2, true},
    {"configured_viewer", "KVO_HWS_startConfiguredViewer",
     [](const auto &text) { return failureOf(kStation.start_configured_viewer(text, 3)); }, "startConfiguredViewer=\"",
     ":3\" 0A000005", 988, true},
    {"configured_viewer_with_a_long_number", "KVO_HWS_startConfiguredViewer",
     [](const auto &text) { return failureOf(kStation.start_configured_viewer(text, 4294967295)); }, "startConfiguredViewer=\"",
     ":4294967295\" 0A000005", 979, true},
    {"channel_info", "KVO_HWS_setChannelInfo", [](const auto &text) { return failureOf(kStation.set_channel_info(text)); },
     "setChannelInfo=\"", "\" 0A000005", 230, true},
    {"station_name", "KVO_HWS_getDescriptionEx",
     [](const auto &text) {
         const auto found = Service::description(text);
         EXPECT_TRUE(!found || !found->has_value());
         return failureOf(found);
     },
     "getExDescByName ", "", 1007, false},
};

class Texts : public testing::TestWithParam<Place> {
protected:
    /// Calls with a text that arrives.
    static void expectArrives(const std::string &text)
    {
        const support::ScriptedService service({support::replies(answer())});
        const Failure failure = GetParam().call(text);
        EXPECT_FALSE(failure) << failure->message();
        EXPECT_THAT(support::commandsOf(service), testing::ElementsAre(GetParam().before + text + GetParam().after));
    }
    /// Calls with a text that is refused; the reason contains @p reason.
    static void expectRefused(const std::string &text, const std::string &reason)
    {
        const support::ScriptedService service({support::replies(answer())});
        const Failure failure = GetParam().call(text);
        ASSERT_TRUE(failure);
        EXPECT_EQ(failure->meaning(), Errc::invalid_text);
        EXPECT_EQ(failure->code(), -3);
        EXPECT_STREQ(failure->function(), GetParam().function);
        EXPECT_THAT(failure->reason(), testing::HasSubstr(reason));
        EXPECT_THAT(service.requests(), testing::IsEmpty());
    }

private:
    static const char *answer() { return GetParam().before == "getExDescByName " ? "not found" : "ok"; }
};

TEST_P(Texts, of_the_greatest_length_arrive)
{
    const std::string longest(GetParam().longest, 'x');
    if (GetParam().function != std::string("KVO_HWS_setChannelInfo")) {
        EXPECT_EQ((GetParam().before + longest + GetParam().after).size(), 1023U);
    }
    expectArrives(longest);
}

TEST_P(Texts, one_byte_longer_are_refused)
{
    const bool channelInfo = GetParam().function == std::string("KVO_HWS_setChannelInfo");
    expectRefused(std::string(GetParam().longest + 1, 'x'), channelInfo ? "longer than 230 bytes" : "may have 1023 bytes");
}

TEST_P(Texts, of_any_other_bytes_arrive)
{
    expectArrives("");
    expectArrives(" ");
    if (GetParam().longest > 20) {
        expectArrives("%s %n \xC3\xA4\xFF\x01\t\r:x");
    }
    expectArrives(GetParam().quoted ? "\r" : "\"");
}

TEST_P(Texts, with_a_nul_are_refused)
{
    expectRefused(std::string("a\0", 2), "NUL");
    expectRefused(std::string(1, '\0'), "NUL");
}

TEST_P(Texts, with_a_line_feed_are_refused)
{
    expectRefused("a\n", "line feed");
    expectRefused("\nb", "line feed");
}

TEST_P(Texts, that_the_request_would_end_are_refused)
{
    if (GetParam().quoted) {
        expectRefused("\"", "quotation mark");
    } else {
        expectRefused("text\r", "carriage return");
    }
}

INSTANTIATE_TEST_SUITE_P(Places, Texts, testing::ValuesIn(kPlaces), [](const auto &test) { return test.param.name; });

}  // namespace
