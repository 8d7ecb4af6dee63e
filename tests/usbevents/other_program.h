// A second program of the panel. KVO_OTHER_PROGRAM is the command that starts it.
#pragma once

#include "usbevents/activation_fixture.h"

#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace usbevents_test {

/// A second program of the panel that activates USB events on request and reports the codes that its callback receives.
class OtherProgram {
public:
    OtherProgram()
    {
        int orders[2];
        int reports[2];
        EXPECT_EQ(pipe2(orders, O_CLOEXEC), 0);
        EXPECT_EQ(pipe2(reports, O_CLOEXEC), 0);
        orders_ = orders[1];
        reports_ = reports[0];
        process_ = fork();
        if (process_ == 0) {
            dup2(orders[0], STDIN_FILENO);
            dup2(reports[1], STDOUT_FILENO);
            execl("/bin/sh", "sh", "-c", "exec " KVO_OTHER_PROGRAM, nullptr);
            _exit(127);
        }
        close(orders[0]);
        close(reports[1]);
    }
    OtherProgram(const OtherProgram &) = delete;
    OtherProgram &operator=(const OtherProgram &) = delete;
    ~OtherProgram()
    {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
        close(orders_);
        close(reports_);
    }

    void activate() const { EXPECT_EQ(write(orders_, "a", 1), 1); }
    void closeEvents() const { EXPECT_EQ(write(orders_, "c", 1), 1); }

    /// The next codes that its callback receives.
    [[nodiscard]] Codes codes(std::size_t count) const
    {
        Codes codes;
        uint8_t code = 0;
        while (codes.size() < count && read(reports_, &code, 1) == 1) {
            codes.push_back(code);
        }
        return codes;
    }

private:
    pid_t process_;
    int orders_;
    int reports_;
};

}  // namespace usbevents_test
