// Requests as a table: what is called, what the service hears and answers, what comes back and what is logged.
#pragma once

#include "support/scripted_service.h"
#include "support/syslog_capture.h"

#include <cstdint>
#include <functional>
#include <gmock/gmock.h>
#include <ostream>
#include <string>
#include <vector>

namespace support {

/// One request against one reply.
struct RequestCase {
    std::string name;
    std::function<int32_t()> call;
    std::vector<std::string> commands;  ///< what the service hears, without line feeds
    std::vector<std::string> replies;   ///< its answers, without line feeds; none: no service is there
    int32_t result;
    std::vector<std::string> messages{};
    bool peerCloses = false;  ///< the service hears the request and closes
};

inline std::ostream &operator<<(std::ostream &out, const RequestCase &row) { return out << row.name; }

inline std::string nameOf(const testing::TestParamInfo<RequestCase> &row) { return row.param.name; }

/// Runs a row and compares everything that can be seen of it.
inline void check(const RequestCase &row)
{
    std::vector<Script> scripts;
    for (const std::string &reply : row.replies) {
        scripts.push_back(support::replies(reply));
    }
    if (row.peerCloses) {
        scripts.push_back(support::closesAfterRequest());
    }
    const MessagesOn messages;
    std::vector<std::string> commands;
    const SyslogCapture capture;
    if (scripts.empty()) {
        EXPECT_EQ(row.call(), row.result);
    } else {
        const ScriptedService service(scripts);
        EXPECT_EQ(row.call(), row.result);
        for (std::string request : service.requests()) {
            request.pop_back();
            commands.push_back(request);
        }
    }
    EXPECT_EQ(commands, row.commands);
    EXPECT_EQ(capture.texts(), row.messages);
}

/// "command socket - ..." as every request without a service logs it first.
inline const std::string kNoConnection = "command socket - can not connect to socket";

}  // namespace support
