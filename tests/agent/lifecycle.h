// Starting the agent, and calls that it refuses.
#pragma once

#include <kvo_hws/agent.h>

#include "agent/agent_fixture.h"
#include "support/syslog_capture.h"

#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace agent_test {

using Clock = std::chrono::steady_clock;

inline int start(void **instance, const std::string &params = parameters())
{
    return KVO_HWS_startupEmbHwsClient(params.c_str(), instance, Host::callback);
}

/// Checks one call's result and what it logs.
template <class Call>
void expectRefused(Call call, int result, const std::string &message)
{
    const support::SyslogCapture capture;
    EXPECT_EQ(call(), result);
    EXPECT_THAT(capture.texts(), testing::ElementsAre(message));
}

}  // namespace agent_test
