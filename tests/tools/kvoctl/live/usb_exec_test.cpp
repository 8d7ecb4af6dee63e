// "kvoctl usb watch --exec": the program's environment, and the answer to the daemon.
#include "tools/kvoctl/support/script.h"
#include "tools/kvoctl/support/usb_devices.h"
#include "tools/kvoctl/support/watching.h"

#include <chrono>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace kvoctl_test {

namespace {

using kvosim_test::contentsOf;
using support::acceptsAll;
using support::ScriptedService;
using testing::ElementsAre;
using testing::HasSubstr;

const std::string kEnvironment = "env | grep ^KVO_USB_ | LC_ALL=C sort >> environment; echo >> environment";

TEST(UsbExec, passes_the_event_in_the_environment)
{
    const ScriptedService service({acceptsAll()});
    const Script script(kEnvironment);
    setenv("KVO_USB_TEXT8", "of an outer watch", 1);
    Watching watch({"--exec", script.path()});
    unsetenv("KVO_USB_TEXT8");
    ASSERT_TRUE(watch.isActive());
    for (const std::string &text : {newText(), stateText(7), refusedText(), removedText()}) {
        EXPECT_EQ(deliver(text), "ok");
    }
    EXPECT_EQ(watch.stop(), 0);
    EXPECT_EQ(watch.err(), "");
    const std::string place = "KVO_USB_IDENT2=Portal mill\nKVO_USB_IDENT3=1-1.2\nKVO_USB_IP_ADDRESS=10.0.0.5\n";
    EXPECT_EQ(script.file("environment"),
              "KVO_USB_CODE=10\nKVO_USB_EVENT=new\nKVO_USB_FLAG_BITS=0x5\nKVO_USB_FLAG_WORD=0x08000000\n" + place +
                  "KVO_USB_NUMBER1=1000\nKVO_USB_NUMBER2=4000000000\nKVO_USB_TEXT4=Stick \"A\"\nKVO_USB_TEXT5=\n"
                  "KVO_USB_TEXT6=Maker\nKVO_USB_TEXT7=C:\\Stick\n\n"
                  "KVO_USB_CODE=13\nKVO_USB_EVENT=state\n" +
                  place +
                  "KVO_USB_STATE=7\n\n"
                  "KVO_USB_CODE=14\nKVO_USB_EVENT=refused\n" +
                  place +
                  "KVO_USB_NUMBER1=1000\nKVO_USB_NUMBER2=4000000000\nKVO_USB_NUMBER3=31\nKVO_USB_TEXT4=Stick \"A\"\n"
                  "KVO_USB_TEXT5=\nKVO_USB_TEXT8=too much current\n\n"
                  "KVO_USB_CODE=11\nKVO_USB_EVENT=removed\n" +
                  place + "\n");
    EXPECT_EQ(watch.events().size(), 4U);
}

TEST(UsbExec, passes_the_fields_of_the_older_callback)
{
    const ScriptedService service({acceptsAll()});
    const Script script(kEnvironment);
    Watching watch({"--v1", "--exec", script.path()});
    ASSERT_TRUE(watch.isActive());
    EXPECT_EQ(deliver(newText()), "ok");
    EXPECT_EQ(watch.stop(), 0);
    EXPECT_THAT(script.file("environment"), HasSubstr("KVO_USB_BYTES=02 00 00 "));
    EXPECT_THAT(script.file("environment"), HasSubstr("KVO_USB_ID1=1\n"));
}

TEST(UsbExec, passes_texts_unchanged_and_without_a_shell)
{
    const ScriptedService service({acceptsAll()});
    const Script script("printf %s \"$KVO_USB_IDENT2\" > ident2");
    Watching watch({"--exec", script.path()});
    ASSERT_TRUE(watch.isActive());
    UsbDeviceSource device = deviceSource();
    const std::string strange = "$(touch owned);\xE4\x1B[2J";
    strange.copy(device.ident2, sizeof device.ident2);
    EXPECT_EQ(deliver(newText(device)), "ok");
    EXPECT_EQ(watch.stop(), 0);
    EXPECT_EQ(script.file("ident2"), strange);
    EXPECT_FALSE(script.has("owned"));
}

TEST(UsbExec, redirects_output_to_standard_error_and_input_from_dev_null)
{
    const ScriptedService service({acceptsAll()});
    const Script script("cat; echo from the program");
    Watching watch({"--json", "--exec", script.path()});
    ASSERT_TRUE(watch.isActive());
    EXPECT_EQ(deliver(removedText()), "ok");
    EXPECT_EQ(watch.stop(), 0);
    EXPECT_EQ(watch.err(), "from the program\n");
    for (const std::string &line : lines(watch.out())) {
        EXPECT_TRUE(Json::accept(line)) << line;
    }
}

TEST(UsbExec, starts_the_program_with_the_original_signal_mask)
{
    const ScriptedService service({acceptsAll()});
    // Without a shell, which might change the signals itself.
    const Script script("/bin/cat /proc/self/status", "");
    Watching watch({"--exec", script.path()});
    ASSERT_TRUE(watch.isActive());
    EXPECT_EQ(deliver(removedText()), "ok");
    EXPECT_EQ(watch.stop(), 0);
    const std::string ours = contentsOf("/proc/self/status");
    const std::size_t begin = ours.find("\nSigBlk:");
    ASSERT_NE(begin, std::string::npos);
    EXPECT_THAT(watch.err(), HasSubstr(ours.substr(begin, ours.find('\n', begin + 1) + 1 - begin)));
}

struct FailingProgram {
    std::string name;
    std::string lines;
    std::string complaint;
};

std::ostream &operator<<(std::ostream &out, const FailingProgram &row) { return out << row.name; }

class FailingPrograms : public testing::TestWithParam<FailingProgram> {};

TEST_P(FailingPrograms, are_reported_to_the_daemon_and_to_the_user)
{
    const ScriptedService service({acceptsAll()});
    const Script script(GetParam().lines);
    Watching watch({"--exec", script.path()});
    ASSERT_TRUE(watch.isActive());
    EXPECT_EQ(deliver(removedText()), "failed");
    EXPECT_EQ(watch.stop(), 0);
    EXPECT_EQ(watch.err(), "kvoctl: usb watch: " + script.path() + " " + GetParam().complaint + " (event \"removed\")\n");
    EXPECT_EQ(watch.events().size(), 1U);
}

const std::vector<FailingProgram> kFailingPrograms = {{"exit_status_3", "exit 3", "exited with status 3"},
                                                      {"killed_by_a_signal", "kill -9 $$", "was killed by signal 9"}};

INSTANTIATE_TEST_SUITE_P(Rows, FailingPrograms, testing::ValuesIn(kFailingPrograms),
                         [](const auto &row) { return row.param.name; });

TEST(UsbExec, reports_for_each_event_that_the_program_cannot_be_run)
{
    const ScriptedService service({acceptsAll()});
    Watching watch({"--exec", "/nowhere/program"});
    ASSERT_TRUE(watch.isActive());
    EXPECT_EQ(deliver(removedText()), "failed");
    EXPECT_EQ(deliver(newText()), "failed");
    EXPECT_EQ(watch.stop(), 0);
    const std::string complaint = "kvoctl: usb watch: /nowhere/program cannot be run: No such file or directory";
    EXPECT_THAT(lines(watch.err()), ElementsAre(complaint + " (event \"removed\")", complaint + " (event \"new\")"));
}

TEST(UsbExec, handles_other_events_and_ends_while_the_program_hangs)
{
    const ScriptedService service({acceptsAll()});
    // The program ends by itself, so that no process remains for long.
    const Script script("[ \"$KVO_USB_EVENT\" = state ] || exit 0; touch hangs; exec sleep 20");
    Watching watch({"--exec", script.path()});
    ASSERT_TRUE(watch.isActive());
    std::thread daemon([] { deliver(stateText(7)); });
    ASSERT_TRUE(support::eventually([&script] { return script.has("hangs"); }));
    EXPECT_EQ(deliver(removedText()), "ok");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(watch.stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
    EXPECT_EQ(service.requests().back(), "deactivateUSBEvents\n");
    daemon.join();
}

}  // namespace

}  // namespace kvoctl_test
