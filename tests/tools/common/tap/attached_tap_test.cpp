// A tap between running programs and the simulated service: how it comes and goes, and what it does when others come and go.
#include "tools/common/tap/running_tap.h"
#include "tools/common/tap/service.h"

#include "common/refused.h"
#include "common/tap/socket_place.h"
#include "common/tap/tap_guardian.h"

#include "support/no_descriptors.h"
#include "support/scripted_service.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>

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

TEST(AttachedTap, repairs_both_sockets_first)
{
    Service service;
    const ScriptedService receiver({support::replies("ok")}, tools::kUsbEventSocket);
    for (const char *path : {tools::kCommandSocket, tools::kUsbEventSocket}) {
        const pid_t killed = fork();
        if (killed == 0) {
            const tools::tap::SocketPlace place(path);
            kill(getpid(), SIGKILL);
        }
        waitpid(killed, nullptr, 0);
        ASSERT_EQ(connectError(path), ECONNREFUSED);
    }
    EXPECT_TRUE(tools::tap::needsRepair());
    RunningTap tap;
    EXPECT_FALSE(tools::tap::needsRepair());
    EXPECT_TRUE(answers());
    EXPECT_EQ(kvosim_test::exchange("event\n", tools::kUsbEventSocket), "ok\n");
}

TEST(AttachedTap, repairs_one_socket_when_another_tap_has_the_other)
{
    Service service;
    const ScriptedService receiver({support::replies("ok")}, tools::kUsbEventSocket);
    const tools::tap::SocketPlace other(tools::kCommandSocket);
    const pid_t killed = fork();
    if (killed == 0) {
        const tools::tap::SocketPlace place(tools::kUsbEventSocket);
        kill(getpid(), SIGKILL);
    }
    waitpid(killed, nullptr, 0);
    EXPECT_EQ(tools::tap::repair(), std::vector<std::filesystem::path>{tools::kUsbEventSocket});
    EXPECT_EQ(kvosim_test::exchange("event\n", tools::kUsbEventSocket), "ok\n");
}

TEST(AttachedTap, waits_at_its_end_for_programs_whose_connections_the_service_has_not_accepted)
{
    const support::FullQueue service;
    RunningTap tap;
    std::optional<Client> client(std::in_place);
    client->send("ask\n");
    std::atomic<bool> hasEnded{false};
    std::thread ending([&] {
        tap.end();
        hasEnded = true;
    });
    std::this_thread::sleep_for(1500ms);  // longer than a tap without connections takes
    EXPECT_FALSE(hasEnded);
    client.reset();
    ending.join();
}

TEST(AttachedTap, says_only_once_why_it_cannot_take_a_place)
{
    Service service;
    RunningTap tap;
    service.kill();
    ASSERT_TRUE(support::eventually([] { return connectError() == ECONNREFUSED; }));
    // As another tap that has just started.
    const tools::Descriptor lock(open("/tmp/kvo_hws/.kvo_tap_cmd_sock.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(flock(lock.get(), LOCK_EX), 0);
    service.start();
    const auto failures = [&] {
        const std::vector<std::string> notes = tap.reports().notes();
        return std::count_if(notes.begin(), notes.end(),
                             [](const std::string &note) { return note.starts_with("another tap"); });
    };
    ASSERT_TRUE(support::eventually([&] { return failures() > 0; }));
    std::this_thread::sleep_for(2500ms);  // time for more attempts
    EXPECT_EQ(failures(), 1);
    EXPECT_TRUE(answers());
}

TEST(AttachedTap, taps_a_service_of_another_network_namespace_that_starts_again)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can start a service in a network namespace of its own";
    }
    const auto start = [] {
        auto service = std::make_unique<kvosim_test::Program>(std::vector<std::string>{
            "unshare", "--net", KVOSIM_PROGRAM, "serve", "--plant", EXAMPLE_PLANT, "--usb-lock-address", "none"});
        EXPECT_TRUE(service->hasWritten("serving")) << service->err();
        return service;
    };
    auto service = start();
    RunningTap tap;
    service->signal(SIGKILL);
    service->wait();
    service = start();
    EXPECT_TRUE(support::eventually([&] {
        const std::vector<std::string> notes = tap.reports().notes();
        return !notes.empty() && notes.back().starts_with("The service runs again");
    }));
    EXPECT_TRUE(answers());
}

TEST(AttachedTap, says_that_it_listens_for_embedded_events)
{
    Service service;
    const RunningTap tap;
    EXPECT_THAT(tap.reports().notes(), ElementsAre("The trace listens for embedded events itself."));
}

TEST(AttachedTap, has_a_guardian_as_soon_as_there_are_descriptors)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizers need descriptors to examine objects";
#endif
    const kvosim_test::TemporaryDirectory folder;
    tools::EventLoop loop;
    std::optional<tools::tap::TapGuardian> guardian;
    {
        const support::NoDescriptors none;
        guardian.emplace(loop, [&] { std::filesystem::create_directory(folder / "cleaned"); });
    }
    loop.after(500ms, [&] { loop.stop(); });
    loop.run();
    guardian.reset();
    EXPECT_TRUE(support::eventually([&] { return std::filesystem::exists(folder / "cleaned"); }));
}

}  // namespace

}  // namespace tap_test
