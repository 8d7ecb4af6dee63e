// A request can be cancelled until its completion is called.
#include "cpp/requests/waiting.h"
#include "support/scripted_service.h"

#include <kvo_hws/service.h>

#include <optional>
#include <utility>

namespace requests_test {

namespace {

TEST(RequestsCancel, prevents_the_sending_of_a_request_that_waits)
{
    const support::ScriptedService service({support::replies("yes")});
    Requests requests = makeRequests();
    Diary diary;
    Gate gate;
    const auto function = std::make_shared<Record>();
    const auto completion = std::make_shared<Record>();
    ASSERT_TRUE(requests.submit(gate.request(), diary.entry("first ")));
    ASSERT_TRUE(gate.waitUntilReached());
    const auto id = requests.submit([witness = Witness(function)] { return KVO_HWS_setBacklight(1); },
                                    [witness = Witness(completion)](Result<int>) { FAIL() << "called"; });
    ASSERT_TRUE(requests.submit([] { return KVO_HWS_isInitComplete(); }, diary.entry("third ")));
    EXPECT_EQ(requests.pending(), 3U);
    EXPECT_TRUE(requests.cancel(*id));
    EXPECT_EQ(requests.pending(), 2U);
    EXPECT_TRUE(function->destroyed);
    EXPECT_TRUE(completion->destroyed);
    EXPECT_FALSE(requests.cancel(*id));
    gate.release();
    ASSERT_TRUE(dispatchAll(requests));
    EXPECT_EQ(diary.entries, (std::vector<std::string>{"first 0", "third 1"}));
    EXPECT_EQ(service.requests(), (std::vector<std::string>{"isInitComplete\n"}));
}

TEST(RequestsCancel, leaves_the_exchange_in_progress_to_the_worker)
{
    Requests requests = makeRequests();
    Diary diary;
    Gate gate;
    const auto function = std::make_shared<Record>();
    const auto completion = std::make_shared<Record>();
    const auto id = requests.submit([request = gate.request(), witness = Witness(function)] { return request(); },
                                    [witness = Witness(completion)](Result<int>) { FAIL() << "called"; });
    ASSERT_TRUE(requests.submit([] { return 2; }, diary.entry("second ")));
    ASSERT_TRUE(gate.waitUntilReached());
    EXPECT_TRUE(requests.cancel(*id));
    EXPECT_EQ(requests.pending(), 1U);
    EXPECT_TRUE(completion->destroyed);
    EXPECT_FALSE(function->destroyed);
    gate.release();
    ASSERT_TRUE(dispatchAll(requests));
    EXPECT_EQ(diary.entries, (std::vector<std::string>{"second 2"}));
    EXPECT_NE(function->thread.load(), std::this_thread::get_id());
}

TEST(RequestsCancel, drops_an_answer_that_was_not_dispatched)
{
    Requests requests = makeRequests();
    const auto id = requests.submit([] {}, [](Result<void>) { FAIL() << "called"; });
    ASSERT_TRUE(isReadable(requests, 10s));
    EXPECT_TRUE(requests.cancel(*id));
    EXPECT_EQ(requests.pending(), 0U);
    EXPECT_EQ(requests.dispatch(), 0U);
    EXPECT_FALSE(isReadable(requests));
}

TEST(RequestsCancel, drops_a_request_that_ran_out_of_time)
{
    Requests requests = makeRequests();
    Gate gate;
    const auto id = requests.submit(
        gate.request(), [](Result<int>) { FAIL() << "called"; }, 10ms);
    ASSERT_TRUE(isReadable(requests, 10s));
    EXPECT_TRUE(requests.cancel(*id));
    EXPECT_EQ(requests.dispatch(), 0U);
    EXPECT_FALSE(isReadable(requests, 30ms));
}

TEST(RequestsCancel, is_too_late_when_the_completion_was_called)
{
    Requests requests = makeRequests();
    std::optional<bool> inside;
    Requests::Id id = 0;
    const auto submitted = requests.submit([] {}, [&](Result<void>) { inside = requests.cancel(id); });
    id = *submitted;
    ASSERT_TRUE(dispatchAll(requests));
    EXPECT_EQ(inside, false);
    EXPECT_FALSE(requests.cancel(id));
}

TEST(RequestsCancel, of_a_number_that_was_never_returned_does_nothing)
{
    Requests requests = makeRequests();
    Gate gate;
    const auto id = requests.submit(gate.request(), [](Result<int>) {});
    EXPECT_NE(*id, 0U);
    EXPECT_FALSE(requests.cancel(0));
    EXPECT_FALSE(requests.cancel(*id + 1));
    EXPECT_EQ(requests.pending(), 1U);
}

TEST(RequestsCancel, in_a_completion_prevents_completions_that_are_ready)
{
    Requests requests = makeRequests();
    Diary diary;
    Gate gate;
    std::vector<Requests::Id> ids;
    ASSERT_TRUE(requests.submit(gate.request(1), [&](Result<int>) { EXPECT_TRUE(requests.cancel(ids.at(0))); }));
    ids.push_back(*requests.submit([] {}, [](Result<void>) { FAIL() << "called"; }));
    std::atomic<bool> lastCalled{false};
    ASSERT_TRUE(requests.submit([&] { lastCalled = true; }, diary.entry("last ")));
    gate.release();
    ASSERT_TRUE(support::eventually([&] { return lastCalled.load(); }));
    ASSERT_TRUE(dispatchAll(requests));
    EXPECT_EQ(diary.entries, (std::vector<std::string>{"last done"}));
}

/// Part of a function: uses the object when it is destroyed.
class User {
public:
    explicit User(const Requests &requests, int &uses) : requests_(&requests), uses_(&uses) {}
    User(User &&other) noexcept : requests_(std::exchange(other.requests_, nullptr)), uses_(other.uses_) {}
    ~User()
    {
        if (requests_ != nullptr) {
            static_cast<void>(requests_->pending());
            ++*uses_;
        }
    }

private:
    const Requests *requests_;
    int *uses_;
};

TEST(RequestsCancel, and_everything_else_that_destroys_functions_holds_no_lock)
{
    int uses = 0;
    Requests requests = makeRequests(3);
    Gate gate;
    const auto submit = [&] {
        return requests.submit([user = User(requests, uses)] {}, [user = User(requests, uses)](Result<void>) {});
    };
    ASSERT_TRUE(submit());
    ASSERT_TRUE(dispatchAll(requests));
    EXPECT_EQ(uses, 2);
    ASSERT_TRUE(requests.submit(gate.request(), [user = User(requests, uses)](Result<int>) {}));
    ASSERT_TRUE(gate.waitUntilReached());
    ASSERT_TRUE(submit());
    ASSERT_TRUE(requests.cancel(*submit()));
    EXPECT_EQ(uses, 4);
    ASSERT_TRUE(submit());
    EXPECT_FALSE(submit());
    EXPECT_EQ(uses, 6);
    gate.release();
    requests.close();
    EXPECT_EQ(uses, 11);
    EXPECT_FALSE(submit());
    EXPECT_EQ(uses, 13);
}

TEST(RequestsCancel, makes_room_for_another_request)
{
    Requests requests = makeRequests(2);
    Gate gate;
    const auto first = requests.submit(gate.request(), [](Result<int>) {});
    ASSERT_TRUE(requests.submit([] {}, [](Result<void>) {}));
    EXPECT_EQ(requests.submit([] {}, [](Result<void>) {}).error().meaning(), Errc::full);
    EXPECT_TRUE(requests.cancel(*first));
    EXPECT_TRUE(requests.submit([] {}, [](Result<void>) {}));
}

}  // namespace

}  // namespace requests_test
