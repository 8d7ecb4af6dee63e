// Files of recordings: what the writer writes the reader reads, in whatever way the writing ended.
#include "common/recording/recording.h"
#include "common/recording/writer.h"
#include "tools/common/recording/rows.h"

#include <fcntl.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace {

using namespace std::chrono_literals;
using namespace tools::recording;
using namespace recording_test;
using testing::HasSubstr;
using testing::StartsWith;
using testing::ThrowsMessage;

constexpr StartTime kStart{1795356000000042us};
constexpr const char *kHead = "kvo-recording 1\nstart 2026-11-22T14:00:00.000042Z\n";

Exchange exchange(Microseconds at, unsigned process = 0)
{
    return {at, Kind::ask, process, {{0us, "getVersion\n"}}, false, {{312us, "V09.08\n"}}, End::closed, 0us};
}

class RecordingFile : public testing::Test {
protected:
    RecordingFile() { std::filesystem::create_directory(folder_); }
    ~RecordingFile() override { std::filesystem::remove_all(folder_); }

    [[nodiscard]] std::string content() const
    {
        std::ifstream file(path_, std::ios::binary);
        std::ostringstream text;
        text << file.rdbuf();
        return text.str();
    }

    const std::filesystem::path folder_{testing::TempDir() + "recording_" + std::to_string(getpid())};
    const std::filesystem::path path_{folder_ / "plant.rec"};
};

// ---- Writing ----

TEST_F(RecordingFile, is_read_back_as_it_was_written)
{
    Writer writer(path_, {}, kStart);
    const unsigned panel = writer.numberOf(4711, "panel");
    EXPECT_EQ(writer.numberOf(4711, "panel"), panel);
    EXPECT_NE(writer.numberOf(4712, "panel"), panel);
    EXPECT_TRUE(writer.add(exchange(1s, panel)));
    EXPECT_TRUE(writer.add(Note{2s, "the service ended"}));
    EXPECT_TRUE(writer.flush());
    EXPECT_EQ(writer.size(), content().size());

    const Recording recording = Recording::load(path_);
    EXPECT_EQ(recording.start(), kStart);
    EXPECT_EQ(recording.processes().at(panel), (Process{panel, 4711, "panel"}));
    ASSERT_EQ(recording.size(), 2U);
    EXPECT_TRUE(recording.line(0) == Line(exchange(1s, panel)));
    EXPECT_TRUE(recording.line(1) == Line(Note{2s, "the service ended"}));
}

