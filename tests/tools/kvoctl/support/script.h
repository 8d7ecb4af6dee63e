// A user's program for --exec.
#pragma once

#include "tools/kvosim/support/temporary_directory.h"

#include <filesystem>
#include <fstream>
#include <string>

namespace kvoctl_test {

class Script {
public:
    /// @p lines  shell commands, which run in the script's own directory
    explicit Script(const std::string &lines) : Script("/bin/sh", "cd \"${0%/*}\"\n" + lines) {}
    Script(const std::string &interpreter, const std::string &lines)
    {
        std::ofstream(path()) << "#!" << interpreter << "\n" << lines << "\n";
        std::filesystem::permissions(path(), std::filesystem::perms::owner_all);
    }

    [[nodiscard]] std::string path() const { return directory_ / "on-event"; }
    /// The contents of a file that the program has written.
    [[nodiscard]] std::string file(const char *name) const { return kvosim_test::contentsOf(directory_ / name); }
    [[nodiscard]] bool has(const char *name) const { return std::filesystem::exists(directory_ / name); }

private:
    kvosim_test::TemporaryDirectory directory_;
};

}  // namespace kvoctl_test
