// The descriptor works with every kind of loop; dispatch() may be nested, and left by an exception.
#include "cpp/requests/waiting.h"

#include <ostream>
#include <stdexcept>
#include <sys/epoll.h>
#include <sys/select.h>
#include <unistd.h>

namespace requests_test {

namespace {

/// An epoll descriptor that watches one object.
class Epoll {
public:
    Epoll(const Requests &requests, std::uint32_t mode) : fd_(epoll_create1(EPOLL_CLOEXEC))
    {
        epoll_event event{.events = EPOLLIN | mode, .data = {}};
        EXPECT_EQ(epoll_ctl(fd_, EPOLL_CTL_ADD, requests.descriptor(), &event), 0);
    }
    Epoll(const Epoll &) = delete;
    Epoll &operator=(const Epoll &) = delete;
    ~Epoll() { close(fd_); }

    [[nodiscard]] bool wait(int milliseconds) const
    {
        epoll_event event{};
        return epoll_wait(fd_, &event, 1, milliseconds) == 1;
    }

private:
    int fd_;
};

constexpr int kWait = 10'000;
constexpr auto kLong = 60s;  // so that no deadline wakes the loop instead of an answer

using Wait = std::function<bool(int milliseconds)>;

struct Kind {
    const char *name;
    Wait (*make)(const Requests &requests);
};

void PrintTo(const Kind &kind, std::ostream *out) { *out << kind.name; }

Wait withPoll(const Requests &requests)
{
    return [&requests](int milliseconds) { return isReadable(requests, std::chrono::milliseconds(milliseconds)); };
}

Wait withSelect(const Requests &requests)
{
    return [&requests](int milliseconds) {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(requests.descriptor(), &set);
        timeval time{.tv_sec = milliseconds / 1000, .tv_usec = milliseconds % 1000 * 1000};
        return select(requests.descriptor() + 1, &set, nullptr, nullptr, &time) == 1;
    };
}

Wait withEpoll(const Requests &requests)
{
    return [epoll = std::make_shared<Epoll>(requests, 0)](int milliseconds) { return epoll->wait(milliseconds); };
}

Wait withEdges(const Requests &requests)
{
    return [epoll = std::make_shared<Epoll>(requests, EPOLLET)](int milliseconds) { return epoll->wait(milliseconds); };
}

class RequestsLoops : public testing::TestWithParam<Kind> {
protected:
    /// Waits until the worker has nothing to do.
    void settle()
    {
        std::atomic<bool> called{false};
        ASSERT_TRUE(requests.submit([&] { called = true; }, [](Result<void>) {}, kLong));
        ASSERT_TRUE(support::eventually([&] { return called.load(); }));
    }

