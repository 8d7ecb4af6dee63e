// What must not harm the programs while a trace has the place of the service: a file that cannot be created, a reader of messages
// that has stopped, and Ctrl-Z.
#include "tools/kvoctl/trace/traced_service.h"
#include "tools/kvosim/support/temporary_directory.h"

#include "common/descriptor.h"

#include <array>
#include <atomic>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <thread>
#include <unistd.h>

namespace kvoctl_test {

namespace {

using kvosim_test::contentsOf;
using kvosim_test::TemporaryDirectory;
using testing::HasSubstr;
using tools::Descriptor;

/// Sees whether a tap has been in the folder of the sockets.
class FolderEvents {
public:
    FolderEvents() : events_(inotify_init1(IN_CLOEXEC))
    {
        EXPECT_GE(inotify_add_watch(events_.get(), tools::kSocketDirectory, IN_CREATE | IN_MOVE | IN_DELETE), 0);
    }
    [[nodiscard]] bool any() const
    {
        pollfd polled{.fd = events_.get(), .events = POLLIN, .revents = 0};
        return poll(&polled, 1, 0) == 1;
    }

private:
    Descriptor events_;
};

class RecordFile : public testing::Test {
protected:
    [[nodiscard]] std::vector<std::string> names() const
    {
        std::vector<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(folder_ / ".")) {
            names.push_back(entry.path().filename());
        }
        return names;
    }
    [[nodiscard]] std::string file(const char *name) const { return folder_ / name; }
    void writeOld() const { std::ofstream(file("old.rec")) << "old\n"; }

