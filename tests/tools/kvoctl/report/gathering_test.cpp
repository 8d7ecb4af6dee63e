// A part that fails, crashes or hangs costs only itself.
#include "kvoctl/report/gathering.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace {

using namespace kvoctl::reporting;
using namespace std::chrono_literals;
using testing::HasSubstr;

Part part(const std::function<Content(const Circumstances &)> &make, std::chrono::seconds limit = 20s)
{
    return {"part.txt", "a part", limit, make};
}

Content textContent(const std::string &text) { return {.files = {{"part.txt", text}}}; }

Part goodPart()
{
    return part([](const Circumstances & /*all*/) { return textContent("good"); });
}

/// Waits for SIGTERM, which must be blocked. (pause() would miss one that has already come.)
void waitForTermination(const sigset_t &termination)
{
    int number = 0;
    sigwait(&termination, &number);
}

sigset_t blockTermination()
{
    sigset_t termination;
    sigemptyset(&termination);
    sigaddset(&termination, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &termination, nullptr);
    return termination;
}

void expectGood(const Gathered &gathered)
{
    EXPECT_EQ(gathered.failure, "");
    ASSERT_EQ(gathered.content.files.size(), 1U);
    EXPECT_EQ(gathered.content.files[0].content, "good");
}

TEST(GatheredPart, has_all_files_with_any_bytes)
{
    const std::string bytes = std::string("\0\xFF\n", 3) + std::string(3'000'000, 'x');
    Gathering gathering(1);
    const Gathered gathered =
        gathering.gather(part([&](const Circumstances & /*all*/) {
                             return Content{.files = {{"a", bytes, Form::log}, {"b", ""}}, .notes = {"n"}};
                         }),
                         {});
    EXPECT_EQ(gathered.failure, "");
    ASSERT_EQ(gathered.content.files.size(), 2U);
    EXPECT_TRUE(gathered.content.files[0].content == bytes);
    EXPECT_EQ(gathered.content.files[0].form, Form::log);
    EXPECT_EQ(gathered.content.files[1].name, "b");
    EXPECT_THAT(gathered.content.notes, testing::ElementsAre("n"));
}

TEST(GatheredPart, knows_the_circumstances_and_may_show_progress)
{
    Gathering gathering(1);
    const Gathered gathered = gathering.gather(part([](const Circumstances &all) {
                                                   for (int i = 0; i < 100'000; ++i) {
                                                       all.progress("step " + std::to_string(i));
                                                   }
                                                   return textContent(all.serviceFault);
                                               }),
                                               {.serviceFault = "dead"});
    ASSERT_EQ(gathered.failure, "");
    EXPECT_EQ(gathered.content.files[0].content, "dead");
}

TEST(GatheredPart, that_throws_has_the_reason)
{
    Gathering gathering(2);
    const Gathered failed =
        gathering.gather(part([](const Circumstances & /*all*/) -> Content { throw std::runtime_error("no such thing"); }), {});
    EXPECT_EQ(failed.failure, "no such thing");
    EXPECT_TRUE(failed.content.files.empty());
    expectGood(gathering.gather(goodPart(), {}));
}

TEST(GatheredPart, that_crashes_has_the_signal_as_reason)
{
    Gathering gathering(2);
    const Gathered failed = gathering.gather(part([](const Circumstances & /*all*/) -> Content {
                                                 raise(SIGKILL);  // no sanitizer handles it
                                                 return {};
                                             }),
                                             {});
    EXPECT_EQ(failed.failure, "kvoctl itself failed here: Killed");
    expectGood(gathering.gather(goodPart(), {}));
}

TEST(GatheredPart, that_hangs_is_ended_after_its_limit)
{
    Gathering gathering(2);
    const auto begin = std::chrono::steady_clock::now();
    const Gathered failed = gathering.gather(part(
                                                 [](const Circumstances & /*all*/) -> Content {
                                                     pause();
                                                     return {};
                                                 },
                                                 1s),
                                             {});
    EXPECT_EQ(failed.failure, "it was not done after 1 s");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
    expectGood(gathering.gather(goodPart(), {}));
    EXPECT_FALSE(gathering.isEnded());
}

TEST(GatheredPart, keeps_messages_apart_from_the_content)
{
    Gathering gathering(1);
    const Gathered gathered = gathering.gather(part([](const Circumstances & /*all*/) {
                                                   std::fprintf(stderr, "kvo_hws: can not\n");
                                                   return textContent("good");
                                               }),
                                               {});
    expectGood(gathered);
    EXPECT_EQ(gathered.messages, "kvo_hws: can not\n");
}

TEST(GatheringThatIsEnded, keeps_what_the_part_returns_and_makes_no_other)
{
    Gathering gathering(2);
    const Gathered first = gathering.gather(part([](const Circumstances & /*all*/) {
                                                const sigset_t termination = blockTermination();
                                                kill(getppid(), SIGINT);
                                                waitForTermination(termination);
                                                return textContent("half");
                                            }),
                                            {});
    EXPECT_EQ(first.failure, "");
    ASSERT_EQ(first.content.files.size(), 1U);
    EXPECT_EQ(first.content.files[0].content, "half");
    EXPECT_THAT(first.content.notes, testing::ElementsAre("it was ended early"));
    EXPECT_TRUE(gathering.isEnded());
    EXPECT_EQ(gathering.gather(goodPart(), {}).failure, "the report was ended before this part was made");
}

TEST(GatheringThatIsEnded, ends_a_part_that_waits)
{
    Gathering gathering(1);
    const Gathered failed = gathering.gather(part([](const Circumstances & /*all*/) -> Content {
                                                 kill(getppid(), SIGHUP);
                                                 pause();
                                                 return {};
                                             }),
                                             {});
    EXPECT_EQ(failed.failure, "the report was ended while this part was made");
}

TEST(GatheringThatIsEnded, throws_if_it_is_ended_twice)
{
    Gathering gathering(1);
    const auto gather = [&] {
        gathering.gather(part([](const Circumstances & /*all*/) -> Content {
                             const sigset_t termination = blockTermination();
                             kill(getppid(), SIGINT);
                             waitForTermination(termination);
                             kill(getppid(), SIGTERM);
                             waitForTermination(termination);
                             return {};
                         }),
                         {});
    };
    EXPECT_THROW(gather(), std::runtime_error);
}

}  // namespace
