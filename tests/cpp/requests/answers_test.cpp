// What requests return, and the order and threads of their completions.
#include "cpp/requests/waiting.h"
#include "support/scripted_service.h"

#include <kvo_hws/service.h>
#include <kvo_hws/station.hpp>

#include <csignal>
#include <optional>
#include <pthread.h>
#include <stdexcept>

namespace requests_test {

namespace {

TEST(RequestsAnswers, come_from_the_service)
{
    const support::ScriptedService service({support::replies("mcpaddr=17"), support::replies("yes")});
    Requests requests = makeRequests();
    Diary diary;
    const kvo::Station station("10.0.0.5");
    ASSERT_TRUE(requests.submit([=] { return station.mcp_address(); }, diary.entry("address ")));
    ASSERT_TRUE(requests.submit([] { return KVO_HWS_isInitComplete(); }, diary.entry("complete ")));
    ASSERT_TRUE(dispatchAll(requests));
    EXPECT_EQ(diary.entries, (std::vector<std::string>{"address 17", "complete 1"}));
    EXPECT_EQ(service.requests(), (std::vector<std::string>{"getMCPAddress=0A000005\n", "isInitComplete\n"}));
}

TEST(RequestsAnswers, are_results_values_or_nothing)
{
    Requests requests = makeRequests();
    Diary diary;
    ASSERT_TRUE(requests.submit([] { return 5; }, [&](const Result<int> &five) { diary.entry()(five); }));
    ASSERT_TRUE(requests.submit([] { return Result<int>(6); }, [&](Result<int> six) { diary.entry()(six); }));
    ASSERT_TRUE(requests.submit([] { return Result<int>(kvo::Error("KVO_HWS_getMCPAddress", -2)); }, diary.entry()));
    ASSERT_TRUE(requests.submit([] {}, [&](Result<void> nothing) { diary.entry()(nothing); }));
    ASSERT_TRUE(dispatchAll(requests));
    EXPECT_EQ(diary.entries, (std::vector<std::string>{"5", "6", "no service", "done"}));
}

TEST(RequestsAnswers, and_both_functions_may_be_objects_that_can_only_be_moved)
{
    Requests requests = makeRequests();
    std::unique_ptr<int> received;
    auto request = [value = std::make_unique<int>(5)]() mutable { return std::move(value); };
    auto completion = [&received, owner = std::make_unique<int>(7)](Result<std::unique_ptr<int>> result) {
        received = std::move(result).value();
        *received += *owner;
    };
    ASSERT_TRUE(requests.submit(std::move(request), std::move(completion)));
    ASSERT_TRUE(dispatchAll(requests));
    EXPECT_EQ(*received, 12);
}

TEST(RequestsAnswers, are_errors_if_the_request_throws)
{
    Requests requests = makeRequests();
    Diary diary;
    std::optional<kvo::Error> error;
    const auto keep = [&error](Result<int> result) { error = result.error(); };
    ASSERT_TRUE(requests.submit([]() -> int { throw kvo::Exception(kvo::Error("KVO_HWS_getUsbLock", -4)); }, keep));
    ASSERT_TRUE(dispatchAll(requests));
    EXPECT_STREQ(error->function(), "KVO_HWS_getUsbLock");
    EXPECT_EQ(error->code(), -4);

    ASSERT_TRUE(requests.submit([]() -> int { throw std::runtime_error("no"); }, diary.entry()));
    ASSERT_TRUE(requests.submit([] { throw 5; }, diary.entry()));
    ASSERT_TRUE(requests.submit(std::function<void()>(), diary.entry()));
    ASSERT_TRUE(requests.submit([] { return 5; }, diary.entry()));
    ASSERT_TRUE(dispatchAll(requests));
    EXPECT_EQ(diary.entries, (std::vector<std::string>{"exception", "exception", "exception", "5"}));
}

TEST(RequestsAnswers, of_a_thousand_requests_come_in_the_order_of_submission)
{
    constexpr int kCount = 1000;
    Requests requests = makeRequests(kCount);
    std::vector<int> asked;  // on the worker, which asks one after the other
    std::vector<int> answered;
    for (int number = 0; number < kCount; ++number) {
        ASSERT_TRUE(requests.submit(
            [&asked, number] {
                asked.push_back(number);
                return number;
            },
            [&answered](Result<int> result) { answered.push_back(*result); }, 60s));
    }
    ASSERT_TRUE(dispatchAll(requests));
    std::vector<int> expected;
    for (int number = 0; number < kCount; ++number) {
        expected.push_back(number);
    }
    EXPECT_EQ(answered, expected);
    EXPECT_EQ(asked, expected);
}

TEST(RequestsThreads, call_and_destroy_each_function_where_it_belongs)
{
    Requests requests = makeRequests();
    const auto request = std::make_shared<Record>();
    const auto completion = std::make_shared<Record>();
    std::thread::id worker;
    std::thread::id loop;
    ASSERT_TRUE(requests.submit(
        [witness = Witness(request), completion] {
            EXPECT_FALSE(completion->destroyed);
            return std::this_thread::get_id();
        },
        [&, witness = Witness(completion)](Result<std::thread::id> result) {
            EXPECT_TRUE(request->destroyed);
            worker = *result;
            loop = std::this_thread::get_id();
        }));
    ASSERT_TRUE(dispatchAll(requests));
    EXPECT_TRUE(completion->destroyed);
    EXPECT_EQ(loop, std::this_thread::get_id());
    EXPECT_EQ(completion->thread.load(), loop);
    EXPECT_NE(worker, loop);
    EXPECT_EQ(request->thread.load(), worker);
}

TEST(RequestsThreads, may_submit_while_the_loop_dispatches_and_cancels)
{
    constexpr int kThreads = 4;
    constexpr int kEach = 250;
    Requests requests = makeRequests(64);
    std::atomic<int> submitted{0};
    std::atomic<int> answered{0};
    std::atomic<int> full{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&] {
            for (int number = 0; number < kEach;) {
                const auto id = requests.submit([] { return 1; }, [&](Result<int>) { ++answered; }, 60s);
                if (!id) {
                    EXPECT_EQ(id.error().meaning(), Errc::full);
                    ++full;
                    std::this_thread::yield();
                    continue;
                }
                ++number;
                ++submitted;
                EXPECT_LE(requests.pending(), 64U);
            }
        });
    }
    int cancelled = 0;
    Requests::Id id = 0;
    EXPECT_TRUE(dispatchUntil(requests, [&] {
        cancelled += requests.cancel(++id) ? 1 : 0;
        return submitted == kThreads * kEach && requests.pending() == 0;
    }));
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(answered + cancelled, kThreads * kEach);
}

