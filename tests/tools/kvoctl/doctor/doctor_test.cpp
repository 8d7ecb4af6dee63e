// Every finding of "kvoctl doctor", each with a fault that causes it.
#include "tools/kvoctl/support/kvoctl.h"
#include "tools/kvoctl/support/watching.h"
#include "tools/kvosim/support/running_service.h"
#include "tools/kvosim/support/temporary_directory.h"

#include "support/scripted_service.h"

#include "common/platform_check.h"
#include "common/tap/socket_place.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <linux/capability.h>
#include <optional>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kvoctl_test {

namespace {

using namespace std::chrono_literals;
using kvosim_test::RunningService;
using kvosim_test::TemporaryDirectory;
using support::ScriptedService;
using testing::HasSubstr;

constexpr const char *kDirectory = "/tmp/kvo_hws";
constexpr const char *kSocket = "/tmp/kvo_hws/cmd_sock";

/// Runs the doctor with a readable configuration file, so that the fault is the only finding.
class Doctor : public testing::Test {
protected:
    Doctor() { std::ofstream(configuration_) << "# empty\n"; }

    /// @p more  environment variables
    [[nodiscard]] Ended run(const Arguments &arguments = {}, const Arguments &more = {}) const
    {
        Arguments environment{"LC_ALL=C.UTF-8", "KVO_PLATFORM_CONFIG=" + configuration_.string()};
        environment.insert(environment.end(), more.begin(), more.end());
        Arguments all{"doctor"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        const auto start = std::chrono::steady_clock::now();
        Ended ended = kvoctl(all, {.environment = environment});
        EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
        EXPECT_EQ(ended.err, "");
        return ended;
    }

    /// Expects a single fault with this exit status.
    void expectFault(int status, const std::string &check, const std::string &finding, const std::string &advice = "") const
    {
        const Ended ended = run({"--json"});
        EXPECT_EQ(ended.status, status);
        const Json document = ended.document();
        EXPECT_EQ(document["healthy"], false);
        const Json fault = document["findings"].back();
        EXPECT_EQ(fault["check"], check);
        EXPECT_EQ(fault["state"], "fault");
        EXPECT_EQ(fault["status"], status);
        EXPECT_THAT(fault["finding"].get<std::string>(), testing::MatchesRegex(finding));
        EXPECT_THAT(fault["advice"].get<std::string>(), HasSubstr(advice));
        for (std::size_t i = 0; i + 1 < document["findings"].size(); ++i) {
            EXPECT_EQ(document["findings"][i]["state"], "ok");
        }
    }

    TemporaryDirectory directory_;
    std::filesystem::path configuration_ = directory_ / "kvo_hws.conf";
};

/// Drops root's right to ignore file permissions, in this process and in those that it starts.
void obeyPermissions()
{
    for (const auto capability : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH}) {
        prctl(PR_CAPBSET_DROP, capability, 0, 0, 0);
    }
}

/// Hides the machine's /tmp from this process and those that it starts, if the kernel allows it. A build below /tmp stays
/// visible.
class HiddenTemporaryFiles {
public:
    HiddenTemporaryFiles()
    {
        const std::filesystem::path build = std::filesystem::path(LIBRARY_DIRECTORY).parent_path();
        hidden = unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
        const int kept = open(build.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);  // opened in the new namespace
        hidden = hidden && mount("tmpfs", "/tmp", "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755,size=1m") == 0;
        if (hidden && build.string().starts_with("/tmp/")) {
            std::filesystem::create_directories(build);
            hidden = mount(("/proc/self/fd/" + std::to_string(kept)).c_str(), build.c_str(), nullptr, MS_BIND, nullptr) == 0;
        }
        close(kept);
    }
    HiddenTemporaryFiles(const HiddenTemporaryFiles &) = delete;
    HiddenTemporaryFiles &operator=(const HiddenTemporaryFiles &) = delete;
    ~HiddenTemporaryFiles()
    {
        if (hidden) {
            umount2("/tmp", MNT_DETACH);
        }
    }

