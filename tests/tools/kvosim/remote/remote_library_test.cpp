// The library's agent with the simulator: every command, its indications, and its reconnection.
#include "common/control_client.h"
#include "support/eventually.h"
#include "support/leak_suppressions.h"
#include "tools/kvosim/support/running_service.h"

#include <gmock/gmock.h>

#include <kvo_hws/agent.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <thread>

using namespace std::chrono_literals;

namespace {

using kvosim_test::RunningService;
using tools::askSimulator;
using tools::Json;

constexpr std::string_view kPlant = R"toml(
[[station]]
address = "10.0.0.5"
name = "Lathe 1"
attr1 = 800
attr2 = 600
attr3 = 16
ext = [1, 2, 13, 14, 15, 16, 0xBEEF]
t2m2n = "T2M2N text"
handheld = 1
mcp_address = 12
dck_address = 13
cks_index = 14
sw_caps_lock = -1
usb_lock = "1:7"
kbd = 1
mouse = 2
touch = 3
vkbd = 4
hardware_caps = 255
panel_rotation = 2
oem_layout = "acme"
)toml";

int answerOf(void *, const char *command) { return std::string_view(command) == "activate-me" ? 0 : 1; }

kvosim::ServiceOptions options()
{
    kvosim::ServiceOptions options;
    options.remoteSessions = std::vector<unsigned>{3};
    options.usbLockAddress = "127.0.0.1:5851";
    return options;
}

bool waitForAgent(std::chrono::seconds timeout = 10s)
{
    return support::eventually(
        [] {
            const tools::Json list = tools::askSimulator({{"do", "remote.list"}});
            return !list["sessions"][0]["agent"].is_null();
        },
        timeout);
}

std::string ask(const std::string &request)
{
    return tools::askSimulator({{"do", "remote.ask"}, {"session", 3}, {"request", request}, {"patience_ms", 10'000}},
                               tools::kControlSocket, 20s)["reply"]
        .get<std::string>();
}

class LibraryAgent : public testing::Test {
protected:
    void start(const std::string &focus, const std::string &more = "mcpFlag=1\n")
    {
        setenv("KVO_PLATFORM_INTERFACE", "lo", 1);
        const std::string parameters = focus + "\nremoteKvoHwsIp=127.0.0.1\nremoteSession=3\nscreenOnFocus=main\n" + more;
        ASSERT_EQ(KVO_HWS_startupEmbHwsClient(parameters.c_str(), &instance, answerOf), 1);
        ASSERT_TRUE(waitForAgent());
    }
    void TearDown() override
    {
        if (instance != nullptr) {
            EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), 1);
        }
    }

    RunningService service{kPlant, options()};
    void *instance = nullptr;
};

TEST_F(LibraryAgent, answers_every_command)
{
    start("focusKvoIp=10.0.0.5");
    if (HasFatalFailure()) {
        return;
    }
    const std::map<std::string, std::pair<std::string, std::string>> expected{
        {"show-panel-size", {"", "width=800 height=600 depth=16"}},
        {"show-hwid", {"", "hwid=13.14.15.16:0000beef"}},
        {"show-input-devices", {"", "kbd=1 mouse=2 touch=3 vkbd=4"}},
        {"set-backlight=", {"1", "failed: EMB-KVO backlight not supported"}},
        {"set-backlight-brightness=", {"1", "failed: EMB-KVO backlight brightness not supported"}},
        {"set-backlight-brightness-v2=", {"1", "failed: EMB-KVO backlight brightness V2 not supported"}},
        {"get-backlight-brightness-v2=", {"1", "failed: EMB-KVO backlight brightness not supported"}},
        {"set-darken=", {"1", "ok"}},
        {"set-disable-numlock=", {"1", "ok"}},
        {"set-disable-capslock=", {"0", "ok"}},
        {"get-disable-numlock", {"", "disable-numlock=1"}},
        {"get-disable-capslock", {"", "disable-capslock=0"}},
        {"get-station-type", {"", "station-type=0"}},
        {"get-sw-capslock", {"", "sw-capslock=-1"}},
        {"set-sw-capslock=", {"1", "ok"}},
        {"get-kvo-name", {"", "EmbKVO_000000000000"}},
        {"get-kvo-priority", {"", "Priority=0:1"}},
        {"get-kvo-startup-active", {"", "startup-active=1"}},
        {"get-kvo-startup-prio", {"", "startup-prio=2"}},
        {"set-channel-info=", {"info", "ok"}},
        {"get-channel-info", {"", "channel-info=info"}},
        {"get-screen-on-focus", {"", "screen-on-focus=main"}},
        {"get-channel-on-focus", {"", "channel-on-focus=1"}},
        {"get-t2m2n", {"", "T2M2N text"}},
        {"get-mcpaddr", {"", "mcpaddr=12"}},
        {"set-mcpaddr=", {"21", "ok"}},
        {"get-kvoindex", {"", "kvoindex=1"}},
        {"set-kvoindex=", {"7", "ok"}},
        {"get-dckaddr", {"", "dckaddr=13"}},
        {"get-dckenable", {"", "dckenable=0"}},
        {"set-dckenable=", {"1", "ok"}},
        {"get-cksindex", {"", "cksindex=14"}},
        {"set-cksindex=", {"41", "ok"}},
        {"invalidate-calibration", {"", "ok"}},
        {"get-rv4mode", {"", "rv4mode=0"}},
        {"set-rv4mode=", {"1", "ok"}},
        {"get-calibparam", {"", "bad request"}},
        {"set-calibparam=", {"1", "bad request"}},
        {"simulate-mcp=", {"1", "bad request"}},
        {"enable-mcp=", {"1", "bad request"}},
        {"reboot", {"", "bad request"}},
        {"show-viewer-active", {"", "active=1"}},
        {"show-current-server", {"", "vncserver=127.0.0.1:3"}},
        {"start-viewer=", {"1", "bad request"}},
        {"start-configured-viewer=", {"1", "bad request"}},
        {"stop-viewer-preempt", {"", "ok"}},
        {"stop-viewer-noclean", {"", "ok"}},
        {"stop-viewer", {"", "ok"}},
        {"activate-me", {"", "busy"}},
        {"servername=", {"server", "ok"}},
        {"set-statusline=", {"1,2,text", "ok"}},
        {"ping", {"", "pong"}},
        {"get-softkey-type", {"", "none"}},
        {"get-keyboard-caps", {"", "none"}},
        {"get-hardware-caps", {"", "hardware-caps=255"}},
        {"get-panel-oem-layout", {"", "panel-oem-layout=acme"}},
        {"get-panel-rotation", {"", "panel-rotation=2"}},
        {"set-usb-lock=", {"1:9", "ok"}},
        {"get-usb-lock", {"", "usb-lock=1:7"}},
        {"sync-times=", {"1", "bad request"}},
    };
    ASSERT_EQ(expected.size(), std::size(cmds));
    for (const HwsCommand &command : cmds) {
        const auto row = expected.find(command.keyword);
        ASSERT_NE(row, expected.end()) << command.keyword;
        const auto &[argument, reply] = row->second;
        if (row->first == "get-usb-lock") {
            continue;  // checked below, because the datagram that sets it takes time
        }
        EXPECT_EQ(ask(command.keyword + argument), reply) << command.keyword;
    }
    support::eventually([] { return ask("get-usb-lock") != "usb-lock=1:7"; });
    EXPECT_EQ(ask("get-usb-lock"), "usb-lock=1:9");
    // The plant's station has the new values. It was found by its address in the agent's byte order.
    EXPECT_EQ(ask("get-mcpaddr"), "mcpaddr=21");
    EXPECT_EQ(ask("get-cksindex"), "cksindex=41");
    const tools::Json station = tools::askSimulator({{"do", "station"}, {"station", "10.0.0.5"}});
    EXPECT_EQ(station["mcp_address"], 21);
    EXPECT_EQ(station["dck_enable"], 1);
    EXPECT_EQ(station["rv4_mode"], 1);
    EXPECT_EQ(station["sw_caps_lock"], 1);
    EXPECT_EQ(station["usb_lock"], "1:9");
}

