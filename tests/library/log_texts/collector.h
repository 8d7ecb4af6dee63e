// Collects what the library logs and compares it with a list: log texts are part of the interface, as programs and people
// search for them. With KVO_WRITE_GOLDEN=1 in the environment the lists are rewritten instead.
#pragma once

#include "support/syslog_capture.h"

#include <cstdlib>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace log_texts {

/// Replaces the parts that differ between runs by placeholders.
inline std::string withoutNumbers(const std::string &text)
{
    static const std::vector<std::pair<std::regex, std::string>> kRules = {
        {std::regex("thread 0x[0-9A-F]{8}"), "thread 0x<thread>"},
        {std::regex("\\[[0-9A-F]{4,16}\\]"), "[<thread>]"},
        {std::regex("(recv|select)\\(-?[0-9]+\\)"), "$1(<fd>)"},
        {std::regex("(socket|closesocket) -?[0-9]+"), "$1 <fd>"},
        {std::regex("terminated([0-9]) [0-9]+ .*"), "terminated$1 <errno> <text>"},
        {std::regex("x{20,}"), "xxx..."},
        {std::regex("\n"), "\\n"}};
    std::string result = text;
    for (const auto &[pattern, replacement] : kRules) {
        result = std::regex_replace(result, pattern, replacement);
    }
    return result;
}

// Most calls are listed with their own messages only; the readers' lines are the same for all calls and are listed once.
inline constexpr int kMessagesOnly = 0;
inline constexpr int kAll = 2;

class Collector {
public:
    /// Runs @p work at a debug level and records what it logs under @p heading.
    void run(const std::string &heading, int level, const std::function<void()> &work)
    {
        const support::MessagesOn messages(level);
        const support::SyslogCapture capture;
        work();
        for (const support::LogLine &line : capture.lines()) {
            lines_.insert(heading + " [" + std::to_string(line.priority) + "] " + withoutNumbers(line.text));
        }
    }

    /// Compares everything collected with the list @p name.
    void expectSeen(const std::string &name) const
    {
        std::string text;
        for (const std::string &line : lines_) {
            text += line + "\n";
        }
        const std::string path = std::string(KVO_LOG_TEXTS "/") + name + ".golden";
        if (std::getenv("KVO_WRITE_GOLDEN") != nullptr) {
            std::ofstream(path) << text;
            GTEST_SKIP() << "wrote " << path << " instead of comparing";
        }
        std::stringstream golden;
        golden << std::ifstream(path).rdbuf();
        EXPECT_EQ(text, golden.str()) << "KVO_WRITE_GOLDEN=1 rewrites the list";
    }

private:
    std::set<std::string> lines_;
};

}  // namespace log_texts
