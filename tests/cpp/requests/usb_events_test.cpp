// Requests that activate and close USB events. The functions of C detach the thread that calls them; the worker must not be
// detached, because close() waits for it.
#include "cpp/requests/waiting.h"
#include "usbevents/activation_fixture.h"

#include <kvo_hws/usbevents.hpp>

#include <optional>

namespace requests_test {

namespace {

using RequestsUsbEvents = usbevents_test::Activation;

TEST_F(RequestsUsbEvents, leave_a_worker_that_can_be_waited_for)
{
    const support::ScriptedService service({support::acceptsAll()});
    Requests requests = makeRequests();
    std::optional<kvo::UsbEvents> events;
    Diary diary;
    const auto handler = [](const kvo::UsbEvent &) { return true; };
    ASSERT_TRUE(requests.submit([handler] { return kvo::UsbEvents::activate(handler); },
                                [&](Result<kvo::UsbEvents> result) {
                                    ASSERT_TRUE(result) << result.error().message();
                                    events.emplace(*std::move(result));
                                },
                                60s));
    ASSERT_TRUE(dispatchAll(requests));
    ASSERT_TRUE(events);
    EXPECT_TRUE(usbevents_test::anySet());
    ASSERT_TRUE(requests.submit([&events] { events.reset(); }, diary.entry("closed "), 60s));
    ASSERT_TRUE(dispatchAll(requests));
    EXPECT_EQ(diary.entries, (std::vector<std::string>{"closed done"}));

    bool joinable = false;
    ASSERT_TRUE(requests.submit([] { return kvo::detail::is_joinable(); },
                                [&](const kvo::Result<bool> &answer) { joinable = answer.value_or(false); }));
    ASSERT_TRUE(dispatchAll(requests));
    EXPECT_TRUE(joinable) << "the worker was detached";
}

}  // namespace

}  // namespace requests_test
