// What is refused, and what happens when the system has no thread or descriptor left.
#include "cpp/requests/waiting.h"
#include "support/failing_allocations.h"
#include "support/no_descriptors.h"
#include "support/resource_usage.h"
#include "support/system_calls.h"

#include <cerrno>
#include <new>
#include <optional>
#include <sys/resource.h>
#include <unistd.h>

namespace requests_test {

namespace {

/// Leaves a number of free descriptors for a scope, if no descriptor is free below one that is open.
class FewDescriptors {
public:
    explicit FewDescriptors(int free)
    {
        const int lowest = dup(0);
        close(lowest);
        getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit few{static_cast<rlim_t>(lowest + free), before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &few);
    }
    FewDescriptors(const FewDescriptors &) = delete;
    FewDescriptors &operator=(const FewDescriptors &) = delete;
    ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }

private:
    rlimit before_{};
};

TEST(RequestsFailures, include_a_capacity_of_nothing)
{
    EXPECT_EQ(Requests::create(0).error().meaning(), Errc::out_of_range);
    EXPECT_TRUE(Requests::create(1));
}

TEST(RequestsFailures, include_more_requests_than_the_capacity)
{
    Requests requests = makeRequests(3);
    Diary diary;
    Gate gate;
    ASSERT_TRUE(requests.submit(gate.request(1), diary.entry()));
    ASSERT_TRUE(requests.submit([] { return 2; }, diary.entry()));
    ASSERT_TRUE(requests.submit([] { return 3; }, diary.entry()));
    const auto function = std::make_shared<Record>();
    const auto refused = requests.submit([witness = Witness(function)] { return 4; }, diary.entry());
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().meaning(), Errc::full);
    EXPECT_TRUE(function->destroyed);
    EXPECT_EQ(requests.pending(), 3U);

    gate.release();
    ASSERT_TRUE(isReadable(requests, 10s));
    EXPECT_FALSE(requests.submit([] { return 4; }, diary.entry())) << "an answer that was not dispatched keeps its place";
    ASSERT_TRUE(dispatchUntil(requests, [&] { return requests.pending() < 3; }));
    EXPECT_TRUE(requests.submit([] { return 5; }, diary.entry()));
    ASSERT_TRUE(dispatchAll(requests));
    EXPECT_EQ(diary.entries, (std::vector<std::string>{"1", "2", "3", "5"}));
}

TEST(RequestsFailures, include_a_thread_that_cannot_be_created)
{
    const std::size_t descriptors = support::descriptorsOpen();
    const support::WithSystemCalls calls({.pthreadCreate = [] { return EAGAIN; }});
    const auto requests = Requests::create();
    ASSERT_FALSE(requests);
    EXPECT_EQ(requests.error().meaning(), Errc::no_thread);
    EXPECT_NE(requests.error().message().find("thread"), std::string::npos);
    EXPECT_EQ(support::descriptorsOpen(), descriptors);
}

TEST(RequestsFailures, include_each_descriptor_that_cannot_be_created)
{
    const std::size_t descriptors = support::descriptorsOpen();
    constexpr int kNeeded = 3;
    for (int free = 0; free <= kNeeded; ++free) {
        const auto requests = [free] {
            const FewDescriptors few(free);
            return Requests::create();
        }();
        ASSERT_EQ(requests.has_value(), free == kNeeded) << free;
        if (!requests) {
            EXPECT_EQ(requests.error().meaning(), Errc::no_thread);
            EXPECT_NE(requests.error().message().find("descriptor"), std::string::npos);
            EXPECT_EQ(support::descriptorsOpen(), descriptors);
        }
    }
}

/// Repeats a step with more and more memory until it succeeds. Returns how often memory ran out.
template <class Step>
int untilThereIsMemory(Step step)
{
    for (int granted = 0;; ++granted) {
        try {
            const support::FailingAllocations failing(granted);
            if (step()) {
                return granted;
            }
        } catch (const std::bad_alloc &) {
            continue;
        }
    }
}

TEST(RequestsFailures, for_lack_of_memory_lose_nothing)
{
    if (const char *reason = support::FailingAllocations::unavailable()) {
        GTEST_SKIP() << reason;
    }
    const support::ResourceUsage before = support::resourceUsage();
    std::optional<Requests> requests;
    const int created = untilThereIsMemory([&] {
        auto result = Requests::create();  // Errc::no_thread if the C library has no memory for the thread
        return result && (requests.emplace(std::move(*result)), true);
    });
    EXPECT_GT(created, 1);
    Diary diary;
    auto completion = diary.entry();
    const int submitted = untilThereIsMemory([&] {
        const auto id = requests->submit([] { return 5; }, completion);
        EXPECT_EQ(requests->pending(), 1U);
        return id.has_value();
    });
    EXPECT_GT(submitted, 1);
    ASSERT_TRUE(dispatchAll(*requests));
    EXPECT_EQ(diary.entries, (std::vector<std::string>{"5"}));
    requests->close();
    EXPECT_EQ(support::descriptorsOpen(), before.descriptors);
    EXPECT_TRUE(support::eventually([&] { return support::threadsRunning() <= before.threads; }));
}

TEST(RequestsFailures, do_not_include_requests_without_a_free_descriptor)
{
    Requests requests = makeRequests();
    Diary diary;
    const support::NoDescriptors none;
    ASSERT_TRUE(requests.submit([] { return 1; }, diary.entry()));
    ASSERT_TRUE(dispatchUntil(requests, [&] {
        requests.dispatch();  // poll() fails, because the limit is below the descriptor
        return requests.pending() == 0;
    }));
    EXPECT_EQ(diary.entries, (std::vector<std::string>{"1"}));
}

}  // namespace

}  // namespace requests_test
