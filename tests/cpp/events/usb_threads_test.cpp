// Threads and memory of kvo::UsbEvents: no thread of the program is detached, and what happens if one cannot be created or memory
// runs out.
#include "cpp/events/usb_fixture.h"

#include "support/endurance.h"
#include "support/failing_allocations.h"
#include "support/system_calls.h"

#include <atomic>
#include <cerrno>
#include <memory>
#include <new>
#include <optional>
#include <pthread.h>

using namespace std::chrono_literals;

namespace {

using cpp_events_test::CppUsbEvents;
using cpp_events_test::kChanged;
using cpp_events_test::Recorder;
using support::acceptsAll;
using support::eventually;
using support::ScriptedService;
using support::usbServerReply;

bool ignore(const kvo::UsbEvent &) { return true; }

/// Whether the calling thread is not detached: pthread_join of a detached one may seem to succeed.
bool joinable()
{
    pthread_attr_t attributes;
    EXPECT_EQ(pthread_getattr_np(pthread_self(), &attributes), 0);
    int state = PTHREAD_CREATE_DETACHED;
    EXPECT_EQ(pthread_attr_getdetachstate(&attributes, &state), 0);
    pthread_attr_destroy(&attributes);
    return state == PTHREAD_CREATE_JOINABLE;
}

TEST_F(CppUsbEvents, do_not_detach_the_thread_that_activates_and_closes_them)
{
    const ScriptedService service({acceptsAll()});
    pthread_t thread{};
    int expected = 0;
    const auto activateAndClose = [](void *argument) -> void * {
        EXPECT_TRUE(kvo::UsbEvents::activate(ignore).value().close());
        return joinable() ? argument : nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, nullptr, activateAndClose, &expected), 0);
    void *result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, &expected);
}

TEST_F(CppUsbEvents, do_not_detach_the_worker_that_activates_and_closes_them)
{
    const ScriptedService service({acceptsAll()});
    kvo::Requests requests = kvo::Requests::create().value();
    bool workerIsJoinable = false;
    ASSERT_TRUE(requests.submit(
        [] {
            EXPECT_TRUE(kvo::UsbEvents::activate(ignore).value().close());
            return joinable();
        },
        [&](const kvo::Result<bool> &result) { workerIsJoinable = result.value(); }, 60s));
    EXPECT_TRUE(eventually([&] { return requests.dispatch() == 1; }, 30s));
    EXPECT_TRUE(workerIsJoinable);
    requests.close();  // joins the worker
}

/// Makes the creation of threads fail, from the given one on.
support::SystemCalls withoutThreadsFrom(int first)
{
    support::SystemCalls calls;
    calls.pthreadCreate = [first, created = std::make_shared<std::atomic<int>>(0)] {
        return ++*created >= first ? EAGAIN : support::kPassThrough;
    };
    return calls;
}

struct MissingThread {
    const char *name;
    int first;
};

class CppUsbThreads : public CppUsbEvents, public testing::WithParamInterface<MissingThread> {};

const MissingThread kMissingThreads[] = {{"of_the_activation", 1}, {"of_the_server", 2}, {"that_asks_the_service", 3}};

TEST_P(CppUsbThreads, leave_nothing_if_one_cannot_be_created_for_an_activation)
{
    const ScriptedService service({acceptsAll()});
    const auto alive = std::make_shared<int>(0);
    {
        const support::WithSystemCalls failing(withoutThreadsFrom(GetParam().first));
        const auto events = kvo::UsbEvents::activate([alive](const kvo::UsbEvent &) { return true; });
        ASSERT_FALSE(events.has_value());
        EXPECT_EQ(events.error().meaning(), GetParam().first == 2 ? kvo::Errc::server_failed : kvo::Errc::no_thread)
            << events.error().message();
    }
    EXPECT_EQ(alive.use_count(), 1);
    EXPECT_FALSE(usbevents_test::anySet());
    const Recorder recorder;
    const auto events = kvo::UsbEvents::activate(recorder);
    ASSERT_TRUE(events);
    EXPECT_TRUE(recorder.waitFor("activated"));
}

