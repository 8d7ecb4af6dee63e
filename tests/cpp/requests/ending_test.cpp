// Destruction returns at once; close() waits for the exchange in progress. Neither calls a completion.
#include "cpp/requests/waiting.h"
#include "support/resource_usage.h"
#include "support/scripted_service.h"

#include <kvo_hws/service.h>

#include <fcntl.h>
#include <fstream>
#include <optional>
#include <unistd.h>

namespace requests_test {

namespace {

/// The address space of the process in bytes. Each thread that is neither joined nor detached keeps its stack, usually 8 MB.
std::size_t addressSpace()
{
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

constexpr std::size_t kFewStacks = 100'000'000;

const auto mustNotBeCalled = [](auto) { FAIL() << "called"; };

TEST(RequestsEnding, by_destruction_does_not_wait_for_the_service)
{
    const std::size_t threads = support::threadsRunning();
    std::optional<support::ScriptedService> service(std::in_place, std::vector<support::Script>{support::staysSilent(60s)});
    auto requests = std::make_unique<Requests>(makeRequests());
    std::atomic<bool> ended{false};
    ASSERT_TRUE(requests->submit(
        [&ended] {
            const int result = KVO_HWS_isInitComplete();
            ended = true;
            return result;
        },
        mustNotBeCalled));
    ASSERT_TRUE(support::eventually([&] { return service->requests().size() == 1; }));
    requests.reset();
    EXPECT_FALSE(ended);
    service.reset();  // ends the exchange
    EXPECT_TRUE(support::eventually([&] { return ended && support::threadsRunning() <= threads; }));
}

TEST(RequestsEnding, by_destruction_drops_what_waits_in_the_destroying_thread)
{
    Gate gate;
    auto requests = std::make_unique<Requests>(makeRequests());
    const int descriptor = requests->descriptor();
    const auto asked = std::make_shared<Record>();
    const auto askedCompletion = std::make_shared<Record>();
    const auto waiting = std::make_shared<Record>();
    const auto waitingCompletion = std::make_shared<Record>();
    const auto readyCompletion = std::make_shared<Record>();
    ASSERT_TRUE(
        requests->submit([] { return 0; }, [=, witness = Witness(readyCompletion)](auto result) { mustNotBeCalled(result); }));
    ASSERT_TRUE(requests->submit([request = gate.request(), witness = Witness(asked)] { return request(); },
                                 [=, witness = Witness(askedCompletion)](auto result) { mustNotBeCalled(result); }));
    ASSERT_TRUE(requests->submit([witness = Witness(waiting)] { ADD_FAILURE() << "called"; },
                                 [=, witness = Witness(waitingCompletion)](auto result) { mustNotBeCalled(result); }));
    ASSERT_TRUE(gate.waitUntilReached());
    requests.reset();
    for (const auto &record : {askedCompletion, waiting, waitingCompletion, readyCompletion}) {
        EXPECT_TRUE(record->destroyed);
        EXPECT_EQ(record->thread.load(), std::this_thread::get_id());
    }
    EXPECT_FALSE(asked->destroyed);
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1) << "the descriptor is open";
    gate.release();
    EXPECT_TRUE(support::eventually([&] { return asked->destroyed.load(); }));
    EXPECT_NE(asked->thread.load(), std::this_thread::get_id());
}

/// Functions of C that a request may call detach the thread that calls them.
class RequestsWithDetachedWorker : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(requests_->submit([] { return pthread_detach(pthread_self()); }, [](auto) {}));
        ASSERT_TRUE(dispatchAll(*requests_));
        ASSERT_TRUE(requests_->submit(gate_.request(), mustNotBeCalled));
        ASSERT_TRUE(gate_.waitUntilReached());
    }

    std::size_t threads_ = support::threadsRunning();
    std::optional<Requests> requests_ = makeRequests();
    Gate gate_;
};

TEST_F(RequestsWithDetachedWorker, end_by_close_after_the_exchange_in_progress)
{
    std::thread releasing([this] {
        std::this_thread::sleep_for(50ms);
        gate_.release();
    });
    requests_->close();
    EXPECT_TRUE(gate_.hasEnded());
    releasing.join();
    EXPECT_TRUE(support::eventually([&] { return support::threadsRunning() <= threads_; }));
}

TEST_F(RequestsWithDetachedWorker, end_by_destruction)
{
    requests_.reset();
    gate_.release();
    EXPECT_TRUE(support::eventually([&] { return support::threadsRunning() <= threads_; }));
}

TEST(RequestsEnding, by_close_waits_for_the_exchange_in_progress)
{
    Gate gate;
    Requests requests = makeRequests();
    ASSERT_TRUE(requests.submit(gate.request(), mustNotBeCalled));
    ASSERT_TRUE(requests.submit([] { ADD_FAILURE() << "called"; }, mustNotBeCalled));
    ASSERT_TRUE(gate.waitUntilReached());
    std::thread releasing([&gate] {
        std::this_thread::sleep_for(50ms);
        gate.release();
    });
    requests.close();
    EXPECT_TRUE(gate.hasEnded());
    releasing.join();
}

