// Programs that do not use the library, and strace as a witness that knows nothing of traces.
#include "tools/kvoctl/trace/traced_service.h"
#include "tools/kvosim/support/temporary_directory.h"

#include "support/scripted_service.h"

#include <cstdlib>
#include <fstream>
#include <map>
#include <numeric>
#include <regex>
#include <sys/wait.h>
#include <unistd.h>

namespace kvoctl_test {

namespace {

using kvosim_test::contentsOf;
using kvosim_test::TemporaryDirectory;
using testing::HasSubstr;
using tools::recording::Exchange;
using tools::recording::joined;

const std::string kClient = std::string("python3 -IS ") + PLAIN_CLIENT;
const std::string kSocat = "socat -t 10 - UNIX-CONNECT:/tmp/kvo_hws/cmd_sock";

bool isInstalled(const std::string &program) { return std::system(("command -v " + program + " > /dev/null").c_str()) == 0; }

std::string allBytes()
{
    std::string bytes(256, '\0');
    std::iota(bytes.begin(), bytes.end(), '\0');
    return bytes;
}

class Clients : public testing::Test {
protected:
    /// The output of a shell command whose standard input is @p input.
    std::string output(const std::string &command, const std::string &input) const
    {
        std::ofstream(directory_ / "input", std::ios::binary) << input;
        Program program({"sh", "-c", command + " < " + (directory_ / "input").string()});
        EXPECT_EQ(program.wait(), 0) << program.err();
        return program.out();
    }

