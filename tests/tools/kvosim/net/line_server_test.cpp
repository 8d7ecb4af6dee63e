// The line server: it answers each line with one reply, whatever clients do.
#include "kvosim/net/line_server.h"
#include "support/eventually.h"
#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/temporary_directory.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <gmock/gmock.h>
#include <linux/sockios.h>
#include <list>
#include <mutex>
#include <string>
#include <string_view>
#include <sys/ioctl.h>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

using kvosim::LineServerLimits;
using kvosim_test::Client;
using kvosim_test::exchange;
using support::eventually;
using testing::Contains;

constexpr std::size_t kLargeReply = 3'000'000;

/// Answers "<line>" with "re: <line>" and "large" with a very long line. Ends on "end".
class EchoServer {
public:
    explicit EchoServer(const LineServerLimits &limits = {})
        : server_(
              loop_, directory_ / "echo/sock", [this](std::string_view line, const auto &) { return answer(line); }, "too long",
              [this](std::string_view event) { note(event); }, limits),
          thread_([this] { loop_.run(); })
    {
    }
    EchoServer(const EchoServer &) = delete;
    EchoServer &operator=(const EchoServer &) = delete;
    ~EchoServer()
    {
        loop_.stop();
        thread_.join();
    }

    [[nodiscard]] std::string path() const { return directory_ / "echo/sock"; }
    std::vector<std::string> events()
    {
        const std::lock_guard guard(lock_);
        return events_;
    }
    /// Lets the server end itself, as a request can. Returns true when the server has reported its end.
    bool end()
    {
        exchange("end\n", path());
        return eventually([this] { return ended_.load(); });
    }

private:
    std::string answer(std::string_view line)
    {
        if (line == "end") {
            server_.end([this] { ended_ = true; });
        }
        return line == "large" ? std::string(kLargeReply, 'x') : "re: " + std::string(line);
    }
    void note(std::string_view event)
    {
        const std::lock_guard guard(lock_);
        events_.emplace_back(event);
    }
    kvosim_test::TemporaryDirectory directory_;
    std::mutex lock_;
    std::vector<std::string> events_;
    std::atomic<bool> ended_ = false;
    tools::EventLoop loop_;
    kvosim::LineServer server_;
    std::thread thread_;
};

TEST(LineServer, answers_and_closes_the_connection)
{
    const EchoServer server;
    EXPECT_EQ(exchange("hello\n", server.path()), "re: hello\n");
    EXPECT_EQ(exchange("hello\r\n", server.path()), "re: hello\n");
    EXPECT_EQ(exchange("\r\r\n", server.path()), "re: \r\n") << "one carriage return belongs to the line end";
}

TEST(LineServer, accepts_a_line_in_pieces)
{
    const EchoServer server;
    const Client client(server.path());
    for (const char *piece : {"h", "el", "lo", "\r", "\n"}) {
        client.send(piece);
        std::this_thread::sleep_for(5ms);
    }
    EXPECT_EQ(client.receiveAll(), "re: hello\n");
}

TEST(LineServer, answers_a_client_that_has_closed_its_side)
{
    const EchoServer server;
    const Client client(server.path());
    client.send("hello\n");
    shutdown(client.get(), SHUT_WR);
    EXPECT_EQ(client.receiveAll(), "re: hello\n");
}

TEST(LineServer, does_not_delay_clients_after_an_incomplete_line)
{
    const EchoServer server;
    const Client half(server.path());
    half.send("hel");
    EXPECT_EQ(exchange("other\n", server.path()), "re: other\n");
    half.send("lo\n");
    EXPECT_EQ(half.receiveAll(), "re: hello\n");
}

TEST(LineServer, does_not_delay_clients_if_a_reply_is_not_read)
{
    const EchoServer server;
    const Client slow(server.path());
    slow.send("large\n");
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(exchange("other\n", server.path()), "re: other\n");
    EXPECT_EQ(slow.receiveAll(), std::string(kLargeReply, 'x') + '\n');
}

TEST(LineServer, does_not_delay_clients_if_others_disconnect)
{
    EchoServer server;
    for (int i = 0; i < 20; ++i) {
        Client(server.path());
        Client(server.path()).send("hel");
        Client(server.path()).send("hello\n");
        Client(server.path()).send("large\n");
    }
    EXPECT_EQ(exchange("other\n", server.path()), "re: other\n");
    EXPECT_TRUE(eventually([&] {
        const auto events = server.events();
        return std::count(events.begin(), events.end(), "the client closed without a request") == 20 &&
               std::count(events.begin(), events.end(), "the client closed in the middle of its request") == 20;
    })) << testing::PrintToString(server.events());
}

TEST(LineServer, accepts_the_longest_line_and_refuses_one_byte_more)
{
    const EchoServer server({.longestLine = 100});
    const std::string longest(100, 'a');
    EXPECT_EQ(exchange(longest + '\n', server.path()), "re: " + longest + '\n');
    EXPECT_EQ(exchange(longest + "a\n", server.path()), "too long\n");
}

TEST(LineServer, refuses_a_line_that_is_too_long_before_its_end)
{
    EchoServer server;
    const Client client(server.path());
    // More than the socket buffers can store, so the client is still writing when it receives the reply.
    const std::string endless(2'000'000, 'a');
    std::thread writer([&] { client.send(endless); });
    EXPECT_EQ(client.receiveAll(), "too long\n");
    writer.join();
    EXPECT_THAT(server.events(), Contains("a request longer than 4096 bytes is refused"));
}

