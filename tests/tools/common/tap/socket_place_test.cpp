// The place of a socket: taken, given back, and put right after a tap was killed.
#include "common/tap/socket_place.h"

#include "common/refused.h"
#include "tools/common/tap/service.h"
#include "tools/kvosim/support/temporary_directory.h"

#include "support/scripted_service.h"

#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <optional>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <thread>

namespace tap_test {

namespace {

using kvosim_test::TemporaryDirectory;
using support::ScriptedService;
using testing::HasSubstr;
using tools::tap::fileAt;
using tools::tap::FileId;
using tools::tap::needsRepair;
using tools::tap::repair;
using tools::tap::SocketPlace;

/// Runs @p work in a process of its own, which it may end as it likes. Returns the text of an exception, or nothing.
std::string inChild(const std::function<void()> &work)
{
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe(ends.data()), 0);
    const pid_t child = fork();
    if (child == 0) {
        try {
            work();
        } catch (const std::exception &error) {
            const std::string text = error.what();
            _exit(write(ends[1], text.data(), text.size()) > 0 ? 0 : 1);
        }
        _exit(0);
    }
    close(ends[1]);
    std::string text;
    char byte = 0;
    while (read(ends[0], &byte, 1) == 1) {
        text += byte;
    }
    close(ends[0]);
    waitpid(child, nullptr, 0);
    return text;
}

/// A service at a path of the test's own folder.
struct Place {
    TemporaryDirectory folder;
    std::string path = folder / "sock";
    std::optional<ScriptedService> service{std::in_place, std::vector<support::Script>{support::replies("ok")}, path.c_str()};
    FileId own = fileAt(path);

    [[nodiscard]] bool answers() const { return kvosim_test::exchange("ask\n", path) == "ok\n"; }
    [[nodiscard]] std::size_t files() const
    {
        const std::filesystem::directory_iterator all(folder.path());
        return static_cast<std::size_t>(std::distance(begin(all), end(all)));
    }
    /// A tap that was killed together with its guardian.
    void leaveATap() const
    {
        inChild([this] {
            const SocketPlace place(path);
            kill(getpid(), SIGKILL);
        });
    }
};

TEST(SocketPlace, gives_the_same_socket_back)
{
    const Place place;
    {
        const SocketPlace taken(place.path);
        EXPECT_NE(fileAt(place.path), place.own);
        EXPECT_EQ(fileAt(taken.serviceSocket()), place.own);
    }
    EXPECT_EQ(fileAt(place.path), place.own);
    EXPECT_EQ(place.files(), 1U);
    EXPECT_TRUE(place.answers());
}

TEST(SocketPlace, leaves_a_newer_socket_alone)
{
    Place place;
    FileId newer;
    {
        const SocketPlace taken(place.path);
        std::filesystem::remove(place.path);
        place.service.emplace(std::vector<support::Script>{support::replies("ok")}, place.path.c_str());
        newer = fileAt(place.path);
        EXPECT_FALSE(taken.isTaken());
    }
    EXPECT_EQ(fileAt(place.path), newer);
    EXPECT_EQ(place.files(), 1U);
}

TEST(SocketPlace, leaves_nothing_where_the_service_has_removed_its_socket)
{
    const Place place;
    {
        const SocketPlace taken(place.path);
        std::filesystem::remove(place.path);
    }
    EXPECT_EQ(place.files(), 0U);
}

/// The service moves its new socket to the path in one step, while the tap gives the place back: mostly before or after, but in some
/// rounds between the tap's look and its exchange.
TEST(SocketPlace, leaves_a_socket_alone_that_comes_at_the_same_moment)
{
    const TemporaryDirectory folder;
    const std::string path = folder / "sock";
    const std::string next = folder / "next";
    const auto makeSocket = [](const std::string &at) { ASSERT_EQ(mknod(at.c_str(), S_IFSOCK | 0600, 0), 0); };
    makeSocket(path);
    for (int round = 0; round < 1000; ++round) {
        SocketPlace taken(path);
        makeSocket(next);
        const FileId newer = fileAt(next);
        std::atomic<bool> begun{false};
        std::thread service([&] {
            while (!begun) {
            }
            for (int i = 0; begun && i < 3 * round; ++i) {
            }
            rename(next.c_str(), path.c_str());
        });
        begun = true;
        taken.giveBack();
        service.join();
        ASSERT_EQ(fileAt(path), newer) << "round " << round;
    }
}

TEST(SocketPlace, can_be_repaired_after_a_kill)
{
    const Place place;
    EXPECT_FALSE(needsRepair(place.path));
    EXPECT_FALSE(repair(place.path));
    place.leaveATap();
    EXPECT_NE(fileAt(place.path), place.own);
    EXPECT_TRUE(needsRepair(place.path));
    EXPECT_TRUE(repair(place.path));
    EXPECT_EQ(fileAt(place.path), place.own);
    EXPECT_EQ(place.files(), 1U);
    EXPECT_TRUE(place.answers());
}

TEST(SocketPlace, is_repaired_by_the_next_tap)
{
    const Place place;
    place.leaveATap();
    {
        const SocketPlace taken(place.path);
    }
    EXPECT_EQ(fileAt(place.path), place.own);
    EXPECT_EQ(place.files(), 1U);
}

TEST(SocketPlace, is_repaired_without_its_lock_file)
{
    const Place place;
    place.leaveATap();
    std::filesystem::remove(place.folder / ".kvo_tap_sock.lock");
    EXPECT_TRUE(repair(place.path));
    EXPECT_EQ(fileAt(place.path), place.own);
    EXPECT_TRUE(place.answers());
}

TEST(SocketPlace, a_repair_leaves_a_service_alone_that_has_started_since)
{
    Place place;
    place.leaveATap();
    std::filesystem::remove(place.path);
    place.service.emplace(std::vector<support::Script>{support::replies("ok")}, place.path.c_str());
    const FileId newer = fileAt(place.path);
    EXPECT_FALSE(needsRepair(place.path));
    EXPECT_TRUE(repair(place.path));
    EXPECT_EQ(fileAt(place.path), newer);
    EXPECT_EQ(place.files(), 1U);
    EXPECT_TRUE(place.answers());
}

TEST(SocketPlace, a_repair_knows_a_service_whose_file_has_the_number_of_the_killed_taps_file)
{
    Place place;
    place.leaveATap();
    std::filesystem::remove(place.path);
    place.service.emplace(std::vector<support::Script>{support::replies("ok")}, place.path.c_str());
    const FileId newer = fileAt(place.path);
    std::ofstream(place.folder / ".kvo_tap_sock.lock") << newer.device << ' ' << newer.inode << '\n';
    EXPECT_FALSE(needsRepair(place.path));
    EXPECT_TRUE(repair(place.path));
    EXPECT_EQ(fileAt(place.path), newer);
    EXPECT_TRUE(place.answers());
}

TEST(SocketPlace, has_the_access_list_of_the_socket)
{
    const Place place;
    // Version 2; owner rw, user 65534 rw, group -, mask rw, others -. Each entry has a tag, permissions and a number.
    const std::array<uint8_t, 44> list{2, 0,    0,    0,    1,    0,    6,    0, 0xFF, 0xFF, 0xFF, 0xFF, 2,    0,    6,
                                       0, 0xFE, 0xFF, 0,    0,    4,    0,    0, 0,    0xFF, 0xFF, 0xFF, 0xFF, 0x10, 0,
                                       6, 0,    0xFF, 0xFF, 0xFF, 0xFF, 0x20, 0, 0,    0,    0xFF, 0xFF, 0xFF, 0xFF};
    if (setxattr(place.path.c_str(), "system.posix_acl_access", list.data(), list.size(), 0) != 0) {
        GTEST_SKIP() << "the file system of " << place.path << " has no access lists: " << std::strerror(errno);
    }
    const SocketPlace taken(place.path);
    std::array<uint8_t, 64> copy{};
    const ssize_t size = getxattr(place.path.c_str(), "system.posix_acl_access", copy.data(), copy.size());
    ASSERT_EQ(size, static_cast<ssize_t>(list.size()));
    EXPECT_TRUE(std::equal(list.begin(), list.end(), copy.begin()));
}

/// From now on this process gets @p error from renameat2.
void forbidRenaming(uint32_t error)
{
    std::array<sock_filter, 4> program{sock_filter BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                                       sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_renameat2, 0, 1),
                                       sock_filter BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
                                       sock_filter BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    const sock_fprog filter{.len = program.size(), .filter = program.data()};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0) {
        throw std::runtime_error("cannot forbid renameat2");
    }
}

