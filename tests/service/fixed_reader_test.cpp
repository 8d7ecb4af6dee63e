// ReadSocket, which reads a line into a buffer of fixed size.
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>

#include "service/connection.h"
#include "service/readers_fixture.h"
#include "support/syslog_capture.h"
#include "support/time_of.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <syslog.h>
#include <thread>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

using service_test::CachedLine;
using service_test::DynLine;
using service_test::FixedLine;
using service_test::Pair;
using service_test::Readers;
using FixedReader = Readers;
using support::LogLine;
using support::SyslogCapture;
using support::timeOf;
using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Lt;

TEST_F(FixedReader, logs_a_complete_line)
{
    Pair pair;
    pair.write("hello\n");
    const SyslogCapture capture;
    EXPECT_EQ(FixedLine(pair.fd()).result, 1);
    EXPECT_THAT(capture.lines(),
                ElementsAre(LogLine{"", LOG_DEBUG,
                                    "ReadSocket: command/reply complete 'hello' (socket " + std::to_string(pair.fd()) + ")"}));
}

TEST_F(FixedReader, logs_nothing_at_level_0)
{
    SetDebugLevel(0);
    Pair pair;
    pair.write("hello\n").hangUp();
    const SyslogCapture capture;
    EXPECT_EQ(FixedLine(pair.fd()).result, 1);
    EXPECT_EQ(FixedLine(pair.fd()).result, -3);
    EXPECT_EQ(FixedLine(-1).result, -3);
    EXPECT_THAT(capture.lines(), IsEmpty());
}

TEST_F(FixedReader, returns_an_empty_text_for_a_line_end_alone)
{
    Pair pair;
    pair.write("\r\n\n");
    const FixedLine first(pair.fd());
    EXPECT_EQ(first.result, 1);
    EXPECT_EQ(first.text(), "");
    const FixedLine second(pair.fd());
    EXPECT_EQ(second.result, 1);
    EXPECT_EQ(second.text(), "");
}

TEST_F(FixedReader, reads_1023_characters_and_gives_up_at_1024)
{
    Pair longest;
    longest.write(std::string(1023, 'x') + "\n");
    const FixedLine line(longest.fd());
    EXPECT_EQ(line.result, 1);
    EXPECT_EQ(line.text(), std::string(1023, 'x'));

    Pair over;
    over.write(std::string(1024, 'x') + "\nrest");
    const SyslogCapture capture;
    EXPECT_EQ(FixedLine(over.fd()).result, -3);
    EXPECT_EQ(over.rest(), "\nrest");
    EXPECT_THAT(capture.lines(),
                ElementsAre(LogLine{"", LOG_INFO, "ReadSocket: return -3 (socket " + std::to_string(over.fd()) + ")"}));
}

TEST_F(FixedReader, assembles_a_line_from_pieces)
{
    Pair pair;
    pair.write("first ");
    std::thread late([&pair] {
        std::this_thread::sleep_for(50ms);
        pair.write("second\n");
    });
    EXPECT_EQ(FixedLine(pair.fd()).text(), "first second");
    late.join();
}

TEST_F(FixedReader, waits_4_s_for_data_and_logs_it)
{
    Pair pair;
    const SyslogCapture capture;
    int result = 0;
    const auto taken = timeOf([&] { result = FixedLine(pair.fd()).result; });
    EXPECT_EQ(result, -5);
    EXPECT_THAT(taken, AllOf(Ge(3950ms), Lt(6000ms)));
    const std::string socket = std::to_string(pair.fd());
    EXPECT_THAT(capture.lines(), ElementsAre(LogLine{"", LOG_INFO, "ReadSocket: select(" + socket + ") timeout"},
                                             LogLine{"", LOG_INFO, "ReadSocket: return -5 (socket " + socket + ")"}));
}

TEST_F(FixedReader, continues_after_a_failed_wait_and_reports_the_receive_error)
{
    const SyslogCapture capture;
    EXPECT_EQ(FixedLine(-1).result, -3);
    EXPECT_THAT(capture.lines(),
                ElementsAre(LogLine{"", LOG_INFO, "ReadSocket: select(-1) failed with 9 (Bad file descriptor)"},
                            LogLine{"", LOG_DEBUG, "ReadSocket peek: recv(-1) socket closed or socket invalid"},
                            LogLine{"", LOG_INFO, "ReadSocket: return -3 (socket -1)"}));
}

TEST_F(Readers, a_closed_descriptor_is_invalid)
{
    const int gone = dup(0);
    close(gone);
    EXPECT_EQ(FixedLine(gone).result, -3);
    EXPECT_EQ(DynLine(gone).result, -6);
    SocketCache cache{};
    EXPECT_EQ(CachedLine(gone, cache).result, -6);
}

