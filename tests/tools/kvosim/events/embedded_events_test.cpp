// Events of embedded stations: their listeners, the valid event texts, and listeners that do not read.
#include "kvosim/events/embedded_events.h"

#include "common/control_client.h"
#include "kvosim/control/event_control.h"
#include "support/eventually.h"
#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/named_row.h"
#include "tools/kvosim/support/running_service.h"

#include <gmock/gmock.h>

#include <kvo_hws/agent.h>

#include <filesystem>
#include <mutex>
#include <vector>

using namespace std::chrono_literals;

namespace {

using kvosim_test::Client;
using kvosim_test::RunningService;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;
using tools::askSimulator;
using tools::Json;
using tools::Refused;

constexpr const char *kEventSocket = "/tmp/kvo_hws/event_sock";

std::size_t publish(const std::string &text, bool asIs = false)
{
    return tools::askSimulator({{"do", "event"}, {"text", text}, {"as_is", asIs}})["listeners"].get<std::size_t>();
}

/// Waits until @p count listeners are connected.
bool waitForListeners(std::size_t count)
{
    return support::eventually([=] { return tools::askSimulator({{"do", "status"}})["event_listeners"] == count; });
}

TEST(EmbeddedEvents, are_sent_to_every_listener)
{
    const RunningService service;
    EXPECT_EQ(publish("key, F1"), 0U);
    const Client first(kEventSocket);
    const Client second(kEventSocket);
    ASSERT_TRUE(waitForListeners(2));
    EXPECT_EQ(publish("key, F2"), 2U);
    EXPECT_EQ(first.receive(8), "key, F2\n");
    EXPECT_EQ(second.receive(8), "key, F2\n");
}

TEST(EmbeddedEvents, a_disconnected_listener_is_not_counted)
{
    const RunningService service;
    const Client first(kEventSocket);
    {
        const Client second(kEventSocket);
        ASSERT_TRUE(waitForListeners(2));
    }
    EXPECT_EQ(publish("key, F1"), 1U) << "even if its end has not been read yet";
    EXPECT_TRUE(waitForListeners(1));
}

TEST(EmbeddedEvents, bytes_from_a_listener_are_ignored)
{
    const RunningService service;
    const Client listener(kEventSocket);
    ASSERT_TRUE(waitForListeners(1));
    listener.send(std::string(100'000, 'x'));
    EXPECT_EQ(publish("key, F1"), 1U);
    EXPECT_EQ(listener.receive(8), "key, F1\n");
}

TEST(EmbeddedEvents, a_listener_that_does_not_read_is_disconnected)
{
    const RunningService service;
    const Client idle(kEventSocket);
    const Client reader(kEventSocket);
    ASSERT_TRUE(waitForListeners(2));
    const std::string text = "a, " + std::string(4000, 'x');
    std::size_t listeners = 2;
    std::size_t published = 0;
    for (; published < 1000 && listeners == 2; ++published) {
        listeners = publish(text);
        EXPECT_EQ(reader.receive(text.size() + 1), text + '\n');
    }
    EXPECT_EQ(listeners, 1U);
    EXPECT_GT(published * text.size(), kvosim::EmbeddedEvents::kMaxUnread);
    EXPECT_EQ(publish("key, F1"), 1U);
    EXPECT_EQ(reader.receive(8), "key, F1\n");
    EXPECT_THAT(idle.receiveAll(), testing::Not(testing::EndsWith("(nothing more came)")))
        << "it receives the end of the connection";
}

TEST(EmbeddedEvents, the_socket_is_removed_at_the_end)
{
    RunningService service;
    const Client listener(kEventSocket);
    ASSERT_TRUE(waitForListeners(1));
    EXPECT_TRUE(std::filesystem::exists(kEventSocket));
    EXPECT_EQ(kvosim_test::exchange("killDaemon\n"), "ok\n");
    EXPECT_EQ(listener.receiveAll(), "");
    service.join();
    EXPECT_FALSE(std::filesystem::exists(kEventSocket));
}

TEST(EmbeddedEvents, alive_is_sent_automatically)
{
    kvosim::ServiceOptions options;
    options.alive = 1s;
    const RunningService service(kvosim_test::kSmallPlant, options);
    const Client listener(kEventSocket);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(listener.receive(14), "Alive?\nAlive?\n");
    EXPECT_GE(std::chrono::steady_clock::now() - start, 1s);
}

TEST(EmbeddedEvents, alive_is_not_sent_automatically_if_disabled)
{
    const RunningService service;
    const Client listener(kEventSocket);
    EXPECT_EQ(listener.receiveAll(1200ms), "(nothing more came)");
    EXPECT_EQ(publish("Alive?"), 1U);
    EXPECT_EQ(listener.receive(7), "Alive?\n");
}

// ---- Texts ----

struct Row : kvosim_test::NamedRow {
    std::string text;
    std::string mistake;  ///< empty: the text is a valid event
    bool never = false;   ///< refused even with --as-is
};

class EventText : public testing::TestWithParam<Row> {};

TEST_P(EventText, is_accepted_or_refused)
{
    const RunningService service;
    const Row &row = GetParam();
    const auto sending = [&row](bool asIs) { return [&row, asIs] { publish(row.text, asIs); }; };
    if (row.mistake.empty()) {
        EXPECT_EQ(publish(row.text), 0U);
        return;
    }
    EXPECT_THAT(sending(false), ThrowsMessage<tools::Refused>(HasSubstr(row.mistake)));
    if (row.never) {
        EXPECT_THAT(sending(true), ThrowsMessage<tools::Refused>(HasSubstr(row.mistake)));
    } else {
        EXPECT_EQ(publish(row.text, true), 0U);
    }
}

const std::vector<Row> kTexts = {
    {{"usual"}, "key, F1", ""},
    {{"alive"}, "Alive?", ""},
    {{"no_data"}, "key, ", ""},
    {{"name_of_19"}, std::string(19, 'n') + ", x", ""},
    {{"more_commas"}, "key, a, b", ""},
    {{"longest"}, "a, " + std::string(4093, 'x'), ""},
    {{"no_comma"}, "key", "the event has no comma"},
    {{"nothing"}, "", "the event has no comma"},
    {{"alive_and_more"}, "Alive?!", "the event has no comma"},
    {{"name_of_20"}, std::string(20, 'n') + ", x", "the event's name has 20 bytes, so receivers drop it"},
    {{"no_name"}, ", x", "the event's name has 0 bytes"},
    {{"no_blank"}, "key,F1", "no space follows the event's comma"},
    {{"ends_with_comma"}, "key,", "no space follows the event's comma"},
    {{"line_end"}, "key, a\nb", "the event contains a line end or a zero byte", true},
    {{"carriage_return"}, "key, a\r", "the event contains a line end or a zero byte", true},
    {{"zero"}, std::string("key, a\0b", 8), "the event contains a line end or a zero byte", true},
    {{"too_long"}, "a, " + std::string(4094, 'x'), "the event has 4097 bytes; write at most 4096", true}};

INSTANTIATE_TEST_SUITE_P(Table, EventText, testing::ValuesIn(kTexts), kvosim_test::kNameOfRow);

// ---- The library's listener ----

std::mutex mutex;
std::vector<std::string> received;

void onEvent(const char *name, const char *data)
{
    const std::lock_guard lock(mutex);
    received.push_back(std::string(name) + '|' + data);
}

TEST(EmbeddedEvents, are_received_by_the_library)
{
    const RunningService service;
    ASSERT_EQ(KVO_HWS_activateEmbKvoEvents(onEvent), 1);
    ASSERT_TRUE(waitForListeners(1));
    for (const char *text : {"key, F1", "Alive?", "screen, 3, on", "empty, "}) {
        EXPECT_EQ(publish(text), 1U);
    }
    EXPECT_EQ(publish("no comma", true), 1U) << "the receiver discards it";
    EXPECT_EQ(publish("last, x"), 1U);
    EXPECT_TRUE(support::eventually([&] {
        const std::lock_guard lock(mutex);
        return !received.empty() && received.back() == "last|x";
    }));
    EXPECT_EQ(KVO_HWS_deactivateEmbKvoEvents(), 1);
    const std::lock_guard lock(mutex);
    EXPECT_THAT(received, ElementsAre("key|F1", "screen|3, on", "empty|", "last|x"));
}

}  // namespace
