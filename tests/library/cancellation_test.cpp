// Every exported function, called by a thread with a pending cancellation: it must return, and neither the process nor the
// thread may end in it. System calls are not replaced here, as these are the cancellation points.
#include <kvo_hws/kvo_hws.h>
#include <kvo_hws/platform.h>

#include "agent/agent_fixture.h"
#include "agent/own_session.h"
#include "library/cancellation_calls.h"
#include "support/own_thread.h"
#include "support/scripted_service.h"

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <ctime>
#include <dlfcn.h>
#include <fstream>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <iostream>
#include <map>
#include <pthread.h>
#include <regex>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

// Functions that may be cancellation points elsewhere, but never on this machine: the system log without its daemon, texts
// that are read from a file, and functions of the panel's own libraries.
#pragma GCC visibility push(default)
extern "C" {

void openlog(const char * /*identity*/, int /*options*/, int /*facility*/) { pthread_testcancel(); }
void closelog() { pthread_testcancel(); }
void syslog(int /*priority*/, const char * /*format*/, ...) { pthread_testcancel(); }
void vsyslog(int /*priority*/, const char * /*format*/, va_list /*arguments*/) { pthread_testcancel(); }

char *strerror(int /*number*/) noexcept
{
    pthread_testcancel();
    static char text[] = "error";
    return text;
}

uint64_t GetTickCount64() noexcept
{
    pthread_testcancel();
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1'000'000;
}

unsigned long GetCurrentThreadId() noexcept
{
    pthread_testcancel();
    return 1;
}

}  // extern "C"
#pragma GCC visibility pop

namespace {

using agent_test::OwnSession;
using cancellation::Call;
using cancellation::Calls;
using cancellation::exposed;
using cancellation::exposing;
using cancellation::testsForCancellation;

/// All functions except the handlers.
Calls callsByName()
{
    Calls calls = cancellation::requestCalls();
    calls.merge(cancellation::otherCalls());
    calls.merge(cancellation::eventCalls());
    return calls;
}

using Names = std::vector<std::string>;

/// The names in a linker's list, by the comment above them.
std::map<std::string, Names> namesByComment(const char *list)
{
    std::ifstream file(list);
    std::map<std::string, Names> names;
    std::string comment;
    std::smatch match;
    for (std::string line; std::getline(file, line);) {
        if (std::regex_match(line, match, std::regex("\\s+# (\\w+).*"))) {
            comment = match[1];
        } else if (std::regex_match(line, match, std::regex("\\s+([A-Za-z_0-9]+);"))) {
            names[comment].push_back(match[1]);
        }
    }
    return names;
}

/// The exported names by their header.
std::map<std::string, Names> exported() { return namesByComment(KVO_EXPORTS); }

bool isVariable(const std::string &name)
{
    static const Names variables = namesByComment(KVO_DYNAMIC).at("Variables");
    return std::ranges::find(variables, name) != variables.end();
}

/// The call of a function, empty if it is not listed above. All handlers are called in the same way.
Call callOf(const std::string &name)
{
    static const auto calls = callsByName();
    if (name.starts_with("handle_")) {
        return [handler = reinterpret_cast<CmdHandler>(dlsym(RTLD_DEFAULT, name.c_str()))] {
            OwnSession own;
            std::string argument = "1:1";
            gCmdCallback = testsForCancellation;
            exposed([&] { handler(&own.session, nullptr, argument.data()); });
        };
    }
    const auto call = calls.find(name);
    return call != calls.end() ? call->second : Call();
}

/// Whether @p call returns although its thread has a pending cancellation.
bool returnsFrom(const Call &call)
{
    try {
        return support::onOwnThread([&] {
            pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
            pthread_cancel(pthread_self());
            call();
            return true;
        });
    } catch (const std::future_error &) {
        return false;
    }
}

/// Runs @p work in a child process, which also ends all threads that it leaves running. Returns the wait status.
int statusOf(const std::function<bool()> &work)
{
    const pid_t child = fork();
    if (child == 0) {
        _exit(work() ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

/// Parameter: the header that declares the functions.
class CancelledThread : public testing::TestWithParam<std::string> {
protected:
    void SetUp() override
    {
        setenv("KVO_PLATFORM_INTERFACE", "lo", 1);
        uiDebugMessageSysLogActive = 1;
        SetDebugLevel(2);
        for (const char *const file : {"/tmp/kvo_hws/currkvos.reg", "/tmp/kvo_hws/prevkvos.reg"}) {
            std::ofstream(file) << "10.0.0.5:st1:1024:768:32\n";
        }
    }

    /// Replies that let calls with several requests reach the last one.
    static std::string answerTo(const std::string &line)
    {
        const std::string request = line.substr(0, line.find('\n'));
        if (request == "isInitComplete") {
            return "yes";
        }
        if (request == "getregistrypath") {
            return "/tmp/";
        }
        return request.starts_with("getExDesc") ? agent_test::kStation : "ok";
    }

    const support::ScriptedService service{{support::answersWith(answerTo)}};
    const support::ScriptedService usb{{support::replies("ok")}, support::kUsbSocket};
    const support::ScriptedService events{{support::closesAtOnce()}, "/tmp/kvo_hws/event_sock"};
};

TEST_P(CancelledThread, returns_from_every_function)
{
    const Names names = exported().at(GetParam());
    int functions = 0;
    for (const std::string &name : names) {
        if (isVariable(name)) {
            continue;
        }
        const Call call = callOf(name);
        EXPECT_TRUE(call) << name << ": no call is listed for it here";
        if (call) {
            ++functions;
            EXPECT_EQ(statusOf([&] { return returnsFrom(call); }), 0) << name;
        }
    }
    std::cout << functions << " functions\n";
}

std::string nameOf(const testing::TestParamInfo<std::string> &info) { return info.param; }

INSTANTIATE_TEST_SUITE_P(Library, CancelledThread,
                         testing::Values("runtime", "service", "codecs", "requests", "usbevents", "config", "agent"), nameOf);

TEST(CancellationPoint, does_not_return_in_a_cancelled_thread)
{
    EXPECT_FALSE(returnsFrom(exposing([] { usleep(1000); })));
    EXPECT_TRUE(returnsFrom(exposing([] {})));
}

TEST(CancellationPoint, after_a_library_call_ends_a_cancelled_thread)
{
    EXPECT_FALSE(returnsFrom(exposing([] {
        kvo_hws_GiveUpThreadExecution();
        pthread_testcancel();
    }))) << "the cancellation is deferred, not lost";
}

TEST(ListedCalls, are_of_exported_functions)
{
    Names names;
    for (const auto &[header, of] : exported()) {
        names.insert(names.end(), of.begin(), of.end());
    }
    EXPECT_EQ(exported().size(), 7U) << "the headers whose functions are listed above";
    for (const auto &[name, call] : callsByName()) {
        EXPECT_NE(std::ranges::find(names, name), names.end()) << name;
    }
}

}  // namespace