TEST(RequestsEnding, leaves_an_object_that_refuses_requests)
{
    Requests requests = makeRequests();
    ASSERT_TRUE(requests.submit([] {}, mustNotBeCalled));
    requests.close();
    requests.close();
    EXPECT_EQ(requests.submit([] {}, mustNotBeCalled).error().meaning(), Errc::not_running);
    EXPECT_EQ(requests.pending(), 0U);
    EXPECT_EQ(requests.descriptor(), -1);
    EXPECT_EQ(requests.dispatch(), 0U);
    EXPECT_FALSE(requests.cancel(1));
}

TEST(RequestsEnding, in_a_completion_drops_the_completions_that_are_ready)
{
    auto requests = std::make_unique<Requests>(makeRequests());
    const auto completion = std::make_shared<Record>();
    bool called = false;
    std::atomic<bool> lastCalled{false};
    ASSERT_TRUE(requests->submit([] {},
                                 [&, witness = Witness(completion)](Result<void>) {
                                     requests.reset();
                                     EXPECT_FALSE(completion->destroyed) << "a function was destroyed while it runs";
                                     called = true;
                                 }));
    ASSERT_TRUE(requests->submit([] {}, mustNotBeCalled));
    ASSERT_TRUE(requests->submit([&] { lastCalled = true; }, mustNotBeCalled));
    ASSERT_TRUE(support::eventually([&] { return lastCalled.load(); }));
    EXPECT_EQ(requests->dispatch(), 1U);
    EXPECT_TRUE(called);
    EXPECT_TRUE(completion->destroyed);
}

TEST(RequestsEnding, by_close_in_a_completion_waits_too)
{
    Requests requests = makeRequests();
    Gate gate;
    bool called = false;
    ASSERT_TRUE(requests.submit([] {},
                                [&](Result<void>) {
                                    EXPECT_TRUE(gate.waitUntilReached());
                                    gate.release();
                                    requests.close();
                                    EXPECT_TRUE(gate.hasEnded());
                                    called = true;
                                }));
    ASSERT_TRUE(requests.submit(gate.request(), mustNotBeCalled));
    EXPECT_TRUE(dispatchUntil(requests, [&] { return called; }));
}

TEST(RequestsEnding, on_the_worker_is_possible)
{
    // The request owns the last reference to what owns the object.
    const std::size_t threads = support::threadsRunning();
    const std::size_t space = addressSpace();
    for (int number = 0; number < 60; ++number) {
        const bool closes = number % 2 == 0;
        Gate gate;
        auto owner = std::make_shared<Requests>(makeRequests());
        const auto begin = std::make_shared<std::atomic<bool>>(false);
        Requests &requests = *owner;
        const auto function = std::make_shared<Record>();
        ASSERT_TRUE(requests.submit(
            [owner, begin, closes, witness = Witness(function)] {
                while (!*begin) {
                    std::this_thread::sleep_for(1ms);
                }
                if (closes) {
                    owner->close();
                }
            },
            mustNotBeCalled));
        owner.reset();
        *begin = true;
        ASSERT_TRUE(support::eventually([&] { return function->destroyed && support::threadsRunning() <= threads; }));
    }
    EXPECT_LT(addressSpace(), space + kFewStacks);
}

TEST(RequestsEnding, by_assignment_ends_only_the_object_that_was)
{
    const std::size_t threads = support::threadsRunning();
    Requests requests = makeRequests();
    const auto before = std::make_shared<Record>();
    ASSERT_TRUE(requests.submit([] {}, [witness = Witness(before)](Result<void>) { FAIL() << "called"; }));
    Diary diary;
    Requests other = makeRequests();
    ASSERT_TRUE(other.submit([] { return 5; }, diary.entry()));
    const int descriptor = other.descriptor();
    requests = std::move(other);
    EXPECT_EQ(requests.descriptor(), descriptor);
    EXPECT_TRUE(before->destroyed);
    EXPECT_TRUE(support::eventually([&] { return support::threadsRunning() <= threads + 1; }));
    ASSERT_TRUE(dispatchAll(requests));
    EXPECT_EQ(diary.entries, (std::vector<std::string>{"5"}));
    Requests &self = requests;
    requests = std::move(self);
    EXPECT_EQ(requests.descriptor(), descriptor);
    // NOLINTBEGIN(bugprone-use-after-move): an object that was moved from is like one that was closed
    EXPECT_EQ(other.submit([] {}, mustNotBeCalled).error().meaning(), Errc::not_running);
    EXPECT_EQ(other.pending(), 0U);
    EXPECT_EQ(other.descriptor(), -1);
    EXPECT_EQ(other.dispatch(), 0U);
    EXPECT_FALSE(other.cancel(1));
    other.close();
    // NOLINTEND(bugprone-use-after-move)
}

TEST(RequestsEnding, keeps_no_descriptors_and_threads)
{
    const support::ResourceUsage before = support::resourceUsage();
    const std::size_t space = addressSpace();
    for (int number = 0; number < 100; ++number) {
        Requests requests = makeRequests();
        ASSERT_TRUE(requests.submit([] {}, [](auto) {}));
        if (number % 2 == 0) {
            requests.close();
        }
    }
    EXPECT_TRUE(support::eventually([&] { return support::threadsRunning() <= before.threads; }));
    EXPECT_EQ(support::descriptorsOpen(), before.descriptors);
    EXPECT_LT(addressSpace(), space + kFewStacks);
}

}  // namespace

}  // namespace requests_test
