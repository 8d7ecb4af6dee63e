// kvo::EmbeddedEvents: what the handler receives, once per process, the end, and the way through a loop.
#include <kvo_hws/kvo_hws.hpp>

#include "agent/event_listener_fixture.h"
#include "cpp/events/signal.h"
#include "support/eventually.h"
#include "support/system_calls.h"

#include <atomic>
#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <optional>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

using agent_test::EventService;
using cpp_events_test::Signal;
using support::eventually;
using testing::ElementsAre;
using testing::HasSubstr;

/// Records the events of a handler. Copies share the record.
class Recorder {
public:
    void operator()(const kvo::EmbeddedEvent &event) const
    {
        const std::lock_guard lock(record_->lock);
        record_->texts.push_back(event.name + '=' + event.data + (event.late ? " late" : ""));
    }
    [[nodiscard]] std::vector<std::string> texts() const
    {
        const std::lock_guard lock(record_->lock);
        return record_->texts;
    }
    [[nodiscard]] bool waitFor(std::size_t count) const
    {
        return eventually([&] { return texts().size() >= count; });
    }

private:
    struct Record {
        std::mutex lock;
        std::vector<std::string> texts;
    };
    std::shared_ptr<Record> record_ = std::make_shared<Record>();
};

void ignore(const kvo::EmbeddedEvent &) {}

/// Every listener of a test has ended when the next test begins: the tests may share a process.
class CppEmbeddedEvents : public testing::Test {
protected:
    void TearDown() override
    {
        service.reset();
        const EventService last;
        EXPECT_TRUE(eventually([] { return agent_test::isFree(); }));
    }

    std::optional<EventService> service{std::in_place};
};

TEST_F(CppEmbeddedEvents, pass_name_and_data)
{
    const Recorder recorder;
    kvo::EmbeddedEvents events = kvo::EmbeddedEvents::activate(recorder).value();
    ASSERT_TRUE(service->accept());
    service->publish("panel, 10.0.0.5 on\nempty,\n");
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_TRUE(events.close());
    EXPECT_TRUE(events.close()) << "nothing to close";
    EXPECT_THAT(recorder.texts(), ElementsAre("panel=10.0.0.5 on", "empty="));
}

TEST_F(CppEmbeddedEvents, ignore_the_exception_of_a_handler)
{
    const Recorder recorder;
    const kvo::EmbeddedEvents events = kvo::EmbeddedEvents::activate([&](const kvo::EmbeddedEvent &event) {
                                           recorder(event);
                                           throw std::runtime_error("from the handler");
                                       }).value();
    ASSERT_TRUE(service->accept());
    service->publish("a, 1\nb, 2\n");
    EXPECT_TRUE(recorder.waitFor(2));
}

TEST_F(CppEmbeddedEvents, need_a_handler)
{
    const auto refused = kvo::EmbeddedEvents::activate(kvo::EmbeddedEvents::Handler());
    EXPECT_EQ(refused.error().meaning(), kvo::Errc::null_pointer);
    EXPECT_TRUE(kvo::EmbeddedEvents::activate(ignore));
}

void expectAlreadyRunning(const kvo::Result<kvo::EmbeddedEvents> &result)
{
    ASSERT_FALSE(result.has_value());
    EXPECT_EQ(result.error().meaning(), kvo::Errc::already_running);
    EXPECT_EQ(result.error().code(), KVO_HWS_ALREADY_RUNNING);
    EXPECT_THAT(result.error().message(), HasSubstr("close the other one"));
}

TEST_F(CppEmbeddedEvents, are_refused_to_a_second_object)
{
    const Recorder recorder;
    std::optional<kvo::EmbeddedEvents> first = kvo::EmbeddedEvents::activate(recorder).value();
    expectAlreadyRunning(kvo::EmbeddedEvents::activate(ignore));
    ASSERT_TRUE(service->accept());
    service->publish("a, 1\n");
    EXPECT_TRUE(recorder.waitFor(1)) << "the first one keeps them";
    kvo::EmbeddedEvents moved = std::move(*first);
    first.reset();
    service->publish("b, 2\n");
    EXPECT_TRUE(recorder.waitFor(2)) << "an object that was moved from closes nothing";
    EXPECT_TRUE(moved.close());
    EXPECT_TRUE(kvo::EmbeddedEvents::activate(ignore));
}

