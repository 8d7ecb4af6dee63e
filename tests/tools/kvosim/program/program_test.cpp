// The program kvosim as its users meet it: exit statuses, messages, signals, and what it leaves behind.
#include "support/eventually.h"
#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/named_row.h"
#include "tools/kvosim/support/program.h"
#include "tools/kvosim/support/temporary_directory.h"

#include <gmock/gmock.h>

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using kvosim_test::Client;
using kvosim_test::exchange;
using kvosim_test::kCommandSocket;
using kvosim_test::Program;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

const std::string kSocket = kCommandSocket;
const std::string kReady = "kvosim: serving 30 stations at /tmp/kvo_hws/cmd_sock\n";

std::vector<std::string> kvosim(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), KVOSIM_PROGRAM);
    return arguments;
}

std::vector<std::string> serve(std::vector<std::string> more = {})
{
    // Other tests may have the default port of the USB lock: the network is everybody's.
    more.insert(more.begin(), {"serve", "--plant", EXAMPLE_PLANT, "--usb-lock-address", "none"});
    return kvosim(std::move(more));
}

std::vector<std::string> runShell(const std::string &script, std::vector<std::string> options = {})
{
    options.insert(options.begin(), {"run", "--usb-lock-address", "none"});
    options.insert(options.end(), {"--", "sh", "-c", script});
    return kvosim(std::move(options));
}

// ---- serve ----

TEST(Serve, EndsWithItsInputWhereItIsToldTo)
{
    std::vector<std::string> pipeline{"sh", "-c", "{ echo ignored; sleep 1; } | \"$0\" \"$@\""};
    const std::vector<std::string> words = serve();
    pipeline.insert(pipeline.end(), words.begin(), words.end());
    pipeline.emplace_back("--until-input-ends");
    Program service(pipeline);
    ASSERT_TRUE(service.hasWritten(kReady)) << service.err();
    EXPECT_EQ(exchange("getVersion\n"), "V04.07.01.12\n");
    EXPECT_EQ(service.wait(), 0);
    EXPECT_FALSE(std::filesystem::exists(kSocket));
    EXPECT_THAT(service.temporaryFiles(), IsEmpty());
}

TEST(Serve, IsNotToldToWaitForTheEndOfAFile)
{
    std::vector<std::string> words{"sh", "-c", "exec \"$0\" \"$@\" </dev/null"};
    const std::vector<std::string> serving = serve();
    words.insert(words.end(), serving.begin(), serving.end());
    words.emplace_back("--until-input-ends");
    Program service(words);
    EXPECT_EQ(service.wait(), 2);
    EXPECT_EQ(service.err(),
              "kvosim: --until-input-ends: standard input is no pipe, socket or terminal whose end could be waited for\n");
    EXPECT_FALSE(std::filesystem::exists(kSocket));
}

TEST(Serve, TellsThatItIsReadyAndAnswers)
{
    const Program service(serve());
    ASSERT_TRUE(service.hasWritten(kReady)) << service.err();
    EXPECT_EQ(exchange("getVersion\n"), "V04.07.01.12\n");
    EXPECT_EQ(exchange("getCountElemDL\n"), "30\n");
}

class ServeEndsOn : public testing::TestWithParam<int> {};

TEST_P(ServeEndsOn, SignalAndLeavesNothing)
{
    Program service(serve());
    ASSERT_TRUE(service.hasWritten(kReady)) << service.err();
    EXPECT_FALSE(service.temporaryFiles().empty());
    const Client half;
    half.send("getVer");
    service.signal(GetParam());
    EXPECT_EQ(service.wait(), 0);
    EXPECT_FALSE(std::filesystem::exists(kSocket));
    EXPECT_THAT(service.temporaryFiles(), IsEmpty());
    EXPECT_EQ(service.err(), "");
}

INSTANTIATE_TEST_SUITE_P(Signals, ServeEndsOn, testing::Values(SIGTERM, SIGINT),
                         [](const auto &row) { return row.param == SIGTERM ? "term" : "int"; });

