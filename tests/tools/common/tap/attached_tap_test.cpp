// A tap between running programs and the simulated service: how it comes and goes, and what it does when others come and go.
#include "tools/common/tap/running_tap.h"
#include "tools/common/tap/service.h"

#include "common/refused.h"
#include "common/tap/socket_place.h"

#include "support/scripted_service.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <sys/socket.h>
#include <sys/stat.h>

using namespace std::chrono_literals;

namespace tap_test {

namespace {

using kvosim_test::Client;
using support::ScriptedService;
using testing::ElementsAre;
using testing::HasSubstr;
using tools::tap::fileAt;
using tools::tap::FileId;

/// The files in the folder of the sockets.
std::vector<std::string> files()
{
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(tools::kSocketDirectory)) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

TEST(AttachedTap, changes_places_with_the_service_and_back)
{
    Service service;
    const std::vector<std::string> before = files();
    const FileId own = fileAt(tools::kCommandSocket);
    {
        RunningTap tap;
        EXPECT_NE(fileAt(tools::kCommandSocket), own);
        EXPECT_TRUE(answers());
        EXPECT_TRUE(tools::tap::isAttached());
        EXPECT_FALSE(tools::tap::needsRepair());
        tap.end();
        EXPECT_EQ(tap.reports().exchanges().size(), 1U);
    }
    EXPECT_EQ(fileAt(tools::kCommandSocket), own);
    EXPECT_EQ(files(), before);
    EXPECT_TRUE(answers());
    EXPECT_FALSE(tools::tap::isAttached());
}

TEST(AttachedTap, fails_no_request_while_it_comes_and_goes)
{
    Service service;
    std::atomic<bool> ending{false};
    std::atomic<int> right{0};
    std::atomic<int> wrong{0};
    std::vector<std::thread> programs;
    for (int i = 0; i < 4; ++i) {
        programs.emplace_back([&] {
            while (!ending) {
                ++(answers() ? right : wrong);
            }
        });
    }
    for (int i = 0; i < 10; ++i) {
        RunningTap tap;
        const int before = right;
        EXPECT_TRUE(support::eventually([&] { return right > before + 20; }));
        tap.end();
    }
    ending = true;
    for (std::thread &program : programs) {
        program.join();
    }
    EXPECT_EQ(wrong, 0);
}

TEST(AttachedTap, completes_what_is_under_way_at_its_end)
{
    const ScriptedService service({support::closesAtOnce(),
                                   {{.kind = support::Step::Kind::readLine},
                                    {.kind = support::Step::Kind::pause, .pause = 1500ms},
                                    {.kind = support::Step::Kind::write, .bytes = "late\n"}}});
    RunningTap tap;
    const Client client;
    client.send("ask\n");
    tap.end();
    EXPECT_EQ(client.receiveAll(), "late\n");
    EXPECT_EQ(shown(tap.exchanges(1).at(0).exchange), "ask\n-> late\nclosed");
}

TEST(AttachedTap, looks_dead_when_the_service_is_dead)
{
    Service service;
    RunningTap tap;
    service.kill();
    EXPECT_TRUE(support::eventually([] { return connectError() == ECONNREFUSED; }));
    EXPECT_TRUE(support::eventually(
        [&] { return !tap.reports().notes().empty() && tap.reports().notes().back().ends_with("has ended."); }));
    EXPECT_THAT(tap.reports().notes().back(), HasSubstr("The service (kvosim, process "));
}

TEST(AttachedTap, taps_a_service_that_starts_again)
{
    Service service;
    RunningTap tap;
    for (int i = 0; i < 5; ++i) {
        service.kill();
        service.start();
        ASSERT_TRUE(support::eventually([] { return tools::tap::isAttached(); }));
        ASSERT_TRUE(support::eventually([&] {
            const std::size_t before = tap.reports().exchanges().size();
            answers();
            return support::eventually([&] { return tap.reports().exchanges().size() > before; }, 100ms);
        }));
    }
    EXPECT_THAT(tap.reports().notes().back(), HasSubstr("The service runs again (kvosim, process "));
    EXPECT_EQ(tap.reports().givenUp(), "");
}

TEST(AttachedTap, leaves_a_service_alone_that_takes_its_place_back)
{
    Service service;
    RunningTap tap;
    std::vector<std::unique_ptr<ScriptedService>> sockets;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(tap.reports().givenUp(), "");
        const auto hasTakenItAgain = [&] {
            const std::vector<std::string> notes = tap.reports().notes();
            return std::count_if(notes.begin(), notes.end(),
                                 [](const std::string &note) { return note.starts_with("The service runs again"); }) == i;
        };
        ASSERT_TRUE(support::eventually(hasTakenItAgain));
        // The service listens at a new socket.
        std::filesystem::remove(tools::kCommandSocket);
        sockets.push_back(std::make_unique<ScriptedService>(std::vector<support::Script>{support::replies("yes")}));
    }
    EXPECT_TRUE(support::eventually([&] { return !tap.reports().givenUp().empty(); }));
    EXPECT_THAT(tap.reports().givenUp(), HasSubstr("taken its place at /tmp/kvo_hws/cmd_sock back 3 times within 10 s"));
    EXPECT_TRUE(answers());
    EXPECT_FALSE(tools::tap::isAttached());
}

TEST(AttachedTap, has_the_rights_of_the_socket_that_it_replaces)
{
    Service service({"--socket-mode", "0640"});
    ASSERT_EQ(chown(tools::kCommandSocket, geteuid(), 4), 0) << "this test needs root";
    RunningTap tap;
    struct stat rights {};
    ASSERT_EQ(lstat(tools::kCommandSocket, &rights), 0);
    EXPECT_EQ(rights.st_mode & 07777, 0640U);
    EXPECT_EQ(rights.st_gid, 4U);
}

TEST(AttachedTap, refuses_a_second_one)
{
    Service service;
    RunningTap tap;
    try {
        RunningTap second;
        FAIL();
    } catch (const tools::Refused &refused) {
        EXPECT_STREQ(refused.what(), "another tap is running at /tmp/kvo_hws/cmd_sock; end it first");
    }
    EXPECT_TRUE(answers());
    tap.exchanges(1);
}

TEST(AttachedTap, refuses_to_run_without_a_service)
{
    std::filesystem::create_directories(tools::kSocketDirectory);
    const std::vector<std::string> before = files();
    try {
        RunningTap tap;
        FAIL();
    } catch (const tools::Refused &refused) {
        EXPECT_STREQ(refused.what(), "no service listens at /tmp/kvo_hws/cmd_sock; start it first");
    }
    EXPECT_EQ(files(), before);
}

}  // namespace

}  // namespace tap_test