TEST_F(RecordingFile, can_be_read_by_its_owner_only)
{
    const mode_t mask = umask(0);
    const Writer writer(path_, {}, kStart);
    umask(mask);
    struct stat status {};
    ASSERT_EQ(stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(RecordingFile, is_not_overwritten)
{
    std::ofstream(path_) << "precious";
    EXPECT_THAT([&] { Writer(path_, {}, kStart); }, ThrowsMessage<std::runtime_error>(HasSubstr("replace it with --force")));
    EXPECT_EQ(content(), "precious");
}

TEST_F(RecordingFile, is_replaced_by_force_and_loses_the_rights_of_others)
{
    std::ofstream(path_) << std::string(5000, 'x');
    chmod(path_.c_str(), 0666);
    const Writer writer(path_, {.force = true, .maxSize = {}}, kStart);
    EXPECT_EQ(content(), kHead);
    struct stat status {};
    ASSERT_EQ(stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(RecordingFile, is_never_written_through_a_link)
{
    std::ofstream(folder_ / "precious") << "precious";
    std::filesystem::create_symlink(folder_ / "precious", path_);
    EXPECT_THROW(Writer(path_, {}, kStart), std::runtime_error);
    EXPECT_THAT([&] { Writer(path_, {.force = true, .maxSize = {}}, kStart); },
                ThrowsMessage<std::runtime_error>(HasSubstr("is a link, which is not followed")));
    EXPECT_EQ(std::filesystem::file_size(folder_ / "precious"), 8U);
}

TEST_F(RecordingFile, is_not_written_to_other_names_of_the_file_that_it_replaces)
{
    std::ofstream(folder_ / "precious") << "precious";
    std::filesystem::create_hard_link(folder_ / "precious", path_);
    const Writer writer(path_, {.force = true, .maxSize = {}}, kStart);
    EXPECT_EQ(content(), kHead);
    EXPECT_EQ(std::filesystem::file_size(folder_ / "precious"), 8U);
}

TEST_F(RecordingFile, is_not_a_folder_or_a_pipe)
{
    std::filesystem::create_directory(path_);
    EXPECT_THROW(Writer(path_, {.force = true, .maxSize = {}}, kStart), std::runtime_error);
    std::filesystem::remove(path_);
    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    const int reader = open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    EXPECT_THAT([&] { Writer(path_, {.force = true, .maxSize = {}}, kStart); },
                ThrowsMessage<std::runtime_error>(HasSubstr("is not a file")));
    close(reader);
}

TEST_F(RecordingFile, ends_with_a_whole_line_at_its_largest_size)
{
    Writer writer(path_, {.force = false, .maxSize = 1000}, kStart);
    int64_t count = 0;
    while (writer.add(exchange(count * 1s)) && count < 100) {
        ++count;
    }
    EXPECT_THAT(writer.fullReason(), HasSubstr("its largest size of 1000 bytes"));
    EXPECT_FALSE(writer.add(Note{0us, ""})) << "a shorter line is not added after the reason was given";
    const std::string text = content();
    EXPECT_LE(text.size(), 1000U);
    EXPECT_TRUE(text.ends_with("\n"));
    EXPECT_EQ(Recording::load(path_).size(), static_cast<std::size_t>(count));
}

TEST_F(RecordingFile, is_not_left_without_its_first_lines)
{
    EXPECT_THAT([&] { Writer(path_, {.force = false, .maxSize = 20}, kStart); },
                ThrowsMessage<std::runtime_error>(HasSubstr("its largest size of 20 bytes")));
    EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(RecordingFile, stays_valid_when_the_disk_is_full)
{
    Writer writer(path_, {}, kStart);
    const rlimit before = [] {
        rlimit limit{};
        getrlimit(RLIMIT_FSIZE, &limit);
        return limit;
    }();
    // The system accepts a part of the bytes, and then none, as a full disk does.
    signal(SIGXFSZ, SIG_IGN);
    const rlimit small{.rlim_cur = 1000, .rlim_max = before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    for (int i = 0; i < 100; ++i) {
        writer.add(exchange(i * 1s));
    }
    EXPECT_FALSE(writer.flush());
    setrlimit(RLIMIT_FSIZE, &before);
    signal(SIGXFSZ, SIG_DFL);
    EXPECT_EQ(writer.fullReason(), "File too large");
    EXPECT_EQ(writer.size(), content().size());
    EXPECT_GT(Recording::load(path_).size(), 5U);
}

TEST_F(RecordingFile, ends_with_a_whole_line_on_a_full_file_system)
{
    if (mount("tmpfs", folder_.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "size=64k") != 0) {
        GTEST_SKIP() << "skipped: no tmpfs at " << folder_ << ": " << std::strerror(errno);
    }
    Writer writer(path_, {}, kStart);
    int64_t count = 0;
    while (writer.add(exchange(count * 1s)) && count < 5000) {
        ++count;
    }
    EXPECT_EQ(writer.fullReason(), "No space left on device");
    EXPECT_FALSE(writer.flush());
    const std::string text = content();
    EXPECT_EQ(writer.size(), text.size());
    EXPECT_TRUE(text.ends_with("\"V09.08\\n\"\n"));
    EXPECT_GT(Recording::load(path_).size(), 500U);
    umount2(folder_.c_str(), MNT_DETACH);
}

// ---- Reading ----

class ValidRecording : public testing::TestWithParam<Row> {};

TEST_P(ValidRecording, is_read)
{
    const Recording recording = Recording::read(GetParam().text(), "x.rec");
    std::vector<std::size_t> numbers;
    for (std::size_t i = 0; i < recording.size(); ++i) {
        numbers.push_back(recording.lineNumber(i));
    }
    EXPECT_EQ(numbers, GetParam().lineNumbers());
}

INSTANTIATE_TEST_SUITE_P(All, ValidRecording, testing::ValuesIn(rows("files")), nameOf);

TEST(PlantInARecording, is_the_text_of_a_plant_file)
{
    const Recording recording = Recording::read(std::string(kHead) + R"(plant "[[station]]"
plant "name = \"Lathe 1\""
1 note "x"
plant ""
)",
                                                "x.rec");
    EXPECT_EQ(recording.plant(), "[[station]]\nname = \"Lathe 1\"\n\n");
    EXPECT_EQ(recording.size(), 1U);
    EXPECT_EQ(Recording::read(kHead, "x.rec").plant(), "");
}

class MistakenRecording : public testing::TestWithParam<Row> {};

TEST_P(MistakenRecording, is_refused_with_its_line)
{
    EXPECT_THAT([] { Recording::read(GetParam().text(), "x.rec"); },
                ThrowsMessage<RecordingError>(StartsWith("x.rec" + GetParam().message())));
}

INSTANTIATE_TEST_SUITE_P(All, MistakenRecording, testing::ValuesIn(rows("file_mistakes")), nameOf);

TEST(PageAboutRecordings, shows_a_valid_recording_as_the_writer_would_write_it)
{
    std::ifstream file(RECORDING_PAGE);
    const std::string page((std::istreambuf_iterator<char>(file)), {});
    const std::string begin = "\n```\n";
    const std::size_t at = page.find(begin);
    ASSERT_NE(at, std::string::npos);
    const std::string text = page.substr(at + begin.size(), page.find("```", at + begin.size()) - at - begin.size());
    const Recording recording = Recording::read(text, "recording.md");
    EXPECT_EQ(recording.size(), 6U);
    std::string written;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        written += format(parse(line)) + '\n';
    }
    EXPECT_EQ(written, text);
}

TEST(RecordingText, that_cannot_be_read_names_the_file)
{
    EXPECT_THAT([] { Recording::load("/nonexistent/x.rec"); },
                ThrowsMessage<std::system_error>(HasSubstr("/nonexistent/x.rec: No such file or directory")));
}

}  // namespace
