// The notification that a message was received.
#include <kvo_hws/runtime.h>

#include "support/alarms.h"
#include "support/time_of.h"

#include <chrono>
#include <ctime>
#include <gtest/gtest.h>
#include <thread>

using namespace std::chrono_literals;

namespace {

using support::timeOf;

class ReceivedNotify : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(InitReceivedNotify(&semaphore_), 0); }
    void TearDown() override { EXPECT_EQ(DeleteReceivedNotify(&semaphore_), 0); }
    sem_t semaphore_{};
};

TEST_F(ReceivedNotify, creating_does_nothing) { EXPECT_EQ(CreateReceivedNotify(), 0); }

TEST_F(ReceivedNotify, starts_with_nothing_posted)
{
    int value = -1;
    EXPECT_EQ(sem_getvalue(&semaphore_, &value), 0);
    EXPECT_EQ(value, 0);
}

TEST_F(ReceivedNotify, that_is_posted_once_ends_one_wait)
{
    NotifyReceived(&semaphore_);
    EXPECT_EQ(WaitReceivedNotify(&semaphore_, 5000), 1);
    EXPECT_EQ(WaitReceivedNotify(&semaphore_, 0), 0);
}

TEST_F(ReceivedNotify, that_is_posted_during_a_wait_ends_it)
{
    std::thread poster([this] {
        std::this_thread::sleep_for(50ms);
        NotifyReceived(&semaphore_);
    });
    EXPECT_EQ(WaitReceivedNotify(&semaphore_, 10'000), 1);
    poster.join();
}

TEST_F(ReceivedNotify, posting_null_does_nothing) { NotifyReceived(nullptr); }

/// The part below one second counts in microseconds: a wait of 1990 ms ends after 1.00099 s, one of 990 ms almost at once.
TEST_F(ReceivedNotify, waits_only_for_whole_seconds)
{
    const auto waitFor = [this](unsigned milliseconds) {
        int result = -1;
        std::chrono::milliseconds taken{};
        do {  // in one of a thousand calls the deadline is invalid
            taken = timeOf([&] { result = WaitReceivedNotify(&semaphore_, milliseconds); });
        } while (result == -1);
        EXPECT_EQ(result, 0);
        return taken;
    };
    const auto longWait = waitFor(1990);
    EXPECT_GE(longWait, 995ms);
    EXPECT_LT(longWait, 1900ms);
    EXPECT_LT(waitFor(990), 900ms);
}

TEST_F(ReceivedNotify, a_deadline_past_the_current_second_is_a_failure)
{
    // 999 ms count as 999 us here; started in a second's last 999 us, the wait would end after that second.
    NotifyReceived(&semaphore_);
    int result = 1;
    for (int attempt = 0; attempt < 5 && result == 1; ++attempt) {
        timespec now{};
        do {
            clock_gettime(CLOCK_REALTIME, &now);
        } while (now.tv_nsec < 999'050'000 || now.tv_nsec > 999'400'000);
        result = WaitReceivedNotify(&semaphore_, 999);
        NotifyReceived(&semaphore_);
    }
    EXPECT_EQ(result, -1) << "although it has been posted";
}

TEST_F(ReceivedNotify, a_signal_is_a_failure)
{
    const support::Alarms alarms(50ms, 50ms);
    EXPECT_EQ(WaitReceivedNotify(&semaphore_, 10'000), -1);
}

}  // namespace
