// Deferred replies of the line server, sent after the request handler has returned.
#include "kvosim/net/line_server.h"
#include "support/eventually.h"
#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/temporary_directory.h"

#include <atomic>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using kvosim_test::Client;
using support::eventually;

/// Defers all replies until the test sends them.
class LaterServer {
public:
    LaterServer()
        : server_(loop_, directory_ / "later/sock",
                  [this](std::string_view, const kvosim::LineServer::Caller &caller) -> kvosim::Reply {
                      EXPECT_FALSE(caller.isWaiting()) << "the handler may still reply at once";
                      callers_.push_back(caller);
                      ++requests_;
                      return kvosim::Reply::Mode::later;
                  },
                  "too long", {}, {.connections = 2}),
          thread_([this] { loop_.run(); })
    {
    }
    LaterServer(const LaterServer &) = delete;
    LaterServer &operator=(const LaterServer &) = delete;
    ~LaterServer() { stop(); }

    [[nodiscard]] std::string path() const { return directory_ / "later/sock"; }
    [[nodiscard]] int requests() const { return requests_; }
    /// Stops the loop, so the test's thread can use the callers.
    std::vector<kvosim::LineServer::Caller> &stop()
    {
        loop_.stop();
        if (thread_.joinable()) {
            thread_.join();
        }
        return callers_;
    }

private:
    kvosim_test::TemporaryDirectory directory_;
    tools::EventLoop loop_;
    std::vector<kvosim::LineServer::Caller> callers_;
    std::atomic<int> requests_ = 0;
    kvosim::LineServer server_;
    std::thread thread_;
};

TEST(LaterReply, is_sent_once_to_the_right_client)
{
    LaterServer server;
    const Client first(server.path());
    first.send("a\n");
    ASSERT_TRUE(eventually([&] { return server.requests() == 1; }));
    const Client second(server.path());
    second.send("b\n");
    ASSERT_TRUE(eventually([&] { return server.requests() == 2; }));
    const auto &callers = server.stop();
    EXPECT_TRUE(callers[0].isWaiting());
    EXPECT_TRUE(callers[1].isWaiting());
    callers[1].reply(std::string("to b"));
    callers[1].reply(std::string("again"));
    callers[0].reply(std::string("to a"));
    EXPECT_FALSE(callers[0].isWaiting());
    EXPECT_EQ(second.receiveAll(), "to b\n");
    EXPECT_EQ(first.receiveAll(), "to a\n");
}

TEST(LaterReply, is_discarded_if_the_client_has_disconnected)
{
    LaterServer server;
    {
        const Client gone(server.path());
        gone.send("a\n");
        ASSERT_TRUE(eventually([&] { return server.requests() == 1; }));
    }
    // Both may use the same descriptor number in the server.
    const Client next(server.path());
    next.send("b\n");
    ASSERT_TRUE(eventually([&] { return server.requests() == 2; }));
    const auto &callers = server.stop();
    EXPECT_FALSE(callers[0].isWaiting());
    callers[0].reply(std::string("to a"));
    EXPECT_TRUE(callers[1].isWaiting());
    callers[1].reply(std::string("to b"));
    EXPECT_EQ(next.receiveAll(), "to b\n");
}

TEST(LaterReply, is_discarded_if_the_server_has_ended)
{
    std::optional<LaterServer> server(std::in_place);
    const Client client(server->path());
    client.send("a\n");
    ASSERT_TRUE(eventually([&] { return server->requests() == 1; }));
    const std::vector<kvosim::LineServer::Caller> callers = server->stop();
    server.reset();
    ASSERT_EQ(callers.size(), 1U);
    EXPECT_FALSE(callers[0].isWaiting());
    callers[0].reply(std::string("late"));
}

}  // namespace
