// An executable and a plugin of one process that both use the C++ interface, with hidden symbols and RTLD_LOCAL. The process has
// each object once, whichever of the two made it, and an object works and closes in the other one.
#include "cpp/events/plugin.h"
#include "cpp/events/usb_fixture.h"

#include "agent/agent_fixture.h"
#include "agent/event_listener_fixture.h"
#include "support/remote_service.h"

#include <atomic>
#include <cstdlib>
#include <dlfcn.h>

namespace {

using cpp_events_test::kChanged;
using cpp_events_test::Recorder;
using cpp_events_test::Side;
using support::eventually;
using support::ScriptedService;

struct Plugin {
    const char *name;
    const char *file;
};

class CppPlugin : public testing::TestWithParam<Plugin> {
protected:
    void SetUp() override
    {
        setenv("KVO_PLATFORM_INTERFACE", "lo", 1);
        void *const plugin = dlopen(GetParam().file, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(plugin, nullptr) << dlerror();
        const auto side = reinterpret_cast<const Side *(*)()>(dlsym(plugin, "pluginSide"));
        const auto callback = reinterpret_cast<SendUsbEventV2 (*)()>(dlsym(plugin, "pluginCallback"));
        ASSERT_TRUE(side != nullptr && callback != nullptr);
        plugin_ = side();
        EXPECT_NE(callback(), kvo::detail::usb_callback) << "each of the two has its own";
    }

    /// Both orders: who makes the object, and who is refused.
    template <class Check>
    void forBothOrders(Check check)
    {
        check(cpp_events_test::thisSide(), *plugin_);
        check(*plugin_, cpp_events_test::thisSide());
    }

private:
    const Side *plugin_ = nullptr;
};

TEST_P(CppPlugin, shares_the_usb_events_of_the_process)
{
    const ScriptedService service({support::acceptsAll()});
    forBothOrders([](const Side &first, const Side &second) {
        const Recorder recorder;
        auto events = first.activateUsb(recorder);
        ASSERT_TRUE(events) << events.error().message();
        ASSERT_TRUE(recorder.waitFor("activated"));
        const auto refused = second.activateUsb(Recorder());
        ASSERT_FALSE(refused);
        EXPECT_EQ(refused.error().meaning(), kvo::Errc::already_running);
        EXPECT_EQ(support::usbServerReply(kChanged), "ok\n");
        EXPECT_TRUE(recorder.waitFor("changed 10.0.0.5 usb1 1-1.4 7"));
        EXPECT_TRUE(second.closeUsb(std::move(*events)));
        EXPECT_FALSE(usbevents_test::anySet());

        const Recorder next;
        auto again = second.activateUsb(next);
        ASSERT_TRUE(again) << again.error().message();
        EXPECT_TRUE(next.waitFor("activated"));
        EXPECT_TRUE(second.closeUsb(std::move(*again)));
    });
}

TEST_P(CppPlugin, shares_the_listener_of_the_process)
{
    forBothOrders([](const Side &first, const Side &second) {
        agent_test::EventService service;
        std::atomic<int> received{0};
        auto events = first.activateEmbedded([&](const kvo::EmbeddedEvent &) { ++received; });
        ASSERT_TRUE(events) << events.error().message();
        const auto refused = second.activateEmbedded([](const kvo::EmbeddedEvent &) {});
        ASSERT_FALSE(refused);
        EXPECT_EQ(refused.error().meaning(), kvo::Errc::already_running);
        ASSERT_TRUE(service.accept());
        service.publish("a, 1\n");
        EXPECT_TRUE(eventually([&] { return received == 1; }));
        EXPECT_TRUE(second.closeEmbedded(std::move(*events))) << "a connected listener ends at once";
    });
}

TEST_P(CppPlugin, shares_the_agent_of_the_process)
{
    support::RemoteService remote(agent_test::kSession);
    const ScriptedService service({agent_test::serves()});
    kvo::AgentOptions options;
    options.focus = kvo::Address("10.0.0.5");
    options.session = agent_test::kSession;
    forBothOrders([&](const Side &first, const Side &second) {
        auto agent = first.startAgent(options, [](const kvo::AgentCommand &) { return kvo::AgentAnswer::no; });
        ASSERT_TRUE(agent) << agent.error().message();
        const auto refused = second.startAgent(options, [](const kvo::AgentCommand &) { return kvo::AgentAnswer::yes; });
        ASSERT_FALSE(refused);
        EXPECT_EQ(refused.error().meaning(), kvo::Errc::already_running);
        ASSERT_TRUE(remote.accept());
        EXPECT_EQ(remote.ask("activate-me"), "busy");
        EXPECT_TRUE(second.closeAgent(std::move(*agent)));
        EXPECT_FALSE(agent_test::isRunning());
    });
}

const Plugin kPlugins[] = {
    {"of_the_same_compiler", KVO_PLUGIN},
#ifdef KVO_CLANG_PLUGIN
    {"of_clang", KVO_CLANG_PLUGIN},
    {"of_clang_without_exceptions_and_rtti", KVO_CLANG_PLUGIN_WITHOUT_EXCEPTIONS},
#endif
    {"without_exceptions_and_rtti", KVO_PLUGIN_WITHOUT_EXCEPTIONS},
};

INSTANTIATE_TEST_SUITE_P(All, CppPlugin, testing::ValuesIn(kPlugins),
                         [](const auto &row) { return std::string(row.param.name); });

}  // namespace
