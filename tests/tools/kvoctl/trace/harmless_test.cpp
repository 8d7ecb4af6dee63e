// What must not harm the programs while a trace has the place of the service, such as Ctrl-Z.
#include "tools/kvoctl/trace/traced_service.h"
#include "tools/kvosim/support/temporary_directory.h"

namespace kvoctl_test {

namespace {

using kvosim_test::TemporaryDirectory;
using testing::HasSubstr;

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