TEST_F(CppEmbeddedEvents, are_refused_while_the_functions_of_c_have_them)
{
    {
        const agent_test::Listening listening;
        expectAlreadyRunning(kvo::EmbeddedEvents::activate(ignore));
    }
    EXPECT_TRUE(kvo::EmbeddedEvents::activate(ignore));
}

TEST_F(CppEmbeddedEvents, are_refused_while_an_earlier_listener_waits_for_a_service)
{
    service.reset();
    {
        const auto connects = std::make_shared<Signal>();
        support::SystemCalls calls;
        calls.connect = [connects](int, const sockaddr *, socklen_t) {
            connects->set();
            return support::kPassThrough;
        };
        const support::WithSystemCalls observed(calls);
        const kvo::EmbeddedEvents events = kvo::EmbeddedEvents::activate(ignore).value();
        ASSERT_TRUE(connects->wait());
    }
    expectAlreadyRunning(kvo::EmbeddedEvents::activate(ignore));
    service.emplace();
    EXPECT_TRUE(eventually([] { return kvo::EmbeddedEvents::activate(ignore).has_value(); }))
        << "it ends when a service starts";
}

TEST_F(CppEmbeddedEvents, report_that_no_thread_could_be_created)
{
    const auto alive = std::make_shared<int>(0);
    {
        support::SystemCalls calls;
        calls.pthreadCreate = [] { return EAGAIN; };
        const support::WithSystemCalls failing(calls);
        const auto events = kvo::EmbeddedEvents::activate([alive](const kvo::EmbeddedEvent &) {});
        ASSERT_FALSE(events);
        EXPECT_EQ(events.error().meaning(), kvo::Errc::no_thread);
    }
    EXPECT_EQ(alive.use_count(), 1);
    EXPECT_TRUE(kvo::EmbeddedEvents::activate(ignore));
}

TEST_F(CppEmbeddedEvents, wait_at_their_destruction_for_the_handler_that_runs)
{
    Signal begun;
    std::atomic<bool> goOn{false};
    std::atomic<bool> returned{false};
    std::optional<kvo::EmbeddedEvents> events = kvo::EmbeddedEvents::activate([&](const kvo::EmbeddedEvent &) {
                                                    begun.set();
                                                    EXPECT_TRUE(eventually([&] { return goOn.load(); }));
                                                    returned = true;
                                                }).value();
    ASSERT_TRUE(service->accept());
    service->publish("a, 1\n");
    ASSERT_TRUE(begun.wait());
    std::thread release([&] {
        std::this_thread::sleep_for(1500ms);  // longer than KVO_HWS_deactivateEmbKvoEvents waits
        EXPECT_FALSE(returned);
        goOn = true;
    });
    events.reset();
    EXPECT_TRUE(returned);
    release.join();
}

TEST_F(CppEmbeddedEvents, do_not_wait_if_the_handler_destroys_them)
{
    const auto alive = std::make_shared<int>(0);
    std::optional<kvo::EmbeddedEvents> events;
    Signal destroyed;
    std::atomic<int> calls{0};
    events = kvo::EmbeddedEvents::activate([&, owned = alive](const kvo::EmbeddedEvent &) {
                 ++calls;
                 events.reset();
                 EXPECT_GT(owned.use_count(), 1) << "the handler lives until its call has returned";
                 destroyed.set();
             }).value();
    ASSERT_TRUE(service->accept());
    service->publish("a, 1\nb, 2\n");
    ASSERT_TRUE(destroyed.wait());
    EXPECT_TRUE(eventually([&] { return alive.use_count() == 1; }));
    EXPECT_EQ(calls, 1);
}

TEST_F(CppEmbeddedEvents, that_their_handler_closed_leave_the_next_ones_alone)
{
    Signal closed;
    std::optional<kvo::EmbeddedEvents> events;
    events = kvo::EmbeddedEvents::activate([&](const kvo::EmbeddedEvent &) {
                 static_cast<void>(events->close());
                 closed.set();
             }).value();
    ASSERT_TRUE(service->accept());
    service->publish("a, 1\n");
    ASSERT_TRUE(closed.wait());
    const Recorder recorder;
    // Closes the first object after the start of the next listener.
    ASSERT_TRUE(eventually([&] {
        auto next = kvo::EmbeddedEvents::activate(recorder);
        if (next) {
            events = std::move(*next);
        }
        return next.has_value();
    }));
    ASSERT_TRUE(service->accept());
    service->publish("b, 2\n");
    EXPECT_TRUE(recorder.waitFor(1));
}

