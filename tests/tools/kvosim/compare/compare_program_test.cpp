// kvosim compare: its files, messages, output and exit statuses.
#include "tools/kvosim/compare/recordings.h"
#include "tools/kvosim/support/named_row.h"
#include "tools/kvosim/support/run_kvosim.h"
#include "tools/kvosim/support/temporary_directory.h"

#include <fstream>
#include <gmock/gmock.h>
#include <string>
#include <vector>

namespace {

using kvosim_test::Exited;
using kvosim_test::kRecordingHead;
using kvosim_test::plantLines;
using kvosim_test::runKvosim;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char *kPlant = "[[station]]\naddress = \"10.0.0.5\"\nname = \"Lathe 1\"\nmcp_address = 5\n";
constexpr const char *kSame = "1.0 ask 1 > \"getMCPAddress=0A000005\\n\" < \"mcpaddr=5\\n\"\n";
constexpr const char *kDifferent = "2.0 ask 1 > \"getMCPAddress=0A000005\\n\" < \"mcpaddr=6\\n\"\n";

class Compare : public testing::Test {
protected:
    static void write(const std::string &file, const std::string &text) { std::ofstream(file) << text; }

    [[nodiscard]] Exited compare(const std::string &lines, std::vector<std::string> options = {}) const
    {
        write(file_, kRecordingHead + lines);
        options.insert(options.begin(), {"compare", file_});
        return runKvosim(options);
    }

    kvosim_test::TemporaryDirectory directory_;
    std::string file_ = directory_ / "plant.rec";
    std::string plant_ = directory_ / "plant.toml";
};

TEST_F(Compare, ends_with_0_if_all_replies_are_the_same)
{
    const Exited compared = compare(plantLines(kPlant) + kSame);
    EXPECT_EQ(compared.status, 0);
    EXPECT_EQ(compared.err, "");
    EXPECT_EQ(compared.out, "command        requests  same  different  unanswered  percent\n"
                            "getMCPAddress         1     1          0           0    100.0\n"
                            "total                 1     1          0           0    100.0\n");
}

TEST_F(Compare, ends_with_4_if_replies_differ)
{
    const Exited compared = compare(plantLines(kPlant) + kSame + kDifferent);
    EXPECT_EQ(compared.status, 4);
    EXPECT_EQ(compared.err, "");
    EXPECT_THAT(compared.out, HasSubstr("recorded   \"mcpaddr=6\""));
    EXPECT_EQ(compare(plantLines(kPlant) + kSame + kDifferent, {"--json"}).status, 4);
}

TEST_F(Compare, shows_as_many_differences_as_wanted)
{
    std::string lines = plantLines(kPlant);
    for (int i = 0; i < 5; ++i) {
        lines += kDifferent;
    }
    const auto shown = [&](const std::vector<std::string> &options) {
        const std::string out = compare(lines, options).out;
        std::size_t count = 0;
        for (std::size_t at = out.find("simulated"); at != std::string::npos; at = out.find("simulated", at + 1)) {
            ++count;
        }
        return count;
    };
    EXPECT_EQ(shown({}), 3U);
    EXPECT_EQ(shown({"--differences", "5"}), 5U);
    EXPECT_EQ(shown({"--differences", "0"}), 0U);
}

TEST_F(Compare, takes_a_plant_file_instead_of_the_recorded_plant)
{
    write(plant_, "[[station]]\naddress = \"10.0.0.5\"\nname = \"Lathe 1\"\nmcp_address = 6\n");
    EXPECT_EQ(compare(plantLines(kPlant) + kDifferent, {"--plant", plant_}).status, 0);
    EXPECT_EQ(compare(kDifferent, {"--plant", plant_}).status, 0);
    EXPECT_EQ(compare("plant \"no plant\"\n" + std::string(kDifferent), {"--plant", plant_}).status, 0);
}

TEST_F(Compare, prints_replies_that_are_not_utf_8)
{
    const Exited compared = compare(plantLines(kPlant) + "1.0 ask 1 > \"getVersion\\n\" < \"\\xFF\\n\"\n", {"--json"});
    EXPECT_EQ(compared.status, 4);
    EXPECT_THAT(compared.out, HasSubstr("\"recorded\":\"\xEF\xBF\xBD\""));
}

TEST_F(Compare, leaves_no_files)
{
    write(file_, kRecordingHead + plantLines(kPlant) + kSame + "2.0 ask 1 > \"killDaemon\\n\" < \"ok\\n\"\n" + kSame);
    kvosim_test::Program program({KVOSIM_PROGRAM, "compare", file_});
    EXPECT_EQ(program.wait(), 0);
    EXPECT_THAT(program.temporaryFiles(), IsEmpty());
}

struct Row : kvosim_test::NamedRow {
    std::string lines;
    std::vector<std::string> options;
    int status;
    std::string message;
};

class Refused : public Compare, public testing::WithParamInterface<Row> {};

TEST_P(Refused, with_a_message)
{
    const Exited compared = compare(GetParam().lines, GetParam().options);
    EXPECT_EQ(compared.status, GetParam().status);
    EXPECT_EQ(compared.out, "");
    EXPECT_THAT(compared.err, HasSubstr(GetParam().message));
}

const std::vector<Row> kRows = {
    {"recording_without_a_plant",
     kSame,
     {},
     2,
     "plant.rec contains no plant to start from; record with \"kvoctl record --capture\", or give the plant file of that time "
     "with --plant\n"},
    {"invalid_plant_in_the_recording",
     "plant \"[[station]]\"\nplant \"colour = 1\"\n" + std::string(kSame),
     {},
     2,
     "plant.rec (plant):2: station.colour: unknown key"},
    {"plant_file_that_does_not_exist", kSame, {"--plant", "/no/plant.toml"}, 2, "/no/plant.toml"},
    {"invalid_recording", "1.0 ask 1 > getVersion\n", {}, 2, "plant.rec:4: expected \"<\", found \"getVersion\""},
    {"recording_without_replies",
     plantLines(kPlant) + "1.0 ask 1 > \"getVersion\\n\" < +4.0 left\n",
     {},
     1,
     "plant.rec has no request with a reply, so there is nothing to compare\n"},
};

INSTANTIATE_TEST_SUITE_P(Table, Refused, testing::ValuesIn(kRows), kvosim_test::kNameOfRow);

TEST_F(Compare, refuses_a_recording_that_does_not_exist)
{
    const Exited compared = runKvosim({"compare", directory_ / "no.rec", "--plant", "plant.toml"});
    EXPECT_EQ(compared.status, 2);
    EXPECT_THAT(compared.err, HasSubstr("no.rec: No such file or directory\n"));
}

}  // namespace
