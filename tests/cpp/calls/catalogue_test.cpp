// Every exchange of the catalogue through the methods of the C++ interface: the same requests and messages, and the value or the
// error that the result and the outputs of the function of C mean.
#include "catalogue/catalogue.h"

#include "cpp/calls/methods.h"
#include "support/catalogue_service.h"
#include "support/syslog_capture.h"

#include <algorithm>
#include <cctype>
#include <gmock/gmock.h>
#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace {

using catalogue::Argument;
using catalogue::Exchange;
using kvo::Errc;

struct Row {
    const catalogue::Request *request;
    Exchange exchange;
};

std::ostream &operator<<(std::ostream &out, const Row &row)
{
    return out << row.request->cppMethod() << ", reply " << testing::PrintToString(row.exchange.replies);
}

/// What the words of a result mean.
const std::map<std::string, Errc> kMeanings = {
    {"no service answers at /tmp/kvo_hws/cmd_sock", Errc::no_service},
    {"the service refused or sent an unknown reply", Errc::failed},
    {"the exchange with the service broke", Errc::failed},
    {"the service refused, or no service answers", Errc::failed},
    {"the buffer is too small for the version, or the exchange with the service broke", Errc::failed},
    {"the level is not one of 0 to 100", Errc::out_of_range},
    {"the mode is not 0 or 1", Errc::out_of_range},
    {"the mode is not 0 (auto) or 1 (individual)", Errc::out_of_range},
    {"the index is not one of 0 to 255", Errc::out_of_range},
    {"the threshold is below -1, or nonlinear is not -1, 0 or 1", Errc::out_of_range},
    {"no metric has this number", Errc::out_of_range},
    {"the channel information is longer than 230 bytes", Errc::invalid_text},
    {"several stations have this MCP address", Errc::ambiguous},
    {"several stations have this DCK address", Errc::ambiguous},
    {"several stations have this KVO index", Errc::ambiguous},
    {"the station does not know this mode", Errc::unsupported},
    {"the station's backlight is not active", Errc::not_active},
    {"the station does not report this metric", Errc::not_available},
    {"the service sent a malformed value", Errc::unknown_reply},
    {"the service sent an unknown reply", Errc::unknown_reply},
    {"the service sent an unknown mode", Errc::unknown_reply},
    {"the service refused", Errc::refused},
    {"the panel was not found, or the service failed", Errc::refused},
    {"the service is busy; try again", Errc::busy},
};

/// A size that the caller passes and the function of C changes.
bool isSize(const Argument &argument) { return argument.kind == Argument::Kind::buffer && !argument.text.empty(); }

/// The arguments that receive values.
std::vector<Argument> outputsOf(const Exchange &exchange)
{
    std::vector<Argument> outputs;
    std::ranges::copy_if(exchange.arguments, std::back_inserter(outputs),
                         [](const Argument &argument) { return argument.kind == Argument::Kind::buffer; });
    return outputs;
}

/// True if the caller's buffers are too small. The methods of C++ have no such buffers; other tests show that texts and lists of
/// any size arrive.
bool isTooSmall(const Row &row)
{
    const std::string words = kvo_hws_result_text(row.request->function().name().c_str(), row.exchange.result);
    const std::vector<Argument> outputs = outputsOf(row.exchange);
    for (std::size_t i = 0; i < outputs.size() && row.exchange.result < 0; ++i) {
        const bool stored = i < row.exchange.values.size() && row.exchange.values[i].bytes;
        if (isSize(outputs[i]) && stored && words.find("too small") != std::string::npos) {
            return true;
        }
    }
    return false;
}

/// Why an exchange has no form in C++; empty if it has one.
std::string notInCpp(const Row &row)
{
    const auto isNull = [](const Argument &argument) { return argument.kind == Argument::Kind::null; };
    const bool byAddress = row.request->cppMethod() == "Station::description";
    if (std::ranges::count_if(row.exchange.arguments, isNull) > (byAddress ? 1 : 0)) {
        return "a null pointer";
    }
    if (byAddress && row.exchange.arguments.at(1).kind == Argument::Kind::text) {
        return "a name besides the address";
    }
    if (std::ranges::any_of(row.exchange.arguments,
                            [](const Argument &text) { return text.text.find('"') != std::string::npos; })) {
        return "a text that would not arrive as given";
    }
    for (const char *switches :
         {"Station::set_disable_num_lock", "Station::set_disable_caps_lock", "Station::set_dck_enable"}) {
        if (row.request->cppMethod() == switches && row.exchange.arguments.at(1).number > 1) {
            return "a switch that is neither on nor off";
        }
    }
    return isTooSmall(row) ? "a buffer that is too small" : "";
}

