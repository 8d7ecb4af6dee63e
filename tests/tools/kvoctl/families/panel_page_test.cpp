// "kvoctl panel show": one page with all properties that a station has. The catalogue says what each request adds to it.
#include "tools/kvoctl/support/kvoctl.h"

#include "catalogue/catalogue.h"
#include "support/scripted_service.h"

#include <kvo_hws/result.h>

#include <algorithm>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace kvoctl_test {

namespace {

using support::ScriptedService;

const std::string kLathe = "0A000005 00000001 00000002 00000003 00000007 Lathe 1 0000000B 0000000C 0000000D 0000000E 0000000F "
                           "00000010 00000011 ";

/// A request of the page, and the page's entry for a station with all properties and for one without any.
struct Entry {
    std::string request;
    std::string words;               ///< the words of the subcommand that sends it
    std::string section;             ///< of the page
    std::string full;                ///< the reply of a station that has everything
    std::string empty;               ///< the reply of a station that has nothing
    Json document;                   ///< the keys and values for the full reply
    std::vector<std::string> texts;  ///< the values in the text output
    std::string lacking;             ///< the text in place of each value for the empty reply
    bool fails;                      ///< the empty reply is a failure, not a state of the station
};

const std::string kRefused = "(the service refused or sent an unknown reply)";

/// The values in a subcommand's output: the whole output if there is one key, otherwise the text after the key of each line.
std::vector<std::string> textsOf(const catalogue::Shown &shown, std::size_t keys)
{
    std::vector<std::string> texts;
    std::istringstream lines(shown.text);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t end = keys == 1 ? 0 : line.find(' ');
        texts.push_back(end == std::string::npos ? "" : line.substr(keys == 1 ? 0 : line.find_first_not_of(' ', end)));
    }
    return texts;
}

/// The reply of a station that has nothing.
struct Nothing {
    std::string reply = "failed";
    int32_t result = -1;
};

Nothing nothingOf(const catalogue::Request &request)
{
    const bool isQuestion = !request.hasOutputs();
    for (const catalogue::Exchange &exchange : request.ownExchanges()) {
        const bool isNone = exchange.result == 0 && !isQuestion;
        if (!exchange.commands.empty() && (isNone || exchange.result == -4)) {
            return {exchange.replies.front(), exchange.result};
        }
    }
    return {"failed", -1};
}

Entry entryOf(const catalogue::Request &request)
{
    const std::string &words = request.kvoctlWords();
    const catalogue::Shown &shown = request.shown().front();
    const bool isConnectors = words == "usb connectors";  // its result -4 means a refusal, not a missing value
    const Nothing nothing = isConnectors ? Nothing{"usb-connector-list-one=", 0} : nothingOf(request);
    std::string section = words.substr(0, words.find(' '));
    std::ranges::replace(section, '-', '_');
    const Json document = Json::parse(shown.document);
    // The library returns the same result for a missing value and for a refusal.
    const bool isInput = section == "input";
    return {.request = request.commands().front(),
            .words = words,
            .section = section,
            .full = shown.reply,
            .empty = nothing.reply,
            .document = document,
            .texts = textsOf(shown, document.size()),
            .lacking = words == "input devices"
                           ? "-"
                           : std::string("(") + kvo_hws_result_text(request.function().name().c_str(), nothing.result) + ")",
            .fails = !isInput && (nothing.reply == "failed" || nothing.reply == "not found")};
}

/// Requests whose subcommand sends several requests or has modes.
const std::vector<Entry> kSpecial{
    {"getBacklightBrightnessV2=0 0A000005",
     "panel brightness-v2",
     "panel",
     "backlight-brightness-v2=40",
     "bad request",
     Json{{"brightness_v2_mode_0", 40}},
     {"40"},
     "(the station does not know this mode)",
     false},
    {"getBacklightBrightnessV2=1 0A000005",
     "panel brightness-v2",
     "panel",
     "backlight-brightness-v2=41",
     "bad request",
     Json{{"brightness_v2_mode_1", 41}},
     {"41"},
     "(the station does not know this mode)",
     false},
    {"getKVOStartupActive=0A000005",
     "focus startup",
     "focus",
     "startup-active=2",
     "startup-active=2",
     Json{{"startup_active", 2}},
     {"2"},
     kRefused,
     false},
    {"getKVOStartupPrio=0A000005",
     "focus startup",
     "focus",
     "startup-prio=5",
     "failed",
     Json{{"startup_priority", 5}},
     {"5"},
     kRefused,
     true},
};

