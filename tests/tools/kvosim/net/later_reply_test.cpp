// Replies of the line server that come later than the call that asks for them.
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

/// Answers all later, when it is told to.
class LaterServer {
public:
    LaterServer()
        : server_(loop_, directory_ / "later/sock",
                  [this](std::string_view, const kvosim::LineServer::Caller &caller) -> kvosim::Reply {
                      EXPECT_FALSE(caller.isWaiting()) << "its reply may still be given at once";
                      callers_.push_back(caller);
                      ++asked_;
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
    [[nodiscard]] int asked() const { return asked_; }
    /// Stops the loop, so that callers can be used from the test's thread.
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
    kvosim::EventLoop loop_;
    std::vector<kvosim::LineServer::Caller> callers_;
    std::atomic<int> asked_ = 0;
    kvosim::LineServer server_;
    std::thread thread_;
};

TEST(LaterReply, goes_to_its_own_caller_once)
{
    LaterServer server;
    const Client first(server.path());
    first.send("a\n");
    ASSERT_TRUE(eventually([&] { return server.asked() == 1; }));
    const Client second(server.path());
    second.send("b\n");
    ASSERT_TRUE(eventually([&] { return server.asked() == 2; }));
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

TEST(LaterReply, is_dropped_when_the_client_has_gone)
{
    LaterServer server;
    {
        const Client gone(server.path());
        gone.send("a\n");
        ASSERT_TRUE(eventually([&] { return server.asked() == 1; }));
    }
    // Both may have the same descriptor in the server.
    const Client next(server.path());
    next.send("b\n");
    ASSERT_TRUE(eventually([&] { return server.asked() == 2; }));
    const auto &callers = server.stop();
    EXPECT_FALSE(callers[0].isWaiting());
    callers[0].reply(std::string("to a"));
    EXPECT_TRUE(callers[1].isWaiting());
    callers[1].reply(std::string("to b"));
    EXPECT_EQ(next.receiveAll(), "to b\n");
}

TEST(LaterReply, is_dropped_when_the_server_has_gone)
{
    std::optional<LaterServer> server(std::in_place);
    const Client client(server->path());
    client.send("a\n");
    ASSERT_TRUE(eventually([&] { return server->asked() == 1; }));
    const std::vector<kvosim::LineServer::Caller> callers = server->stop();
    server.reset();
    ASSERT_EQ(callers.size(), 1U);
    EXPECT_FALSE(callers[0].isWaiting());
    callers[0].reply(std::string("late"));
}

}  // namespace