TEST(LineServer, sends_the_reply_despite_bytes_after_the_request)
{
    const EchoServer server;
    const Client client(server.path());
    client.send("hello\n" + std::string(100'000, 'z'));
    EXPECT_EQ(client.receiveAll(), "re: hello\n");
}

TEST(LineServer, closes_an_idle_connection)
{
    EchoServer server({.idleTimeout = 100ms});
    const Client silent(server.path());
    const Client half(server.path());
    half.send("hel");
    EXPECT_EQ(silent.receiveAll(), "");
    EXPECT_EQ(half.receiveAll(), "");
    EXPECT_THAT(server.events(), Contains("dropped before it was complete").Times(2));
}

TEST(LineServer, closes_the_connection_of_a_client_that_never_reads)
{
    EchoServer server({.idleTimeout = 100ms});
    const Client client(server.path());
    client.send("large\n");
    EXPECT_TRUE(eventually([&] { return !server.events().empty(); }));
    EXPECT_LT(client.receiveAll().size(), kLargeReply);
}

TEST(LineServer, limits_the_time_of_a_slow_request)
{
    const EchoServer server({.idleTimeout = 10s, .requestTimeout = 150ms});
    const Client client(server.path());
    EXPECT_TRUE(eventually([&] { return !client.send("a"); }))
        << "each byte is activity, but the request must still end in time";
}

TEST(LineServer, does_not_wait_long_for_a_client_to_close)
{
    EchoServer server({.lingerTimeout = 50ms});
    const Client client(server.path());
    client.send("hello\n");
    EXPECT_EQ(client.receiveAll(), "re: hello\n");
    EXPECT_TRUE(eventually([&] { return !client.send("a"); }));
    EXPECT_TRUE(server.events().empty());
}

/// Whether the server has read everything that the client has sent.
bool hasReadAll(const Client &client)
{
    int unread = 1;
    return ioctl(client.get(), SIOCOUTQ, &unread) == 0 && unread == 0;
}

TEST(LineServer, closes_the_longest_idle_connection_for_a_new_one)
{
    EchoServer server({.connections = 8});
    std::list<Client> idle;
    for (int i = 0; i < 8; ++i) {
        idle.emplace_back(server.path()).send("half");
        ASSERT_TRUE(eventually([&] { return hasReadAll(idle.back()); }));
    }
    EXPECT_EQ(exchange("other\n", server.path()), "re: other\n");
    EXPECT_EQ(idle.front().receiveAll(), "");
    idle.back().send("\n");
    EXPECT_EQ(idle.back().receiveAll(), "re: half\n");
    EXPECT_THAT(server.events(), testing::ElementsAre("dropped in favour of a newer connection"));
}

TEST(LineServer, does_not_delay_clients_during_a_flood_of_connections)
{
    const EchoServer server;
    std::atomic<bool> done = false;
    std::vector<std::thread> flood;
    for (int i = 0; i < 3; ++i) {
        flood.emplace_back([&] {
            while (!done) {
                const Client client(server.path());
            }
        });
    }
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(exchange("hello\n", server.path()), "re: hello\n");
    }
    done = true;
    for (std::thread &client : flood) {
        client.join();
    }
}

TEST(LineServer, serves_many_clients_at_once)
{
    constexpr int kClients = 64;
    constexpr int kRounds = 20;
    const EchoServer server;
    std::atomic<int> right = 0;
    std::vector<std::thread> threads;
    for (int client = 0; client < kClients; ++client) {
        threads.emplace_back([&, client] {
            for (int round = 0; round < kRounds; ++round) {
                const std::string text = std::to_string(client) + '.' + std::to_string(round);
                right += exchange(text + '\n', server.path()) == "re: " + text + '\n' ? 1 : 0;
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(right, kClients * kRounds);
}

// Clients peek at 1024 bytes at a time and pause if they find fewer bytes of an incomplete line.
TEST(LineServer, sends_a_long_reply_in_pieces_of_at_least_one_kib)
{
    const EchoServer server;
    const Client client(server.path());
    client.send("large\n");
    std::size_t received = 0;
    for (;;) {
        std::array<char, 1024> piece{};
        const ssize_t peeked = recv(client.get(), piece.data(), piece.size(), MSG_PEEK);
        ASSERT_GT(peeked, 0);
        const auto count = static_cast<std::size_t>(recv(client.get(), piece.data(), static_cast<std::size_t>(peeked), 0));
        received += count;
        if (piece[count - 1] == '\n') {
            break;
        }
        ASSERT_EQ(count, piece.size()) << "after " << received << " bytes";
    }
    EXPECT_EQ(received, kLargeReply + 1);
}

TEST(LineServer, ends_after_pending_replies_are_sent)
{
    EchoServer server({.shutdownTimeout = 10s});
    const Client reading(server.path());
    reading.send("large\n");
    const Client half(server.path());
    half.send("hel");
    std::string received;
    std::thread reader([&] {
        std::this_thread::sleep_for(50ms);
        received = reading.receiveAll();
    });
    EXPECT_TRUE(server.end());
    reader.join();
    EXPECT_EQ(received.size(), kLargeReply + 1);
    EXPECT_EQ(half.receiveAll(), "");
    EXPECT_THROW(Client{server.path()}, std::runtime_error);
    EXPECT_FALSE(std::filesystem::exists(server.path()));
}

TEST(LineServer, does_not_wait_at_its_end_for_a_client_that_does_not_read)
{
    EchoServer server({.shutdownTimeout = 50ms});
    const Client client(server.path());
    client.send("large\n");
    std::this_thread::sleep_for(20ms);
    EXPECT_TRUE(server.end());
}

}  // namespace
