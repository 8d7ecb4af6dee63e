// Behaviour of the basic requests that the catalogue does not cover.
#include <kvo_hws/service.h>

#include "support/syslog_capture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

TEST(BasicRequests, log_nothing_while_debug_messages_are_off)
{
    const support::SyslogCapture capture;
    EXPECT_EQ(KVO_HWS_isInitComplete(), -2);
    EXPECT_EQ(KVO_HWS_setBacklight(7), -1);
    EXPECT_THAT(capture.lines(), testing::IsEmpty());
}

}  // namespace