    /// A file of the test.
    [[nodiscard]] std::string file(const char *name) const { return directory_ / name; }

private:
    TemporaryDirectory directory_;
};

/// Requests of every shape. Those without a line feed need a half-close to be complete.
const std::vector<std::string> &shapes()
{
    static const std::vector<std::string> all{
        "getVersion\n",
        "getDLV2 64\n",
        "getVersion\r\n",
        "getDescription=0A000005\n",
        "unknown request\n",
        "\n",
        "getVersion\nisInitComplete\n",
        "getVersion\nhalf of ano",
        "getVersion",
        "",
        allBytes() + "\n",
        "setCI=0A000005 " + std::string(300, 'x') + "\n",
    };
    return all;
}

TEST_F(Clients, get_the_same_bytes_with_and_without_a_trace)
{
    struct Client {
        const char *program;
        std::string command;
    };
    for (const auto &[program, command] :
         {Client{"python3", kClient}, Client{"python3", kClient + " --half-close"}, Client{"socat", kSocat}}) {
        if (!isInstalled(program)) {
            GTEST_SKIP() << program << " is not installed";
        }
        SCOPED_TRACE(command);
        Service service;
        std::vector<std::string> without;
        const auto takesShape = [&](const std::string &request) {
            // A program that keeps its direction open would wait forever for the reply to half a line.
            return command != kClient || request.ends_with('\n');
        };
        for (const std::string &request : shapes()) {
            without.push_back(takesShape(request) ? output(command, request) : "");
        }
        Tracing record({"record", file("clients.rec"), "--force"});
        ASSERT_TRUE(record.isAttached()) << record.err();
        std::vector<std::string> requests;
        for (std::size_t i = 0; i < shapes().size(); ++i) {
            if (takesShape(shapes()[i])) {
                SCOPED_TRACE(shapes()[i].substr(0, 80));
                EXPECT_EQ(output(command, shapes()[i]), without[i]);
                requests.push_back(shapes()[i]);
            }
        }
        EXPECT_EQ(record.stop(), 0) << record.err();
        const std::vector<Exchange> exchanges = exchangesOf(file("clients.rec"));
        ASSERT_EQ(exchanges.size(), requests.size());
        for (std::size_t i = 0; i < exchanges.size(); ++i) {
            EXPECT_TRUE(requests[i].starts_with(joined(exchanges[i].request))) << requests[i].substr(0, 80);
        }
    }
}

TEST_F(Clients, get_every_byte)
{
    std::string reply;
    for (int i = 0; i < 2000; ++i) {
        reply += allBytes();
    }
    const support::ScriptedService service({support::sends(reply)});
    Tracing record({"record", file("bytes.rec")});
    ASSERT_TRUE(record.isAttached()) << record.err();
    const std::string request = std::string(300'000, 'x') + '\n';
    EXPECT_TRUE(output(kClient, request) == reply);
    EXPECT_TRUE(output(kClient + " --half-close", request) == reply);
    EXPECT_EQ(record.stop(), 0) << record.err();
    const std::vector<Exchange> exchanges = exchangesOf(file("bytes.rec"));
    ASSERT_EQ(exchanges.size(), 2U);
    for (const Exchange &exchange : exchanges) {
        EXPECT_TRUE(joined(exchange.request) == request);
        EXPECT_TRUE(joined(exchange.reply) == reply);
    }
    EXPECT_TRUE(exchanges[1].requestEnded);
}

// ---- What strace has seen ----

struct Passed {
    std::string request;
    std::string reply;
    bool operator==(const Passed &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Passed &passed)
{
    return out << testing::PrintToString(passed.request) << " -> " << testing::PrintToString(passed.reply);
}

/// The bytes of a string that strace has written as "\x67\x65".
std::string bytesOf(const std::string &escaped)
{
    std::string bytes;
    for (std::size_t i = 0; i + 4 <= escaped.size(); i += 4) {
        bytes.push_back(static_cast<char>(std::stoi(escaped.substr(i + 2, 2), nullptr, 16)));
    }
    return bytes;
}

/// Every connection to the service in the output of "strace -f -xx", in the order of connecting.
std::vector<Passed> connectionsIn(const std::string &file)
{
    static const std::regex call(R"re((?:\d+ +)?(\w+)\((\d+), (.*)\) += (\d+).*)re");
    static const std::regex text(R"re("((?:\\x[0-9a-f]{2})*)")re");
    std::vector<Passed> connections;
    std::map<std::string, std::size_t> open;  // by the number of the descriptor
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);) {
        // std::regex recurses for each character, so long texts are cut out of the line first.
        const std::size_t begin = line.find('"');
        const std::size_t end = line.rfind('"');
        const bool hasText = begin != std::string::npos && end > begin;
        const std::string bytes = hasText ? bytesOf(line.substr(begin + 1, end - begin - 1)) : "";
        std::smatch parts;
        const std::string rest = hasText ? line.substr(0, begin) + line.substr(end + 1) : line;
        if (!std::regex_match(rest, parts, call)) {
            continue;
        }
        const std::string name = parts[1];
        const std::string descriptor = parts[2];
        const std::size_t size = std::stoul(parts[4]);
        if (name == "socket" || name == "close") {
            open.erase(descriptor);
        } else if (name == "connect" && bytes.starts_with(tools::kCommandSocket)) {
            open[descriptor] = connections.size();
            connections.emplace_back();
        } else if (rest.find("MSG_PEEK") != std::string::npos) {
            continue;
        } else if (const auto found = open.find(descriptor); found != open.end()) {
            Passed &passed = connections[found->second];
            const bool isRequest =
                name == "send" || name == "sendto" || name == "sendmsg" || name == "write" || name == "writev";
            (isRequest ? passed.request : passed.reply) += bytes.substr(0, size);
        }
    }
    return connections;
}

TEST_F(Clients, exchange_what_strace_sees)
{
    if (!isInstalled("strace")) {
        GTEST_SKIP() << "strace is not installed";
    }
    if (std::system("strace -o /dev/null true 2> /dev/null") != 0) {
        GTEST_SKIP() << "this container does not permit to trace system calls";
    }
    // The leak sanitizer does not work under strace.
    const std::string strace =
        "ASAN_OPTIONS=detect_leaks=0 strace -f -e trace=network,read,write,readv,writev,close -xx -s 100000 -o " +
        file("calls") + " ";
    const Service service;
    for (const auto &[command, input] : {std::pair{kClient, std::string("getDLV2 64\n")},
                                         std::pair{std::string(KVOCTL_PROGRAM) + " panel show 10.0.0.5", std::string()},
                                         std::pair{std::string(KVOCTL_PROGRAM) + " version", std::string()}}) {
        SCOPED_TRACE(command);
        Tracing record({"record", file("witness.rec"), "--force"});
        ASSERT_TRUE(record.isAttached()) << record.err();
        output(strace + command, input);
        EXPECT_EQ(record.stop(), 0) << record.err();
        std::vector<Passed> recorded;
        for (const Exchange &exchange : exchangesOf(file("witness.rec"))) {
            recorded.push_back({joined(exchange.request), joined(exchange.reply)});
        }
        EXPECT_FALSE(recorded.empty());
        EXPECT_EQ(connectionsIn(file("calls")), recorded);
    }
}

// ---- Who asked ----

bool hasPidNamespaces() { return std::system("unshare -pf --mount-proc true 2> /dev/null") == 0; }

TEST_F(Clients, in_another_pid_namespace_are_shown_without_their_process)
{
    if (!hasPidNamespaces()) {
        GTEST_SKIP() << "this container does not permit a PID namespace";
    }
    const Service service;
    Program trace({"unshare", "-pf", "--mount-proc", "--kill-child", KVOCTL_PROGRAM, "trace", "--json"});
    ASSERT_TRUE(support::eventually([] { return tools::tap::isAttached(); })) << trace.err();
    EXPECT_TRUE(answers());
    EXPECT_TRUE(trace.hasWritten(R"("pid":null,"program":null,"request":"isInitComplete")")) << trace.out();
}

TEST_F(Clients, in_a_pid_namespace_inside_are_shown_with_their_process)
{
    if (!hasPidNamespaces()) {
        GTEST_SKIP() << "this container does not permit a PID namespace";
    }
    const Service service;
    const Tracing trace;
    ASSERT_TRUE(trace.isAttached()) << trace.err();
    EXPECT_EQ(output("unshare -pf " + kClient, "getVersion\n"), kvosim_test::exchange("getVersion\n"));
    EXPECT_TRUE(trace.hasWritten("python3["));
}

TEST_F(Clients, that_have_ended_are_shown_as_such)
{
    const Service service;
    const Tracing trace;
    ASSERT_TRUE(trace.isAttached()) << trace.err();
    trace.pause();
    const pid_t program = fork();
    if (program == 0) {
        _exit(kvosim_test::Client().send("getVersion\n") ? 0 : 1);
    }
    int status = -1;
    waitpid(program, &status, 0);
    ASSERT_EQ(status, 0);
    trace.signal(SIGCONT);
    EXPECT_TRUE(trace.hasWritten("(ended)[" + std::to_string(program) + "]")) << trace.out();
    EXPECT_THAT(trace.out(), HasSubstr("> getVersion"));
}

}  // namespace

}  // namespace kvoctl_test
