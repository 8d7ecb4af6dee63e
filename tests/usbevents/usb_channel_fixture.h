// Sends messages to a USB event server from separate threads.
#pragma once

#include <kvo_hws/platform.h>
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>

#include "support/own_thread.h"
#include "support/scripted_service.h"
#include "support/syslog_capture.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <syslog.h>

namespace usbevents_test {

struct Timed {
    int result;
    std::chrono::milliseconds taken;
    uint32_t thread;
};

/// Makes a call on a separate thread; records the thread id as its log lines show it.
template <class Call>
Timed timed(Call call)
{
    return support::onOwnThread([call] {
        const auto start = std::chrono::steady_clock::now();
        const int result = call();
        return Timed{result, std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start),
                     static_cast<uint32_t>(GetCurrentThreadId())};
    });
}

inline Timed sendCommand(const std::string &command)
{
    return timed([command] { return FuncSendCommand2DLL(strdup(command.c_str())); });
}

inline Timed sendUsbMessage(const std::string &message)
{
    return timed([message] { return SendUsbMsg2DLL(message.c_str()); });
}

inline std::string hex(uint32_t thread)
{
    char text[16];
    std::snprintf(text, sizeof text, "%08X", thread);
    return text;
}

inline support::LogLine info(const std::string &text) { return {"", LOG_INFO, text}; }

class UsbChannel : public testing::Test {
protected:
    // Level 1 shows the channel's LOG lines and hides the readers' own lines.
    void SetUp() override { SetDebugLevel(1); }
    void TearDown() override
    {
        SetDebugLevel(0);
        ServerPipeThreadSyncState = 0;
        std::filesystem::remove(support::kUsbSocket);
    }
};

}  // namespace usbevents_test
