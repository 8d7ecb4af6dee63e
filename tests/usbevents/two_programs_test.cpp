// Two programs that take USB events from each other.
#include <kvo_hws/usbevents.h>

#include "support/scripted_service.h"
#include "support/usb_events.h"
#include "usbevents/activation_fixture.h"

#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using support::acceptsAll;
using support::EventRecorder;
using support::eventually;
using support::ScriptedService;
using support::serverState;
using support::usbServerReply;
using testing::ElementsAre;
using usbevents_test::activateV2;
using usbevents_test::Activation;
using usbevents_test::anySet;
using usbevents_test::Codes;
using usbevents_test::kState;

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

TEST_F(Activation, takes_the_events_from_another_program_and_loses_them_again)
{
    const OtherProgram first;
    const ScriptedService service({acceptsAll()});
    first.activate();
    EXPECT_EQ(first.codes(2), (Codes{3, 1}));

    const EventRecorder recorder;
    ASSERT_EQ(activateV2(EventRecorder::newer), 1);
    EXPECT_EQ(first.codes(1), Codes{USB_EVENT_DEACTIVATED}) << "its callback receives the loss";
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_EQ(usbServerReply(kState), "ok\n");
    EXPECT_EQ(recorder.codes(), (Codes{3, 1, 13}));
    EXPECT_THAT(service.requests(), ElementsAre("isInitComplete\n", "activateUSBEvents\n", "deactivateUSBEvents\n",
                                                "isInitComplete\n", "activateUSBEvents\n"));

    first.activate();
    EXPECT_EQ(first.codes(2), (Codes{3, 1}));
    ASSERT_TRUE(recorder.waitFor(4));
    EXPECT_EQ(recorder.codes(), (Codes{3, 1, 13, 2}));
    EXPECT_TRUE(eventually([] { return !anySet() && serverState() == 0; }));
    EXPECT_EQ(usbServerReply(kState), "ok\n");
    EXPECT_EQ(first.codes(1), Codes{USB_EVENT_STATE});
    first.closeEvents();
    EXPECT_EQ(first.codes(2), (Codes{3, 2}));
    EXPECT_EQ(usbServerReply(kState), "(no server)");
}

}  // namespace
