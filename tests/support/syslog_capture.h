// The system log as the test program sees it: captures the library's syslog calls in order, with identity, priority and text.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace support {

struct LogLine {
    std::string identity;  ///< "" while no log is open
    int priority;
    std::string text;

    bool operator==(const LogLine &) const = default;
};

std::ostream &operator<<(std::ostream &out, const LogLine &line);

/// Discards earlier lines and records from here on.
class SyslogCapture {
public:
    /// called for every line, on the thread that logs
    explicit SyslogCapture(std::function<void()> onLine = {});
    ~SyslogCapture();
    SyslogCapture(const SyslogCapture &) = delete;
    SyslogCapture &operator=(const SyslogCapture &) = delete;

    /// All lines since the capture began.
    [[nodiscard]] std::vector<LogLine> lines() const;
    /// The texts of these lines.
    [[nodiscard]] std::vector<std::string> texts() const;
};

/// Switches the debug message channel on for a scope, without logging that change, and sets debug level @p level.
class MessagesOn {
public:
    explicit MessagesOn(int level = 0);
    MessagesOn(const MessagesOn &) = delete;
    MessagesOn &operator=(const MessagesOn &) = delete;
    ~MessagesOn();
};

}  // namespace support
