// Streams: writing to a peer that does not read.
#include "kvosim/net/stream.h"

#include <gmock/gmock.h>

#include <optional>
#include <sys/epoll.h>
#include <sys/socket.h>

using namespace std::chrono_literals;

namespace {

using kvosim::Stream;
using tools::Descriptor;
using tools::EventLoop;

class Pair : public testing::Test {
protected:
    void SetUp() override
    {
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends), 0);
        mine = tools::Descriptor(ends[0]);
        other = tools::Descriptor(ends[1]);
    }

    tools::EventLoop loop;
    tools::Descriptor mine;
    tools::Descriptor other;
};

TEST_F(Pair, a_stream_accepts_writes_up_to_the_size_of_its_buffer)
{
    constexpr std::size_t kRoom = 1000;
    Stream stream(loop, std::move(mine), kRoom, {[](auto) {}, [](const auto &) {}});
    EXPECT_FALSE(stream.write(std::string(kRoom + 1, 'x'))) << "at once";
    std::size_t written = 0;
    while (stream.write("0123456789")) {
        written += 10;
    }
    EXPECT_FALSE(stream.write("0123456789"));
    // The peer finally receives all accepted bytes in order.
    std::string received;
    loop.watch(other.get(), EPOLLIN, [&](uint32_t) {
        char piece[4096];
        const ssize_t count = recv(other.get(), piece, sizeof piece, 0);
        received.append(piece, count > 0 ? static_cast<std::size_t>(count) : 0);
        if (received.size() >= written) {
            loop.stop();
        }
    });
    loop.after(5s, [&] { loop.stop(); });
    loop.run();
    ASSERT_EQ(received.size(), written);
    for (std::size_t i = 0; i < written; i += 10) {
        ASSERT_EQ(received.substr(i, 10), "0123456789");
    }
    loop.unwatch(other.get());
}

TEST_F(Pair, a_stream_may_be_destroyed_by_its_callbacks)
{
    for (const bool byClosing : {false, true}) {
        SetUp();
        tools::EventLoop own;
        std::optional<Stream> stream;
        const auto destroy = [&] {
            stream.reset();
            own.stop();
        };
        stream.emplace(own, std::move(mine), 10, Stream::Callbacks{[&](auto) { destroy(); }, [&](const auto &) { destroy(); }});
        if (byClosing) {
            other = tools::Descriptor();
        } else {
            ASSERT_EQ(send(other.get(), "x", 1, 0), 1);
        }
        own.run();
        EXPECT_FALSE(stream);
    }
}

}  // namespace
