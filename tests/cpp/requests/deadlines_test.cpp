// Deadlines: the completion comes then, whatever the service does, and what ran out of time is not sent.
#include "cpp/requests/waiting.h"
#include "support/scripted_service.h"

#include <kvo_hws/service.h>

#include <algorithm>
#include <optional>
#include <ostream>

namespace requests_test {

namespace {

using Clock = std::chrono::steady_clock;

Result<int> ask() { return Result<int>(KVO_HWS_isInitComplete()); }

TEST(RequestsDeadlines, end_requests_while_the_service_is_silent)
{
    // Without the deadline, the library waits for 4 s.
    const support::ScriptedService service({support::staysSilent(60s)});
    Requests requests = makeRequests();
    Diary diary;
    const auto begin = Clock::now();
    ASSERT_TRUE(requests.submit(ask, diary.entry(), 60ms));
    ASSERT_TRUE(dispatchAll(requests));
    const auto time = Clock::now() - begin;
    EXPECT_EQ(diary.entries, (std::vector<std::string>{"timeout"}));
    EXPECT_GE(time, 60ms);
    EXPECT_LT(time, 3s);
    EXPECT_FALSE(isReadable(requests));
}

TEST(RequestsDeadlines, drop_the_reply_that_comes_late)
{
    const support::ScriptedService service({support::dribbles("yes\n", 150ms), support::replies("no")});
    Requests requests = makeRequests();
    Diary diary;
    ASSERT_TRUE(requests.submit(ask, diary.entry("late "), 50ms));
    ASSERT_TRUE(requests.submit(ask, diary.entry(), 20s));
    ASSERT_TRUE(dispatchAll(requests));
    EXPECT_EQ(diary.entries, (std::vector<std::string>{"late timeout", "0"}));
}

TEST(RequestsDeadlines, are_not_awaited_if_the_service_closes_the_connection)
{
    const support::ScriptedService service({support::closesAfterRequest()});
    Requests requests = makeRequests();
    Diary diary;
    ASSERT_TRUE(requests.submit(ask, diary.entry(), 60s));
    ASSERT_TRUE(dispatchAll(requests));
    EXPECT_EQ(diary.entries, (std::vector<std::string>{"-1"}));
}

TEST(RequestsDeadlines, that_pass_while_a_request_waits_prevent_its_sending)
{
    std::optional<support::ScriptedService> silent(std::in_place, std::vector<support::Script>{support::staysSilent(60s)});
    Requests requests = makeRequests();
    Diary diary;
    ASSERT_TRUE(requests.submit(ask, diary.entry("first "), 60s));
    ASSERT_TRUE(support::eventually([&] { return silent->requests().size() == 1; }));
    ASSERT_TRUE(requests.submit([] { return KVO_HWS_setBacklight(1); }, diary.entry("second "), 20ms));
    ASSERT_TRUE(dispatchUntil(requests, [&] { return !diary.entries.empty(); }));
    EXPECT_EQ(diary.entries, (std::vector<std::string>{"second timeout"}));

    silent.reset();  // ends the exchange
    const support::ScriptedService service({support::replies("yes")});
    ASSERT_TRUE(requests.submit(ask, diary.entry("third "), 60s));
    ASSERT_TRUE(dispatchAll(requests));
    EXPECT_EQ(diary.entries, (std::vector<std::string>{"second timeout", "first -1", "third 1"}));
    EXPECT_EQ(service.requests(), (std::vector<std::string>{"isInitComplete\n"}));
}

TEST(RequestsDeadlines, that_pass_while_another_object_exchanges_do_not_prevent_the_sending)
{
    // The request waits inside the library, for the exchange in progress. Only there is it known when its turn comes.
    const support::ScriptedService service({support::dribbles("yes\n", 150ms), support::replies("no")});
    Requests other = makeRequests();
    Requests requests = makeRequests();
    Diary diary;
    ASSERT_TRUE(other.submit(ask, diary.entry("other "), 60s));
    ASSERT_TRUE(support::eventually([&] { return service.requests().size() == 1; }));
    ASSERT_TRUE(requests.submit(ask, diary.entry(), 20ms));
    ASSERT_TRUE(dispatchAll(requests));
    ASSERT_TRUE(dispatchAll(other));
    EXPECT_EQ(diary.entries, (std::vector<std::string>{"timeout", "other 1"}));
    EXPECT_TRUE(support::eventually([&] { return service.requests().size() == 2; }));
}

TEST(RequestsDeadlines, are_also_seen_by_the_worker_before_the_loop_dispatches)
{
    Requests requests = makeRequests();
    Diary diary;
    Gate gate;
    std::atomic<bool> secondCalled{false};
    std::atomic<bool> thirdCalled{false};
    ASSERT_TRUE(requests.submit(gate.request(1), diary.entry("first "), 60s));
    ASSERT_TRUE(requests.submit([&] { secondCalled = true; }, diary.entry("second "), 10ms));
    ASSERT_TRUE(requests.submit([&] { thirdCalled = true; }, diary.entry("third "), 60s));
    ASSERT_TRUE(gate.waitUntilReached());
    std::this_thread::sleep_for(20ms);  // longer than the deadline
    gate.release();
    ASSERT_TRUE(support::eventually([&] { return thirdCalled.load(); }));
    EXPECT_FALSE(secondCalled);
    ASSERT_TRUE(dispatchAll(requests));
    EXPECT_EQ(diary.entries, (std::vector<std::string>{"first 1", "second timeout", "third done"}));
}

TEST(RequestsDeadlines, apply_whatever_the_order_of_submission)
{
    Requests requests = makeRequests();
    Diary diary;
    Gate gate;
    ASSERT_TRUE(requests.submit(gate.request(1), diary.entry("first "), 60s));
    ASSERT_TRUE(requests.submit([] {}, diary.entry("second "), 300ms));
    ASSERT_TRUE(requests.submit([] {}, diary.entry("third "), 20ms));
    ASSERT_TRUE(requests.submit([] {}, diary.entry("fourth "), 60s));
    ASSERT_TRUE(dispatchUntil(requests, [&] { return diary.entries.size() == 2; }));
    gate.release();
    ASSERT_TRUE(dispatchAll(requests));
    ASSERT_EQ(diary.entries.size(), 4U);
    std::sort(diary.entries.begin(), diary.entries.begin() + 2);  // a stopped machine may find both passed at once
    EXPECT_EQ(diary.entries, (std::vector<std::string>{"second timeout", "third timeout", "first 1", "fourth done"}));
}

TEST(RequestsDeadlines, that_have_passed_together_come_in_the_order_of_submission)
{
    Requests requests = makeRequests();
    Diary diary;
    Gate gate;
    ASSERT_TRUE(requests.submit(gate.request(), diary.entry("first "), 20ms));
    ASSERT_TRUE(requests.submit([] {}, diary.entry("second "), 10ms));
    ASSERT_TRUE(requests.submit([] {}, diary.entry("third "), 15ms));
    ASSERT_TRUE(gate.waitUntilReached());
    std::this_thread::sleep_for(30ms);  // longer than all
    EXPECT_EQ(requests.dispatch(), 3U);
    EXPECT_EQ(diary.entries, (std::vector<std::string>{"first timeout", "second timeout", "third timeout"}));
}

TEST(RequestsDeadlines, do_not_matter_once_the_answer_is_there)
{
    Requests requests = makeRequests();
    Diary diary;
    const auto begin = Clock::now();
    bool inTime = false;
    // A stopped machine may miss the deadline; then the attempt shows nothing.
    for (int attempt = 0; attempt < 20 && !inTime; ++attempt) {
        diary.entries.clear();
        std::atomic<Clock::rep> answered{0};
        const auto submitted = Clock::now();
        ASSERT_TRUE(requests.submit([&] { answered = (Clock::now() - begin).count(); }, diary.entry(), 200ms));
        ASSERT_TRUE(support::eventually([&] { return answered != 0; }));
        inTime = Clock::duration(answered) + begin - submitted < 100ms;
        std::this_thread::sleep_for(250ms);
        ASSERT_TRUE(dispatchAll(requests));
    }
    ASSERT_TRUE(inTime);
    EXPECT_EQ(diary.entries, (std::vector<std::string>{"done"}));
}

TEST(RequestsDeadlines, of_requests_that_are_done_wake_the_loop_at_most_once)
{
    Requests requests = makeRequests();
    Diary diary;
    ASSERT_TRUE(requests.submit([] {}, diary.entry(), 50ms));
    ASSERT_TRUE(dispatchAll(requests));
    ASSERT_TRUE(isReadable(requests, 10s)) << "the alarm of a request that is done stays set, which saves a system call";
    EXPECT_EQ(requests.dispatch(), 0U);
    EXPECT_FALSE(isReadable(requests, 100ms));
}

struct Deadline {
    const char *name;
    std::chrono::milliseconds deadline;
    bool valid;
};

void PrintTo(const Deadline &deadline, std::ostream *out) { *out << deadline.name; }

class RequestsDeadlineRange : public testing::TestWithParam<Deadline> {};

TEST_P(RequestsDeadlineRange, is_checked_at_submission)
{
    Requests requests = makeRequests();
    const auto function = std::make_shared<Record>();
    const auto id = requests.submit([witness = Witness(function)] {}, [](Result<void>) {}, GetParam().deadline);
    EXPECT_EQ(id.has_value(), GetParam().valid);
    if (!id) {
        EXPECT_EQ(id.error().meaning(), Errc::out_of_range);
        EXPECT_EQ(requests.pending(), 0U);
        EXPECT_TRUE(function->destroyed);
    }
}

constexpr Deadline kDeadlines[] = {
    {"negative", -1ms, false},
    {"zero", 0ms, false},
    {"too_short", 9ms, false},
    {"shortest", 10ms, true},
    {"longest", 60s, true},
    {"too_long", 60'001ms, false},
    {"largest_number", std::chrono::milliseconds::max(), false},
};

INSTANTIATE_TEST_SUITE_P(Deadlines, RequestsDeadlineRange, testing::ValuesIn(kDeadlines),
                         [](const auto &test) { return test.param.name; });

}  // namespace

}  // namespace requests_test