// The agent then uses the address of the description, whose bytes are in normal order. The datagram of the lock contains them
// in reverse order.
TEST_F(LibraryAgent, answers_for_a_station_configured_by_name)
{
    std::strcpy(gFocusName, "Lathe 1");
    start("focusKvoName=Lathe 1");
    if (HasFatalFailure()) {
        return;
    }
    EXPECT_EQ(ask("show-panel-size"), "width=800 height=600 depth=16");
    EXPECT_EQ(ask("get-mcpaddr"), "mcpaddr=12");
    EXPECT_EQ(ask("set-usb-lock=1:9"), "ok");
    support::eventually([] { return ask("get-usb-lock") != "usb-lock=1:7"; });
    EXPECT_EQ(ask("get-usb-lock"), "usb-lock=1:9");
}

TEST_F(LibraryAgent, sends_indications_in_order)
{
    start("focusKvoIp=10.0.0.5");
    if (HasFatalFailure()) {
        return;
    }
    EXPECT_EQ(KVO_HWS_sendEmbHwsEvent(instance, "too early"), -1);
    EXPECT_EQ(ask("ping"), "pong");
    EXPECT_EQ(ask("ping"), "pong");  // the agent has finished the first request, including the work after its reply
    constexpr int kThreads = 4;
    constexpr int kEach = 100;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([this, thread] {
            for (int i = 0; i < kEach; ++i) {
                const std::string text = std::to_string(thread) + ' ' + std::to_string(i);
                EXPECT_EQ(KVO_HWS_sendEmbHwsEvent(instance, text.c_str()), 1);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(ask("ping"), "pong");  // after all indications
    std::vector<int> next(kThreads, 0);
    unsigned number = 0;
    uint64_t known = 0;
    for (tools::Json page = tools::askSimulator({{"do", "remote.log"}}); !page["records"].empty();
         page = tools::askSimulator({{"do", "remote.log"}, {"after", known}})) {
        known = page["next"];
        for (const tools::Json &record : page["records"]) {
            if (record["kind"] != "indication") {
                continue;
            }
            const std::string text = record["text"].get<std::string>();
            const unsigned reported = static_cast<unsigned>(std::stoul(text.substr(1, 2)));
            if (number != 0) {
                EXPECT_EQ(reported, number % 99 + 1) << text;
            }
            number = reported;
            auto &expected = next.at(static_cast<std::size_t>(text.at(4) - '0'));
            EXPECT_EQ(std::stoi(text.substr(6)), expected) << text;
            ++expected;
        }
    }
    EXPECT_EQ(next, std::vector<int>(kThreads, kEach));
}

TEST_F(LibraryAgent, reconnects_after_the_connection_was_closed)
{
    start("focusKvoIp=10.0.0.5");
    if (HasFatalFailure()) {
        return;
    }
    EXPECT_EQ(ask("ping"), "pong");
    const auto closed = std::chrono::steady_clock::now();
    tools::askSimulator({{"do", "remote.close"}, {"session", 3}});
    EXPECT_TRUE(waitForAgent(15s));
    EXPECT_GE(std::chrono::steady_clock::now() - closed, 4500ms);
    EXPECT_EQ(ask("ping"), "pong");
}

}  // namespace
