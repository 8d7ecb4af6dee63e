// The event loop: removed descriptors, timed actions, and its end.
#include "common/event_loop.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <sys/epoll.h>
#include <thread>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

struct Pipe {
    Pipe()
    {
        std::array<int, 2> ends{};
        if (pipe(ends.data()) == 0) {
            out = tools::Descriptor(ends[0]);
            in = tools::Descriptor(ends[1]);
        }
    }
    void fill() const { EXPECT_EQ(write(in.get(), "x", 1), 1); }

    tools::Descriptor out;
    tools::Descriptor in;
};

TEST(EventLoop, runs_timed_actions_in_order)
{
    tools::EventLoop loop;
    std::string order;
    loop.after(20ms, [&] { order += 'c'; });
    loop.after(1ms, [&] {
        order += 'a';
        loop.after(1ms, [&] { order += 'b'; });
    });
    loop.after(40ms, [&] { loop.stop(); });
    loop.run();
    EXPECT_EQ(order, "abc");
}

TEST(EventLoop, reacts_to_a_descriptor_until_it_is_removed)
{
    tools::EventLoop loop;
    const Pipe pipe;
    int reactions = 0;
    loop.watch(pipe.out.get(), EPOLLIN, [&](uint32_t events) {
        EXPECT_NE(events & EPOLLIN, 0U);
        if (++reactions == 3) {
            loop.unwatch(pipe.out.get());
            loop.after(10ms, [&] { loop.stop(); });
        }
    });
    pipe.fill();
    loop.run();
    EXPECT_EQ(reactions, 3);
}

TEST(EventLoop, does_not_react_to_a_descriptor_that_was_removed_in_the_same_round)
{
    tools::EventLoop loop;
    const Pipe first;
    const Pipe second;
    int reactions = 0;
    const auto react = [&](uint32_t) {
        ++reactions;
        loop.unwatch(first.out.get());
        loop.unwatch(second.out.get());
        loop.after(10ms, [&] { loop.stop(); });
    };
    loop.watch(first.out.get(), EPOLLIN, react);
    loop.watch(second.out.get(), EPOLLIN, react);
    first.fill();
    second.fill();
    loop.run();
    EXPECT_EQ(reactions, 1);
}

TEST(EventLoop, can_be_stopped_by_another_thread)
{
    tools::EventLoop loop;
    std::thread stopper([&] {
        std::this_thread::sleep_for(10ms);
        loop.stop();
    });
    loop.run();
    stopper.join();
}

}  // namespace