TEST_F(CppEmbeddedEvents, do_not_call_the_handler_after_their_destruction)
{
    const Recorder recorder;
    {
        const kvo::EmbeddedEvents events = kvo::EmbeddedEvents::activate(recorder).value();
    }
    kvo::detail::embedded_callback("late", "call");
    EXPECT_TRUE(recorder.texts().empty());
}

// ---- Through a loop ----

class CppEmbeddedLoop : public CppEmbeddedEvents {
protected:
    bool loopUntil(const Recorder &recorder, std::size_t count)
    {
        return eventually([&] {
            pollfd ready{requests->descriptor(), POLLIN, 0};
            if (poll(&ready, 1, 5) > 0) {
                requests->dispatch();
            }
            return recorder.texts().size() >= count;
        });
    }
    bool untilReadable()
    {
        pollfd ready{requests->descriptor(), POLLIN, 0};
        return poll(&ready, 1, 10'000) == 1;
    }

    std::optional<kvo::Requests> requests = kvo::Requests::create().value();
};

TEST_F(CppEmbeddedLoop, calls_the_handler_in_the_thread_of_the_loop)
{
    const Recorder recorder;
    const auto loop = std::this_thread::get_id();
    std::atomic<bool> elsewhere{false};
    const kvo::EmbeddedEvents events = kvo::EmbeddedEvents::activate(*requests, [&](const kvo::EmbeddedEvent &event) {
                                           elsewhere = elsewhere || std::this_thread::get_id() != loop;
                                           recorder(event);
                                       }).value();
    ASSERT_TRUE(service->accept());
    service->publish("a, 1\nb, 2\n");
    ASSERT_TRUE(loopUntil(recorder, 2));
    EXPECT_THAT(recorder.texts(), ElementsAre("a=1", "b=2"));
    EXPECT_FALSE(elsewhere);
}

TEST_F(CppEmbeddedLoop, goes_on_without_a_handler_that_takes_too_long)
{
    const auto usual = std::exchange(kvo::detail::handler_time, 50ms);
    const Recorder recorder;
    const kvo::EmbeddedEvents events = kvo::EmbeddedEvents::activate(*requests, recorder).value();
    ASSERT_TRUE(service->accept());
    service->publish("a, 1\n");
    ASSERT_TRUE(untilReadable());
    std::this_thread::sleep_for(500ms);  // the loop does something else for longer than the listener waits
    ASSERT_TRUE(loopUntil(recorder, 1));
    EXPECT_THAT(recorder.texts(), ElementsAre("a=1 late"));
    kvo::detail::handler_time = usual;
}

TEST_F(CppEmbeddedLoop, does_not_need_dispatch_for_the_destruction)
{
    const Recorder recorder;
    {
        const kvo::EmbeddedEvents events = kvo::EmbeddedEvents::activate(*requests, recorder).value();
        ASSERT_TRUE(service->accept());
        service->publish("a, 1\n");
        ASSERT_TRUE(untilReadable());
    }
    requests->dispatch();
    EXPECT_TRUE(recorder.texts().empty()) << "the object is closed";
}

TEST_F(CppEmbeddedLoop, may_end_before_the_object)
{
    const Recorder recorder;
    kvo::EmbeddedEvents events = kvo::EmbeddedEvents::activate(*requests, recorder).value();
    ASSERT_TRUE(service->accept());
    requests.reset();
    service->publish("a, 1\n");
    EXPECT_TRUE(events.close());
    EXPECT_TRUE(recorder.texts().empty());
}

TEST_F(CppEmbeddedLoop, must_be_open)
{
    requests->close();
    const auto events = kvo::EmbeddedEvents::activate(*requests, ignore);
    ASSERT_FALSE(events);
    EXPECT_EQ(events.error().meaning(), kvo::Errc::not_running);
}

}  // namespace
