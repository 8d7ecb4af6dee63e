// An agent that is connected to a remote side, and the datagrams that it sends.
#pragma once

#include <kvo_hws/agent.h>

#include "agent/agent_fixture.h"
#include "support/remote_service.h"
#include "support/scripted_service.h"
#include "support/system_calls.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <iterator>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace agent_test {

inline const std::string kMcp = "mcpFlag=2\n";  // any value except 0

/// An agent that is connected to a remote side and has finished its first requests to the local service.
class ConnectedAgent {
public:
    explicit ConnectedAgent(const std::string &more = "", const Replies &replies = {})
        : service_({serves(replies)}), agent_((setenv("KVO_PLATFORM_INTERFACE", "lo", 1), parameters(more)))
    {
        EXPECT_TRUE(remote_.accept());
        seen_ = service_.requests().size();
    }

    support::RemoteService &remote() { return remote_; }
    std::string ask(const std::string &request) { return remote_.ask(request); }

    /// The requests to the local service since the last call.
    std::vector<std::string> serviceRequests()
    {
        std::vector<std::string> all = service_.requests();
        all.erase(all.begin(), std::next(all.begin(), static_cast<std::ptrdiff_t>(std::exchange(seen_, all.size()))));
        for (std::string &request : all) {
            request.pop_back();
        }
        return all;
    }

private:
    support::RemoteService remote_{kSession};
    support::ScriptedService service_;
    Agent agent_;
    std::size_t seen_ = 0;
};

/// Captures the datagrams that set a USB lock.
class Datagrams {
public:
    std::vector<std::string> texts()
    {
        const std::lock_guard guard(lock_);
        return std::exchange(texts_, {});
    }

private:
    ssize_t take(const void *bytes, std::size_t length)
    {
        const std::lock_guard guard(lock_);
        texts_.emplace_back(static_cast<const char *>(bytes), length);
        return static_cast<ssize_t>(length);
    }

    std::mutex lock_;
    std::vector<std::string> texts_;
    support::WithSystemCalls calls_{
        {.sendto = [this](int, const void *bytes, std::size_t length, const sockaddr *) { return take(bytes, length); }}};
};

inline std::vector<std::string> listOf(const std::string &text)
{
    return text.empty() ? std::vector<std::string>{} : std::vector<std::string>{text};
}

}  // namespace agent_test
