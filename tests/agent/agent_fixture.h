// A running agent with its surroundings: the local service that answers it, the remote side that sends it requests, and the
// host that it passes commands to.
#pragma once

#include "support/leak_suppressions.h"
#include "support/remote_service.h"
#include "support/scripted_service.h"

#include <kvo_hws/agent.h>

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace agent_test {

/// The station in focus as the local service describes it: 1024 x 768, 32 bits, hardware 1.2.3.4 with serial part 89abcdef.
inline const std::string kStation = "0500000A 00000400 00000300 00000020 00000003 st1 00000000 00000000 00000001 00000002 "
                                    "00000003 00000004 89ABCDEF ";

inline constexpr unsigned kSession = 3;

inline std::string parameters(const std::string &more = "")
{
    return "focusKvoIp=10.0.0.5\nremoteKvoHwsIp=127.0.0.1\nremoteSession=3\n" + more;
}

/// The host: records the commands that it receives and returns a chosen result.
class Host {
public:
    static int callback(void *instance, const char *command)
    {
        EXPECT_EQ(instance, gEmbKvoInst);
        std::function<int(const std::string &)> answer;
        {
            const std::lock_guard guard(lock_);
            commands_.emplace_back(command);
            answer = answer_;
        }
        return answer ? answer(command) : 1;
    }

    /// The commands received since the last call.
    static std::vector<std::string> commands()
    {
        const std::lock_guard guard(lock_);
        return std::exchange(commands_, {});
    }
    static void setAnswer(std::function<int(const std::string &command)> answer)
    {
        const std::lock_guard guard(lock_);
        answer_ = std::move(answer);
        commands_.clear();
    }
    static void setAnswer(int result)
    {
        setAnswer([result](const std::string &) { return result; });
    }

private:
    static inline std::mutex lock_;
    static inline std::vector<std::string> commands_;
    static inline std::function<int(const std::string &)> answer_;
};

/// The local service's replies by request; the reply to any other request is "failed".
using Replies = std::map<std::string, std::string>;

inline support::Script serves(Replies replies = {})
{
    replies.emplace("getExDescByIP 0500000A", kStation);
    replies.emplace("getKVOt2m2n=0500000A", "1:2,3");
    return support::answersWith([replies = std::move(replies)](const std::string &request) {
        const auto reply = replies.find(request.substr(0, request.find('\n')));
        return reply != replies.end() ? reply->second : std::string("failed");
    });
}

inline bool isRunning() { return std::atomic_ref(gEmbKvoInst->running).load() != 0; }

/// Starts the agent and cleans it up at the end of the scope.
class Agent {
public:
    explicit Agent(const std::string &params = parameters())
    {
        EXPECT_EQ(KVO_HWS_startupEmbHwsClient(params.c_str(), &instance, Host::callback), 1);
    }
    Agent(const Agent &) = delete;
    Agent &operator=(const Agent &) = delete;
    ~Agent()
    {
        if (!cleaned) {
            EXPECT_EQ(KVO_HWS_cleanupEmbHwsClient(instance), 1);
        }
    }

    void *instance = nullptr;
    bool cleaned = false;
};

}  // namespace agent_test
