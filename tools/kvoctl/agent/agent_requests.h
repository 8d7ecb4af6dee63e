// The requests of "kvoctl agent check": a harmless argument and the valid replies of each command.
#pragma once

#include <string>
#include <string_view>

namespace kvoctl {

struct AgentRequest {
    /// An extended regular expression for valid replies, without the tag and with the line end, if the reply has one.
    std::string reply;
    std::string_view argument{};  ///< follows a keyword that ends in "="
    /// The command that returns the current value, which is then sent instead of @c argument.
    std::string_view getter{};
    /// Whether it changes this station or others even with that argument.
    bool changes = false;
};

/// Null for an unknown keyword.
const AgentRequest *findAgentRequest(std::string_view keyword);

/// Whether the protocol allows @p reply to the command.
bool isValidReply(const AgentRequest &request, const std::string &reply);

}  // namespace kvoctl
