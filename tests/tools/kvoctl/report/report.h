// Runs "kvoctl report", and reads the file that it has written.
#pragma once

#include "tools/kvoctl/support/kvoctl.h"
#include "tools/kvosim/support/temporary_directory.h"

#include <array>
#include <cstdio>
#include <filesystem>
#include <map>
#include <sys/wait.h>

namespace kvoctl_test {

/// Whether this kvoctl can write reports; else the reason.
inline const char *noReports()
{
#ifdef KVO_NO_LIBARCHIVE
    return "skipped: this build has no libarchive";
#else
    return nullptr;
#endif
}

class Reporting : public testing::Test {
protected:
    void SetUp() override
    {
        if (noReports() != nullptr) {
            GTEST_SKIP() << noReports();
        }
    }

    [[nodiscard]] std::string path(const char *name = "fault.tar.gz") const { return folder_ / name; }
    [[nodiscard]] Arguments command(const Arguments &more = {}) const
    {
        Arguments arguments{"report", path()};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }
    [[nodiscard]] Ended run(const Arguments &more = {}, RunConditions conditions = {}) const
    {
        conditions.environment.push_back("KVO_PLATFORM_CONFIG=" + path("kvo_hws.conf"));
        return kvoctl(command(more), conditions);
    }
    /// The files in the folder.
    [[nodiscard]] std::vector<std::string> names() const
    {
        std::vector<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(folder_.path())) {
            names.push_back(entry.path().filename());
        }
        return names;
    }
    /// The files of the report with their contents, unpacked with tar.
    [[nodiscard]] std::map<std::string, std::string> unpacked() const
    {
        const kvosim_test::TemporaryDirectory target;
        const std::string tar = "tar -xzf '" + path() + "' -C '" + target.path().string() + "'";
        EXPECT_EQ(std::system(tar.c_str()), 0) << tar;
        std::map<std::string, std::string> files;
        const std::filesystem::path root = target / "fault";
        for (const auto &entry : std::filesystem::recursive_directory_iterator(root)) {
            if (entry.is_regular_file()) {
                files[entry.path().lexically_relative(root)] = kvosim_test::contentsOf(entry.path());
            }
        }
        return files;
    }

    kvosim_test::TemporaryDirectory folder_;
};

/// The part of this name in the JSON document of a report.
inline Json partOf(const Json &document, const std::string &name)
{
    for (const Json &part : document.at("parts")) {
        if (part.at("name") == name) {
            return part;
        }
    }
    return nullptr;
}

}  // namespace kvoctl_test