/// All requests that read a property of a station: those of the catalogue that take only a station.
std::vector<Entry> entries()
{
    std::vector<Entry> all = kSpecial;
    for (const catalogue::Family &family : catalogue::families()) {
        for (const catalogue::Request &request : family.requests) {
            const bool needsNoMore =
                request.kvoctlArguments() == std::vector{catalogue::kHere} || request.kvoctlWords() == "metrics";
            if (needsNoMore && !request.shown().empty()) {
                all.push_back(entryOf(request));
            }
        }
    }
    return all;
}

/// A service that answers each request of the page once, and records their order.
class PageService {
public:
    using Reply = std::function<std::string(const Entry &)>;

    explicit PageService(Reply reply)
        : reply_(std::move(reply)), entries_(entries()), asked_(entries_.size()),
          service_({support::answersWith([this](const std::string &line) { return answer(line.substr(0, line.find('\n'))); })})
    {
    }

    /// The requests in the order in which they arrived, which is the order of the page.
    [[nodiscard]] std::vector<Entry> heard() const
    {
        EXPECT_EQ(order_.size(), entries_.size()) << "each request is sent once";
        return order_;
    }

private:
    std::string answer(const std::string &request)
    {
        if (request == "getExDescByIP 0A000005") {
            return kLathe;
        }
        for (std::size_t i = 0; i < entries_.size(); ++i) {
            if (!asked_[i] && entries_[i].request == request) {
                asked_[i] = true;
                order_.push_back(entries_[i]);
                return reply_(entries_[i]);
            }
        }
        ADD_FAILURE() << request << " does not belong to the page, or was sent twice";
        return "failed";
    }

    Reply reply_;
    std::vector<Entry> entries_;
    std::vector<bool> asked_;
    std::vector<Entry> order_;
    ScriptedService service_;
};

std::string full(const Entry &entry) { return entry.full; }
std::string empty(const Entry &entry) { return entry.empty; }

const Json kStation = Json::parse(R"({"address": "10.0.0.5", "name": "Lathe 1", "attr1": 1, "attr2": 2, "attr3": 3,
    "ext_attr1": 11, "ext_attr2": 12, "ext_attr3": 13, "ext_attr4": 14, "ext_attr5": 15, "ext_attr6": 16, "ext_attr7": 17})");

/// A line of the page: the section, if the line is its first, the key, and the value.
std::string lineOf(const std::string &section, const std::string &key, const std::string &value)
{
    constexpr std::size_t kSection = 14;
    constexpr std::size_t kKey = 22;
    const auto padded = [](std::string text, std::size_t width) {
        text.resize(std::max(width, text.size()), ' ');
        return text;
    };
    return padded(section, kSection) + padded(key, kKey) + value + "\n";
}

/// The page as text, after the station's own section.
std::string textOf(const std::vector<Entry> &order, bool hasAll)
{
    std::string text;
    std::string section;
    for (const Entry &entry : order) {
        std::size_t value = 0;
        for (const auto &[key, number] : entry.document.items()) {
            text +=
                lineOf(entry.section == section ? "" : entry.section, key, hasAll ? entry.texts.at(value++) : entry.lacking);
            section = entry.section;
        }
    }
    return text;
}

std::string failuresIn(const std::vector<Entry> &order)
{
    std::vector<std::string> commands;
    for (const Entry &entry : order) {
        if (entry.fails) {
            commands.push_back(entry.words);
        }
    }
    const std::size_t all = order.size() - 1;  // "focus startup" consists of two
    std::string text = std::to_string(commands.size()) + " of " + std::to_string(all) + " requests failed";
    for (const std::string &command : commands) {
        text += (command == commands.front() ? ": " : ", ") + command;
    }
    return text;
}