    bool hidden = false;
};

TEST_F(Doctor, finds_no_fault_in_a_ready_service)
{
    const RunningService service;
    const Ended ended = run();
    EXPECT_EQ(ended.status, 0);
    EXPECT_THAT(ended.out, testing::EndsWith("\nok  answer           The service answers and is ready.\nNothing is wrong.\n"));
}

TEST_F(Doctor, lists_all_findings_in_one_document)
{
    const ScriptedService service({support::replies("yes")});
    const Ended ended = run({"--json"});
    EXPECT_EQ(ended.status, 0);
    Json document = ended.document();
    const auto finding = [](const std::string &check, const std::string &words) {
        return Json{{"check", check}, {"state", "ok"}, {"status", 0}, {"finding", words}, {"advice", nullptr}};
    };
    const std::string library = LIBRARY_DIRECTORY "/";
    const Json expected{{"healthy", true},
                        {"findings",
                         {finding("libkvo_hws.so.0", "The loader uses " + library + "libkvo_hws.so.0."),
                          finding("libpavo.so.1", "The loader uses " + library + "libpavo.so.1."),
                          finding("libdrak.so", "The loader uses " + library + "libdrak.so."),
                          finding("configuration", "The configuration file is " + configuration_.string() + "."),
                          finding("directory", "The directory /tmp/kvo_hws exists."),
                          finding("socket", "The socket /tmp/kvo_hws/cmd_sock exists."),
                          finding("connection", "The service accepts connections: process " + std::to_string(getpid()) +
                                                    " (kvoctl_doctor_t)."),  // the kernel truncates program names
                          finding("answer", "The service answers and is ready.")}}};
    EXPECT_EQ(document.dump(2), expected.dump(2));
    EXPECT_EQ(service.requests(), std::vector<std::string>{"isInitComplete\n"});
}

TEST_F(Doctor, finds_a_missing_directory)
{
    const HiddenTemporaryFiles files;
    if (!files.hidden) {
        GTEST_SKIP() << "the kernel allows no mounts here: " << std::strerror(errno);
    }
    std::filesystem::create_directories(configuration_.parent_path());
    std::ofstream(configuration_) << "# empty\n";
    expectFault(10, "directory", "The directory /tmp/kvo_hws: No such file or directory\\.", "Start the hardware service");
}

TEST_F(Doctor, finds_a_file_instead_of_the_directory)
{
    const HiddenTemporaryFiles files;
    if (!files.hidden) {
        GTEST_SKIP() << "the kernel allows no mounts here: " << std::strerror(errno);
    }
    std::filesystem::create_directories(configuration_.parent_path());
    std::ofstream(configuration_) << "# empty\n";
    std::ofstream(kDirectory) << "no directory\n";
    expectFault(12, "directory", "/tmp/kvo_hws is not a directory\\.", "Remove it");
}

TEST_F(Doctor, finds_a_missing_socket)
{
    expectFault(11, "socket", "The socket /tmp/kvo_hws/cmd_sock: No such file or directory\\.", "kvosim run");
}

TEST_F(Doctor, finds_a_file_instead_of_the_socket)
{
    std::ofstream(support::kCommandSocket) << "no socket\n";
    expectFault(12, "socket", "/tmp/kvo_hws/cmd_sock is not a socket\\.", "Remove it");
}

TEST_F(Doctor, finds_a_stale_socket)
{
    support::leaveStaleSocket(support::kCommandSocket);
    expectFault(13, "connection", "No process listens at the socket.*", "it replaces the socket");
}

TEST_F(Doctor, finds_a_socket_that_this_user_may_not_write_to)
{
    const ScriptedService service({support::replies("yes")});
    obeyPermissions();
    ASSERT_EQ(chmod(support::kCommandSocket, 0), 0);
    expectFault(14, "connection", "This user may not write to the socket\\.", "as root");
}

TEST_F(Doctor, finds_a_directory_that_this_user_may_not_access)
{
    const ScriptedService service({support::replies("yes")});
    obeyPermissions();
    ASSERT_EQ(chmod(kDirectory, 0), 0);
    expectFault(14, "socket", "This user may not access /tmp/kvo_hws\\.", "as root");
    ASSERT_EQ(chmod(kDirectory, 0755), 0);
}

TEST_F(Doctor, finds_a_queue_that_stays_full)
{
    const support::FullQueue service;
    expectFault(15, "connection", "The queue of the socket stays full.*", "restart it");
}

TEST_F(Doctor, finds_a_service_that_stays_silent)
{
    const ScriptedService service({support::staysSilent(60s)});
    expectFault(16, "answer", ".*no complete answer within 4 s.*", "process " + std::to_string(getpid()));
}

TEST_F(Doctor, does_not_wait_for_an_answer_that_never_ends)
{
    const ScriptedService service({support::dribbles(std::string(200, 'y'), 100ms)});
    expectFault(16, "answer", ".*no complete answer within 4 s.*");
}

TEST_F(Doctor, finds_a_service_that_closes_without_an_answer)
{
    const ScriptedService service({support::closesAfterRequest()});
    expectFault(17, "answer", "The service closes the connection without an answer\\.", "log");
}

TEST_F(Doctor, finds_a_service_that_closes_at_once)
{
    const ScriptedService service({support::closesAtOnce()});
    expectFault(17, "answer", "The service (closes|breaks|does not accept the request).*");
}

TEST_F(Doctor, finds_a_service_with_another_protocol)
{
    const ScriptedService service({support::replies("hello")});
    expectFault(17, "answer", "The service answers \"hello\" when asked whether it is ready\\.", "kvoctl version");
}

TEST_F(Doctor, finds_a_service_with_an_endless_answer)
{
    const ScriptedService service({support::sends(std::string(100000, 'x'))});
    expectFault(17, "answer", "The service answers \"x{80}\" when asked whether it is ready\\.");
}

TEST_F(Doctor, finds_a_service_that_is_not_ready)
{
    const ScriptedService service({support::replies("no")});
    expectFault(18, "answer", "The service answers, but has not finished starting\\.", "kvoctl ready --wait 30");
}

TEST_F(Doctor, shows_the_fault_and_the_advice_as_text)
{
    const Ended ended = run();
    EXPECT_EQ(ended.status, 11);
    EXPECT_THAT(ended.out,
                testing::EndsWith("\nFAULT  socket           The socket /tmp/kvo_hws/cmd_sock: No such file or directory.\n"
                                  "                        Start the hardware service. For a simulated one: kvosim run -- "
                                  "kvoctl ...\n"));
}

TEST_F(Doctor, escapes_the_service_s_answer)
{
    const ScriptedService service({support::replies("\x1B[2J")});
    EXPECT_THAT(run().out, HasSubstr(R"(answers "\x1B[2J" when)"));
}

TEST_F(Doctor, does_not_report_a_missing_configuration_file_as_a_fault)
{
    const RunningService service;
    std::filesystem::remove(configuration_);
    const Ended ended = run({"--json"});
    EXPECT_EQ(ended.status, 0);
    const Json note = ended.document()["findings"][3];
    EXPECT_EQ(note["check"], "configuration");
    EXPECT_EQ(note["state"], "note");
    EXPECT_EQ(note["finding"],
              "The configuration file " + configuration_.string() + " cannot be read: No such file or directory.");
    EXPECT_EQ(ended.document()["healthy"], true);
}

TEST_F(Doctor, checks_the_default_configuration_file_if_the_platform_names_none)
{
    const Ended ended = kvoctl({"doctor"}, {.environment = {"LC_ALL=C.UTF-8"}});
    EXPECT_THAT(ended.out, HasSubstr("/etc/kvo_hws.conf"));
}

TEST_F(Doctor, shows_which_platform_library_is_used)
{
    std::filesystem::copy_file(LIBRARY_DIRECTORY "/libpavo.so.1", directory_ / "libpavo.so.1");
    const Ended ended = run({"--json"}, {"LD_LIBRARY_PATH=" + directory_.path().string()});
    EXPECT_EQ(ended.document()["findings"][1]["finding"], "The loader uses " + (directory_ / "libpavo.so.1").string() + ".");
}

// ---- Traces ----

/// Takes the place of the service's socket in a process that is killed, and has no guardian.
void leaveSocketAside()
{
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    const tools::Descriptor done(ends[0]);
    tools::Descriptor taken(ends[1]);
    const pid_t child = fork();
    if (child == 0) {
        const tools::tap::SocketPlace place(kSocket);
        static_cast<void>(write(taken.get(), "x", 1));
        pause();
        _exit(1);
    }
    taken = tools::Descriptor();
    char byte = 0;
    EXPECT_EQ(read(done.get(), &byte, 1), 1);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

TEST_F(Doctor, finds_the_socket_that_a_killed_trace_has_left_aside)
{
    const RunningService service;
    leaveSocketAside();
    expectFault(20, "trace", "A trace or a recording was killed, and has left the service's socket aside.",
                "kvoctl trace --repair");
    const Ended repaired = kvoctl({"trace", "--repair"});
    EXPECT_EQ(repaired.status, 0);
    EXPECT_EQ(repaired.out, std::string("put back: ") + kSocket + "\n");
    EXPECT_EQ(run().status, 0);
    const Ended again = kvoctl({"trace", "--repair", "--json"});
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(again.document()["repaired"], Json::array());
}

TEST_F(Doctor, finds_nothing_wrong_when_the_service_has_started_again_since_a_trace_was_killed)
{
    std::optional<RunningService> service(std::in_place);
    leaveSocketAside();
    service.reset();
    service.emplace();
    EXPECT_EQ(run().status, 0);
}

TEST_F(Doctor, notes_that_a_trace_is_running)
{
    const RunningService service;
    Watching trace({"--json"}, {"trace"});
    ASSERT_TRUE(trace.hasWritten("the trace has begun"));
    const Ended ended = run({"--json"});
    EXPECT_EQ(ended.status, 0);
    const Json note = ended.document()["findings"][4];
    EXPECT_EQ(note["check"], "trace");
    EXPECT_EQ(note["state"], "note");
    EXPECT_EQ(note["status"], 0);
    EXPECT_EQ(note["finding"], "A trace or a recording is running; all requests pass through it.");
    EXPECT_EQ(trace.stop(), 0);
    EXPECT_EQ(run({"--json"}).document()["findings"][4]["check"], "directory");
}

// ---- Libraries that are missing or broken ----

TEST(PlatformLibrary, that_is_not_loaded_is_a_fault)
{
    const tools::Finding finding = tools::examineLibrary("libkvo_no_such.so.7");
    EXPECT_EQ(static_cast<int>(finding.fault), 19);
    EXPECT_EQ(finding.text, "The loader did not find libkvo_no_such.so.7.");
    EXPECT_THAT(finding.advice, HasSubstr("LD_LIBRARY_PATH"));
}

TEST(PlatformLibrary, that_is_broken_prevents_the_program_from_starting)
{
    const TemporaryDirectory directory;
    std::ofstream(directory / "libdrak.so") << "";
    const Ended ended = kvoctl({"doctor"}, {.environment = {"LD_LIBRARY_PATH=" + directory.path().string(), "LC_ALL=C.UTF-8"}});
    EXPECT_EQ(ended.status, 127);  // the exit status of the loader
    EXPECT_EQ(ended.out, "");
    EXPECT_THAT(ended.err, HasSubstr("error while loading shared libraries: " + (directory / "libdrak.so").string()));
}

}  // namespace

}  // namespace kvoctl_test