TEST(SocketPlace, says_what_to_do_where_names_cannot_be_exchanged)
{
    const Place place;
    const std::string refusal = inChild([&] {
        forbidRenaming(EINVAL);
        const SocketPlace taken(place.path);
    });
    EXPECT_EQ(refusal, "cannot take the place of " + place.path +
                           ": its file system cannot exchange two names; use \"kvoctl trace -- PROGRAM\" instead");
    EXPECT_EQ(fileAt(place.path), place.own);
    EXPECT_EQ(place.files(), 1U);
}

TEST(SocketPlace, says_what_to_do_where_a_right_is_missing)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can make a folder of another user";
    }
    const Place place;
    // Everyone may create files in a sticky folder, but only owners may rename them.
    ASSERT_EQ(chmod(place.folder.path().c_str(), 01777), 0);
    ASSERT_EQ(chmod(place.path.c_str(), 0666), 0);
    const std::string refusal = inChild([&] {
        if (setgid(65534) == 0 && setuid(65534) == 0) {
            const SocketPlace taken(place.path);
        }
    });
    EXPECT_THAT(refusal, HasSubstr("belongs to another user; run the tap as that user or as root"));
    EXPECT_EQ(fileAt(place.path), place.own);
    EXPECT_EQ(place.files(), 1U);
}

TEST(SocketPlace, is_for_one_tap_at_a_time)
{
    const Place place;
    const SocketPlace taken(place.path);
    EXPECT_EQ(inChild([&] { const SocketPlace second(place.path); }),
              "another tap is running at " + place.path + "; end it first");
    EXPECT_TRUE(taken.isTaken());
    EXPECT_THAT(inChild([&] { repair(place.path); }), HasSubstr("a tap is running at"));
}

}  // namespace

}  // namespace tap_test