TEST(Page, shows_all_of_a_station_that_has_everything)
{
    const PageService service(full);
    const Ended ended = kvoctl({"panel", "show", "10.0.0.5"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "");
    std::string station;
    for (const auto &[key, value] : kStation.items()) {
        station += lineOf(station.empty() ? "station" : "", key, value.is_string() ? value.get<std::string>() : value.dump());
    }
    EXPECT_EQ(ended.out, station + textOf(service.heard(), true));
    EXPECT_THAT(ended.out, testing::HasSubstr(
                               "\nviewer        active                yes\n              server                10.0.0.7\n"));
}

TEST(Page, is_one_json_document)
{
    const PageService service(full);
    const Ended ended = kvoctl({"panel", "show", "0A000005", "--json"});
    EXPECT_EQ(ended.status, 0);
    Json page{{"station", kStation}};
    for (const Entry &entry : service.heard()) {
        page[entry.section].update(entry.document);
    }
    page["unavailable"] = Json::array();
    EXPECT_EQ(ended.document().dump(), page.dump());
    EXPECT_EQ(page["viewer"].dump(), R"({"active":true,"server":"10.0.0.7","display":"3"})");
}

TEST(Page, shows_missing_properties_and_names_the_failed_requests)
{
    const PageService service(empty);
    const Ended ended = kvoctl({"panel", "show", "10.0.0.5"});
    EXPECT_EQ(ended.status, 4);
    EXPECT_EQ(ended.err, "kvoctl: panel show: " + failuresIn(service.heard()) + "\n");
    const std::size_t afterStation = ended.out.find("panel ");
    ASSERT_NE(afterStation, std::string::npos);
    EXPECT_EQ(ended.out.substr(afterStation), textOf(service.heard(), false));
    EXPECT_THAT(ended.out,
                testing::HasSubstr("              rv4_mode              (the station has no handheld terminal of this type)\n"
                                   "              marovanti             (the panel was not found, or the service failed)\n"));
}

TEST(Page, shows_missing_properties_as_null_with_the_reason)
{
    const PageService service(empty);
    const Ended ended = kvoctl({"panel", "show", "10.0.0.5", "--json"});
    EXPECT_EQ(ended.status, 4);
    EXPECT_EQ(ended.err, "kvoctl: panel show: " + failuresIn(service.heard()) + "\n");
    const Json page = ended.document();
    EXPECT_EQ(page["viewer"].dump(), R"({"active":null,"server":null,"display":null})");
    EXPECT_EQ(page["touch"].dump(), R"({"press_threshold":null,"nonlinear":null})");
    std::size_t lacking = 0;
    for (const Entry &entry : service.heard()) {
        lacking += entry.lacking == "-" ? 0 : entry.document.size();
    }
    EXPECT_EQ(page["unavailable"].size(), lacking);
    const Json touch = Json::parse(R"({"key": "touch.nonlinear", "code": 0, "meaning": "the station has no touch screen",
                                    "failed": false})");
    EXPECT_THAT(page["unavailable"], testing::Contains(touch));
    const Json rotation =
        Json::parse(R"({"key": "metrics.rotation", "code": -4, "meaning": "the station does not report this metric",
                                       "failed": false})");
    EXPECT_THAT(page["unavailable"], testing::Contains(rotation));
    const Json type = Json::parse(R"({"key": "panel.type", "code": -1,
                                   "meaning": "the service refused or sent an unknown reply", "failed": true})");
    EXPECT_THAT(page["unavailable"], testing::Contains(type));
}

TEST(Page, of_a_station_without_some_properties_succeeds)
{
    const PageService service([](const Entry &entry) { return entry.fails ? entry.full : entry.empty; });
    const Ended ended = kvoctl({"panel", "show", "10.0.0.5"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_THAT(ended.out, testing::HasSubstr("(the station has no touch screen)"));
    EXPECT_THAT(ended.out, testing::HasSubstr("(the station does not know this mode)"));
    EXPECT_THAT(ended.out, testing::HasSubstr("(the station does not report this metric)"));
}

TEST(Page, of_an_unknown_station_ends_with_status_1)
{
    const ScriptedService service({support::replies("not found")});
    const Ended ended = kvoctl({"panel", "show", "Lathe 9", "--json"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err, "kvoctl: panel show: no station is named \"Lathe 9\" (result 0)\n");
    EXPECT_EQ(ended.document(), Json::parse(R"({"error": {"code": 0, "meaning": "no station is named \"Lathe 9\""}})"));
    EXPECT_EQ(service.requests().front(), "getExDescByName Lathe 9\n");
}

TEST(Page, fails_if_the_service_refuses_the_station)
{
    const ScriptedService service({support::replies("failed")});
    EXPECT_EQ(kvoctl({"panel", "show", "10.0.0.5"}).status, 4);
}

TEST(Page, needs_a_service)
{
    const Ended ended = kvoctl({"panel", "show", "10.0.0.5"});
    EXPECT_EQ(ended.status, 3);
    EXPECT_EQ(ended.out, "");
}

TEST(Page, does_not_wait_for_a_silent_service_at_each_request)
{
    const ScriptedService service({support::replies(kLathe), support::staysSilent(std::chrono::seconds(60))});
    const auto start = std::chrono::steady_clock::now();
    const Ended ended = kvoctl({"panel", "show", "10.0.0.5"});
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(8));
    EXPECT_EQ(ended.status, 4);
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.err, "kvoctl: panel show: the service stopped answering at panel type (result -1)\n");
}

}  // namespace

}  // namespace kvoctl_test
