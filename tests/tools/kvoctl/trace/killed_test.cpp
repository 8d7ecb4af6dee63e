// kill -9 of everything that takes part in a trace. KVO_TEST_SEED repeats a run; KVO_TEST_ROUNDS and KVO_TEST_PAIR_ROUNDS make it
// longer.
#include "tools/kvoctl/trace/traced_service.h"
#include "tools/kvosim/support/temporary_directory.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <random>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace std::chrono_literals;

namespace kvoctl_test {

namespace {

using testing::HasSubstr;
using tools::tap::fileAt;
using tools::tap::FileId;

/// A program that asks without pause.
class Asking {
public:
    Asking() : process_(fork())
    {
        if (process_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            for (;;) {
                answers();
            }
        }
    }
    Asking(const Asking &) = delete;
    Asking &operator=(const Asking &) = delete;
    ~Asking() { kill(); }

    void kill()
    {
        if (process_ > 0) {
            ::kill(process_, SIGKILL);
            waitpid(std::exchange(process_, 0), nullptr, 0);
        }
    }

private:
    pid_t process_;
};

unsigned long numberOf(const char *variable, unsigned long otherwise)
{
    const char *const text = std::getenv(variable);
    return text == nullptr ? otherwise : std::strtoul(text, nullptr, 10);
}

/// The random moments of a test.
class Moments {
public:
    Moments() : random_(seed()) {}

    void wait(std::chrono::milliseconds most)
    {
        std::uniform_int_distribution<long> microseconds(0, std::chrono::microseconds(most).count());
        std::this_thread::sleep_for(std::chrono::microseconds(microseconds(random_)));
    }

private:
    static unsigned seed()
    {
        const auto seed = static_cast<unsigned>(numberOf("KVO_TEST_SEED", std::random_device()()));
        std::cout << "KVO_TEST_SEED=" << seed << '\n';
        testing::Test::RecordProperty("seed", std::to_string(seed));
        return seed;
    }

    std::mt19937 random_;
};

/// The guardians of the taps of this test, which has a mount namespace of its own.
std::vector<pid_t> guardians()
{
    std::vector<pid_t> found;
    std::error_code error;
    const std::filesystem::path here = std::filesystem::read_symlink("/proc/self/ns/mnt");
    for (const auto &process : std::filesystem::directory_iterator("/proc")) {
        std::string name;
        std::getline(std::ifstream(process.path() / "comm") >> std::ws, name);
        if (name == "kvo_tap_guard" && std::filesystem::read_symlink(process.path() / "ns/mnt", error) == here && !error) {
            found.push_back(static_cast<pid_t>(std::stol(process.path().filename())));
        }
    }
    return found;
}

/// Waits until there is a guardian that is not @p other.
pid_t guardian(pid_t other = 0)
{
    std::vector<pid_t> all;
    const bool found = support::eventually([&] {
        all = guardians();
        std::erase(all, other);
        return !all.empty();
    });
    EXPECT_TRUE(found) << "no guardian";
    return found ? all.front() : 0;
}

class KilledTrace : public testing::Test {
protected:
    KilledTrace() { std::ofstream(directory_ / "kvo_hws.conf") << "# empty\n"; }
    ~KilledTrace() override
    {
        EXPECT_TRUE(support::eventually([] { return guardians().empty(); }));
    }

    /// Kills a tap together with its guardian.
    static void killBoth(Tracing &tap)
    {
        const pid_t other = guardian();
        kill(other, SIGSTOP);
        tap.signal(SIGKILL);
        tap.wait();
        kill(other, SIGKILL);
        EXPECT_TRUE(support::eventually([] { return guardians().empty(); }));
    }
    [[nodiscard]] Ended doctor() const
    {
        return kvoctl({"doctor"},
                      {.environment = {"LC_ALL=C.UTF-8", "KVO_PLATFORM_CONFIG=" + (directory_ / "kvo_hws.conf").string()}});
    }

