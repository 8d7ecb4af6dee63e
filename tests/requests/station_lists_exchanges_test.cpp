// Behaviour of the station lists and of the look-up of one station that the catalogue does not cover.
#include <kvo_hws/requests.h>

#include "support/scripted_service.h"
#include "support/syslog_capture.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

TEST(StationLists, a_service_that_closes_between_the_requests_is_logged_without_the_count)
{
    const support::MessagesOn messages;
    for (const bool withExtension : {false, true}) {
        const support::ScriptedService service({support::replies("0"), support::closesAfterRequest()});
        const support::SyslogCapture capture;
        uint32_t count = 1;
        KvoDescription list[1];
        KvoDescriptionEx listEx[1];
        EXPECT_EQ(withExtension ? KVO_HWS_getDescriptionListEx(listEx, &count) : KVO_HWS_getDescriptionList(list, &count), -1);
        EXPECT_EQ(capture.texts(), (std::vector<std::string>{"command socket - can not read from socket",
                                                             std::string(withExtension ? "get KVO description list extended"
                                                                                       : "get KVO description list") +
                                                                 " - can not send request"}));
    }
}

TEST(StationLookUp, a_command_beyond_1024_bytes_is_sent_truncated)
{
    const support::ScriptedService service({support::replies("not found")});
    KvoDescriptionEx record;
    EXPECT_EQ(KVO_HWS_getDescriptionEx(0, std::string(2000, 'n').c_str(), &record), 0);
    EXPECT_EQ(service.requests().at(0), ("getExDescByName " + std::string(2000, 'n')).substr(0, 1023) + "\n");
}

}  // namespace
