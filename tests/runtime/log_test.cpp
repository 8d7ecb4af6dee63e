// The two log channels: what is logged at which level, under which identity, and in which order.
#include <kvo_hws/runtime.h>

#include "support/syslog_capture.h"

#include <gmock/gmock.h>
#include <string>
#include <syslog.h>
#include <vector>

namespace {

using support::LogLine;
using support::SyslogCapture;
using testing::ElementsAre;
using testing::IsEmpty;

class Log : public testing::Test {
protected:
    void TearDown() override
    {
        SetDebugLevel(0);
        uiDebugMessageSysLogActive = 0;
        closelog();
    }
};

TEST_F(Log, is_silent_initially)
{
    EXPECT_EQ(iDebugLevel, 0);
    EXPECT_EQ(uiDebugMessageSysLogActive, 0U);
}

struct Gate {
    const char *name;
    int level;
    int priority;
    bool logPasses;
    bool debugPasses;
};

class LogGate : public testing::TestWithParam<Gate> {
protected:
    void TearDown() override { SetDebugLevel(0); }
};

TEST_P(LogGate, logs_by_priority_and_level)
{
    const Gate &gate = GetParam();
    SetDebugLevel(gate.level);
    const SyslogCapture capture;
    LOG(gate.priority, "log %d", 1);
    DEBUG(gate.priority, "debug %d", 2);

    std::vector<LogLine> expected;
    if (gate.logPasses) {
        expected.push_back({"", gate.priority, "log 1"});
    }
    if (gate.debugPasses) {
        expected.push_back({"", gate.priority, "debug 2"});
    }
    EXPECT_EQ(capture.lines(), expected);
}

const std::vector<Gate> kGates = {{"level_0_emergency", 0, LOG_EMERG, true, true},
                                  {"level_0_error", 0, LOG_ERR, true, true},
                                  {"level_0_warning", 0, LOG_WARNING, false, false},
                                  {"level_0_info", 0, LOG_INFO, false, false},
                                  {"level_0_debug", 0, LOG_DEBUG, false, false},
                                  {"level_1_error", 1, LOG_ERR, true, true},
                                  {"level_1_warning", 1, LOG_WARNING, true, false},
                                  {"level_1_info", 1, LOG_INFO, true, false},
                                  {"level_1_debug", 1, LOG_DEBUG, true, false},
                                  {"level_2_error", 2, LOG_ERR, true, true},
                                  {"level_2_warning", 2, LOG_WARNING, true, true},
                                  {"level_2_debug", 2, LOG_DEBUG, true, true},
                                  {"negative_level_acts_as_0", -5, LOG_INFO, false, false},
                                  {"negative_level_passes_errors", -5, LOG_ERR, true, true},
                                  {"level_7_acts_as_2", 7, LOG_DEBUG, true, true}};

INSTANTIATE_TEST_SUITE_P(Table, LogGate, testing::ValuesIn(kGates), [](const auto &row) { return row.param.name; });

TEST_F(Log, level_is_stored_without_a_check)
{
    for (const int level : {-5, 0, 1, 2, 7}) {
        SetDebugLevel(level);
        EXPECT_EQ(iDebugLevel, level);
        int read = 99;
        GetDebugLevel(&read);
        EXPECT_EQ(read, level);
    }
}

TEST_F(Log, level_and_debug_messages_are_independent)
{
    SetDebugLevel(2);
    const SyslogCapture capture;
    EXPECT_EQ(SendDLLDebugMessage("silent"), 1);
    EXPECT_THAT(capture.lines(), IsEmpty());

    SetDebugLevel(0);
    uiDebugMessageSysLogActive = 1;
    EXPECT_EQ(SendDLLDebugMessage("logged"), 1);
    EXPECT_THAT(capture.lines(), ElementsAre(LogLine{"", LOG_INFO, "logged"}));
}

TEST_F(Log, debug_messages_are_not_used_as_formats)
{
    uiDebugMessageSysLogActive = 1;
    const SyslogCapture capture;
    SendDLLDebugMessage("100 %s of %n");
    EXPECT_THAT(capture.texts(), ElementsAre("100 %s of %n"));
}

TEST_F(Log, texts_have_no_length_limit)
{
    SetDebugLevel(2);
    uiDebugMessageSysLogActive = 1;
    const std::string text(100'000, 'x');
    const SyslogCapture capture;
    LOG(LOG_ERR, "%s", text.c_str());
    DEBUG(LOG_ERR, "%s", text.c_str());
    SendDLLDebugMessage(text.c_str());
    EXPECT_THAT(capture.texts(), ElementsAre(text, text, text));
}

TEST_F(Log, init_opens_the_identity_of_the_library)
{
    const SyslogCapture capture;
    InitLogMessages();
    LOG(LOG_ERR, "inside");
    CloseLogMessages();
    LOG(LOG_ERR, "outside");
    EXPECT_THAT(capture.lines(), ElementsAre(LogLine{"kvo_hws", LOG_ERR, "inside"}, LogLine{"", LOG_ERR, "outside"}));
}

TEST_F(Log, activation_is_logged_after_the_channel_is_on_and_deactivation_before_it_is_off)
{
    const SyslogCapture capture;
    EXPECT_EQ(KVO_HWS_activateDebugDLL(), 1);
    EXPECT_EQ(iDebugLevel, 2);
    EXPECT_EQ(uiDebugMessageSysLogActive, 1U);
    DEBUG(LOG_DEBUG, "detail");

    EXPECT_EQ(KVO_HWS_deactivateDebugDLL(), 1);
    EXPECT_EQ(iDebugLevel, 0);
    EXPECT_EQ(uiDebugMessageSysLogActive, 0U);
    SendDLLDebugMessage("unheard");
    LOG(LOG_ERR, "closed");

    EXPECT_THAT(capture.lines(),
                ElementsAre(LogLine{"kvo_hws_dll", LOG_INFO, "activate debug mode"},
                            LogLine{"kvo_hws_dll", LOG_DEBUG, "detail"},
                            LogLine{"kvo_hws_dll", LOG_INFO, "deactivate debug mode"}, LogLine{"", LOG_ERR, "closed"}));
}

TEST_F(Log, deactivating_a_silent_channel_logs_nothing)
{
    const SyslogCapture capture;
    EXPECT_EQ(KVO_HWS_deactivateDebugDLL(), 1);
    EXPECT_THAT(capture.lines(), IsEmpty());
}

}  // namespace