    Requests requests = makeRequests();
    Wait wait = GetParam().make(requests);
    Diary diary;
};

TEST_P(RequestsLoops, wait_for_each_answer_and_each_deadline)
{
    for (int number = 0; number < 100; ++number) {
        ASSERT_TRUE(requests.submit([number] { return number; }, diary.entry(), kLong));
        while (requests.pending() > 0) {
            ASSERT_TRUE(wait(kWait));
            requests.dispatch();
        }
    }
    Gate gate;
    ASSERT_TRUE(requests.submit(gate.request(), diary.entry(), 20ms));
    ASSERT_TRUE(requests.submit([] {}, diary.entry(), 40ms));
    while (requests.pending() > 0) {
        ASSERT_TRUE(wait(kWait));
        requests.dispatch();
    }
    EXPECT_EQ(diary.entries.size(), 102U);
    EXPECT_EQ(diary.entries.back(), "timeout");
    EXPECT_FALSE(wait(20));
}

TEST_P(RequestsLoops, see_what_the_last_call_left)
{
    // A completion that is submitted by a completion waits for the next call, even if its answer is there already.
    ASSERT_TRUE(requests.submit([] {},
                                [this](Result<void>) {
                                    diary.entries.emplace_back("first");
                                    ASSERT_TRUE(requests.submit([] {}, diary.entry("second "), kLong));
                                    settle();
                                }));
    ASSERT_TRUE(wait(kWait));
    EXPECT_EQ(requests.dispatch(), 1U);
    EXPECT_EQ(diary.entries, (std::vector<std::string>{"first"}));
    while (requests.pending() > 0) {
        ASSERT_TRUE(wait(kWait));
        requests.dispatch();
    }
    EXPECT_EQ(diary.entries, (std::vector<std::string>{"first", "second done"}));
}

TEST_P(RequestsLoops, see_what_an_exception_left)
{
    ASSERT_TRUE(requests.submit([] {}, [](Result<void>) { throw std::runtime_error("completion"); }, kLong));
    ASSERT_TRUE(requests.submit([] { return 2; }, diary.entry(), kLong));
    settle();
    ASSERT_TRUE(wait(kWait));
    EXPECT_THROW(requests.dispatch(), std::runtime_error);
    EXPECT_TRUE(diary.entries.empty());
    while (requests.pending() > 0) {
        ASSERT_TRUE(wait(kWait));
        requests.dispatch();
    }
    EXPECT_EQ(diary.entries, (std::vector<std::string>{"2"}));
}

TEST_P(RequestsLoops, may_be_nested_in_a_completion)
{
    // Like a dialog that waits for an answer in a loop of its own, while others are ready.
    ASSERT_TRUE(requests.submit([] {},
                                [this](Result<void>) {
                                    diary.entries.emplace_back("begin");
                                    bool answered = false;
                                    ASSERT_TRUE(requests.submit([] {}, [&answered](Result<void>) { answered = true; }, kLong));
                                    while (!answered) {
                                        ASSERT_TRUE(wait(kWait));
                                        requests.dispatch();
                                    }
                                    diary.entries.emplace_back("end");
                                }));
    ASSERT_TRUE(requests.submit([] { return 2; }, diary.entry(), kLong));
    settle();
    while (requests.pending() > 0) {
        ASSERT_TRUE(wait(kWait));
        requests.dispatch();
    }
    EXPECT_EQ(diary.entries, (std::vector<std::string>{"begin", "2", "end"}));
    EXPECT_FALSE(wait(0));
}

constexpr Kind kKinds[] = {
    {"poll", withPoll},
    {"select", withSelect},
    {"epoll", withEpoll},
    {"epoll_with_edges", withEdges},
};

INSTANTIATE_TEST_SUITE_P(Kinds, RequestsLoops, testing::ValuesIn(kKinds), [](const auto &test) { return test.param.name; });

TEST(RequestsDispatch, calls_nothing_before_an_answer)
{
    Requests requests = makeRequests();
    Gate gate;
    EXPECT_EQ(requests.dispatch(), 0U);
    ASSERT_TRUE(requests.submit(
        gate.request(), [](Result<int>) {}, 60s));
    ASSERT_TRUE(gate.waitUntilReached());
    EXPECT_FALSE(isReadable(requests));
    EXPECT_EQ(requests.dispatch(), 0U);
}

TEST(RequestsDispatch, does_not_hold_the_loop_while_completions_submit)
{
    Requests requests = makeRequests();
    int calls = 0;
    std::function<void(Result<void>)> again = [&](Result<void>) {
        ++calls;
        ASSERT_TRUE(requests.submit([] {}, again));
        ASSERT_TRUE(isReadable(requests, 10s));  // the answer is there before the completion returns
    };
    ASSERT_TRUE(requests.submit([] {}, again));
    ASSERT_TRUE(isReadable(requests, 10s));
    EXPECT_EQ(requests.dispatch(), 1U);
    EXPECT_EQ(requests.dispatch(), 1U);
    EXPECT_EQ(calls, 2);
}

/// Something else that runs in the loop's thread.
class Item : public kvo::detail::LoopItem {
public:
    Item(std::vector<std::string> &entries, std::string name) : entries_(entries), name_(std::move(name)) {}
    ~Item() override { entries_.push_back("end of " + name_); }
    void run() override { entries_.push_back(name_); }

private:
    std::vector<std::string> &entries_;
    std::string name_;
};

TEST(RequestsDispatch, runs_other_items_in_the_order_of_posting)
{
    Requests requests = makeRequests();
    std::vector<std::string> entries;
    const auto loop = requests.loop();
    EXPECT_TRUE(loop->post(std::make_unique<Item>(entries, "one")));
    EXPECT_TRUE(loop->post(std::make_unique<Item>(entries, "two")));
    EXPECT_EQ(requests.pending(), 0U);
    EXPECT_FALSE(requests.cancel(0)) << "only requests can be cancelled";
    ASSERT_TRUE(isReadable(requests, 10s));
    EXPECT_EQ(requests.dispatch(), 2U);
    EXPECT_EQ(entries, (std::vector<std::string>{"one", "end of one", "two", "end of two"}));
    EXPECT_EQ(requests.pending(), 0U);

    entries.clear();
    EXPECT_TRUE(loop->post(std::make_unique<Item>(entries, "three")));
    requests.close();
    EXPECT_EQ(entries, (std::vector<std::string>{"end of three"}));
    EXPECT_FALSE(loop->post(std::make_unique<Item>(entries, "four")));
    EXPECT_EQ(entries, (std::vector<std::string>{"end of three", "end of four"}));
}

}  // namespace

}  // namespace requests_test
