// "kvoctl anonymize": writes a recording again, without what it says about a plant.
#include "tools/kvoctl/support/kvoctl.h"
#include "tools/kvosim/support/temporary_directory.h"

#include <cerrno>
#include <cstring>
#include <sys/mount.h>
#include <sys/stat.h>

namespace kvoctl_test {

namespace {

using kvosim_test::contentsOf;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char *kRecording = R"(# Tom's plant
kvo-recording 1
start 2026-11-22T14:00:00.000000Z
plant "# Tom's"
plant "[[station]]"
plant "address = \"10.0.0.5\""
plant "name = '''Lathe 1''' # the old one"
plant "dpi = 96"
process 1 4711 "panel"

1.000000 ask 1 > "getExDescByName Lathe 1\n" < +0.000300 "not found\n"
2.000000 note "10.0.0.5 did not answer"
process 2 4712 "panel"
3.000000 ask 2 > "getIPbyMCPAddress=0000000C\n" < +0.000300 "ipaddr=" +0.010000 "0A000005\n"
4.000000 usb 2 > "removeUSBdevice*10.0.0.5*Lathe 1*1-1.2*\n" < +0.000300 "ok\n"
)";

constexpr const char *kAnonymized = R"(kvo-recording 1
start 2026-11-22T14:00:00.000000Z
plant "[[station]]"
plant "address = \"192.0.2.1\""
plant "name = \"name1xx\""
plant "dpi = 96"
process 1 4711 "panel"
process 2 4712 "panel"
1.000000 ask 1 > "getExDescByName name1xx\n" < +0.000300 "not found\n"
2.000000 note "192.0.2.1 did not answer"
3.000000 ask 2 > "getIPbyMCPAddress=0000000C\n" < +0.000300 "ipaddr=" +0.010000 "C0000201\n"
4.000000 usb 2 > "removeUSBdevice*192.0.2.1*name1xx*1-1.2*\n" < +0.000300 "ok\n"
)";

class Anonymize : public testing::Test {
protected:
    Anonymize() { std::ofstream(input_) << kRecording; }

    const kvosim_test::TemporaryDirectory folder_;
    const std::string input_ = folder_ / "plant.rec";
    const std::string output_ = folder_ / "shared.rec";
};

TEST_F(Anonymize, writes_to_standard_output)
{
    const Ended ended = kvoctl({"anonymize", input_});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, kAnonymized);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(contentsOf(input_), kRecording);
}

TEST_F(Anonymize, writes_to_a_file_that_others_cannot_read)
{
    const Ended ended = kvoctl({"anonymize", input_, "--output", output_});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, "replaced 1 address and 1 text in 4 lines\n");
    EXPECT_EQ(contentsOf(output_), kAnonymized);
    struct stat status {};
    ASSERT_EQ(stat(output_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(Anonymize, writes_the_numbers_of_replacements_as_json)
{
    const Ended ended = kvoctl({"anonymize", input_, "--output", output_, "--json"});
    EXPECT_EQ(ended.document(), Json::parse(R"({"lines": 4, "addresses": 1, "texts": 1})"));
    EXPECT_EQ(contentsOf(output_), kAnonymized);
}

TEST_F(Anonymize, gives_the_same_result_for_its_own_result)
{
    ASSERT_EQ(kvoctl({"anonymize", input_, "--output", output_}).status, 0);
    EXPECT_EQ(kvoctl({"anonymize", output_}).out, kAnonymized);
}

TEST_F(Anonymize, replaces_a_file_only_with_force)
{
    std::ofstream(output_) << "precious";
    const Ended refused = kvoctl({"anonymize", input_, "--output", output_});
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.err,
                StartsWith("kvoctl: anonymize: \"" + output_ + "\" exists; choose another name, or replace it with"));
    EXPECT_EQ(contentsOf(output_), "precious");
    EXPECT_EQ(kvoctl({"anonymize", input_, "--output", output_, "--force"}).status, 0);
    EXPECT_EQ(contentsOf(output_), kAnonymized);
}

TEST_F(Anonymize, never_replaces_the_recording_itself)
{
    std::filesystem::create_hard_link(input_, output_);
    for (const std::string &output : {input_, output_}) {
        const Ended refused = kvoctl({"anonymize", input_, "--output", output, "--force"});
        EXPECT_EQ(refused.status, 2);
        EXPECT_THAT(refused.err, HasSubstr("\"" + output + "\" is the recording itself; write to another file"));
        EXPECT_EQ(contentsOf(input_), kRecording);
    }
}

TEST_F(Anonymize, refuses_a_file_that_is_not_a_recording_with_the_line)
{
    std::ofstream(input_, std::ios::app) << "5 ask 3 > <\n";
    const Ended refused = kvoctl({"anonymize", input_, "--output", output_});
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.err, StartsWith("kvoctl: anonymize: " + input_ + ":16: no \"process 3\" precedes this line\n"));
    EXPECT_FALSE(std::filesystem::exists(output_));
}

TEST_F(Anonymize, refuses_a_file_that_cannot_be_read)
{
    const Ended refused = kvoctl({"anonymize", folder_ / "none.rec", "--json", "--output", output_});
    EXPECT_EQ(refused.status, 2);
    EXPECT_EQ(refused.document()["error"]["meaning"], (folder_ / "none.rec").string() + ": No such file or directory");
    EXPECT_THAT(kvoctl({"anonymize", folder_.path()}).err, HasSubstr(folder_.path().string() + ": Is a directory\n"));
}

TEST_F(Anonymize, refuses_json_without_an_output_file)
{
    const Ended refused = kvoctl({"anonymize", input_, "--json"});
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.document()["error"]["meaning"], StartsWith("--json needs --output"));
}

TEST_F(Anonymize, refuses_force_without_an_output_file)
{
    EXPECT_THAT(kvoctl({"anonymize", input_, "--force"}).err, StartsWith("kvoctl: anonymize: --force requires --output\n"));
}

TEST_F(Anonymize, leaves_the_beginning_on_a_full_file_system)
{
    std::ofstream input(input_, std::ios::app);
    for (int i = 0; i < 4000; ++i) {
        input << "5 ask 0 > \"getVersion\\n\" <\n";
    }
    input.close();
    const std::string small = folder_ / "small";
    std::filesystem::create_directory(small);
    if (mount("tmpfs", small.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "size=16k") != 0) {
        GTEST_SKIP() << "skipped: no tmpfs at " << small << ": " << std::strerror(errno);
    }
    const Ended ended = kvoctl({"anonymize", input_, "--output", small + "/shared.rec"});
    EXPECT_EQ(ended.status, 5);
    EXPECT_EQ(ended.err, "kvoctl: cannot write \"" + small +
                             "/shared.rec\": No space left on device; the file contains the beginning of the recording\n");
    EXPECT_EQ(kvoctl({"anonymize", small + "/shared.rec"}).status, 0);
    umount2(small.c_str(), MNT_DETACH);
}

TEST_F(Anonymize, reports_a_full_disk)
{
    const Ended ended = kvoctl({"anonymize", input_}, {.outputFile = "/dev/full"});
    EXPECT_EQ(ended.status, 5);
    EXPECT_EQ(ended.err, "kvoctl: cannot write to standard output: No space left on device\n");
}

}  // namespace

}  // namespace kvoctl_test
