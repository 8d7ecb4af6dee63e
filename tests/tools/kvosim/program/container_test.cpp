// "kvosim run" and demo.sh in a container that may not create namespaces.
#include "tools/kvosim/support/program.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace {

using kvosim_test::Program;
using kvosim_test::TemporaryDirectory;
using testing::HasSubstr;

using Words = std::vector<std::string>;

class Container : public testing::Test {
protected:
    void SetUp() override
    {
        Program tried(inside({"true"}));
        const int status = tried.wait();
        if (status == kNoProgram) {
            GTEST_SKIP() << "missing tool: bwrap";
        }
        if (status != 0) {
            GTEST_SKIP() << "bwrap cannot create a container here: " << tried.err();
        }
    }

    /// Runs a command in a container with an empty /tmp. Programs and sources below /tmp stay visible.
    [[nodiscard]] Words inside(const Words &command, const Words &more = {}) const
    {
        const std::string build = std::filesystem::path(KVOSIM_PROGRAM).parent_path().parent_path();
        Words words{"bwrap", "--unshare-user", "--disable-userns", "--cap-drop", "ALL", "--dev-bind", "/", "/", "--tmpfs",
                    "/tmp"};
        for (const std::string &folder : {build, std::string(SOURCE_FOLDER), place.path().string()}) {
            words.insert(words.end(), {"--bind", folder, folder});
        }
        words.insert(words.end(), {"--setenv", "TMPDIR", "/tmp"});
        words.insert(words.end(), more.begin(), more.end());
        words.emplace_back("--");
        words.insert(words.end(), command.begin(), command.end());
        return words;
    }

    TemporaryDirectory place;

private:
    static constexpr int kNoProgram = 98;
};

TEST_F(Container, names_the_missing_permission)
{
    Program run(inside({KVOSIM_PROGRAM, "run", "--", "echo", "started"}));
    EXPECT_EQ(run.wait(), 1);
    EXPECT_EQ(run.out(), "");
    const std::string missing = geteuid() == 0 ? "root has no CAP_SYS_ADMIN here, as in most containers" : "only root may";
    EXPECT_EQ(run.err(), "kvosim: no private /tmp/kvo_hws: new mount namespace: Operation not permitted (" + missing +
                             "); new user namespace, which would permit it: No space left on device; their number is "
                             "limited, see /proc/sys/user/max_user_namespaces. \"kvosim run --shared\" needs no namespace: it "
                             "uses the machine's own /tmp/kvo_hws, one run at a time\n");
}

TEST_F(Container, of_an_ordinary_user_names_the_missing_permission)
{
    Program run(inside({KVOSIM_PROGRAM, "run", "--", "echo", "started"}, {"--uid", "1000"}));
    EXPECT_EQ(run.wait(), 1);
    EXPECT_THAT(run.err(), HasSubstr("Operation not permitted (only root may); new user namespace"));
}

TEST_F(Container, has_a_shared_run_that_removes_its_files)
{
    Program run(inside({"sh", "-c", KVOSIM_PROGRAM " run --shared -- " ASK_PROGRAM " getCountElemDL && ls /tmp"}));
    EXPECT_EQ(run.wait(), 0) << run.err();
    EXPECT_EQ(run.out().substr(0, 2), "3\n");
    EXPECT_THAT(run.out(), testing::Not(HasSubstr("kvo_hws\n")));
}

TEST_F(Container, has_one_shared_run_at_a_time)
{
    const std::string script = "run() { " KVOSIM_PROGRAM " run --shared -- sh -c \"$1\"; }\n"
                               "run 'echo first; touch /tmp/begun; for i in $(seq 900); do grep -qs waiting /tmp/second && "
                               "break; sleep 0.02; done; echo ends' &\n"
                               "while [ ! -e /tmp/begun ]; do sleep 0.02; done\n"
                               "run 'echo second' 2> /tmp/second; cat /tmp/second >&2; wait; ls -d /tmp/kvo_hws";
    Program run(inside({"sh", "-c", script}));
    run.wait();
    EXPECT_EQ(run.out(), "first\nends\nsecond\n");
    EXPECT_THAT(run.err(), HasSubstr("kvosim: waiting for another \"kvosim run --shared\" to end\n"));
    EXPECT_THAT(run.err(), HasSubstr("/tmp/kvo_hws': No such file or directory\n"));
}

TEST_F(Container, runs_the_demo)
{
    // Runs the unchanged demo.sh, but replaces the tools that would install and build by the existing build.
    std::filesystem::copy(SOURCE_FOLDER "/demo.sh", place.path());
    std::filesystem::copy(SOURCE_FOLDER "/scripts", place / "scripts");
    std::filesystem::create_directories(place / "examples");
    std::filesystem::copy(SOURCE_FOLDER "/examples/plant.toml", place / "examples");
    std::filesystem::create_directories(place / "build/demo");
    std::filesystem::create_directory_symlink(std::filesystem::path(KVOSIM_PROGRAM).parent_path(), place / "build/demo/bin");
    std::filesystem::create_directories(place / "stand-ins");
    for (const char *tool : {"scripts/setup.sh", "stand-ins/cmake", "stand-ins/ninja"}) {
        std::ofstream(place / tool) << "#!/bin/sh\n";
        std::filesystem::permissions(place / tool, std::filesystem::perms::owner_all);
    }
    Program demo(inside(
        {"sh", "-c", "PATH=\"$0/stand-ins:$PATH\" exec \"$0/demo.sh\" " ASK_PROGRAM " getCountElemDL", place.path().string()}));
    EXPECT_EQ(demo.wait(), 0) << demo.err();
    EXPECT_EQ(demo.out(), "30\n");
    EXPECT_THAT(demo.err(),
                HasSubstr("demo.sh: cannot create a private namespace; the service uses the machine's /tmp/kvo_hws\n"));
}

}  // namespace
