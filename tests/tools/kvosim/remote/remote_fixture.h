// A fixture with simulated remote sides, controlled over the control socket.
#pragma once

#include "common/control_client.h"
#include "support/eventually.h"
#include "tools/kvosim/support/agent.h"
#include "tools/kvosim/support/running_service.h"

#include <chrono>
#include <future>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace kvosim_test {

using namespace std::chrono_literals;

inline kvosim::ServiceOptions sessions(std::vector<unsigned> numbers)
{
    kvosim::ServiceOptions options;
    options.remoteSessions = std::move(numbers);
    return options;
}

inline tools::Json sessionRow(unsigned session)
{
    const tools::Json list = tools::askSimulator({{"do", "remote.list"}});
    for (const tools::Json &row : list["sessions"]) {
        if (row["session"] == session) {
            return row;
        }
    }
    return {};
}

/// Waits until an agent is connected, or until none is.
inline bool waitForConnection(bool connected, unsigned session = 3)
{
    return support::eventually([=] { return sessionRow(session)["agent"].is_null() != connected; });
}

inline tools::Json request(std::string text, const tools::Json &more = tools::Json::object())
{
    tools::Json ask{{"do", "remote.ask"}, {"session", 3}, {"request", std::move(text)}, {"patience_ms", 5000}};
    ask.update(more);
    return ask;
}

/// Returns the reply, or the reason why there is none.
inline std::future<std::string> requestAsync(const tools::Json &request)
{
    return std::async(std::launch::async, [request]() -> std::string {
        try {
            return tools::askSimulator(request, tools::kControlSocket, 30s)["reply"].get<std::string>();
        } catch (const tools::CouldNot &error) {
            return std::string("could not: ") + error.what();
        }
    });
}

inline std::vector<std::string> log(const tools::Json &query = tools::Json::object())
{
    tools::Json request{{"do", "remote.log"}};
    request.update(query);
    std::vector<std::string> lines;
    const tools::Json page = tools::askSimulator(request);
    for (const tools::Json &record : page["records"]) {
        const std::string kind = record["kind"].get<std::string>();
        const std::string note = record["note"].get<std::string>();
        lines.push_back(kind + ' ' + record["text"].get<std::string>() + (note.empty() ? "" : " (" + note + ')'));
    }
    return lines;
}

class Remote : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(waitForConnection(true)); }

    /// Waits until the log contains @p count records.
    static std::vector<std::string> logOf(std::size_t count)
    {
        std::vector<std::string> lines;
        support::eventually([&] {
            lines = log();
            return lines.size() >= count;
        });
        return lines;
    }

    RunningService service{kvosim_test::kSmallPlant, sessions({3, 9})};
    Agent agent;
};

}  // namespace kvosim_test
