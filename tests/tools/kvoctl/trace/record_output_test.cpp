// The thread that writes a recording: whatever ends it, the file is valid.
#include "observed.h"
#include "tools/kvosim/support/temporary_directory.h"

#include "common/recording/recording.h"
#include "kvoctl/trace/record_output.h"

#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <sys/mount.h>
#include <thread>

namespace kvoctl_test {

namespace {

using kvoctl::Note;
using kvoctl::Observed;
using kvoctl::ObservedExchange;
using kvoctl::ObservedQueue;
using kvoctl::RecordOutput;
using kvosim_test::contentsOf;
using kvosim_test::TemporaryDirectory;
using std::chrono::steady_clock;
using testing::HasSubstr;
using tools::recording::Writer;

class Recorded : public testing::Test {
protected:
    [[nodiscard]] std::string content() const { return contentsOf(file_); }

    TemporaryDirectory directory_;
    std::filesystem::path file_ = directory_ / "fault.rec";
    tools::recording::StartTime start_{1'782'907'200'000'000us};
};

TEST_F(Recorded, has_exchanges_programs_and_notes)
{
    ObservedQueue queue(kLarge);
    Writer writer(file_, {}, start_);
    RecordOutput output(queue, writer);
    queue.put(observed("getVersion\n", "V1\n"));
    queue.put(Note{2s, "the service has ended"});
    queue.put(ObservedExchange{{0, ""}, exchange("getVersion\n", "", End::left)});
    queue.put(ObservedExchange{{12, ""}, exchange("getVersion\n", "V1\n")});
    queue.put(observed("getDLV2 8\n", "failed\n"));
    output.finish();
    EXPECT_EQ(output.written(), 4U);
    EXPECT_EQ(output.programs(), 2U);
    EXPECT_EQ(content(), "kvo-recording 1\n"
                         "start 2026-07-01T12:00:00.000000Z\n"
                         "process 1 4711 \"panel\"\n"
                         "1.500000 ask 1 > \"getVersion\\n\" < +0.000400 \"V1\\n\" +0.000050 closed\n"
                         "2.000000 note \"the service has ended\"\n"
                         "1.500000 ask 0 > \"getVersion\\n\" < +4.000000 left\n"
                         "process 2 12 \"\"\n"
                         "1.500000 ask 2 > \"getVersion\\n\" < +0.000400 \"V1\\n\" +0.000050 closed\n"
                         "1.500000 ask 1 > \"getDLV2 8\\n\" < +0.000400 \"failed\\n\" +0.000050 closed\n");
}

TEST_F(Recorded, can_be_changed_before_it_is_written)
{
    ObservedQueue queue(kLarge);
    Writer writer(file_, {}, start_);
    RecordOutput output(queue, writer, [](Observed &item) {
        if (auto *one = std::get_if<ObservedExchange>(&item)) {
            one->exchange.request = {{0us, "changed\n"}};
        }
    });
    queue.put(observed("secret\n"));
    output.finish();
    EXPECT_THAT(content(), HasSubstr("changed"));
    EXPECT_THAT(content(), testing::Not(HasSubstr("secret")));
}

TEST_F(Recorded, is_in_the_file_after_a_second)
{
    ObservedQueue queue(kLarge);
    Writer writer(file_, {}, start_);
    RecordOutput output(queue, writer);
    const auto begin = steady_clock::now();
    queue.put(observed("getVersion\n"));
    while (content().find("getVersion") == std::string::npos && steady_clock::now() - begin < 10s) {
        std::this_thread::sleep_for(20ms);
    }
    EXPECT_LT(steady_clock::now() - begin, 3s);
    output.finish();
}

TEST_F(Recorded, ends_at_its_largest_size)
{
    ObservedQueue queue(kLarge);
    Writer writer(file_, {.maxSize = 1000}, start_);
    RecordOutput output(queue, writer);
    for (int i = 0; i < 100; ++i) {
        queue.put(observed("getVersion\n"));
    }
    EXPECT_TRUE(isReadable(output.endedDescriptor(), 10s));
    output.finish();
    EXPECT_TRUE(writer.isAtMaxSize());
    EXPECT_EQ(writer.fullReason(), "the file has reached its largest size of 1000 bytes");
    EXPECT_LE(std::filesystem::file_size(file_), 1000U);
    EXPECT_EQ(std::filesystem::file_size(file_), writer.size());
    EXPECT_EQ(tools::recording::Recording::load(file_).size(), output.written());
    EXPECT_GT(output.written(), 5U);
}

TEST_F(Recorded, forgets_programs_that_were_not_seen_for_long)
{
    Writer writer(file_, {}, start_);
    EXPECT_EQ(writer.numberOf(1, "early"), 1U);
    EXPECT_EQ(writer.numberOf(2, "frequent"), 2U);
    for (unsigned number = 3; number <= 20'000; ++number) {
        ASSERT_EQ(writer.numberOf(number, "short"), number);
        ASSERT_EQ(writer.numberOf(2, "frequent"), 2U);
    }
    EXPECT_EQ(writer.numberOf(19'000, "short"), 19'000U);
    EXPECT_EQ(writer.numberOf(1, "early"), 20'001U);
    EXPECT_TRUE(writer.flush());
    EXPECT_EQ(tools::recording::Recording::load(file_).size(), 0U);
    EXPECT_THAT(content(), HasSubstr("process 1 1 \"early\"\n"));
    EXPECT_THAT(content(), HasSubstr("process 20001 1 \"early\"\n"));
}

TEST_F(Recorded, is_valid_when_the_disk_is_full)
{
    const std::filesystem::path disk = directory_ / "disk";
    std::filesystem::create_directory(disk);
    if (mount("tmpfs", disk.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "mode=0700,size=64k") != 0) {
        GTEST_SKIP() << "skipped: this system does not permit to mount a small disk";
    }
    file_ = disk / "fault.rec";
    {
        ObservedQueue queue(kLarge);
        Writer writer(file_, {}, start_);
        RecordOutput output(queue, writer);
        for (int i = 0; i < 1000; ++i) {
            queue.put(observed(std::string(500, 'x') + "\n"));
        }
        EXPECT_TRUE(isReadable(output.endedDescriptor(), 10s));
        output.finish();
        EXPECT_FALSE(writer.isAtMaxSize());
        EXPECT_EQ(writer.fullReason(), "No space left on device");
        EXPECT_GT(tools::recording::Recording::load(file_).size(), 50U);
    }
    umount2(disk.c_str(), MNT_DETACH);
}

}  // namespace

}  // namespace kvoctl_test
