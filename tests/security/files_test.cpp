// The files that the library opens: with which flags, and what happens with links.
#include <kvo_hws/config.h>
#include <kvo_hws/requests.h>
#include <kvo_hws/runtime.h>

#include "support/leak_suppressions.h"
#include "support/scripted_service.h"
#include "support/system_calls.h"

#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <string>
#include <vector>

namespace {

/// A folder of this test with the daemon's registry.
class Files : public testing::Test {
protected:
    Files()
    {
        std::string name = (std::filesystem::temp_directory_path() / "kvo-security-XXXXXX").string();
        folder_ = mkdtemp(name.data());
        std::filesystem::create_directory(folder_ / "kvo_hws");
        std::filesystem::create_directories("/tmp/kvo_hws");
    }
    ~Files() override { std::filesystem::remove_all(folder_); }

    std::filesystem::path folder_;
};

struct Opened {
    std::string path;
    int flags;
};

/// Records all files that the library opens.
class Watching {
public:
    [[nodiscard]] std::vector<Opened> opened() const
    {
        const std::lock_guard guard(lock_);
        return opened_;
    }

private:
    int note(const char *path, int flags)
    {
        if (support::calledByLibrary()) {
            const std::lock_guard guard(lock_);
            opened_.push_back({path, flags});
        }
        return support::kPassThrough;
    }

    mutable std::mutex lock_;
    std::vector<Opened> opened_;
    const support::WithSystemCalls calls_{{.open = [this](const char *path, int flags, mode_t) { return note(path, flags); }}};
};

int32_t readCurrentList(KvoDescription &station)
{
    uint32_t count = 1;
    return KVO_HWS_getKVOCurrentListFromRegistry(&station, &count, 1);
}

TEST_F(Files, a_registry_list_is_only_read_even_through_a_link)
{
    const auto elsewhere = folder_ / "elsewhere";
    std::ofstream(elsewhere) << "\"Lathe\" 10.0.0.5 1x2:3\n";
    std::filesystem::permissions(elsewhere, std::filesystem::perms::owner_read);
    std::filesystem::create_symlink(elsewhere, folder_ / "kvo_hws/currkvos.reg");
    const support::ScriptedService service({support::answersWith([this](const std::string &request) {
        return request.starts_with("getregistrypath") ? folder_.string() + "/" : request.starts_with("is") ? "yes" : "ok";
    })});
    const Watching watching;
    KvoDescription station{};
    EXPECT_EQ(readCurrentList(station), 1) << "the folder belongs to the service, so links in it are followed";
    EXPECT_STREQ(station.name, "Lathe");
    ASSERT_EQ(watching.opened().size(), 1U);
    EXPECT_EQ(watching.opened()[0].flags & O_ACCMODE, O_RDONLY);
    EXPECT_EQ(watching.opened()[0].flags & (O_CREAT | O_TRUNC), 0);
    EXPECT_NE(watching.opened()[0].flags & O_NONBLOCK, 0) << "a pipe instead of the file does not block";
}

TEST_F(Files, a_registry_list_that_is_a_folder_fails_and_a_device_is_empty)
{
    const support::ScriptedService service({support::answersWith([this](const std::string &request) {
        return request.starts_with("getregistrypath") ? folder_.string() + "/" : request.starts_with("is") ? "yes" : "ok";
    })});
    KvoDescription station{};
    std::filesystem::create_directory(folder_ / "kvo_hws/currkvos.reg");
    EXPECT_EQ(readCurrentList(station), -1);
    std::filesystem::remove(folder_ / "kvo_hws/currkvos.reg");
    std::filesystem::create_symlink("/dev/zero", folder_ / "kvo_hws/currkvos.reg");
    EXPECT_EQ(readCurrentList(station), 1) << "a device has no size, so nothing is read from it";
    EXPECT_STREQ(station.name, "");
}

TEST_F(Files, only_the_trace_file_is_written_and_it_is_never_truncated)
{
    const Watching watching;
    traceIt("usually there is no folder /user here");
    ASSERT_EQ(watching.opened().size(), 1U);
    EXPECT_EQ(watching.opened()[0].path, "/user/traceIt.log");
    EXPECT_EQ(watching.opened()[0].flags & (O_ACCMODE | O_APPEND | O_CREAT | O_TRUNC | O_NOFOLLOW),
              O_WRONLY | O_APPEND | O_CREAT)
        << "a link is followed: the folder belongs to the panel, which may keep its traces elsewhere";
}

/// The library never reads the environment; the stand-in for the panel's library does, for the file's name.
TEST_F(Files, no_environment_variable_changes_the_location_of_files)
{
    for (const char *variable : {"HOME", "TMPDIR", "XDG_CONFIG_HOME", "LD_LIBRARY_PATH", "KVO_HWS_SOCKET"}) {
        setenv(variable, folder_.c_str(), 1);
    }
    const Watching watching;
    traceIt("x");
    ReadConfFile();
    for (const Opened &file : watching.opened()) {
        EXPECT_THAT(file.path, testing::Not(testing::HasSubstr(folder_.string())));
    }
    EXPECT_EQ(KVO_HWS_isInitComplete(), -2) << "the socket's path is fixed";
}

}  // namespace
