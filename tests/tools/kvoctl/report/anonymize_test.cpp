// A report with --anonymize: no address, name or text of the plant is in any of its files.
#include "tools/common/tap/service.h"
#include "tools/kvoctl/report/report.h"
#include "tools/kvoctl/support/watching.h"
#include "tools/kvoctl/trace/traced_service.h"

#include "common/command_socket.h"
#include "common/dotted_address.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <pwd.h>
#include <set>
#include <unistd.h>

namespace kvoctl_test {

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

/// All addresses and names of the stations of the example plant, and of its clients.
std::set<std::string> secretsOfPlant()
{
    std::set<std::string> secrets;
    for (const std::string &line : lines(kvosim_test::contentsOf(EXAMPLE_PLANT))) {
        if (line.starts_with("address = \"") || line.starts_with("name = \"")) {
            const std::size_t begin = line.find('"') + 1;
            secrets.insert(line.substr(begin, line.find('"', begin) - begin));
            secrets.erase("1");  // the name of a station, and in every file for other reasons
        }
    }
    return secrets;
}

std::set<std::string> withHexadecimalForms(std::set<std::string> secrets)
{
    for (const std::string &secret : std::set<std::string>(secrets)) {
        if (const auto address = tools::parseDotted(secret)) {
            std::array<char, 16> text{};
            std::snprintf(text.data(), text.size(), "%08X", *address);
            secrets.insert(text.data());
        }
    }
    return secrets;
}

class AnonymizedReport : public Reporting {
protected:
    void writeConfiguration() const
    {
        std::ofstream(path("kvo_hws.conf")) << "# the panel of Tom Ray\n"
                                               "name = Hall nine mill  # Tom\n"
                                               "interface = eth7\n"
                                               "backlight = all\n"
                                               "owner = Tom Ray\n"
                                               "Tom\n";
    }
};

TEST_F(AnonymizedReport, has_nothing_of_the_plant)
{
    const Service service;
    writeConfiguration();
    Watching report({path(), "--anonymize", "--trace", "3", "--json"}, {"report"});
    ASSERT_TRUE(support::eventually([] { return listener() == "kvoctl"; }));
    EXPECT_EQ(kvoctl({"stations"}).status, 0);
    EXPECT_EQ(kvoctl({"panel", "show", "10.0.0.5"}).status, 0);
    EXPECT_EQ(report.wait(), 0) << report.err();
    const std::set<std::string> secrets = withHexadecimalForms(secretsOfPlant());
    ASSERT_GT(secrets.size(), 60U);
    const auto files = unpacked();
    EXPECT_GE(files.size(), 13U);
    for (const auto &[name, content] : files) {
        for (const std::string &secret : secrets) {
            EXPECT_THAT(content, Not(HasSubstr(secret))) << "in " << name;
        }
    }
    EXPECT_THAT(files.at("trace.txt"), HasSubstr("getExDescByIP C00002"));
    EXPECT_THAT(files.at("plant.toml"), HasSubstr("192.0.2."));
    const Json document = Json::parse(report.out());
    EXPECT_GT(document["anonymized"]["addresses"], 30);
    EXPECT_GT(document["anonymized"]["texts"], 30);
    EXPECT_THAT(files.at("INDEX.txt"), HasSubstr("Anonymized: " + document["anonymized"]["addresses"].dump() +
                                                 " addresses and " + document["anonymized"]["texts"].dump()));
}

TEST_F(AnonymizedReport, has_the_same_replacement_in_all_files)
{
    const Service service;
    Watching report({path(), "--anonymize", "--trace", "2"}, {"report"});
    ASSERT_TRUE(support::eventually([] { return listener() == "kvoctl"; }));
    EXPECT_EQ(kvoctl({"station", "10.0.0.5"}).status, 0);
    EXPECT_EQ(report.wait(), 0) << report.err();
    const auto files = unpacked();
    const std::string &trace = files.at("trace.txt");
    const std::size_t request = trace.find("getExDescByIP ");
    ASSERT_NE(request, std::string::npos) << trace;
    const auto address = static_cast<uint32_t>(std::stoul(trace.substr(request + 14, 8), nullptr, 16));
    EXPECT_THAT(files.at("plant.toml"), HasSubstr('"' + tools::dotted(address) + '"'));
}

TEST_F(AnonymizedReport, has_of_the_configuration_only_what_says_nothing_about_the_plant)
{
    writeConfiguration();
    ASSERT_EQ(run({"--anonymize"}).status, 0);
    const auto files = unpacked();
    EXPECT_THAT(files.at("configuration/kvo_hws.conf"), testing::MatchesRegex("# .a line that was left out.\n"
                                                                              "name = name[0-9]+x+\n"
                                                                              "interface = eth7\n"
                                                                              "backlight = all\n"
                                                                              "# .a line with another key that was left out.\n"
                                                                              "# .a line that was left out.\n"));
    for (const auto &[name, content] : files) {
        EXPECT_THAT(content, Not(HasSubstr("Tom"))) << name;
        EXPECT_THAT(content, Not(HasSubstr("Hall nine"))) << name;
    }
}

TEST_F(AnonymizedReport, has_another_name_of_the_machine)
{
    const std::string name = "panel-of-hall-nine.example";
    if (unshare(CLONE_NEWUTS) != 0 || sethostname(name.data(), name.size()) != 0) {
        GTEST_SKIP() << "skipped: the name of this machine cannot be set: " << std::strerror(errno);
    }
    ASSERT_EQ(run().status, 0);
    EXPECT_THAT(unpacked().at("machine.txt"), HasSubstr(name));
    ASSERT_EQ(run({"--anonymize", "--force"}).status, 0);
    for (const auto &[file, content] : unpacked()) {
        EXPECT_THAT(content, Not(HasSubstr("hall-nine"))) << file;
    }
}

TEST_F(AnonymizedReport, has_no_names_of_users)
{
    const passwd *const user = getpwuid(1);
    ASSERT_NE(user, nullptr);
    const std::string owner = user->pw_name;
    std::filesystem::create_directories(tools::kSocketDirectory);
    const std::string left = std::string(tools::kSocketDirectory) + "/left_over";
    std::ofstream(left).flush();
    if (chown(left.c_str(), user->pw_uid, user->pw_gid) != 0) {
        GTEST_SKIP() << "skipped: files cannot be given to another user: " << std::strerror(errno);
    }
    const RunConditions conditions{.environment = {"SUDO_USER=tomray", "LD_LIBRARY_PATH=/home/tomray/lib"}};
    ASSERT_EQ(run({}, conditions).status, 0);
    EXPECT_THAT(unpacked().at("sockets.txt"), HasSubstr("  " + owner + "  "));
    EXPECT_THAT(unpacked().at("configuration/environment.txt"), HasSubstr("tomray"));
    ASSERT_EQ(run({"--anonymize", "--force"}, conditions).status, 0);
    const auto files = unpacked();
    EXPECT_THAT(files.at("sockets.txt"), AllOf(HasSubstr("left_over"), Not(HasSubstr(owner))));
    for (const auto &[file, content] : files) {
        EXPECT_THAT(content, Not(HasSubstr("tomray"))) << file;
    }
}

TEST_F(AnonymizedReport, says_what_it_is_not_otherwise)
{
    ASSERT_EQ(run().status, 0);
    EXPECT_THAT(unpacked().at("INDEX.txt"),
                HasSubstr("Not anonymized: this report has the addresses, names and texts of the plant"));
}

}  // namespace

}  // namespace kvoctl_test
