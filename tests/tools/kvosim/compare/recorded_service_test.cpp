// A recording of the simulator itself, compared with the simulator: all replies are the same, until someone changes the recording.
#include "kvosim/commands/commands.h"
#include "tools/kvoctl/trace/traced_service.h"
#include "tools/kvosim/compare/recordings.h"
#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/run_kvosim.h"
#include "tools/kvosim/support/temporary_directory.h"

#include <chrono>
#include <fstream>
#include <gmock/gmock.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

using kvoctl_test::Json;
using kvoctl_test::Program;
using kvoctl_test::Tracing;
using kvosim_test::Client;
using kvosim_test::contentsOf;
using kvosim_test::exchange;
using kvosim_test::Exited;
using kvosim_test::runKvosim;
using kvosim_test::TemporaryDirectory;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char *kPlant = R"([service]
version = "V09.08"
init_time_ms = 700
focus_hold_ms = 400

[[client]]
name = "HMI"
value = 18

[[station]]
address = "10.0.0.5"
name = "Lathe 1"
attr1 = 1024
attr2 = 768
mcp_address = 5
dck_address = 6
kvo_index = 7
viewer = "nc1:2"
handheld = 1
reboot_time_ms = 400
usb_connectors = "X60:keyboard X61:free"
channel_info = "setting up"
dpi = 96

[[station]]
address = "10.0.0.6"
name = "Fräse 2"
backlight_modes = 1
touch = 0
)";

/// At least one for each command; some of them are refused.
const std::vector<std::string> kRequests = {
    "getVersion", "isInitComplete", "getregistrypath", "setDebugLevel=DEBUG_LEVEL_II", "getDebugLevel", "setDebugLevel=loud",
    "lockKVORegData", "lockKVORegData", "unlockKVORegData", "unlockKVORegData", "setBacklight=0", "setBacklight=2",
    // lists
    "getCountElemDL", "getDLV2 8", "getDLV2 x", "getCountElemDL_Ex", "getDL_ExV2 1", "getExDescByIP 0A000005",
    "getExDescByIP 0500000A", "getExDescByIP 0A0000FF", "getExDescByName Lathe 1", "getExDescByName Lathe 9",
    "getClientList 0 0", "getClientList 1 0",
    // viewer, focus and status line
    "isViewerActive=0A000005", "getCurServer=0A000005", "startViewer=\"a:b:c\" 0A000005", "stopViewer=0A000005",
    "startViewer=\"a:b:c\" 0A000005", "stopViewerPreempt=0A000005", "startConfiguredViewer=\"cfg:3\" 0A000005",
    "getCurServer=0A000005", "stopViewerNoClean=0A000005", "stopViewerNoClean=0A000005", "getCurServer=0A000006",
    "setStatusline=0A000005,7,8,Hello, you", "setStatusline=0A000005,7", "getKVOPriority=0A000005",
    "getKVOStartupActive=0A000005", "getKVOStartupPrio=0A000005", "getKVOChannelOnFocus=0A000005",
    "getKVOScreenOnFocus=0A000005", "getKVOt2m2n=0A000005", "getChannelInfo=0A000005",
    "setChannelInfo=\"says \"hi\" 0A000006\" 0A000005", "getChannelInfo=0A000005", "deleteChannelInfo=0A000005",
    "getChannelInfo=0A000005",
    // panel
    "setBrightness=0 0A000005", "setBacklightBrightness=50 0A000005", "setBacklightBrightnessV2=60 1 0A000005",
    "getBacklightBrightnessV2=0 0A000005", "getBacklightBrightnessV2=1 0A000005", "getBacklightBrightnessV2=1 0A000006",
    "setDisableCapsLock=1 0A000005", "getDisableCapsLock=0A000005", "getStationType=0A000005", "setSwCapsLock=1 0A000005",
    "getSwCapsLock=0A000005", "setRV4Mode=\"1\" 0A000005", "getRV4Mode=0A000005", "getRV4Mode=0A000006",
    // addresses
    "setMCPAddress=\"12\" 0A000005", "getMCPAddress=0A000005", "setKVOIndex=\"9\" 0A000006", "getKVOIndex=0A000006",
    "setDCKEnable=\"1\" 0A000005", "getDCKEnable=0A000005", "getDCKAddress=0A000005", "setKVOCksIndex=\"200\" 0A000005",
    "getKVOCksIndex=0A000005", "simulateMCPKey=\"12:1\" 0A000005", "enableMCPKey=\"13:0\" 0A000005",
    "getIPbyMCPAddress=0000000C", "getIPbyDCKAddress=00000006", "getIPbyKVOIndex=00000001",
    // input and USB
    "showInputDevice=0A000005", "getCalibParam=0A000005", "setCalibParam=\"30:1\" 0A000005", "getCalibParam=0A000005",
    "invalidateTouch=0A000005", "getCalibParam=0A000006", "getUsbLock=0A000005", "getUsbLock=0A0000FF", "getUsbConnectorList",
    "getUsbConnectorListOne=0A000005", "activateUSBEvents", "isUSBEventsActivated", "deactivateUSBEvents",
    "isUSBEventsActivated",
    // not understood
    "getMoon=0A000005", "", "getMCPAddress=10.0.0.5", "\x1B[2J\xFF"};

