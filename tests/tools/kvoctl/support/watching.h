// Runs a command that does not end by itself as a process: "kvoctl usb watch" by default.
#pragma once

#include "tools/kvosim/support/program.h"

#include "tools/kvoctl/support/kvoctl.h"

#include <csignal>

namespace kvoctl_test {

inline std::vector<std::string> lines(const std::string &text)
{
    std::vector<std::string> all;
    for (std::size_t begin = 0, end = 0; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
        all.push_back(text.substr(begin, end - begin));
    }
    return all;
}

class Watching {
public:
    explicit Watching(const Arguments &more = {}, const Arguments &words = {"usb", "watch"}) : program_(command(words, more)) {}

    /// Waits until the service has confirmed the activation; returns false after 10 s.
    [[nodiscard]] bool isActive() const { return program_.hasWritten("activated"); }
    [[nodiscard]] bool hasWritten(const std::string &text) const { return program_.hasWritten(text); }
    void signal(int number) const { program_.signal(number); }
    /// Returns its exit status, or minus the signal that killed it.
    int wait() { return program_.wait(); }
    int stop(int number = SIGINT)
    {
        signal(number);
        return wait();
    }

    [[nodiscard]] std::string out() const { return program_.out(); }
    [[nodiscard]] std::string err() const { return program_.err(); }
    /// The lines about devices.
    [[nodiscard]] std::vector<std::string> events() const
    {
        std::vector<std::string> all = lines(out());
        std::erase_if(all, [](const std::string &line) {
            return line.starts_with("begin ") || line.starts_with("activated ") || line.starts_with("deactivated ");
        });
        return all;
    }

private:
    static Arguments command(const Arguments &words, const Arguments &more)
    {
        Arguments all{KVOCTL_PROGRAM};
        all.insert(all.end(), words.begin(), words.end());
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }

    kvosim_test::Program program_;
};

/// Runs a shell command in which $KVOCTL is the program.
class Shell : public kvosim_test::Program {
public:
    explicit Shell(const std::string &line) : Program({"sh", "-c", "KVOCTL='" KVOCTL_PROGRAM "'; " + line}) {}
};

}  // namespace kvoctl_test