TEST(Serve, EndsOnKillDaemon)
{
    Program service(serve());
    ASSERT_TRUE(service.hasWritten(kReady)) << service.err();
    EXPECT_EQ(exchange("killDaemon\n"), "ok\n");
    EXPECT_FALSE(std::filesystem::exists(kSocket));
    EXPECT_EQ(service.wait(), 0);
    EXPECT_THAT(service.temporaryFiles(), IsEmpty());
}

TEST(Serve, RefusesToStartBesideALiveService)
{
    const Program first(serve());
    ASSERT_TRUE(first.hasWritten(kReady)) << first.err();
    Program second(serve());
    EXPECT_EQ(second.wait(), 1);
    EXPECT_THAT(second.err(), HasSubstr("kvosim: a service is running at /tmp/kvo_hws/cmd_sock already"));
    EXPECT_THAT(second.temporaryFiles(), IsEmpty());
    EXPECT_EQ(exchange("getCountElemDL\n"), "30\n");
}

TEST(Serve, TakesTheSocketOfAKilledServiceOver)
{
    {
        const Program killed(serve());
        ASSERT_TRUE(killed.hasWritten(kReady)) << killed.err();
    }
    ASSERT_TRUE(std::filesystem::exists(kSocket));
    const Program service(serve());
    ASSERT_TRUE(service.hasWritten(kReady)) << service.err();
    EXPECT_EQ(exchange("getCountElemDL\n"), "30\n");
}

