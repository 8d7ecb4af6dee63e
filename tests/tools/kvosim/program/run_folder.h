// A fixture for runs that use the folder of the sockets, by one user or two.
#pragma once

#include "support/eventually.h"
#include "tools/kvosim/support/private_tmp.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace kvosim_test {

inline constexpr const char *kFolder = "/tmp/kvo_hws";

inline bool exists(const std::string &path) { return std::filesystem::exists(std::filesystem::symlink_status(path)); }

inline bool disappears(const std::string &path)
{
    return support::eventually([&] { return !exists(path); });
}

inline struct stat statusOf(const std::string &path)
{
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status;
}

inline void makeFolder(mode_t mode, uid_t owner = 0)
{
    ASSERT_EQ(mkdir(kFolder, mode), 0);
    ASSERT_EQ(chmod(kFolder, mode), 0);
    ASSERT_EQ(chown(kFolder, owner, owner), 0);
}

using Words = std::vector<std::string>;

inline Words run(const std::string &script, const Words &options = {})
{
    Words words{KVOSIM_PROGRAM, "run", "--usb-lock-address", "none"};
    words.insert(words.end(), options.begin(), options.end());
    words.insert(words.end(), {"--", "sh", "-c", script});
    return words;
}

inline Words serve()
{
    std::ofstream("/tmp/plant.toml") << "[[station]]\naddress = \"10.0.0.5\"\nname = \"Lathe\"\n";
    return {KVOSIM_PROGRAM, "serve", "--plant", "/tmp/plant.toml", "--usb-lock-address", "none"};
}

/// A script that prints "begun", waits until the file @p end exists, and then makes a request to the service.
inline std::string waitFor(const std::string &end)
{
    return "echo begun; while [ ! -e " + end + " ]; do sleep 0.02; done; " ASK_PROGRAM " getCountElemDL";
}

inline void touch(const std::string &path) { std::ofstream(path) << ""; }

class RunFolder : public testing::Test {
protected:
    void SetUp() override
    {
        const std::string reason =
            kvosim_test::enterPrivateTmp(std::filesystem::path(KVOSIM_PROGRAM).parent_path().parent_path());
        if (!reason.empty()) {
            GTEST_SKIP() << reason;
        }
    }
};

}  // namespace kvosim_test
