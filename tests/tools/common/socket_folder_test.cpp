// Locking a folder that other processes may remove at the same time.
#include "common/socket_folder.h"
#include "support/eventually.h"
#include "tools/kvosim/support/temporary_directory.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <future>
#include <sys/file.h>
#include <sys/stat.h>

namespace {

using tools::Descriptor;
using tools::FolderUse;

/// Whether a process waits for a lock on the file with this inode.
bool isAwaited(ino_t inode)
{
    std::istringstream locks(kvosim_test::contentsOf("/proc/locks"));
    for (std::string line; std::getline(locks, line);) {
        if (line.find("-> FLOCK") != std::string::npos && line.find(':' + std::to_string(inode) + ' ') != std::string::npos) {
            return true;
        }
    }
    return false;
}

TEST(SocketFolder, is_created_again_if_it_was_removed_before_the_lock_was_granted)
{
    const kvosim_test::TemporaryDirectory root;
    const std::filesystem::path path = root / "sockets";
    ASSERT_EQ(mkdir(path.c_str(), tools::kRunFolderMode), 0);
    // Locks the folder, as the last run does before removing the folder.
    const Descriptor last(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct stat status {};
    ASSERT_EQ(fstat(last.get(), &status), 0);
    ASSERT_EQ(flock(last.get(), LOCK_EX), 0);
    auto next =
        std::async(std::launch::async, [&] { return tools::lockFolder(path, FolderUse::mountOn, tools::kRunFolderMode); });
    ASSERT_TRUE(support::eventually([&] { return isAwaited(status.st_ino); }));
    ASSERT_EQ(rmdir(path.c_str()), 0);
    ASSERT_EQ(flock(last.get(), LOCK_UN), 0);
    const tools::LockedFolder held = next.get();
    EXPECT_TRUE(held.made);
    EXPECT_TRUE(tools::isAt(held.descriptor.get(), path));
}

TEST(SocketFolder, is_removed_only_when_it_is_not_locked)
{
    const kvosim_test::TemporaryDirectory root;
    const std::filesystem::path path = root / "sockets";
    const tools::LockedFolder first = tools::lockFolder(path, FolderUse::mountOn, tools::kRunFolderMode);
    {
        const tools::LockedFolder second = tools::lockFolder(path, FolderUse::mountOn, tools::kRunFolderMode);
        EXPECT_FALSE(second.made);
        tools::removeUnusedFolder(first.descriptor.get(), path, false);
        EXPECT_TRUE(std::filesystem::exists(path));
    }
    tools::removeUnusedFolder(first.descriptor.get(), path, false);
    EXPECT_FALSE(std::filesystem::exists(path));
}

}  // namespace
