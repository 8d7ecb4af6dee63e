// trace and record from the first line to the exit status, as a user runs them.
#include "tools/kvoctl/support/watching.h"
#include "tools/kvoctl/trace/traced_service.h"
#include "tools/kvosim/support/temporary_directory.h"

#include "support/scripted_service.h"

#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace kvoctl_test {

namespace {

using kvosim_test::Client;
using kvosim_test::contentsOf;
using kvosim_test::TemporaryDirectory;
using support::ScriptedService;
using testing::HasSubstr;
using tools::tap::fileAt;

constexpr uid_t kOtherUser = 65534;

Arguments asOtherUser(const Arguments &command)
{
    const std::string id = std::to_string(kOtherUser);
    Arguments all{"setpriv", "--reuid=" + id, "--regid=" + id, "--clear-groups", "env", "-u", "TMPDIR"};
    all.insert(all.end(), command.begin(), command.end());
    return all;
}

/// Why no program can be run as another user; empty if one can.
std::string noOtherUser()
{
    Program program(asOtherUser({KVOCTL_PROGRAM, "--version"}));
    return program.wait() == 0
               ? ""
               : "another user cannot run kvoctl here (needs root, setpriv and a build that all users can read)";
}

/// While it exists, the folder of the sockets is empty and belongs to the other user.
class OtherUsersFolder {
public:
    OtherUsersFolder()
    {
        std::filesystem::create_directories(tools::kSocketDirectory);
        for (const auto &entry : std::filesystem::directory_iterator(tools::kSocketDirectory)) {
            std::filesystem::remove(entry);
        }
        EXPECT_EQ(chown(tools::kSocketDirectory, kOtherUser, kOtherUser), 0);
    }
    OtherUsersFolder(const OtherUsersFolder &) = delete;
    OtherUsersFolder &operator=(const OtherUsersFolder &) = delete;
    ~OtherUsersFolder() { EXPECT_EQ(chown(tools::kSocketDirectory, geteuid(), getegid()), 0); }
};

/// A disk of 16 KiB, if this machine permits one.
class SmallDisk {
public:
    SmallDisk() : isMounted_(mount("tmpfs", directory_.path().c_str(), "tmpfs", 0, "size=16k") == 0) {}
    SmallDisk(const SmallDisk &) = delete;
    SmallDisk &operator=(const SmallDisk &) = delete;
    ~SmallDisk()
    {
        if (isMounted_) {
            umount2(directory_.path().c_str(), MNT_DETACH);
        }
    }
    [[nodiscard]] bool isMounted() const noexcept { return isMounted_; }
    [[nodiscard]] std::string file() const { return directory_ / "file.rec"; }

private:
    TemporaryDirectory directory_;
    bool isMounted_;
};

void ask(int times)
{
    for (int i = 0; i < times; ++i) {
        EXPECT_TRUE(answers());
    }
}

/// A service that accepts the tap's own connection, and replies to a program after a pause.
support::Script late(std::chrono::milliseconds pause)
{
    return {{.kind = support::Step::Kind::readLine},
            {.kind = support::Step::Kind::pause, .pause = pause},
            {.kind = support::Step::Kind::write, .bytes = "late\n"}};
}

// ---- How an attached trace ends ----

TEST(TraceSession, completes_what_is_under_way_after_one_signal)
{
    const ScriptedService service({support::closesAtOnce(), late(2s)});
    const auto own = fileAt(tools::kCommandSocket);
    Tracing trace;
    ASSERT_TRUE(trace.isAttached()) << trace.err();
    const Client client;
    client.send("ask\n");
    EXPECT_EQ(trace.end(), 0);
    EXPECT_EQ(client.receiveAll(), "late\n");
    EXPECT_THAT(trace.out(), HasSubstr("> ask < late\n"));
    EXPECT_EQ(fileAt(tools::kCommandSocket), own);
}

TEST(TraceSession, ends_at_once_after_a_second_signal)
{
    const ScriptedService service({support::closesAtOnce(), late(9s)});
    const auto own = fileAt(tools::kCommandSocket);
    Tracing trace;
    ASSERT_TRUE(trace.isAttached()) << trace.err();
    const Client client;
    client.send("ask\n");
    ASSERT_TRUE(support::eventually([&] { return !service.requests().empty(); }));
    const auto start = std::chrono::steady_clock::now();
    trace.signal(SIGINT);
    ASSERT_TRUE(support::eventually([&] { return fileAt(tools::kCommandSocket) == own; }));
    EXPECT_EQ(trace.end(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
    EXPECT_THAT(client.receiveAll(), testing::AnyOf("", "(Connection reset by peer)"));
    EXPECT_THAT(trace.out(), HasSubstr("> ask (still open)\n"));
}

TEST(TraceSession, ends_after_its_time)
{
    const Service service;
    Tracing trace({"trace", "--for", "1"});
    ASSERT_TRUE(trace.isAttached()) << trace.err();
    ask(1);
    EXPECT_EQ(trace.wait(), 0);
    EXPECT_THAT(trace.err(), HasSubstr("1 request in "));
    expectServiceInItsPlace();
}

TEST(TraceSession, ends_when_its_reader_ends)
{
    const Service service;
    Program trace({"sh", "-c", std::string(KVOCTL_PROGRAM) + " trace | head -1"});
    ASSERT_TRUE(support::eventually([&] { return trace.err().find("Ctrl-C") != std::string::npos; })) << trace.err();
    ask(1);
    EXPECT_EQ(trace.wait(), 0) << trace.err();
    EXPECT_THAT(trace.out(), HasSubstr("> isInitComplete < yes\n"));
    EXPECT_EQ(lines(trace.out()).size(), 1U);
    expectServiceInItsPlace();
}

TEST(TraceSession, goes_on_when_the_service_restarts)
{
    Service service;
    Tracing trace;
    ASSERT_TRUE(trace.isAttached()) << trace.err();
    ask(1);
    service.kill();
    EXPECT_TRUE(trace.hasSaid("has ended."));
    service.start();
    EXPECT_TRUE(trace.hasSaid("The service runs again"));
    ask(1);
    EXPECT_EQ(trace.end(), 0);
    EXPECT_EQ(lines(trace.out()).size(), 2U) << trace.out();
    expectServiceInItsPlace();
}

TEST(TraceSession, does_not_delay_programs_when_its_reader_stops)
{
    const TemporaryDirectory directory;
    const std::string fifo = directory / "output";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const tools::Descriptor reader(open(fifo.c_str(), O_RDWR | O_CLOEXEC));  // never reads
    const std::string reply(300'000, 'x');
    const ScriptedService service({support::replies(reply)});
    Program trace({"sh", "-c", std::string("exec ") + KVOCTL_PROGRAM + " trace > " + fifo});
    ASSERT_TRUE(support::eventually([&] { return trace.err().find("Ctrl-C") != std::string::npos; })) << trace.err();
    constexpr int kRequests = 100;  // 30 MB, more than the trace keeps
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kRequests; ++i) {
        ASSERT_EQ(kvosim_test::exchange("ask\n").size(), reply.size() + 1);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
    trace.signal(SIGINT);
    EXPECT_EQ(trace.wait(), 0);
    EXPECT_THAT(trace.err(), HasSubstr("100 requests in "));
    EXPECT_THAT(trace.err(), HasSubstr("100 exchanges were not shown: the reader of the output was too slow\n"));
}

// ---- What is refused ----

TEST(TraceSession, refuses_to_start_without_a_service)
{
    const TemporaryDirectory directory;
    for (const Arguments &command : {Arguments{"trace"}, Arguments{"record", directory / "file"}}) {
        const Ended ended = kvoctl(command);
        EXPECT_EQ(ended.status, kvoctl({"ready"}).status);
        EXPECT_THAT(ended.err, HasSubstr("no service listens at /tmp/kvo_hws/cmd_sock; start it first"));
    }
}

TEST(TraceSession, refuses_a_second_one)
{
    const Service service;
    Tracing trace;
    ASSERT_TRUE(trace.isAttached()) << trace.err();
    const Ended second = kvoctl({"trace"});
    EXPECT_EQ(second.status, 4);
    EXPECT_THAT(second.err, HasSubstr("another tap is running at /tmp/kvo_hws/cmd_sock; end it first"));
    EXPECT_TRUE(answers());
    EXPECT_EQ(trace.stop(), 0);
    expectServiceInItsPlace();
}

TEST(TraceSession, says_what_to_do_where_another_user_has_the_service)
{
    if (const std::string reason = noOtherUser(); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    for (const auto &[mode, sentence] :
         {std::pair{"0600",
                    "this user may not connect to /tmp/kvo_hws/cmd_sock; run the tap as the user of the service or as root"},
          std::pair{"0666",
                    "cannot take the place of /tmp/kvo_hws/cmd_sock: the folder or the socket belongs to another user; run "
                    "the tap as that user or as root"}}) {
        const Service service({"--socket-mode", mode});
        Program trace(asOtherUser({KVOCTL_PROGRAM, "trace"}));
        EXPECT_NE(trace.wait(), 0);
        EXPECT_THAT(trace.err(), HasSubstr(sentence));
        expectServiceInItsPlace();
    }
}

TEST(TraceSession, works_without_root_for_the_users_own_service)
{
    if (const std::string reason = noOtherUser(); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    const OtherUsersFolder folder;
    Program service(asOtherUser({KVOSIM_PROGRAM, "serve", "--plant", EXAMPLE_PLANT, "--usb-lock-address", "none"}));
    ASSERT_TRUE(service.hasWritten("serving")) << service.err();
    Program trace(asOtherUser({KVOCTL_PROGRAM, "trace"}));
    ASSERT_TRUE(support::eventually([&] { return trace.err().find("Ctrl-C") != std::string::npos; })) << trace.err();
    ask(1);
    EXPECT_TRUE(trace.hasWritten("> isInitComplete < yes"));
    trace.signal(SIGINT);
    EXPECT_EQ(trace.wait(), 0) << trace.err();
    expectServiceInItsPlace();
}

// ---- With a program ----

TEST(TraceSession, ends_with_the_status_of_its_program)
{
    const Service service;
    struct Row {
        Arguments program;
        int status;
    };
    for (const Row &row :
         {Row{{"true"}, 0}, Row{{"sh", "-c", "exit 7"}, 7}, Row{{KVOCTL_PROGRAM, "ready"}, 0}, Row{{"/nonexistent"}, 127},
          Row{{"/etc/passwd"}, 126}, Row{{"sh", "-c", "kill -9 $$"}, 128 + SIGKILL}}) {
        for (const bool records : {false, true}) {
            SCOPED_TRACE(row.program.back() + (records ? " recorded" : " traced"));
            const TemporaryDirectory directory;
            Arguments command = records ? Arguments{"record", directory / "program.rec", "--"} : Arguments{"trace", "--"};
            command.insert(command.end(), row.program.begin(), row.program.end());
            Tracing trace(command);
            EXPECT_EQ(trace.wait(), row.status) << trace.err();
            if (records && row.status < 126) {
                EXPECT_EQ(exchangesOf(directory / "program.rec").size(), row.program.back() == "ready" ? 1U : 0U);
            }
        }
    }
    expectServiceInItsPlace();
}

TEST(TraceSession, passes_signals_on_to_its_program)
{
    const Service service;
    Tracing trace({"trace", "--", "sh", "-c", "trap 'exit 3' TERM; echo ready; while :; do sleep 0.02; done"});
    ASSERT_TRUE(trace.hasWritten("ready")) << trace.err();
    trace.signal(SIGTERM);
    EXPECT_EQ(trace.wait(), 3);
}

// ---- record ----

class RecordSession : public testing::Test {
protected:
    [[nodiscard]] std::string file(const char *name = "file.rec") const { return directory_ / name; }

    Service service_;

private:
    TemporaryDirectory directory_;
};

TEST_F(RecordSession, makes_a_file_that_only_its_owner_can_read)
{
    const mode_t before = umask(0);
    Tracing record({"record", file()});
    umask(before);
    ASSERT_TRUE(record.isAttached()) << record.err();
    ask(2);
    EXPECT_EQ(record.end(), 0) << record.err();
    EXPECT_THAT(record.err(), HasSubstr("2 requests of 1 program in "));
    struct stat status {};
    ASSERT_EQ(stat(file().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    EXPECT_EQ(exchangesOf(file()).size(), 2U);
}

TEST_F(RecordSession, follows_no_link_and_replaces_a_file_only_by_force)
{
    std::ofstream(file("target")) << "kept";
    std::filesystem::create_symlink(file("target"), file("link"));
    for (const Arguments &arguments :
         {Arguments{"record", file("target")}, {"record", file("link")}, {"record", file("link"), "--force"}}) {
        const Ended refused = kvoctl(arguments);
        EXPECT_EQ(refused.status, 2) << refused.err;
        EXPECT_THAT(refused.err, HasSubstr(arguments[1]));
        EXPECT_EQ(contentsOf(file("target")), "kept");
        expectServiceInItsPlace();
    }
    Tracing forced({"record", file("target"), "--force"});
    ASSERT_TRUE(forced.isAttached()) << forced.err();
    EXPECT_EQ(forced.stop(), 0);
    EXPECT_EQ(exchangesOf(file("target")).size(), 0U);
}

TEST_F(RecordSession, ends_at_its_largest_size)
{
    Tracing record({"record", file(), "--max-size", "2k"});
    ASSERT_TRUE(record.isAttached()) << record.err();
    ask(100);
    EXPECT_EQ(record.wait(), 0) << record.err();
    EXPECT_LE(std::filesystem::file_size(file()), 2048U);
    EXPECT_GT(exchangesOf(file()).size(), 5U);
    EXPECT_THAT(record.err(), HasSubstr("the recording ended early"));
    expectServiceInItsPlace();
}

TEST_F(RecordSession, ends_with_a_valid_file_when_the_disk_is_full)
{
    const SmallDisk disk;
    if (!disk.isMounted()) {
        GTEST_SKIP() << "this container does not permit a mount";
    }
    const std::string full = disk.file();
    Tracing record({"record", full});
    ASSERT_TRUE(record.isAttached()) << record.err();
    ask(1000);
    EXPECT_EQ(record.wait(), 5) << record.err();
    EXPECT_THAT(record.err(), HasSubstr("the recording ended early"));
    EXPECT_GT(exchangesOf(full).size(), 5U);
    expectServiceInItsPlace();
}

TEST_F(RecordSession, says_that_it_saw_nothing)
{
    Tracing record({"record", file()});
    ASSERT_TRUE(record.isAttached()) << record.err();
    EXPECT_EQ(record.stop(), 0);
    EXPECT_THAT(record.err(), HasSubstr("no request was seen in "));
    EXPECT_THAT(record.err(), HasSubstr("have a /tmp/kvo_hws of their own, and are not seen."));
    EXPECT_EQ(exchangesOf(file()).size(), 0U);
}

}  // namespace

}  // namespace kvoctl_test
