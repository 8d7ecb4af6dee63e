// Threads that are cancelled while they are in the library go on to the end of what they do there.
#include <kvo_hws/agent.h>
#include <kvo_hws/config.h>

#include "agent/own_session.h"
#include "support/kept_by_the_platform.h"
#include "support/own_thread.h"

#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <ostream>
#include <pthread.h>
#include <string>

namespace {

using agent_test::OwnSession;

struct Work {
    const char *name;
    std::function<void(OwnSession &own)> run;
    std::string remoteSends = {};
};

std::ostream &operator<<(std::ostream &out, const Work &work) { return out << work.name; }

class Cancelled : public testing::TestWithParam<Work> {};

TEST_P(Cancelled, goes_on_to_its_end)
{
    OwnSession own;
    protocolNegotiated = 1;
    own.sends(GetParam().remoteSends);
    const bool ended = support::onOwnThread([&] {
        pthread_cancel(pthread_self());  // takes effect at the next call that may be cancelled
        GetParam().run(own);
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        return true;
    });
    EXPECT_TRUE(ended);
}

std::string nameOf(const testing::TestParamInfo<Work> &info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(
    Agent, Cancelled,
    testing::Values(
        Work{"reply", [](OwnSession &own) { hmiconn_reply(own.session.socket, nullptr, "x", static_cast<char *>(nullptr)); }},
        Work{"indication", [](OwnSession &own) { hmiconn_indication(own.session.socket, "x", static_cast<char *>(nullptr)); }},
        Work{"event", [](OwnSession &) { KVO_HWS_sendEmbHwsEvent(gEmbKvoInst, "x"); }},
        Work{"close", [](OwnSession &own) { hmi_close_x(&own.session); }},
        Work{"request", [](OwnSession &own) { hmiconn_process_one_request(&own.session); }, "ping\n"},
        Work{"half_a_request", [](OwnSession &own) { hmiconn_process_one_request(&own.session); }, "pi"},
        Work{"configuration", [](OwnSession &) { ReadConfFile(); }},
        Work{"sysfs_file", [](OwnSession &) { std::free(sysfsfile("/proc/self", "fdinfo", "0")); }},
        Work{"sysfs_folder",
             [](OwnSession &) {
                 char path[300] = "/proc/self/*";
                 sysfssubst(path);
             }}),
    nameOf);

}  // namespace