INSTANTIATE_TEST_SUITE_P(All, CppUsbThreads, testing::ValuesIn(kMissingThreads),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_F(CppUsbEvents, leave_nothing_if_memory_runs_out_at_any_step_of_their_activation)
{
    if (const char *const reason = support::FailingAllocations::unavailable()) {
        GTEST_SKIP() << reason;
    }
    const ScriptedService service({acceptsAll()});
    const auto alive = std::make_shared<int>(0);
    constexpr int kMost = 30;
    bool activated = false;
    for (int granted = 0; !activated && granted < kMost; ++granted) {
        kvo::UsbEvents::Handler handler = [alive](const kvo::UsbEvent &) { return true; };
        std::optional<kvo::Result<kvo::UsbEvents>> events;
        try {
            const support::FailingAllocations none(granted);
            events.emplace(kvo::UsbEvents::activate(std::move(handler)));
        } catch (const std::bad_alloc &) {
        }
        activated = events && *events;
        EXPECT_EQ(usbevents_test::anySet(), activated);
        EXPECT_TRUE(!events || activated || events->error().meaning() == kvo::Errc::no_thread);
    }
    EXPECT_TRUE(activated) << "the allocations that were granted are enough";
    EXPECT_EQ(alive.use_count(), 1);
}

TEST_F(CppUsbEvents, can_be_closed_again_if_the_thread_for_it_could_not_be_created)
{
    const ScriptedService service({acceptsAll()});
    const Recorder recorder;
    kvo::UsbEvents events = kvo::UsbEvents::activate(recorder).value();
    ASSERT_TRUE(recorder.waitFor("activated"));
    {
        const support::WithSystemCalls failing(withoutThreadsFrom(1));
        const auto closed = events.close();
        ASSERT_FALSE(closed);
        EXPECT_EQ(closed.error().meaning(), kvo::Errc::no_thread);
    }
    EXPECT_TRUE(events.close());
    EXPECT_FALSE(usbevents_test::anySet());
}

TEST_F(CppUsbEvents, whose_destruction_found_no_thread_leave_the_next_activation_possible)
{
    const ScriptedService service({acceptsAll()});
    const Recorder first;
    {
        std::optional<kvo::UsbEvents> events = kvo::UsbEvents::activate(first).value();
        ASSERT_TRUE(first.waitFor("activated"));
        const support::WithSystemCalls failing(withoutThreadsFrom(1));
        events.reset();
    }
    EXPECT_EQ(usbServerReply(kChanged), "failed\n");
    const Recorder second;
    const auto events = kvo::UsbEvents::activate(second);
    ASSERT_TRUE(events);
    EXPECT_TRUE(second.waitFor("activated"));
    EXPECT_EQ(usbServerReply(kChanged), "ok\n");
}

TEST_F(CppUsbEvents, leave_no_resources_in_use_after_many_activations)
{
    const ScriptedService service({acceptsAll()});
    const auto activateAndClose = [] {
        const Recorder recorder;
        kvo::UsbEvents events = kvo::UsbEvents::activate(recorder).value();
        EXPECT_TRUE(recorder.waitFor("activated"));
        EXPECT_EQ(usbServerReply(kChanged), "ok\n");
        EXPECT_TRUE(events.close());
    };
    const std::size_t threads = support::threadsRunning();
    activateAndClose();
    EXPECT_TRUE(eventually([&] { return support::threadsRunning() <= threads; }));
    const auto before = support::resourceUsage();
    constexpr int kRounds = 10;
    for (int round = 0; round < kRounds; ++round) {
        activateAndClose();
    }
    EXPECT_TRUE(eventually([&] { return support::threadsRunning() <= threads; }));
    constexpr std::size_t kSpare = 100'000;
    support::expectSameUsage(kRounds, "activations", "", before, support::resourceUsage(), kSpare);
}

}  // namespace
