// Every text that the library logs, against the list in log_texts.golden: texts are part of the interface, programs and people
// search logs for them. KVO_WRITE_GOLDEN=1 in the environment writes the list anew instead.
#include <kvo_hws/kvo_hws.h>

#include "support/own_thread.h"
#include "support/scripted_service.h"
#include "support/syslog_capture.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

using support::ScriptedService;

/// What differs from run to run is written as what it is.
std::string withoutNumbers(const std::string &text)
{
    static const std::vector<std::pair<std::regex, std::string>> kRules = {
        {std::regex("thread 0x[0-9A-F]{8}"), "thread 0x<thread>"},
        {std::regex("\\[[0-9A-F]{8}\\]"), "[<thread>]"},
        {std::regex("(recv|select)\\(-?[0-9]+\\)"), "$1(<fd>)"},
        {std::regex("(socket|closesocket) -?[0-9]+"), "$1 <fd>"},
        {std::regex("x{20,}"), "xxx..."}};
    std::string result = text;
    for (const auto &[pattern, replacement] : kRules) {
        result = std::regex_replace(result, pattern, replacement);
    }
    return result;
}

// Requests are shown with their own messages alone; the readers' lines, the same for all of them, stand once.
constexpr int kMessagesOnly = 0;
constexpr int kAll = 2;

class Collector {
public:
    /// Runs @p work at a debug level and notes what it logged under @p heading.
    void run(const std::string &heading, int level, const std::function<void()> &work)
    {
        const support::MessagesOn messages(level);
        const support::SyslogCapture capture;
        work();
        for (const support::LogLine &line : capture.lines()) {
            lines_.insert(heading + " [" + std::to_string(line.priority) + "] " + withoutNumbers(line.text));
        }
    }

    [[nodiscard]] std::string text() const
    {
        std::string text;
        for (const std::string &line : lines_) {
            text += line + "\n";
        }
        return text;
    }

private:
    std::set<std::string> lines_;
};

struct Call {
    const char *name;
    std::function<void()> call;
    std::vector<std::vector<std::string>> replies{};  ///< beyond those that every request is given
};

const std::vector<Call> &calls()
{
    static const std::vector<Call> kCalls = {
        {"KVO_HWS_getDLLVersion",
         [] {
             char text[20];
             unsigned size = 3;
             KVO_HWS_getDLLVersion(text, &size);
             KVO_HWS_getDLLVersion(nullptr, &size);
         }},
        {"KVO_HWS_getDebugLevel", [] { KVO_HWS_getDebugLevel(); }},
        {"KVO_HWS_getDescriptionEx",
         [] {
             KvoDescriptionEx record;
             KVO_HWS_getDescriptionEx(1, nullptr, &record);
             KVO_HWS_getDescriptionEx(1, nullptr, nullptr);
         }},
        {"KVO_HWS_getDescriptionList",
         [] {
             KvoDescription list[1];
             uint32_t count = 1;
             KVO_HWS_getDescriptionList(list, &count);
             KVO_HWS_getDescriptionList(nullptr, &count);
         },
         {{"2"}, {"1", "failed"}, {"1", "x"}, {"1", "00000002 "}, {"1", "00000001 x"}}},
        {"KVO_HWS_getDescriptionListEx",
         [] {
             KvoDescriptionEx list[1];
             uint32_t count = 1;
             KVO_HWS_getDescriptionListEx(list, &count);
             KVO_HWS_getDescriptionListEx(list, nullptr);
         },
         {{"2"}, {"1", "failed"}, {"1", "x"}, {"1", "00000002 "}, {"1", "00000001 x"}}},
        {"KVO_HWS_getKVOCurrentListFromRegistry",
         [] {
             KvoDescription list[1];
             uint32_t count = 1;
             KVO_HWS_getKVOCurrentListFromRegistry(list, &count, 0);
         }},
        {"KVO_HWS_getKVOHWSVersion",
         [] {
             char text[20];
             unsigned size = 1;
             KVO_HWS_getKVOHWSVersion(text, &size);
             KVO_HWS_getKVOHWSVersion(nullptr, &size);
         }},
        {"KVO_HWS_isInitComplete", [] { KVO_HWS_isInitComplete(); }},
        {"KVO_HWS_killDaemon", [] { KVO_HWS_killDaemon(); }},
        {"KVO_HWS_lockKVORegData", [] { KVO_HWS_lockKVORegData(); }},
        {"KVO_HWS_setBacklight",
         [] {
             KVO_HWS_setBacklight(1);
             KVO_HWS_setBacklight(2);
         }},
        {"KVO_HWS_setBrightness",
         [] {
             KVO_HWS_setBrightness(1, 1);
             KVO_HWS_setBrightness(1, 2);
         }},
        {"KVO_HWS_setDebugLevel", [] { KVO_HWS_setDebugLevel(1); }},
        {"KVO_HWS_unlockKVORegData", [] { KVO_HWS_unlockKVORegData(); }},
    };
    return kCalls;
}