/// Asks for everything that the table of commands contains and that the list above does not.
std::vector<std::string> otherRequests()
{
    std::vector<std::string> requests;
    for (const std::string_view keyword : kvosim::commandKeywords()) {
        const bool isListed =
            std::ranges::any_of(kRequests, [&](const auto &request) { return kvosim::keywordOf(request) == keyword; });
        if (!isListed && keyword != "killDaemon" && keyword != "activateMe" && keyword != "reboot") {
            requests.push_back(std::string(keyword) + "=0A000005");
        }
    }
    return requests;
}

void ask(const std::vector<std::string> &requests)
{
    for (const std::string &request : requests) {
        exchange(request + '\n');
    }
}

/// The focus, a reboot, a slow request, and requests that are incomplete or too long.
void askWhatTakesTime()
{
    ask({"activateMe=0A000005", "activateMe=0A000006", "activateMe=0A0000FF"});
    std::this_thread::sleep_for(500ms);
    ask({"activateMe=0A000006", "reboot=0A000005", "getMCPAddress=0A000005", "getUsbConnectorList"});
    std::this_thread::sleep_for(500ms);
    ask({"getMCPAddress=0A000005", "getCurServer=0A000005"});
    {
        const Client slow;
        slow.send("setMCPAddress=\"21\" ");
        ask({"getMCPAddress=0A000005"});
        slow.send("0A000005\n");
        static_cast<void>(slow.receiveAll());
        ask({"getMCPAddress=0A000005"});
    }
    static_cast<void>(Client().send("setMCPAddress=\"22\" 0A000005"));
    exchange(std::string(5000, 'x'));
    exchange("setChannelInfo=\"" + std::string(300, 'x') + "\" 0A000005\n");
}

class RecordedService : public testing::Test {
protected:
    RecordedService() { write(kPlant); }

    void write(const std::string &plant) const { std::ofstream(plant_) << plant; }

    void serve()
    {
        service_ = std::make_unique<Program>(
            std::vector<std::string>{KVOSIM_PROGRAM, "serve", "--plant", plant_, "--usb-lock-address", "none"});
        ASSERT_TRUE(service_->hasWritten("serving")) << service_->err();
    }

    void askEverything(const Tracing &tracing)
    {
        ask(kRequests);
        ask(otherRequests());
        askWhatTakesTime();
        ask({"killDaemon"});
        EXPECT_EQ(service_->wait(), 0);
        ASSERT_NO_FATAL_FAILURE(serve());
        ASSERT_TRUE(tracing.hasSaid("The service runs again"));
        ask({"isInitComplete", "getCurServer=0A000005", "getMCPAddress=0A000005"});
        std::this_thread::sleep_for(800ms);
        ask({"isInitComplete"});
    }

