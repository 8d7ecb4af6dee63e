// The signals that end kvoctl.
#pragma once

#include <csignal>
#include <gtest/gtest.h>
#include <string>

namespace kvoctl_test {

/// The name of a test case for one of these signals.
inline std::string signalName(const testing::TestParamInfo<int> &signal)
{
    switch (signal.param) {
    case SIGINT: return "SIGINT";
    case SIGTERM: return "SIGTERM";
    case SIGHUP: return "SIGHUP";
    default: return "signal_" + std::to_string(signal.param);
    }
}

}  // namespace kvoctl_test