TEST(Serve, SocketsMayBeThisUsersAlone)
{
    const Program service(serve({"--socket-mode", "0600"}));
    ASSERT_TRUE(service.hasWritten(kReady));
    EXPECT_EQ(std::filesystem::status("/tmp/kvo_hws/cmd_sock").permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    Program wrong(serve({"--socket-mode", "0888"}));
    EXPECT_EQ(wrong.wait(), 2);
    EXPECT_THAT(wrong.err(), HasSubstr("write an octal number such as 0600, 0660 or 0666"));
}

TEST(Serve, KeepsItsRegistryFromOneStartToTheNext)
{
    const kvosim_test::TemporaryDirectory registry;
    for (int start = 0; start < 2; ++start) {
        Program service(serve({"--registry", registry.path().string()}));
        ASSERT_TRUE(service.hasWritten(kReady)) << service.err();
        EXPECT_EQ(exchange("getregistrypath\n"), registry.path().string() + "/\n");
        service.signal(SIGTERM);
        EXPECT_EQ(service.wait(), 0);
    }
    const std::string current = kvosim_test::contentsOf(registry / "kvo_hws/currkvos.reg");
    EXPECT_THAT(current, StartsWith("\"Milling centre 1\" 10.0.0.5 1024x768:16\n"));
    EXPECT_EQ(kvosim_test::contentsOf(registry / "kvo_hws/prevkvos.reg"), current);
}

TEST(Serve, LogsEachExchangeWhenVerbose)
{
    Program service(serve({"--verbose"}));
    ASSERT_TRUE(service.hasWritten(kReady)) << service.err();
    exchange("getVersion\n");
    exchange("x\x01y\n");
    const std::string list = exchange("getDLV2 99\n");
    service.signal(SIGTERM);
    service.wait();
    EXPECT_THAT(service.err(), ContainsRegex("^[0-9:]{8}\\.[0-9]{3} getVersion -> V04.07.01.12\n"));
    EXPECT_THAT(service.err(), HasSubstr(" x\\x01y -> failed\n"));
    EXPECT_THAT(service.err(), HasSubstr(" getDLV2 99 -> 0000001E "));
    EXPECT_THAT(service.err(), HasSubstr("... (" + std::to_string(list.size() - 1) + " bytes)\n"));
}

TEST(Serve, TellsAMistakeInThePlantFile)
{
    const kvosim_test::TemporaryDirectory directory;
    const std::string file = directory / "plant.toml";
    std::ofstream(file) << "[[station]]\nadress = \"10.0.0.5\"\n";
    Program service(kvosim({"serve", "--plant", file}));
    EXPECT_EQ(service.wait(), 2);
    EXPECT_THAT(service.err(), StartsWith("kvosim: " + file + ":2: station.adress: unknown key; known here: address"));
    EXPECT_EQ(service.out(), "");
}

TEST(Serve, SaysThatItsRegistryCanNotBeUsed)
{
    Program service(serve({"--registry", "/proc/nowhere"}));
    EXPECT_EQ(service.wait(), 1);
    EXPECT_THAT(service.err(), HasSubstr("/proc/nowhere"));
    EXPECT_FALSE(std::filesystem::exists(kSocket));
}

// ---- run ----

struct Ending : kvosim_test::NamedRow {
    std::vector<std::string> command;
    int status;
    std::string message;
};

class RunEndsAs : public testing::TestWithParam<Ending> {};

TEST_P(RunEndsAs, ItsCommand)
{
    std::vector<std::string> arguments{"run", "--usb-lock-address", "none", "--"};
    arguments.insert(arguments.end(), GetParam().command.begin(), GetParam().command.end());
    Program run(kvosim(arguments));
    EXPECT_EQ(run.wait(), GetParam().status);
    EXPECT_EQ(run.err(), GetParam().message);
    EXPECT_EQ(run.out(), "");
    EXPECT_THAT(run.temporaryFiles(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Table, RunEndsAs,
    testing::Values(
        Ending{"success", {"true"}, 0, ""}, Ending{"failure", {"false"}, 1, ""},
        Ending{"status", {"sh", "-c", "exit 42"}, 42, ""}, Ending{"killed", {"sh", "-c", "kill -KILL $$"}, 137, ""},
        Ending{"terminated", {"sh", "-c", "kill -TERM $$"}, 143, ""},
        Ending{"not_found", {"no-such-command-here"}, 127, "kvosim: no-such-command-here: No such file or directory\n"},
        Ending{"not_found_path", {"/no/such/command"}, 127, "kvosim: /no/such/command: No such file or directory\n"},
        Ending{"not_executable", {"/etc/passwd"}, 126, "kvosim: /etc/passwd: Permission denied\n"},
        Ending{"directory", {"/tmp"}, 126, "kvosim: /tmp: Permission denied\n"},
        Ending{"arguments_untouched",
               {"sh", "-c", "test $# = 4 && test \"$1\" = --help && test \"$2\" = -- && test \"$3\" = '[a,b]'", "sh", "--help",
                "--", "[a,b]", ""},
               0,
               ""}),
    kvosim_test::kNameOfRow);

Program runByName(const std::filesystem::path &directory)
{
    return Program({"sh", "-c",
                    "PATH=" + directory.string() +
                        ":\"$PATH\" exec " KVOSIM_PROGRAM " run --usb-lock-address none -- kvosim-test-command"});
}

TEST(Run, FindsACommandThatCanNotBeExecuted)
{
    const kvosim_test::TemporaryDirectory directory;
    std::ofstream(directory / "kvosim-test-command") << "no program";
    Program run = runByName(directory.path());
    EXPECT_EQ(run.wait(), 126);
    EXPECT_EQ(run.err(), "kvosim: kvosim-test-command: Permission denied\n");
}

TEST(Run, FindsNothingInADirectoryThatItCanNotLookInto)
{
    if (geteuid() == 0) {
        GTEST_SKIP() << "root can look into every directory";
    }
    const kvosim_test::TemporaryDirectory directory;
    std::filesystem::create_directory(directory / "closed");
    std::filesystem::permissions(directory / "closed", std::filesystem::perms::none);
    Program run = runByName(directory / "closed");
    EXPECT_EQ(run.wait(), 127);
    std::filesystem::permissions(directory / "closed", std::filesystem::perms::owner_all);
    EXPECT_EQ(run.err(), "kvosim: kvosim-test-command: No such file or directory\n");
}

TEST(Run, ServesTheCommandAlone)
{
    Program run(runShell("ls /tmp/kvo_hws"));
    EXPECT_EQ(run.wait(), 0);
    EXPECT_EQ(run.out(), "cmd_sock\nevent_sock\nkvosim_ctl\n");
    EXPECT_FALSE(std::filesystem::exists(kSocket)) << "the service was to be seen by others";
}

TEST(Run, LeavesALiveServiceOutsideAlone)
{
    const Program outside(serve());
    ASSERT_TRUE(outside.hasWritten(kReady)) << outside.err();
    Program run(runShell("ls /tmp/kvo_hws"));
    EXPECT_EQ(run.wait(), 0);
    EXPECT_EQ(exchange("getCountElemDL\n"), "30\n");
}

TEST(Run, PassesItsStandardStreamsOn)
{
    Program run(runShell("echo to-out; echo to-err >&2"));
    EXPECT_EQ(run.wait(), 0);
    EXPECT_EQ(run.out(), "to-out\n");
    EXPECT_EQ(run.err(), "to-err\n");
}

TEST(Run, StartsWithTheUsualSignals)
{
    Program run(runShell("grep SigBlk /proc/self/status"));
    EXPECT_EQ(run.wait(), 0);
    EXPECT_EQ(run.out(), "SigBlk:\t0000000000000000\n");
}

class RunForwards : public testing::TestWithParam<int> {};

TEST_P(RunForwards, SignalToItsCommand)
{
    Program run(runShell(
        "trap 'echo got-TERM; exit 7' TERM; trap 'echo got-INT; exit 7' INT; echo ready; while :; do sleep 0.01; done"));
    ASSERT_TRUE(run.hasWritten("ready\n"));
    run.signal(GetParam());
    EXPECT_EQ(run.wait(), 7);
    EXPECT_EQ(run.out(), GetParam() == SIGTERM ? "ready\ngot-TERM\n" : "ready\ngot-INT\n");
    EXPECT_THAT(run.temporaryFiles(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Signals, RunForwards, testing::Values(SIGTERM, SIGINT),
                         [](const auto &row) { return row.param == SIGTERM ? "term" : "int"; });

TEST(Run, EndsWhatItsCommandLeftRunning)
{
    // One that goes when it is told to, and one that has to be made to.
    Program run(runShell("sleep 1000 & echo $!; sh -c 'trap \"\" TERM; echo $$; while :; do sleep 0.05; done' & sleep 0.2"));
    EXPECT_EQ(run.wait(), 0);
    std::istringstream processes(run.out());
    int found = 0;
    for (pid_t process = 0; processes >> process; ++found) {
        EXPECT_NE(kill(process, 0), 0) << process << " still runs";
    }
    EXPECT_EQ(found, 2);
}

TEST(Run, EndsItsCommandWhenItIsKilled)
{
    pid_t command = 0;
    {
        const Program run(runShell("echo $$; exec sleep 1000"));
        ASSERT_TRUE(run.hasWritten("\n"));
        command = std::stoi(run.out());
        ASSERT_EQ(kill(command, 0), 0);
    }
    EXPECT_TRUE(support::eventually([&] {
        // An orphan stays as a zombie where nobody collects it.
        const std::string status = kvosim_test::contentsOf("/proc/" + std::to_string(command) + "/stat");
        return kill(command, 0) != 0 || status.find(") Z ") != std::string::npos;
    }));
}

TEST(Run, ServesTheGivenPlantAndLogsWhenVerbose)
{
    Program run(runShell(ASK_PROGRAM " getCountElemDL killDaemon && ! " ASK_PROGRAM " getVersion && exit 5",
                         {"--plant", EXAMPLE_PLANT, "--verbose"}));
    EXPECT_EQ(run.wait(), 5) << "the command outlives the service that it has ended";
    EXPECT_EQ(run.out(), "30\nok\n");
    EXPECT_THAT(run.err(), HasSubstr(" getCountElemDL -> 30\n"));
    EXPECT_THAT(run.temporaryFiles(), IsEmpty());
}

TEST(Run, SaysThatTheKernelRefusesANamespace)
{
    Program run(runShell("echo started"), true);
    EXPECT_EQ(run.wait(), 1);
    EXPECT_EQ(run.out(), "");
    const std::string missing =
        geteuid() == 0
            ? "although this process has CAP_SYS_ADMIN: a filter of system calls, as of a container, forbids it)"
            : "only root may); new user namespace, in which it were permitted: Operation not permitted; the kernel or "
              "the container forbids them";
    EXPECT_THAT(run.err(), StartsWith("kvosim: no private /tmp/kvo_hws: new mount namespace: Operation not permitted (" +
                                      missing + ". \"kvosim run --shared\" needs no namespace"));
    EXPECT_THAT(run.temporaryFiles(), IsEmpty());
}

/// Whether this test has the namespace that the sandbox gives it: then what it mounts is not seen outside.
bool hasOwnMounts()
{
    struct stat sockets {};
    struct stat parent {};
    return stat("/tmp/kvo_hws", &sockets) == 0 && stat("/tmp", &parent) == 0 && sockets.st_dev != parent.st_dev;
}

TEST(Run, RefusesALinkInPlaceOfTheSocketsDirectory)
{
    // In a /tmp of its own, so that the link is nobody else's; the program and its libraries may lie in what that hides.
    const std::string script = "exec 3<\"$0\" 4<\"${0%/bin/*}/lib\" && "
                               "mount -t tmpfs none /tmp && mkdir /tmp/target && ln -s target /tmp/kvo_hws && "
                               "LD_LIBRARY_PATH=/proc/self/fd/4 exec /proc/self/fd/3 run -- echo started";
    if (geteuid() != 0 || !hasOwnMounts()) {
        GTEST_SKIP() << "only root can have a /tmp of its own, and not in a chroot below a shared mount";
    }
    // unshare cannot make the mounts private in a chroot whose root is not a mount point; the sandbox has done so.
    Program run({"unshare", "--mount", "--propagation", "unchanged", "sh", "-c", script, KVOSIM_PROGRAM});
    EXPECT_EQ(run.wait(), 1);
    EXPECT_EQ(run.out(), "");
    EXPECT_THAT(run.err(),
                HasSubstr("/tmp/kvo_hws is no directory that can be used (it belongs to root, number 0; it must be a "
                          "directory, and no link); to remove it, type \"rm /tmp/kvo_hws\""));
}

TEST(Run, TellsAMistakeInThePlantFileBeforeTheCommandStarts)
{
    Program run(runShell("echo started", {"--plant", "/no/such/plant.toml"}));
    EXPECT_EQ(run.wait(), 2);
    EXPECT_EQ(run.err(), "kvosim: /no/such/plant.toml: can not be read; give the path of a plant file (docs/plant-file.md)\n");
    EXPECT_EQ(run.out(), "");
}

// ---- generate ----

TEST(Generate, WritesAPlantThatIsServed)
{
    const kvosim_test::TemporaryDirectory directory;
    const std::string file = directory / "plant.toml";
    Program generate(kvosim({"generate", "10000", "--seed", "3"}));
    ASSERT_EQ(generate.wait(), 0);
    std::ofstream(file) << generate.out();
    const Program service(kvosim({"serve", "--plant", file}));
    ASSERT_TRUE(service.hasWritten("kvosim: serving 10000 stations")) << service.err();
    EXPECT_EQ(exchange("getCountElemDL\n"), "10000\n");
    const std::string list = exchange("getDL_ExV2 10000\n");
    EXPECT_THAT(list.substr(0, 18), StartsWith("00002710 0A000001"));
    EXPECT_GT(list.size(), 1'000'000U);
}

// ---- How it is called ----

struct Call : kvosim_test::NamedRow {
    std::vector<std::string> arguments;
    int status;
    std::string out;
    std::string err;
};

class Called : public testing::TestWithParam<Call> {};

TEST_P(Called, Answers)
{
    Program program(kvosim(GetParam().arguments));
    EXPECT_EQ(program.wait(), GetParam().status);
    EXPECT_THAT(program.out(), HasSubstr(GetParam().out));
    EXPECT_THAT(program.err(), HasSubstr(GetParam().err));
}

INSTANTIATE_TEST_SUITE_P(
    Table, Called,
    testing::Values(
        Call{"without_anything", {}, 2, "", "The hardware service of a simulated plant.\nUsage: kvosim [OPTIONS]"},
        Call{"unknown_subcommand",
             {"server"},
             2,
             "",
             "kvosim: \"server\" is not a command; did you mean \"serve\"?\n\"kvosim --help\" tells how.\n"},
        Call{"subcommand_of_another", {"plug"}, 2, "", "\"plug\" is not a command; did you mean \"usb plug\"?\n"},
        Call{"unknown_option",
             {"serve", "--plant", EXAMPLE_PLANT, "--quiet"},
             2,
             "",
             "kvosim: serve: \"--quiet\" is not an option\n\"kvosim serve --help\" tells how.\n"},
        Call{"mistyped_option",
             {"serve", "--plnt", EXAMPLE_PLANT},
             2,
             "",
             "kvosim: serve: \"--plnt\" is not an option; did you mean \"--plant\"?\n"},
        Call{"unexpected_argument", {"status", "now"}, 2, "", "kvosim: status: unexpected argument \"now\"\n"},
        Call{"serve_without_plant", {"serve"}, 2, "", "kvosim: serve: --plant is required\n"},
        Call{"run_without_command", {"run"}, 2, "", "give the command to run after \"--\""},
        Call{"run_with_empty_command", {"run", "--"}, 2, "", "give the command to run after \"--\""},
        Call{"run_without_mark",
             {"run", "ls", "-l"},
             2,
             "",
             "kvosim: run: the command to run goes after \"--\": kvosim run -- ls -l\n"},
        Call{"run_without_mark_after_options",
             {"run", "--verbose", "--plant", "sh", "sh", "-c", "echo $HOME", "it's"},
             2,
             "",
             "\"--\": kvosim run --verbose --plant sh -- sh -c 'echo $HOME' 'it'\\''s'\n"},
        Call{"run_without_mark_for_help", {"run", "ls", "--help"}, 2, "", "\"--\": kvosim run -- ls --help\n"},
        Call{"run_with_a_word_before_the_mark",
             {"run", "fast", "--", "true"},
             2,
             "",
             "kvosim: run: unexpected argument \"fast\"\n"},
        Call{"run_with_a_mistyped_option",
             {"run", "--vrebose", "--", "true"},
             2,
             "",
             "kvosim: run: \"--vrebose\" is not an option; did you mean \"--verbose\"?\n"},
        Call{"generate_without_count", {"generate"}, 2, "", "COUNT is required"},
        Call{"generate_too_many", {"generate", "100001"}, 2, "", "not in range"},
        Call{"generate_negative", {"generate", "--", "-1"}, 2, "", "not in range"},
        Call{"generate_text", {"generate", "many"}, 2, "", "many"}, Call{"version", {"--version"}, 0, "kvosim 0.", ""},
        Call{"help_command", {"help"}, 0, "Examples:\n  kvosim serve", ""},
        Call{"help_of_a_command", {"help", "fault", "add"}, 0, "Usage: kvosim fault add [OPTIONS] KIND\n", ""},
        Call{"help_of_an_unknown_command", {"help", "falt"}, 2, "", "did you mean \"fault\"?\n"},
        Call{"help_of_run_has_its_command", {"help", "run"}, 0, "Usage: kvosim run [OPTIONS] -- COMMAND [ARGUMENT...]\n", ""},
        Call{"help_that_wraps",
             {"help", "serve"},
             0,
             "  --registry TEXT             Directory of the registry lists, kept from one\n"
             "                              start to the next (default: a temporary one)\n",
             ""},
        Call{"help", {"--help"}, 0, "Examples:\n  kvosim serve", ""},
        Call{"serve_help", {"serve", "--help"}, 0, "Examples:\n  kvosim serve", ""},
        Call{"run_help", {"run", "--help"}, 0, "built-in plant", ""},
        Call{"run_help_examples", {"run", "--help"}, 0, "Examples:\n  kvosim run -- ", ""},
        Call{"generate_help", {"generate", "--help"}, 0, "Examples:\n  kvosim generate", ""}),
    kvosim_test::kNameOfRow);

}  // namespace