    void record(const std::vector<std::string> &options = {})
    {
        ASSERT_NO_FATAL_FAILURE(serve());
        std::vector<std::string> words{"record", recording_};
        words.insert(words.end(), options.begin(), options.end());
        Tracing tracing(words);
        ASSERT_TRUE(tracing.isAttached()) << tracing.err();
        ASSERT_NO_FATAL_FAILURE(askEverything(tracing));
        EXPECT_EQ(tracing.end(), 0) << tracing.err();
    }

    /// Replaces the first occurrence in the recording.
    void replace(const std::string &old, const std::string &text)
    {
        std::string content = contentsOf(recording_);
        const std::size_t at = content.find(old);
        ASSERT_NE(at, std::string::npos) << old;
        std::ofstream(recording_) << content.replace(at, old.size(), text);
    }

    [[nodiscard]] Exited compare(const std::vector<std::string> &options = {}) const
    {
        std::vector<std::string> words{"compare", recording_};
        words.insert(words.end(), options.begin(), options.end());
        return runKvosim(words);
    }

    TemporaryDirectory directory_;
    std::string plant_ = directory_ / "plant.toml";
    std::string recording_ = directory_ / "plant.rec";
    std::unique_ptr<Program> service_;
};

TEST_F(RecordedService, has_the_replies_of_the_simulator)
{
    ASSERT_NO_FATAL_FAILURE(record());
    const Exited compared = compare({"--plant", plant_, "--json"});
    EXPECT_EQ(compared.status, 0) << compared.out;
    const Json comparison = Json::parse(compared.out);
    EXPECT_EQ(comparison["total"]["percent"], 100.0) << compared.out;
    EXPECT_EQ(comparison["incomplete"], 1);
    for (const std::string_view keyword : kvosim::commandKeywords()) {
        EXPECT_TRUE(comparison["commands"].contains(std::string(keyword))) << keyword;
    }
    EXPECT_EQ(comparison["commands"]["isInitComplete"]["requests"], 3);
    EXPECT_THAT(contentsOf(recording_), HasSubstr("isInitComplete\\n\" < +"));
    EXPECT_THAT(contentsOf(recording_), HasSubstr("\"busy\\n\""));
    EXPECT_THAT(contentsOf(recording_), HasSubstr("\"no\\n\""));

    // The same with the plant in the recording.
    std::string content = contentsOf(recording_);
    content.insert(content.find('\n', content.find("start ")) + 1, kvosim_test::plantLines(kPlant));
    std::ofstream(recording_) << content;
    const Exited again = compare();
    EXPECT_EQ(again.status, 0) << again.out;
    EXPECT_THAT(again.out, StartsWith("command "));
    EXPECT_THAT(again.out, Not(HasSubstr("simulated")));
    EXPECT_THAT(again.out, HasSubstr("1 request is not complete"));

    replace("\"mcpaddr=12\\n\"", "\"mcpaddr=13\\n\"");
    const Exited changed = compare();
    EXPECT_EQ(changed.status, 4);
    EXPECT_THAT(changed.out, HasSubstr("\ngetMCPAddress: 1 reply differs\n"));
    EXPECT_THAT(changed.out, HasSubstr("    recorded   \"mcpaddr=13\"\n    simulated  \"mcpaddr=12\"\n"));
    EXPECT_THAT(Json::parse(compare({"--json"}).out)["total"]["percent"].get<double>(), testing::Lt(100.0));
}

/// A service does not report how long it keeps the focus, and how long a reboot takes.
std::string withoutTimes(std::string plant)
{
    for (const char *key : {"focus_hold_ms", "reboot_time_ms"}) {
        const std::size_t at = plant.find(key);
        plant.erase(at, plant.find('\n', at) + 1 - at);
    }
    return plant;
}

TEST_F(RecordedService, has_the_replies_of_its_captured_plant)
{
    write(withoutTimes(kPlant));
    ASSERT_NO_FATAL_FAILURE(record({"--capture"}));
    const Exited compared = compare();
    EXPECT_EQ(compared.status, 0) << compared.out << compared.err;
    EXPECT_THAT(compared.out, HasSubstr("getMCPAddress "));
}

}  // namespace
