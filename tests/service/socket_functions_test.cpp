// The thin wrappers of socket functions.
#include <kvo_hws/service.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace {

TEST(SendSocket, sends_everything_or_reports_why_not)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    EXPECT_EQ(kvo_hws_send_socket(ends[0], "12345", 5, 0), 5);
    EXPECT_EQ(kvo_hws_send_socket(ends[0], "", 0, 0), 0);
    const std::string large(4'000'000, 'x');
    EXPECT_EQ(kvo_hws_send_socket(ends[0], large.data(), 4'000'000, MSG_DONTWAIT), -1) << "short";
    EXPECT_EQ(kvo_hws_send_socket(ends[0], large.data(), 4'000'000, MSG_DONTWAIT), -1) << "EAGAIN";
    close(ends[1]);
    EXPECT_EQ(kvo_hws_send_socket(ends[0], "12345", 5, MSG_NOSIGNAL), -2) << "EPIPE";
    close(ends[0]);
    const int unconnected = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(kvo_hws_send_socket(unconnected, "12345", 5, MSG_NOSIGNAL), -2) << "not connected";
    close(unconnected);
    EXPECT_EQ(kvo_hws_send_socket(-1, "12345", 5, MSG_NOSIGNAL), -1) << "not a descriptor";
}

TEST(SendSocket, uses_the_flags_of_the_caller)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    close(ends[1]);
    static std::atomic<int> pipes{0};
    struct sigaction action {};
    action.sa_handler = [](int) { ++pipes; };
    struct sigaction before {};
    sigaction(SIGPIPE, &action, &before);
    EXPECT_EQ(kvo_hws_send_socket(ends[0], "x", 1, 0), -2);
    EXPECT_EQ(pipes, 1);
    EXPECT_EQ(kvo_hws_send_socket(ends[0], "x", 1, MSG_NOSIGNAL), -2);
    EXPECT_EQ(pipes, 1);
    sigaction(SIGPIPE, &before, nullptr);
    close(ends[0]);
}

TEST(SocketSupport, needs_no_initialization)
{
    int status = 77;
    EXPECT_EQ(kvo_hws_StartUpSockets(&status), 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(kvo_hws_StartUpSockets(nullptr), 0);
    EXPECT_EQ(kvo_hws_CleanUpSockets(), 0);
}

}  // namespace