/// The methods ask for 64 elements of a list.
std::vector<std::string> commandsInCpp(std::vector<std::string> commands)
{
    for (std::string &command : commands) {
        for (const std::string asks : {"getDLV2 ", "getDL_ExV2 "}) {
            command = command.starts_with(asks) ? asks + "64" : command;
        }
    }
    return commands;
}

/// The first bytes of an output. A list fills the rest of the array with zeros.
std::string headOf(const std::string &bytes, std::size_t size)
{
    EXPECT_EQ(bytes.find_first_not_of('\0', std::min(size, bytes.size())), std::string::npos) << "more is stored";
    return bytes.substr(0, size);
}

void expectSameValues(const calls::Outcome &outcome, const Exchange &exchange)
{
    if (outcome.code == KVO_HWS_NO && outcome.values.empty()) {
        return;  // no value; a function of C may store an empty text
    }
    const std::vector<Argument> outputs = outputsOf(exchange);
    for (std::size_t i = 0; i < exchange.values.size(); ++i) {
        const auto &expected = exchange.values[i].bytes;
        const bool given = i < outcome.values.size() && outcome.values[i].bytes;
        if (given && expected) {
            EXPECT_EQ(*outcome.values[i].bytes, headOf(*expected, outcome.values[i].bytes->size())) << "output " << i;
        } else if (!isSize(outputs.at(i))) {
            EXPECT_EQ(given && !outcome.values[i].bytes->empty(), expected.has_value()) << "output " << i;
        }
    }
    EXPECT_TRUE(exchange.values.empty() || !outcome.values.empty());
}

class Calls : public testing::TestWithParam<Row> {};

TEST_P(Calls, behave_as_the_catalogue_describes)
{
    const auto &[request, exchange] = GetParam();
    const support::CatalogueService service(exchange);
    const support::MessagesOn messages;
    const support::SyslogCapture capture;

    const calls::Outcome outcome = calls::methods().at(request->cppMethod())(calls::Inputs(exchange.arguments));

    EXPECT_EQ(service.commands(), commandsInCpp(exchange.commands));
    EXPECT_EQ(capture.texts(), exchange.messages);
    ASSERT_EQ(outcome.error.has_value(), exchange.result < 0);
    if (!outcome.error) {
        EXPECT_EQ(outcome.code, exchange.result);
        expectSameValues(outcome, exchange);
        return;
    }
    const std::string function = request->function().name();
    const std::string words = kvo_hws_result_text(function.c_str(), exchange.result);
    EXPECT_EQ(outcome.error->code(), exchange.result);
    EXPECT_EQ(outcome.error->function(), function);
    EXPECT_EQ(outcome.error->reason(), words);
    ASSERT_TRUE(kMeanings.contains(words)) << words;
    EXPECT_EQ(outcome.error->meaning(), kMeanings.at(words));
}

std::vector<Row> allRows()
{
    std::vector<Row> all;
    for (const catalogue::Family &family : catalogue::families()) {
        for (const catalogue::Request &request : family.requests) {
            for (const Exchange &exchange : request.allExchanges()) {
                all.push_back({&request, exchange});
            }
        }
    }
    return all;
}

std::vector<Row> rowsInCpp()
{
    std::vector<Row> rows = allRows();
    std::erase_if(rows, [](const Row &row) { return !notInCpp(row).empty(); });
    return rows;
}

std::string nameOf(const testing::TestParamInfo<Row> &row)
{
    std::string name = row.param.request->name() + "_" + row.param.exchange.name;
    std::replace_if(
        name.begin(), name.end(), [](unsigned char byte) { return std::isalnum(byte) == 0; }, '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Catalogue, Calls, testing::ValuesIn(rowsInCpp()), nameOf);

TEST(CallsWithoutFormInCpp, are_few_and_of_five_kinds)
{
    std::map<std::string, std::size_t> kinds;
    std::map<std::string, std::size_t> made;
    for (const Row &row : allRows()) {
        const std::string reason = notInCpp(row);
        ++(reason.empty() ? made[row.request->name()] : kinds[reason]);
    }
    std::size_t left = 0;
    for (const auto &[reason, count] : kinds) {
        std::cout << count << " calls have no form in C++: " << reason << '\n';
        left += count;
    }
    EXPECT_EQ(kinds.size(), 5U);
    EXPECT_LT(left * 8, allRows().size());
    // No service, a service that closes the connection, and a reply: these exist for every request.
    for (const Row &row : allRows()) {
        EXPECT_GE(made[row.request->name()], row.request->commands().empty() ? 2U : 4U) << row.request->name();
    }
}

}  // namespace
