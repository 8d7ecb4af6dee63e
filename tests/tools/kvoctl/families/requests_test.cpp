// Every subcommand of one or two requests against every kind of reply: exit status, both outputs, and the bytes of the
// requests.
#include "tools/kvoctl/support/request_case.h"

#include "catalogue/catalogue.h"
#include "support/catalogue_service.h"
#include "support/scripted_service.h"

#include <algorithm>
#include <array>
#include <ostream>

namespace kvoctl_test {

using support::ScriptedService;

std::ostream &operator<<(std::ostream &out, const Case &row) { return out << row.name; }

namespace {

class Requests : public testing::TestWithParam<Case> {
protected:
    /// Runs the row with more arguments and checks everything except standard output.
    static Ended run(const Arguments &more)
    {
        const Case &row = GetParam();
        Arguments arguments = row.arguments;
        arguments.insert(arguments.end(), more.begin(), more.end());
        std::vector<support::Script> scripts;
        for (const std::string &reply : row.replies) {
            scripts.push_back(support::replies(reply));
        }
        std::optional<ScriptedService> service;
        if (!scripts.empty()) {
            service.emplace(scripts);
        }
        Ended ended = kvoctl(arguments);
        EXPECT_EQ(ended.status, row.status);
        EXPECT_EQ(ended.err, row.err);
        EXPECT_EQ(service ? support::commandsOf(*service) : std::vector<std::string>{}, row.requests);
        return ended;
    }
};

TEST_P(Requests, show_the_reply_as_text) { EXPECT_EQ(run({}).out, GetParam().out); }

TEST_P(Requests, show_the_reply_as_one_json_document)
{
    EXPECT_EQ(run({"--json"}).document().dump(), Json::parse(GetParam().document).dump());
}

std::string nameOf(const testing::TestParamInfo<Case> &row) { return row.param.name; }

INSTANTIATE_TEST_SUITE_P(Catalogue, Requests, testing::ValuesIn(catalogueRows()), nameOf);
INSTANTIATE_TEST_SUITE_P(Written, Requests, testing::ValuesIn(writtenRows()), nameOf);
INSTANTIATE_TEST_SUITE_P(Other, Requests, testing::ValuesIn(otherRows()), nameOf);

TEST(Catalogue, has_the_output_of_each_subcommand)
{
    for (const catalogue::Family &family : catalogue::families()) {
        for (const catalogue::Request &request : family.requests) {
            const bool shows = request.hasOutputs() && request.commands().size() == 1 && !request.kvoctlWords().empty();
            // Lists, versions and single stations have tests of their own.
            const bool isElsewhere = std::ranges::any_of(std::array{"clients", "version", "station", "focus startup"},
                                                         [&](const char *words) { return request.kvoctlWords() == words; });
            EXPECT_TRUE(!shows || isElsewhere || !request.shown().empty()) << request.name();
        }
    }
}

TEST(Ready, waits_for_a_service_that_starts_late)
{
    std::optional<ScriptedService> service;
    std::thread starting([&service] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        service.emplace(std::vector<support::Script>{support::replies("yes")});
    });
    const Ended ended = kvoctl({"ready", "--wait", "20"});
    starting.join();
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, "ready\n");
    EXPECT_EQ(ended.err, "");
}

TEST(Ready, gives_up_after_the_timeout)
{
    const ScriptedService service({support::replies("no")});
    const auto start = std::chrono::steady_clock::now();
    const Ended ended = kvoctl({"ready", "--wait", "1"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.out, "not ready\n");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    EXPECT_GT(service.requests().size(), 2U);
}

TEST(NoService, distinguishes_a_stale_socket_from_a_missing_one)
{
    support::leaveStaleSocket(support::kCommandSocket);
    const Ended ended = kvoctl({"backlight", "on"});
    EXPECT_EQ(ended.status, 3);
    EXPECT_THAT(ended.err, testing::HasSubstr("The socket exists, but does not accept connections"));
    unlink(support::kCommandSocket);
}

}  // namespace

}  // namespace kvoctl_test