TEST_F(Readers, a_descriptor_that_is_not_a_socket_is_invalid)
{
    int pipeEnds[2];
    ASSERT_EQ(pipe2(pipeEnds, O_CLOEXEC), 0);
    ASSERT_EQ(write(pipeEnds[1], "x\n", 2), 2);
    const std::string fd = std::to_string(pipeEnds[0]);
    const SyslogCapture capture;
    EXPECT_EQ(FixedLine(pipeEnds[0]).result, -3);
    EXPECT_EQ(DynLine(pipeEnds[0]).result, -3);
    SocketCache cache{};
    EXPECT_EQ(CachedLine(pipeEnds[0], cache).result, -3);
    EXPECT_THAT(capture.texts(), ElementsAre("ReadSocket peek: recv(" + fd + ") socket closed or socket invalid",
                                             "ReadSocket: return -3 (socket " + fd + ")",
                                             "ReadSocketDyn: recv(" + fd + ") socket closed or socket invalid",
                                             "ReadSocketDyn: return -3 (socket " + fd + ")",
                                             "ReadSocketCache: recv(" + fd + ") socket closed or socket invalid",
                                             "ReadSocketCache: return -3 (socket " + fd + ")"));
    close(pipeEnds[0]);
    close(pipeEnds[1]);
}

TEST_F(Readers, a_socket_without_a_peer_is_invalid)
{
    const int unconnected = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(FixedLine(unconnected).result, -3);
    EXPECT_EQ(DynLine(unconnected).result, -3);
    SocketCache cache{};
    EXPECT_EQ(CachedLine(unconnected, cache).result, -3);
    close(unconnected);
}

TEST_F(Readers, a_refused_datagram_socket_is_invalid)
{
    // A datagram to an unbound port makes the next receive report a refused connection.
    const int taken = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ASSERT_EQ(bind(taken, reinterpret_cast<const sockaddr *>(&address), length), 0);
    ASSERT_EQ(getsockname(taken, reinterpret_cast<sockaddr *>(&address), &length), 0);
    close(taken);
    const int refused = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(connect(refused, reinterpret_cast<const sockaddr *>(&address), length), 0);
    const std::string fd = std::to_string(refused);
    const SyslogCapture capture;
    for (const auto &read : {+[](int at) { return FixedLine(at).result; }, +[](int at) { return DynLine(at).result; }}) {
        ASSERT_EQ(send(refused, "x", 1, 0), 1);
        EXPECT_EQ(read(refused), -3);
    }
    EXPECT_THAT(capture.texts(), ElementsAre("ReadSocket peek: recv(" + fd + ") socket closed or socket invalid",
                                             "ReadSocket: return -3 (socket " + fd + ")",
                                             "ReadSocketDyn: recv(" + fd + ") socket closed or socket invalid",
                                             "ReadSocketDyn: return -3 (socket " + fd + ")"));
    close(refused);
}

TEST_F(Readers, any_other_receive_error_is_reported_with_its_number)
{
    // A peer that closes with unread bytes resets the connection.
    int ends[2];
    const auto reset = [&ends] {
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        ASSERT_EQ(send(ends[0], "unread", 6, MSG_NOSIGNAL), 6);
        close(ends[1]);
    };

    const SyslogCapture capture;
    reset();
    const std::string fd = std::to_string(ends[0]);
    EXPECT_EQ(FixedLine(ends[0]).result, -1);
    close(ends[0]);
    reset();
    const DynLine dyn(ends[0]);
    EXPECT_EQ(dyn.result, -1);
    EXPECT_EQ(dyn.reply.pcData, nullptr);
    close(ends[0]);
    reset();
    SocketCache cache{};
    EXPECT_EQ(CachedLine(ends[0], cache).result, -1);
    close(ends[0]);
    EXPECT_THAT(capture.lines(),
                ElementsAre(LogLine{"", LOG_DEBUG, "ReadSocket peek: recv(" + fd + ") errno=104 (Connection reset by peer)"},
                            LogLine{"", LOG_INFO, "ReadSocket: return -1 (socket " + fd + ")"},
                            LogLine{"", LOG_DEBUG, "ReadSocketDyn: recv(" + fd + ") errno=104 (Connection reset by peer)"},
                            LogLine{"", LOG_INFO, "ReadSocketDyn: return -1 (socket " + fd + ")"},
                            LogLine{"", LOG_DEBUG, "ReadSocketCache: recv(" + fd + ") errno=104 (Connection reset by peer)"},
                            LogLine{"", LOG_DEBUG, "ReadSocketCache: return -1 (socket " + fd + ")"}));
}

}  // namespace
