// What is in a report: of a running service, of a silent one, and without one.
#include "tools/common/tap/service.h"
#include "tools/kvoctl/report/report.h"
#include "tools/kvosim/support/running_service.h"

#include "support/scripted_service.h"

#include <chrono>
#include <fstream>

namespace kvoctl_test {

namespace {

using namespace std::chrono_literals;
using kvosim_test::RunningService;
using support::ScriptedService;
using tap_test::Service;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class ReportContents : public Reporting {
protected:
    void writeConfiguration() const { std::ofstream(path("kvo_hws.conf")) << "# hall 1\nname = Mill 1\nport=5853\n"; }
};

TEST_F(ReportContents, of_a_running_service_have_everything)
{
    const Service service;
    writeConfiguration();
    const Ended ended = run({"--json"});
    ASSERT_EQ(ended.status, 0) << ended.err;
    EXPECT_EQ(ended.err, "");
    const Json document = ended.document();
    EXPECT_EQ(document["file"], path());
    EXPECT_EQ(document["bytes"], std::filesystem::file_size(path()));
    EXPECT_EQ(document["ended_early"], false);
    EXPECT_EQ(document["anonymized"], nullptr);
    const auto files = unpacked();
    EXPECT_EQ(files.at("configuration/kvo_hws.conf"), "# hall 1\nname = Mill 1\nport=5853\n");
    EXPECT_THAT(files.at("configuration/values.txt"), AllOf(HasSubstr("Mill 1"), HasSubstr("5853"), HasSubstr("visible")));
    EXPECT_THAT(files.at("configuration/environment.txt"), HasSubstr("KVO_PLATFORM_CONFIG=" + path("kvo_hws.conf") + "\n"));
    EXPECT_THAT(files.at("doctor.txt"), HasSubstr("Nothing is wrong."));
    EXPECT_EQ(Json::parse(files.at("doctor.json"))["healthy"], true);
    EXPECT_THAT(files.at("versions.txt"), AllOf(HasSubstr("kvoctl        " KVOCTL_VERSION "\n"), HasSubstr("V04.07.01.12")));
    EXPECT_THAT(files.at("machine.txt"), AllOf(HasSubstr("running for"), HasSubstr("127.0.0.1/8")));
    EXPECT_THAT(files.at("plant.toml"), HasSubstr("Milling centre 1"));
    const Json plant = partOf(document, "plant.toml");
    EXPECT_EQ(plant["files"][0]["bytes"], files.at("plant.toml").size());
}

TEST_F(ReportContents, have_the_build_id_of_every_library)
{
    ASSERT_EQ(run().status, 0);
    const std::string libraries = unpacked().at("libraries.txt");
    EXPECT_THAT(libraries, StartsWith(std::filesystem::canonical(LIBRARY_DIRECTORY).string() + "/libkvo_hws.so.0\n"));
    for (const char *name : {"/libpavo.so.1\n", "/libdrak.so\n", "/libc.so.6\n", "/bin/kvoctl\n"}) {
        EXPECT_THAT(libraries, HasSubstr(name));
    }
    const std::string notes = "readelf -n " LIBRARY_DIRECTORY "/libkvo_hws.so.0 | sed -n 's/ *Build ID: //p' > " + path("id");
    ASSERT_EQ(std::system(notes.c_str()), 0);
    std::string id = kvosim_test::contentsOf(path("id"));
    id = id.empty() ? "(none)\n" : id;
    EXPECT_THAT(libraries, ContainsRegex("libkvo_hws.so.0\n  file      libkvo_hws.so.[0-9.]+\n  build id  " + id));
}

TEST_F(ReportContents, have_the_processes_at_both_ends_of_the_sockets)
{
    const Service service;
    kvosim_test::Program watch({KVOCTL_PROGRAM, "usb", "watch"});
    ASSERT_TRUE(watch.hasWritten("activated"));
    ASSERT_EQ(run().status, 0);
    const auto files = unpacked();
    const std::string name = "kvoctl[" + std::to_string(watch.id()) + "]";
    EXPECT_THAT(files.at("programs.txt"), HasSubstr(name + "\n  library  /"));
    const std::string &sockets = files.at("sockets.txt");
    EXPECT_THAT(sockets, ContainsRegex("cmd_sock +srw[-rwx]+ +[a-z0-9]+ +20[0-9T:-]+ +kvosim.[0-9]+. listens"));
    EXPECT_THAT(sockets, ContainsRegex("usb_sock .* "
                                       "kvoctl." +
                                       std::to_string(watch.id()) + ". listens"));
    EXPECT_THAT(sockets, HasSubstr("No trace is running."));
}

TEST_F(ReportContents, say_once_why_a_value_of_the_plant_is_missing)
{
    const RunningService service(std::string(kvosim::kBuiltInPlant) +
                                 "[[faults]]\nkind = \"failed\"\ncommand = \"getKVOIndex\"\ntimes = 1\n"
                                 "[[faults]]\nkind = \"failed\"\ncommand = \"getClientList\"\n");
    const Json part = partOf(run({"--json"}).document(), "plant.toml");
    EXPECT_EQ(part["state"], "incomplete");
    EXPECT_THAT(part["reasons"].get<std::vector<std::string>>(),
                testing::ElementsAre(StartsWith("client of the service: not read: "),
                                     "kvo_index of 10.0.0.5: not read: the service refused it (failed)"));
}

TEST_F(ReportContents, without_a_service_have_the_reasons)
{
    writeConfiguration();
    const Ended ended = run();
    EXPECT_EQ(ended.status, 0);
    EXPECT_THAT(ended.out, StartsWith("INDEX.txt  "));
    EXPECT_THAT(ended.out,
                HasSubstr("\nplant.toml\n    missing: the service was not asked: The socket /tmp/kvo_hws/cmd_sock: No"));
    EXPECT_THAT(ended.out, ContainsRegex("\nwrote \".*fault.tar.gz\", [0-9]+ bytes\n$"));
    const auto files = unpacked();
    EXPECT_EQ(files.count("plant.toml"), 0U);
    const std::string &index = files.at("INDEX.txt");
    EXPECT_THAT(index, HasSubstr("\nStart with doctor.txt: The socket /tmp/kvo_hws/cmd_sock: No such file or\ndirectory.\n"));
    EXPECT_THAT(index, HasSubstr("\nplant.toml\n    the plant as the service describes it\n"
                                 "    MISSING: the service was not asked: The socket /tmp/kvo_hws/cmd_sock: No\n"
                                 "    such file or directory.\n"));
    EXPECT_THAT(files.at("versions.txt"), HasSubstr("(not asked: The socket"));
    EXPECT_THAT(files.at("sockets.txt"), HasSubstr("/tmp/kvo_hws"));
}

TEST_F(ReportContents, of_a_service_that_was_killed_have_its_sockets)
{
    Service service;
    service.kill();
    ASSERT_EQ(run().status, 0);
    EXPECT_THAT(unpacked().at("sockets.txt"), ContainsRegex("cmd_sock .* no process listens: it was left over"));
}

TEST_F(ReportContents, of_a_silent_service_do_not_wait_for_every_request)
{
    const Service service;
    ASSERT_EQ(kvosim_test::Program({KVOSIM_PROGRAM, "fault", "add", "silent"}).wait(), 0);
    const auto begin = std::chrono::steady_clock::now();
    const Ended ended = run();
    EXPECT_EQ(ended.status, 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
    EXPECT_THAT(unpacked().at("INDEX.txt"), HasSubstr("Start with doctor.txt: The service accepts the request, but sends no"));
}

TEST_F(ReportContents, of_a_service_that_hangs_later_have_what_was_read)
{
    // It answers the doctor, and then nothing.
    const ScriptedService service({support::replies("yes"), support::staysSilent(60s)});
    const auto begin = std::chrono::steady_clock::now();
    const Ended ended = run();
    EXPECT_EQ(ended.status, 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 25s);
    const auto files = unpacked();
    EXPECT_THAT(files.at("INDEX.txt"), HasSubstr("Start with doctor.txt: nothing is wrong."));
    EXPECT_THAT(files.at("versions.txt"), ContainsRegex("service +\\("));
    EXPECT_THAT(files.at("INDEX.txt"), HasSubstr("\n    MISSING: "));
}

TEST_F(ReportContents, fit_a_terminal_in_the_index)
{
    ASSERT_EQ(run({"--trace", "1"}).status, 0);
    std::istringstream index(unpacked().at("INDEX.txt"));
    for (std::string line; std::getline(index, line);) {
        EXPECT_LE(line.size(), 80U) << line;
    }
}

TEST_F(ReportContents, are_only_listed_in_a_dry_run)
{
    const Service service;
    const Ended ended = run({"--dry-run", "--trace", "5"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, R"(INDEX.txt                what is in the report, and what is not and why
doctor.txt, doctor.json  what "kvoctl doctor" finds
versions.txt             kvoctl, library, service, system
machine.txt              time, memory, disks, network interfaces
libraries.txt            the libraries that kvoctl uses, with build ids
programs.txt             the programs that have loaded the library
configuration/           configuration file, values in use, environment
sockets.txt              the sockets, and which processes listen there
trace.rec, trace.txt     what passed on the sockets in 5 s
log.txt                  the library's and the service's log lines
plant.toml               the plant as the service describes it
)");
    EXPECT_THAT(names(), testing::IsEmpty());
    const Json document = run({"--dry-run", "--json"}).document();
    EXPECT_EQ(document["parts"].size(), 10U);
    EXPECT_EQ(document["parts"][0],
              Json::parse(R"({"name": "INDEX.txt", "why": "what is in the report, and what is not and why"})"));
}

TEST_F(ReportContents, show_progress_on_a_terminal)
{
    const ScriptedService service({support::staysSilent(60s)});
    const Ended ended = run({}, {.terminal = 80, .environment = {"TERM=xterm"}, .errorsToTerminal = true});
    EXPECT_EQ(ended.status, 0);
    EXPECT_THAT(ended.out, HasSubstr("\x1B[K1 of 9: doctor.txt, doctor.json"));
}

}  // namespace

}  // namespace kvoctl_test