TEST(RequestsThreads, of_several_objects_do_not_wait_for_each_other)
{
    Requests slow = makeRequests();
    Requests quick = makeRequests();
    Diary diary;
    Gate gate;
    ASSERT_TRUE(slow.submit(gate.request(1), diary.entry("slow ")));
    ASSERT_TRUE(gate.waitUntilReached());
    ASSERT_TRUE(quick.submit([] { return 2; }, diary.entry("quick ")));
    ASSERT_TRUE(dispatchAll(quick));
    EXPECT_FALSE(isReadable(slow));
    gate.release();
    ASSERT_TRUE(dispatchAll(slow));
    EXPECT_EQ(diary.entries, (std::vector<std::string>{"quick 2", "slow 1"}));
}

bool isBlocked(const sigset_t &signals, int signal) { return sigismember(&signals, signal) == 1; }

sigset_t blockedSignals()
{
    sigset_t signals;
    pthread_sigmask(SIG_SETMASK, nullptr, &signals);
    return signals;
}

TEST(RequestsThreads, leave_signals_to_the_program)
{
    Requests requests = makeRequests();
    EXPECT_FALSE(isBlocked(blockedSignals(), SIGTERM)) << "the mask of the creating thread has changed";
    std::optional<sigset_t> worker;
    ASSERT_TRUE(requests.submit(blockedSignals, [&](Result<sigset_t> signals) { worker = *signals; }));
    ASSERT_TRUE(dispatchAll(requests));
    for (const int signal : {SIGTERM, SIGINT, SIGALRM, SIGCHLD, SIGUSR2, SIGPIPE}) {
        EXPECT_TRUE(isBlocked(*worker, signal)) << signal;
    }
    for (const int signal : {SIGUSR1, SIGSEGV, SIGFPE, SIGBUS, SIGILL}) {
        EXPECT_FALSE(isBlocked(*worker, signal)) << signal;
    }
}

}  // namespace

}  // namespace requests_test
