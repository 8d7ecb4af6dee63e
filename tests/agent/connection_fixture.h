// The connection thread's messages and socket.
#pragma once

#include <kvo_hws/agent.h>

#include "agent/agent_fixture.h"
#include "support/scripted_service.h"
#include "support/syslog_capture.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace agent_test {

using Clock = std::chrono::steady_clock;

inline const std::string kThread = "KVO_HWS DLL - embHwsClientThread - ";
inline const std::string kConnect = "KVO_HWS DLL - try_hws_connect - ";
inline const std::string kNextTry = kThread + "Emb-KVO next try to connect to 127.0.0.1 in 1 second";

inline int32_t sessionSocket() { return std::atomic_ref(gEmbKvoInst->session.socket).load(); }

/// The connection thread's messages in the log.
inline std::vector<std::string> threadTexts(const support::SyslogCapture &capture)
{
    std::vector<std::string> texts;
    for (const std::string &text : capture.texts()) {
        if (text.starts_with(kThread) || text.starts_with(kConnect) || text.find("hmi_close_x") != std::string::npos) {
            texts.push_back(text);
        }
    }
    return texts;
}

class Connection : public testing::Test {
protected:
    void SetUp() override { setenv("KVO_PLATFORM_INTERFACE", "lo", 1); }

    const support::MessagesOn messages;
    const support::ScriptedService service{{serves()}};
};

}  // namespace agent_test
