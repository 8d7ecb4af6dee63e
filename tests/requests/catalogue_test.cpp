// Every request of a family as the catalogue describes it: with each reply, without a service, with a service that closes the
// connection, and with calls that are refused. Checks the result, every byte of the outputs, the requests that the service
// receives, what is logged and what is printed.
#include "catalogue/catalogue.h"

#include "support/catalogue_service.h"
#include "support/syslog_capture.h"

#include <algorithm>
#include <cctype>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <vector>

namespace {

using catalogue::Exchange;

struct Row {
    const catalogue::Request *request;
    Exchange exchange;
};

std::ostream &operator<<(std::ostream &out, const Row &row)
{
    return out << row.request->name() << ", reply " << testing::PrintToString(row.exchange.replies);
}

/// The expected bytes of an output after the call: @p before, overwritten with what the call should store.
std::string expectedBytes(const Exchange &exchange, const catalogue::Outputs &before, std::size_t area)
{
    std::string bytes = before.bytes(area);
    if (area < exchange.values.size() && exchange.values[area].bytes) {
        bytes.replace(0, exchange.values[area].bytes->size(), *exchange.values[area].bytes);
    }
    return bytes;
}

/// Records are long, so a failure shows only the bytes from the first difference.
void expectSame(const std::string &bytes, const std::string &expected, std::size_t area)
{
    const auto difference = std::ranges::mismatch(bytes, expected).in1 - bytes.begin();
    const auto from = static_cast<std::size_t>(difference);
    EXPECT_EQ(bytes.substr(from, 16), expected.substr(from, 16)) << "output " << area << ", from byte " << from;
}

class Requests : public testing::TestWithParam<Row> {};

TEST_P(Requests, behave_as_the_catalogue_describes)
{
    const auto &[request, exchange] = GetParam();
    const support::CatalogueService service(exchange);
    const catalogue::Outputs before = request->function().outputsFor(exchange.arguments, '\x5A');
    catalogue::Outputs outputs = before;
    const support::MessagesOn messages;
    const support::SyslogCapture capture;
    testing::internal::CaptureStderr();

    EXPECT_EQ(request->function()(exchange.arguments, outputs), exchange.result);

    EXPECT_EQ(testing::internal::GetCapturedStderr(), exchange.printed);
    EXPECT_EQ(service.commands(), exchange.commands);
    EXPECT_EQ(capture.texts(), exchange.messages);
    for (std::size_t area = 0; area < outputs.count(); ++area) {
        expectSame(outputs.bytes(area), expectedBytes(exchange, before, area), area);
    }
}

std::vector<Row> rows()
{
    static const std::vector<catalogue::Request> kNone;
    std::vector<Row> all;
    for (const catalogue::Family &family : catalogue::families()) {
        for (const catalogue::Request &request : family.name == std::string(KVO_FAMILY) ? family.requests : kNone) {
            for (const Exchange &exchange : request.allExchanges()) {
                all.push_back({&request, exchange});
            }
        }
    }
    return all;
}

std::string nameOf(const testing::TestParamInfo<Row> &row)
{
    std::string name = row.param.request->name() + "_" + row.param.exchange.name;
    std::replace_if(
        name.begin(), name.end(), [](unsigned char byte) { return std::isalnum(byte) == 0; }, '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Catalogue, Requests, testing::ValuesIn(rows()), nameOf);

}  // namespace
