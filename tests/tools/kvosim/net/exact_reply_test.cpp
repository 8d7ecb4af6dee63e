// Replies whose every byte and pause is given.
#include "kvosim/net/line_server.h"
#include "support/time_of.h"
#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/named_row.h"
#include "tools/kvosim/support/temporary_directory.h"

#include <chrono>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

using kvosim::ExactReply;
using kvosim_test::Client;
using End = ExactReply::End;

/// Answers every request with one reply.
class ExactServer {
public:
    explicit ExactServer(ExactReply reply)
        : server_(
              loop_, directory_ / "exact/sock", [reply = std::move(reply)](std::string_view, const auto &) { return reply; },
              "too long"),
          thread_([this] { loop_.run(); })
    {
    }
    ExactServer(const ExactServer &) = delete;
    ExactServer &operator=(const ExactServer &) = delete;
    ~ExactServer()
    {
        loop_.stop();
        thread_.join();
    }

    [[nodiscard]] std::string path() const { return directory_ / "exact/sock"; }

private:
    kvosim_test::TemporaryDirectory directory_;
    tools::EventLoop loop_;
    kvosim::LineServer server_;
    std::thread thread_;
};

struct ReplyRow : kvosim_test::NamedRow {
    ExactReply reply;
    std::string received;             ///< "(...)": how the connection ended, if not in an orderly way
    std::chrono::milliseconds least;  ///< until all of it has come
};

class ExactReplies : public testing::TestWithParam<ReplyRow> {};

TEST_P(ExactReplies, reach_the_client_byte_by_byte)
{
    const ExactServer server(GetParam().reply);
    const Client client(server.path());
    client.send("anything\n");
    std::string received;
    const auto time = support::timeOf([&] { received = client.receiveAll(400ms); });
    EXPECT_EQ(received, GetParam().received);
    EXPECT_GE(time, GetParam().least);
    EXPECT_LT(time, GetParam().least + 1s);
}

const std::vector<ReplyRow> kReplies = {
    {"one_piece", {{{0us, "ok\n"}}}, "ok\n", 0ms},
    {"pieces", {{{50ms, "o"}, {0us, "k"}, {50ms, "\n"}}}, "ok\n", 100ms},
    {"parts_of_milliseconds_add_up", {std::vector<ExactReply::Piece>(200, {500us, "x"})}, std::string(200, 'x'), 99ms},
    {"no_line_end", {{{0us, "ok"}}}, "ok", 0ms},
    {"carriage_return_and_more_lines", {{{0us, "ok\r\nmore\n"}}}, "ok\r\nmore\n", 0ms},
    {"zero_bytes", {{{0us, std::string("a\0b\n", 4)}}}, std::string("a\0b\n", 4), 0ms},
    {"closed_later", {{{0us, "ok\n"}}, End::closed, 100ms}, "ok\n", 100ms},
    {"closed_without_a_reply", {{}, End::closed, 100ms}, "", 100ms},
    {"silence", {{}, End::silence}, "(nothing more came)", 400ms},
    {"silence_after_a_part", {{{0us, "o"}}, End::silence}, "o(nothing more came)", 400ms},
    {"reset", {{}, End::reset, 100ms}, "(Connection reset by peer)", 100ms},
    {"reset_after_a_part", {{{50ms, "o"}}, End::reset}, "o(Connection reset by peer)", 50ms},
    {"large", {{{0us, std::string(3'000'000, 'x')}}}, std::string(3'000'000, 'x'), 0ms},
    {"many_pieces", {std::vector<ExactReply::Piece>(10'000, {0us, "x"})}, std::string(10'000, 'x'), 0ms},
};

INSTANTIATE_TEST_SUITE_P(Table, ExactReplies, testing::ValuesIn(kReplies), kvosim_test::kNameOfRow);

TEST(ExactReply, resets_after_a_request_in_pieces)
{
    const ExactServer server({{}, End::reset});
    const Client client(server.path());
    for (const char *piece : {"any", "thi", "ng\n"}) {
        client.send(piece);
        std::this_thread::sleep_for(5ms);
    }
    EXPECT_EQ(client.receiveAll(), "(Connection reset by peer)");
}

TEST(ExactReply, keeps_a_silent_connection_for_a_client_that_has_closed_its_side)
{
    const ExactServer server({{}, End::silence});
    const Client client(server.path());
    client.send("anything\n");
    shutdown(client.get(), SHUT_WR);
    EXPECT_EQ(client.receiveAll(200ms), "(nothing more came)");
}

TEST(ExactReply, serves_others_during_a_pause)
{
    const ExactServer server({{{300ms, "ok\n"}}});
    const Client first(server.path());
    first.send("anything\n");
    const Client second(server.path());
    second.send("anything\n");
    EXPECT_LT(support::timeOf([&] {
                  EXPECT_EQ(first.receiveAll(), "ok\n");
                  EXPECT_EQ(second.receiveAll(), "ok\n");
              }),
              550ms);
}

}  // namespace