    Service service_;
    FileId own_ = fileAt(tools::kCommandSocket);
    Moments moments_;

private:
    kvosim_test::TemporaryDirectory directory_;
};

TEST_F(KilledTrace, gives_the_place_back_whichever_process_is_killed)
{
    enum Victim { ofTap, ofGuardian, ofService, ofProgram, count };
    const Asking first;
    const Asking second;
    for (unsigned long round = 0; round < numberOf("KVO_TEST_ROUNDS", 40); ++round) {
        const auto victim = static_cast<Victim>(round % count);
        SCOPED_TRACE("round " + std::to_string(round));
        Asking program;
        Tracing tap;
        if (victim == ofTap) {
            moments_.wait(100ms);  // also while it attaches
            tap.signal(SIGKILL);
            EXPECT_EQ(tap.wait(), -SIGKILL);
        } else {
            ASSERT_TRUE(tap.isAttached()) << tap.err();
            moments_.wait(30ms);
        }
        if (victim == ofGuardian) {
            const pid_t killed = guardian();
            kill(killed, SIGKILL);
            guardian(killed);
            tap.signal(SIGKILL);
            tap.wait();
        } else if (victim == ofService) {
            service_.kill();
            ASSERT_TRUE(support::eventually([] { return connectError() == ECONNREFUSED; }));
            service_.start();
            EXPECT_TRUE(tap.hasSaid("The service runs again"));
            tap.stop();
            own_ = fileAt(tools::kCommandSocket);
        } else if (victim == ofProgram) {
            program.kill();
            moments_.wait(10ms);
            EXPECT_TRUE(answers());
            EXPECT_EQ(tap.stop(), 0) << tap.err();
        }
        expectServiceInItsPlace();
        EXPECT_EQ(fileAt(tools::kCommandSocket), own_);
        ASSERT_FALSE(HasFailure());
    }
}

TEST_F(KilledTrace, can_be_repaired_when_its_guardian_was_killed_too)
{
    const Asking program;
    for (unsigned long round = 0; round < numberOf("KVO_TEST_PAIR_ROUNDS", 6); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        {
            Tracing tap;
            ASSERT_TRUE(tap.isAttached()) << tap.err();
            moments_.wait(30ms);
            killBoth(tap);
        }
        EXPECT_EQ(connectError(), ECONNREFUSED);
        const Ended found = doctor();
        EXPECT_EQ(found.status, 20) << found.out;
        EXPECT_THAT(found.out, HasSubstr("kvoctl trace --repair"));
        if (round % 2 == 0) {
            const Ended repaired = kvoctl({"trace", "--repair"});
            EXPECT_EQ(repaired.status, 0);
            EXPECT_EQ(repaired.out, "put back: /tmp/kvo_hws/cmd_sock\n");
            EXPECT_EQ(kvoctl({"trace", "--repair"}).out, "nothing to repair: no trace has left a socket aside\n");
        } else {
            Tracing next;
            ASSERT_TRUE(next.isAttached()) << next.err();
            EXPECT_TRUE(answers());
            EXPECT_EQ(next.stop(), 0) << next.err();
        }
        expectServiceInItsPlace();
        EXPECT_EQ(fileAt(tools::kCommandSocket), own_);
        EXPECT_EQ(doctor().status, 0);
    }
}

/// As a terminal or a service manager ends all processes of a group.
TEST_F(KilledTrace, gives_the_place_back_when_its_group_is_killed)
{
    Program tap({"setsid", KVOCTL_PROGRAM, "trace"});
    ASSERT_TRUE(support::eventually([&] { return tap.err().find("Ctrl-C") != std::string::npos; })) << tap.err();
    guardian();
    ASSERT_EQ(getpgid(tap.id()), tap.id());
    kill(-tap.id(), SIGKILL);
    EXPECT_EQ(tap.wait(), -SIGKILL);
    expectServiceInItsPlace();
    EXPECT_EQ(fileAt(tools::kCommandSocket), own_);
}

TEST_F(KilledTrace, is_not_repaired_while_it_runs)
{
    Tracing tap;
    ASSERT_TRUE(tap.isAttached());
    const Ended repaired = kvoctl({"trace", "--repair"});
    EXPECT_NE(repaired.status, 0);
    EXPECT_THAT(repaired.err, HasSubstr("a tap is running at /tmp/kvo_hws/cmd_sock; end it instead"));
    EXPECT_TRUE(tools::tap::isAttached());
    EXPECT_EQ(tap.stop(), 0);
}

}  // namespace

}  // namespace kvoctl_test