    TemporaryDirectory folder_;
};

TEST_F(RecordFile, is_created_before_the_tap_takes_its_place)
{
    const Service service;
    writeOld();
    std::filesystem::create_symlink("old.rec", file("link.rec"));
    std::filesystem::create_directory(file("folder.rec"));
    struct Row {
        Arguments arguments;
        const char *reason;
    };
    for (const auto &[arguments, reason] : {Row{{file("old.rec")}, "exists"},
                                            {{file("link.rec"), "--force"}, "is a link"},
                                            {{file("folder.rec"), "--force"}, "is not a file"},
                                            {{file("missing/new.rec")}, "No such file or directory"}}) {
        SCOPED_TRACE(arguments.front());
        const FolderEvents events;
        Arguments command{"record"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const Ended ended = kvoctl(command);
        EXPECT_EQ(ended.status, 2);
        EXPECT_THAT(ended.err, HasSubstr(reason));
        EXPECT_FALSE(events.any());
        EXPECT_EQ(contentsOf(file("old.rec")), "old\n");
    }
    EXPECT_THAT(names(), testing::UnorderedElementsAre("old.rec", "link.rec", "folder.rec"));
}

TEST_F(RecordFile, is_removed_and_replaces_nothing_when_the_tap_is_refused)
{
    writeOld();
    EXPECT_EQ(kvoctl({"record", file("new.rec")}).status, 3);
    EXPECT_EQ(kvoctl({"record", file("new.rec"), "--force"}).status, 3);
    EXPECT_EQ(kvoctl({"record", file("old.rec"), "--force"}).status, 3);
    EXPECT_THAT(names(), testing::ElementsAre("old.rec"));
    EXPECT_EQ(contentsOf(file("old.rec")), "old\n");
}

TEST_F(RecordFile, replaces_another_one_when_the_tap_has_its_place)
{
    const Service service;
    writeOld();
    Tracing record({"record", file("old.rec"), "--force"});
    ASSERT_TRUE(record.isAttached()) << record.err();
    EXPECT_TRUE(answers());
    EXPECT_EQ(record.end(), 0) << record.err();
    EXPECT_THAT(contentsOf(file("old.rec")), HasSubstr("isInitComplete"));
    EXPECT_THAT(names(), testing::ElementsAre("old.rec"));
}

/// Programs that ask without pause; counts the requests that failed.
class Asking {
public:
    Asking()
    {
        for (std::thread &thread : threads_) {
            thread = std::thread([this] {
                while (!isDone_) {
                    ++(answers() ? answered_ : failed_);
                }
            });
        }
    }
    Asking(const Asking &) = delete;
    Asking &operator=(const Asking &) = delete;
    ~Asking()
    {
        isDone_ = true;
        for (std::thread &thread : threads_) {
            thread.join();
        }
        EXPECT_EQ(failed_, 0U);
        EXPECT_GT(answered_, 0U);
    }

private:
    std::atomic<bool> isDone_ = false;
    std::atomic<unsigned> answered_ = 0;
    std::atomic<unsigned> failed_ = 0;
    std::array<std::thread, 4> threads_;
};

TEST_F(RecordFile, makes_no_request_fail_if_it_cannot_replace_another_one)
{
    const Service service;
    writeOld();
    // The kernel refuses to replace the place of a mount.
    if (mount(file("old.rec").c_str(), file("old.rec").c_str(), nullptr, MS_BIND, nullptr) != 0) {
        GTEST_SKIP() << "skipped: this system does not permit to mount a file";
    }
    {
        const Asking programs;
        for (int round = 0; round < 3; ++round) {
            const Ended ended = kvoctl({"record", file("old.rec"), "--force"});
            EXPECT_EQ(ended.status, 2);
            EXPECT_THAT(ended.err, HasSubstr("cannot replace"));
        }
    }
    expectServiceInItsPlace();
    umount2(file("old.rec").c_str(), MNT_DETACH);
    EXPECT_EQ(contentsOf(file("old.rec")), "old\n");
    EXPECT_THAT(names(), testing::ElementsAre("old.rec"));
}

// ---- A reader that has stopped ----

/// A pipe that takes no more bytes, and that programs inherit.
class FullPipe {
public:
    FullPipe()
    {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe(ends.data()), 0);
        reader_ = Descriptor(ends[0]);
        writer_ = Descriptor(ends[1]);
        fcntl(writer_.get(), F_SETFL, O_NONBLOCK);
        const std::string page(4096, 'x');
        while (write(writer_.get(), page.data(), page.size()) > 0) {
        }
        fcntl(writer_.get(), F_SETFL, 0);
    }
    [[nodiscard]] std::string redirected(int descriptor) const
    {
        return " " + std::to_string(descriptor) + ">&" + std::to_string(writer_.get());
    }

private:
    Descriptor reader_;
    Descriptor writer_;
};

TEST_F(RecordFile, and_a_trace_work_and_end_if_nothing_reads_their_messages)
{
    Service service;
    const std::string record = "record --force " + file("new.rec");
    struct Row {
        std::string words;
        bool outputToo;
    };
    for (const auto &[words, outputToo] : {Row{"trace", false}, {"trace --summary", false}, {"trace", true}, {record, false}}) {
        SCOPED_TRACE(words);
        const FullPipe pipe;
        Program program({"sh", "-c",
                         std::string("exec ") + KVOCTL_PROGRAM + " " + words + pipe.redirected(STDERR_FILENO) +
                             (outputToo ? pipe.redirected(STDOUT_FILENO) : "")});
        ASSERT_TRUE(support::eventually([] { return tools::tap::isAttached(); }));
        EXPECT_TRUE(answers());
        program.signal(SIGTSTP);  // a message
        EXPECT_TRUE(answers());
        program.signal(SIGINT);
        EXPECT_EQ(program.wait(), 0);
        expectServiceInItsPlace();
    }
    EXPECT_THAT(contentsOf(file("new.rec")), HasSubstr("isInitComplete"));
}

// ---- Ctrl-Z ----

TEST(Trace, is_not_stopped_by_the_terminal)
{
    const Service service;
    Tracing trace;
    ASSERT_TRUE(trace.isAttached()) << trace.err();
    for (const int signal : {SIGTTIN, SIGTTOU, SIGTSTP}) {
        trace.signal(signal);
        EXPECT_TRUE(answers()) << signal;
    }
    const std::string message = "Ctrl-Z cannot stop the trace";
    EXPECT_TRUE(trace.hasSaid(message)) << trace.err();
    trace.signal(SIGTSTP);
    EXPECT_TRUE(answers());
    EXPECT_EQ(trace.end(), 0) << trace.err();
    EXPECT_EQ(trace.err().find(message), trace.err().rfind(message)) << trace.err();
}

TEST(Trace, gives_its_program_the_signals_as_they_were)
{
    const Arguments show{"grep", "-E", "^Sig(Blk|Ign|Cgt)", "/proc/self/status"};
    Program direct(show);
    EXPECT_EQ(direct.wait(), 0);
    for (const char *kind : {"trace", "record"}) {
        const TemporaryDirectory folder;
        Arguments traced{KVOCTL_PROGRAM, kind};
        if (std::string(kind) == "record") {
            traced.push_back(folder / "signals.rec");
        }
        traced.emplace_back("--");
        traced.insert(traced.end(), show.begin(), show.end());
        Program program(traced);
        EXPECT_EQ(program.wait(), 0) << program.err();
        EXPECT_EQ(program.out().substr(0, direct.out().size()), direct.out()) << kind;
    }
}

}  // namespace

}  // namespace kvoctl_test
