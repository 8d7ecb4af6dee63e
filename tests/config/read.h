// A configuration file that has been read.
#pragma once

#include "support/leak_suppressions.h"

#include <kvo_hws/config.h>
#include <kvo_hws/runtime.h>

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

namespace config_test {

/// Writes a configuration file with this content and reads it.
class Read {
public:
    explicit Read(const std::string &content)
    {
        std::ofstream(path_) << content;
        setenv("KVO_PLATFORM_CONFIG", path_.c_str(), 1);
        ReadConfFile();
    }
    Read(const Read &) = delete;
    Read &operator=(const Read &) = delete;
    ~Read()
    {
        // Earlier texts are not freed, as programs may still use them; here no program does.
        std::free(sConfData.name);
        std::free(sConfData.interface);
        sConfData = {};
        unsetenv("KVO_PLATFORM_CONFIG");
        unlink(path_.c_str());
    }

private:
    std::string path_ = testing::TempDir() + "kvo_hws." + std::to_string(getpid()) + ".conf";
};

}  // namespace config_test