/// Each request without a service, with one that hangs up, and with every reply.
void collectRequests(Collector &collector)
{
    const std::vector<std::vector<std::string>> common = {{"ok"}, {"failed"}, {"what"}, {""}};
    for (const Call &call : calls()) {
        collector.run(call.name, kMessagesOnly, call.call);
        {
            const ScriptedService service({support::closesAfterRequest()});
            collector.run(call.name, kMessagesOnly, call.call);
        }
        auto replies = common;
        replies.insert(replies.end(), call.replies.begin(), call.replies.end());
        for (const auto &conversation : replies) {
            std::vector<support::Script> scripts;
            for (const std::string &reply : conversation) {
                scripts.push_back(support::replies(reply));
            }
            const ScriptedService service(scripts);
            collector.run(call.name, kMessagesOnly, call.call);
        }
    }
}

void collectSenders(Collector &collector)
{
    const auto sendBoth = [](const std::string &text) {
        return [text] {
            support::onOwnThread([text] { return FuncSendCommand2DLL(strdup(text.c_str())); });
            support::onOwnThread([text] { return SendUsbMsg2DLL(text.c_str()); });
        };
    };
    for (const std::string &text : {std::string("suicide"), std::string("state"), std::string(1023, 'x')}) {
        collector.run("senders", kAll, sendBoth(text));
    }
    {
        const ScriptedService server({support::replies("ok")}, support::kUsbSocket);
        collector.run("senders", kAll, sendBoth("suicide"));
    }
    // Larger than what a socket holds, to a peer that never reads it.
    const ScriptedService gone({support::closesAtOnce()});
    collector.run("command socket", kMessagesOnly, [] {
        DynBuffer reply{};
        SendCommand2ServiceDyn(std::string(5'000'000, 'x').c_str(), &reply);
    });
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    collector.run("senders", kAll, sendBoth("suicide"));
    collector.run("command socket", kMessagesOnly, [] { KVO_HWS_getDebugLevel(); });
    setrlimit(RLIMIT_NOFILE, &limit);
}

void collectReaders(Collector &collector)
{
    const auto readAll = [](int fd) {
        return [fd] {
            char line[1025];
            DynBuffer reply{};
            SocketCache cache{};
            ReadSocket(fd, line);
            ReadSocketDyn(fd, &reply);
            free(reply.pcData);
            ReadSocketCache(fd, line, &cache, 10);
        };
    };
    collector.run("readers", kAll, readAll(-1));
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    ASSERT_EQ(write(ends[1], "a\nb\nc\n", 6), 6);
    collector.run("readers", kAll, readAll(ends[0]));
    collector.run("readers", kAll, readAll(ends[0]));  // silent
    close(ends[1]);
    collector.run("readers", kAll, readAll(ends[0]));
    close(ends[0]);
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(write(ends[1], "a\n", 2), 2);
    collector.run("readers", kAll, readAll(ends[0]));
    close(ends[0]);
    close(ends[1]);
    for (int reader = 0; reader < 3; ++reader) {
        // A peer that closes with bytes unread resets the connection; the reset is told once.
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        ASSERT_EQ(write(ends[0], "x", 1), 1);
        close(ends[1]);
        collector.run("readers", kAll, [reader, fd = ends[0]] {
            char line[1025];
            DynBuffer reply{};
            SocketCache cache{};
            if (reader == 0) {
                ReadSocket(fd, line);
            } else if (reader == 1) {
                ReadSocketDyn(fd, &reply);
            } else {
                ReadSocketCache(fd, line, &cache, 10);
            }
        });
        close(ends[0]);
    }
}

TEST(LogTexts, are_those_of_the_golden_list)
{
    Collector collector;
    collector.run("debug mode", kAll, [] {
        KVO_HWS_activateDebugDLL();
        KVO_HWS_deactivateDebugDLL();
    });
    collectRequests(collector);
    collectSenders(collector);
    collectReaders(collector);

    if (std::getenv("KVO_WRITE_GOLDEN") != nullptr) {
        std::ofstream(KVO_LOG_TEXTS) << collector.text();
        GTEST_SKIP() << "wrote " << KVO_LOG_TEXTS << " instead of comparing";
    }
    std::stringstream golden;
    golden << std::ifstream(KVO_LOG_TEXTS).rdbuf();
    EXPECT_EQ(collector.text(), golden.str()) << "KVO_WRITE_GOLDEN=1 writes the list anew";
}

}  // namespace
